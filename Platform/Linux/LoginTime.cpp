// The login time from logind, or from the login history.
#include "Platform/SystemLoginTime.h"

#include "Platform/Accounts.h"
#include "Platform/Linux/Deadline.h"
#include "Platform/Linux/LoginHistory.h"
#include "Platform/Linux/LoginSession.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include <paths.h>
#include <sys/sysmacros.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace moxel {

namespace {

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds busLimit{1000};

struct BusCloser {
    void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;

// A connection that the bus has accepted; null when it has not by the deadline.
Bus openSystemBus(Clock::time_point deadline) {
    sd_bus *opened = nullptr;
    if (sd_bus_open_system(&opened) < 0)
        return nullptr;
    Bus bus(opened);
    while (sd_bus_is_ready(bus.get()) == 0) {
        const int progress = sd_bus_process(bus.get(), nullptr);
        const uint64_t left = microsecondsUntil(deadline);
        if (progress < 0 || left == 0 || (progress == 0 && sd_bus_wait(bus.get(), left) < 0))
            return nullptr;
    }
    return bus;
}

// Older versions of sd-login do not tell the start of a session; its bus interface does.
std::optional<LoginTime> startOf(const std::string &session) {
    const auto deadline = Clock::now() + busLimit;
    const Bus bus = openSystemBus(deadline);
    char *encoded = nullptr;
    if (!bus || sd_bus_path_encode("/org/freedesktop/login1/session", session.c_str(), &encoded) < 0)
        return std::nullopt;
    const std::unique_ptr<char, decltype(&std::free)> path(encoded, &std::free);
    uint64_t start = 0; // microseconds since 1970
    // A limit of 0 would stand for the default.
    if (sd_bus_set_method_call_timeout(bus.get(), microsecondsUntil(deadline) + 1) < 0 ||
        sd_bus_get_property_trivial(bus.get(), "org.freedesktop.login1", path.get(),
                                    "org.freedesktop.login1.Session", "Timestamp", nullptr, 't', &start) < 0)
        return std::nullopt;
    return LoginTime(std::chrono::duration_cast<std::chrono::seconds>(microseconds(start)));
}

using SessionText = int (*)(const char *session, char **text);

void addTextOf(const std::string &session, SessionText read, std::vector<std::string> &texts) {
    char *text = nullptr;
    if (read(session.c_str(), &text) < 0 || text == nullptr)
        return;
    texts.emplace_back(text);
    std::free(text);
}

// The virtual terminal that controls the process, "tty2"; absent when another kind of terminal or none does.
std::optional<std::string> controllingTerminal() {
    std::ifstream file("/proc/self/stat");
    const std::string line(std::istreambuf_iterator<char>(file), {});
    // The program's name stands in parentheses and may hold anything.
    const size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos)
        return std::nullopt;
    std::istringstream fields(line.substr(nameEnd + 1));
    char state = 0;
    long parent = 0, group = 0, session = 0;
    int device = 0;
    if (!(fields >> state >> parent >> group >> session >> device))
        return std::nullopt;
    constexpr unsigned terminalDevices = 4;
    constexpr unsigned virtualTerminals = 63;
    const auto number = static_cast<dev_t>(device);
    if (major(number) != terminalDevices || minor(number) == 0 || minor(number) > virtualTerminals)
        return std::nullopt;
    return "tty" + std::to_string(minor(number));
}

// What the login history may know the session by.
std::vector<std::string> placesOf(const std::optional<std::string> &session) {
    std::vector<std::string> places;
    if (session) {
        addTextOf(*session, &sd_session_get_tty, places);
        addTextOf(*session, &sd_session_get_display, places);
        return places;
    }
    if (auto terminal = controllingTerminal())
        places.push_back(std::move(*terminal));
    // The screen of a local display, ":0.1", is not part of its name.
    const char *variable = ::secure_getenv("DISPLAY");
    const std::string display = variable != nullptr ? variable : "";
    if (display.starts_with(':'))
        places.push_back(display.substr(0, display.find('.')));
    return places;
}

} // namespace

std::optional<LoginTime> systemLoginTime() {
    const auto session = findSeatSession();
    if (session) {
        if (const auto start = startOf(*session))
            return start;
    }
    const auto account = accountOf(::getuid());
    return account ? newestLogin(_PATH_WTMP, account->name, placesOf(session)) : std::nullopt;
}

} // namespace moxel
