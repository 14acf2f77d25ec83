// A picture in a BMP file of 24 bits, and what a test wants to know of it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace moxel::test {

struct Pixel {
    int red = 0;
    int green = 0;
    int blue = 0;
    bool operator==(const Pixel &) const = default;
};

/// Part of a picture: columns from `left` on, up to `right`; likewise rows, the first at the top.
struct Region {
    int left;
    int top;
    int right;
    int bottom;
};

class Picture {
  public:
    explicit Picture(const std::string &file) {
        std::ifstream stream(file, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(stream), {});
        const bool isReadable =
            bytes_.size() > 54 && bytes_[0] == 'B' && bytes_[1] == 'M' && number(28, 2) == 24;
        EXPECT_TRUE(isReadable) << file << " is no picture";
        if (!isReadable)
            return;
        first_ = number(10, 4);
        width_ = static_cast<int>(number(18, 4));
        height_ = static_cast<int>(number(22, 4));
    }

    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    [[nodiscard]] const std::vector<char> &bytes() const { return bytes_; }
    [[nodiscard]] Pixel at(int x, int y) const {
        const size_t rowSize = (static_cast<size_t>(width_) * 3 + 3) / 4 * 4;
        const size_t offset =
            first_ + static_cast<size_t>(height_ - 1 - y) * rowSize + static_cast<size_t>(x) * 3;
        return {byte(offset + 2), byte(offset + 1), byte(offset)};
    }

  private:
    [[nodiscard]] int byte(size_t offset) const {
        return offset < bytes_.size() ? static_cast<uint8_t>(bytes_[offset]) : 0;
    }
    [[nodiscard]] size_t number(size_t offset, size_t size) const {
        size_t value = 0;
        for (size_t i = size; i > 0; --i)
            value = value << 8 | static_cast<size_t>(byte(offset + i - 1));
        return value;
    }

    std::vector<char> bytes_;
    size_t first_ = 0;
    int width_ = 0;
    int height_ = 0;
};

/// Where the pixels of a kind lie.
struct Blob {
    int size = 0;
    double x = 0; ///< Their centre.
    double y = 0;
    Region bounds{1 << 20, 1 << 20, -1, -1};
};

inline Blob blob(const Region &region, const std::function<bool(int x, int y)> &belongs) {
    Blob found;
    for (int y = region.top; y < region.bottom; ++y) {
        for (int x = region.left; x < region.right; ++x) {
            if (!belongs(x, y))
                continue;
            ++found.size;
            found.x += x;
            found.y += y;
            found.bounds = {std::min(found.bounds.left, x), std::min(found.bounds.top, y),
                            std::max(found.bounds.right, x + 1), std::max(found.bounds.bottom, y + 1)};
        }
    }
    if (found.size > 0) {
        found.x /= found.size;
        found.y /= found.size;
    }
    return found;
}

/// The pixels that two pictures do not have in common.
inline Blob difference(const Picture &first, const Picture &second, const Region &region) {
    return blob(region, [&](int x, int y) { return first.at(x, y) != second.at(x, y); });
}

} // namespace moxel::test
