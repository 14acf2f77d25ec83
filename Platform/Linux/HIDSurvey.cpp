// Surveys the user-space bus, whose folder it lists as a client does, to connect to each socket and ask for a
// reply, and the kernel's devices, which it does not open.
#include "Platform/HIDSurvey.h"

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/BusFolder.h"
#include "Platform/Linux/BusMessage.h"
#include "Platform/Linux/BusSocket.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FolderStream.h"
#include "Platform/Linux/HidrawNode.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace moxel {

namespace {

using Clock = std::chrono::steady_clock;
using State = SurveyedDevice::State;

constexpr size_t deviceLimit = 256;
constexpr std::chrono::seconds patience{1};

std::string nameOfProcess(int32_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

/// Asks one device; the question is over when descriptor() is -1.
class Question {
  public:
    Question(int folder, const std::string &folderPath, const std::string &name) {
        device_.place = folderPath + "/" + name;
        const Result<BusSocket> socket = BusSocket::open(folder, folderPath, name);
        if (socket.ok()) {
            connect(*socket);
        } else {
            end(State::unreachable, socket.error().message);
        }
    }

    [[nodiscard]] int descriptor() const noexcept { return connection_.get(); }

    /// Reads what has come.
    void receive() {
        BusBuffer buffer;
        while (connection_) {
            const BusReceipt receipt = receiveBusDatagram(connection_.get(), buffer);
            if (receipt.kind == BusReceipt::Kind::nothing)
                return;
            if (receipt.kind == BusReceipt::Kind::hangUp)
                return end(State::silent, "it hangs up");
            const Result<BusMessage> message = parseBusMessage(buffer, receipt.sentSize);
            if (!message.ok())
                return end(State::malformed, "it sends " + message.error().message);
            take(*message);
        }
    }

    /// The time is up.
    void giveUp() {
        if (connection_)
            end(State::silent, "it does not answer");
    }

    SurveyedDevice result() && { return std::move(device_); }

  private:
    void connect(const BusSocket &socket) {
        connection_.reset(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const int error = connection_ ? socket.connect(connection_.get()) : errno;
        if (error == ECONNREFUSED || error == ENOENT)
            return end(State::stale, "nobody listens: its publisher is gone");
        if (error == EAGAIN)
            return end(State::silent, "too many wait for it already");
        if (error != 0)
            return end(State::unreachable, systemError("cannot connect to it", error).message);
        identifyPublisher();
        if (const Result<void> trusted = checkPublisher(connection_.get()); !trusted.ok())
            return end(State::untrusted, trusted.error().message);
        // A device that this connection has not open refuses to close, which does it no harm: a sign of life.
        const hidbus::MessageHeader close{static_cast<uint8_t>(hidbus::Operation::close), 0, 0, 0, 0};
        if (::send(connection_.get(), &close, sizeof close, MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
            end(State::silent, "it hangs up");
    }

    void identifyPublisher() {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (::getsockopt(connection_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
            return;
        device_.user = peer.uid;
        if (peer.pid > 0) { // Not told across some namespaces.
            device_.process = peer.pid;
            device_.program = nameOfProcess(peer.pid);
        }
    }

    void take(const BusMessage &message) {
        if (message.operation == hidbus::Operation::close) {
            if (hasProperties_)
                return end(State::ready, "");
            return end(State::malformed, "it answers before it says what it is");
        }
        if (message.operation != hidbus::Operation::properties || hasProperties_)
            return end(State::malformed, "it sends what nobody asked for");
        const Result<BusDeviceProperties> properties = parseBusProperties(message);
        if (!properties.ok())
            return end(State::malformed, "it sends " + properties.error().message);
        hasProperties_ = true;
        device_.name = properties->name;
        device_.manufacturer = properties->manufacturer;
        device_.product = properties->product;
        device_.serialNumber = properties->serialNumber;
        device_.vendorID = properties->vendorID;
        device_.productID = properties->productID;
    }

    void end(State state, std::string problem) {
        device_.state = state;
        device_.problem = std::move(problem);
        connection_.reset();
    }

    SurveyedDevice device_;
    Descriptor connection_;
    bool hasProperties_ = false;
};

/// The names of the devices in a folder, sorted.
Result<std::vector<std::string>> deviceNames(int folder) {
    const FolderStream stream = readEntriesOf(Descriptor(::fcntl(folder, F_DUPFD_CLOEXEC, 0)));
    if (!stream)
        return systemError("it cannot be listed", errno);
    std::vector<std::string> names;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads this stream
    while (const dirent *entry = ::readdir(stream.get())) {
        if (BusSocket::isDeviceName(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    std::ranges::sort(names);
    return names;
}

void awaitAnswers(std::vector<Question> &questions) {
    const auto deadline = Clock::now() + patience;
    for (;;) {
        std::vector<pollfd> watched;
        watched.reserve(questions.size());
        for (const Question &question : questions)
            watched.push_back({question.descriptor(), POLLIN, 0}); // poll() passes over -1.
        const bool isOver = std::ranges::all_of(watched, [](const pollfd &entry) { return entry.fd < 0; });
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (isOver || left <= 0)
            break;
        if (::poll(watched.data(), watched.size(), static_cast<int>(left)) < 0 && errno != EINTR)
            break;
        for (size_t index = 0; index < questions.size(); ++index) {
            if (watched[index].revents != 0)
                questions[index].receive();
        }
    }
    for (Question &question : questions)
        question.giveUp();
}

void surveyDevices(int folder, SurveyedBus &bus) {
    Result<std::vector<std::string>> names = deviceNames(folder);
    if (!names.ok()) {
        bus.state = SurveyedBus::State::unreadable;
        bus.problem = names.error().message;
        return;
    }
    if (names->size() > deviceLimit) {
        bus.unseenDevices = names->size() - deviceLimit;
        names->resize(deviceLimit);
    }
    std::vector<Question> questions;
    for (const std::string &name : *names)
        questions.emplace_back(folder, bus.place, name);
    awaitAnswers(questions);
    for (Question &question : questions)
        bus.devices.push_back(std::move(question).result());
}

SurveyedBus surveyFolder(std::string path) {
    SurveyedBus bus;
    bus.place = std::move(path);
    const Descriptor folder(::open(bus.place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) {
        const int error = errno;
        bus.state = error == ENOENT ? SurveyedBus::State::missing : SurveyedBus::State::unreadable;
        bus.problem =
            error == ENOENT ? "it does not exist" : systemError("it cannot be opened", error).message;
        return bus;
    }
    bus.problem = BusFolder::reasonNotToTrust(status);
    bus.state = bus.problem.empty() ? SurveyedBus::State::usable : SurveyedBus::State::untrusted;
    if (bus.state == SurveyedBus::State::usable)
        surveyDevices(folder.get(), bus);
    return bus;
}

/// The kernel does not tell who made a device, nor whether he still answers.
SurveyedDevice surveyNode(const HidrawNode &node) {
    SurveyedDevice device;
    device.place = node.place;
    const Result<void> rights = checkRights(node);
    device.state = rights.ok() ? State::ready : State::unreachable;
    if (!rights.ok())
        device.problem = rights.error().message +
                         "; this udev rule would allow it: " + udevRuleForVendor(node.properties.vendorID);
    device.name = node.properties.name;
    device.manufacturer = node.properties.manufacturer;
    device.product = node.properties.product;
    device.serialNumber = node.properties.serialNumber;
    device.vendorID = node.properties.vendorID;
    device.productID = node.properties.productID;
    return device;
}

SurveyedBus surveyNodes(uint16_t vendorID) {
    SurveyedBus bus;
    bus.place = "/dev";
    bus.state = SurveyedBus::State::usable;
    for (const std::string &name : hidrawNames().valueOr(std::vector<std::string>())) {
        // One that cannot be looked at for want of descriptors cannot be told from another vendor's.
        const std::optional<HidrawNode> node = readHidrawNode(name).valueOr(std::nullopt);
        if (node && node->properties.vendorID == vendorID)
            bus.devices.push_back(surveyNode(*node)); // The kernel has 64 at most.
    }
    std::ranges::sort(bus.devices, {}, &SurveyedDevice::place);
    return bus;
}

} // namespace

std::vector<SurveyedBus> surveyHIDBuses(uint16_t vendorID) {
    std::vector<SurveyedBus> buses{surveyFolder(BusFolder::standardPath())};
    if (SurveyedBus kernel = surveyNodes(vendorID); !kernel.devices.empty())
        buses.push_back(std::move(kernel));
    return buses;
}

} // namespace moxel
