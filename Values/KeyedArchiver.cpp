// Writes keyed archives.
#include "KeyedArchive.h"

#include "ArchiveClasses.h"
#include "ContainerNodes.h"
#include "IntegerMap.h"
#include "NodeMap.h"
#include "PropertyList.h"

#include <unordered_map>

namespace moxel {

namespace {

using detail::entriesOf;
using detail::isContainer;
using detail::ValueClass;
using detail::valuesOf;

namespace keys = detail::archiveKeys;

/// Builds the object table depth-first: an object gets its number where it is first met, a class where its
/// first instance is complete. Lives for one call, on its thread.
class KeyedArchiver {
  public:
    Result<Data> archive(const Value &root) {
        objects_.emplace_back(keys::nullObject);
        const UID rootUID = root.isNull() ? UID{0} : reference(root);
        while (!open_.empty() && error_.empty())
            step();
        if (!error_.empty())
            return Error{std::move(error_)};
        return writeBinaryPropertyList(Dictionary{{keys::version, detail::archiveVersion},
                                                  {keys::archiver, detail::archiverName},
                                                  {keys::top, Dictionary{{keys::root, rootUID}}},
                                                  {keys::objects, Array(std::move(objects_))}});
    }

  private:
    /// An object whose members are being archived.
    struct Open {
        Value source;
        uint64_t index;  ///< In the object table; 0 for a container inline in the record that opened it.
        size_t size;     ///< How many members there are.
        size_t next = 0; ///< The member to archive next.
        std::vector<Value> keys;                ///< References to the keys of a dictionary.
        std::vector<Value> references;          ///< To the members of a container.
        KeyedEncoder encoder;                   ///< What a record wants archived.
        std::vector<Dictionary::Entry> members; ///< What a record has archived.
    };

    /// Archives members of the innermost open object until one of them has to be opened.
    void step() {
        if (isContainer(open_.back().source))
            stepContainer();
        else
            stepRecord();
    }

    void stepContainer() {
        const size_t depth = open_.size();
        if (open_.back().size != sizeOf(open_.back().source))
            return fail("a container was changed while it was being archived");
        while (open_.back().next < open_.back().size) {
            const size_t next = open_.back().next++;
            const UID uid = reference(memberOf(open_.back().source, next));
            open_[depth - 1].references.emplace_back(uid);
            if (open_.size() != depth)
                return;
        }
        finishContainer();
    }

    void stepRecord() {
        const size_t depth = open_.size();
        while (open_.back().next < open_.back().size) {
            // Opening an object moves the record, but not what its encoder holds.
            const KeyedEncoder::Member &member = open_.back().encoder.members()[open_.back().next++];
            if (member.key.view() == keys::objectClass)
                return fail("a record may not have a member \"$class\"");
            Value archived = archivedMember(member);
            open_[depth - 1].members.push_back({member.key, std::move(archived)});
            if (open_.size() != depth)
                return;
        }
        finishRecord();
    }

    static size_t sizeOf(const Value &container) noexcept {
        return container.kind() == Kind::array ? valuesOf(container).size() : entriesOf(container).size();
    }

    static const Value &memberOf(const Value &container, size_t index) noexcept {
        return container.kind() == Kind::array ? valuesOf(container)[index]
                                               : entriesOf(container)[index].value;
    }

    Value archivedMember(const KeyedEncoder::Member &member) {
        const Value &value = member.value;
        if (value.isNull())
            return UID{0};
        if (!member.isInline)
            return reference(value);
        switch (value.kind()) {
        case Kind::array:
        case Kind::dictionary:
            open(value, 0);
            return {}; // Filled in by finishInline().
        case Kind::uid:
        case Kind::object:
            fail("neither a UID nor a record can stand inline in a record");
            return {};
        default:
            return value;
        }
    }

    /// The UID of a value, which is added to the object table when it is not there yet.
    UID reference(const Value &value) {
        switch (value.kind()) {
        case Kind::null:
            if (nullIndex_ == 0)
                nullIndex_ = appendInstance({}, ValueClass::null);
            return {nullIndex_};
        case Kind::boolean:
        case Kind::integer:
        case Kind::unsignedInteger:
            return {referenceInteger(value)};
        case Kind::real:
            return {append(value)};
        case Kind::date:
            return {appendInstance({{timeKey_, value.asDate().secondsSince2001}}, ValueClass::date)};
        case Kind::uid:
            fail("a UID cannot be archived");
            return {};
        case Kind::string:
        case Kind::data:
            return {value.node()->hasOneReference() ? append(value) : referenceShared(value)};
        default:
            return {referenceShared(value)};
        }
    }

    /// Equal booleans and integers are one object, as on the platform, where they have no identity.
    uint64_t referenceInteger(const Value &value) {
        const bool isAboveSigned =
            value.kind() == Kind::unsignedInteger && value.uint64Value() > static_cast<uint64_t>(INT64_MAX);
        detail::IntegerMap &indexes = value.kind() == Kind::boolean ? booleans_
                                      : isAboveSigned               ? unsignedIntegers_
                                                                    : integers_;
        uint64_t &index = indexes[value.uint64Value()];
        if (index == 0)
            index = append(value);
        return index;
    }

    UID referenceKey(const String &key) {
        return {key.node()->hasOneReference() ? append(key) : referenceShared(key)};
    }

