// What all commands of moxelctl have in common: a name, options and a run that yields an exit code.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace moxel::tool {

/// Lives on the main thread.
class Command {
  public:
    Command(std::string name, std::string summary) : name_(std::move(name)), summary_(std::move(summary)) {}
    virtual ~Command() = default;
    Command(const Command &) = delete;
    Command &operator=(const Command &) = delete;

    /// Adds itself to the program, which must not outlive the command.
    void addTo(CLI::App &program);
    /// Once the command line has been parsed.
    [[nodiscard]] bool isChosen() const;

    /// Does what it is for; an ExitCode. Anything but success has been explained on standard error.
    [[nodiscard]] virtual int run() = 0;

  private:
    /// Adds options and a footer with examples; the options' variables live in the command.
    virtual void describe(CLI::App &command) = 0;

    const std::string name_;
    const std::string summary_;
    CLI::App *subcommand_ = nullptr; ///< The program's.
};

} // namespace moxel::tool
