// Runs a program to its end and hands back what it wrote.
#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ; // NOLINT(readability-redundant-declaration): not in every system's headers.

namespace moxel::test {

struct SubprocessResult {
    int exitCode = -1;  ///< -1 when the program could not be started or a signal ended it.
    std::string output; ///< What it wrote to its standard output; its standard error is the caller's.
};

/// Runs a program, found in PATH unless its name holds a slash, gives it `input` as standard input and waits
/// for its end. Any thread.
inline SubprocessResult runSubprocess(const std::string &program, const std::vector<std::string> &arguments,
                                      std::string_view input = {}) {
    struct Close {
        void operator()(FILE *file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<FILE, Close>;
    // Files instead of pipes: nobody ever has to wait for a reader or a writer.
    const File inputFile(std::tmpfile());
    const File outputFile(std::tmpfile());
    if (!inputFile || !outputFile ||
        std::fwrite(input.data(), 1, input.size(), inputFile.get()) != input.size())
        return {};
    std::rewind(inputFile.get());

    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(inputFile.get()), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(outputFile.get()), STDOUT_FILENO);
    pid_t process = -1;
    const int spawnError = posix_spawnp(&process, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawnError != 0)
        return {};

    int status = 0;
    while (waitpid(process, &status, 0) < 0)
        if (errno != EINTR)
            return {};
    SubprocessResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::rewind(outputFile.get());
    char buffer[4096];
    while (const size_t size = std::fread(buffer, 1, sizeof buffer, outputFile.get()))
        result.output.append(buffer, size);
    return result;
}

} // namespace moxel::test
