// A program on a pseudo-terminal.
#pragma once

#include "Support/Await.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <optional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace moxel::test {

/// Ends with the object.
class Terminal {
  public:
    Terminal(std::vector<std::string> arguments,
             const std::map<std::string, std::optional<std::string>> &environment) {
        winsize size{24, 80, 0, 0};
        process_ = ::forkpty(&descriptor_, nullptr, nullptr, &size);
        if (process_ != 0)
            return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (const auto &[name, value] : environment)
            ::setenv(name.c_str(), value.value_or("").c_str(), 1);
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ~Terminal() {
        if (process_ > 0)
            ::kill(process_, SIGKILL);
        (void)exitStatus();
        ::close(descriptor_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    /// Reads until the text has been shown; false when it does not come.
    [[nodiscard]] bool awaitText(const std::string &text) {
        while (shown_.find(text) == std::string::npos) {
            if (!readMore())
                return false;
        }
        return true;
    }
    /// Everything that is shown until the program ends.
    std::string readToEnd() {
        while (readMore())
            continue;
        return shown_;
    }
    void press(char key) const { EXPECT_EQ(::write(descriptor_, &key, 1), 1); }

    int exitStatus() {
        if (process_ > 0) {
            int status = 0;
            while (::waitpid(process_, &status, 0) < 0 && errno == EINTR)
                continue;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            process_ = -1;
        }
        return status_;
    }

  private:
    bool readMore() {
        pollfd entry{descriptor_, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) <= 0) {
            ADD_FAILURE() << "nothing is shown any more; until now: " << shown_;
            return false;
        }
        char buffer[4096];
        const ssize_t size = ::read(descriptor_, buffer, sizeof buffer); // EIO when the program has ended.
        if (size > 0)
            shown_.append(buffer, static_cast<size_t>(size));
        return size > 0;
    }

    int descriptor_ = -1;
    pid_t process_ = -1;
    int status_ = -1;
    std::string shown_;
};

} // namespace moxel::test
