#include "Moxel Daemon/Archive/KeyedArchiveReader.h"

#include "Moxel Daemon/Archive/BinaryPropertyListReader.h"

#include <optional>
#include <string>
#include <string_view>

namespace moxel::daemon {

namespace {

/// What all values of one archive may take together; shared objects are copied, so a small file may ask for
/// a lot.
constexpr size_t valueLimit = 65536;
constexpr size_t byteLimit = size_t{4} << 20;

class Reader {
  public:
    explicit Reader(PropertyListTable table) : table_(std::move(table)) {}

    Result<Value> read() {
        const auto *root = objectAt<IndexDictionary>(table_.top);
        if (!root || !checkHeader(*root))
            return Error{"not a keyed archive", 0};
        std::optional<Value> value = resolve(root_, 0);
        if (!value)
            return Error{"bad keyed archive: " + reason_, 0};
        return std::move(*value);
    }

  private:
    template <class Type>
    const Type *objectAt(ObjectIndex index) const {
        return std::get_if<Type>(&table_.objects[index]);
    }

    const PropertyListObject *member(const IndexDictionary &dictionary, std::string_view name) const {
        for (const auto &[key, value] : dictionary)
            if (*objectAt<std::string>(key) == name)
                return &table_.objects[value];
        return nullptr;
    }
    template <class Type>
    const Type *member(const IndexDictionary &dictionary, std::string_view name) const {
        return std::get_if<Type>(member(dictionary, name));
    }

    bool checkHeader(const IndexDictionary &root) {
        const auto *version = member<int64_t>(root, "$version");
        const auto *archiver = member<std::string>(root, "$archiver");
        const auto *top = member<IndexDictionary>(root, "$top");
        objects_ = member<IndexArray>(root, "$objects");
        if (!version || *version != 100000 || !archiver || *archiver != "NSKeyedArchiver" || !top ||
            !objects_ || objects_->empty())
            return false;
        const auto *null = objectAt<std::string>(objects_->front());
        const auto *reference = member<ArchiveReference>(*top, "root");
        if (!null || *null != "$null" || !reference)
            return false;
        root_ = *reference;
        isOpen_.assign(objects_->size(), false);
        return true;
    }

    std::nullopt_t refuse(const char *reason) {
        if (reason_.empty())
            reason_ = reason;
        return std::nullopt;
    }

    bool spend(size_t bytes) {
        if (values_ == 0 || bytes > bytes_)
            return false;
        --values_;
        bytes_ -= bytes;
        return true;
    }

    std::optional<Value> resolve(ArchiveReference reference, size_t depth) {
        if (reference.number == 0)
            return Value();
        if (reference.number >= objects_->size())
            return refuse("a reference is out of range");
        if (depth >= Value::depthLimit)
            return refuse("nested too deep");
        const auto index = static_cast<size_t>(reference.number);
        const PropertyListObject &object = table_.objects[(*objects_)[index]];
        if (std::holds_alternative<ArchiveReference>(object))
            return refuse("an object is but a reference");
        if (isOpen_[index])
            return refuse("an object contains itself");
        isOpen_[index] = true;
        std::optional<Value> value = convert(object, depth);
        isOpen_[index] = false;
        return value;
    }

    /// An object of the list, or one that stands inline in a member. Containers without a class occur inline
    /// only.
    std::optional<Value> convert(const PropertyListObject &object, size_t depth) {
        if (depth >= Value::depthLimit)
            return refuse("nested too deep");
        if (const auto *reference = std::get_if<ArchiveReference>(&object))
            return resolve(*reference, depth);
        if (const auto *dictionary = std::get_if<IndexDictionary>(&object))
            return instance(*dictionary, depth);
        if (const auto *array = std::get_if<IndexArray>(&object))
            return elements(*array, depth);
        return scalar(object);
    }

    std::optional<Value> scalar(const PropertyListObject &object) {
        const auto *text = std::get_if<std::string>(&object);
        const auto *data = std::get_if<Data>(&object);
        if (!spend(text ? text->size() : data ? data->size() : 0))
            return refuse("too large");
        if (text)
            return Value(*text);
        if (data)
            return Value(*data);
        if (const auto *boolean = std::get_if<bool>(&object))
            return Value(*boolean);
        if (const auto *number = std::get_if<int64_t>(&object))
            return Value(*number);
        if (const auto *number = std::get_if<uint64_t>(&object))
            return Value(*number);
        if (const auto *number = std::get_if<double>(&object))
            return Value(*number);
        if (const auto *date = std::get_if<PropertyListDate>(&object))
            return Value(Record{"NSDate", {{"NS.time", date->secondsSince2001}}});
        return Value();
    }

