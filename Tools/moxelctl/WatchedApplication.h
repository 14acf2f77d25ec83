// An application that runs under the doctor's eyes.
#pragma once

#include "Platform/Result.h"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace moxel::tool {

/// Its standard output goes to our standard error, as does its own but for the library's log, which is read.
/// Ends with the object. On one thread.
class WatchedApplication {
  public:
    static Result<WatchedApplication> start(const std::vector<std::string> &commandLine);
    ~WatchedApplication();
    WatchedApplication(WatchedApplication &&other) noexcept;
    WatchedApplication &operator=(WatchedApplication &&) = delete;

    /// Reads what it logs until a line holds `text`, the time is up or it ends; true for the first.
    [[nodiscard]] bool awaitLine(const std::string &text, std::chrono::milliseconds limit);
    /// Whether a line so far held that text.
    [[nodiscard]] bool hasLogged(const std::string &text) const;

  private:
    WatchedApplication(pid_t process, int errors) : process_(process), errors_(errors) {}

    [[nodiscard]] bool read();
    void stop() noexcept;

    pid_t process_ = -1;
    int errors_ = -1;
    std::string unread_;              ///< The beginning of a line.
    std::vector<std::string> logged_; ///< The first lines.
};

} // namespace moxel::tool
