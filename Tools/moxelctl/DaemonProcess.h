// The reference daemon as a child process that plays a trace.
#pragma once

#include "ChildProcess.h"
#include "Platform/Result.h"

#include <string>
#include <vector>

namespace moxel::tool {

/// Where the daemon's program is: `given` if it is not empty, else beside this program, in the folders of a
/// build or an installation, or in PATH.
[[nodiscard]] std::string findDaemon(const std::string &given);

/// Ends with the object. On one thread.
class DaemonProcess {
  public:
    static Result<DaemonProcess> start(const std::string &program, const std::vector<std::string> &arguments);

    /// Reads what there is of its standard output; false when it has closed it, which it does by ending.
    [[nodiscard]] bool readOutput();
    /// Polls readable when readOutput() has something to do.
    [[nodiscard]] int descriptor() const noexcept { return process_.descriptor(); }
    /// The first line of its output, which it writes when it serves clients; empty until then.
    [[nodiscard]] std::string readyLine() const;

    /// Asks it to end.
    void stop() const noexcept { process_.stop(); }
    /// Waits for the end; its exit status, or 128 and the number of the signal that ended it.
    [[nodiscard]] int wait() noexcept { return process_.wait(); }

  private:
    explicit DaemonProcess(ChildProcess process) : process_(std::move(process)) {}

    ChildProcess process_;
    std::string text_; ///< The beginning of its output.
};

} // namespace moxel::tool
