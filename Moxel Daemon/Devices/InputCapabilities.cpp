#include "Moxel Daemon/Devices/InputCapabilities.h"

#include <charconv>
#include <climits>
#include <fstream>
#include <iterator>
#include <vector>

namespace moxel::daemon {

namespace {

constexpr size_t axisCount = 6;
static_assert(REL_RZ - REL_X + 1 == axisCount && ABS_RZ - ABS_X + 1 == axisCount && REL_X == ABS_X);

/// Controllers count their buttons from BTN_0 on, and may have so many that they reach the codes of sticks
/// and pads, which have no BTN_0.
bool isStick(const InputCapabilities &capabilities) {
    return capabilities.keys[BTN_TRIGGER] && !capabilities.keys[BTN_0];
}

/// Screens, tablets, touchpads and motion sensors have axes of other meanings.
bool isPointerOrSensor(const InputCapabilities &capabilities) {
    return capabilities.properties[INPUT_PROP_ACCELEROMETER] || capabilities.properties[INPUT_PROP_DIRECT] ||
           capabilities.properties[INPUT_PROP_POINTER] || capabilities.keys[BTN_TOUCH] ||
           capabilities.keys[BTN_TOOL_PEN] || capabilities.keys[BTN_TOOL_FINGER];
}

/// As udev's rules for input devices tell keyboards: all of Escape to D. What is typed is nobody's business.
bool isKeyboard(const InputCapabilities &capabilities) {
    for (size_t code = KEY_ESC; code <= KEY_D; ++code)
        if (!capabilities.keys[code])
            return false;
    return true;
}

bool hasSixAxes(const InputCapabilities &capabilities) {
    for (size_t code = 0; code < axisCount; ++code)
        if (!capabilities.relative[code] && !capabilities.absolute[code])
            return false;
    return true;
}

/// Bits as the kernel writes them: words in hexadecimal, the most significant one first.
template <size_t count>
bool parseBits(std::string_view text, std::bitset<count> &bits) {
    constexpr size_t wordBits = sizeof(long) * CHAR_BIT;
    std::vector<unsigned long> words;
    const char *position = text.data();
    const char *const end = position + text.size();
    while (position < end) {
        unsigned long word = 0;
        const auto [rest, error] = std::from_chars(position, end, word, 16);
        if (error != std::errc())
            return false;
        words.push_back(word);
        position = rest;
        while (position < end && (*position == ' ' || *position == '\n'))
            ++position;
    }
    for (size_t index = 0; index < words.size(); ++index) {
        const unsigned long word = words[words.size() - 1 - index];
        for (size_t bit = 0; bit < wordBits && index * wordBits + bit < count; ++bit)
            bits[index * wordBits + bit] = (word >> bit & 1) != 0;
    }
    return !words.empty();
}

template <size_t count>
bool readBits(const std::string &path, std::bitset<count> &bits) {
    constexpr size_t longestText = 4096;
    std::ifstream file(path, std::ios::binary);
    std::string text(longestText, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    return parseBits(text, bits);
}

} // namespace

bool isGamepad(const InputCapabilities &capabilities) {
    return capabilities.keys[BTN_SOUTH] && !capabilities.keys[BTN_0];
}

DeviceKind kindOf(const InputCapabilities &capabilities) {
    if (isPointerOrSensor(capabilities) || isKeyboard(capabilities))
        return DeviceKind::other;
    if (isStick(capabilities) || isGamepad(capabilities))
        return capabilities.absolute[ABS_X] && capabilities.absolute[ABS_Y] ? DeviceKind::joystick
                                                                            : DeviceKind::other;
    return hasSixAxes(capabilities) ? DeviceKind::sixAxisController : DeviceKind::other;
}

std::optional<InputCapabilities> readCapabilities(const std::string &folder) {
    InputCapabilities capabilities;
    if (!readBits(folder + "/capabilities/key", capabilities.keys) ||
        !readBits(folder + "/capabilities/rel", capabilities.relative) ||
        !readBits(folder + "/capabilities/abs", capabilities.absolute) ||
        !readBits(folder + "/properties", capabilities.properties))
        return std::nullopt;
    return capabilities;
}

} // namespace moxel::daemon
