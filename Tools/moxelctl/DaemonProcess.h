// The reference daemon as a child process that plays a trace.
#pragma once

#include "Platform/Result.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace moxel::tool {

/// Where the daemon's program is: `given` if it is not empty, else beside this program, in the folders of a
/// build or an installation, or in PATH.
[[nodiscard]] std::string findDaemon(const std::string &given);

/// Ends with the object. On one thread.
class DaemonProcess {
  public:
    static Result<DaemonProcess> start(const std::string &program, const std::vector<std::string> &arguments);
    ~DaemonProcess();
    DaemonProcess(DaemonProcess &&other) noexcept;
    DaemonProcess &operator=(DaemonProcess &&) = delete;

    /// Reads what there is of its standard output; false when it has closed it, which it does by ending.
    [[nodiscard]] bool readOutput();
    /// Polls readable when readOutput() has something to do.
    [[nodiscard]] int descriptor() const noexcept { return output_; }
    /// The first line of its output, which it writes when it serves clients; empty until then.
    [[nodiscard]] std::string readyLine() const;

    /// Asks it to end.
    void stop() const noexcept;
    /// Waits for the end; its exit status, or 128 and the number of the signal that ended it.
    [[nodiscard]] int wait();

  private:
    DaemonProcess(pid_t process, int output) : process_(process), output_(output) {}

    pid_t process_ = -1; ///< -1 when it has ended.
    int output_ = -1;
    int status_ = 0;
    std::string text_;
};

} // namespace moxel::tool
