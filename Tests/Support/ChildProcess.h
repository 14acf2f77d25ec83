// Processes that a test starts, talks to and cleans up; among them the test program itself, started again to
// run one function in a process of its own.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::test {

/// A process with pipes on its standard streams. Ends with the object.
class ChildProcess {
  public:
    using Arguments = std::vector<std::string>;
    using Environment = std::map<std::string, std::optional<std::string>>; ///< Absent: removed.

    static constexpr std::chrono::seconds limit{60};

    explicit ChildProcess(const Arguments &arguments, const Environment &changes = {}) {
        std::vector<std::string> environment = changedEnvironment(changes);
        std::vector<char *> argv = pointers(arguments);
        std::vector<char *> envp = pointers(environment);
        int in[2]{};
        int out[2]{};
        int err[2]{};
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
            ADD_FAILURE() << "no pipes";
        identifier_ = ::fork();
        if (identifier_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            ::dup2(err[1], 2);
            ::execvpe(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        for (const int end : {in[0], out[1], err[1]})
            ::close(end);
        in_ = in[1];
        out_ = out[0];
        err_ = err[0];
    }
    ~ChildProcess() {
        kill();
        (void)exitStatus();
        closeInput();
        ::close(out_);
        ::close(err_);
    }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    [[nodiscard]] pid_t identifier() const { return identifier_; }

    void signal(int number) const {
        if (!status_)
            ::kill(identifier_, number);
    }
    void kill() const { signal(SIGKILL); }

    void write(std::string_view text) const {
        EXPECT_EQ(::write(in_, text.data(), text.size()), ssize_t(text.size()));
    }
    void closeInput() {
        if (in_ >= 0)
            ::close(std::exchange(in_, -1));
    }

    /// The next line of standard output without its newline; fails the test when none comes.
    std::string readLine() {
        std::string line;
        char character = 0;
        while (read(out_, &character, 1) == 1 && character != '\n')
            line += character;
        return line;
    }
    /// The next text that the process has told with tell().
    std::string hear() {
        for (;;) {
            const std::string line = readLine();
            if (line.empty() && ::testing::Test::HasFailure())
                return {};
            if (line.starts_with(toldPrefix))
                return line.substr(toldPrefix.size());
        }
    }
    /// Inside the process: one line for hear().
    static void tell(std::string_view text) { std::cout << '\n' << toldPrefix << text << std::endl; }

    /// Everything until the other end closes.
    std::string readOutput() { return readAll(out_); }
    std::string readErrors() { return readAll(err_); }

    /// Waits for the end: the exit status, or 128 and the number of the signal.
    int exitStatus() {
        if (!status_) {
            int status = 0;
            while (::waitpid(identifier_, &status, 0) < 0 && errno == EINTR)
                continue;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return *status_;
    }

  private:
    static constexpr std::string_view toldPrefix = "told: ";

    static std::vector<std::string> changedEnvironment(const Environment &changes) {
        std::vector<std::string> result;
        for (char **entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            if (!changes.contains(text.substr(0, text.find('='))))
                result.push_back(text);
        }
        for (const auto &[name, value] : changes) {
            if (value)
                result.push_back(name + '=' + *value);
        }
        return result;
    }
    static std::vector<char *> pointers(const std::vector<std::string> &texts) {
        std::vector<char *> result;
        for (const auto &text : texts)
            result.push_back(const_cast<char *>(text.c_str()));
        result.push_back(nullptr);
        return result;
    }
    static ssize_t read(int descriptor, char *buffer, size_t size) {
        pollfd entry{descriptor, POLLIN, 0};
        const auto milliseconds = std::chrono::milliseconds(limit).count();
        if (::poll(&entry, 1, static_cast<int>(milliseconds)) <= 0) {
            ADD_FAILURE() << "the child process stays silent";
            return -1;
        }
        return ::read(descriptor, buffer, size);
    }
    static std::string readAll(int descriptor) {
        std::string text;
        char buffer[4096];
        for (ssize_t size = 0; (size = read(descriptor, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(size));
        return text;
    }

    pid_t identifier_ = -1;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
    std::optional<int> status_;
};

/// A function that a test runs in a process of its own, as the first thing that the process does. Failed
/// expectations make that process exit with status 1. Define these at namespace scope.
class ChildProgram {
  public:
    using Function = void (*)();

    ChildProgram(const char *name, Function function) : name_(name) {
        ::testing::AddGlobalTestEnvironment(new Runner(name, function)); // the test framework deletes it
    }

    /// What to put before the command that starts the process.
    enum class Place { here, ownNamespaces };

    [[nodiscard]] ChildProcess start(ChildProcess::Environment environment = {}, Place place = Place::here,
                                     std::string executable = {}) const {
        const auto *test = ::testing::UnitTest::GetInstance()->current_test_info();
        environment[variable] = name_;
        if (executable.empty())
            executable = ownExecutable();
        ChildProcess::Arguments arguments;
        if (place == Place::ownNamespaces)
            arguments = {"unshare", "--map-root-user", "--mount", "--"};
        arguments.push_back(executable);
        arguments.push_back(std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name());
        return ChildProcess(arguments, environment);
    }

    /// Runs to the end; a failure there is one here.
    void run(ChildProcess::Environment environment = {}, Place place = Place::here) const {
        auto child = start(std::move(environment), place);
        child.closeInput();
        const std::string output = child.readOutput();
        if (child.exitStatus() == skipStatus)
            GTEST_SKIP() << output;
        EXPECT_EQ(child.exitStatus(), 0) << output << child.readErrors();
    }

    /// Inside the process: ends it, and lets run() skip the test.
    [[noreturn]] static void skip(std::string_view reason) {
        std::cout << reason << std::endl;
        std::exit(skipStatus);
    }

    static std::string ownExecutable() {
        char path[4096];
        const ssize_t size = ::readlink("/proc/self/exe", path, sizeof path);
        return {path, size > 0 ? static_cast<size_t>(size) : 0};
    }

  private:
    static constexpr const char *variable = "MOXEL_TEST_CHILD";
    static constexpr int skipStatus = 77;

    class Runner : public ::testing::Environment {
      public:
        Runner(const char *name, Function function) : name_(name), function_(function) {}
        void SetUp() override {
            const char *chosen = std::getenv(variable);
            if (chosen == nullptr || std::string_view(chosen) != name_)
                return;
            function_();
            const bool failed = ::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
            std::exit(failed ? 1 : 0);
        }

      private:
        std::string name_;
        Function function_;
    };

    std::string name_;
};

} // namespace moxel::test
