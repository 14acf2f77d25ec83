// Reads property lists in XML form.
#include "PropertyList.h"

#include "Base64.h"
#include "ContainerBuilder.h"
#include "DateText.h"
#include "NumberText.h"
#include "TextEncoding.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <expat.h>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <vector>

namespace moxel {

namespace {

using detail::ContainerBuilder;

enum class Element : uint8_t {
    plist,
    array,
    dictionary,
    key,
    string,
    data,
    date,
    real,
    integer,
    trueValue,
    falseValue,
    unknown,
};

/// In the order of the enumerators.
constexpr std::array<std::string_view, 11> elementNames = {
    "plist", "array", "dict", "key", "string", "data", "date", "real", "integer", "true", "false",
};

constexpr std::string_view nameOf(Element element) noexcept {
    return elementNames[static_cast<size_t>(element)];
}

/// The letters of a name as one number; only of up to eight.
constexpr uint64_t lettersOf(std::string_view name) noexcept {
    uint64_t letters = 0;
    for (const char letter : name)
        letters = letters << 8 | static_cast<uint8_t>(letter);
    return letters;
}

Element elementNamed(std::string_view name) noexcept {
    if (name.size() > 8)
        return Element::unknown;
    switch (lettersOf(name)) {
    case lettersOf("plist"):
        return Element::plist;
    case lettersOf("array"):
        return Element::array;
    case lettersOf("dict"):
        return Element::dictionary;
    case lettersOf("key"):
        return Element::key;
    case lettersOf("string"):
        return Element::string;
    case lettersOf("data"):
        return Element::data;
    case lettersOf("date"):
        return Element::date;
    case lettersOf("real"):
        return Element::real;
    case lettersOf("integer"):
        return Element::integer;
    case lettersOf("true"):
        return Element::trueValue;
    case lettersOf("false"):
        return Element::falseValue;
    default:
        return Element::unknown;
    }
}

constexpr bool isContainer(Element element) noexcept { return element <= Element::dictionary; }

/// A property list declares no attributes of its own; every declared default costs time at every element.
constexpr size_t maximumAttributeDeclarations = 16;

/// Nothing outside the bytes is ever opened, and entities cannot be declared, so text has no way to grow.
/// Lives for one call, on its thread.
class XMLReader {
  public:
    explicit XMLReader(Mutability mutability) : builder_(mutability) {}

    [[nodiscard]] Result<Value> read(std::span<const uint8_t> bytes);

  private:
    [[nodiscard]] bool parse(std::string_view text);
    void installHandlers();
    void startElement(std::string_view name);
    void endElement();
    void characters(std::string_view text);
    void declareAttribute();
    void finishLeaf();
    void finishContainer();
    void finishPlist(const Array &content);
    void add(Value value);
    void fail(const std::string &message);
    void failInParser();
    [[nodiscard]] bool hasFailed() const noexcept { return isOutOfMemory_ || !error_.empty(); }
    [[nodiscard]] Error failure() const;

    /// Lets no exception into the parser, whose frames are C.
    template <class Body>
    static void handle(void *reader, Body &&body) noexcept;

    using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

