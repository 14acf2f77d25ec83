#include "ClientSession.h"

#include "ExitCode.h"

#include <algorithm>
#include <cstdio>
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

int ClientSession::begin(const Handlers &handlers, const std::string &name, uint32_t mask) {
    const int16_t installed = _SetMoxelHandlers(handlers.message, handlers.added, handlers.removed,
                                                handlers.context, handlers.threaded);
    isInstalled_ = true;
    if (installed != kMoxelResultOK) {
        std::fputs(
            "moxelctl: no driver answers.\n"
            "Is moxeld running, as this user or as root, and on the same bus folder? The folder is\n"
            "$MOXEL_HID_BUS, else $XDG_RUNTIME_DIR/moxel/hid, else /run/moxel/hid. MOXEL_LOG=stderr shows "
            "each step.\n",
            stderr);
        return noDriver;
    }
    std::vector<uint8_t> pascalName = pascalString(name);
    clientID_ = RegisterMoxelClient(signature, pascalName.data(), mode, mask);
    if (clientID_ == 0) {
        std::fputs("moxelctl: the driver does not register this program. MOXEL_LOG=stderr shows each step.\n",
                   stderr);
        return notRegistered;
    }
    return success;
}

ClientSession::~ClientSession() {
    if (clientID_ != 0 || isInstalled_)
        UnregisterMoxelClient(clientID_);
    if (isInstalled_)
        CleanupMoxelHandlers();
}

} // namespace moxel::tool
