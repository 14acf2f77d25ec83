// The system log: one line per step, for whoever has to find out what happened.
#pragma once

#include "Export.h"
#include <functional>
#include <string_view>

namespace moxel {

enum class LogLevel { info, error };

/// Writes one line to the log. Any thread. Never throws; a line that cannot be written is lost.
///
/// The destination is chosen once per process from the environment variable MOXEL_LOG: "stderr" writes to
/// standard error, "off" drops every line; otherwise ("journal", or no choice) lines go to the platform's log
/// (on Linux the journal, or syslog where no journal listens). On standard error and in syslog one newline at
/// the end is dropped and control characters are shown escaped.
MOXEL_EXPORT void logLine(LogLevel level, std::string_view line) noexcept;

/// False when every line would be dropped, so that a caller on a hot path can skip formatting it.
[[nodiscard]] MOXEL_EXPORT bool logEnabled() noexcept;

/// Receives every line instead of the log while it is installed. Called on the logging thread, one line at a
/// time. Lines that the sink itself logs go to the log.
using LogSink = std::function<void(LogLevel, std::string_view line)>;

/// Diverts all lines to `sink` until destroyed, which waits for a call of the sink that is under way; the
/// newest capture wins. For tests and for programs that show the log themselves.
class MOXEL_EXPORT LogCapture {
  public:
    explicit LogCapture(LogSink sink);
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
};

} // namespace moxel
