#include "Moxel Daemon/Protocol/Numbers.h"

namespace moxel::daemon {

std::optional<Data> parseHexadecimal(std::string_view text) {
    if (text.size() % 2 != 0)
        return std::nullopt;
    Data bytes;
    bytes.reserve(text.size() / 2);
    for (; !text.empty(); text.remove_prefix(2)) {
        uint8_t byte = 0;
        const auto [rest, error] = std::from_chars(text.data(), text.data() + 2, byte, 16);
        if (error != std::errc() || rest != text.data() + 2)
            return std::nullopt;
        bytes.push_back(byte);
    }
    return bytes;
}

} // namespace moxel::daemon
