// Writes property lists in XML form.
#include "PropertyList.h"

#include "Base64.h"
#include "ContainerCursor.h"
#include "DateText.h"
#include "NodeMap.h"
#include "RealText.h"
#include "UnicodeText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <vector>

namespace moxel {

namespace {

using detail::ContainerCursor;
using detail::NodeMap;

constexpr std::string_view head = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)";
constexpr std::string_view tail = "</plist>\n";

/// Shared containers are written wherever they stand, which can multiply a small graph beyond all measure. So
/// much text may repeat; a graph without sharing may have any size.
constexpr size_t maximumRepeatedSize = size_t{64} << 20;

/// Shorter text is no larger than a few references to it.
constexpr size_t longText = 64;

/// Deeper lines are not indented further, or the tabs of a deep tree would grow with the square of its depth.
constexpr size_t maximumIndentation = 32;

/// Lives for one call, on its thread.
class XMLWriter {
  public:
    [[nodiscard]] Result<std::string> write(const Value &root);

  private:
    struct OpenContainer {
        ContainerCursor members;
        bool isRepeated; ///< Written before, or part of something that was.
        size_t next = 0;
    };

    enum Progress : uint64_t { untouched, open, done };

    [[nodiscard]] bool writeNextMember();
    [[nodiscard]] bool writeKey(const String &key);
    [[nodiscard]] bool writeValue(const Value &value);
    [[nodiscard]] bool openContainer(const Value &value);
    [[nodiscard]] bool writeDate(Date date);
    [[nodiscard]] bool writeText(std::string_view tag, std::string_view text);
    [[nodiscard]] bool writeSpecial(std::string_view rest);
    void writeData(std::span<const uint8_t> bytes);
    void writeUID(UID uid);
    void closeContainer();
    void noteText(const detail::Node *node, size_t size);
    void writeElement(std::string_view tag, std::string_view content);
    void writeLine(std::string_view line);
    void indent() { text_.append(std::min(open_.size(), maximumIndentation), '\t'); }
    bool fail(const std::string &message);

