#include "ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <future>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char **environ; // NOLINT(readability-redundant-declaration): not in every system's headers.

namespace moxel::tool {

namespace {

std::string_view nameOf(std::string_view variable) { return variable.substr(0, variable.find('=')); }

std::vector<std::string> environmentWith(std::vector<std::string> variables) {
    const auto changed = static_cast<ptrdiff_t>(variables.size());
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const auto isIt = [entry](const std::string &each) { return nameOf(each) == nameOf(*entry); };
        if (std::none_of(variables.begin(), variables.begin() + changed, isIt))
            variables.emplace_back(*entry);
    }
    return variables;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// An error number. SIGPIPE, which this program ignores, is what it is by default.
int spawn(pid_t &process, std::vector<std::string> &commandLine, std::vector<std::string> &environment,
          ChildProcess::Piped piped, const Descriptor &pipe) {
    const std::vector<char *> argv = pointersTo(commandLine);
    const std::vector<char *> envp = pointersTo(environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (piped == ChildProcess::Piped::errors)
        posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipe.get(),
                                     piped == ChildProcess::Piped::errors ? STDERR_FILENO : STDOUT_FILENO);
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

Result<ChildProcess> ChildProcess::start(std::vector<std::string> commandLine, Piped piped,
                                         const std::vector<std::string> &variables) {
    const std::string problem = "cannot start " + commandLine[0];
    std::vector<std::string> environment = environmentWith(variables);
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        return systemError(problem, errno);
    Descriptor output(ends[0]);
    const Descriptor input(ends[1]);
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(output.get(), F_SETFL, O_NONBLOCK);
    pid_t process = -1;
    if (const int error = spawn(process, commandLine, environment, piped, input); error != 0)
        return systemError(problem, error);
    return ChildProcess(process, std::move(output));
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : process_(std::exchange(other.process_, -1)),
      output_(std::move(other.output_)),
      status_(other.status_) {}

ChildProcess::~ChildProcess() {
    stop();
    wait();
}

bool ChildProcess::read(const std::function<void(std::string_view)> &take) const {
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t size = ::read(output_.get(), buffer.data(), buffer.size());
        if (size > 0)
            take({buffer.data(), static_cast<size_t>(size)});
        else if (size == 0 || errno != EINTR)
            return size < 0 && errno == EAGAIN;
    }
}

void ChildProcess::stop() const noexcept {
    if (process_ > 0)
        ::kill(process_, SIGTERM);
}

void ChildProcess::stopWithin(std::chrono::milliseconds limit) noexcept {
    if (process_ <= 0)
        return;
    stop();
    // No call that every system has waits for a child with a limit. The thread leaves it unreaped, so that
    // its number is nobody else's yet.
    std::future<void> end;
    try {
        end = std::async(std::launch::async, [process = process_] {
            siginfo_t information{};
            while (::waitid(P_PID, static_cast<id_t>(process), &information, WEXITED | WNOWAIT) != 0 &&
                   errno == EINTR)
                continue;
        });
    } catch (const std::exception &) { // NOLINT(bugprone-empty-catch): without a thread nobody waits
    }
    if (!end.valid() || end.wait_for(limit) != std::future_status::ready)
        ::kill(process_, SIGKILL);
    wait();
}

int ChildProcess::wait() noexcept {
    if (process_ > 0) {
        int status = 0;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR)
            continue;
        process_ = -1;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_;
}

} // namespace moxel::tool
