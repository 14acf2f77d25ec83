// Keyed archives: object graphs in the platform's archive format, written and read.
#pragma once

#include "../Platform/Export.h"
#include "../Platform/Result.h"
#include "Value.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace moxel {

/// Collects the members that a record archives, in their order.
class MOXEL_EXPORT KeyedEncoder {
  public:
    /// Archives a value as an object of its own; null is archived as a null object under its key.
    void encodeObject(const Value &value, std::string_view key) { members_.push_back({key, value, false}); }
    /// Archives a number, text or bytes inline in the record.
    void encodeScalar(const Value &scalar, std::string_view key) { members_.push_back({key, scalar, true}); }
    /// Archives an array or a dictionary inline in the record; what it holds becomes objects of their own, as
    /// with the members of sets.
    void encodeContents(const Value &container, std::string_view key) {
        members_.push_back({key, container, true});
    }

    /// One member, as it was given.
    struct Member {
        String key;    ///< Its key.
        Value value;   ///< What is archived.
        bool isInline; ///< Whether it stands in the record itself.
    };
    /// What has been given so far.
    [[nodiscard]] std::span<const Member> members() const noexcept { return members_; }

  private:
    std::vector<Member> members_;
};

/// The decoded members of one record.
class MOXEL_EXPORT KeyedDecoder {
  public:
    /// Decodes what is given.
    explicit KeyedDecoder(Dictionary members) : members_(std::move(members)) {}

    /// Whether there is such a member, if only a null object.
    [[nodiscard]] bool contains(std::string_view key) const { return members_.contains(key); }
    /// Null for a key that is absent or holds a null object.
    [[nodiscard]] const Value &decode(std::string_view key) const { return members_[key]; }
    /// All members under their keys.
    [[nodiscard]] const Dictionary &members() const noexcept { return members_; }

  private:
    Dictionary members_;
};

/// Makes a record of one class from its decoded members; null refuses the archive.
using ArchiveFactory = std::function<Ref<Object>(const KeyedDecoder &)>;

/// Tells the unarchiver how records of a class are made. Any thread; a second registration of a name replaces
/// the first. Names of containers, strings, data, dates and null are the archiver's own.
MOXEL_EXPORT void registerArchiveClass(const std::string &name, ArchiveFactory factory);

/// What an archive says about the class of its records.
struct ArchivedClass {
    std::string name;               ///< The class's own name.
    std::vector<std::string> chain; ///< The class itself first; empty when the archive does not name it.

    friend bool operator==(const ArchivedClass &, const ArchivedClass &) = default;
};

/// A record of a class that nobody registered: keeps its name, its chain and its members.
class MOXEL_EXPORT GenericObject final : public Object {
  public:
    /// A record of a class, its ancestors and its members.
    GenericObject(std::string className, std::vector<std::string> chain, const Dictionary &members);
    /// One class for many records. `isInline` tells for each member, in their order, whether it stands inline
    /// in the record.
    GenericObject(std::shared_ptr<const ArchivedClass> archivedClass, const Dictionary &members,
                  std::vector<bool> isInline);

    [[nodiscard]] std::string className() const override { return class_->name; }
    [[nodiscard]] std::vector<std::string> classChain() const override { return class_->chain; }
    /// What the archive says of the class.
    [[nodiscard]] const ArchivedClass &archivedClass() const noexcept { return *class_; }
    /// The members under their keys.
    [[nodiscard]] const Dictionary &members() const noexcept { return members_; }
    void encodeWithCoder(KeyedEncoder &encoder) const override;
    [[nodiscard]] std::string description() const override;
    [[nodiscard]] bool isEqual(const Object &other) const override;

  private:
    const std::shared_ptr<const ArchivedClass> class_;
    const Dictionary members_;
    const std::vector<bool> isInline_;
};

/// Archives a graph in binary form under the key "root". An error for what an archive cannot hold: UIDs, and
/// containers or records that hold themselves. Time and memory are linear in the graph, stack use is
/// constant.
[[nodiscard]] MOXEL_EXPORT Result<Data> archivedDataWithRootObject(const Value &root);

/// Reads an archive in binary or XML form and returns its root, null when it has none. Total: any bytes give
/// a value or an error, in time and memory linear in their number.
[[nodiscard]] MOXEL_EXPORT Result<Value> unarchiveObjectWithData(std::span<const uint8_t> archive);

/// The same, all top-level objects by their keys.
[[nodiscard]] MOXEL_EXPORT Result<Dictionary> unarchiveTopLevelObjects(std::span<const uint8_t> archive);

} // namespace moxel