    uint64_t referenceShared(const Value &value) {
        const auto [index, isNew] = indexes_.insert(value.node());
        if (!isNew) {
            if (objects_[index].isNull())
                fail("an object that holds itself cannot be archived");
            return index;
        }
        const bool isLeaf = value.kind() == Kind::string || value.kind() == Kind::data;
        const uint64_t added = append(isLeaf ? value : Value());
        index = added;
        if (!isLeaf)
            open(value, added);
        return added;
    }

    void open(const Value &value, uint64_t index) {
        // Holds the object: what a record does when it is asked for its members may free it elsewhere.
        Open opened{.source = value,
                    .index = index,
                    .size = 0,
                    .next = 0,
                    .keys = {},
                    .references = {},
                    .encoder = {},
                    .members = {}};
        if (isContainer(value)) {
            opened.size = sizeOf(value);
            opened.references.reserve(opened.size);
        } else {
            static_cast<const Object *>(opened.source.node())->encodeWithCoder(opened.encoder);
            opened.size = opened.encoder.members().size();
            opened.members.reserve(opened.size + 1);
        }
        if (opened.source.kind() == Kind::dictionary && index != 0) {
            opened.keys.reserve(opened.size);
            for (const auto &[key, member] : entriesOf(opened.source))
                opened.keys.emplace_back(referenceKey(key));
        }
        open_.push_back(std::move(opened));
    }

    void finishContainer() {
        Open &container = open_.back();
        const bool isMutable = container.source.node()->isMutable();
        if (container.index == 0)
            return finishInline(container);
        std::vector<Dictionary::Entry> members;
        members.reserve(3);
        if (container.source.kind() == Kind::dictionary)
            members.push_back({containerKeysKey_, Array(std::move(container.keys))});
        members.push_back({containerObjectsKey_, Array(std::move(container.references))});
        if (container.source.kind() == Kind::dictionary)
            finish(std::move(members),
                   classIndex(isMutable ? ValueClass::mutableDictionary : ValueClass::dictionary));
        else
            finish(std::move(members), classIndex(isMutable ? ValueClass::mutableArray : ValueClass::array));
    }

    /// Puts a container into the record that opened it.
    void finishInline(Open &container) {
        Value archived;
        if (container.source.kind() == Kind::array) {
            archived = Array(std::move(container.references));
        } else {
            std::vector<Dictionary::Entry> entries;
            for (size_t i = 0; i < container.size; ++i)
                entries.push_back({entriesOf(container.source)[i].key, std::move(container.references[i])});
            archived = Dictionary(std::move(entries));
        }
        open_.pop_back();
        open_.back().members.back().value = std::move(archived);
    }

    void finishRecord() {
        Open &record = open_.back();
        const Value source = record.source;
        const auto *object = static_cast<const Object *>(source.node());
        // Values that a record made for the encoder must not give their addresses to others, which would
        // then be taken for them.
        encoders_.push_back(std::move(record.encoder));
        finish(std::move(record.members), classIndex({object->className(), object->classChain()}));
    }

    void finish(std::vector<Dictionary::Entry> members, uint64_t classIndex) {
        members.push_back({objectClassKey_, UID{classIndex}});
        objects_[open_.back().index] = Dictionary(std::move(members));
        open_.pop_back();
    }

    /// Adds an object that is complete at once.
    uint64_t appendInstance(std::vector<Dictionary::Entry> members, ValueClass valueClass) {
        const uint64_t index = append(Value());
        members.push_back({objectClassKey_, UID{classIndex(valueClass)}});
        objects_[index] = Dictionary(std::move(members));
        return index;
    }

    uint64_t classIndex(ValueClass valueClass) {
        uint64_t &index = valueClassIndexes_[static_cast<size_t>(valueClass)];
        if (index == 0)
            index = classIndex(detail::archivedClassOf(valueClass));
        return index;
    }

    uint64_t classIndex(const ArchivedClass &archivedClass) {
        std::string identity = archivedClass.name;
        for (const std::string &name : archivedClass.chain)
            (identity += '\0') += name;
        uint64_t &index = classIndexes_[identity];
        if (index == 0)
            index = append(classRecord(archivedClass));
        return index;
    }

    static Dictionary classRecord(const ArchivedClass &archivedClass) {
        if (archivedClass.chain.empty())
            return {{keys::className, archivedClass.name}};
        return {{keys::className, archivedClass.name},
                {keys::classChain,
                 Array(std::vector<Value>(archivedClass.chain.begin(), archivedClass.chain.end()))}};
    }

    uint64_t append(Value object) {
        objects_.push_back(std::move(object));
        return objects_.size() - 1;
    }

    void fail(const char *message) { error_ = message; }

    // Shared by all records.
    const String objectClassKey_ = keys::objectClass;
    const String containerKeysKey_ = keys::containerKeys;
    const String containerObjectsKey_ = keys::containerObjects;
    const String timeKey_ = keys::time;

    std::vector<Value> objects_; ///< The object table; null for what is still being archived.
    std::vector<Open> open_;
    std::vector<KeyedEncoder> encoders_; ///< Of records that are complete.
    detail::NodeMap indexes_;            ///< Of objects that may be met again.
    detail::IntegerMap booleans_;
    detail::IntegerMap integers_;
    detail::IntegerMap unsignedIntegers_; ///< Above INT64_MAX.
    std::array<uint64_t, detail::valueClassCount> valueClassIndexes_{};
    std::unordered_map<std::string, uint64_t> classIndexes_;
    uint64_t nullIndex_ = 0;
    std::string error_;
};

} // namespace

Result<Data> archivedDataWithRootObject(const Value &root) { return KeyedArchiver().archive(root); }

} // namespace moxel
