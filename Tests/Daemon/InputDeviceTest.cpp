// Devices read through libevdev.
#include "Moxel Daemon/Devices/InputDevice.h"
#include "Daemon/FakeInputDevice.h"
#include "Support/CapturedLog.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using Outcome = InputReader::Outcome;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;

auto isEvent(int type, int code, int value) {
    return AllOf(Field(&input_event::type, type), Field(&input_event::code, code),
                 Field(&input_event::value, value));
}

class DaemonInputDevice : public ::testing::Test {
  protected:
    void open(const FakeInputAnswers &answers) {
        fake.emplace(folder.path("event0"), answers);
        Result<std::unique_ptr<InputReader>> opened = InputDevice::open(fake->path());
        ASSERT_TRUE(opened.ok()) << opened.error().message;
        device = std::move(*opened);
    }
    /// Everything up to the moment at which there is nothing more.
    std::vector<input_event> events() {
        std::vector<input_event> all;
        input_event event{};
        while ((last = device->next(event)) == Outcome::event)
            all.push_back(event);
        return all;
    }

    test::TemporaryFolder folder;
    std::optional<FakeInputDevice> fake;
    std::unique_ptr<InputReader> device;
    Outcome last = Outcome::idle;
};

TEST_F(DaemonInputDevice, TellsWhatItIs) {
    FakeInputAnswers answers = FakeInputAnswers::absoluteController();
    answers.axes[ABS_RY] = {
        .value = 0, .minimum = INT_MIN, .maximum = INT_MAX, .fuzz = 0, .flat = 7, .resolution = 0};
    answers.capabilities.properties[INPUT_PROP_BUTTONPAD] = true;
    open(answers);
    const InputDescription &description = device->description();
    EXPECT_EQ(description.name, "Test Controller");
    EXPECT_EQ(description.vendorID, 0x1234);
    EXPECT_EQ(description.productID, 0x5678);
    // libevdev counts the codes of its own events too.
    EXPECT_EQ(description.capabilities.absolute, answers.capabilities.absolute);
    EXPECT_EQ(description.capabilities.relative, answers.capabilities.relative);
    EXPECT_EQ(description.capabilities.keys, answers.capabilities.keys);
    EXPECT_EQ(description.capabilities.properties, answers.capabilities.properties);
    EXPECT_EQ(description.ranges[ABS_X].minimum, -350);
    EXPECT_EQ(description.ranges[ABS_RY].minimum, INT_MIN);
    EXPECT_EQ(description.ranges[ABS_RY].maximum, INT_MAX);
    EXPECT_EQ(description.ranges[ABS_RY].flat, 7);
}

TEST_F(DaemonInputDevice, FilesOfAnotherKindAreRefused) {
    for (const std::string &path :
         {folder.write("file"), std::string("/dev/null"), std::string("/dev/zero")}) {
        const Result<std::unique_ptr<InputReader>> opened = InputDevice::open(path);
        ASSERT_FALSE(opened.ok()) << path;
        EXPECT_EQ(opened.error().code, ENOTTY) << path;
    }
    const Result<std::unique_ptr<InputReader>> missing = InputDevice::open(folder.path("none"));
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().code, ENOENT);
    EXPECT_EQ(missing.error().message, folder.path("none") + ": No such file or directory");
}

TEST_F(DaemonInputDevice, EventsAreReadAsTheyCome) {
    open(FakeInputAnswers::controller());
    EXPECT_THAT(events(), ElementsAre());
    EXPECT_EQ(last, Outcome::idle);
    fake->report({{EV_REL, REL_X, 5}, {EV_KEY, BTN_1, 1}});
    EXPECT_THAT(events(), ElementsAre(isEvent(EV_REL, REL_X, 5), isEvent(EV_KEY, BTN_1, 1),
                                      isEvent(EV_SYN, SYN_REPORT, 0)));
    fake->report({{EV_REL, REL_RZ, -5}});
    EXPECT_THAT(events(), ElementsAre(isEvent(EV_REL, REL_RZ, -5), isEvent(EV_SYN, SYN_REPORT, 0)));
    EXPECT_EQ(last, Outcome::idle);
}

TEST_F(DaemonInputDevice, WhatChangedWhileEventsWereLostIsTold) {
    FakeInputAnswers answers = FakeInputAnswers::absoluteController();
    open(answers);
    fake->report({{EV_ABS, ABS_X, 5}, {EV_KEY, BTN_0, 1}});
    EXPECT_EQ(events().size(), 3U);
    answers.axes[ABS_X].value = 5;
    answers.axes[ABS_RZ].value = -70;
    answers.pressed[BTN_1] = true; // And the first button is up again.
    fake->answer(answers);
    fake->write({{EV_SYN, SYN_DROPPED, 0}, {EV_ABS, ABS_Y, 99}, {EV_SYN, SYN_REPORT, 0}});
    EXPECT_THAT(events(), ElementsAre(isEvent(EV_SYN, SYN_DROPPED, 0), isEvent(EV_KEY, BTN_0, 0),
                                      isEvent(EV_KEY, BTN_1, 1), isEvent(EV_ABS, ABS_RZ, -70),
                                      isEvent(EV_SYN, SYN_REPORT, 0)))
        << "the rest of the report that was cut is not to be trusted";
    EXPECT_EQ(last, Outcome::idle);
    fake->report({{EV_KEY, BTN_1, 0}});
    EXPECT_THAT(events(), ElementsAre(isEvent(EV_KEY, BTN_1, 0), isEvent(EV_SYN, SYN_REPORT, 0)));
}

TEST_F(DaemonInputDevice, EventsOfCodesThatItDoesNotHaveAreNotTold) {
    open(FakeInputAnswers::controller());
    const test::CapturedLog log; // libevdev may complain.
    fake->report({{EV_ABS, ABS_X, 5}, {EV_KEY, 0xFFFF, 1}, {0x1E, 0xFFFF, 1}, {EV_REL, REL_X, 1}});
    EXPECT_THAT(events(), ElementsAre(isEvent(EV_REL, REL_X, 1), isEvent(EV_SYN, SYN_REPORT, 0)));
}

TEST_F(DaemonInputDevice, DeviceThatCannotBeReadIsGone) {
    open(FakeInputAnswers::controller());
    const ssize_t written = [&] {
        const Descriptor end(::open(fake->path().c_str(), O_WRONLY | O_CLOEXEC));
        return ::write(end.get(), "half a record", 13);
    }();
    ASSERT_EQ(written, 13);
    EXPECT_THAT(events(), ElementsAre());
    EXPECT_EQ(last, Outcome::gone);
}

} // namespace
} // namespace moxel::daemon
