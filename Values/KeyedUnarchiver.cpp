// Reads keyed archives.
#include "KeyedArchive.h"

#include "ArchiveClasses.h"
#include "ContainerNodes.h"
#include "PropertyList.h"

#include <algorithm>
#include <unordered_map>

namespace moxel {

namespace {

using detail::entriesOf;
using detail::ValueClass;
using detail::valuesOf;

namespace keys = detail::archiveKeys;

/// Containers that stand inline in a record may be nested this deep.
constexpr int maxInlineDepth = 64;
/// Bounds what every record of a class has to carry with it.
constexpr size_t maxClassText = 4096;
/// What all classes of an archive may take in memory, in bytes: they may share one chain of ancestors, of
/// which each keeps a copy.
constexpr size_t maxClassMemory = 1024 * size_t{1024};

/// A class as the archive describes it, and how its instances are made.
struct DecodedClass {
    std::shared_ptr<const ArchivedClass> archived;
    std::optional<ValueClass> valueClass;
    ArchiveFactory factory;
};

/// Decodes each object of the table once, after all that it refers to. Lives for one call, on its thread.
class KeyedUnarchiver {
  public:
    /// Takes in the table. Objects are decoded when they are asked for.
    Result<void> open(std::span<const uint8_t> bytes) {
        Result<PropertyList> list = readPropertyList(bytes);
        if (!list)
            return list.error();
        archive_ = list->root.asDictionary();
        top_ = archive_[keys::top].asDictionary();
        objects_ = archive_[keys::objects].asArray();
        remainingMembers_ = bytes.size();
        if (const char *flaw = findFlaw())
            return Error{flaw};
        decoded_.resize(objects_.size());
        states_.resize(objects_.size());
        return {};
    }

    Result<Value> root() {
        const Value root = decodeTopLevel(top_[keys::root]);
        return finished(root);
    }

    Result<Dictionary> topLevelObjects() {
        std::vector<Dictionary::Entry> decoded;
        for (const auto &[key, value] : top_)
            decoded.push_back({key, decodeTopLevel(value)});
        return finished(Dictionary(std::move(decoded)));
    }

  private:
    enum class State : uint8_t { untouched, open, done };

    /// Why the list is no keyed archive; null when it is one.
    [[nodiscard]] const char *findFlaw() const {
        if (!archive_)
            return "not a keyed archive: the property list is no dictionary";
        if (archive_[keys::archiver] != Value(detail::archiverName))
            return "not a keyed archive: \"$archiver\" is not \"NSKeyedArchiver\"";
        if (archive_[keys::version] != Value(detail::archiveVersion))
            return "not a keyed archive that can be read: \"$version\" is not 100000";
        if (!top_)
            return "damaged keyed archive: no dictionary \"$top\"";
        if (objects_[0] != Value(keys::nullObject))
            return "damaged keyed archive: no array \"$objects\" that begins with \"$null\"";
        return nullptr;
    }

    template <class T>
    Result<T> finished(T result) {
        if (!error_.empty())
            return Error{"damaged keyed archive: " + error_};
        return result;
    }

    Value decodeTopLevel(const Value &value) {
        openReferences(value, 0);
        while (!pending_.empty() && error_.empty())
            decodeNext();
        return error_.empty() ? resolved(value) : Value();
    }

    /// Opens the object on top of the stack or, when all that it refers to is decoded, makes it.
    void decodeNext() {
        const size_t index = pending_.back();
        State &state = states_[index];
        if (state == State::untouched) {
            state = State::open;
            for (const auto &[key, value] : entriesOf(objects_[index]))
                if (key.view() != keys::objectClass)
                    openReferences(value, 0);
            return;
        }
        pending_.pop_back();
        if (state == State::done)
            return;
        decoded_[index] = decodeRecord(objects_[index].asDictionary());
        state = State::done;
    }

    /// Puts the objects to which a member of a record refers on the stack, unless they need no decoding.
    void openReferences(const Value &member, int depth) {
        // Every member takes a byte of the archive at least, if records do not share containers that stand
        // inline, which no archiver writes.
        if (remainingMembers_ == 0)
            return fail("records share containers");
        --remainingMembers_;
        if (depth > maxInlineDepth)
            return fail("containers within a record are nested too deeply");
        if (member.kind() == Kind::uid)
            return openReference(member.asUID().index);
        if (member.kind() == Kind::array)
            for (const Value &value : valuesOf(member))
                openReferences(value, depth + 1);
        if (member.kind() == Kind::dictionary)
            for (const auto &[key, value] : entriesOf(member))
                openReferences(value, depth + 1);
    }

