// Draws values from the bytes of a fuzzer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace moxel::fuzz {

/// Yields zeros when the bytes are used up.
class FuzzInput {
  public:
    FuzzInput(const uint8_t *data, size_t size) : rest_(data, size) {}

    [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }

    template <class Number>
    [[nodiscard]] Number number() {
        Number value{};
        const size_t count = std::min(sizeof value, rest_.size());
        std::memcpy(&value, rest_.data(), count);
        rest_ = rest_.subspan(count);
        return value;
    }
    /// At most that many bytes; how many, a number before them says.
    [[nodiscard]] std::vector<uint8_t> bytes(size_t limit) {
        const size_t count = std::min({size_t{number<uint16_t>()}, limit, rest_.size()});
        const std::vector<uint8_t> result(rest_.begin(), rest_.begin() + static_cast<ptrdiff_t>(count));
        rest_ = rest_.subspan(count);
        return result;
    }
    [[nodiscard]] std::string text(size_t limit) {
        const std::vector<uint8_t> content = bytes(limit);
        return {content.begin(), content.end()};
    }

  private:
    std::span<const uint8_t> rest_;
};

/// Stops the program, so that the fuzzer keeps what led here.
inline void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

} // namespace moxel::fuzz