    std::string text_;
    std::vector<OpenContainer> open_;
    NodeMap progress_; ///< Of containers and long text that may be met again.
    size_t repeatedSize_ = 0;
    std::string error_;
};

/// What has to be looked at before it goes into XML text: markup, control characters, and the lead bytes of
/// surrogates and of U+FFFE and U+FFFF.
constexpr bool isSpecial(char c) noexcept {
    const auto byte = static_cast<uint8_t>(c);
    return (byte < 0x20 && c != '\t' && c != '\n') || c == '&' || c == '<' || c == '>' || byte == 0xED ||
           byte == 0xEF;
}

template <class Integer>
std::string decimal(Integer integer) {
    char text[24];
    return {text, std::to_chars(text, text + sizeof text, integer).ptr};
}

std::string realText(double real) {
    if (std::isinf(real))
        return real > 0 ? "+infinity" : "-infinity";
    return detail::shortestRealText(real);
}

Result<std::string> XMLWriter::write(const Value &root) {
    text_ = head;
    if (!writeValue(root))
        return Error{error_};
    while (!open_.empty())
        if (!writeNextMember())
            return Error{error_};
    text_ += tail;
    return std::move(text_);
}

bool XMLWriter::fail(const std::string &message) {
    error_ = "XML property list: " + message;
    if (!open_.empty())
        error_ += " " + open_.back().members.place(open_.back().next - 1);
    return false;
}

/// Writes one member of the innermost open container, or closes it after the last.
bool XMLWriter::writeNextMember() {
    OpenContainer &container = open_.back();
    if (container.next == container.members.size()) {
        closeContainer();
        return true;
    }
    const ContainerCursor members = container.members;
    const bool isRepeated = container.isRepeated;
    const size_t index = container.next++;
    if (repeatedSize_ > maximumRepeatedSize)
        return fail("shared parts repeat for more than " + std::to_string(maximumRepeatedSize >> 20) +
                    " MiB,");
    const size_t sizeBefore = text_.size();
    if (members.isDictionary() && !writeKey(members.key(index)))
        return false;
    if (!writeValue(members.value(index)))
        return false;
    if (isRepeated)
        repeatedSize_ += text_.size() - sizeBefore;
    return true;
}

bool XMLWriter::writeKey(const String &key) {
    noteText(key.node(), key.view().size());
    return writeText("key", key.view());
}

bool XMLWriter::writeValue(const Value &value) {
    switch (value.kind()) {
    case Kind::null:
        return fail("null cannot be written; it stands");
    case Kind::object:
        return fail("records cannot be written; one stands");
    case Kind::boolean:
        writeLine(value.boolValue() ? "<true/>" : "<false/>");
        return true;
    case Kind::integer:
        writeElement("integer", decimal(value.int64Value()));
        return true;
    case Kind::unsignedInteger:
        writeElement("integer", decimal(value.uint64Value()));
        return true;
    case Kind::real:
        writeElement("real", realText(value.doubleValue()));
        return true;
    case Kind::date:
        return writeDate(value.asDate());
    case Kind::uid:
        writeUID(value.asUID());
        return true;
    case Kind::string:
        noteText(value.node(), value.asString().view().size());
        return writeText("string", value.asString().view());
    case Kind::data:
        noteText(value.node(), value.asData().size());
        writeData(value.asData().bytes());
        return true;
    case Kind::array:
    case Kind::dictionary:
        return openContainer(value);
    }
    return fail("a value of unknown kind stands"); // For compilers that do not count the cases.
}

bool XMLWriter::openContainer(const Value &value) {
    const ContainerCursor members(value);
    const bool isDictionary = members.isDictionary();
    if (members.size() == 0) {
        writeLine(isDictionary ? "<dict/>" : "<array/>");
        return true;
    }
    bool isRepeated = !open_.empty() && open_.back().isRepeated;
    // What is referred to once is met once.
    if (!members.node()->hasOneReference()) {
        uint64_t &progress = progress_.insert(members.node()).number;
        if (progress == Progress::open)
            return fail("a container holds itself");
        isRepeated = isRepeated || progress == Progress::done;
        progress = Progress::open;
    }
    writeLine(isDictionary ? "<dict>" : "<array>");
    open_.push_back({members, isRepeated});
    return true;
}

void XMLWriter::closeContainer() {
    const ContainerCursor members = open_.back().members;
    if (!members.node()->hasOneReference())
        progress_.insert(members.node()).number = Progress::done;
    open_.pop_back();
    writeLine(members.isDictionary() ? "</dict>" : "</array>");
}

/// Long text that stands in several places counts as repeated from the second on.
void XMLWriter::noteText(const detail::Node *node, size_t size) {
    if (size <= longText || node->hasOneReference())
        return;
    if (!progress_.insert(node).isNew)
        repeatedSize_ += size;
}

bool XMLWriter::writeDate(Date date) {
    const std::optional<std::string> text = detail::xmlTextFromDate(date);
    if (!text)
        return fail("a date that the calendar does not reach stands");
    writeElement("date", *text);
    return true;
}

/// As keyed archives in XML form have it.
void XMLWriter::writeUID(UID uid) {
    writeLine("<dict>");
    indent();
    text_ += "\t<key>CF$UID</key>\n";
    indent();
    text_ += "\t<integer>" + decimal(uid.index) + "</integer>\n";
    writeLine("</dict>");
}

/// Lines of up to 76 columns, tabs counted as eight; as Foundation, the lines move in no further than 8 tabs.
void XMLWriter::writeData(std::span<const uint8_t> bytes) {
    writeLine("<data>");
    const size_t tabs = std::min<size_t>(open_.size(), 8);
    const size_t bytesPerLine = (76 - 8 * tabs) / 4 * 3;
    for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), bytesPerLine))) {
        text_.append(tabs, '\t');
        detail::appendBase64(text_, bytes.first(std::min(bytes.size(), bytesPerLine)));
        text_ += '\n';
    }
    writeLine("</data>");
}

bool XMLWriter::writeText(std::string_view tag, std::string_view text) {
    indent();
    text_.append("<").append(tag).append(">");
    while (!text.empty()) {
        const auto special = std::ranges::find_if(text, isSpecial);
        const auto plain = static_cast<size_t>(special - text.begin());
        text_ += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        if (!writeSpecial(text))
            return false;
        text.remove_prefix(detail::decodeUTF8(text, detail::Surrogates::accepted).bytes);
    }
    text_.append("</").append(tag).append(">\n");
    return true;
}

/// Writes the first character, which is one that isSpecial() found.
bool XMLWriter::writeSpecial(std::string_view rest) {
    const detail::CodePoint character = detail::decodeUTF8(rest, detail::Surrogates::accepted);
    const char32_t value = character.value;
    if (value == '&') {
        text_ += "&amp;";
    } else if (value == '<') {
        text_ += "&lt;";
    } else if (value == '>') {
        text_ += "&gt;";
    } else if (value == '\r') {
        text_ += "&#13;"; // a bare one would be read as a line feed
    } else if (value < 0x20 || detail::isSurrogate(value) || value == 0xFFFE || value == 0xFFFF) {
        char name[16];
        std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(value));
        return fail("XML cannot hold the character " + std::string(name) + ", which stands");
    } else {
        text_ += rest.substr(0, character.bytes);
    }
    return true;
}

void XMLWriter::writeElement(std::string_view tag, std::string_view content) {
    indent();
    text_.append("<").append(tag).append(">").append(content).append("</").append(tag).append(">\n");
}

void XMLWriter::writeLine(std::string_view line) {
    indent();
    text_.append(line).append("\n");
}

} // namespace

Result<std::string> writeXMLPropertyList(const Value &root) { return XMLWriter().write(root); }

} // namespace moxel
