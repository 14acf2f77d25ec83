// What a daemon may send: input reports, and the content of the storage slot that they announce, into a live
// client.
#include "Fuzzers/FuzzInput.h"
#include "Platform/Log.h"
#include "Platform/RunLoop.h"
#include "Platform/Session.h"
#include "Session/ChannelCallbacks.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"

using namespace moxel;

namespace {

uint64_t sum = 0;

// Reads what it is handed, so that a sanitizer sees a record that is too short.
void message(uint32_t product, uint32_t type, void *argument) {
    sum += product + type;
    if (type == kMoxelMsgDeviceState)
        sum += static_cast<const MoxelStateRecord *>(argument)->buttons;
}
void device(uint32_t product) { sum += product; }

struct Session {
    explicit Session(bool threaded) : client(MoxelClientTestAccess::make(message, device, device, threaded)) {
        client->setChannelID(0x77);
        client->setM_refHIDChannelDedicated(channel);
        channel->registerInputReportCallback(buffer, HandleIncomingDataDedicated, client.get());
    }

    std::shared_ptr<test::FakeHIDDevice> channel = test::FakeHIDDevice::channel("dedicated");
    std::array<uint8_t, 64> buffer{};
    MoxelClientTestAccess::Client client;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static const LogCapture silence([](LogLevel, std::string_view) {});
    static const SessionOverride onConsole([] { return SessionDescription{true, "root"}; });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::FuzzInput input(data, size);
    Session session(input.number<uint8_t>() % 2 == 0);
    while (!input.empty()) {
        const auto kind = input.number<uint8_t>();
        if (kind % 4 == 0)
            session.channel->slot = input.bytes(4096);
        else
            session.channel->receive(input.bytes(64), static_cast<HIDReportType>(kind >> 2 & 1));
    }
    if (const auto runLoop = RunLoop::current(); runLoop.ok())
        (void)(*runLoop)->dispatch(0);
    return 0;
}
