// The kernel's HID devices as a client finds and uses them.
#include "Kernel/VirtualDevice.h"
#include "Platform/LogText.h"
#include "Support/ChildProcess.h"
#include "Support/DescriptorShortage.h"
#include "Support/HIDClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <future>
#include <linux/input.h>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <systemd/sd-login.h>
#include <thread>

namespace moxel {
namespace {

using test::Bytes;
using test::ChildProgram;
using test::HIDClient;
using test::InputRecorder;
using test::VirtualDevice;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const HIDManager::Matching oursOnly{{std::string(hidVendorIDKey), HIDProperty(int64_t{0x4D58})}};

/// Devices of the kernel only: the folder of the user-space bus stays empty.
class KernelDevices : public test::HIDBusTest {
  protected:
    KernelDevices() { ::unsetenv("MOXEL_HIDRAW"); } // NOLINT(concurrency-mt-unsafe): no thread runs yet
    void SetUp() override {
        MOXEL_NEEDS_UHID();
        HIDBusTest::SetUp();
        descriptors_ = test::openDescriptors();
    }
    void TearDown() override {
        if (descriptors_ == 0)
            return;
        // A call that was left to itself holds its descriptor until it returns.
        const auto deadline = Clock::now() + test::patience;
        while (test::openDescriptors() > descriptors_ && Clock::now() < deadline)
            std::this_thread::yield();
        HIDBusTest::TearDown();
    }

    static Bytes inputReport(uint8_t first) {
        Bytes report(64);
        report[0] = 0x35;
        report[1] = first;
        report[63] = 0xEE;
        return report;
    }
    static std::string textOf(const HIDDevice &device, std::string_view key) {
        return std::get<std::string>(device.property(key).value());
    }
    static int64_t numberOf(const HIDDevice &device, std::string_view key) {
        return std::get<int64_t>(device.property(key).value());
    }

  private:
    size_t descriptors_ = 0;
};

TEST_F(KernelDevices, HaveTheNameAndThePropertiesThatTheyWereMadeWith) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(numberOf(*found, hidVendorIDKey), 0x4D58);
    EXPECT_EQ(numberOf(*found, hidProductIDKey), 0x0102);
    EXPECT_EQ(numberOf(*found, hidPrimaryUsagePageKey), 0xFF00);
    EXPECT_EQ(numberOf(*found, hidPrimaryUsageKey), 1);
    EXPECT_EQ(textOf(*found, hidManufacturerKey), "Moxel");
    EXPECT_EQ(textOf(*found, hidProductKey), "Moxel Test Device");
    EXPECT_EQ(textOf(*found, hidSerialNumberKey), "S1");
    EXPECT_TRUE(found->description().ends_with(" Moxel Test Device vendor 0x4D58 product 0x0102>"));
}

TEST_F(KernelDevices, AreFoundWhetherTheyComeBeforeTheManagerOrAfterIt) {
    const VirtualDevice before({.name = "before"});
    const HIDClient client(oursOnly);
    EXPECT_TRUE(client.awaitDevice("before"));
    const VirtualDevice after({.name = "after"});
    EXPECT_TRUE(client.awaitDevice("after"));
    EXPECT_EQ(client.arrived().size(), 2U);
}

TEST_F(KernelDevices, LeaveWhenTheyAreUnplugged) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    ASSERT_TRUE(client.awaitDevice("Moxel Test Device"));
    device.unplug();
    ASSERT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(client.removed()[0], client.arrived()[0]);
    EXPECT_EQ(client.removed()[0]->open(), HIDStatus::noDevice);
}

TEST_F(KernelDevices, AreNotOpenedUntilTheApplicationOpensThem) {
    const VirtualDevice stranger({.name = "stranger", .vendorID = 0x1234});
    const VirtualDevice ours;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(ours.count(UHID_OPEN), 0U);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(ours.await(UHID_OPEN));
    EXPECT_EQ(found->open(), HIDStatus::success);
    ASSERT_EQ(found->close(), HIDStatus::success);
    ASSERT_TRUE(ours.await(UHID_CLOSE));
    EXPECT_EQ(found->close(), HIDStatus::notOpen);
    EXPECT_EQ(ours.count(UHID_OPEN), 1U);
    EXPECT_EQ(stranger.count(UHID_OPEN), 0U);
    EXPECT_EQ(client.arrived().size(), 1U);
}

