#include "WatchedApplication.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char **environ; // NOLINT(readability-redundant-declaration): not in every system's headers.

namespace moxel::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t lineLimit = 4096;
constexpr size_t lineCountLimit = 4096;

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// This process's own, but that the library writes its log to standard error.
std::vector<std::string> loggingEnvironment() {
    std::vector<std::string> variables{"MOXEL_LOG=stderr"};
    for (char **entry = environ; *entry != nullptr; ++entry) {
        if (!std::string_view(*entry).starts_with("MOXEL_LOG="))
            variables.emplace_back(*entry);
    }
    return variables;
}

int spawn(pid_t &process, std::vector<std::string> commandLine, int errors) {
    std::vector<std::string> variables = loggingEnvironment();
    std::vector<char *> argv = pointersTo(commandLine);
    std::vector<char *> envp = pointersTo(variables);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error = ::posix_spawnp(&process, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace

Result<WatchedApplication> WatchedApplication::start(const std::vector<std::string> &commandLine) {
    std::array<int, 2> pipeEnds{};
    if (::pipe(pipeEnds.data()) != 0)
        return systemError("cannot start " + commandLine[0], errno);
    for (const int end : pipeEnds)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
    pid_t process = -1;
    const int error = spawn(process, commandLine, pipeEnds[1]);
    ::close(pipeEnds[1]);
    if (error != 0) {
        ::close(pipeEnds[0]);
        return systemError("cannot start " + commandLine[0], error);
    }
    return WatchedApplication(process, pipeEnds[0]);
}

WatchedApplication::WatchedApplication(WatchedApplication &&other) noexcept
    : process_(std::exchange(other.process_, -1)),
      errors_(std::exchange(other.errors_, -1)),
      unread_(std::move(other.unread_)),
      logged_(std::move(other.logged_)) {}

WatchedApplication::~WatchedApplication() {
    stop();
    if (errors_ >= 0)
        ::close(errors_);
}

bool WatchedApplication::hasLogged(const std::string &text) const {
    return std::ranges::any_of(
        logged_, [&text](const std::string &line) { return line.find(text) != std::string::npos; });
}

bool WatchedApplication::awaitLine(const std::string &text, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (!hasLogged(text)) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{errors_, POLLIN, 0};
        if (left <= 0 || (::poll(&entry, 1, static_cast<int>(left)) < 0 && errno != EINTR))
            return false;
        if (entry.revents != 0 && !read())
            return hasLogged(text);
    }
    return true;
}

/// False when it has closed its standard error, which it does by ending.
bool WatchedApplication::read() {
    std::array<char, lineLimit> buffer;
    for (;;) {
        const ssize_t size = ::read(errors_, buffer.data(), buffer.size());
        if (size == 0)
            return false;
        if (size < 0)
            return errno == EAGAIN || errno == EINTR;
        unread_.append(buffer.data(), static_cast<size_t>(size));
        for (size_t end = 0; (end = unread_.find('\n')) != std::string::npos; unread_.erase(0, end + 1)) {
            if (logged_.size() < lineCountLimit)
                logged_.push_back(unread_.substr(0, std::min(end, lineLimit)));
        }
        if (unread_.size() > lineLimit)
            unread_.resize(lineLimit);
    }
}

/// Asks it to end, and ends it when it does not within a second.
void WatchedApplication::stop() noexcept {
    if (process_ <= 0)
        return;
    ::kill(process_, SIGTERM);
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    while (::waitpid(process_, nullptr, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
            break;
        }
        ::poll(nullptr, 0, 5);
    }
    process_ = -1;
}

} // namespace moxel::tool
