// SipHash-1-3: a keyed hash of which nobody who lacks the key can make collisions at will.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace moxel::detail {

struct SipHashKey {
    uint64_t first;
    uint64_t second;

    /// Drawn at random once per process.
    [[nodiscard]] static const SipHashKey &ofProcess();
};

[[nodiscard]] uint64_t sipHash13(std::string_view bytes, const SipHashKey &key) noexcept;

} // namespace moxel::detail
