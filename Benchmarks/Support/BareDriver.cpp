#include "Support/BareDriver.h"

#include "Platform/Linux/HIDBusWire.h"
#include "Protocol/WireLayouts.h"
#include <Moxel/MoxelClient.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::benchmarks {

namespace {

using hidbus::MessageHeader;
using hidbus::Operation;

void require(bool holds) {
    if (!holds)
        std::abort();
}

std::vector<uint8_t> propertiesOf(const std::string &name) {
    const MessageHeader header{static_cast<uint8_t>(Operation::properties), 0, 0, 0, 0};
    const hidbus::PropertiesHead head{0x4D58, 1, 0xFF00, 1};
    std::vector<uint8_t> message(sizeof header + sizeof head);
    std::memcpy(message.data(), &header, sizeof header);
    std::memcpy(message.data() + sizeof header, &head, sizeof head);
    for (const std::string &text : {name, std::string("Moxel"), std::string("Channel"), std::string("1")}) {
        message.push_back(static_cast<uint8_t>(text.size()));
        message.insert(message.end(), text.begin(), text.end());
    }
    return message;
}

/// A message of the driver as a whole datagram.
void sendInput(int descriptor, const wire::DaemonResponse &response) {
    const MessageHeader header{static_cast<uint8_t>(Operation::input), 0, wire::daemonMessage, 0, 0};
    std::array<uint8_t, sizeof header + sizeof response> datagram;
    std::memcpy(datagram.data(), &header, sizeof header);
    std::memcpy(datagram.data() + sizeof header, &response, sizeof response);
    ::send(descriptor, datagram.data(), datagram.size(), MSG_NOSIGNAL);
}

} // namespace

BareDriver::BareDriver(std::string busFolder)
    : busFolder_(std::move(busFolder)),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      stop_(::eventfd(0, EFD_CLOEXEC)) {
    require(epoll_ >= 0 && stop_ >= 0);
    epoll_event event{EPOLLIN, {}};
    event.data.fd = stop_;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, stop_, &event);
    char name[64];
    std::snprintf(name, sizeof name, "MxlVirtualHIDData_Base%08X", MoxelGetSessionUserID());
    publish(name, 0);
    thread_ = std::thread([this] { run(); });
}

BareDriver::~BareDriver() {
    const uint64_t one = 1;
    require(::write(stop_, &one, sizeof one) == sizeof one);
    thread_.join();
    while (!endpoints_.empty())
        remove(endpoints_.begin()->first);
    ::close(stop_);
    ::close(epoll_);
}

int BareDriver::inputSocket(uint16_t clientID) {
    const std::lock_guard lock(inputsMutex_);
    return inputs_.at(clientID);
}

void BareDriver::publish(const std::string &name, uint64_t channelID) {
    auto device = std::make_shared<Device>();
    device->path = busFolder_ + "/" + name + ".hid";
    device->name = name;
    device->channelID = channelID;
    const std::string hidden = busFolder_ + "/." + name + ".tmp";
    const int listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(hidden.size() < sizeof address.sun_path);
    std::memcpy(address.sun_path, hidden.data(), hidden.size());
    require(::bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
    require(::listen(listener, SOMAXCONN) == 0);
    add(listener, true, device);
    require(::rename(hidden.c_str(), device->path.c_str()) == 0);
}

void BareDriver::add(int descriptor, bool listens, const std::shared_ptr<Device> &device) {
    endpoints_[descriptor] = {descriptor, listens, device};
    epoll_event event{EPOLLIN, {}};
    event.data.fd = descriptor;
    require(::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) == 0);
}

void BareDriver::run() {
    for (;;) {
        epoll_event event;
        if (::epoll_wait(epoll_, &event, 1, -1) < 1)
            continue;
        if (event.data.fd == stop_)
            return;
        const Endpoint ready = endpoints_.at(event.data.fd);
        if (ready.listens)
            accept(ready);
        else
            serve(ready);
    }
}

void BareDriver::accept(const Endpoint &listener) {
    const int connection = ::accept4(listener.descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
        return;
    add(connection, false, listener.device);
    const std::vector<uint8_t> properties = propertiesOf(listener.device->name);
    ::send(connection, properties.data(), properties.size(), MSG_NOSIGNAL);
}

void BareDriver::serve(const Endpoint &connection) {
    std::array<uint8_t, hidbus::messageLimit> request;
    const ssize_t size = ::recv(connection.descriptor, request.data(), request.size(), 0);
    if (size < static_cast<ssize_t>(sizeof(MessageHeader))) {
        remove(connection.descriptor);
        return;
    }
    MessageHeader header;
    std::memcpy(&header, request.data(), sizeof header);
    const auto operation = static_cast<Operation>(header.operation);
    if (operation == Operation::open)
        connection.device->input = connection.descriptor;
    const MessageHeader reply{header.operation, 0, 0, 0, 0};
    ::send(connection.descriptor, &reply, sizeof reply, MSG_NOSIGNAL);
    if (operation == Operation::setReport)
        setReport(*connection.device, header.reportID, request.data() + sizeof header + wire::channelTagSize,
                  static_cast<size_t>(size) - sizeof header - wire::channelTagSize);
}

void BareDriver::setReport(Device &device, uint8_t reportID, const uint8_t *report, size_t size) {
    if (reportID == wire::controlReport && size >= sizeof(wire::MxControlPacket))
        control(device, report);
}

void BareDriver::control(Device &device, const uint8_t *bytes) {
    wire::MxControlPacket packet;
    std::memcpy(&packet, bytes, sizeof packet);
    if (packet.code == wire::createChannel) {
        char name[64];
        std::snprintf(name, sizeof name, "MxlVirtualHIDData_ID%llX",
                      static_cast<unsigned long long>(packet.channelID));
        publish(name, packet.channelID);
        return;
    }
    if (packet.code == wire::terminateChannel) {
        removeDevice(packet.channelID);
        return;
    }
    wire::DaemonResponse response{};
    response.header = {wire::daemonMessage, wire::daemonResponse};
    response.code = wire::acknowledgement;
    if (device.clientID == 0) {
        device.clientID = ++lastClient_;
        response.code = wire::registrationAnswer;
        response.clientID = device.clientID;
        response.channelID = device.channelID;
        const std::lock_guard lock(inputsMutex_);
        inputs_[device.clientID] = device.input;
    }
    sendInput(device.input, response);
}

void BareDriver::removeDevice(uint64_t channelID) {
    std::vector<int> descriptors;
    for (const auto &[descriptor, endpoint] : endpoints_)
        if (endpoint.device->channelID == channelID)
            descriptors.push_back(descriptor);
    for (const int descriptor : descriptors)
        remove(descriptor);
}

void BareDriver::remove(int descriptor) {
    const auto found = endpoints_.find(descriptor);
    if (found->second.listens)
        ::unlink(found->second.device->path.c_str());
    ::close(descriptor);
    endpoints_.erase(found);
}

} // namespace moxel::benchmarks
