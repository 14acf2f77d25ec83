#include "Endurance/DaemonProgram.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace moxel::endurance {

DaemonProgram::DaemonProgram(const std::string &program, const std::string &busFolder,
                             const std::vector<std::string> &arguments) {
    std::vector<std::string> texts{program, "--bus-folder", busFolder};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    int output[2]{};
    if (::pipe2(output, O_CLOEXEC) != 0)
        return;
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(output[1], STDOUT_FILENO);
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(output[1]);
    char line[16];
    if (process_ > 0 && ::read(output[0], line, sizeof line) <= 0) { // It says "ready", or ends.
        kill();
        process_ = -1;
    }
    ::close(output[0]);
}

DaemonProgram::~DaemonProgram() { kill(); }

DaemonProgram::DaemonProgram(DaemonProgram &&other) noexcept
    : process_(std::exchange(other.process_, -1)), isReaped_(other.isReaped_) {}

DaemonProgram &DaemonProgram::operator=(DaemonProgram &&other) noexcept {
    kill();
    process_ = std::exchange(other.process_, -1);
    isReaped_ = other.isReaped_;
    return *this;
}

bool DaemonProgram::hasEnded() {
    if (process_ > 0 && !isReaped_)
        isReaped_ = ::waitpid(process_, nullptr, WNOHANG) == process_;
    return isReaped_;
}

void DaemonProgram::signal(int number) const {
    if (process_ > 0)
        ::kill(process_, number);
}

void DaemonProgram::kill() {
    if (process_ <= 0 || isReaped_)
        return;
    ::kill(process_, SIGKILL);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR)
        continue;
    isReaped_ = true;
}

} // namespace moxel::endurance
