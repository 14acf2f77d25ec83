// Values as text, as the platform prints them.
#include "ContainerNodes.h"
#include "DateText.h"
#include "RealText.h"
#include "UnicodeText.h"

#include <algorithm>
#include <string_view>

namespace moxel {

namespace {

using detail::ArrayNode;
using detail::DictionaryNode;

constexpr size_t maxContainerText = size_t{1} << 20;
constexpr std::string_view cutMark = "...";
constexpr std::string_view hexDigits = "0123456789abcdef";

/// Bounds descriptions that run inside each other, on one thread, because records print their members:
/// without it, shared or nested records could make text without end.
class NestedDescription {
  public:
    NestedDescription() noexcept {
        if (depth_++ == 0)
            written_ = 0;
    }
    ~NestedDescription() { --depth_; }
    NestedDescription(const NestedDescription &) = delete;
    NestedDescription &operator=(const NestedDescription &) = delete;

    /// Whether another container or record, after `size` bytes not counted yet, is more than enough.
    [[nodiscard]] static bool isExhausted(size_t size) noexcept {
        return written_ + size > maxContainerText || depth_ > maxDepth;
    }
    [[nodiscard]] static bool isOutermost() noexcept { return depth_ == 1; }
    static void count(size_t size) noexcept { written_ += size; }

  private:
    static constexpr int maxDepth = 64;