TEST_F(KernelDevices, GetOutputReportsByteForByte) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::notOpen);
    ASSERT_EQ(found->open(), HIDStatus::success);
    Bytes longest(3071);
    for (size_t index = 0; index < longest.size(); ++index)
        longest[index] = static_cast<uint8_t>(index * 7);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1, 2, 3}), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, longest), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes(4095)), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes(4096)), HIDStatus::badArgument);
    ASSERT_TRUE(device.await(UHID_OUTPUT, 3));
    const std::vector<Bytes> outputs = device.outputs();
    EXPECT_EQ(outputs[0], (Bytes{0x46, 1, 2, 3}));
    EXPECT_EQ(outputs[1], test::operator+(Bytes{0x46}, longest));
    EXPECT_EQ(outputs[2].size(), 4096U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, AnswerRequestsForReports) {
    VirtualDevice device;
    device.setAnswer([](uint8_t reportID) { return Bytes{reportID, 9, 8, 7}; });
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    Bytes buffer(100, 0xAA);
    size_t length = 99;
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::notOpen);
    EXPECT_EQ(length, 0U);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::success);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), (Bytes{9, 8, 7, 0xAA}));
    ASSERT_EQ(found->getReport(HIDReportType::output, 0x46, std::span(buffer).first(2), length),
              HIDStatus::success);
    EXPECT_EQ(length, 2U);
    device.setAnswer([](uint8_t) { return Bytes(); });
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::error);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, ThatOweAnAnswerTimeOutAfterASecond) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    Bytes buffer(8);
    size_t length = 0;
    const auto start = Clock::now();
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::timedOut);
    EXPECT_GE(Clock::now() - start, 1s);
    // The kernel waits on; who comes next waits in vain, but no longer.
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::timedOut);
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_EQ(found->close(), HIDStatus::success);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_F(KernelDevices, ThatLeaveWakeWhoWaitsForThem) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    auto answer = std::async(std::launch::async, [&found] {
        Bytes buffer(8);
        size_t length = 0;
        return found->getReport(HIDReportType::output, 0x46, buffer, length);
    });
    ASSERT_TRUE(device.await(UHID_GET_REPORT));
    const auto start = Clock::now();
    device.unplug();
    // The kernel ends the request with an error, and a moment later the device.
    EXPECT_THAT(answer.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_LT(Clock::now() - start, 900ms) << "not because the time was up";
    EXPECT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::noDevice);
}

