// A bus of this process's own, for a driver that nobody else shall see.
#pragma once

#include "Platform/Result.h"

#include <string>
#include <utility>

namespace moxel::tool {

/// A folder for the bus, named in the environment for this process and its children, and removed with the
/// object. Made before the library is used, while there is one thread.
class PrivateBus {
  public:
    static Result<PrivateBus> create();
    ~PrivateBus();
    PrivateBus(PrivateBus &&other) noexcept : folder_(std::exchange(other.folder_, "")) {}
    PrivateBus &operator=(PrivateBus &&) = delete;

  private:
    explicit PrivateBus(std::string folder) : folder_(std::move(folder)) {}

    std::string folder_;
};

} // namespace moxel::tool
