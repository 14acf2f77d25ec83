// The account database, without the C library's shared buffers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace moxel {

struct Account {
    std::string name;
    uint32_t userIdentifier = 0;
    std::string home;
};

/// Any thread. Absent when the database has no such account, or cannot be read.
[[nodiscard]] std::optional<Account> accountNamed(const std::string &name);
[[nodiscard]] std::optional<Account> accountOf(uint32_t userIdentifier);

} // namespace moxel
