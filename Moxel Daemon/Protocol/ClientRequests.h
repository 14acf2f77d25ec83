// What clients ask for: the requests that travel through storage slot 1.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace moxel::daemon {

/// What a client tells of its application; members that it did not send, or sent in another type, are absent.
struct ApplicationRecord {
    std::optional<uint16_t> clientID;
    std::optional<std::string> name;
    std::optional<std::string> applicationFileName;
    std::optional<std::string> clientName;
    std::optional<std::string> bundleID;
    std::optional<std::string> executablePath;
    std::optional<std::string> commandsFile;
    std::optional<std::string> imagesFile;
    std::optional<std::string> settingsFile;
    std::optional<uint32_t> signature;
    std::optional<int32_t> processID;
    std::optional<uint16_t> mode;
    std::optional<uint32_t> mask;
    std::optional<uint32_t> buttonMask;
    std::optional<uint32_t> switches;
    std::optional<uint64_t> channelID;

    bool operator==(const ApplicationRecord &) const = default;
};

/// Absent when the value is no archived application record.
[[nodiscard]] std::optional<ApplicationRecord> applicationRecord(const Value &value);

struct RegistrationRequest {
    ApplicationRecord application;
    bool isAgain = false; ///< The client registers once more because it was asked to.
};

struct MaskRequest {
    std::optional<uint32_t> eventMask; ///< Absent when it is to stay as it is.
    std::optional<uint32_t> buttonMask;
};

struct ControlRequest {
    uint32_t code = 0; ///< Four characters, the first one in the most significant byte.
    int32_t parameter = 0;

    bool operator==(const ControlRequest &) const = default;
};

/// Absent when a member is missing or of another type.
[[nodiscard]] std::optional<RegistrationRequest> registrationRequest(const Dictionary &request);
[[nodiscard]] std::optional<MaskRequest> maskRequest(const Dictionary &request);
[[nodiscard]] std::optional<ControlRequest> controlRequest(const Dictionary &request);

/// An application has written a file, or wants another set of actions.
struct ExportRequest {
    enum class Kind { commands, images, settings, activeSet };

    Kind kind = Kind::commands;
    std::string argument; ///< The file's path, or the set's identifier.

    bool operator==(const ExportRequest &) const = default;
};

/// Absent when the request is none of these.
[[nodiscard]] std::optional<ExportRequest> exportRequest(const Dictionary &request);

/// One block of data that a client placed in storage slot 1 and announced.
struct ReceivedRequest {
    uint64_t channelID = 0;
    uint16_t clientID = 0; ///< 0 before the registration.
    uint16_t requestID = 0;
    uint16_t command = 0;
    Data bytes;
    std::string name; ///< Empty for raw data.
    Dictionary dictionary;
    std::string problem;       ///< What is wrong with a request of that name; empty when it is well formed.
    bool acknowledged = false; ///< Whether an acknowledgement was due.
    bool continues = false;    ///< Raw data that goes on with the block before it.
    bool mayGoOn = false;      ///< Raw data that the next block may go on with.
};

/// Reads a block: a request that the daemon knows, else raw data.
[[nodiscard]] ReceivedRequest readRequest(std::span<const uint8_t> block);

} // namespace moxel::daemon