    std::optional<Value> elements(const IndexArray &array, size_t depth) {
        if (!spend(0))
            return refuse("too large");
        Array values;
        for (const ObjectIndex index : array) {
            std::optional<Value> value = convert(table_.objects[index], depth + 1);
            if (!value)
                return std::nullopt;
            values.push_back(std::move(*value));
        }
        return values;
    }

    const std::string *className(const IndexDictionary &object) const {
        const auto *reference = member<ArchiveReference>(object, "$class");
        if (!reference || reference->number == 0 || reference->number >= objects_->size())
            return nullptr;
        const auto *record = objectAt<IndexDictionary>((*objects_)[static_cast<size_t>(reference->number)]);
        return record ? member<std::string>(*record, "$classname") : nullptr;
    }

    std::optional<Value> instance(const IndexDictionary &object, size_t depth) {
        const std::string *name = className(object);
        if (!name)
            return refuse("an object has no class");
        if (*name == "NSDictionary" || *name == "NSMutableDictionary")
            return dictionary(object, depth);
        if (*name == "NSArray" || *name == "NSMutableArray")
            return wrapped<IndexArray, Array>(object, "NS.objects", depth);
        if (*name == "NSString" || *name == "NSMutableString")
            return wrapped<std::string, std::string>(object, "NS.string", depth);
        if (*name == "NSData" || *name == "NSMutableData")
            return wrapped<Data, Data>(object, "NS.data", depth);
        if (*name == "NSNull")
            return Value();
        return record(*name, object, depth);
    }

    /// An object whose one member, inline or referenced, is the whole value.
    template <class Stored, class Wanted>
    std::optional<Value> wrapped(const IndexDictionary &object, std::string_view key, size_t depth) {
        const PropertyListObject *content = member(object, key);
        const bool isReference = content && std::holds_alternative<ArchiveReference>(*content);
        if (!isReference && !(content && std::holds_alternative<Stored>(*content)))
            return refuse("an object lacks its content");
        std::optional<Value> value = convert(*content, isReference ? depth + 1 : depth);
        if (value && !value->as<Wanted>())
            return refuse("an object's content is of another type");
        return value;
    }

    std::optional<Value> dictionary(const IndexDictionary &object, size_t depth) {
        const auto *keys = member<IndexArray>(object, "NS.keys");
        const auto *values = member<IndexArray>(object, "NS.objects");
        if (!keys || !values || keys->size() != values->size() || !spend(0))
            return refuse("a dictionary's keys and values do not match");
        Dictionary result;
        for (size_t index = 0; index < keys->size(); ++index) {
            const std::optional<Value> key = convert(table_.objects[(*keys)[index]], depth + 1);
            const std::string *text = key ? key->as<std::string>() : nullptr;
            if (!text || result.contains(*text))
                return refuse("a dictionary's key is no string or comes twice");
            std::optional<Value> value = convert(table_.objects[(*values)[index]], depth + 1);
            if (!value)
                return std::nullopt;
            result.set(*text, std::move(*value));
        }
        return result;
    }

    std::optional<Value> record(const std::string &name, const IndexDictionary &object, size_t depth) {
        if (!spend(name.size()))
            return refuse("too large");
        Record result{name, {}};
        for (const auto &[keyIndex, valueIndex] : object) {
            const std::string &key = *objectAt<std::string>(keyIndex);
            if (key == "$class")
                continue;
            std::optional<Value> value = convert(table_.objects[valueIndex], depth + 1);
            if (!value || !spend(key.size()))
                return refuse("too large");
            result.members.set(key, std::move(*value));
        }
        return result;
    }

    PropertyListTable table_;
    const IndexArray *objects_ = nullptr;
    ArchiveReference root_;
    std::vector<bool> isOpen_; ///< Objects of the list that are being resolved.
    size_t values_ = valueLimit;
    size_t bytes_ = byteLimit;
    std::string reason_;
};

} // namespace

Result<Value> readKeyedArchive(std::span<const uint8_t> bytes) {
    Result<PropertyListTable> table = readBinaryPropertyList(bytes);
    if (!table.ok())
        return table.error();
    return Reader(std::move(*table)).read();
}

} // namespace moxel::daemon