    void openReference(uint64_t index) {
        if (index >= objects_.size())
            return fail("UID " + std::to_string(index) + " lies beyond the object table");
        switch (objects_[index].kind()) {
        case Kind::dictionary:
            if (states_[index] == State::open)
                return fail("object " + std::to_string(index) + " holds itself");
            if (states_[index] == State::untouched)
                pending_.push_back(index);
            return;
        case Kind::array:
        case Kind::uid:
            return fail("object " + std::to_string(index) + " is neither a value nor a record");
        default:
            return;
        }
    }

    /// A member of a record with objects in the place of UIDs, all of which are decoded.
    [[nodiscard]] Value resolved(const Value &member) const {
        switch (member.kind()) {
        case Kind::uid:
            return object(member.asUID().index);
        case Kind::array:
            return Array(resolvedValues(valuesOf(member)));
        case Kind::dictionary: {
            std::vector<Dictionary::Entry> entries;
            entries.reserve(entriesOf(member).size());
            for (const auto &[key, value] : entriesOf(member))
                entries.push_back({key, resolved(value)});
            return Dictionary(std::move(entries));
        }
        default:
            return member;
        }
    }

    [[nodiscard]] std::vector<Value> resolvedValues(const std::vector<Value> &members) const {
        std::vector<Value> values;
        values.reserve(members.size());
        for (const Value &member : members)
            values.push_back(resolved(member));
        return values;
    }

    /// Object 0 is the "$null" that stands for null, not a text: nothing is ever decoded in its place.
    [[nodiscard]] const Value &object(uint64_t index) const {
        return index != 0 && objects_[index].kind() != Kind::dictionary ? objects_[index] : decoded_[index];
    }

    Value decodeRecord(const Dictionary &record) {
        const DecodedClass *decodedClass = classOf(record);
        if (!decodedClass)
            return {};
        if (decodedClass->valueClass)
            return decodeValue(*decodedClass, record);
        if (!decodedClass->factory)
            return genericObject(*decodedClass, record);
        std::vector<Dictionary::Entry> members;
        for (const auto &[key, value] : record)
            if (key.view() != keys::objectClass)
                members.push_back({key, resolved(value)});
        Ref<Object> made = decodedClass->factory(KeyedDecoder(Dictionary(std::move(members))));
        if (!made)
            fail("a record of the class " + decodedClass->archived->name + " cannot be made");
        return made;
    }

    [[nodiscard]] Value genericObject(const DecodedClass &decodedClass, const Dictionary &record) const {
        std::vector<Dictionary::Entry> members;
        std::vector<bool> isInline;
        for (const auto &[key, value] : record) {
            if (key.view() == keys::objectClass)
                continue;
            members.push_back({key, resolved(value)});
            isInline.push_back(value.kind() != Kind::uid);
        }
        return makeRef<GenericObject>(decodedClass.archived, Dictionary(std::move(members)),
                                      std::move(isInline));
    }

    Value decodeValue(const DecodedClass &decodedClass, const Dictionary &record) {
        switch (*decodedClass.valueClass) {
        case ValueClass::array:
        case ValueClass::mutableArray:
            return decodeArray(decodedClass, record);
        case ValueClass::dictionary:
        case ValueClass::mutableDictionary:
            return decodeDictionary(decodedClass, record);
        case ValueClass::string:
        case ValueClass::mutableString:
            return checked(resolved(record[keys::string]), Kind::string, keys::string);
        case ValueClass::data:
        case ValueClass::mutableData:
            return checked(resolved(record[keys::data]), Kind::data, keys::data);
        case ValueClass::date: {
            const Value time = resolved(record[keys::time]);
            if (!time.isNumber())
                fail("a date has no number \"NS.time\"");
            return Date{time.doubleValue()};
        }
        case ValueClass::null:
            return {};
        }
        return {}; // For compilers that do not count the cases.
    }

