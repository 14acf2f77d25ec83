// moxeld as a process that is disturbed.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace moxel::endurance {

/// Killed with the object. On one thread, except for signal(). Ends when that thread does.
class DaemonProgram {
  public:
    /// Returns when it serves its clients; without a process when it did not start.
    DaemonProgram(const std::string &program, const std::string &busFolder,
                  const std::vector<std::string> &arguments);
    ~DaemonProgram();
    DaemonProgram(DaemonProgram &&other) noexcept;
    DaemonProgram &operator=(DaemonProgram &&other) noexcept;

    [[nodiscard]] bool hasStarted() const { return process_ > 0; }
    /// Whether it has ended by itself.
    [[nodiscard]] bool hasEnded();
    void signal(int number) const;
    /// Kills it and waits for its end.
    void kill();

  private:
    pid_t process_ = -1;
    bool isReaped_ = false;
};

} // namespace moxel::endurance
