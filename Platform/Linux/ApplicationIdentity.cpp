// Parses sandbox information, unit names and bundle layouts.
#include "Platform/Linux/ApplicationIdentity.h"

#include "Platform/Utf8.h"

#include <vector>

namespace moxel {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// Takes the text up to the separator off the front of `text`.
std::string_view takeUntil(std::string_view &text, char separator) {
    const auto end = text.find(separator);
    const auto part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return part;
}

bool isIdentifier(std::string_view text) {
    constexpr std::string_view refused = "/";
    if (text.empty() || !isUtf8(text) || text.find_first_of(refused) != std::string_view::npos)
        return false;
    for (const char byte : text) {
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F)
            return false;
    }
    return true;
}

std::optional<std::string> checkedIdentifier(std::string text) {
    if (!isIdentifier(text))
        return std::nullopt;
    return text;
}

std::optional<unsigned> hexadecimalDigit(char digit) {
    if (digit >= '0' && digit <= '9')
        return static_cast<unsigned>(digit - '0');
    if (digit >= 'a' && digit <= 'f')
        return static_cast<unsigned>(digit - 'a' + 10);
    return std::nullopt;
}

// Undoes \xNN.
std::optional<std::string> unescaped(std::string_view part) {
    std::string result;
    while (!part.empty()) {
        if (part.front() != '\\') {
            result += part.front();
            part.remove_prefix(1);
            continue;
        }
        if (part.size() < 4 || part[1] != 'x')
            return std::nullopt;
        const auto high = hexadecimalDigit(part[2]);
        const auto low = hexadecimalDigit(part[3]);
        if (!high || !low)
            return std::nullopt;
        result += static_cast<char>(*high << 4 | *low);
        part.remove_prefix(4);
    }
    return result;
}

// The application's part of the parts that follow "app-" and precede the random one. Launchers that forget to
// escape the dashes of an identifier leave more than two.
std::string applicationPart(const std::vector<std::string_view> &parts) {
    if (parts.size() == 1)
        return std::string(parts.front());
    std::string application;
    for (size_t i = 1; i < parts.size(); ++i) {
        if (i > 1)
            application += '-';
        application += parts[i];
    }
    return application;
}

bool contains(std::string_view text, char character) {
    return text.find(character) != std::string_view::npos;
}

// Two parts of a scope are an application and a random part, or a launcher and an application; applications
// have a dot in their name as a rule, and the others have none.
bool endsWithApplication(const std::vector<std::string_view> &parts) {
    return parts.size() == 1 || (parts.size() == 2 && contains(parts[1], '.') && !contains(parts[0], '.'));
}

bool takeSuffix(std::string_view &text, std::string_view suffix) {
    if (!text.ends_with(suffix))
        return false;
    text.remove_suffix(suffix.size());
    return true;
}

} // namespace

std::optional<std::string> applicationOfFlatpak(std::string_view information) {
    bool inApplicationGroup = false;
    while (!information.empty()) {
        auto line = trimmed(takeUntil(information, '\n'));
        if (line.starts_with('[')) {
            inApplicationGroup = line == "[Application]";
        } else if (inApplicationGroup && contains(line, '=') && !line.starts_with('#')) {
            const auto key = trimmed(takeUntil(line, '='));
            if (key == "name")
                return checkedIdentifier(std::string(trimmed(line)));
        }
    }
    return std::nullopt;
}

std::optional<std::string> applicationOfUnit(std::string_view unit) {
    const bool isScope = takeSuffix(unit, ".scope");
    if (!isScope && !takeSuffix(unit, ".service"))
        return std::nullopt;
    constexpr std::string_view prefix = "app-";
    if (!unit.starts_with(prefix))
        return std::nullopt;
    unit.remove_prefix(prefix.size());
    if (!isScope)
        unit = unit.substr(0, unit.find('@'));

    std::vector<std::string_view> parts;
    while (!unit.empty())
        parts.push_back(takeUntil(unit, '-'));
    if (parts.empty())
        return std::nullopt;
    if (isScope && !endsWithApplication(parts))
        parts.pop_back();
    auto application = unescaped(applicationPart(parts));
    if (!application)
        return std::nullopt;
    return checkedIdentifier(std::move(*application));
}

std::string bundlePathOf(std::string_view executablePath) {
    const auto lastSlash = executablePath.rfind('/');
    if (lastSlash == std::string_view::npos)
        return {};
    const auto folder = executablePath.substr(0, lastSlash);
    auto bundle = folder;
    if (takeSuffix(bundle, "/Contents/MacOS") || takeSuffix(bundle, "/Contents/Linux")) {
        const auto name = bundle.substr(bundle.rfind('/') + 1);
        const auto dot = name.rfind('.');
        if (dot != std::string_view::npos && dot != 0 && dot + 1 != name.size())
            return std::string(bundle);
    }
    return std::string(folder.empty() ? "/" : folder);
}

} // namespace moxel
