// Datagrams of the user-space bus, into the side of its clients and into that of its devices.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Bus/BusMessages.h"
#include "Platform/Linux/BusMessage.h"

using namespace moxel;

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::FuzzInput input(data, size);
    const size_t surplus = input.number<uint8_t>() % 4 == 0 ? input.number<uint16_t>() : 0;
    const std::vector<uint8_t> datagram = input.bytes(hidbus::messageLimit);
    if (const auto message = parseBusMessage(datagram, datagram.size() + surplus)) {
        (void)replyStatus(*message);
        fuzz::require(message->payload.size() <= datagram.size());
        if (const auto properties = parseBusProperties(*message))
            for (const char *key : {"VendorID", "Manufacturer", "Product", "SerialNumber", "x"})
                (void)properties->property(key);
    }
    if (const auto request = daemon::parseBusRequest(datagram, datagram.size() + surplus))
        (void)daemon::busReplyMessage(*request, HIDStatus::success, request->payload);
    return 0;
}
