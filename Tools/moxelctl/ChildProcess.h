// A program that this one starts, and one of its output streams.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace moxel::tool {

/// Is asked to end, and awaited, with the object. On one thread.
class ChildProcess {
  public:
    /// Which of its streams comes through the pipe. The others are this program's, but that its output goes
    /// where our errors go when its errors are piped.
    enum class Piped { output, errors };

    /// `commandLine` begins with the program, which is looked for in PATH. `variables` ("NAME=VALUE") are
    /// those of its environment that are not as ours.
    static Result<ChildProcess> start(std::vector<std::string> commandLine, Piped piped,
                                      const std::vector<std::string> &variables = {});
    ~ChildProcess();
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&) = delete;

    /// Polls readable when read() has something to do.
    [[nodiscard]] int descriptor() const noexcept { return output_.get(); }
    /// Hands out what has come; false when the program has closed the stream, which it does by ending.
    [[nodiscard]] bool read(const std::function<void(std::string_view)> &take) const;

    /// Asks it to end.
    void stop() const noexcept;
    /// Asks it to end, and ends it when it does not in time.
    void stopWithin(std::chrono::milliseconds limit) noexcept;
    /// Waits for the end; the exit status, or 128 and the number of the signal that ended it.
    int wait() noexcept;

  private:
    ChildProcess(pid_t process, Descriptor output) : process_(process), output_(std::move(output)) {}

    pid_t process_ = -1; ///< -1 when it has ended.
    Descriptor output_;
    int status_ = 0;
};

} // namespace moxel::tool
