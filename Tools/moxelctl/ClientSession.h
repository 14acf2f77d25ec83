// A session with the driver for the length of a command.
#pragma once

#include <Moxel/MoxelClient.h>

#include <cstdint>
#include <optional>
#include <string>

namespace moxel::tool {

struct Handlers {
    _MoxelMessageHandlerProc message;
    _MoxelAddedHandlerProc added;
    _MoxelRemovedHandlerProc removed;
    void *context;
    bool threaded = false;
};

/// For a command that has no use for events.
[[nodiscard]] Handlers noHandlers();

/// Installs handlers and registers; takes both back when destroyed. Lives on one thread.
class ClientSession {
  public:
    ClientSession() = default;
    ~ClientSession();
    ClientSession(const ClientSession &) = delete;
    ClientSession &operator=(const ClientSession &) = delete;

    /// Why a session did not begin.
    struct Failure {
        int exitCode;
        std::string problem;
        std::string remedy;
    };

    /// Without a word; absent when the session has begun.
    [[nodiscard]] std::optional<Failure> open(const Handlers &handlers, const std::string &name,
                                              uint32_t mask);
    /// An exit code; anything but success has been explained on standard error.
    [[nodiscard]] int begin(const Handlers &handlers, const std::string &name, uint32_t mask = 0);
    [[nodiscard]] uint16_t clientID() const noexcept { return clientID_; }

  private:
    uint16_t clientID_ = 0;
    bool isInstalled_ = false;
};

} // namespace moxel::tool
