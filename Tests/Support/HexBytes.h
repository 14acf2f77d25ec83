// Bytes written as hexadecimal text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::test {

inline std::vector<uint8_t> bytesFromHex(std::string_view text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    return bytes;
}

} // namespace moxel::test
