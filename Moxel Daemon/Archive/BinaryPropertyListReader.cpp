#include "Moxel Daemon/Archive/BinaryPropertyListReader.h"

#include "Moxel Daemon/Archive/Unicode.h"

#include <bit>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace moxel::daemon {

namespace {

constexpr std::string_view magic = "bplist00";
constexpr size_t trailerSize = 32;

/// Where an object's content lies: its marker, the count that the marker tells, and where it starts.
struct Head {
    uint8_t type = 0;   ///< High nibble of the marker.
    uint8_t detail = 0; ///< Low nibble of the marker.
    size_t count = 0;
    size_t start = 0;
};

class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    Result<PropertyListTable> read() {
        if (!readTrailer())
            return failure();
        PropertyListTable table;
        table.top = top_;
        table.objects.reserve(objectCount_);
        for (size_t index = 0; index < objectCount_; ++index) {
            std::optional<PropertyListObject> object = readObject(index);
            if (!object)
                return failure();
            table.objects.push_back(std::move(*object));
        }
        if (!checkKeys(table))
            return failure();
        return table;
    }

  private:
    Error failure() const { return {"not a binary property list: " + reason_, 0}; }
    bool refuse(std::string reason) {
        reason_ = std::move(reason);
        return false;
    }
    std::nullopt_t refuseObject(size_t index, const char *reason) {
        reason_ = "object " + std::to_string(index) + " " + reason;
        return std::nullopt;
    }

    /// A big-endian number of 1 to 8 bytes that lies inside the bytes.
    uint64_t number(size_t offset, size_t width) const {
        uint64_t result = 0;
        for (size_t index = 0; index < width; ++index)
            result = result << 8 | bytes_[offset + index];
        return result;
    }

    bool readTrailer() {
        if (bytes_.size() < magic.size() + trailerSize + 2)
            return refuse("too short");
        if (std::memcmp(bytes_.data(), magic.data(), magic.size()) != 0)
            return refuse("wrong magic");
        const size_t trailer = bytes_.size() - trailerSize;
        offsetWidth_ = bytes_[trailer + 6];
        referenceWidth_ = bytes_[trailer + 7];
        const uint64_t count = number(trailer + 8, 8);
        const uint64_t top = number(trailer + 16, 8);
        const uint64_t offsets = number(trailer + 24, 8);
        if (offsetWidth_ < 1 || offsetWidth_ > 8 || referenceWidth_ < 1 || referenceWidth_ > 8)
            return refuse("widths out of range");
        if (offsets < magic.size() + 1 || offsets >= trailer)
            return refuse("offset table out of range");
        if (count == 0 || count > (trailer - offsets) / offsetWidth_)
            return refuse("more objects than the offset table holds");
        if (top >= count)
            return refuse("top object out of range");
        objectCount_ = static_cast<size_t>(count);
        top_ = static_cast<size_t>(top);
        offsets_ = static_cast<size_t>(offsets);
        unreadBytes_ = offsets_ - magic.size();
        return true;
    }

    std::optional<PropertyListObject> readObject(size_t index) {
        const std::optional<Head> head = readHead(index);
        if (!head)
            return std::nullopt;
        return readContent(index, *head);
    }

    std::optional<Head> readHead(size_t index) {
        const uint64_t offset = number(offsets_ + index * offsetWidth_, offsetWidth_);
        if (offset < magic.size() || offset >= offsets_)
            return refuseObject(index, "lies outside the file");
        Head head;
        const uint8_t marker = bytes_[static_cast<size_t>(offset)];
        head.type = marker >> 4;
        head.detail = marker & 0xF;
        head.count = head.detail;
        head.start = static_cast<size_t>(offset) + 1;
        const bool counted = head.type == 4 || head.type == 5 || head.type == 6 || head.type == 0xA ||
                             head.type == 0xC || head.type == 0xD;
        if (counted && head.detail == 0xF && !readLongCount(head))
            return refuseObject(index, "has a bad count");
        return head;
    }

