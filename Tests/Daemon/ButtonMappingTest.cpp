// Button events become the button mask.
#include "Moxel Daemon/Devices/ButtonMapping.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

InputCapabilities buttons(const std::vector<size_t> &codes) {
    InputCapabilities capabilities;
    for (const size_t code : codes)
        capabilities.keys[code] = true;
    return capabilities;
}

void take(ButtonMapping &mapping, uint16_t code, int32_t value, uint16_t type = EV_KEY) {
    input_event event{};
    event.type = type;
    event.code = code;
    event.value = value;
    mapping.take(event);
}

TEST(DaemonButtonMapping, ButtonsAreNumberedInTheOrderOfTheirCodes) {
    ButtonMapping mapping(buttons({BTN_TRIGGER_HAPPY1, BTN_0, BTN_SOUTH, BTN_9, BTN_DPAD_UP}));
    EXPECT_EQ(mapping.buttonCount(), 5U);
    uint32_t expected = 0;
    for (const int code : {BTN_0, BTN_9, BTN_SOUTH, BTN_DPAD_UP, BTN_TRIGGER_HAPPY1}) {
        expected = expected << 1 | 1;
        take(mapping, static_cast<uint16_t>(code), 1);
        EXPECT_TRUE(mapping.endReport());
        EXPECT_EQ(mapping.buttons(), expected);
    }
    take(mapping, BTN_9, 0);
    EXPECT_TRUE(mapping.endReport());
    EXPECT_EQ(mapping.buttons(), 0x1DU);
}

TEST(DaemonButtonMapping, ChordsComeTogether) {
    ButtonMapping mapping(buttons({BTN_0, BTN_1}));
    take(mapping, BTN_0, 1);
    take(mapping, BTN_1, 1);
    EXPECT_EQ(mapping.buttons(), 0U) << "the report is not whole";
    EXPECT_TRUE(mapping.endReport());
    EXPECT_EQ(mapping.buttons(), 3U);
    EXPECT_FALSE(mapping.endReport()) << "no news";
}

TEST(DaemonButtonMapping, RepetitionIsNoNews) {
    ButtonMapping mapping(buttons({BTN_0}));
    take(mapping, BTN_0, 1);
    EXPECT_TRUE(mapping.endReport());
    take(mapping, BTN_0, 2);
    EXPECT_FALSE(mapping.endReport());
    EXPECT_EQ(mapping.buttons(), 1U);
}

TEST(DaemonButtonMapping, KeysAreNoButtons) {
    ButtonMapping mapping(buttons({KEY_A, KEY_OK, BTN_GEAR_UP, KEY_MAX, BTN_TRIGGER_HAPPY40 + 1}));
    EXPECT_EQ(mapping.buttonCount(), 1U);
    for (const int code : {KEY_A, KEY_OK, KEY_MAX, 0xFFFF})
        take(mapping, static_cast<uint16_t>(code), 1);
    take(mapping, BTN_GEAR_UP, 1, EV_ABS);
    EXPECT_FALSE(mapping.endReport());
    take(mapping, BTN_GEAR_UP, 1);
    EXPECT_TRUE(mapping.endReport());
    EXPECT_EQ(mapping.buttons(), 1U);
}

TEST(DaemonButtonMapping, ThirtyTwoButtonsFit) {
    std::vector<size_t> codes;
    for (size_t code = BTN_MISC; code < BTN_MISC + 40; ++code)
        codes.push_back(code);
    ButtonMapping mapping(buttons(codes));
    EXPECT_EQ(mapping.buttonCount(), 32U);
    take(mapping, BTN_MISC + 31, 1);
    take(mapping, BTN_MISC + 32, 1);
    EXPECT_TRUE(mapping.endReport());
    EXPECT_EQ(mapping.buttons(), 0x80000000U);
}

} // namespace
} // namespace moxel::daemon
