#include "Moxel Daemon/Archive/PlainPropertyList.h"

#include "Moxel Daemon/Archive/BinaryPropertyListReader.h"
#include "Moxel Daemon/Archive/BinaryPropertyListWriter.h"
#include "Moxel Daemon/Archive/XMLPropertyListReader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace moxel::daemon {

namespace {

constexpr std::string_view binaryMagic = "bplist";
constexpr std::string_view dateClass = "NSDate";
constexpr std::string_view dateMember = "NS.time";

/// Makes a tree of the table. Objects that several containers refer to are copied, so what all copies may
/// take is limited; that limit ends cycles too.
class TreeBuilder {
  public:
    explicit TreeBuilder(const PropertyListTable &table) : table_(table) {}

    std::optional<Value> build(ObjectIndex index, size_t depth) {
        const PropertyListObject &object = table_.objects[index];
        if (depth > Value::depthLimit || objectsLeft_ == 0)
            return std::nullopt;
        --objectsLeft_;
        if (const auto *array = std::get_if<IndexArray>(&object))
            return buildArray(*array, depth);
        if (const auto *dictionary = std::get_if<IndexDictionary>(&object))
            return buildDictionary(*dictionary, depth);
        return std::visit([this](const auto &scalar) { return this->scalar(scalar); }, object);
    }

  private:
    std::optional<Value> buildArray(const IndexArray &array, size_t depth) {
        Array values;
        for (const ObjectIndex index : array) {
            std::optional<Value> value = build(index, depth + 1);
            if (!value)
                return std::nullopt;
            values.push_back(std::move(*value));
        }
        return values;
    }

    std::optional<Value> buildDictionary(const IndexDictionary &dictionary, size_t depth) {
        std::vector<Entry> entries;
        for (const auto &[key, index] : dictionary) {
            const auto &text = std::get<std::string>(table_.objects[key]);
            std::optional<Value> value = build(index, depth + 1);
            if (!value || !spend(text.size()))
                return std::nullopt;
            entries.push_back({text, std::move(*value)});
        }
        return Dictionary(std::move(entries));
    }

    std::optional<Value> scalar(const std::string &text) {
        return spend(text.size()) ? std::optional(Value(text)) : std::nullopt;
    }
    std::optional<Value> scalar(const Data &bytes) {
        return spend(bytes.size()) ? std::optional(Value(bytes)) : std::nullopt;
    }
    std::optional<Value> scalar(PropertyListDate date) { return dateValue(date.secondsSince2001); }
    std::optional<Value> scalar(std::monostate) { return Value(); }
    std::optional<Value> scalar(ArchiveReference) { return std::nullopt; }
    std::optional<Value> scalar(const IndexArray &) { return std::nullopt; }
    std::optional<Value> scalar(const IndexDictionary &) { return std::nullopt; }
    std::optional<Value> scalar(auto number) { return Value(number); }

    bool spend(size_t bytes) {
        if (bytes > bytesLeft_)
            return false;
        bytesLeft_ -= bytes;
        return true;
    }

    const PropertyListTable &table_;
    size_t objectsLeft_ = size_t{1} << 20;
    size_t bytesLeft_ = 2 * propertyListSizeLimit;
};

/// Makes a table of the tree.
class TableBuilder {
  public:
    std::optional<ObjectIndex> add(const Value &value, size_t depth) {
        if (depth > Value::depthLimit)
            return std::nullopt;
        const size_t place = table_.objects.size();
        table_.objects.emplace_back();
        std::optional<PropertyListObject> object =
            std::visit([&](const auto &content) { return convert(content, depth); }, value.content());
        if (!object)
            return std::nullopt;
        table_.objects[place] = std::move(*object);
        return place;
    }

    [[nodiscard]] const PropertyListTable &table() const { return table_; }

  private:
    using Converted = std::optional<PropertyListObject>;

    Converted convert(const Array &array, size_t depth) {
        IndexArray indices;
        for (const Value &value : array) {
            const std::optional<ObjectIndex> index = add(value, depth + 1);
            if (!index)
                return std::nullopt;
            indices.push_back(*index);
        }
        return indices;
    }
    Converted convert(const Dictionary &dictionary, size_t depth) {
        IndexDictionary indices;
        for (const Entry &entry : dictionary.entries()) {
            const std::optional<ObjectIndex> key = add(entry.key, depth);
            const std::optional<ObjectIndex> value = add(entry.value, depth + 1);
            if (!key || !value)
                return std::nullopt;
            indices.emplace_back(*key, *value);
        }
        return indices;
    }
    Converted convert(const Record &record, size_t) {
        const Value *time = record.className == dateClass ? record.members.find(dateMember) : nullptr;
        const double *seconds = time ? time->as<double>() : nullptr;
        return seconds ? Converted(PropertyListDate{*seconds}) : std::nullopt;
    }
    Converted convert(std::monostate, size_t) { return std::nullopt; }
    Converted convert(const auto &scalar, size_t) { return scalar; }

    PropertyListTable table_;
};

} // namespace

Value dateValue(double secondsSince2001) {
    return Record{std::string(dateClass), {{std::string(dateMember), secondsSince2001}}};
}

Result<Value> readPropertyList(std::span<const uint8_t> bytes) {
    if (bytes.size() > propertyListSizeLimit)
        return Error{"a property list of " + std::to_string(bytes.size()) + " bytes is too long", 0};
    const bool isBinary = bytes.size() >= binaryMagic.size() &&
                          std::equal(binaryMagic.begin(), binaryMagic.end(), bytes.begin());
    if (!isBinary)
        return readXMLPropertyList(bytes);
    const Result<PropertyListTable> table = readBinaryPropertyList(bytes);
    if (!table.ok())
        return table.error();
    std::optional<Value> value = TreeBuilder(*table).build(table->top, 0);
    if (!value)
        return Error{"not a binary property list: nested too deep, too large, or with archive references", 0};
    return std::move(*value);
}

Result<Data> writePropertyList(const Value &root) {
    TableBuilder builder;
    if (!builder.add(root, 0))
        return Error{"the value does not fit a property list", 0};
    return writeBinaryPropertyList(builder.table());
}

} // namespace moxel::daemon
