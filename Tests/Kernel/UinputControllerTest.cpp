// Controllers that the kernel makes up, from their reports to the handlers of an application.
#include "Platform/Accounts.h"
#include "Support/ChildProcess.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HandlerRecorder.h"
#include "Support/TemporaryFolder.h"
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/xattr.h>
#include <systemd/sd-login.h>
#include <unistd.h>
#include <vector>

namespace moxel {
namespace {

using test::ChildProcess;
using test::ReceivedCall;
using Recorder = test::HandlerRecorder;

/// A controller with six axes and two buttons. Plugged in by the constructor, unplugged by the destructor.
class VirtualController {
  public:
    struct Event {
        unsigned type;
        unsigned code;
        int value;
    };
    enum class Axes { relative, absolute };
    enum class Kind { controller, keyboard, motionSensor };

    static constexpr uint16_t vendor = 0x1234;

    VirtualController(Axes axes, uint16_t product, Kind kind = Kind::controller) {
        libevdev *model = libevdev_new();
        libevdev_set_name(model, "Test Controller");
        libevdev_set_id_bustype(model, BUS_USB);
        libevdev_set_id_vendor(model, vendor);
        libevdev_set_id_product(model, product);
        input_absinfo range{};
        range.minimum = -350;
        range.maximum = 350;
        for (unsigned code = 0; code < 6; ++code)
            if (axes == Axes::absolute)
                libevdev_enable_event_code(model, EV_ABS, code, &range);
            else
                libevdev_enable_event_code(model, EV_REL, code, nullptr);
        libevdev_enable_event_code(model, EV_KEY, BTN_0, nullptr);
        libevdev_enable_event_code(model, EV_KEY, BTN_1, nullptr);
        for (unsigned code = KEY_ESC; kind == Kind::keyboard && code <= KEY_D; ++code)
            libevdev_enable_event_code(model, EV_KEY, code, nullptr);
        if (kind == Kind::motionSensor)
            libevdev_enable_property(model, INPUT_PROP_ACCELEROMETER);
        const int made = libevdev_uinput_create_from_device(model, LIBEVDEV_UINPUT_OPEN_MANAGED, &device_);
        EXPECT_EQ(made, 0) << std::strerror(-made);
        libevdev_free(model);
    }
    ~VirtualController() { libevdev_uinput_destroy(device_); }
    VirtualController(const VirtualController &) = delete;
    VirtualController &operator=(const VirtualController &) = delete;

    /// The device's file.
    [[nodiscard]] std::string path() const {
        const char *path = device_ ? libevdev_uinput_get_devnode(device_) : nullptr;
        EXPECT_NE(path, nullptr) << "the kernel does not tell the device's file";
        return path ? path : "/dev/input/none";
    }

    void report(std::initializer_list<Event> events) const {
        for (const Event &event : events)
            write(event);
        write({EV_SYN, SYN_REPORT, 0});
    }

  private:
    void write(const Event &event) const {
        EXPECT_EQ(libevdev_uinput_write_event(device_, event.type, event.code, event.value), 0);
    }

