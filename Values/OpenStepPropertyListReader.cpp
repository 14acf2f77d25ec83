// Reads property lists in the old-style text form of OpenStep, with the extensions of GNUstep.
#include "PropertyList.h"

#include "Base64.h"
#include "ContainerBuilder.h"
#include "DateText.h"
#include "NextStepEncoding.h"
#include "NumberText.h"
#include "TextEncoding.h"
#include "UnicodeText.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

namespace moxel {

namespace {

using detail::ContainerBuilder;

constexpr bool isHexadecimal(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Whether a byte of UTF-8 may stand in a string without quotes: as Foundation has it, and all that is not
/// ASCII.
constexpr bool isUnquoted(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || c == '/' || c == ':' || c == '.' || c == '-' || static_cast<uint8_t>(c) >= 0x80;
}

constexpr std::string_view lineSeparator = "\xE2\x80\xA8";
constexpr std::string_view paragraphSeparator = "\xE2\x80\xA9";

/// Lives for one call, on its thread.
class OpenStepReader {
  public:
    OpenStepReader(std::string_view text, Mutability mutability) : text_(text), builder_(mutability) {}

    [[nodiscard]] Result<Value> read();

  private:
    [[nodiscard]] bool readDocument();
    [[nodiscard]] bool isUTF8();
    [[nodiscard]] bool readTree();
    [[nodiscard]] bool readValue();
    [[nodiscard]] bool proceed();
    [[nodiscard]] bool readSeparator();
    [[nodiscard]] bool takeEnd() noexcept;
    [[nodiscard]] bool readKey();
    [[nodiscard]] bool readString(String &string);
    [[nodiscard]] bool readQuotedString(String &string);
    [[nodiscard]] bool readEscape(std::u16string &units);
    [[nodiscard]] bool readUnicodeEscape(std::u16string &units);
    void readOctalEscape(std::u16string &units);
    [[nodiscard]] bool readAngleBrackets(Value &value);
    [[nodiscard]] bool readHexadecimalData(std::string_view content, Value &value);
    [[nodiscard]] bool readTypedValue(std::string_view content, Value &value);
    [[nodiscard]] bool skipSpace();
    [[nodiscard]] bool skipComment();
    void finish(Value value);
    void close();

    [[nodiscard]] std::string_view rest() const noexcept { return text_.substr(at_); }
    [[nodiscard]] bool isAtEnd() const noexcept { return at_ == text_.size(); }
    [[nodiscard]] bool take(char expected) noexcept {
        const bool isThere = rest().starts_with(expected);
        at_ += isThere ? 1 : 0;
        return isThere;
    }
    bool fail(const std::string &message);

    const std::string_view text_;
    size_t at_ = 0;
    ContainerBuilder builder_;
    bool isBraceless_ = false;  ///< The outermost dictionary ends with the text.
    bool isAfterValue_ = false; ///< A separator or the end of the container comes next.
    Value root_;
    std::string error_;
};

Result<Value> OpenStepReader::read() {
    if (!readDocument())
        return Error{error_};
    return std::move(root_);
}

bool OpenStepReader::fail(const std::string &message) {
    error_ = "old-style property list: " + message + " at line " +
             std::to_string(1 + std::ranges::count(text_.substr(0, at_), '\n'));
    return false;
}

bool OpenStepReader::readDocument() {
    if (!isUTF8() || !skipSpace())
        return false;
    const size_t start = at_;
    if (!isAtEnd()) {
        if (!readTree() || !skipSpace())
            return false;
        if (isAtEnd())
            return true;
        if (root_.kind() != Kind::string)
            return fail("more text after the end");
    }
    // Nothing, or a string with more behind it: a dictionary without its braces.
    at_ = start;
    isBraceless_ = true;
    isAfterValue_ = false;
    builder_.openDictionary();
    return proceed() && (builder_.depth() == 0 || readTree());
}

bool OpenStepReader::isUTF8() {
    if (detail::scanUTF8(text_).isValid)
        return true;
    while (detail::decodeUTF8(rest(), detail::Surrogates::rejected).isWellFormed)
        at_ += detail::decodeUTF8(rest(), detail::Surrogates::rejected).bytes;
    return fail("ill-formed UTF-8");
}

/// Reads a value and, when that opens containers or is inside of some, all that they hold.
bool OpenStepReader::readTree() {
    do {
        if (!readValue() || !proceed())
            return false;
    } while (builder_.depth() > 0);
    return true;
}

/// Reads a scalar whole, of a container only how it opens.
bool OpenStepReader::readValue() {
    if (take('(')) {
        builder_.openArray();
        isAfterValue_ = false;
        return true;
    }
    if (take('{')) {
        builder_.openDictionary();
        isAfterValue_ = false;
        return true;
    }
    Value value;
    if (rest().starts_with('<')) {
        if (!readAngleBrackets(value))
            return false;
    } else {
        String string;
        if (!readString(string))
            return false;
        value = string;
    }
    finish(std::move(value));
    return true;
}

void OpenStepReader::finish(Value value) {
    if (builder_.depth() == 0)
        root_ = std::move(value);
    else
        builder_.add(std::move(value));
    isAfterValue_ = true;
}

void OpenStepReader::close() { finish(builder_.close()); }

/// Moves on to where the next value begins, closing containers on the way, or out of all containers.
bool OpenStepReader::proceed() {
    while (builder_.depth() > 0) {
        if (!skipSpace())
            return false;
        if (isAfterValue_) {
            if (!readSeparator())
                return false;
        } else if (takeEnd()) {
            close();
        } else if (isAtEnd()) {
            return fail(builder_.isInArray() ? "an array is not closed" : "a dictionary is not closed");
        } else if (builder_.isInArray()) {
            return true;
        } else if (!readKey()) {
            return false;
        } else if (builder_.awaitsValue()) {
            return skipSpace();
        }
    }
    return true;
}

/// What may follow a value: the separator, or the end even where the separator is missing.
bool OpenStepReader::readSeparator() {
    if (take(builder_.isInArray() ? ',' : ';'))
        isAfterValue_ = false;
    else if (takeEnd())
        close();
    else
        return fail(builder_.isInArray() ? "',' or ')' is missing"
                                         : "';' or the end of the dictionary is missing");
    return true;
}

bool OpenStepReader::takeEnd() noexcept {
    if (isBraceless_ && builder_.depth() == 1)
        return isAtEnd();
    return take(builder_.isInArray() ? ')' : '}');
}

/// A key and the '=' behind it; in strings files a key without one is its own value.
bool OpenStepReader::readKey() {
    String key;
    if (!readString(key) || !skipSpace())
        return false;
    builder_.setKey(key);
    if (take('='))
        return true;
    if (!rest().starts_with(';'))
        return fail("'=' is missing");
    finish(key);
    return true;
}

bool OpenStepReader::readString(String &string) {
    if (rest().starts_with('"') || rest().starts_with('\''))
        return readQuotedString(string);
    const size_t start = at_;
    while (!isAtEnd() && isUnquoted(text_[at_]) && !rest().starts_with(lineSeparator) &&
           !rest().starts_with(paragraphSeparator))
        ++at_;
    if (at_ == start)
        return fail(isAtEnd() ? "the text ends where something is missing" : "unexpected character");
    string = text_.substr(start, at_ - start);
    return true;
}

bool OpenStepReader::readQuotedString(String &string) {
    const char quote = text_[at_++];
    const char stops[] = {quote, '\\'};
    std::u16string units;
    bool hasEscapes = false;
    while (true) {
        const size_t stop = text_.find_first_of(std::string_view(stops, 2), at_);
        if (stop == std::string_view::npos)
            return fail("a string is not closed; it begins");
        const std::string_view plain = text_.substr(at_, stop - at_);
        at_ = stop + 1;
        const bool isEscape = text_[stop] == '\\';
        if (!hasEscapes && !isEscape) {
            string = plain;
            return true;
        }
        units += detail::decodedUTF16(plain);
        hasEscapes = true;
        if (!isEscape)
            break;
        if (!readEscape(units))
            return false;
    }
    string = String::fromUTF16(units);
    return true;
}

bool OpenStepReader::readEscape(std::u16string &units) {
    if (isAtEnd())
        return fail("the text ends inside an escape");
    const char c = text_[at_];
    if (c == 'U' || c == 'u')
        return readUnicodeEscape(units);
    if (c >= '0' && c <= '7') {
        readOctalEscape(units);
        return true;
    }
    constexpr std::string_view letters = "abfnrtv\"'\\";
    constexpr std::u16string_view meanings = u"\a\b\f\n\r\t\v\"'\\";
    const size_t letter = letters.find(c);
    if (letter == std::string_view::npos)
        return true; // It stands for itself, as the plain text that comes next.
    units += meanings[letter];
    ++at_;
    return true;
}

/// Up to three digits, cut to eight bits.
void OpenStepReader::readOctalEscape(std::u16string &units) {
    unsigned byte = 0;
    for (int digits = 0; digits < 3 && !isAtEnd() && text_[at_] >= '0' && text_[at_] <= '7'; ++digits)
        byte = byte << 3 | static_cast<unsigned>(text_[at_++] - '0');
    units += detail::unitFromNextStep(static_cast<uint8_t>(byte));
}

/// A UTF-16 unit in up to four digits; two units make one character when they are a pair of surrogates.
bool OpenStepReader::readUnicodeEscape(std::u16string &units) {
    const std::string_view digits = text_.substr(at_ + 1, 4);
    uint16_t unit = 0;
    const char *const end = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16).ptr;
    if (end == digits.data())
        return fail("an escape lacks its hexadecimal digits");
    units += static_cast<char16_t>(unit);
    at_ += 1 + static_cast<size_t>(end - digits.data());
    return true;
}

/// Data in hexadecimal or base64, or a typed value.
bool OpenStepReader::readAngleBrackets(Value &value) {
    const size_t end = text_.find('>', at_);
    if (end == std::string_view::npos)
        return fail("'>' is missing after the '<'");
    const std::string_view content = text_.substr(at_ + 1, end - at_ - 1);
    if (content.starts_with('*')) {
        if (!readTypedValue(content.substr(1), value))
            return false;
    } else if (content.starts_with('[') && content.ends_with(']')) {
        std::optional<std::vector<uint8_t>> bytes =
            detail::bytesFromBase64(content.substr(1, std::max<size_t>(content.size(), 2) - 2));
        if (!bytes)
            return fail("malformed base64");
        value = Data(std::move(*bytes));
    } else if (!readHexadecimalData(content, value)) {
        return false;
    }
    at_ = end + 1;
    return true;
}

/// Pairs of digits; white space may stand between the pairs.
bool OpenStepReader::readHexadecimalData(std::string_view content, Value &value) {
    std::vector<uint8_t> bytes;
    bytes.reserve(content.size() / 2);
    while (!(content = detail::trimmed(content)).empty()) {
        if (content.size() < 2 || !isHexadecimal(content[0]) || !isHexadecimal(content[1]))
            return fail("data is not pairs of hexadecimal digits");
        uint8_t byte = 0;
        std::from_chars(content.data(), content.data() + 2, byte, 16);
        bytes.push_back(byte);
        content.remove_prefix(2);
    }
    value = Data(std::move(bytes));
    return true;
}

/// The content after "<*": I and an integer, R and a real number, B and Y or N, D and a date.
bool OpenStepReader::readTypedValue(std::string_view content, Value &value) {
    const char type = content.empty() ? '\0' : content[0];
    std::string_view text = content.substr(content.empty() ? 0 : 1);
    if (text.size() >= 2 && text.starts_with('"') && text.ends_with('"'))
        text = text.substr(1, text.size() - 2);
    if (type == 'I') {
        value = detail::integerFromText(text);
    } else if (type == 'R') {
        if (const std::optional<double> real = detail::realFromText(text))
            value = *real;
    } else if (type == 'B') {
        if (text == "Y" || text == "N")
            value = text == "Y";
    } else if (type == 'D') {
        if (const std::optional<Date> date = detail::dateFromOpenStepText(text))
            value = *date;
    }
    return !value.isNull() || fail("malformed typed value");
}

bool OpenStepReader::skipSpace() {
    while (!isAtEnd()) {
        const char c = text_[at_];
        if (c == ' ' || (c >= '\t' && c <= '\r'))
            ++at_;
        else if (rest().starts_with(lineSeparator) || rest().starts_with(paragraphSeparator))
            at_ += lineSeparator.size();
        else if (rest().starts_with("//") || rest().starts_with("/*")) {
            if (!skipComment())
                return false;
        } else
            break;
    }
    return true;
}

bool OpenStepReader::skipComment() {
    if (text_[at_ + 1] == '*') {
        const size_t end = text_.find("*/", at_ + 2);
        if (end == std::string_view::npos)
            return fail("a comment is not closed; it begins");
        at_ = end + 2;
        return true;
    }
    while (!isAtEnd() && text_[at_] != '\n' && text_[at_] != '\r' && !rest().starts_with(lineSeparator) &&
           !rest().starts_with(paragraphSeparator))
        ++at_;
    return true;
}

} // namespace

Result<Value> readOpenStepPropertyList(std::span<const uint8_t> bytes, Mutability mutability) {
    std::string storage;
    const Result<std::string_view> text = detail::decodedText(bytes, storage);
    if (!text)
        return Error{"old-style property list: " + text.error().message};
    return OpenStepReader(*text, mutability).read();
}

} // namespace moxel