/// One waits in the kernel, the other for its turn.
TEST_F(KernelDevices, ThatLeaveWakeEveryoneWhoWaits) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    std::atomic<int> begun{0};
    const auto ask = [&] {
        Bytes buffer(8);
        size_t length = 0;
        ++begun;
        return found->getReport(HIDReportType::output, 0x46, buffer, length);
    };
    auto first = std::async(std::launch::async, ask);
    ASSERT_TRUE(device.await(UHID_GET_REPORT));
    auto second = std::async(std::launch::async, ask);
    while (begun < 2)
        std::this_thread::yield();
    const auto start = Clock::now();
    device.unplug();
    EXPECT_THAT(first.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_THAT(second.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_LT(Clock::now() - start, 900ms) << "not because the time was up";
    EXPECT_TRUE(client.awaitRemovals(1));
}

/// A device that owes an answer makes the kernel keep everyone waiting who opens or closes another.
class KernelDevicesBesideASilentOne : public KernelDevices {
  protected:
    void SetUp() override {
        KernelDevices::SetUp();
        if (IsSkipped())
            return;
        silent.emplace(VirtualDevice::Description{.name = "silent"});
        other.emplace(VirtualDevice::Description{.name = "other"});
        client.emplace(oursOnly);
        silentDevice = client->awaitDevice("silent");
        otherDevice = client->awaitDevice("other");
        ASSERT_TRUE(silentDevice && otherDevice);
        ASSERT_EQ(silentDevice->open(), HIDStatus::success);
    }
    void TearDown() override {
        if (answer.valid())
            answer.wait();
        silentDevice.reset();
        otherDevice.reset();
        client.reset();
        silent.reset();
        other.reset();
        KernelDevices::TearDown();
    }
    void askTheSilentOne() {
        answer = std::async(std::launch::async, [this] {
            Bytes buffer(8);
            size_t length = 0;
            return silentDevice->getReport(HIDReportType::output, 0x46, buffer, length);
        });
        ASSERT_TRUE(silent->await(UHID_GET_REPORT));
    }

    std::optional<VirtualDevice> silent;
    std::optional<VirtualDevice> other;
    std::optional<HIDClient> client;
    HIDDeviceReference silentDevice;
    HIDDeviceReference otherDevice;
    std::future<HIDStatus> answer;
};

TEST_F(KernelDevicesBesideASilentOne, AreOpenedTooLateAndArriveAnew) {
    askTheSilentOne();
    EXPECT_EQ(otherDevice->open(), HIDStatus::timedOut);
    EXPECT_EQ(errorsWith("(other) is not used: the kernel keeps everyone waiting"), 1U);
    silent->unplug();
    ASSERT_TRUE(client->awaitRemovals(2));
    ASSERT_TRUE(client->awaitArrivals(3));
    EXPECT_EQ(client->arrivedNames().back(), "other");
    EXPECT_EQ(otherDevice->open(), HIDStatus::noDevice);
    EXPECT_EQ(client->arrived().back()->open(), HIDStatus::success);
    EXPECT_EQ(client->arrived().back()->close(), HIDStatus::success);
}

TEST_F(KernelDevicesBesideASilentOne, CloseWithoutHoldingTheRunLoop) {
    ASSERT_EQ(otherDevice->open(), HIDStatus::success);
    askTheSilentOne();
    const auto start = Clock::now();
    client->onLoop([this] { EXPECT_EQ(otherDevice->close(), HIDStatus::success); });
    client->settle();
    EXPECT_LT(Clock::now() - start, 700ms);
    silent->unplug();
}

TEST_F(KernelDevices, DeliverInputInItsOrder) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    InputRecorder recorder;
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    for (uint8_t index = 0; index < 50; ++index)
        device.sendInput(inputReport(index));
    ASSERT_TRUE(recorder.awaitReports(50));
    for (uint8_t index = 0; index < 50; ++index)
        EXPECT_EQ(recorder.reports()[index], inputReport(index));
    EXPECT_EQ(recorder.identifiers()[0], 0x35U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, WithoutIdentifiersDeliverReportsOfIdentifier0) {
    const VirtualDevice device({.descriptor = VirtualDevice::unnumberedReports()});
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    InputRecorder recorder;
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    device.sendInput({1, 2, 3, 4});
    ASSERT_TRUE(recorder.awaitReports(1));
    EXPECT_EQ(recorder.reports()[0], (Bytes{0, 1, 2, 3, 4}));
    EXPECT_EQ(recorder.identifiers()[0], 0U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, DeliverWhatIsQueuedBeforeTheyLeave) {
    VirtualDevice device;
    InputRecorder recorder;
    std::atomic<size_t> reportsBeforeRemoval{0};
    const HIDClient client(oursOnly, {}, [&](HIDClient &, const HIDDeviceReference &) {
        reportsBeforeRemoval = recorder.reports().size();
    });
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    client.onLoop([&] { // Nothing is read meanwhile.
        for (uint8_t index = 0; index < 5; ++index)
            device.sendInput(inputReport(index));
        device.unplug();
    });
    ASSERT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(reportsBeforeRemoval, 5U);
    EXPECT_EQ(found->close(), HIDStatus::noDevice);
}

TEST_F(KernelDevices, ThatLeftCostNoTime) {
    VirtualDevice leaving({.name = "leaving"});
    const VirtualDevice silent({.name = "silent"});
    const HIDClient client(oursOnly);
    const HIDDeviceReference left = client.awaitDevice("leaving");
    const HIDDeviceReference other = client.awaitDevice("silent");
    ASSERT_TRUE(left && other);
    ASSERT_EQ(left->open(), HIDStatus::success);
    ASSERT_EQ(other->open(), HIDStatus::success);
    leaving.unplug();
    ASSERT_TRUE(client.awaitRemovals(1));
    const auto cpuTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = cpuTime();
    Bytes buffer(8);
    size_t length = 0;
    EXPECT_EQ(other->getReport(HIDReportType::output, 0x46, buffer, length),
              HIDStatus::timedOut); // A second.
    EXPECT_LT(cpuTime() - before, 500ms);
}

TEST_F(KernelDevices, ThatTakeTheNumberOfAnEarlierOneAreOthers) {
    const HIDClient client(oursOnly);
    for (int round = 0; round < 20; ++round) {
        const std::string name = "round " + std::to_string(round);
        VirtualDevice device({.name = name});
        const HIDDeviceReference found = client.awaitDevice(name);
        ASSERT_TRUE(found);
        ASSERT_EQ(found->open(), HIDStatus::success);
        device.unplug();
        const VirtualDevice next({.name = "next"});
        EXPECT_TRUE(client.awaitRemovals(static_cast<size_t>(2 * round + 1)));
        EXPECT_EQ(found->open(), HIDStatus::noDevice);
        ASSERT_TRUE(client.awaitArrivals(static_cast<size_t>(2 * round + 2)));
        EXPECT_EQ(client.arrivedNames().back(), "next");
    }
    EXPECT_TRUE(client.awaitRemovals(40));
}

TEST_F(KernelDevices, AreKeptForTwoManagersAtATime) {
    const VirtualDevice device;
    const HIDClient first(oursOnly);
    const HIDClient second(oursOnly);
    InputRecorder firstInput;
    InputRecorder secondInput;
    for (auto &[client, input] : {std::pair(&first, &firstInput), std::pair(&second, &secondInput)}) {
        const HIDDeviceReference found = client->awaitDevice("Moxel Test Device");
        ASSERT_TRUE(found);
        input->registerWith(*found);
        ASSERT_EQ(found->open(), HIDStatus::success);
    }
    device.sendInput(inputReport(1));
    EXPECT_TRUE(firstInput.awaitReports(1));
    EXPECT_TRUE(secondInput.awaitReports(1));
}

// ------------------------------------------------------------------------------------------ Rights

/// The node of the device with that serial number.
std::string nodeOf(const std::string &serialNumber) {
    for (const auto &node : std::filesystem::directory_iterator("/sys/class/hidraw")) {
        std::ifstream uevent(node.path() / "device/uevent");
        for (std::string line; std::getline(uevent, line);)
            if (line == "HID_UNIQ=" + serialNumber)
                return "/dev/" + node.path().filename().string();
    }
    return "";
}

/// Lets the thread that watches the nodes look at what has happened to them.
void letTheWatcherLook() {
    const auto services = *ServiceThread::lease();
    for (int turn = 0; turn < 4; ++turn)
        EXPECT_TRUE(services->thread().perform([] {}, Thread::Wait::untilDone));
}

TEST_F(KernelDevices, AreNeitherLostNorForgottenForWantOfDescriptors) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root to change rights";
    const VirtualDevice known({.name = "known", .serialNumber = "known-device"});
    const HIDClient client(oursOnly);
    ASSERT_TRUE(client.awaitDevice("known"));
    const std::string node = nodeOf("known-device");
    std::vector<std::string> absent; // Nodes that are not there yet.
    for (int number = 0; number < 64; ++number)
        if (::access(("/dev/hidraw" + std::to_string(number)).c_str(), F_OK) != 0)
            absent.push_back("/dev/hidraw" + std::to_string(number));
    std::unique_ptr<VirtualDevice> late;
    {
        const test::DescriptorShortage shortage(2); // As many as the device takes.
        late = std::make_unique<VirtualDevice>(VirtualDevice::Description{.name = "late"});
        const auto isThere = [](const std::string &each) { return ::access(each.c_str(), F_OK) == 0; };
        const auto deadline = Clock::now() + test::patience;
        while (std::ranges::none_of(absent, isThere) && Clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_EQ(::chmod(node.c_str(), 0640), 0); // So that it is looked at.
        letTheWatcherLook();
    }
    EXPECT_TRUE(client.awaitDevice("late"));
    EXPECT_TRUE(client.removed().empty());
}

TEST_F(KernelDevices, ThatCannotBeOpenedForWantOfDescriptorsArriveAnew) {
    const VirtualDevice device({.name = "wanted"});
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("wanted");
    ASSERT_TRUE(found);
    for (size_t spare = 0; spare < 2;
         ++spare) { // For neither the node, nor for the look at what it stands for.
        const test::DescriptorShortage shortage(spare);
        EXPECT_NE(found->open(), HIDStatus::success) << spare;
    }
    ASSERT_TRUE(client.awaitArrivals(2)) << "by itself";
    EXPECT_EQ(client.arrived().back()->open(), HIDStatus::success);
    EXPECT_EQ(client.arrived().back()->close(), HIDStatus::success);
}

/// The rules know the channels by the bus that no real device is on.
TEST_F(KernelDevices, OfARealBusStayRoots) {
    uid_t user = 0;
    if (::getuid() != 0 || ::access("/run/udev/control", F_OK) != 0 ||
        ::access("/usr/lib/udev/rules.d/70-moxel.rules", F_OK) != 0 ||
        ::sd_seat_get_active("seat0", nullptr, &user) < 0)
        GTEST_SKIP() << "needs root, udevd with the rules for channels, and somebody who sits at the machine";
    const auto hasEntryOfTheUser = [](const std::string &path) {
        return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
    };
    const VirtualDevice ours({.name = "ours", .serialNumber = "our-device"});
    const VirtualDevice theirs({.name = "theirs", .serialNumber = "their-device", .bus = BUS_USB});
    test::ChildProcess settled({"udevadm", "settle"});
    EXPECT_EQ(settled.exitStatus(), 0);
    EXPECT_TRUE(hasEntryOfTheUser(nodeOf("our-device")));
    EXPECT_FALSE(hasEntryOfTheUser(nodeOf("their-device")));
}

/// Rules may take their time. What they leave behind is udev's record of the device.
TEST_F(KernelDevices, AreTakenOnlyWhenUdevIsDoneWithThem) {
    if (::getuid() != 0 || ::access("/run/udev/control", F_OK) != 0 || std::getenv("MOXELD") == nullptr)
        GTEST_SKIP() << "changes udev's rules: only with udevd, on a machine of its own, as root";
    std::filesystem::create_directories("/run/udev/rules.d");
    const std::string rule = "/run/udev/rules.d/60-delay.rules";
    std::ofstream(rule) << R"(SUBSYSTEM=="hidraw", PROGRAM="/bin/sleep 0.3")"
                        << "\n";
    const auto reload = [] {
        test::ChildProcess control({"udevadm", "control", "--reload"});
        EXPECT_EQ(control.exitStatus(), 0);
    };
    reload();
    std::atomic<bool> hasRecord{false};
    {
        const HIDClient client(oursOnly, [&](HIDClient &, const HIDDeviceReference &) {
            struct stat status {};
            const std::string node = nodeOf("slow-device");
            EXPECT_EQ(::stat(node.c_str(), &status), 0) << node;
            const std::string record = "/run/udev/data/c" + std::to_string(major(status.st_rdev)) + ":" +
                                       std::to_string(minor(status.st_rdev));
            hasRecord = ::access(record.c_str(), F_OK) == 0;
        });
        const VirtualDevice device({.name = "slow", .serialNumber = "slow-device"});
        EXPECT_TRUE(client.awaitDevice("slow"));
        EXPECT_TRUE(hasRecord);
    }
    std::filesystem::remove(rule);
    reload();
}

constexpr uint32_t unknownVendor = 0x1234; // No rule knows it.

const ChildProgram ordinaryUser("ordinary user", [] {
    ASSERT_EQ(::setgid(1000), 0);
    ASSERT_EQ(::setuid(1000), 0);
    test::Awaited<std::vector<std::string>> errors;
    const LogCapture log([&errors](LogLevel level, std::string_view line) {
        if (level == LogLevel::error)
            errors.change([&](auto &lines) { lines.emplace_back(line); });
    });
    const HIDClient client({{std::string(hidVendorIDKey), HIDProperty(int64_t{unknownVendor})}});
    const HIDClient another({{std::string(hidVendorIDKey), HIDProperty(int64_t{unknownVendor})}});
    ASSERT_TRUE(errors.await([](const auto &lines) { return !lines.empty(); }));
    test::ChildProcess::tell(errors.get()[0]);
    const HIDDeviceReference found = client.awaitDevice("late");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->open(), HIDStatus::success);
    EXPECT_TRUE(another.awaitDevice("late"));
    EXPECT_EQ(errors.get().size(), 1U) << "one line for one node";
    test::ChildProcess::tell("opened");
});

TEST_F(KernelDevices, WithoutRightsAreReportedAndArriveWhenTheRightsDo) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root to give rights";
    const VirtualDevice device({.name = "late", .serialNumber = "late-rights", .vendorID = unknownVendor});
    auto child = ordinaryUser.start({{"MOXEL_HIDRAW", std::nullopt}, {"MOXEL_HID_BUS", "/nowhere"}});
    const std::string complaint = child.hear();
    const std::string node = nodeOf("late-rights");
    EXPECT_EQ(complaint,
              "Error: HID device " + node +
                  " (late) is not used: it may not be opened: Permission denied. This udev rule, in "
                  "/etc/udev/rules.d/70-hid.rules, would allow it: SUBSYSTEM==\"hidraw\", "
                  "KERNELS==\"*:1234:*\", TAG+=\"uaccess\"");
    EXPECT_EQ(device.count(UHID_OPEN), 0U);
    ASSERT_EQ(::chmod(node.c_str(), 0666), 0);
    EXPECT_EQ(child.hear(), "opened");
    EXPECT_TRUE(device.await(UHID_OPEN));
    EXPECT_EQ(child.exitStatus(), 0) << child.readErrors();
}

