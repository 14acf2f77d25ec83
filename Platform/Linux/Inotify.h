// An inotify instance: counted watches, and events with their place in the queue.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace moxel {

struct InotifyEvent {
    int watch = -1;        ///< -1 when the queue overflowed.
    uint32_t mask = 0;     ///< IN_... bits.
    std::string_view name; ///< Of the entry inside the watched folder; empty when the folder itself is meant.
    uint64_t position = 0; ///< Grows from event to event.
};

/// One thread.
class Inotify {
  public:
    using Handler = std::function<void(const InotifyEvent &)>;

    static Result<Inotify> create();

    [[nodiscard]] int descriptor() const { return descriptor_.get(); }

    /// Watches a folder; its number. A folder that is watched already has the same number and gets the bits
    /// of `mask` in addition. Each add() is undone by one release(), or by the kernel when the folder goes
    /// (IN_IGNORED).
    Result<int> add(const std::string &folder, uint32_t mask);
    void release(int watch);

    /// Reads the events that fit into one buffer; false when there was none. Inside the handler watches may
    /// come and go.
    bool read(const Handler &handler);

    /// Events at positions below this one have happened, read or not.
    [[nodiscard]] uint64_t endPosition() const;

  private:
    explicit Inotify(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

    Descriptor descriptor_;
    std::map<int, int> users_;  // watch and number of add() calls
    uint64_t readPosition_ = 0; // bytes read so far
};

} // namespace moxel
