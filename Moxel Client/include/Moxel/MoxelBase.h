// Visibility, linkage and opaque references that the Moxel headers share.
#ifndef MOXEL_MOXELBASE_H
#define MOXEL_MOXELBASE_H

/// Marks what the shared library exports.
#ifndef MOXEL_EXPORT
#define MOXEL_EXPORT __attribute__((visibility("default")))
#endif
/// Marks what an exported class keeps to the library.
#define MOXEL_HIDDEN __attribute__((visibility("hidden")))

#ifdef __cplusplus
#define MOXEL_BEGIN_DECLS extern "C" { ///< Begins declarations with C linkage.
#define MOXEL_END_DECLS }              ///< Ends declarations with C linkage.

namespace moxel {
class Data;
class Dictionary;
class FileEventStream;
class HIDDevice;
class String;
} // namespace moxel

// Borrowed references to objects of the class library; opaque in C.
using MoxelStringRef = const moxel::String *;             ///< A borrowed text.
using MoxelDataRef = const moxel::Data *;                 ///< Borrowed bytes; see MoxelDataGetBytePtr().
using MoxelDictionaryRef = const moxel::Dictionary *;     ///< A borrowed dictionary.
using MoxelHIDDeviceRef = moxel::HIDDevice *;             ///< A borrowed HID device.
using MoxelFileEventStreamRef = moxel::FileEventStream *; ///< A borrowed stream of file events.
#else
#define MOXEL_BEGIN_DECLS
#define MOXEL_END_DECLS

typedef const struct MoxelString *MoxelStringRef;
typedef const struct MoxelData *MoxelDataRef;
typedef const struct MoxelDictionary *MoxelDictionaryRef;
typedef struct MoxelHIDDevice *MoxelHIDDeviceRef;
typedef struct MoxelFileEventStream *MoxelFileEventStreamRef;
#endif

#endif
