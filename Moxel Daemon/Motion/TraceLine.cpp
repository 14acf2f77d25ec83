#include "Moxel Daemon/Motion/TraceLine.h"

#include "Moxel Daemon/Archive/Unicode.h"
#include "Moxel Daemon/Protocol/Numbers.h"

#include <algorithm>

namespace moxel::daemon {

namespace {

constexpr size_t longestLine = 4096;
constexpr uint32_t mostSeconds = 1'000'000;
constexpr std::string_view blanks = " \t\r";

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Digits, and up to nine more behind a decimal point.
std::optional<std::chrono::nanoseconds> parseSeconds(std::string_view text) {
    constexpr size_t decimals = 9;
    const size_t point = text.find('.');
    const std::string_view whole = text.substr(0, point);
    std::string fraction(point == std::string_view::npos ? "0" : text.substr(point + 1));
    if (fraction.empty() || fraction.size() > decimals ||
        !std::all_of(fraction.begin(), fraction.end(), isDigit) ||
        !std::all_of(whole.begin(), whole.end(), isDigit))
        return std::nullopt;
    fraction.resize(decimals, '0');
    const std::optional<uint32_t> seconds = parseNumber<uint32_t>(whole);
    const std::optional<uint32_t> nanoseconds = parseNumber<uint32_t>(fraction);
    if (!seconds || *seconds > mostSeconds || !nanoseconds)
        return std::nullopt;
    return std::chrono::seconds(*seconds) + std::chrono::nanoseconds(*nanoseconds);
}

class LineReader {
  public:
    explicit LineReader(std::string_view line) : rest_(line) {}

    Result<TraceLine> read() {
        TraceLine line;
        while (skipBlanks()) {
            TraceArgument word;
            if (Result<void> taken = takeWord(word); !taken.ok())
                return taken.error();
            if (isTime(word) && line.keyword.empty() && !hasTime_) {
                if (!readTime(word.text, line.time))
                    return Error{"\"" + word.text + "\" is no time in seconds", 0};
                hasTime_ = true;
            } else if (line.keyword.empty()) {
                if (!word.key.empty() || word.isQuoted)
                    return Error{"an event must begin with its name", 0};
                line.keyword = std::move(word.text);
            } else {
                line.arguments.push_back(std::move(word));
            }
        }
        if (hasTime_ && line.keyword.empty())
            return Error{"there is a time but no event", 0};
        return line;
    }

  private:
    /// False at the end of the line.
    bool skipBlanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
        return !rest_.empty() && rest_.front() != '#';
    }

    static bool isTime(const TraceArgument &word) {
        return word.key.empty() && !word.isQuoted && (isDigit(word.text.front()) || word.text.front() == '+');
    }

    static bool readTime(std::string_view text, TraceTime &time) {
        time.isRelative = text.front() == '+';
        const std::optional<std::chrono::nanoseconds> seconds =
            parseSeconds(text.substr(time.isRelative ? 1 : 0));
        time.seconds = seconds.value_or(std::chrono::nanoseconds(0));
        return seconds.has_value();
    }

    Result<void> takeWord(TraceArgument &word) {
        const size_t end = std::min(rest_.find_first_of(" \t\r#=\""), rest_.size());
        word.text = rest_.substr(0, end);
        rest_.remove_prefix(end);
        if (!rest_.empty() && rest_.front() == '=') {
            if (word.text.empty())
                return Error{"there is nothing in front of a \"=\"", 0};
            word.key = std::move(word.text);
            rest_.remove_prefix(1);
            if (!rest_.empty() && rest_.front() == '"')
                return takeQuoted(word);
            const size_t valueEnd = std::min(rest_.find_first_of(" \t\r#"), rest_.size());
            word.text = rest_.substr(0, valueEnd);
            rest_.remove_prefix(valueEnd);
            return {};
        }
        if (!rest_.empty() && rest_.front() == '"')
            return Error{"a quotation mark may only stand behind a \"=\"", 0};
        return {};
    }

    /// Text between quotation marks; a backslash takes the next character as it is.
    Result<void> takeQuoted(TraceArgument &word) {
        word.isQuoted = true;
        word.text.clear();
        for (size_t index = 1; index < rest_.size(); ++index) {
            if (rest_[index] == '"') {
                rest_.remove_prefix(index + 1);
                return {};
            }
            if (rest_[index] == '\\' && ++index == rest_.size())
                break;
            word.text.push_back(rest_[index]);
        }
        return Error{"a quotation mark is missing", 0};
    }

    std::string_view rest_;
    bool hasTime_ = false;
};

} // namespace

std::optional<Value> TraceArgument::value() const {
    if (isQuoted)
        return Value(text);
    if (text == "true" || text == "false")
        return Value(text == "true");
    if (const std::optional<int64_t> number = parseNumber<int64_t>(text))
        return Value(*number);
    if (const std::optional<uint64_t> number = parseNumber<uint64_t>(text))
        return Value(*number);
    return std::nullopt;
}

Result<TraceLine> readTraceLine(std::string_view line) {
    if (line.size() > longestLine)
        return Error{"longer than " + std::to_string(longestLine) + " bytes", 0};
    if (!utf16FromUTF8(line))
        return Error{"not UTF-8", 0};
    return LineReader(line).read();
}

} // namespace moxel::daemon
