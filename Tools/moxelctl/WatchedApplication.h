// An application that runs under the doctor's eyes.
#pragma once

#include "ChildProcess.h"
#include "Platform/Result.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::tool {

/// Its standard output goes to our standard error; its own, which holds the library's log, is read. Ends with
/// the object, within a second. On one thread.
class WatchedApplication {
  public:
    static Result<WatchedApplication> start(const std::vector<std::string> &commandLine);
    ~WatchedApplication();
    WatchedApplication(WatchedApplication &&) noexcept = default;
    WatchedApplication &operator=(WatchedApplication &&) = delete;

    /// Reads what it logs until a line holds `text`, the time is up or it ends; true for the first.
    [[nodiscard]] bool awaitLine(const std::string &text, std::chrono::milliseconds limit);
    /// Whether a line so far held that text.
    [[nodiscard]] bool hasLogged(const std::string &text) const;

  private:
    explicit WatchedApplication(ChildProcess process) : process_(std::move(process)) {}

    void take(std::string_view text);

    ChildProcess process_;
    std::string unread_;              ///< The beginning of a line.
    std::vector<std::string> logged_; ///< The first lines.
};

} // namespace moxel::tool
