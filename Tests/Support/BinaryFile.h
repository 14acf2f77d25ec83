// Property lists in binary form, put together by hand.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::test {

/// The bytes as text, zeros included.
inline std::string raw(std::initializer_list<unsigned> bytes) {
    std::string text;
    for (const unsigned byte : bytes)
        text += static_cast<char>(byte);
    return text;
}

/// The low bytes of a number, the highest first.
inline std::string bigEndian(uint64_t number, size_t width) {
    std::string text;
    for (size_t i = width; i-- > 0;)
        text += static_cast<char>(number >> (8 * i));
    return text;
}

/// A file whose every part a test can choose; what it does not choose is right.
struct BinaryFile {
    std::vector<std::string> objects; ///< Their bytes.
    size_t offsetWidth = 1;
    size_t referenceWidth = 1;
    uint64_t top = 0;

    [[nodiscard]] std::string bytes() const {
        std::string text = "bplist00";
        std::string table;
        for (const std::string &object : objects) {
            table += bigEndian(text.size(), offsetWidth);
            text += object;
        }
        const size_t tableStart = text.size();
        return text + table + trailer(offsetWidth, referenceWidth, objects.size(), top, tableStart);
    }

    static std::string trailer(size_t offsetWidth, size_t referenceWidth, uint64_t count, uint64_t top,
                               uint64_t tableStart) {
        return std::string(6, '\0') + bigEndian(offsetWidth, 1) + bigEndian(referenceWidth, 1) +
               bigEndian(count, 8) + bigEndian(top, 8) + bigEndian(tableStart, 8);
    }
};

} // namespace moxel::test
