// Kinds of devices, and what the kernel tells of them.
#include "Moxel Daemon/Devices/InputCapabilities.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

InputCapabilities with(std::initializer_list<size_t> keys, size_t relative, size_t absolute) {
    InputCapabilities capabilities;
    for (const size_t key : keys)
        capabilities.keys[key] = true;
    capabilities.relative = relative;
    capabilities.absolute = absolute;
    return capabilities;
}

constexpr size_t six = 0x3F;

TEST(DaemonInputCapabilities, SixAxesMakeAController) {
    EXPECT_EQ(kindOf(with({BTN_0, BTN_1}, six, 0)), DeviceKind::sixAxisController);
    EXPECT_EQ(kindOf(with({BTN_0, BTN_1}, 0, six)), DeviceKind::sixAxisController);
    EXPECT_EQ(kindOf(with({}, 0x07, 0x38)), DeviceKind::sixAxisController);
    EXPECT_EQ(kindOf(with({BTN_0, BTN_TRIGGER, BTN_SOUTH}, six, 0)), DeviceKind::sixAxisController)
        << "so many buttons that they reach those of sticks";
    EXPECT_EQ(kindOf(with({BTN_0, BTN_1}, 0x1F, 0)), DeviceKind::other) << "one axis is missing";
}

TEST(DaemonInputCapabilities, SticksAndPadsAreJoysticks) {
    EXPECT_EQ(kindOf(with({BTN_TRIGGER}, 0, 0x3)), DeviceKind::joystick);
    EXPECT_EQ(kindOf(with({BTN_SOUTH}, 0, six)), DeviceKind::joystick) << "a pad with six axes";
    EXPECT_EQ(kindOf(with({BTN_TRIGGER}, 0, 0x1)), DeviceKind::other);
}

TEST(DaemonInputCapabilities, OtherDevicesAreOther) {
    EXPECT_EQ(kindOf({}), DeviceKind::other);
    InputCapabilities keyboard = with({BTN_0, BTN_1}, 0, six);
    for (size_t code = KEY_ESC; code <= KEY_D; ++code)
        keyboard.keys.set(code);
    EXPECT_EQ(kindOf(keyboard), DeviceKind::other) << "a keyboard with the axes of a controller";
    keyboard.keys.reset(KEY_D);
    EXPECT_EQ(kindOf(keyboard), DeviceKind::sixAxisController) << "some keys make no keyboard";
    keyboard.keys.set(KEY_D);
    keyboard.keys.reset(KEY_ESC);
    EXPECT_EQ(kindOf(keyboard), DeviceKind::sixAxisController) << "nor do those behind Escape";
    EXPECT_EQ(kindOf(with({BTN_LEFT, BTN_RIGHT}, 0x103, 0)), DeviceKind::other) << "a mouse";
    EXPECT_EQ(kindOf(with({BTN_LEFT}, 0, 0x3)), DeviceKind::other) << "a virtual machine's tablet";
    EXPECT_EQ(kindOf(with({BTN_TOUCH, BTN_0}, 0, six)), DeviceKind::other) << "a tablet";
    InputCapabilities sensor = with({}, 0, six);
    sensor.properties[INPUT_PROP_ACCELEROMETER] = true;
    EXPECT_EQ(kindOf(sensor), DeviceKind::other) << "motion sensors of a pad";
}

class DaemonKernelFolder : public ::testing::Test {
  protected:
    void write(const std::string &key, const std::string &relative, const std::string &absolute,
               const std::string &properties) const {
        folder.write("capabilities/key", key);
        folder.write("capabilities/rel", relative);
        folder.write("capabilities/abs", absolute);
        folder.write("properties", properties);
    }
    test::TemporaryFolder folder;
};

TEST_F(DaemonKernelFolder, CapabilitiesAreRead) {
    // Words of 64 bits, the most significant one first, without leading zeros.
    write("1 7fff000000000000 0 0 3 0 0 0 1\n", "3f\n", "100000000003f\n", "40\n");
    const std::optional<InputCapabilities> capabilities = readCapabilities(folder.path());
    ASSERT_TRUE(capabilities.has_value());
    InputCapabilities expected = with({0, BTN_0, BTN_1, 0x200}, six, 0x100000000003F);
    for (size_t key = 0x1F0; key < 0x1FF; ++key)
        expected.keys[key] = true;
    expected.properties[INPUT_PROP_ACCELEROMETER] = true;
    EXPECT_EQ(capabilities, expected);
}

TEST_F(DaemonKernelFolder, NothingIsReadOfOtherThings) {
    EXPECT_FALSE(readCapabilities(folder.path()).has_value()) << "no such files";
    for (const char *bad : {"", "\n", "x", "3f x", "-1", "11112222333344445", "0x3f"}) {
        write("0\n", bad, "0\n", "0\n");
        EXPECT_FALSE(readCapabilities(folder.path()).has_value()) << bad;
    }
}

TEST_F(DaemonKernelFolder, TooManyWordsDoNoHarm) {
    std::string words;
    for (int word = 0; word < 5000; ++word)
        words += "ffffffffffffffff ";
    write(words, "0\n", "0\n", "0\n");
    const std::optional<InputCapabilities> capabilities = readCapabilities(folder.path());
    ASSERT_TRUE(capabilities.has_value());
    EXPECT_TRUE(capabilities->keys.all());
}

} // namespace
} // namespace moxel::daemon
