// What GNUstep's Foundation does beside the library; plain C, because the other side is Objective-C.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A thread that runs a run loop until gnustepThreadStop().
void *gnustepThreadStart(void (*function)(void *context), void *context);
/// Makes the thread call its function, once.
void gnustepThreadPerform(void *thread);
void gnustepThreadStop(void *thread);

/// The objects of a keyed archive, to be given to gnustepRelease(); null when it cannot be read.
void *gnustepUnarchive(const uint8_t *bytes, size_t size);
/// A keyed archive of such objects, to be given to gnustepRelease().
void *gnustepArchive(void *objects);
void gnustepRelease(void *object);

#ifdef __cplusplus
}
#endif
