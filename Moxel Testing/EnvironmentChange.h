// An environment variable that has another value for a while.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace moxel {

/// Made and destroyed while no other thread looks at the environment.
class EnvironmentChange {
  public:
    EnvironmentChange(const char *name, const std::string &value) : name_(name) {
        if (const char *before = std::getenv(name_)) // NOLINT(concurrency-mt-unsafe): see above
            before_ = before;
        ::setenv(name_, value.c_str(), 1); // NOLINT(concurrency-mt-unsafe): see above
    }
    ~EnvironmentChange() {
        if (before_)
            ::setenv(name_, before_->c_str(), 1); // NOLINT(concurrency-mt-unsafe): see above
        else
            ::unsetenv(name_); // NOLINT(concurrency-mt-unsafe): see above
    }
    EnvironmentChange(const EnvironmentChange &) = delete;
    EnvironmentChange &operator=(const EnvironmentChange &) = delete;

  private:
    const char *name_;
    std::optional<std::string> before_;
};

} // namespace moxel
