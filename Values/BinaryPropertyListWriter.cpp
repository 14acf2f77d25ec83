// Writes property lists in binary form.
#include "PropertyList.h"

#include "ContainerCursor.h"
#include "NodeMap.h"
#include "SipHash.h"
#include "UnicodeText.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <string_view>
#include <vector>

namespace moxel {

namespace {

using detail::ContainerCursor;
using detail::NodeMap;

/// The narrowest of 1, 2, 4 and 8 bytes that hold a number.
constexpr uint8_t widthOf(uint64_t number) noexcept {
    return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

/// One entry of the object table.
struct ObjectEntry {
    Kind kind = Kind::null;
    bool isOpen = false;    ///< A container some of whose members are still to be numbered.
    uint64_t number = 0;    ///< The bits of a scalar, the member count of a container.
    std::string_view bytes; ///< Of text and data, kept alive by the tree.

    bool operator==(const ObjectEntry &) const = default;
};

/// Finds entries of equal leaves by their contents. One thread at a time.
class LeafTable {
  public:
    /// The index of an entry of `objects` that equals the leaf; appends one when there is none.
    uint32_t findOrAppend(std::vector<ObjectEntry> &objects, const ObjectEntry &leaf) {
        if (2 * (count_ + 1) > slots_.size())
            grow();
        const uint32_t hash = hashOf(leaf);
        size_t slot = hash & (slots_.size() - 1);
        while (slots_[slot].position != 0) {
            if (slots_[slot].hash == hash && objects[slots_[slot].position - 1] == leaf)
                return slots_[slot].position - 1;
            slot = (slot + 1) & (slots_.size() - 1);
        }
        objects.push_back(leaf);
        slots_[slot] = {hash, static_cast<uint32_t>(objects.size())};
        ++count_;
        return static_cast<uint32_t>(objects.size() - 1);
    }

  private:
    struct Slot {
        uint32_t hash = 0;
        uint32_t position = 0; ///< Of the entry, counted from 1; 0 when the slot is free.
    };

    static uint32_t hashOf(const ObjectEntry &leaf) {
        const bool isText = leaf.kind == Kind::string || leaf.kind == Kind::data;
        const std::string_view number(reinterpret_cast<const char *>(&leaf.number), sizeof leaf.number);
        return static_cast<uint32_t>(
            detail::sipHash13(isText ? leaf.bytes : number, detail::SipHashKey::ofProcess()));
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
        old.swap(slots_);
        for (const Slot &moved : old) {
            size_t slot = moved.hash & (slots_.size() - 1);
            while (moved.position != 0 && slots_[slot].position != 0)
                slot = (slot + 1) & (slots_.size() - 1);
            if (moved.position != 0)
                slots_[slot] = moved;
        }
    }

    std::vector<Slot> slots_; ///< A power of two in size, at most half full.
    size_t count_ = 0;
};

/// Numbers the objects depth-first: a container, then its keys, then its values, each with all it holds.
/// Equal leaves share a number, and so does a container with itself wherever else it stands. Then writes the
/// objects in that order. Lives for one call, on its thread.
class BinaryWriter {
  public:
    [[nodiscard]] Result<Data> write(const Value &root);

  private:
    struct OpenContainer {
        ContainerCursor members;
        size_t object;
        size_t firstReference; ///< Where its references stand among all.
        size_t next = 0;       ///< The reference to fill in next.
    };

    [[nodiscard]] bool numberObjects(const Value &root);
    [[nodiscard]] bool numberNextMember();
    [[nodiscard]] bool numberValue(const Value &value, uint32_t &number);
    [[nodiscard]] uint32_t numberText(Kind kind, const detail::Node *node, std::string_view bytes);
    [[nodiscard]] bool numberContainer(const Value &value, uint32_t &number);
    void writeFile();
    void writeObject(const ObjectEntry &object, size_t referenceWidth);
    void writeText(std::string_view text);
    void writeInteger(int64_t integer);
    void writeCount(uint8_t type, size_t count);
    void writeReferences(size_t count, size_t width);
    void put(uint64_t number, size_t width);
    bool fail(const std::string &message);

    std::vector<ObjectEntry> objects_;
    std::vector<uint32_t> references_; ///< Of all containers, in the order of the containers.
    std::vector<OpenContainer> open_;
    NodeMap nodes_; ///< Numbers of containers and long text that may be met again.
    LeafTable leaves_;
    size_t nextReference_ = 0; ///< The reference to write next.
    std::vector<uint8_t> bytes_;
    std::string error_;
};

/// What a value of a kind that needs no memory comes to.
ObjectEntry entryOfScalar(const Value &value) noexcept {
    switch (value.kind()) {
    case Kind::real:
        return {Kind::real, false, std::bit_cast<uint64_t>(value.doubleValue()), {}};
    case Kind::date:
        return {Kind::date, false, std::bit_cast<uint64_t>(value.asDate().secondsSince2001), {}};
    case Kind::uid:
        return {Kind::uid, false, value.asUID().index, {}};
    case Kind::unsignedInteger:
        return {
            value.int64Value() < 0 ? Kind::unsignedInteger : Kind::integer, false, value.uint64Value(), {}};
    default:
        return {value.kind(), false, value.uint64Value(), {}};
    }
}

std::string_view viewOf(std::span<const uint8_t> bytes) noexcept {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

Result<Data> BinaryWriter::write(const Value &root) {
    if (!numberObjects(root))
        return Error{error_};
    writeFile();
    return Data(std::move(bytes_));
}

bool BinaryWriter::fail(const std::string &message) {
    error_ = "binary property list: " + message;
    if (!open_.empty()) {
        const ContainerCursor &members = open_.back().members;
        error_ += " " + members.place((open_.back().next - 1) % members.size());
    }
    return false;
}

bool BinaryWriter::numberObjects(const Value &root) {
    uint32_t top = 0;
    if (!numberValue(root, top))
        return false;
    while (!open_.empty())
        if (!numberNextMember())
            return false;
    return true;
}

/// Numbers one member of the innermost open container, or closes it after the last.
bool BinaryWriter::numberNextMember() {
    OpenContainer &container = open_.back();
    const ContainerCursor &members = container.members;
    const size_t index = container.next++;
    const size_t reference = container.firstReference + index;
    uint32_t number = 0;
    if (members.isDictionary() && index < members.size()) {
        const String &key = members.key(index);
        number = numberText(Kind::string, key.node(), key.view());
    } else if (index < (members.isDictionary() ? 2 : 1) * members.size()) {
        if (!numberValue(members.value(index % members.size()), number))
            return false;
    } else {
        objects_[container.object].isOpen = false;
        open_.pop_back();
        return true;
    }
    references_[reference] = number;
    return true;
}

bool BinaryWriter::numberValue(const Value &value, uint32_t &number) {
    if (objects_.size() >= std::numeric_limits<uint32_t>::max() - 1)
        return fail("too many objects"); // More than a test has memory for.
    switch (value.kind()) {
    case Kind::null:
        return fail("null cannot be written; it stands");
    case Kind::object:
        return fail("records cannot be written; one stands");
    case Kind::array:
    case Kind::dictionary:
        return numberContainer(value, number);
    case Kind::string:
        number = numberText(Kind::string, value.node(), value.asString().view());
        return true;
    case Kind::data:
        number = numberText(Kind::data, value.node(), viewOf(value.asData().bytes()));
        return true;
    default:
        number = leaves_.findOrAppend(objects_, entryOfScalar(value));
        return true;
    }
}

/// Long text is looked at once, however often it is shared.
uint32_t BinaryWriter::numberText(Kind kind, const detail::Node *node, std::string_view bytes) {
    constexpr size_t longText = 64;
    if (bytes.size() <= longText || node->hasOneReference())
        return leaves_.findOrAppend(objects_, {kind, false, 0, bytes});
    const NodeMap::Place place = nodes_.insert(node);
    if (place.isNew)
        place.number = leaves_.findOrAppend(objects_, {kind, false, 0, bytes});
    return static_cast<uint32_t>(place.number);
}

bool BinaryWriter::numberContainer(const Value &value, uint32_t &number) {
    number = static_cast<uint32_t>(objects_.size());
    // What is referred to once is met once.
    if (!value.node()->hasOneReference()) {
        const NodeMap::Place place = nodes_.insert(value.node());
        if (!place.isNew) {
            number = static_cast<uint32_t>(place.number);
            return !objects_[number].isOpen || fail("a container holds itself");
        }
        place.number = number;
    }
    const ContainerCursor members(value);
    objects_.push_back({value.kind(), true, members.size(), {}});
    open_.push_back({members, number, references_.size()});
    references_.resize(references_.size() + (members.isDictionary() ? 2 : 1) * members.size());
    return true;
}

void BinaryWriter::writeFile() {
    const size_t referenceWidth = widthOf(objects_.size());
    size_t expectedSize = 64 + references_.size() * referenceWidth;
    for (const ObjectEntry &object : objects_)
        expectedSize += 16 + object.bytes.size();
    bytes_.reserve(expectedSize);

    constexpr std::string_view magic = "bplist00";
    bytes_.assign(magic.begin(), magic.end());
    std::vector<uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const ObjectEntry &object : objects_) {
        offsets.push_back(bytes_.size());
        writeObject(object, referenceWidth);
    }
    const size_t tableStart = bytes_.size();
    const size_t offsetWidth = widthOf(tableStart);
    for (const uint64_t offset : offsets)
        put(offset, offsetWidth);
    put(0, 6);
    put(offsetWidth, 1);
    put(referenceWidth, 1);
    put(objects_.size(), 8);
    put(0, 8); // the top object
    put(tableStart, 8);
}

void BinaryWriter::writeObject(const ObjectEntry &object, size_t referenceWidth) {
    switch (object.kind) {
    case Kind::boolean:
        return put(object.number ? 0x09 : 0x08, 1);
    case Kind::integer:
        return writeInteger(static_cast<int64_t>(object.number));
    case Kind::unsignedInteger:
        put(0x14, 1);
        put(0, 8);
        return put(object.number, 8);
    case Kind::real:
        put(0x23, 1);
        return put(object.number, 8);
    case Kind::date:
        put(0x33, 1);
        return put(object.number, 8);
    case Kind::uid:
        put(0x80u + widthOf(object.number) - 1u, 1);
        return put(object.number, widthOf(object.number));
    case Kind::string:
        return writeText(object.bytes);
    case Kind::data:
        writeCount(0x4, object.bytes.size());
        bytes_.insert(bytes_.end(), object.bytes.begin(), object.bytes.end());
        return;
    case Kind::array:
        writeCount(0xA, object.number);
        return writeReferences(object.number, referenceWidth);
    case Kind::dictionary:
        writeCount(0xD, object.number);
        return writeReferences(2 * object.number, referenceWidth);
    case Kind::null:
    case Kind::object:
        break; // Refused when objects are numbered; never comes here.
    }
}

void BinaryWriter::writeText(std::string_view text) {
    if (std::ranges::all_of(text, [](char c) { return static_cast<uint8_t>(c) < 0x80; })) {
        writeCount(0x5, text.size());
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        return;
    }
    const std::u16string units = detail::decodedUTF16(text);
    writeCount(0x6, units.size());
    for (const char16_t unit : units)
        put(unit, 2);
}

void BinaryWriter::writeInteger(int64_t integer) {
    const size_t width = widthOf(static_cast<uint64_t>(integer)); // 8 for negative ones
    put(0x10u + static_cast<unsigned>(std::countr_zero(width)), 1);
    put(static_cast<uint64_t>(integer), width);
}

void BinaryWriter::writeCount(uint8_t type, size_t count) {
    put(static_cast<uint64_t>(type) << 4 | std::min<size_t>(count, 0xF), 1);
    if (count >= 0xF)
        writeInteger(static_cast<int64_t>(count));
}

void BinaryWriter::writeReferences(size_t count, size_t width) {
    for (size_t i = 0; i < count; ++i)
        put(references_[nextReference_++], width);
}

/// The low bytes of a number, the highest first.
void BinaryWriter::put(uint64_t number, size_t width) {
    for (size_t i = width; i-- > 0;)
        bytes_.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

} // namespace

Result<Data> writeBinaryPropertyList(const Value &root) { return BinaryWriter().write(root); }

} // namespace moxel