    Value decodeArray(const DecodedClass &decodedClass, const Dictionary &record) {
        const Value members = checked(record[keys::containerObjects], Kind::array, keys::containerObjects);
        if (!members)
            return {};
        Array array(resolvedValues(valuesOf(members)));
        return decodedClass.valueClass == ValueClass::mutableArray ? array.mutableCopy() : array;
    }

    Value decodeDictionary(const DecodedClass &decodedClass, const Dictionary &record) {
        const Value keyList = checked(record[keys::containerKeys], Kind::array, keys::containerKeys);
        const Value valueList = checked(record[keys::containerObjects], Kind::array, keys::containerObjects);
        if (!keyList || !valueList)
            return {};
        const std::vector<Value> &values = valuesOf(valueList);
        if (valuesOf(keyList).size() != values.size()) {
            fail("a dictionary has not as many keys as values");
            return {};
        }
        std::vector<Dictionary::Entry> entries;
        entries.reserve(values.size());
        for (const Value &key : valuesOf(keyList)) {
            entries.push_back({resolved(key).asString(), resolved(values[entries.size()])});
            if (!entries.back().key)
                return genericObject(decodedClass, record);
        }
        Dictionary dictionary(std::move(entries));
        return decodedClass.valueClass == ValueClass::mutableDictionary ? dictionary.mutableCopy()
                                                                        : dictionary;
    }

    /// The member of a record; null, and an error, when it is of another kind.
    Value checked(const Value &member, Kind kind, std::string_view key) {
        if (member.kind() == kind)
            return member;
        fail("a record has no \"" + std::string(key) + "\" of the right kind");
        return {};
    }

    /// The class of a record; null after an error.
    const DecodedClass *classOf(const Dictionary &record) {
        const Value &uid = record[keys::objectClass];
        const uint64_t index = uid.asUID().index;
        const auto [at, isNew] = classes_.try_emplace(index);
        if (isNew && (uid.kind() != Kind::uid || !decodeClass(objects_[index].asDictionary(), at->second))) {
            fail("a record has no class");
            return nullptr;
        }
        return &at->second;
    }

    bool decodeClass(const Dictionary &record, DecodedClass &decodedClass) {
        const Value &name = record[keys::className];
        const Value &chain = record[keys::classChain];
        if (name.kind() != Kind::string || (chain.kind() != Kind::array && !chain.isNull()))
            return false;
        ArchivedClass archived{name.asString().string(), {}};
        size_t size = archived.name.size();
        for (const Value &ancestor : chain.asArray()) {
            if (ancestor.kind() != Kind::string || size > maxClassText)
                return false;
            archived.chain.push_back(ancestor.asString().string());
            size += archived.chain.back().size() + 1;
        }
        const size_t memory = size + archived.chain.size() * sizeof(std::string);
        if (size > maxClassText || memory > remainingClassMemory_)
            return false;
        remainingClassMemory_ -= memory;
        decodedClass.valueClass = detail::valueClassNamed(archived.name);
        decodedClass.factory = detail::archiveFactoryNamed(archived.name);
        decodedClass.archived = std::make_shared<const ArchivedClass>(std::move(archived));
        return true;
    }

    void fail(std::string message) {
        if (error_.empty())
            error_ = std::move(message);
    }

    Dictionary archive_;
    Dictionary top_;
    Array objects_;
    std::vector<Value> decoded_; ///< The records of the table that are decoded.
    std::vector<State> states_;
    std::vector<size_t> pending_; ///< What is to be decoded, the next on top, each above what refers to it.
    std::unordered_map<uint64_t, DecodedClass> classes_;
    size_t remainingMembers_ = 0;
    size_t remainingClassMemory_ = maxClassMemory;
    std::string error_;
};

} // namespace

Result<Value> unarchiveObjectWithData(std::span<const uint8_t> archive) {
    KeyedUnarchiver unarchiver;
    if (const Result<void> opened = unarchiver.open(archive); !opened)
        return opened.error();
    return unarchiver.root();
}

Result<Dictionary> unarchiveTopLevelObjects(std::span<const uint8_t> archive) {
    KeyedUnarchiver unarchiver;
    if (const Result<void> opened = unarchiver.open(archive); !opened)
        return opened.error();
    return unarchiver.topLevelObjects();
}

} // namespace moxel
