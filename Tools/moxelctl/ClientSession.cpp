#include "ClientSession.h"

#include "Complaint.h"
#include "DriverDiagnosis.h"
#include "DriverLog.h"
#include "ExitCode.h"

#include <algorithm>
#include <vector>

namespace moxel::tool {

namespace {

constexpr uint32_t signature = 0x4D784374; // 'MxCt'
constexpr uint16_t mode = 0;

std::vector<uint8_t> pascalString(const std::string &text) {
    const size_t length = std::min<size_t>(text.size(), 255);
    std::vector<uint8_t> bytes(1 + length);
    bytes[0] = static_cast<uint8_t>(length);
    std::copy_n(text.begin(), length, bytes.begin() + 1);
    return bytes;
}

} // namespace

Handlers noHandlers() {
    return {[](uint32_t, uint32_t, void *, void *) {}, [](uint32_t, void *) {}, [](uint32_t, void *) {},
            nullptr};
}

std::optional<ClientSession::Failure> ClientSession::open(const Handlers &handlers, const std::string &name,
                                                          uint32_t mask) {
    const DriverLog log;
    const int16_t installed = _SetMoxelHandlers(handlers.message, handlers.added, handlers.removed,
                                                handlers.context, handlers.threaded);
    isInstalled_ = true;
    if (installed != kMoxelResultOK)
        return Failure{noDriver, "the driver does not let this program open its channel", restartDriver};
    std::vector<uint8_t> pascalName = pascalString(name);
    clientID_ = RegisterMoxelClient(signature, pascalName.data(), mode, mask);
    if (clientID_ == 0)
        return Failure{notRegistered,
                       "the driver answers but does not register this program: " + log.lastError(),
                       restartDriver};
    return std::nullopt;
}

int ClientSession::begin(const Handlers &handlers, const std::string &name, uint32_t mask) {
    if (const auto failed = open(handlers, name, mask)) {
        if (failed->exitCode == noDriver)
            explainMissingDriver();
        else
            complain(failed->problem, failed->remedy);
        return failed->exitCode;
    }
    if (!MoxelCheckUserActive())
        complain("this login session is not on the console: the driver's events do not reach it",
                 "Change to this session.");
    return success;
}

ClientSession::~ClientSession() {
    if (clientID_ != 0)
        UnregisterMoxelClient(clientID_);
    if (isInstalled_)
        CleanupMoxelHandlers();
}

} // namespace moxel::tool
