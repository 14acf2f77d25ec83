#include "Moxel Daemon/Archive/XMLPropertyListReader.h"

#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Moxel Daemon/Protocol/Numbers.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <expat.h>
#include <limits>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace moxel::daemon {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n";

bool isContainer(std::string_view name) { return name == "dict" || name == "array"; }

bool isScalar(std::string_view name) {
    constexpr std::array names{"string", "integer", "real", "true", "false", "data", "date", "key"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(whiteSpace);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

// ------------------------------------------------------------------------------------------ Scalars

std::optional<Value> integerIn(std::string_view text) {
    text = trimmed(text);
    text.remove_prefix(text.starts_with('+') ? 1 : 0);
    if (const std::optional<int64_t> number = parseNumber<int64_t>(text))
        return Value(*number);
    if (const std::optional<uint64_t> number = parseNumber<uint64_t>(text))
        return Value(*number);
    return std::nullopt;
}

std::optional<Value> realIn(std::string_view text) {
    text = trimmed(text);
    constexpr double infinity = std::numeric_limits<double>::infinity();
    if (text == "nan")
        return Value(std::numeric_limits<double>::quiet_NaN());
    if (text == "inf" || text == "+infinity")
        return Value(infinity);
    if (text == "-inf" || text == "-infinity")
        return Value(-infinity);
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    double number = 0;
    if (!(stream >> number) || !stream.eof())
        return std::nullopt;
    return Value(number);
}

int base64Digit(char character) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t found = digits.find(character);
    return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

std::optional<Value> dataIn(std::string_view text) {
    Data bytes;
    uint32_t bits = 0;
    int count = 0;
    text = text.substr(0, text.find('='));
    for (const char character : text) {
        if (whiteSpace.find(character) != std::string_view::npos)
            continue;
        const int digit = base64Digit(character);
        if (digit < 0)
            return std::nullopt;
        bits = bits << 6 | static_cast<uint32_t>(digit);
        count += 6;
        if (count < 8)
            continue;
        count -= 8;
        bytes.push_back(static_cast<uint8_t>(bits >> count));
    }
    return Value(std::move(bytes));
}

/// "2026-01-31T23:59:59Z"
std::optional<Value> dateIn(std::string_view text) {
    const std::string trimmedText(trimmed(text));
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int length = -1;
    std::sscanf(trimmedText.c_str(), "%5d-%2u-%2uT%2d:%2d:%2dZ%n", &year, &month, &day, &hour, &minute,
                &second, &length);
    if (length < 0 || static_cast<size_t>(length) != trimmedText.size())
        return std::nullopt;
    using namespace std::chrono;
    const year_month_day calendarDay{std::chrono::year(year), std::chrono::month(month),
                                     std::chrono::day(day)};
    if (!calendarDay.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60)
        return std::nullopt;
    const sys_days epoch{std::chrono::year(2001) / January / 1};
    const auto since = sys_days(calendarDay) - epoch + hours(hour) + minutes(minute) + seconds(second);
    return dateValue(static_cast<double>(duration_cast<seconds>(since).count()));
}

std::optional<Value> scalarIn(std::string_view name, const std::string &text) {
    if (name == "string")
        return Value(text);
    if (name == "integer")
        return integerIn(text);
    if (name == "real")
        return realIn(text);
    if (name == "data")
        return dataIn(text);
    if (name == "date")
        return dateIn(text);
    return trimmed(text).empty() ? std::optional(Value(name == "true")) : std::nullopt;
}

// ------------------------------------------------------------------------------------------ Document

/// Follows the parser's events with a stack of its own.
class Reader {
  public:
    Reader() { reason_.reserve(64); }

    Result<Value> read(std::span<const uint8_t> bytes) {
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), guarded<&Reader::begin>, guarded<&Reader::end>);
        XML_SetCharacterDataHandler(parser_.get(), guarded<&Reader::characters>);
        XML_SetEntityDeclHandler(parser_.get(),
                                 [](void *self, const XML_Char *, int, const XML_Char *, int,
                                    const XML_Char *, const XML_Char *, const XML_Char *, const XML_Char *) {
                                     static_cast<Reader *>(self)->refuse("an entity of its own");
                                 });
        const XML_Status status = XML_Parse(parser_.get(), reinterpret_cast<const char *>(bytes.data()),
                                            static_cast<int>(bytes.size()), XML_TRUE);
        if (status != XML_STATUS_OK && reason_.empty())
            reason_ = XML_ErrorString(XML_GetErrorCode(parser_.get()));
        if (reason_.empty() && !root_)
            reason_ = "there is no value";
        if (!reason_.empty())
            return Error{"not an XML property list: line " +
                             std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": " + reason_,
                         0};
        return std::move(*root_);
    }

  private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };
    struct Container {
        bool isDictionary = false;
        Array values;
        std::vector<Entry> entries;
        std::optional<std::string> key; ///< Waits for its value.
    };

    /// A callback for the parser, which is C and must not see exceptions.
    template <auto method, class... Arguments>
    static void call(void *self, Arguments... arguments) {
        auto *reader = static_cast<Reader *>(self);
        try {
            if (reader->reason_.empty())
                (reader->*method)(arguments...);
        } catch (const std::exception &exception) {
            reader->refuse("out of memory");
        }
    }
    template <auto method>
    struct Guarded {
        operator XML_StartElementHandler() const { return &call<method, const char *, const char **>; }
        operator XML_EndElementHandler() const { return &call<method, const char *>; }
        operator XML_CharacterDataHandler() const { return &call<method, const char *, int>; }
    };
    template <auto method>
    static constexpr Guarded<method> guarded{};

    void refuse(const char *reason) noexcept {
        if (!reason_.empty())
            return;
        reason_.assign(reason, std::min(std::string_view(reason).size(), reason_.capacity()));
        XML_StopParser(parser_.get(), XML_FALSE);
    }

    void begin(const char *element, const char **) {
        const std::string_view name = element;
        if (!isInside_) {
            isInside_ = name == "plist";
            if (!isInside_)
                refuse("no plist");
            return;
        }
        const bool isKey = name == "key";
        const bool wantsKey =
            !containers_.empty() && containers_.back().isDictionary && !containers_.back().key;
        if (!scalar_.empty() || (containers_.empty() && root_) || isKey != wantsKey)
            return refuse("an element out of place");
        if (isContainer(name)) {
            if (containers_.size() >= Value::depthLimit)
                return refuse("nested too deep");
            containers_.emplace_back();
            containers_.back().isDictionary = name == "dict";
        } else if (isScalar(name)) {
            scalar_ = name;
            text_.clear();
        } else {
            refuse("an unknown element");
        }
    }

    void characters(const char *text, int length) {
        const std::string_view part(text, static_cast<size_t>(length));
        if (!scalar_.empty())
            text_ += part;
        else if (!trimmed(part).empty())
            refuse("text out of place");
    }

    void end(const char *element) {
        const std::string_view name = element;
        if (name == "key")
            containers_.back().key = std::move(text_);
        else if (isContainer(name))
            endContainer();
        else if (name != "plist")
            endScalar(name);
        scalar_.clear();
    }

    void endContainer() {
        Container container = std::move(containers_.back());
        containers_.pop_back();
        if (container.key)
            return refuse("a key without a value");
        if (container.isDictionary)
            add(Dictionary(std::move(container.entries)));
        else
            add(std::move(container.values));
    }

    void endScalar(std::string_view name) {
        std::optional<Value> value = scalarIn(name, text_);
        if (value)
            add(std::move(*value));
        else
            refuse("a value that does not fit its element");
    }

    void add(Value value) {
        if (containers_.empty()) {
            root_ = std::move(value);
            return;
        }
        Container &container = containers_.back();
        if (!container.isDictionary) {
            container.values.push_back(std::move(value));
            return;
        }
        container.entries.push_back({std::move(*container.key), std::move(value)});
        container.key.reset();
    }

    std::unique_ptr<std::remove_pointer_t<XML_Parser>, Free> parser_{XML_ParserCreate(nullptr)};
    bool isInside_ = false; ///< Of the plist element.
    std::vector<Container> containers_;
    std::string scalar_; ///< Name of the element whose text is being collected; empty for none.
    std::string text_;
    std::optional<Value> root_;
    std::string reason_; ///< Has room for every reason from the start, so that refusing cannot fail.
};

} // namespace

Result<Value> readXMLPropertyList(std::span<const uint8_t> bytes) { return Reader().read(bytes); }

} // namespace moxel::daemon
