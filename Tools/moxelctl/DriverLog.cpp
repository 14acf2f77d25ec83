#include "DriverLog.h"

namespace moxel::tool {

DriverLog::DriverLog()
    : capture_([this](LogLevel level, std::string_view line) {
          logLine(level, line);
          if (level != LogLevel::error)
              return;
          const std::lock_guard lock(mutex_);
          lastError_ = line;
      }) {}

std::string DriverLog::lastError() const {
    const std::lock_guard lock(mutex_);
    constexpr std::string_view mark = "rror: "; // "Error: " and "ERROR: " do not begin every such line.
    const size_t at = lastError_.find(mark);
    std::string text = at == std::string::npos ? lastError_ : lastError_.substr(at + mark.size());
    while (!text.empty() && (text.back() == '\n' || text.back() == '!'))
        text.pop_back();
    return text;
}

} // namespace moxel::tool
