// The hash of dictionary keys.
#include "Values/SipHash.h"

#include <gtest/gtest.h>

namespace moxel::detail {
namespace {

// From CPython, which hashes bytes with SipHash-1-3 under an all-zero key when PYTHONHASHSEED is 0.
TEST(SipHash, AgreesWithAnotherImplementation) {
    constexpr SipHashKey zero{0, 0};
    EXPECT_EQ(sipHash13("a", zero), 0x407448d2b89b1813u);
    EXPECT_EQ(sipHash13("abcdefg", zero), 0x6db12aae9070f506u);
    EXPECT_EQ(sipHash13("abcdefgh", zero), 0x3f7b849c0b8e35eau);
    EXPECT_EQ(sipHash13("abcdefghi", zero), 0xf89b34a3d11eb6e5u);
    EXPECT_EQ(sipHash13("The quick brown fox jumps over the lazy dog", zero), 0x8df676d3d00c451eu);
}

TEST(SipHash, DependsOnBothHalvesOfTheKey) {
    EXPECT_NE(sipHash13("a", {1, 0}), sipHash13("a", {0, 0}));
    EXPECT_NE(sipHash13("a", {0, 1}), sipHash13("a", {0, 0}));
}

TEST(SipHash, KeyOfTheProcessStaysTheSame) {
    EXPECT_EQ(&SipHashKey::ofProcess(), &SipHashKey::ofProcess());
    EXPECT_TRUE(SipHashKey::ofProcess().first != 0 || SipHashKey::ofProcess().second != 0);
}

} // namespace
} // namespace moxel::detail
