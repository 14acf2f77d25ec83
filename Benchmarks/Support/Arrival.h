// Tells a sending thread when what it sent has arrived on another one.
#pragma once

#include "Support/Measurement.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <sys/eventfd.h>
#include <unistd.h>

namespace moxel::benchmarks {

/// The sender sleeps while it waits, so that it leaves its processor to the threads that it measures.
class Arrival {
  public:
    Arrival() : wake_(::eventfd(0, EFD_CLOEXEC)) {
        if (wake_ < 0)
            std::abort();
    }
    ~Arrival() { ::close(wake_); }
    Arrival(const Arrival &) = delete;
    Arrival &operator=(const Arrival &) = delete;

    /// The sender: the next await() waits for so many.
    void expect(size_t count) { missing_ = count; }
    /// The receiver, for each one.
    void mark() {
        const double time = now();
        if (--missing_ != 0)
            return;
        at_ = time;
        const uint64_t one = 1;
        if (::write(wake_, &one, sizeof one) != sizeof one)
            std::abort();
    }
    /// The sender: when the last one arrived.
    double await() {
        uint64_t count;
        if (::read(wake_, &count, sizeof count) != sizeof count)
            std::abort();
        return at_;
    }

  private:
    const int wake_;
    std::atomic<size_t> missing_{0};
    std::atomic<double> at_{0};
};

} // namespace moxel::benchmarks
