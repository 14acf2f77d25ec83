// Reads property lists in binary form.
#include "PropertyList.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <vector>

namespace moxel {

namespace {

constexpr size_t headerSize = 8;
constexpr size_t trailerSize = 32;

/// A number of up to eight bytes.
uint64_t bigEndian(std::span<const uint8_t> bytes) noexcept {
    uint64_t number = 0;
    for (const uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

/// Decodes every object once, however often it is referred to, and only those that the top object leads to.
/// All memory is in proportion to the bytes: objects may not overlap, so their sizes never add up to more
/// than the file has. Lives for one call, on its thread.
class BinaryReader {
  public:
    BinaryReader(std::span<const uint8_t> bytes, Mutability mutability) noexcept
        : bytes_(bytes), mutability_(mutability) {}

    [[nodiscard]] Result<Value> read();

  private:
    enum class State : uint8_t { unread, open, done };

    /// A container some of whose members are still to be read.
    struct OpenContainer {
        size_t object;
        Kind kind;
        size_t count;      ///< Of values; a dictionary has as many keys.
        size_t references; ///< Where the first reference stands.
        size_t next = 0;   ///< The reference to follow next.
    };

    [[nodiscard]] bool readTrailer();
    [[nodiscard]] bool beginObject(size_t object);
    [[nodiscard]] bool readContent(size_t object, uint8_t marker);
    [[nodiscard]] bool readSingleByte(uint8_t marker, Value &value);
    [[nodiscard]] bool readInteger(uint8_t widthExponent, Value &value);
    [[nodiscard]] bool readReal(uint8_t widthExponent, Value &value);
    [[nodiscard]] bool readDate(uint8_t widthExponent, Value &value);
    [[nodiscard]] bool readUID(size_t width, Value &value);
    [[nodiscard]] bool readText(uint8_t marker, Value &value);
    [[nodiscard]] bool readCount(uint8_t lowHalf, size_t &count);
    [[nodiscard]] bool takeBytes(size_t count, size_t width, std::span<const uint8_t> &taken);
    [[nodiscard]] bool beginContainer(size_t object, Kind kind, uint8_t lowHalf);
    [[nodiscard]] bool readContainers();
    [[nodiscard]] bool follow(OpenContainer &container);
    [[nodiscard]] Value makeArray(const OpenContainer &container);
    [[nodiscard]] Value makeDictionary(const OpenContainer &container);
    [[nodiscard]] Value makeDictionaryOfFirstKeys(const OpenContainer &container);
    [[nodiscard]] String textOfASCII(std::span<const uint8_t> characters);
    [[nodiscard]] String textOfUTF16(std::span<const uint8_t> units);

    [[nodiscard]] size_t referenceAt(const OpenContainer &container, size_t index) const noexcept {
        const size_t at = container.references + index * referenceWidth_;
        return static_cast<size_t>(bigEndian(bytes_.subspan(at, referenceWidth_)));
    }
    bool fail(const std::string &message);

    const std::span<const uint8_t> bytes_;
    const Mutability mutability_;
    size_t offsetWidth_ = 0;
    size_t referenceWidth_ = 0;
    size_t objectCount_ = 0;
    size_t topObject_ = 0;
    size_t tableStart_ = 0; ///< Where the objects end and the table of their offsets begins.
    size_t at_ = 0;         ///< The byte to read next.
    size_t bytesRead_ = 0;  ///< Sum of the sizes of all objects read so far.
    std::vector<Value> objects_;
    std::vector<State> states_;
    std::vector<OpenContainer> open_;
    std::vector<char16_t> units_;
    std::string error_;
};

bool BinaryReader::fail(const std::string &message) {
    error_ = "binary property list: " + message + " at byte " + std::to_string(at_);
    return false;
}

Result<Value> BinaryReader::read() {
    if (!readTrailer())
        return Error{error_};
    objects_.resize(objectCount_);
    states_.resize(objectCount_, State::unread);
    if (!beginObject(topObject_) || !readContainers())
        return Error{error_};
    return std::move(objects_[topObject_]);
}

bool BinaryReader::readTrailer() {
    constexpr std::string_view magic = "bplist0"; // then a minor version of any kind
    if (bytes_.size() < headerSize + trailerSize + 2)
        return fail("too short");
    if (!std::equal(magic.begin(), magic.end(), bytes_.begin()))
        return fail("not of version 0");
    const size_t trailer = bytes_.size() - trailerSize;
    at_ = trailer;
    const auto field = [&](size_t index) { return bigEndian(bytes_.subspan(trailer + 8 + 8 * index, 8)); };
    offsetWidth_ = bytes_[trailer + 6];
    referenceWidth_ = bytes_[trailer + 7];
    if (offsetWidth_ < 1 || offsetWidth_ > 8 || referenceWidth_ < 1 || referenceWidth_ > 8)
        return fail("offsets or references are not 1 to 8 bytes wide");
    const uint64_t tableStart = field(2);
    if (tableStart <= headerSize || tableStart >= trailer)
        return fail("the offset table lies outside");
    tableStart_ = static_cast<size_t>(tableStart);
    const size_t tableSize = trailer - tableStart_;
    if (tableSize % offsetWidth_ != 0 || field(0) != tableSize / offsetWidth_)
        return fail("the offset table does not fit the number of objects");
    objectCount_ = static_cast<size_t>(field(0));
    if (field(1) >= objectCount_)
        return fail("there is no object that the trailer calls the top one");
    topObject_ = static_cast<size_t>(field(1));
    return true;
}

/// Reads a scalar whole; of a container only how many members it has.
bool BinaryReader::beginObject(size_t object) {
    at_ = tableStart_ + object * offsetWidth_;
    const uint64_t offset = bigEndian(bytes_.subspan(at_, offsetWidth_));
    if (offset < headerSize || offset >= tableStart_)
        return fail("an object's offset lies outside");
    const auto start = static_cast<size_t>(offset);
    const uint8_t marker = bytes_[start];
    at_ = start + 1;

    if (!readContent(object, marker))
        return false;
    bytesRead_ += at_ - start;
    if (bytesRead_ > tableStart_ - headerSize)
        return fail("objects overlap");
    if (states_[object] != State::open)
        states_[object] = State::done;
    return true;
}

bool BinaryReader::readContent(size_t object, uint8_t marker) {
    const uint8_t lowHalf = marker & 0xF;
    Value &value = objects_[object];
    switch (marker >> 4) {
    case 0x0:
        return readSingleByte(marker, value);
    case 0x1:
        return readInteger(lowHalf, value);
    case 0x2:
        return readReal(lowHalf, value);
    case 0x3:
        return readDate(lowHalf, value);
    case 0x4:
    case 0x5:
    case 0x6:
        return readText(marker, value);
    case 0x8:
        return readUID(lowHalf + size_t{1}, value);
    case 0xA:
        return beginContainer(object, Kind::array, lowHalf);
    case 0xB:
    case 0xC:
        return fail("a set, which is not supported,");
    case 0xD:
        return beginContainer(object, Kind::dictionary, lowHalf);
    default:
        return fail("an object of unknown type " + std::to_string(marker));
    }
}

bool BinaryReader::readSingleByte(uint8_t marker, Value &value) {
    if (marker == 0x08 || marker == 0x09)
        value = marker == 0x09;
    else if (marker != 0x00)
        return fail("an object of unknown type " + std::to_string(marker));
    return true;
}

/// Up to four bytes are unsigned, eight and sixteen signed.
bool BinaryReader::readInteger(uint8_t widthExponent, Value &value) {
    if (widthExponent > 4)
        return fail("an integer is wider than 16 bytes");
    std::span<const uint8_t> bytes;
    if (!takeBytes(size_t{1} << widthExponent, 1, bytes))
        return false;
    const uint64_t low = bigEndian(bytes.last(std::min<size_t>(bytes.size(), 8)));
    if (widthExponent < 4) {
        value = static_cast<int64_t>(low);
        return true;
    }
    const auto high = static_cast<int64_t>(bigEndian(bytes.first(8)));
    const auto signedLow = static_cast<int64_t>(low);
    if (high != 0 && (high != -1 || signedLow >= 0))
        return fail("an integer has more than 64 bits");
    value = high == 0 && signedLow < 0 ? Value(low) : Value(signedLow);
    return true;
}

bool BinaryReader::readReal(uint8_t widthExponent, Value &value) {
    if (widthExponent != 2 && widthExponent != 3)
        return fail("a real number is not 4 or 8 bytes wide");
    std::span<const uint8_t> bytes;
    if (!takeBytes(size_t{1} << widthExponent, 1, bytes))
        return false;
    const uint64_t bits = bigEndian(bytes);
    value = widthExponent == 2 ? Value(std::bit_cast<float>(static_cast<uint32_t>(bits)))
                               : Value(std::bit_cast<double>(bits));
    return true;
}

bool BinaryReader::readDate(uint8_t widthExponent, Value &value) {
    if (widthExponent != 3)
        return fail("a date is not 8 bytes wide");
    std::span<const uint8_t> bytes;
    if (!takeBytes(8, 1, bytes))
        return false;
    value = Date{std::bit_cast<double>(bigEndian(bytes))};
    return true;
}

bool BinaryReader::readUID(size_t width, Value &value) {
    std::span<const uint8_t> bytes;
    if (!takeBytes(width, 1, bytes))
        return false;
    const size_t low = std::min<size_t>(width, 8);
    if (std::ranges::any_of(bytes.first(width - low), [](uint8_t byte) { return byte != 0; }))
        return fail("a UID has more than 64 bits");
    value = UID{bigEndian(bytes.last(low))};
    return true;
}

/// Data, ASCII or UTF-16.
bool BinaryReader::readText(uint8_t marker, Value &value) {
    size_t count = 0;
    std::span<const uint8_t> bytes;
    if (!readCount(marker & 0xF, count) || !takeBytes(count, marker >> 4 == 0x6 ? 2 : 1, bytes))
        return false;
    if (marker >> 4 == 0x4)
        value = Data(bytes);
    else
        value = marker >> 4 == 0x5 ? textOfASCII(bytes) : textOfUTF16(bytes);
    return true;
}

/// The count in a marker's low half, or in the integer that follows it.
bool BinaryReader::readCount(uint8_t lowHalf, size_t &count) {
    count = lowHalf;
    if (count < 0xF)
        return true;
    if (at_ >= tableStart_ || bytes_[at_] >> 4 != 0x1)
        return fail("a count is not an integer");
    const uint8_t widthExponent = bytes_[at_++] & 0xF;
    Value value;
    if (!readInteger(widthExponent, value))
        return false;
    // Nothing can have as many members as the file has bytes, so what is out of bounds stops right here.
    if (value.kind() != Kind::integer || value.int64Value() < 0 ||
        static_cast<uint64_t>(value.int64Value()) > bytes_.size())
        return fail("a count is larger than the file");
    count = static_cast<size_t>(value.int64Value());
    return true;
}

bool BinaryReader::takeBytes(size_t count, size_t width, std::span<const uint8_t> &taken) {
    if (count > (tableStart_ - at_) / width)
        return fail("an object reaches into the offset table");
    taken = bytes_.subspan(at_, count * width);
    at_ += taken.size();
    return true;
}

bool BinaryReader::beginContainer(size_t object, Kind kind, uint8_t lowHalf) {
    size_t count = 0;
    if (!readCount(lowHalf, count))
        return false;
    const size_t references = at_;
    std::span<const uint8_t> content;
    if (!takeBytes(count, referenceWidth_ * (kind == Kind::dictionary ? 2 : 1), content))
        return false;
    open_.push_back({object, kind, count, references});
    states_[object] = State::open;
    return true;
}

/// Reads the members of the innermost open container, then makes it, until none is open.
bool BinaryReader::readContainers() {
    while (!open_.empty()) {
        OpenContainer &container = open_.back();
        const size_t references = container.kind == Kind::dictionary ? 2 * container.count : container.count;
        const size_t depth = open_.size();
        while (container.next < references) {
            if (!follow(container))
                return false;
            if (open_.size() != depth)
                break;
        }
        if (open_.size() != depth)
            continue;
        objects_[container.object] =
            container.kind == Kind::array ? makeArray(container) : makeDictionary(container);
        states_[container.object] = State::done;
        open_.pop_back();
    }
    return true;
}

/// Reads what the next reference stands for; may open another container, which moves this one in memory.
bool BinaryReader::follow(OpenContainer &container) {
    const size_t index = container.next++;
    const bool isKey = container.kind == Kind::dictionary && index < container.count;
    const size_t position = container.references + index * referenceWidth_;
    const size_t object = referenceAt(container, index);
    at_ = position;
    if (object >= objectCount_)
        return fail("a reference to object " + std::to_string(object) + ", which does not exist,");
    if (states_[object] == State::open)
        return fail("a container holds itself");
    if (states_[object] == State::unread && !beginObject(object))
        return false;
    at_ = position;
    if (isKey && objects_[object].kind() != Kind::string)
        return fail("a key is not a string");
    return true;
}

Value BinaryReader::makeArray(const OpenContainer &container) {
    if (mutability_ == Mutability::mutableContainers) {
        MutableArray array = MutableArray::withCapacity(container.count);
        for (size_t i = 0; i < container.count; ++i)
            array.append(objects_[referenceAt(container, i)]);
        return array;
    }
    std::vector<Value> values;
    values.reserve(container.count);
    for (size_t i = 0; i < container.count; ++i)
        values.push_back(objects_[referenceAt(container, i)]);
    return Array(std::move(values));
}

Value BinaryReader::makeDictionary(const OpenContainer &container) {
    if (mutability_ == Mutability::mutableContainers)
        return makeDictionaryOfFirstKeys(container);
    std::vector<Dictionary::Entry> entries;
    entries.reserve(container.count);
    for (size_t i = 0; i < container.count; ++i)
        entries.push_back({objects_[referenceAt(container, i)].asString(),
                           objects_[referenceAt(container, container.count + i)]});
    const Dictionary dictionary(std::move(entries));
    return dictionary.size() == container.count ? dictionary
                                                : makeDictionaryOfFirstKeys(container).asDictionary();
}

/// Of two values under one key the first counts.
Value BinaryReader::makeDictionaryOfFirstKeys(const OpenContainer &container) {
    MutableDictionary dictionary = MutableDictionary::withCapacity(container.count);
    for (size_t i = 0; i < container.count; ++i) {
        const String key = objects_[referenceAt(container, i)].asString();
        if (!dictionary.contains(key.view()))
            dictionary.set(key, objects_[referenceAt(container, container.count + i)]);
    }
    return mutability_ == Mutability::mutableContainers ? Dictionary(dictionary) : dictionary.copy();
}

/// Bytes above 0x7F, which some writers leave in, are taken as Latin-1.
String BinaryReader::textOfASCII(std::span<const uint8_t> characters) {
    if (std::ranges::all_of(characters, [](uint8_t byte) { return byte < 0x80; }))
        return std::string_view(reinterpret_cast<const char *>(characters.data()), characters.size());
    units_.assign(characters.begin(), characters.end());
    return String::fromUTF16(units_);
}

String BinaryReader::textOfUTF16(std::span<const uint8_t> units) {
    units_.clear();
    for (size_t i = 0; i < units.size(); i += 2)
        units_.push_back(static_cast<char16_t>(units[i] << 8 | units[i + 1]));
    return String::fromUTF16(units_);
}

} // namespace

Result<Value> readBinaryPropertyList(std::span<const uint8_t> bytes, Mutability mutability) {
    return BinaryReader(bytes, mutability).read();
}

} // namespace moxel
