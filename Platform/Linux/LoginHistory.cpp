#include "Platform/Linux/LoginHistory.h"

#include "Platform/Linux/Descriptor.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <utmpx.h>

namespace moxel {

namespace {

// Texts of a record end with a zero or with their field.
template <size_t size>
std::string_view text(const char (&field)[size]) {
    return {field, ::strnlen(field, size)};
}

bool isLogin(const utmpx &record, std::string_view user, std::span<const std::string> places) {
    if (record.ut_type != USER_PROCESS || text(record.ut_user) != user)
        return false;
    // Display managers write the display in place of the terminal or of the host.
    return std::ranges::any_of(places, [&record](const std::string &place) {
        return text(record.ut_line) == place || (place.starts_with(':') && text(record.ut_host) == place);
    });
}

} // namespace

std::optional<LoginTime> newestLogin(const std::string &file, const std::string &user,
                                     const std::vector<std::string> &places) {
    const Descriptor history(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!history || ::fstat(history.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    std::array<utmpx, 64> block;
    // A record that is being written may be cut off at the end.
    size_t left = static_cast<size_t>(status.st_size) / sizeof(utmpx);
    while (left > 0) {
        const size_t count = std::min(left, block.size());
        left -= count;
        const auto size = static_cast<ssize_t>(count * sizeof(utmpx));
        if (::pread(history.get(), block.data(), static_cast<size_t>(size),
                    static_cast<off_t>(left * sizeof(utmpx))) != size)
            return std::nullopt;
        for (size_t i = count; i-- > 0;)
            if (isLogin(block[i], user, places))
                return LoginTime(std::chrono::seconds(block[i].ut_tv.tv_sec));
    }
    return std::nullopt;
}

} // namespace moxel
