#include "Moxel Daemon/Archive/BinaryPropertyListWriter.h"

#include "Moxel Daemon/Archive/Unicode.h"

#include <algorithm>
#include <bit>
#include <string_view>

namespace moxel::daemon {

namespace {

/// The smallest of 1, 2, 4 and 8 bytes that holds the number.
constexpr size_t widthOf(uint64_t number) {
    return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

class Writer {
  public:
    explicit Writer(const PropertyListTable &table)
        : table_(table), referenceWidth_(widthOf(table.objects.size())) {}

    Result<Data> write() {
        if (table_.top >= table_.objects.size())
            return Error{"the property list has no top object", 0};
        append(std::string_view("bplist00"));
        std::vector<size_t> offsets;
        offsets.reserve(table_.objects.size());
        for (const PropertyListObject &object : table_.objects) {
            offsets.push_back(bytes_.size());
            std::visit([this](const auto &content) { writeObject(content); }, object);
        }
        if (!valid_)
            return Error{"a string of the property list is not UTF-8, or a reference is out of range", 0};
        writeTrailer(offsets);
        return std::move(bytes_);
    }

  private:
    void append(uint8_t byte) { bytes_.push_back(byte); }
    void append(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }
    void append(uint64_t number, size_t width) {
        for (size_t index = width; index-- > 0;)
            append(static_cast<uint8_t>(number >> (8 * index)));
    }

    void writeInteger(uint64_t number, size_t width) {
        append(static_cast<uint8_t>(0x10 | std::countr_zero(width)));
        append(number, width);
    }

    /// The marker of a counted object, with the count in it or behind it.
    void writeMarker(uint8_t type, size_t count) {
        append(static_cast<uint8_t>(size_t{type} << 4 | std::min<size_t>(count, 0xF)));
        if (count >= 0xF)
            writeInteger(count, widthOf(count));
    }

    void writeReferenceTo(ObjectIndex index) {
        valid_ = valid_ && index < table_.objects.size();
        append(index, referenceWidth_);
    }

    void writeObject(std::monostate) { append(0x00); }
    void writeObject(bool boolean) { append(boolean ? 0x09 : 0x08); }
    void writeObject(int64_t number) {
        const auto bits = std::bit_cast<uint64_t>(number);
        writeInteger(bits, number < 0 ? 8 : widthOf(bits));
    }
    void writeObject(uint64_t number) {
        if (number <= static_cast<uint64_t>(INT64_MAX)) {
            writeInteger(number, widthOf(number));
            return;
        }
        append(0x14); // Beyond the signed range: 16 bytes.
        append(0, 8);
        append(number, 8);
    }
    void writeObject(double number) {
        append(0x23);
        append(std::bit_cast<uint64_t>(number), 8);
    }
    void writeObject(PropertyListDate date) {
        append(0x33);
        append(std::bit_cast<uint64_t>(date.secondsSince2001), 8);
    }
    void writeObject(const Data &data) {
        writeMarker(0x4, data.size());
        bytes_.insert(bytes_.end(), data.begin(), data.end());
    }
    void writeObject(const std::string &text) {
        if (std::all_of(text.begin(), text.end(),
                        [](char byte) { return static_cast<uint8_t>(byte) < 0x80; })) {
            writeMarker(0x5, text.size());
            append(std::string_view(text));
            return;
        }
        const std::optional<std::u16string> units = utf16FromUTF8(text);
        valid_ = valid_ && units.has_value();
        if (!units)
            return;
        writeMarker(0x6, units->size());
        for (const char16_t unit : *units)
            append(unit, 2);
    }
    void writeObject(ArchiveReference reference) {
        const size_t width = widthOf(reference.number);
        append(static_cast<uint8_t>(0x80 | (width - 1)));
        append(reference.number, width);
    }
    void writeObject(const IndexArray &array) {
        writeMarker(0xA, array.size());
        for (const ObjectIndex index : array)
            writeReferenceTo(index);
    }
    void writeObject(const IndexDictionary &dictionary) {
        writeMarker(0xD, dictionary.size());
        for (const auto &[key, value] : dictionary)
            writeReferenceTo(key);
        for (const auto &[key, value] : dictionary)
            writeReferenceTo(value);
    }

    void writeTrailer(const std::vector<size_t> &offsets) {
        const size_t offsetTable = bytes_.size();
        const size_t offsetWidth = widthOf(offsetTable);
        for (const size_t offset : offsets)
            append(offset, offsetWidth);
        append(0, 6);
        append(static_cast<uint8_t>(offsetWidth));
        append(static_cast<uint8_t>(referenceWidth_));
        append(offsets.size(), 8);
        append(table_.top, 8);
        append(offsetTable, 8);
    }

    const PropertyListTable &table_;
    size_t referenceWidth_;
    Data bytes_;
    bool valid_ = true;
};

} // namespace

Result<Data> writeBinaryPropertyList(const PropertyListTable &table) { return Writer(table).write(); }

} // namespace moxel::daemon
