// The journal, or syslog where no journal listens.
#include "Platform/SystemLog.h"

#include "Platform/LogText.h"

#include <array>
#include <cerrno>
#include <string>

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

// The journal must not be told that every line comes from this file.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace moxel {

namespace {

iovec field(std::string &text) { return {text.data(), text.size()}; }

bool writeJournal(int priority, std::string_view line) {
    std::string message = "MESSAGE=";
    message += line;
    std::string priorityField = "PRIORITY=" + std::to_string(priority);
    std::string identifier = std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name;
    const std::array fields = {field(message), field(priorityField), field(identifier)};
    return sd_journal_sendv(fields.data(), static_cast<int>(fields.size())) == 0;
}

} // namespace

void writeSystemLog(LogLevel level, std::string_view line) {
    const int priority = level == LogLevel::error ? LOG_ERR : LOG_INFO;
    static const bool journalListens = ::access("/run/systemd/journal/socket", F_OK) == 0;
    if (journalListens && writeJournal(priority, line))
        return;
    // Without openlog(): identity, facility and mask are the application's to choose.
    ::syslog(priority, "%s", printableText(line).c_str());
}

} // namespace moxel