/// Tells of each step, and goes on by itself: its rights change from outside.
const ChildProgram userWhoseRightsGo("user whose rights go", [] {
    ASSERT_EQ(::setgid(1000), 0);
    ASSERT_EQ(::setuid(1000), 0);
    const HIDClient client({{std::string(hidVendorIDKey), HIDProperty(int64_t{unknownVendor})}});
    const HIDDeviceReference found = client.awaitDevice("fickle");
    ASSERT_TRUE(found);
    test::ChildProcess::tell("found");
    HIDStatus status = HIDStatus::success;
    while ((status = found->open()) == HIDStatus::success)
        ASSERT_EQ(found->close(), HIDStatus::success);
    EXPECT_EQ(status, HIDStatus::notPermitted);
    test::ChildProcess::tell("refused");
    ASSERT_TRUE(client.awaitRemovals(1));
    ASSERT_TRUE(client.awaitArrivals(2));
    EXPECT_EQ(client.arrived().back()->open(), HIDStatus::success);
    test::ChildProcess::tell("opened");
});

TEST_F(KernelDevices, WhoseRightsWereLostArriveAnewWhenTheyAreBack) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root to give rights";
    const VirtualDevice device(
        {.name = "fickle", .serialNumber = "fickle-rights", .vendorID = unknownVendor});
    const HIDClient client({{std::string(hidVendorIDKey), HIDProperty(int64_t{unknownVendor})}});
    ASSERT_TRUE(client.awaitDevice("fickle")); // Udev is done with it.
    const std::string node = nodeOf("fickle-rights");
    ASSERT_EQ(::chmod(node.c_str(), 0666), 0);
    auto child = userWhoseRightsGo.start({{"MOXEL_HIDRAW", std::nullopt}, {"MOXEL_HID_BUS", "/nowhere"}});
    ASSERT_EQ(child.hear(), "found");
    ASSERT_EQ(::chmod(node.c_str(), 0600), 0);
    ASSERT_EQ(child.hear(), "refused");
    ASSERT_EQ(::chmod(node.c_str(), 0666), 0);
    EXPECT_EQ(child.hear(), "opened");
    EXPECT_EQ(child.exitStatus(), 0) << child.readErrors();
}

} // namespace
} // namespace moxel