    /// A count of 15 and more is an integer object behind the marker.
    bool readLongCount(Head &head) {
        if (head.start >= offsets_ || bytes_[head.start] >> 4 != 1)
            return false;
        const size_t exponent = bytes_[head.start] & 0xF;
        if (exponent > 3)
            return false;
        const size_t width = size_t{1} << exponent;
        if (width > offsets_ - head.start - 1)
            return false;
        const uint64_t count = number(head.start + 1, width);
        if (count > bytes_.size())
            return false;
        head.count = static_cast<size_t>(count);
        head.start += 1 + width;
        return true;
    }

    /// Claims `size` bytes of content; false when the object would run over the end of the objects, or when
    /// all objects together claim more bytes than there are.
    bool claim(const Head &head, size_t size) {
        if (size > offsets_ - head.start || size + 1 > unreadBytes_)
            return false;
        unreadBytes_ -= size + 1;
        return true;
    }

    std::optional<PropertyListObject> readContent(size_t index, const Head &head) {
        switch (head.type) {
        case 0x0:
            return readConstant(index, head);
        case 0x1:
            return readInteger(index, head);
        case 0x2:
            return readReal(index, head);
        case 0x3:
            return readDate(index, head);
        case 0x4:
            if (!claim(head, head.count))
                break;
            return Data(bytes_.begin() + static_cast<ptrdiff_t>(head.start),
                        bytes_.begin() + static_cast<ptrdiff_t>(head.start + head.count));
        case 0x5:
            return readASCII(index, head);
        case 0x6:
            return readUTF16(index, head);
        case 0x8:
            return readReference(index, head);
        case 0xA:
            return readArray(index, head);
        case 0xD:
            return readDictionary(index, head);
        default:
            return refuseObject(index, "is of an unknown type");
        }
        return refuseObject(index, "runs over the end");
    }

    std::optional<PropertyListObject> readConstant(size_t index, const Head &head) {
        if (!claim(head, 0))
            return refuseObject(index, "runs over the end");
        switch (head.detail) {
        case 0x0:
            return std::monostate();
        case 0x8:
            return false;
        case 0x9:
            return true;
        default:
            return refuseObject(index, "is of an unknown type");
        }
    }

    std::optional<PropertyListObject> readInteger(size_t index, const Head &head) {
        if (head.detail > 4)
            return refuseObject(index, "is an integer of unknown width");
        const size_t width = size_t{1} << head.detail;
        if (!claim(head, width))
            return refuseObject(index, "runs over the end");
        if (width < 8)
            return static_cast<int64_t>(number(head.start, width));
        if (width == 8)
            return std::bit_cast<int64_t>(number(head.start, width));
        const uint64_t high = number(head.start, 8);
        const uint64_t low = number(head.start + 8, 8);
        if (high == UINT64_MAX && low > static_cast<uint64_t>(INT64_MAX))
            return std::bit_cast<int64_t>(low);
        if (high != 0)
            return refuseObject(index, "is an integer out of range");
        if (low > static_cast<uint64_t>(INT64_MAX))
            return low;
        return static_cast<int64_t>(low);
    }

    std::optional<double> realContent(const Head &head) {
        if (head.detail == 2 && claim(head, 4))
            return std::bit_cast<float>(static_cast<uint32_t>(number(head.start, 4)));
        if (head.detail == 3 && claim(head, 8))
            return std::bit_cast<double>(number(head.start, 8));
        return std::nullopt;
    }

    std::optional<PropertyListObject> readReal(size_t index, const Head &head) {
        const std::optional<double> real = realContent(head);
        if (!real)
            return refuseObject(index, "is a bad real");
        return *real;
    }

    std::optional<PropertyListObject> readDate(size_t index, const Head &head) {
        const std::optional<double> seconds = head.detail == 3 ? realContent(head) : std::nullopt;
        if (!seconds)
            return refuseObject(index, "is a bad date");
        return PropertyListDate{*seconds};
    }

