// Session look-ups through sd-login.
#include "Platform/Linux/LoginSession.h"

#include "Platform/Accounts.h"

#include <cstdlib>
#include <memory>

#include <systemd/sd-login.h>
#include <unistd.h>

namespace moxel {

namespace {

// Takes over a text that sd-login allocated.
std::string takeText(char *text) {
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    return owner.get();
}

std::optional<std::string> activeSessionOf(uid_t user) {
    char **sessions = nullptr;
    const int count = sd_uid_get_sessions(user, 1, &sessions);
    std::optional<std::string> first;
    for (int i = 0; i < count; ++i) {
        std::string session = takeText(sessions[i]);
        if (!first)
            first = std::move(session);
    }
    std::free(sessions);
    return first;
}

std::optional<std::string> findSession() {
    char *session = nullptr;
    if (sd_pid_get_session(0, &session) >= 0)
        return takeText(session);
    const uid_t user = ::getuid();
    if (sd_uid_get_display(user, &session) >= 0)
        return takeText(session);
    return activeSessionOf(user);
}

bool hasSeat(const std::string &session) {
    char *seat = nullptr;
    if (sd_session_get_seat(session.c_str(), &seat) < 0)
        return false;
    return !takeText(seat).empty();
}

std::optional<std::string> userNameOf(const std::string &session) {
    uid_t user = 0;
    if (sd_session_get_uid(session.c_str(), &user) < 0)
        return std::nullopt;
    auto account = accountOf(user);
    if (!account)
        return std::nullopt;
    return std::move(account->name);
}

} // namespace

std::optional<SessionDescription> readLoginSession() {
    const auto session = findSession();
    if (!session)
        return std::nullopt;
    const int active = sd_session_is_active(session->c_str());
    if (active < 0) // logind does not know the session, or does not run
        return std::nullopt;
    SessionDescription description;
    description.onConsole = active > 0 && hasSeat(*session);
    description.userName = userNameOf(*session);
    return description;
}

} // namespace moxel