    static constinit thread_local int depth_;
    static constinit thread_local size_t written_;
};

constinit thread_local int NestedDescription::depth_ = 0;
constinit thread_local size_t NestedDescription::written_ = 0;

std::string dateText(Date date) {
    std::optional<std::string> text = detail::xmlTextFromDate(date);
    if (!text)
        return detail::shortestRealText(date.secondsSince2001) + " s after 2001-01-01 00:00:00 +0000";
    // 2004-10-26T10:33:33Z
    (*text)[text->find('T')] = ' ';
    text->pop_back();
    return *text + " +0000";
}

/// Short data in full; of longer data the first 16 and the last 8 bytes, in groups of four.
std::string dataText(const Data &data) {
    constexpr size_t longestInFull = 24;
    constexpr size_t headSize = 16;
    constexpr size_t tailSize = 8;
    const std::span<const uint8_t> bytes = data.bytes();
    std::string text = "{length = " + std::to_string(bytes.size()) + ", bytes = 0x";
    const auto append = [&text](uint8_t byte) {
        text += hexDigits[byte >> 4];
        text += hexDigits[byte & 15];
    };
    if (bytes.size() <= longestInFull) {
        std::ranges::for_each(bytes, append);
        return text + "}";
    }
    const auto appendGroups = [&](std::span<const uint8_t> part) {
        for (size_t i = 0; i < part.size(); ++i) {
            append(part[i]);
            if (i % 4 == 3)
                text += ' ';
        }
    };
    appendGroups(bytes.first(headSize));
    text += "... ";
    appendGroups(bytes.last(tailSize));
    return text + "}";
}

/// Leaves at most so many bytes of UTF-8, no half characters, and the mark.
void cutEnd(std::string &text, size_t size) {
    while (size > 0 && (static_cast<uint8_t>(text[size]) & 0xC0) == 0x80)
        --size;
    text.resize(size);
    text += cutMark;
}

std::string objectText(const Object &object) {
    const NestedDescription nested;
    if (NestedDescription::isExhausted(0))
        return std::string(cutMark);
    std::string text = object.description();
    // Escaping makes text longer each time that records and containers alternate.
    if (!NestedDescription::isOutermost() && text.size() > maxContainerText)
        cutEnd(text, maxContainerText);
    NestedDescription::count(text.size());
    return text;
}

/// Everything but containers.
std::string leafText(const Value &value) {
    switch (value.kind()) {
    case Kind::null:
        return "(null)";
    case Kind::boolean:
    case Kind::integer:
        return std::to_string(value.int64Value());
    case Kind::unsignedInteger:
        return std::to_string(value.uint64Value());
    case Kind::real:
        return detail::shortestRealText(value.doubleValue());
    case Kind::date:
        return dateText(value.asDate());
    case Kind::uid:
        return "<CFKeyedArchiverUID>{value = " + std::to_string(value.asUID().index) + "}";
    case Kind::string:
        return value.asString().string();
    case Kind::data:
        return dataText(value.asData());
    case Kind::object:
        return objectText(static_cast<const Object &>(*value.node()));
    default: // Containers, which are not asked for.
        return {};
    }
}

constexpr bool isAlphanumeric(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// \Uxxxx
void appendEscapedUnit(std::string &text, char16_t unit) {
    text += "\\U";
    for (int shift = 12; shift >= 0; shift -= 4)
        text += hexDigits[(unit >> shift) & 15];
}

void appendEscaped(std::string &text, char16_t unit) {
    constexpr std::u16string_view special = u"\"\\\a\b\t\n\v\f\r";
    constexpr std::string_view letters = "\"\\abtnvfr";
    const size_t at = special.find(unit);
    if (at != std::u16string_view::npos) {
        text += '\\';
        text += letters[at];
    } else if (unit < 0x20 || unit > 0x7E) {
        appendEscapedUnit(text, unit);
    } else {
        text += static_cast<char>(unit);
    }
}

/// Text within a container: bare when it is one alphanumeric word, else quoted and in ASCII.
void appendWord(std::string &text, std::string_view word) {
    if (!word.empty() && std::ranges::all_of(word, isAlphanumeric)) {
        text += word;
        return;
    }
    text += '"';
    for (const char16_t unit : detail::decodedUTF16(word))
        appendEscaped(text, unit);
    text += '"';
}

/// Prints one container and what it holds. Lives for one call, on its thread.
class ContainerPrinter {
  public:
    explicit ContainerPrinter(const Value &container) {
        open(container);
        while (!open_.empty()) {
            if (NestedDescription::isExhausted(text_.size())) {
                text_ += cutMark;
                break;
            }
            printNext();
        }
        NestedDescription::count(text_.size());
    }

    [[nodiscard]] std::string text() && { return std::move(text_); }

  private:
    /// A container that is being printed.
    struct Level {
        const ArrayNode *array = nullptr;
        std::vector<const Dictionary::Entry *> sorted; ///< The entries when it is a dictionary.
        size_t next = 0;
    };

    void open(const Value &container) {
        Level level;
        if (container.kind() == Kind::array) {
            level.array = static_cast<const ArrayNode *>(container.node());
            text_ += "(\n";
        } else {
            for (const auto &entry : static_cast<const DictionaryNode *>(container.node())->entries())
                level.sorted.push_back(&entry);
            std::ranges::sort(level.sorted, detail::precedesInUTF16,
                              [](const Dictionary::Entry *entry) { return entry->key.view(); });
            text_ += "{\n";
        }
        open_.push_back(std::move(level));
    }

    void printNext() {
        Level &level = open_.back();
        const size_t index = level.next++;
        if (index == (level.array ? level.array->values.size() : level.sorted.size())) {
            close(level);
            return;
        }
        if (level.array && index > 0)
            text_ += ",\n";
        indent(open_.size());
        if (level.array) {
            print(level.array->values[index]);
        } else {
            appendWord(text_, level.sorted[index]->key.view());
            text_ += " = ";
            print(level.sorted[index]->value);
        }
    }

    void print(const Value &value) {
        if (detail::isContainer(value)) {
            indent(open_.size());
            open(value);
            return;
        }
        printLeaf(value);
        endMember();
    }

    void printLeaf(const Value &value) {
        if (value.isNull())
            text_ += "\"<null>\"";
        else if (value.kind() == Kind::data)
            text_ += leafText(value);
        else
            appendWord(text_, leafText(value));
    }

    void close(const Level &level) {
        if (level.array && !level.array->values.empty())
            text_ += '\n';
        const char bracket = level.array ? ')' : '}';
        open_.pop_back();
        indent(open_.size());
        text_ += bracket;
        if (!open_.empty())
            endMember();
    }

    /// Members of arrays are separated when the next one comes.
    void endMember() {
        if (!open_.back().array)
            text_ += ";\n";
    }

    void indent(size_t levels) { text_.append(levels * 4, ' '); }

    std::string text_;
    std::vector<Level> open_;
};

} // namespace

std::string Value::description() const {
    if (!detail::isContainer(*this))
        return leafText(*this);
    const NestedDescription nested;
    return ContainerPrinter(*this).text();
}

} // namespace moxel