    Parser parser_{nullptr, XML_ParserFree};
    ContainerBuilder builder_; ///< A plist element is built as an array of the values in it.
    std::vector<Element> open_;
    std::string text_; ///< Of the open element that is not a container.
    size_t attributeDeclarations_ = 0;
    size_t firstLine_ = 0; ///< The line of the bytes on which the parser's text begins.
    Value root_;
    std::string error_;
    bool isOutOfMemory_ = false; ///< Nothing is known to be wrong with the bytes.
};

template <class Body>
void XMLReader::handle(void *reader, Body &&body) noexcept {
    XMLReader &self = *static_cast<XMLReader *>(reader);
    if (self.hasFailed())
        return;
    try {
        body(self);
    } catch (const std::bad_alloc &) { // Sessions with faults come here; the suite has memory.
        self.isOutOfMemory_ = true;
        XML_StopParser(self.parser_.get(), XML_FALSE);
    }
}

Error XMLReader::failure() const {
    return isOutOfMemory_ ? Error{"XML property list: out of memory", ENOMEM} : Error{error_};
}

Result<Value> XMLReader::read(std::span<const uint8_t> bytes) {
    std::string storage;
    const Result<std::string_view> decoded = detail::decodedText(bytes, storage);
    if (!decoded)
        return Error{"XML property list: " + decoded.error().message};
    // The standard wants the XML declaration at the very start; some writers leave white space before it.
    const std::string_view text = *decoded;
    const size_t start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    firstLine_ = static_cast<size_t>(std::ranges::count(text.substr(0, start), '\n'));
    // What was converted is UTF-8 by now, whatever it declares.
    const detail::DetectedEncoding detected = detail::detectTextEncoding(bytes);
    const bool isConverted = detected.encoding != detail::TextEncoding::bytes;
    const bool hasMark = detected.markSize > 0;
    parser_.reset(XML_ParserCreate(isConverted || hasMark ? "UTF-8" : nullptr));
    if (!parser_) // As above.
        return Error{"XML property list: out of memory", ENOMEM};
    installHandlers();
    if (!parse(text.substr(start)))
        return failure();
    return std::move(root_);
}

bool XMLReader::parse(std::string_view text) {
    // The parser counts in int. One piece, where that is possible, is parsed in place.
    constexpr size_t largestPiece = std::numeric_limits<int>::max() / 2;
    bool isLast = false;
    while (!isLast) {
        const std::string_view piece = text.substr(0, largestPiece);
        text.remove_prefix(piece.size());
        isLast = text.empty();
        if (XML_Parse(parser_.get(), piece.data(), static_cast<int>(piece.size()), isLast) == XML_STATUS_OK)
            continue;
        if (!hasFailed())
            failInParser();
        return false;
    }
    return !hasFailed();
}

void XMLReader::installHandlers() {
    XML_Parser parser = parser_.get();
    XML_SetUserData(parser, this);
    XML_SetStartElementHandler(parser, [](void *reader, const char *name, const char **) {
        handle(reader, [name](XMLReader &self) { self.startElement(name); });
    });
    XML_SetEndElementHandler(parser, [](void *reader, const char *) {
        handle(reader, [](XMLReader &self) { self.endElement(); });
    });
    XML_SetCharacterDataHandler(parser, [](void *reader, const char *text, int length) {
        handle(reader, [&](XMLReader &self) { self.characters({text, static_cast<size_t>(length)}); });
    });
    XML_SetEntityDeclHandler(parser, [](void *reader, const char *name, int, const char *, int, const char *,
                                        const char *, const char *, const char *) {
        handle(reader, [name](XMLReader &self) {
            self.fail("entity \"" + std::string(name) + "\" is declared, which is not supported,");
        });
    });
    // Called for entities that a DTD, which is never read, might have declared.
    XML_SetSkippedEntityHandler(parser, [](void *reader, const char *name, int) {
        handle(reader,
               [name](XMLReader &self) { self.fail("unknown entity \"" + std::string(name) + "\""); });
    });
    XML_SetAttlistDeclHandler(parser,
                              [](void *reader, const char *, const char *, const char *, const char *, int) {
                                  handle(reader, [](XMLReader &self) { self.declareAttribute(); });
                              });
}

void XMLReader::fail(const std::string &message) {
    if (hasFailed()) // The parser has run out of memory.
        return;
    error_ = "XML property list: " + message + " at line " +
             std::to_string(firstLine_ + XML_GetCurrentLineNumber(parser_.get())) + ", column " +
             std::to_string(XML_GetCurrentColumnNumber(parser_.get()));
    XML_StopParser(parser_.get(), XML_FALSE);
}

void XMLReader::failInParser() {
    const XML_Error error = XML_GetErrorCode(parser_.get());
    isOutOfMemory_ = error == XML_ERROR_NO_MEMORY;
    fail(XML_ErrorString(error));
}

void XMLReader::declareAttribute() {
    if (++attributeDeclarations_ > maximumAttributeDeclarations)
        fail("too many attributes are declared");
}

void XMLReader::startElement(std::string_view name) {
    const Element element = elementNamed(name);
    if (element == Element::unknown)
        return fail("unknown element <" + std::string(name) + ">");
    if (!open_.empty() && !isContainer(open_.back()))
        return fail("<" + std::string(name) + "> stands in <" + std::string(nameOf(open_.back())) + ">");
    const bool isInDictionary = !open_.empty() && open_.back() == Element::dictionary;
    if (element == Element::key && (!isInDictionary || builder_.awaitsValue()))
        return fail("<key> stands where a value belongs");
    if (element != Element::key && isInDictionary && !builder_.awaitsValue())
        return fail("<" + std::string(name) + "> stands where a key belongs");
    open_.push_back(element);
    text_.clear();
    if (element == Element::dictionary)
        builder_.openDictionary();
    else if (isContainer(element))
        builder_.openArray();
}

void XMLReader::characters(std::string_view text) {
    if (open_.empty()) // The parser reports none outside the root; nothing shall depend on that.
        return;
    if (!isContainer(open_.back()))
        text_ += text;
    else if (!detail::trimmed(text).empty())
        fail("text stands in <" + std::string(nameOf(open_.back())) + ">");
}

void XMLReader::endElement() {
    if (isContainer(open_.back()))
        finishContainer();
    else
        finishLeaf();
    if (!open_.empty())
        open_.pop_back();
}

void XMLReader::finishLeaf() {
    const Element element = open_.back();
    const std::string_view trimmed = detail::trimmed(text_);
    Value value;
    switch (element) {
    case Element::key:
        return builder_.setKey(std::string_view(text_));
    case Element::string:
        return add(text_);
    case Element::trueValue:
    case Element::falseValue:
        if (trimmed.empty())
            value = element == Element::trueValue;
        break;
    case Element::integer:
        value = detail::integerFromText(trimmed);
        break;
    case Element::real:
        if (const std::optional<double> real = detail::realFromText(trimmed))
            value = *real;
        break;
    case Element::date:
        if (const std::optional<Date> date = detail::dateFromXMLText(trimmed))
            value = *date;
        break;
    default:
        if (std::optional<std::vector<uint8_t>> bytes = detail::bytesFromBase64(text_))
            value = Data(std::move(*bytes));
        break;
    }
    if (value.isNull())
        return fail("<" + std::string(nameOf(element)) + "> holds something else");
    add(std::move(value));
}

void XMLReader::finishContainer() {
    if (builder_.awaitsValue())
        return fail("a key has no value");
    const Value container = builder_.close();
    if (open_.back() == Element::plist)
        return finishPlist(container.asArray());
    const Dictionary dictionary = container.asDictionary();
    if (dictionary.size() != 1)
        return add(container);
    // So keyed archives in XML form write a UID.
    const Value &uid = dictionary["CF$UID"];
    const bool isUID =
        uid.kind() == Kind::unsignedInteger || (uid.kind() == Kind::integer && uid.int64Value() >= 0);
    add(isUID ? Value(UID{uid.uint64Value()}) : container);
}

void XMLReader::finishPlist(const Array &content) {
    const bool isOutermost = open_.size() == 1;
    if (content.size() > 1 || (content.empty() && !isOutermost))
        return fail("<plist> holds " + std::to_string(content.size()) + " values");
    add(content[0]);
}

void XMLReader::add(Value value) {
    if (builder_.depth() == 0)
        root_ = std::move(value);
    else
        builder_.add(std::move(value));
}

} // namespace

Result<Value> readXMLPropertyList(std::span<const uint8_t> bytes, Mutability mutability) {
    return XMLReader(mutability).read(bytes);
}

} // namespace moxel
