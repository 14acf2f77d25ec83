// An open file descriptor that closes itself.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace moxel {

/// Move-only; empty by default. Any thread, one at a time.
class Descriptor {
  public:
    Descriptor() noexcept = default;
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : descriptor_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }

    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor_; }
    /// Gives the descriptor away, unclosed.
    [[nodiscard]] int release() noexcept { return std::exchange(descriptor_, -1); }

    /// Closes what it holds and takes `descriptor`; errno stays as it is.
    void reset(int descriptor = -1) noexcept {
        const int old = std::exchange(descriptor_, descriptor);
        if (old < 0)
            return;
        const int savedErrno = errno;
        ::close(old);
        errno = savedErrno;
    }

  private:
    int descriptor_ = -1;
};

} // namespace moxel
