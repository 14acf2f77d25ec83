// Devices that come, move together, and go; which are chosen, and which cannot be used.
#include "Moxel Daemon/Devices/DeviceSource.h"
#include "Daemon/FakeInputDevice.h"
#include "Moxel Daemon/Devices/InputDevice.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Support/Await.h"
#include "Support/CapturedLog.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

namespace moxel::daemon {
namespace {

using ::testing::ElementsAre;
namespace fs = std::filesystem;

class DaemonDeviceSource : public ::testing::Test, protected EventSink {
  protected:
    using Lines = std::vector<std::string>;

    static std::string number(const Dictionary &message, std::string_view key) {
        const Value *value = message.find(key);
        char text[16] = "none";
        if (value && value->number<uint32_t>())
            std::snprintf(text, sizeof text, "%X", *value->number<uint32_t>());
        return text;
    }
    static std::string lineOf(const Dictionary &message) {
        const std::string request = message.find("req") ? *message.find("req")->as<std::string>() : "";
        return request + (request == "udev" ? " " + number(message, "vid") : "") + " " +
               number(message, "pid");
    }
    void happen(const TraceEvent &event) override {
        if (const auto *message = std::get_if<MessageEvent>(&event)) {
            lines.push_back(lineOf(message->message));
        } else if (const auto *buttons = std::get_if<ButtonsEvent>(&event)) {
            lines.push_back("buttons " + std::to_string(buttons->buttons));
        } else if (const auto *motion = std::get_if<MotionEvent>(&event)) {
            std::string text = "axes";
            for (const int16_t axis : motion->axis)
                text += " " + std::to_string(axis);
            lines.push_back(text);
        }
    }

    [[nodiscard]] std::string path(const std::string &name) const { return folder.path("input/" + name); }
    void start() {
        options.inputFolder = folder.path("input");
        options.systemFolder = folder.path("system");
        options.axes.deadZone = 0;
        EventSink &sink = *this;
        source.emplace(*loop, sink, options,
                       [this](const std::string &file) -> Result<std::unique_ptr<InputReader>> {
                           opened.push_back(fs::path(file).filename().string());
                           if (const auto before = beforeOpening)
                               before();
                           if (forbidden.contains(file))
                               return systemError(file, EACCES);
                           return InputDevice::open(file);
                       });
        source->start();
    }
    void startNamed(const Lines &names) {
        for (const std::string &name : names)
            options.paths.push_back(path(name));
        start();
    }
    void startChoosing() {
        options.choosesItself = true;
        start();
    }
    void runUntil(const std::function<bool()> &condition) {
        while (!condition())
            ASSERT_TRUE(loop->runOneSource(test::patience)) << "nothing happens any more";
    }
    /// Runs until that many lines have been seen, and takes them.
    Lines take(size_t count) {
        runUntil([&] { return lines.size() >= count; });
        return std::exchange(lines, {});
    }
    /// Runs what is ready; true when nothing came of it.
    bool isQuiet() {
        while (loop->runOneSource(RunLoop::Seconds(0)))
            continue;
        return lines.empty();
    }
    void describe(const std::string &name, const std::string &keys, const std::string &relative,
                  const std::string &absolute) const {
        const std::string base = "system/" + name + "/device/";
        folder.write(base + "capabilities/key", keys);
        folder.write(base + "capabilities/rel", relative);
        folder.write(base + "capabilities/abs", absolute);
        folder.write(base + "properties", "0\n");
    }
    static FakeInputAnswers model(uint16_t product) {
        FakeInputAnswers answers = FakeInputAnswers::absoluteController();
        answers.productID = product;
        return answers;
    }

