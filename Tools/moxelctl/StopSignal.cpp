#include "StopSignal.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace moxel::tool {

namespace {

int ends[2] = {-1, -1};

void stop(int) {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(ends[1], "", 1);
    errno = error;
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigaction(signal, &action, nullptr);
}

} // namespace

StopSignal::StopSignal() {
    if (::pipe(ends) == 0) {
        for (const int end : ends)
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        handle(signal, stop);
}

StopSignal::~StopSignal() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        handle(signal, SIG_DFL);
    for (int &end : ends) {
        ::close(end);
        end = -1;
    }
}

int StopSignal::descriptor() const noexcept { return ends[0]; }

} // namespace moxel::tool
