// SipHash-1-3 after J.-P. Aumasson and D. J. Bernstein: one round per block, three to finish.
#include "SipHash.h"

#include <bit>
#include <cstring>
#include <random>

namespace moxel::detail {

namespace {

struct State {
    uint64_t v0, v1, v2, v3;

    void round() noexcept {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }

    void absorb(uint64_t block) noexcept {
        v3 ^= block;
        round();
        v0 ^= block;
    }
};

/// Up to eight bytes as a little-endian number.
uint64_t littleEndian(std::string_view bytes) noexcept {
    uint64_t number = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        number |= static_cast<uint64_t>(static_cast<uint8_t>(bytes[i])) << (8 * i);
    return number;
}

/// Eight bytes as a little-endian number.
uint64_t littleEndianBlock(const char *bytes) noexcept {
    if constexpr (std::endian::native != std::endian::little)
        return littleEndian({bytes, 8});
    uint64_t number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

} // namespace

const SipHashKey &SipHashKey::ofProcess() {
    static const SipHashKey key = [] {
        std::random_device random;
        const auto draw = [&random] { return static_cast<uint64_t>(random()) << 32 | random(); };
        return SipHashKey{draw(), draw()};
    }();
    return key;
}

uint64_t sipHash13(std::string_view bytes, const SipHashKey &key) noexcept {
    State state{key.first ^ 0x736f6d6570736575, key.second ^ 0x646f72616e646f6d,
                key.first ^ 0x6c7967656e657261, key.second ^ 0x7465646279746573};
    size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8)
        state.absorb(littleEndianBlock(bytes.data() + i));
    state.absorb(static_cast<uint64_t>(bytes.size()) << 56 | littleEndian(bytes.substr(i)));
    state.v2 ^= 0xff;
    state.round();
    state.round();
    state.round();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

} // namespace moxel::detail