    test::TemporaryFolder folder;
    const bool hasFolder = fs::create_directory(folder.path("input"));
    test::CapturedLog log;
    std::shared_ptr<RunLoop> loop = *RunLoop::current();
    DeviceOptions options;
    std::optional<DeviceSource> source;
    std::set<std::string> forbidden;
    std::function<void()> beforeOpening;
    Lines opened;
    Lines lines;
};

TEST_F(DaemonDeviceSource, NamedDeviceIsUsed) {
    FakeInputDevice device(path("event3"));
    startNamed({"event3"});
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
    device.report({{EV_REL, REL_Y, 20}, {EV_KEY, BTN_0, 1}});
    EXPECT_THAT(take(2), ElementsAre("buttons 1", "axes 0 20 0 0 0 0"));
    EXPECT_TRUE(
        log.has(path("event3") + " (Test Controller) is device 0x12345678 with 6 axes and 2 buttons"));
}

TEST_F(DaemonDeviceSource, NamedDeviceMayComeLaterAndAgain) {
    startNamed({"event3"});
    EXPECT_TRUE(isQuiet());
    const std::string complaint =
        "Error: " + path("event3") + " is not there; it is used as soon as it comes";
    EXPECT_EQ(log.count(complaint), 1U);
    for (int round = 0; round < 3; ++round) {
        FakeInputDevice device(path("event3"));
        EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
        device.unplug();
        EXPECT_THAT(take(1), ElementsAre("devrm 12345678"));
        EXPECT_TRUE(isQuiet());
    }
}

TEST_F(DaemonDeviceSource, LinkToADeviceMayComeLater) {
    options.paths.push_back(folder.path("input/by-id/controller"));
    start();
    FakeInputDevice device(path("event3"));
    EXPECT_TRUE(isQuiet());
    fs::create_directory(path("by-id"));
    EXPECT_TRUE(isQuiet());
    fs::create_symlink("../event3", path("by-id/controller"));
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, RightsMayComeLater) {
    FakeInputDevice device(path("event3"));
    forbidden.insert(path("event3"));
    startNamed({"event3"});
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(
        log.countStarting("Error: " + path("event3") + ": Permission denied (this user may not read it"), 1U);
    fs::permissions(path("event3"), fs::perms::owner_all);
    runUntil([&] { return opened.size() == 2; });
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(log.countContaining("Permission denied"), 1U) << "said once";
    forbidden.clear();
    fs::permissions(path("event3"), fs::perms::owner_read);
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, DeviceThatGoesLetsEverythingGo) {
    FakeInputDevice device(path("event3"), FakeInputAnswers::absoluteController());
    startNamed({"event3"});
    take(2);
    device.report({{EV_ABS, ABS_X, 100}, {EV_ABS, ABS_RZ, -9}, {EV_KEY, BTN_1, 1}});
    EXPECT_THAT(take(2), ElementsAre("buttons 2", "axes 100 0 0 0 0 -9"));
    device.unplug();
    EXPECT_THAT(take(3), ElementsAre("buttons 0", "axes 0 0 0 0 0 0", "devrm 12345678"));
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceSource, DeviceMayGoInTheMiddleOfAReport) {
    FakeInputDevice device(path("event3"));
    startNamed({"event3"});
    take(2);
    device.report({{EV_REL, REL_X, 100}});
    device.write({{EV_REL, REL_X, 50}, {EV_KEY, BTN_0, 1}});
    device.unplug();
    EXPECT_THAT(take(3), ElementsAre("axes 100 0 0 0 0 0", "axes 0 0 0 0 0 0", "devrm 12345678"));
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceSource, DevicesActTogether) {
    FakeInputDevice left(path("event3"), model(1));
    FakeInputDevice right(path("event4"), model(2));
    startNamed({"event3", "event4"});
    EXPECT_THAT(take(4), ElementsAre("udev 1234 1", "devadd 12340001", "udev 1234 2", "devadd 12340002"));
    left.report({{EV_KEY, BTN_0, 1}, {EV_ABS, ABS_X, 100}});
    EXPECT_THAT(take(2), ElementsAre("buttons 1", "axes 100 0 0 0 0 0"));
    right.report({{EV_KEY, BTN_0, 1}, {EV_KEY, BTN_1, 1}, {EV_ABS, ABS_X, 30}, {EV_ABS, ABS_Y, 5}});
    EXPECT_THAT(take(2), ElementsAre("buttons 3", "axes 130 5 0 0 0 0"));
    left.report({{EV_KEY, BTN_0, 0}});
    EXPECT_TRUE(isQuiet()) << "the other device still holds that button";
    right.unplug();
    EXPECT_THAT(take(4), ElementsAre("buttons 0", "axes 100 0 0 0 0 0", "devrm 12340002", "udev 1234 1"));
    left.report({{EV_ABS, ABS_X, 0}});
    EXPECT_THAT(take(1), ElementsAre("axes 0 0 0 0 0 0"));
}

TEST_F(DaemonDeviceSource, SumsSaturate) {
    options.axes.scale = 100;
    FakeInputDevice left(path("event3"), model(1));
    FakeInputDevice right(path("event4"), model(2));
    startNamed({"event3", "event4"});
    take(4);
    left.report({{EV_ABS, ABS_X, 350}, {EV_ABS, ABS_Y, -350}});
    right.report({{EV_ABS, ABS_X, 350}, {EV_ABS, ABS_Y, -350}});
    EXPECT_THAT(take(2), ElementsAre("axes 32767 -32768 0 0 0 0", "axes 32767 -32768 0 0 0 0"));
}

TEST_F(DaemonDeviceSource, DevicesOfOneModelHaveTheirOwnIdentifiers) {
    FakeInputDevice first(path("event3"));
    FakeInputDevice second(path("event4"));
    startNamed({"event3", "event4"});
    EXPECT_THAT(take(4),
                ElementsAre("udev 1234 5678", "devadd 12345678", "udev 1234 5678", "devadd 12345679"));
    first.unplug();
    EXPECT_THAT(take(2), ElementsAre("devrm 12345678", "udev 1234 5678"));
    const FakeInputDevice third(path("event3"));
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, DeviceWithoutAModelGetsTheDriversIdentifier) {
    FakeInputAnswers answers = FakeInputAnswers::controller();
    answers.vendorID = answers.productID = 0;
    const FakeInputDevice device(path("event3"), answers);
    startNamed({"event3"});
    EXPECT_THAT(take(2), ElementsAre("udev 0 0", "devadd 4D580001"));
}

TEST_F(DaemonDeviceSource, NewClientsAreToldOfTheDevicesThatAreThere) {
    FakeInputDevice left(path("event3"), model(1));
    const FakeInputDevice right(path("event4"), model(2));
    startNamed({"event3", "event4"});
    const auto arrivals = [&] {
        Lines all;
        for (const Dictionary &message : source->arrivals())
            all.push_back(lineOf(message));
        return all;
    };
    EXPECT_THAT(arrivals(), ElementsAre("udev 1234 1", "devadd 12340001", "udev 1234 2", "devadd 12340002"));
    take(4);
    left.unplug();
    take(2);
    EXPECT_THAT(arrivals(), ElementsAre("udev 1234 2", "devadd 12340002"));
}

TEST_F(DaemonDeviceSource, DeviceIsUsedOnceHoweverItIsNamed) {
    FakeInputDevice device(path("event3"));
    fs::create_symlink("event3", path("event4"));
    options.choosesItself = true;
    startNamed({"event3", "event4", "event3"});
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
    EXPECT_TRUE(isQuiet());
    EXPECT_THAT(opened, ElementsAre("event3"));
}

TEST_F(DaemonDeviceSource, FilesThatAreNoControllersAreRefused) {
    folder.write("input/event1");
    FakeInputAnswers keyboard;
    keyboard.capabilities.keys[KEY_A] = true;
    const FakeInputDevice device(path("event2"), keyboard);
    startNamed({"event1", "event2"});
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(
        log.countContaining(path("event1") + ": Inappropriate ioctl for device (it is no input device)"), 1U);
    EXPECT_EQ(log.countContaining(path("event2") + " has neither axes nor buttons of a controller"), 1U);
}

TEST_F(DaemonDeviceSource, HungUpFileIsLeftAloneUntilSomethingHappensToIt) {
    FakeInputDevice device(path("event3"));
    startNamed({"event3"});
    take(2);
    device.hangUp();
    EXPECT_THAT(take(1), ElementsAre("devrm 12345678"));
    folder.write("input/other"); // A reason to look.
    EXPECT_TRUE(isQuiet());
    EXPECT_THAT(opened, ElementsAre("event3"));
    fs::permissions(path("event3"), fs::perms::owner_read);
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, AnotherDeviceMayTakeThePlaceOfOneThatWent) {
    std::optional<FakeInputDevice> first(std::in_place, path("event3"), model(1));
    startNamed({"event3"});
    take(2);
    first.reset();
    const FakeInputDevice second(path("event3"), model(2));
    EXPECT_THAT(take(3), ElementsAre("devrm 12340001", "udev 1234 2", "devadd 12340002"));
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceSource, DeviceThatComesBackAtOnceKeepsItsIdentifier) {
    std::optional<FakeInputDevice> device(std::in_place, path("event3"));
    startChoosing();
    take(2);
    for (int round = 0; round < 20; ++round) {
        device->report({{EV_KEY, BTN_0, 1}});
        EXPECT_THAT(take(1), ElementsAre("buttons 1"));
        device.reset();
        device.emplace(path("event3"));
        EXPECT_THAT(take(4), ElementsAre("buttons 0", "devrm 12345678", "udev 1234 5678", "devadd 12345678"));
    }
}

TEST_F(DaemonDeviceSource, ControllersAreChosenBeforeSticks) {
    FakeInputAnswers keyboard;
    keyboard.capabilities.keys[KEY_A] = true;
    const FakeInputDevice other(path("event0"), keyboard);
    FakeInputDevice stick(path("event1"), FakeInputAnswers::stick());
    startChoosing();
    EXPECT_THAT(take(2), ElementsAre("udev 1234 1", "devadd 12340001"));
    stick.report({{EV_ABS, ABS_X, 50}, {EV_KEY, BTN_TRIGGER, 1}});
    EXPECT_THAT(take(2), ElementsAre("buttons 1", "axes 175 0 0 0 0 0"));
    FakeInputDevice first(path("event2"), model(5));
    EXPECT_THAT(take(6), ElementsAre("udev 1234 5", "devadd 12340005", "buttons 0", "axes 0 0 0 0 0 0",
                                     "devrm 12340001", "udev 1234 5"))
        << "the stick is let go";
    FakeInputDevice second(path("event3"), model(6));
    EXPECT_THAT(take(2), ElementsAre("udev 1234 6", "devadd 12340006")) << "all controllers are used";
    stick.report({{EV_ABS, ABS_X, 0}});
    EXPECT_TRUE(isQuiet());
    first.unplug();
    EXPECT_THAT(take(2), ElementsAre("devrm 12340005", "udev 1234 6"));
    second.unplug();
    EXPECT_THAT(take(3), ElementsAre("devrm 12340006", "udev 1234 1", "devadd 12340001"))
        << "the stick is back";
}

TEST_F(DaemonDeviceSource, NamedStickIsUsedBesideControllers) {
    const FakeInputDevice controller(path("event1"), model(5));
    const FakeInputDevice stick(path("event2"), FakeInputAnswers::stick());
    options.choosesItself = true;
    startNamed({"event2"});
    EXPECT_THAT(take(4), ElementsAre("udev 1234 1", "devadd 12340001", "udev 1234 5", "devadd 12340005"));
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceSource, DevicesThatAreNotChosenAreNotOpened) {
    folder.write("input/event0");
    folder.write("input/event1");
    const FakeInputDevice controller(path("event2"));
    describe("event0", "fffffffffffffffe\n", "0\n", "0\n"); // A keyboard.
    describe("event1", "70000 0 0 0 0\n", "103\n", "0\n");  // A mouse.
    describe("event2", "3 0 0 0 0\n", "3f\n", "0\n");
    startChoosing();
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
    EXPECT_THAT(opened, ElementsAre("event2"));
}

TEST_F(DaemonDeviceSource, ChosenDeviceWithoutRightsIsReported) {
    const FakeInputDevice controller(path("event2"));
    describe("event2", "3 0 0 0 0\n", "3f\n", "0\n");
    forbidden.insert(path("event2"));
    startChoosing();
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(
        log.countStarting("Error: " + path("event2") + ": Permission denied (this user may not read it"), 1U);
    EXPECT_TRUE(log.has("No device is there yet"));
    forbidden.clear();
    fs::permissions(path("event2"), fs::perms::owner_all);
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, FolderOfDevicesMayComeLater) {
    fs::remove(folder.path("input"));
    startChoosing();
    EXPECT_TRUE(isQuiet());
    fs::create_directory(folder.path("input"));
    const FakeInputDevice device(path("event0"));
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
}

TEST_F(DaemonDeviceSource, NumberOfDevicesIsLimited) {
    std::vector<std::unique_ptr<FakeInputDevice>> devices;
    for (size_t index = 0; index <= DeviceSource::deviceLimit; ++index)
        devices.push_back(std::make_unique<FakeInputDevice>(path("event" + std::to_string(index))));
    startChoosing();
    EXPECT_EQ(take(2 * DeviceSource::deviceLimit).size(), 2 * DeviceSource::deviceLimit);
    EXPECT_EQ(log.countContaining("event32 is not used: there are 32 devices already"), 1U);
    devices.front()->unplug();
    EXPECT_EQ(take(4).size(), 4U) << "there is room now";
}

TEST_F(DaemonDeviceSource, TextOfDevicesIsMadeFitForTheLog) {
    FakeInputAnswers answers = FakeInputAnswers::controller();
    answers.name = "Two\nlines\x1b[31m";
    const FakeInputDevice device(path("event3"), answers);
    startNamed({"event3"});
    EXPECT_EQ(log.countContaining("(Two\\nlines\\x1b[31m)"), 1U);
}

TEST_F(DaemonDeviceSource, ButtonsThatAreDownBeforeADeviceComesAreTold) {
    FakeInputAnswers answers = model(1);
    answers.pressed[BTN_1] = true;
    FakeInputDevice device(path("event3"), answers);
    startNamed({"event3"});
    EXPECT_THAT(take(3), ElementsAre("udev 1234 1", "devadd 12340001", "buttons 2"));
    device.report({{EV_KEY, BTN_1, 0}});
    EXPECT_THAT(take(1), ElementsAre("buttons 0"));
}

/// The system's folder may still tell of the device that had the number before.
TEST_F(DaemonDeviceSource, ChosenDeviceIsTheKindThatItWasChosenFor) {
    describe("event3", "3 0 0 0 0", "3f", "0");
    describe("event4", "3 0 0 0 0", "3f", "0");
    FakeInputAnswers mouse;
    mouse.capabilities.relative[REL_X] = mouse.capabilities.relative[REL_Y] = true;
    mouse.capabilities.keys[BTN_LEFT] = true;
    FakeInputDevice stranger(path("event3"), mouse);
    FakeInputDevice device(path("event4"));
    startChoosing();
    EXPECT_THAT(take(2), ElementsAre("udev 1234 5678", "devadd 12345678"));
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceSource, DeviceIsWhatIsOpenAndNotWhatThePathLedToBefore) {
    auto first = std::make_unique<FakeInputDevice>(path("event3"), model(1));
    std::unique_ptr<FakeInputDevice> second;
    beforeOpening = [&] { // Between the look at the file and its opening.
        beforeOpening = nullptr;
        first.reset();
        second = std::make_unique<FakeInputDevice>(path("event3"), model(2));
    };
    startNamed({"event3"});
    EXPECT_THAT(take(2), ElementsAre("udev 1234 2", "devadd 12340002"));
    EXPECT_TRUE(isQuiet()) << "the folder's news of it are no other device";
}

} // namespace
} // namespace moxel::daemon