    libevdev_uinput *device_ = nullptr;
};

using Axes = VirtualController::Axes;

std::string moxeldPath() {
    const char *place = std::getenv("MOXELD"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return place ? place : MOXELD;
}

/// moxeld is a process of its own; the application is the test, with handlers on a thread of the library's.
class UinputController : public ::testing::TestWithParam<const char *> {
  protected:
    static constexpr uint32_t firstID = 0x12340001;

    void SetUp() override {
        const int file = ::open("/dev/uinput", O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (file < 0)
            GTEST_SKIP() << "/dev/uinput cannot be opened: " << std::strerror(errno);
        ::close(file);
        if (isOverUhid() && ::access("/dev/uhid", R_OK | W_OK) != 0)
            GTEST_SKIP() << "/dev/uhid: " << std::strerror(errno);
        Recorder::instance().clear();
    }
    void TearDown() override {
        if (clientID_ != 0)
            UnregisterMoxelClient(clientID_);
        if (isInstalled_)
            CleanupMoxelHandlers();
    }

    [[nodiscard]] static bool isOverUhid() { return std::string(GetParam()) == "uhid"; }
    static std::string tool() {
        const char *place = std::getenv("MOXELCTL"); // NOLINT(concurrency-mt-unsafe): nobody changes it
        return place ? place : MOXELCTL;
    }
    [[nodiscard]] const test::TemporaryFolder &folder() const { return folder_; }
    /// Starts moxeld with these devices, and registers an application.
    void start(const std::vector<std::string> &devices) {
        startDaemon(devices);
        isInstalled_ = true;
        ASSERT_EQ(SetMoxelHandlers(Recorder::message, Recorder::added, Recorder::removed, true), 0);
        uint8_t name[] = "\004Test";
        clientID_ = RegisterMoxelClient(0x54657374, name, 3, 0x3F);
        ASSERT_NE(clientID_, 0);
    }
    void startDaemon(const std::vector<std::string> &devices) {
        ChildProcess::Arguments arguments{moxeldPath(), "--dead-zone", "0"};
        if (isOverUhid())
            arguments.insert(arguments.end(), {"--bus", "uhid"});
        else
            arguments.insert(arguments.end(), {"--bus-folder", folder_.path("bus")});
        for (const std::string &device : devices)
            arguments.insert(arguments.end(), {"--device", device});
        moxeld_.emplace(arguments);
        ASSERT_TRUE(moxeld_->readLine().starts_with("ready "));
    }
    [[nodiscard]] const ChildProcess &moxeld() const { return *moxeld_; }

    /// Looks at the calls of handlers one after the other until one fits; absent when none comes.
    std::optional<ReceivedCall> await(const std::function<bool(const ReceivedCall &)> &fits) {
        while (Recorder::instance().waitFor(seen_ + 1)) {
            const ReceivedCall call = Recorder::instance().calls()[seen_++];
            if (fits(call))
                return call;
        }
        return std::nullopt;
    }
    static MoxelStateRecord recordOf(const ReceivedCall &call) {
        MoxelStateRecord record{};
        if (call.bytes.size() == sizeof record)
            std::memcpy(&record, call.bytes.data(), sizeof record);
        return record;
    }
    [[nodiscard]] bool awaitState(uint16_t command,
                                  const std::function<bool(const MoxelStateRecord &)> &fits) {
        return await([&](const ReceivedCall &call) {
                   const MoxelStateRecord record = recordOf(call);
                   return call.message == kMoxelMsgDeviceState && record.command == command && fits(record);
               })
            .has_value();
    }
    [[nodiscard]] bool awaitAxis(size_t axis, int16_t value) {
        return awaitState(3, [&](const MoxelStateRecord &record) { return record.axis[axis] == value; });
    }
    [[nodiscard]] bool awaitButtons(uint32_t buttons) {
        return awaitState(2, [&](const MoxelStateRecord &record) { return +record.buttons == buttons; });
    }
    [[nodiscard]] bool awaitDevice(ReceivedCall::Handler handler, uint32_t identifier) {
        return await([&](const ReceivedCall &call) {
                   return call.handler == handler && call.productID == identifier;
               })
            .has_value();
    }
    [[nodiscard]] bool awaitAdded(uint32_t identifier) {
        return awaitDevice(ReceivedCall::Handler::added, identifier);
    }
    [[nodiscard]] bool awaitRemoved(uint32_t identifier) {
        return awaitDevice(ReceivedCall::Handler::removed, identifier);
    }

  private:
    test::TemporaryFolder folder_;
    test::EnvironmentVariable bus_{"MOXEL_HID_BUS", folder_.path("bus")};
    test::EnvironmentVariable hidraw_{"MOXEL_HIDRAW",
                                      isOverUhid() ? std::nullopt : std::optional<std::string>("off")};
    std::optional<ChildProcess> moxeld_;
    bool isInstalled_ = false;
    uint16_t clientID_ = 0;
    size_t seen_ = 0; ///< Calls of handlers that have been looked at.
};

TEST_P(UinputController, AbsoluteAxesAndButtonsReachTheHandler) {
    const VirtualController controller(Axes::absolute, 1);
    start({controller.path()});
    ASSERT_TRUE(awaitAdded(firstID));
    for (unsigned axis = 0; axis < 6; ++axis) {
        controller.report({{EV_ABS, axis, 100 + static_cast<int>(axis)}});
        EXPECT_TRUE(awaitAxis(axis, static_cast<int16_t>(100 + axis)));
        controller.report({{EV_ABS, axis, 0}});
        EXPECT_TRUE(awaitAxis(axis, 0));
    }
    controller.report({{EV_KEY, BTN_1, 1}, {EV_ABS, ABS_X, -350}});
    EXPECT_TRUE(awaitButtons(2));
    EXPECT_TRUE(awaitAxis(0, -350));
    controller.report({{EV_KEY, BTN_1, 0}});
    EXPECT_TRUE(awaitButtons(0));
}

/// The kernel passes no relative event of value 0 on, so nothing tells that the cap is back but silence.
TEST_P(UinputController, RelativeAxesComeToRest) {
    const VirtualController controller(Axes::relative, 1);
    start({controller.path()});
    ASSERT_TRUE(awaitAdded(firstID));
    controller.report({{EV_REL, REL_Z, -200}, {EV_REL, REL_X, 0}});
    EXPECT_TRUE(awaitAxis(2, -200));
    controller.report({{EV_REL, REL_Z, 0}});
    EXPECT_TRUE(awaitAxis(2, 0));
    controller.report({{EV_REL, REL_RY, 350}});
    EXPECT_TRUE(awaitAxis(4, 350));
    EXPECT_TRUE(awaitAxis(4, 0));
}

TEST_P(UinputController, ControllerIsFoundWhenItIsPluggedIn) {
    start({"auto"});
    for (int round = 0; round < 2; ++round) {
        const VirtualController controller(Axes::absolute, 1);
        ASSERT_TRUE(awaitAdded(firstID));
        controller.report({{EV_ABS, ABS_RZ, 77}});
        EXPECT_TRUE(awaitAxis(5, 77));
        controller.report({{EV_ABS, ABS_RZ, 0}});
        EXPECT_TRUE(awaitAxis(5, 0));
    }
    EXPECT_TRUE(awaitRemoved(firstID));
}

TEST_P(UinputController, UnpluggingInTheMiddleOfAMovementLetsGo) {
    for (const Axes axes : {Axes::absolute, Axes::relative}) {
        const unsigned type = axes == Axes::absolute ? EV_ABS : EV_REL;
        auto controller = std::make_unique<VirtualController>(axes, 1);
        if (axes == Axes::absolute)
            start({"auto"});
        ASSERT_TRUE(awaitAdded(firstID));
        controller->report({{type, 1, 300}, {EV_KEY, BTN_0, 1}});
        EXPECT_TRUE(awaitButtons(1));
        EXPECT_TRUE(awaitAxis(1, 300));
        controller.reset();
        EXPECT_TRUE(awaitButtons(0));
        EXPECT_TRUE(awaitAxis(1, 0));
        EXPECT_TRUE(awaitRemoved(firstID)) << "only then";
    }
}

TEST_P(UinputController, TwoControllersActTogether) {
    const VirtualController left(Axes::absolute, 1);
    auto right = std::make_unique<VirtualController>(Axes::absolute, 2);
    start({left.path(), right->path()});
    ASSERT_TRUE(awaitAdded(firstID));
    ASSERT_TRUE(awaitAdded(firstID + 1));
    left.report({{EV_ABS, ABS_X, 100}});
    EXPECT_TRUE(awaitAxis(0, 100));
    right->report({{EV_ABS, ABS_X, 50}});
    EXPECT_TRUE(awaitAxis(0, 150));
    right.reset();
    EXPECT_TRUE(awaitAxis(0, 100));
    EXPECT_TRUE(awaitRemoved(firstID + 1));
}

/// The kernel keeps few events for a reader that does not read.
TEST_P(UinputController, EventsThatTheKernelDropsAreMadeUpFor) {
    const VirtualController controller(Axes::absolute, 1);
    start({controller.path()});
    ASSERT_TRUE(awaitAdded(firstID));
    controller.report({{EV_KEY, BTN_0, 1}, {EV_ABS, ABS_Y, 11}});
    EXPECT_TRUE(awaitButtons(1));
    EXPECT_TRUE(awaitAxis(1, 11));
    moxeld().signal(SIGSTOP);
    for (int value = 1; value <= 300; ++value)
        for (unsigned axis = 0; axis < 6; ++axis)
            controller.report({{EV_ABS, axis, value}});
    controller.report({{EV_KEY, BTN_0, 0}, {EV_KEY, BTN_1, 1}, {EV_ABS, ABS_X, -123}});
    controller.report({{EV_ABS, ABS_Y, 0}});
    moxeld().signal(SIGCONT);
    EXPECT_TRUE(awaitState(3, [](const MoxelStateRecord &record) {
        return record.axis[0] == -123 && record.axis[1] == 0 && record.axis[2] == 300 &&
               record.axis[5] == 300 && +record.buttons == 2;
    }));
    controller.report({{EV_KEY, BTN_1, 0}});
    EXPECT_TRUE(awaitButtons(0));
}

TEST_P(UinputController, ToolShowsTheMovement) {
    const VirtualController controller(Axes::absolute, 1);
    startDaemon({controller.path()});
    ChildProcess monitor({tool(), "monitor"});
    std::string said;
    const auto awaitLine = [&](const std::string &part) {
        std::string line;
        do {
            line = monitor.readLine();
            said += line + '\n';
        } while (!line.empty() && line.find(part) == std::string::npos);
        return !line.empty();
    };
    ASSERT_TRUE(awaitLine("added        device 0x12340001")) << said; // It is registered.
    controller.report({{EV_ABS, ABS_Y, 123}});
    EXPECT_TRUE(awaitLine("motion       axes 0 123 0 0 0 0")) << said;
    controller.report({{EV_ABS, ABS_Y, 0}});
    EXPECT_TRUE(awaitLine("motion       axes 0 0 0 0 0 0")) << said;
    monitor.signal(SIGTERM);
    EXPECT_EQ(monitor.exitStatus(), 0) << monitor.readErrors();
    std::cout << said; // To be looked at in the machine's log.
}

INSTANTIATE_TEST_SUITE_P(Bus, UinputController, ::testing::Values("socket", "uhid"),
                         [](const auto &bus) { return std::string(bus.param); });

/// What the rules for the controllers grant, they grant only after the device has come.
TEST(UinputRules, UserAtTheMachineMayUseControllers) {
    const test::TemporaryFolder folder;
    uid_t user = 0;
    if (::access("/dev/uinput", R_OK | W_OK) != 0)
        GTEST_SKIP() << "/dev/uinput: " << std::strerror(errno);
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can start a daemon for another user";
    if (::access("/run/udev/control", F_OK) != 0)
        GTEST_SKIP() << "udevd does not run";
    if (::access("/usr/lib/udev/rules.d/70-moxel-input.rules", F_OK) != 0)
        GTEST_SKIP() << "the rules for controllers are not installed";
    if (::sd_seat_get_active("seat0", nullptr, &user) < 0)
        GTEST_SKIP() << "nobody sits at the machine";
    const std::optional<Account> account = accountOf(user);
    ASSERT_TRUE(account.has_value());
    ASSERT_EQ(::chown(folder.path().c_str(), user, static_cast<gid_t>(-1)), 0);
    ChildProcess daemon(
        {"su", "-s", "/bin/sh", account->name, "-c",
         "exec " + moxeldPath() + " --verbose --device auto --bus-folder " + folder.path("bus") + " 2>&1"});
    std::string said;
    const auto awaitLine = [&](const std::string &part) {
        std::string line;
        do {
            line = daemon.readLine();
            said += line + '\n';
        } while (!line.empty() && line.find(part) == std::string::npos);
        return !line.empty();
    };
    ASSERT_TRUE(awaitLine("ready "));
    for (const Axes axes : {Axes::relative, Axes::absolute}) {
        const VirtualController controller(axes, 1);
        EXPECT_TRUE(awaitLine("is device 0x12340001 with 6 axes and 2 buttons")) << said;
    }
}

/// They have the axes of a controller, but what is typed is read with them, or they are part of something
/// else.
TEST(UinputRules, KeyboardAndMotionSensorWithSixAxesStayRoots) {
    uid_t user = 0;
    if (::access("/dev/uinput", R_OK | W_OK) != 0)
        GTEST_SKIP() << "/dev/uinput: " << std::strerror(errno);
    if (::access("/run/udev/control", F_OK) != 0)
        GTEST_SKIP() << "udevd does not run";
    if (::access("/usr/lib/udev/rules.d/70-moxel-input.rules", F_OK) != 0)
        GTEST_SKIP() << "the rules for controllers are not installed";
    if (::access("/usr/lib/udev/rules.d/60-input-id.rules", F_OK) != 0)
        GTEST_SKIP() << "the rules that tell keyboards are not installed";
    if (::geteuid() != 0 || ::sd_seat_get_active("seat0", nullptr, &user) < 0)
        GTEST_SKIP() << "needs root, and somebody who sits at the machine";
    const auto hasEntryOfTheUser = [](const std::string &path) {
        return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
    };
    const auto settle = [] { EXPECT_EQ(ChildProcess({"udevadm", "settle"}).exitStatus(), 0); };
    const VirtualController controller(Axes::absolute, 1);
    settle();
    EXPECT_TRUE(hasEntryOfTheUser(controller.path()));
    const VirtualController keyboard(Axes::absolute, 2, VirtualController::Kind::keyboard);
    const VirtualController motionSensor(Axes::absolute, 3, VirtualController::Kind::motionSensor);
    settle();
    EXPECT_FALSE(hasEntryOfTheUser(keyboard.path()));
    EXPECT_FALSE(hasEntryOfTheUser(motionSensor.path()));
}

} // namespace
} // namespace moxel
