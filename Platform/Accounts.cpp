// Look-ups through the re-entrant functions of the C library.
#include "Platform/Accounts.h"

#include <cerrno>
#include <vector>

#include <pwd.h>

namespace moxel {

namespace {

std::string text(const char *value) { return value != nullptr ? value : ""; }

// `query` fills an entry whose texts lie in the buffer, or says ERANGE when the buffer is too small for them.
template <class Query>
std::optional<Account> find(Query query) {
    constexpr size_t largestBuffer = size_t{1} << 20;
    for (std::vector<char> buffer(1024); buffer.size() <= largestBuffer; buffer.resize(buffer.size() * 2)) {
        passwd entry{};
        passwd *found = nullptr;
        const int error = query(&entry, buffer.data(), buffer.size(), &found);
        if (error == 0 && found != nullptr)
            return Account{text(entry.pw_name), entry.pw_uid, text(entry.pw_dir)};
        if (error != ERANGE && error != EINTR)
            return std::nullopt;
    }
    return std::nullopt;
}

} // namespace

std::optional<Account> accountNamed(const std::string &name) {
    if (name.find('\0') != std::string::npos)
        return std::nullopt;
    return find([&name](passwd *entry, char *buffer, size_t size, passwd **found) {
        return ::getpwnam_r(name.c_str(), entry, buffer, size, found);
    });
}

std::optional<Account> accountOf(uint32_t userIdentifier) {
    return find([userIdentifier](passwd *entry, char *buffer, size_t size, passwd **found) {
        return ::getpwuid_r(userIdentifier, entry, buffer, size, found);
    });
}

} // namespace moxel
