// A folder whose disk gets full or read-only, and a process that may open few files.
#pragma once

#include "Endurance/FaultPlan.h"

#include <string>
#include <sys/resource.h>
#include <utility>

namespace moxel::endurance {

/// With the rights to mount, the folder has a small disk of its own, which nobody else sees. Without them,
/// files cannot grow, or folders cannot be written.
class FaultPlaces {
  public:
    explicit FaultPlaces(std::string folder) : folder_(std::move(folder)) {}

    /// In a process that has one thread. False when the fault cannot be brought about here.
    [[nodiscard]] bool prepare(FaultPlan::Fault fault);
    [[nodiscard]] const std::string &problem() const { return problem_; }

    void spoil(const FaultPlan &plan);
    void repair();

  private:
    [[nodiscard]] bool mountDisk();
    void fillDisk(uint64_t room) const;

    std::string folder_;
    std::string problem_;
    FaultPlan::Fault fault_ = FaultPlan::Fault::none;
    bool isMounted_ = false;
    rlimit fileSize_{};
};

/// While it exists, the process may open few files more, if its plan says so.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(const FaultPlan &plan);
    ~DescriptorLimit() { lift(); }
    DescriptorLimit(const DescriptorLimit &) = delete;
    DescriptorLimit &operator=(const DescriptorLimit &) = delete;

    void lift() const;

  private:
    rlimit before_{};
};

} // namespace moxel::endurance
