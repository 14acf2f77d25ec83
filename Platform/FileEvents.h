// A stream of changes under watched folders, one event per file, delivered on a run loop.
#pragma once

#include "Export.h"
#include "Result.h"
#include "RunLoop.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace moxel {

/// Flags of an event; several may stand together.
inline constexpr uint32_t fileEventCreated = 0x100;
inline constexpr uint32_t fileEventRemoved = 0x200;
inline constexpr uint32_t fileEventMetadataChanged = 0x400;
inline constexpr uint32_t fileEventRenamed = 0x800;
inline constexpr uint32_t fileEventModified = 0x1000;

/// Makes an empty queue of kernel events, which shows that the system still has one to give; below 1 when it
/// has none. The caller closes it.
[[nodiscard]] int makeKernelEventQueue() noexcept;
void closeKernelEventQueue(int queue) noexcept;

/// Watches folders and everything below them. Lives on the thread whose run loop it is scheduled on.
class MOXEL_EXPORT FileEventStream {
  public:
    /// `paths` are zero-terminated and begin with the watched folder exactly as it was given; identifiers
    /// grow.
    using Callback = void (*)(FileEventStream *stream, void *context, size_t count, const char *const *paths,
                              const uint32_t *flags, const uint64_t *identifiers);

    /// Events are gathered for at most `latency` and then delivered in the order in which they happened;
    /// equal neighbours of one path are merged, a removal never with a creation.
    static Result<std::unique_ptr<FileEventStream>>
    create(std::vector<std::string> folders, RunLoop::Seconds latency, Callback callback, void *context);

    virtual ~FileEventStream() = default;

    /// Starts delivery on the calling thread's run loop with the events from now on; ends with the stream.
    virtual Result<void> start(RunLoop &runLoop) = 0;
};

} // namespace moxel
