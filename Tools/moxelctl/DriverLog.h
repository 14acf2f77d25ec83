// The library's log while a command waits for it: why did that not work?
#pragma once

#include "Platform/Log.h"

#include <mutex>
#include <string>

namespace moxel::tool {

/// Keeps the last error line that the library logs while it exists. Every line still goes to the log. Any
/// thread.
class DriverLog {
  public:
    DriverLog();
    DriverLog(const DriverLog &) = delete;
    DriverLog &operator=(const DriverLog &) = delete;

    /// The last error without the name of the function that logged it; empty when there was none.
    [[nodiscard]] std::string lastError() const;

  private:
    mutable std::mutex mutex_;
    std::string lastError_;
    const LogCapture capture_; ///< Ends first: it calls back.
};

} // namespace moxel::tool
