// Two functions for applications whose threads run a loop of their own: poll one descriptor, then dispatch.
#ifndef MOXEL_MOXELRUNLOOP_H
#define MOXEL_MOXELRUNLOOP_H

#include "MoxelBase.h"

MOXEL_BEGIN_DECLS

/// A descriptor that polls readable when the calling thread's run loop has work: events for the handlers that
/// the thread installed. It belongs to the library and stays the same for the thread's life; never read or
/// close it. -1 where the platform has none or is out of descriptors.
MOXEL_EXPORT int MoxelRunLoopGetFD(void);

/// Runs what is due on the calling thread's run loop, waiting for it at most so many milliseconds (0: not at
/// all; negative: until something is due). It begins nothing more once that time is up and 100 ms have passed
/// since something ran; the descriptor stays readable for what is left. Returns how many items ran, or a
/// negative errno: -EBUSY from inside a handler.
MOXEL_EXPORT int MoxelRunLoopDispatch(int timeoutMilliseconds);

MOXEL_END_DECLS

#endif
