#include "Moxel Daemon/Archive/KeyedArchiveWriter.h"

#include "Moxel Daemon/Archive/BinaryPropertyListWriter.h"

#include <map>
#include <optional>
#include <string_view>

namespace moxel::daemon {

namespace {

/// Builds the object list in archive order: depth first, an object's number taken before its content's, a
/// class behind the first of its instances to be complete.
class Writer {
  public:
    Writer() { list_.push_back(plain(std::string("$null"))); }

    Result<Data> write(const Value &root) {
        const std::optional<ArchiveReference> reference = archive(root, 0);
        if (!reference)
            return Error{"the value is nested too deep for an archive", 0};
        const ObjectIndex top = table_.objects.size();
        table_.objects.emplace_back();
        table_.top = top;
        table_.objects[top] = header(*reference);
        return writeBinaryPropertyList(table_);
    }

  private:
    IndexDictionary header(ArchiveReference root) {
        IndexDictionary result;
        result.emplace_back(plain(std::string("$version")), plain(int64_t{100000}));
        result.emplace_back(plain(std::string("$archiver")), plain(std::string("NSKeyedArchiver")));
        const ObjectIndex topKey = plain(std::string("$top"));
        const ObjectIndex rootKey = plain(std::string("root"));
        result.emplace_back(topKey, add(IndexDictionary{{rootKey, plain(root)}}));
        const ObjectIndex objectsKey = plain(std::string("$objects"));
        result.emplace_back(objectsKey, add(list_));
        return result;
    }

    ObjectIndex add(PropertyListObject object) {
        table_.objects.push_back(std::move(object));
        return table_.objects.size() - 1;
    }

    /// The container's object for a scalar; the same one for equal scalars. Reals and dates stay apart: not a
    /// number has no order, and the zeros are equal but not the same.
    ObjectIndex plain(PropertyListObject scalar) {
        if (std::holds_alternative<double>(scalar) || std::holds_alternative<PropertyListDate>(scalar))
            return add(std::move(scalar));
        const auto found = scalars_.find(scalar);
        if (found != scalars_.end())
            return found->second;
        const ObjectIndex index = add(scalar);
        scalars_.emplace(std::move(scalar), index);
        return index;
    }

    /// A place in the archive's object list, to be filled later.
    size_t reserve() {
        list_.push_back(add(std::monostate()));
        return list_.size() - 1;
    }

    ArchiveReference archiveScalar(PropertyListObject scalar) {
        const ObjectIndex index = plain(std::move(scalar));
        const auto [position, isNew] = numbers_.try_emplace(index, list_.size());
        if (isNew)
            list_.push_back(index);
        return {position->second};
    }

    ArchiveReference archiveClass(const std::string &name) {
        const auto [position, isNew] = classes_.try_emplace(name, list_.size());
        if (!isNew)
            return {position->second};
        const size_t number = reserve();
        const ObjectIndex chain = add(IndexArray{plain(name), plain(std::string("NSObject"))});
        table_.objects[list_[number]] = IndexDictionary{{plain(std::string("$classname")), plain(name)},
                                                        {plain(std::string("$classes")), chain}};
        return {number};
    }

    std::optional<ArchiveReference> archive(const Value &value, size_t depth) {
        if (depth >= Value::depthLimit)
            return std::nullopt;
        if (value.isNull())
            return ArchiveReference{0};
        if (const auto *array = value.as<Array>())
            return archiveArray(*array, depth);
        if (const auto *dictionary = value.as<Dictionary>())
            return archiveDictionary(*dictionary, depth);
        if (const auto *record = value.as<Record>())
            return archiveRecord(*record, depth);
        return archiveScalar(std::visit(ScalarObject(), value.content()));
    }

    /// Null stands in a record as a reference to nothing, but needs an object in a container.
    std::optional<ArchiveReference> archiveElement(const Value &element, size_t depth) {
        return element.isNull() ? archiveNull() : archive(element, depth);
    }

    ArchiveReference archiveNull() {
        if (!null_) {
            null_ = ArchiveReference{reserve()};
            finish(null_->number, {}, "NSNull");
        }
        return *null_;
    }

    std::optional<ArchiveReference> archiveArray(const Array &array, size_t depth) {
        const size_t number = reserve();
        IndexArray elements;
        for (const Value &element : array) {
            const std::optional<ArchiveReference> reference = archiveElement(element, depth + 1);
            if (!reference)
                return std::nullopt;
            elements.push_back(plain(*reference));
        }
        finish(number, {{plain(std::string("NS.objects")), add(std::move(elements))}}, "NSArray");
        return ArchiveReference{number};
    }

    std::optional<ArchiveReference> archiveDictionary(const Dictionary &dictionary, size_t depth) {
        const size_t number = reserve();
        IndexArray keys;
        IndexArray values;
        for (const Entry &entry : dictionary.entries())
            keys.push_back(plain(archiveScalar(entry.key)));
        for (const Entry &entry : dictionary.entries()) {
            const std::optional<ArchiveReference> reference = archiveElement(entry.value, depth + 1);
            if (!reference)
                return std::nullopt;
            values.push_back(plain(*reference));
        }
        finish(number,
               {{plain(std::string("NS.keys")), add(std::move(keys))},
                {plain(std::string("NS.objects")), add(std::move(values))}},
               "NSDictionary");
        return ArchiveReference{number};
    }

    std::optional<ArchiveReference> archiveRecord(const Record &record, size_t depth) {
        const size_t number = reserve();
        IndexDictionary members;
        for (const Entry &entry : record.members.entries()) {
            const std::optional<ArchiveReference> reference = archive(entry.value, depth + 1);
            if (!reference)
                return std::nullopt;
            members.emplace_back(plain(entry.key), plain(*reference));
        }
        finish(number, std::move(members), record.className);
        return ArchiveReference{number};
    }

    void finish(size_t number, IndexDictionary members, const std::string &className) {
        const ArchiveReference reference = archiveClass(className);
        members.emplace_back(plain(std::string("$class")), plain(reference));
        table_.objects[list_[number]] = std::move(members);
    }

    struct ScalarObject {
        PropertyListObject operator()(const Array &) const { return std::monostate(); }
        PropertyListObject operator()(const Dictionary &) const { return std::monostate(); }
        PropertyListObject operator()(const Record &) const { return std::monostate(); }
        PropertyListObject operator()(const auto &scalar) const { return scalar; }
    };

    PropertyListTable table_;
    IndexArray list_; ///< The archive's object list, as container objects.
    std::map<PropertyListObject, ObjectIndex> scalars_;
    std::map<ObjectIndex, size_t> numbers_; ///< Archive numbers of scalars.
    std::map<std::string, size_t> classes_;
    std::optional<ArchiveReference> null_;
};

} // namespace

Result<Data> writeKeyedArchive(const Value &root) { return Writer().write(root); }

} // namespace moxel::daemon
