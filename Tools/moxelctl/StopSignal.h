// A descriptor that polls readable once the user asks the program to end.
#pragma once

namespace moxel::tool {

/// Catches SIGINT, SIGTERM and SIGHUP while it exists. One at a time, on the main thread.
class StopSignal {
  public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal &) = delete;
    StopSignal &operator=(const StopSignal &) = delete;

    [[nodiscard]] int descriptor() const noexcept;
};

} // namespace moxel::tool
