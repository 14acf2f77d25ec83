#include "DaemonProcess.h"

#include "Platform/Bundle.h"

#include <algorithm>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char **environ; // NOLINT(readability-redundant-declaration): not in every system's headers.

namespace moxel::tool {

namespace {

constexpr const char *daemonName = "moxeld";
constexpr size_t complaintLimit = 4096;

/// The child's standard output goes to the pipe; signals are as they are by default.
int spawn(pid_t &process, const std::string &program, std::vector<char *> &argv, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error = ::posix_spawnp(&process, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace

std::string findDaemon(const std::string &given) {
    if (!given.empty())
        return given;
    const std::string own = mainBundle().executablePath.value_or("");
    const std::string folder = own.substr(0, own.rfind('/') + 1);
    for (const char *place : {"", "../sbin/", "../libexec/", "../libexec/moxel/", "../Daemon/"}) {
        std::string path = folder + place + daemonName;
        if (!folder.empty() && ::access(path.c_str(), X_OK) == 0)
            return path;
    }
    return daemonName;
}

Result<DaemonProcess> DaemonProcess::start(const std::string &program,
                                           const std::vector<std::string> &arguments) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0)
        return systemError("cannot start " + program, errno);
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    std::vector<char *> argv{const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t process = -1;
    const int error = spawn(process, program, argv, ends[1]);
    ::close(ends[1]);
    if (error != 0) {
        ::close(ends[0]);
        return systemError("cannot start " + program, error);
    }
    return DaemonProcess(process, ends[0]);
}

DaemonProcess::DaemonProcess(DaemonProcess &&other) noexcept
    : process_(std::exchange(other.process_, -1)),
      output_(std::exchange(other.output_, -1)),
      status_(other.status_),
      text_(std::move(other.text_)) {}

DaemonProcess::~DaemonProcess() {
    stop();
    (void)wait();
    if (output_ >= 0)
        ::close(output_);
}

bool DaemonProcess::readOutput() {
    std::array<char, complaintLimit> buffer;
    for (;;) {
        const ssize_t size = ::read(output_, buffer.data(), buffer.size());
        if (size == 0)
            return false;
        if (size > 0)
            text_.append(buffer.data(), std::min(static_cast<size_t>(size), complaintLimit - text_.size()));
        else if (errno == EAGAIN)
            return true;
        else if (errno != EINTR)
            return false;
    }
}

std::string DaemonProcess::readyLine() const {
    const size_t end = text_.find('\n');
    return end == std::string::npos ? "" : text_.substr(0, end);
}

void DaemonProcess::stop() const noexcept {
    if (process_ > 0)
        ::kill(process_, SIGTERM);
}

int DaemonProcess::wait() {
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
