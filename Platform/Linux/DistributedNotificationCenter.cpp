// The distributed centre as signals on the session bus.
#include "Platform/DistributedNotificationCenter.h"

#include "Platform/Linux/Guard.h"
#include "Platform/Linux/SessionBus.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"
#include "Platform/Utf8.h"

#include <atomic>
#include <cerrno>

namespace moxel {

namespace {

// The bus carries UTF-8 without zero characters.
bool isBusText(const std::string &text) { return isUtf8(text) && text.find('\0') == std::string::npos; }

SessionBus &sessionBus() {
    // Never destroyed: threads may post until the process is gone.
    static auto &bus = *new SessionBus;
    return bus;
}

Result<void> emit(const std::string &name, const std::string &object) {
    if (!isBusText(name) || !isBusText(object))
        return systemError("Not text", EILSEQ);
    return sessionBus().emit({.path = "/com/moxel/DistributedNotificationCenter",
                              .interface = "com.moxel.DistributedNotificationCenter",
                              .member = "Notification",
                              .first = name,
                              .second = object},
                             std::chrono::seconds(1));
}

void post(const std::string &name, const std::string &object) {
    const auto result = emit(name, object);
    if (result)
        return;
    static std::atomic<bool> reported = false;
    if (result.error().code == EILSEQ)
        logLine(LogLevel::error, "Error: not sent, because its text is not UTF-8: distributed notification " +
                                     printableText(name));
    else if (!reported.exchange(true))
        logLine(LogLevel::error, "Error: distributed notifications are lost: " + result.error().message);
}

} // namespace

void postDistributedNotification(const std::string &name, const std::string &object) noexcept {
    guarded("posting a distributed notification", [&] { post(name, object); });
}

} // namespace moxel