    std::optional<PropertyListObject> readASCII(size_t index, const Head &head) {
        if (!claim(head, head.count))
            return refuseObject(index, "runs over the end");
        std::string text;
        text.reserve(head.count);
        for (const uint8_t byte : bytes_.subspan(head.start, head.count)) {
            if (byte > 0x7F)
                return refuseObject(index, "is an ASCII string with other bytes");
            text.push_back(static_cast<char>(byte));
        }
        return text;
    }

    std::optional<PropertyListObject> readUTF16(size_t index, const Head &head) {
        if (head.count > bytes_.size() / 2 || !claim(head, head.count * 2))
            return refuseObject(index, "runs over the end");
        std::u16string units;
        units.reserve(head.count);
        for (size_t unit = 0; unit < head.count; ++unit)
            units.push_back(static_cast<char16_t>(number(head.start + unit * 2, 2)));
        std::optional<std::string> text = utf8FromUTF16(units);
        if (!text)
            return refuseObject(index, "is a string with a lone surrogate");
        return std::move(*text);
    }

    std::optional<PropertyListObject> readReference(size_t index, const Head &head) {
        const size_t width = size_t{head.detail} + 1;
        if (width > 8)
            return refuseObject(index, "is an archive reference of unknown width");
        if (!claim(head, width))
            return refuseObject(index, "runs over the end");
        return ArchiveReference{number(head.start, width)};
    }

    /// The reference at a position of a container whose bytes were claimed.
    std::optional<ObjectIndex> reference(size_t start, size_t position) const {
        const uint64_t index = number(start + position * referenceWidth_, referenceWidth_);
        if (index >= objectCount_)
            return std::nullopt;
        return static_cast<ObjectIndex>(index);
    }

    std::optional<PropertyListObject> readArray(size_t index, const Head &head) {
        if (!claim(head, head.count * referenceWidth_))
            return refuseObject(index, "runs over the end");
        IndexArray array;
        array.reserve(head.count);
        for (size_t position = 0; position < head.count; ++position) {
            const std::optional<ObjectIndex> element = reference(head.start, position);
            if (!element)
                return refuseObject(index, "refers to an object that is not there");
            array.push_back(*element);
        }
        return array;
    }

    std::optional<PropertyListObject> readDictionary(size_t index, const Head &head) {
        if (!claim(head, head.count * 2 * referenceWidth_))
            return refuseObject(index, "runs over the end");
        IndexDictionary dictionary;
        dictionary.reserve(head.count);
        for (size_t position = 0; position < head.count; ++position) {
            const std::optional<ObjectIndex> key = reference(head.start, position);
            const std::optional<ObjectIndex> value = reference(head.start, head.count + position);
            if (!key || !value)
                return refuseObject(index, "refers to an object that is not there");
            dictionary.emplace_back(*key, *value);
        }
        return dictionary;
    }

    bool checkKeys(const PropertyListTable &table) {
        for (size_t index = 0; index < table.objects.size(); ++index) {
            const auto *dictionary = std::get_if<IndexDictionary>(&table.objects[index]);
            if (!dictionary)
                continue;
            std::set<std::string_view> keys;
            for (const auto &[key, value] : *dictionary) {
                const auto *text = std::get_if<std::string>(&table.objects[key]);
                if (!text || !keys.insert(*text).second)
                    return refuse("object " + std::to_string(index) +
                                  " has a key that is no string or comes twice");
            }
        }
        return true;
    }

    std::span<const uint8_t> bytes_;
    std::string reason_;
    size_t offsetWidth_ = 0;
    size_t referenceWidth_ = 0;
    size_t objectCount_ = 0;
    size_t top_ = 0;
    size_t offsets_ = 0;     ///< Start of the offset table, which is the end of the objects.
    size_t unreadBytes_ = 0; ///< Bytes that objects may still claim.
};

} // namespace

Result<PropertyListTable> readBinaryPropertyList(std::span<const uint8_t> bytes) {
    return Reader(bytes).read();
}

} // namespace moxel::daemon
