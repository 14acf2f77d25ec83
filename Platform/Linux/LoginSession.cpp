// Session look-ups through sd-login.
#include "Platform/Linux/LoginSession.h"

#include "Platform/Accounts.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <systemd/sd-login.h>
#include <unistd.h>

namespace moxel {

namespace {

// Takes over a text that sd-login allocated.
std::string takeText(char *text) {
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    return owner.get();
}

// Those that are active, or all.
std::vector<std::string> sessionsOf(uid_t user, bool onlyActive) {
    char **texts = nullptr;
    const int count = sd_uid_get_sessions(user, onlyActive ? 1 : 0, &texts);
    std::vector<std::string> sessions;
    for (int i = 0; i < count; ++i)
        sessions.push_back(takeText(texts[i]));
    std::free(texts);
    return sessions;
}

std::optional<std::string> displaySessionOf(uid_t user) {
    char *session = nullptr;
    if (sd_uid_get_display(user, &session) < 0)
        return std::nullopt;
    return takeText(session);
}

std::optional<std::string> findSession() {
    char *session = nullptr;
    if (sd_pid_get_session(0, &session) >= 0)
        return takeText(session);
    const uid_t user = ::getuid();
    if (auto display = displaySessionOf(user))
        return display;
    auto active = sessionsOf(user, true);
    return active.empty() ? std::nullopt : std::optional(std::move(active.front()));
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

std::optional<std::string> findSeatSession() {
    const uid_t user = ::getuid();
    if (auto session = findSession(); session && hasSeat(*session))
        return session;
    if (auto session = displaySessionOf(user); session && hasSeat(*session))
        return session;
    for (const bool onlyActive : {true, false})
        for (auto &session : sessionsOf(user, onlyActive))
            if (hasSeat(session))
                return std::move(session);
    return std::nullopt;
}

} // namespace moxel
