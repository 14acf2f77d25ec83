#include "Export/FileURL.h"

#include <string>
#include <string_view>

namespace moxel {

namespace {

// What may stand in a path as it is (RFC 3986: pchar, and the slash).
bool isPlain(char c) {
    constexpr std::string_view marks = "-._~!$&'()*+,;=:@/";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           marks.find(c) != std::string_view::npos;
}

} // namespace

String fileURLWithPath(const String &path) {
    if (!path)
        return nullptr;
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string url = "file://";
    for (const char c : path.view()) {
        if (isPlain(c)) {
            url += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            url += '%';
            url += digits[byte >> 4];
            url += digits[byte & 15];
        }
    }
    return url;
}

} // namespace moxel
