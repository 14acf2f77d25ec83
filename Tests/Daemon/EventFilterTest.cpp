// Event masks and button masks.
#include "Moxel Daemon/Protocol/EventFilter.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

MoxelStateRecord recordOf(uint16_t command, uint32_t buttons = 0) {
    MoxelStateRecord record{};
    record.command = command;
    record.buttons = buttons;
    record.buttons8 = static_cast<uint16_t>(buttons & 0xFF);
    return record;
}

EventFilter filterOf(uint32_t eventMask, uint32_t buttonMask) {
    EventFilter filter;
    filter.eventMask = eventMask;
    filter.buttonMask = buttonMask;
    return filter;
}

TEST(DaemonEventFilter, EachEventHasItsBit) {
    struct Row {
        uint32_t mask;
        bool buttons, motion, application, device;
    };
    for (const Row &row : {Row{0, false, false, false, false}, Row{1, false, true, false, false},
                           Row{2, true, false, false, false}, Row{4, false, false, true, true},
                           Row{7, true, true, true, true}, Row{0xFFFFFFF8, false, false, false, false}}) {
        EventFilter filter = filterOf(row.mask, 0xFF);
        EXPECT_EQ(filter.apply(recordOf(2, 1)).has_value(), row.buttons) << row.mask;
        EXPECT_EQ(filter.apply(recordOf(3)).has_value(), row.motion) << row.mask;
        EXPECT_EQ(filter.apply(recordOf(10)).has_value(), row.application) << row.mask;
        EXPECT_EQ(filter.apply(recordOf(11)).has_value(), row.device) << row.mask;
        EXPECT_TRUE(filter.apply(recordOf(77)).has_value()) << "unknown commands are for everybody";
    }
}

TEST(DaemonEventFilter, ButtonMaskTakesBitsAway) {
    EventFilter filter = filterOf(3, 0x105);
    const auto buttons = filter.apply(recordOf(2, 0x1FF));
    ASSERT_TRUE(buttons);
    EXPECT_EQ(+buttons->buttons, 0x105U);
    EXPECT_EQ(buttons->buttons8, 0x05U);
    const auto motion = filter.apply(recordOf(3, 0x1FF));
    ASSERT_TRUE(motion);
    EXPECT_EQ(+motion->buttons, 0x105U);
}

TEST(DaemonEventFilter, ChangesOfUnwantedButtonsAreNotSent) {
    EventFilter filter = filterOf(2, 0x1);
    EXPECT_FALSE(filter.apply(recordOf(2, 0x2)));
    EXPECT_TRUE(filter.apply(recordOf(2, 0x3)));
    EXPECT_FALSE(filter.apply(recordOf(2, 0x1)));
    EXPECT_TRUE(filter.apply(recordOf(2, 0x1))) << "a record that changes nothing is sent";
    EXPECT_TRUE(filter.apply(recordOf(2, 0x0)));
}

TEST(DaemonEventFilter, ButtonsThatChangeWhileTheyAreNotWantedAreFollowed) {
    EventFilter filter = filterOf(0, 0x1);
    EXPECT_FALSE(filter.apply(recordOf(2, 0x2)));
    filter.eventMask = 2;
    EXPECT_FALSE(filter.apply(recordOf(2, 0x0))) << "only an unwanted button changed";
}

TEST(DaemonEventFilter, ApplicationEventsAreNoButtons) {
    EventFilter filter = filterOf(4, 0);
    MoxelStateRecord record = recordOf(10, 0xFF);
    record.appEventPressed = 1;
    const auto event = filter.apply(record);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->appEventPressed, 1);
    EXPECT_EQ(+event->buttons, 0xFFU);
}

} // namespace
} // namespace moxel::daemon
