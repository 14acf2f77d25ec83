// The kernel's HID devices when rights or descriptors are missing.
#include "Kernel/KernelDevices.h"
#include "Support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <linux/input.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <systemd/sd-login.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace moxel {
namespace {

using test::ChildProgram;
using test::HIDClient;
using test::KernelDevices;
using test::oursOnly;
using test::VirtualDevice;

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
