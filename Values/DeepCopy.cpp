// Copies of whole trees.
#include "DeepCopy.h"

#include "ContainerNodes.h"
#include "NodeMap.h"

namespace moxel {

namespace {

using detail::ArrayNode;
using detail::DictionaryNode;
using detail::isContainer;
using detail::Node;

/// How many members may be copied a second time because their container is held in several places. A tree
/// without sharing may have any size.
constexpr size_t maxRepeatedMembers = size_t{1} << 20;

/// Lives for one call, on its thread.
class DeepCopier {
  public:
    Result<Value> copy(const Value &root) {
        if (!isContainer(root))
            return root;
        Value result = begin(root, false);
        while (error_.message.empty() && !open_.empty())
            copyNext();
        if (!error_.message.empty())
            return std::move(error_);
        return result;
    }

  private:
    /// A container that is being copied.
    struct Level {
        const Node *source;
        MutableArray array;           ///< The copy, when it is an array.
        MutableDictionary dictionary; ///< The copy, when it is a dictionary.
        bool isRepeated;              ///< The source was copied before, or is part of something that was.
        size_t next = 0;
    };

    enum Progress : uint64_t { untouched, open, done };

    /// The copy, still empty.
    Value begin(const Value &container, bool isRepeated) {
        const Node *source = container.node();
        if (!source->hasOneReference()) {
            uint64_t &progress = progress_.insert(source).number;
            if (progress == open)
                error_.message = "a container holds itself";
            isRepeated = isRepeated || progress == done;
            progress = open;
        }
        Level level{.source = source, .array = {}, .dictionary = {}, .isRepeated = isRepeated};
        if (container.kind() == Kind::array)
            level.array = MutableArray::withCapacity(static_cast<const ArrayNode *>(source)->values.size());
        else
            level.dictionary = MutableDictionary::withCapacity(
                static_cast<const DictionaryNode *>(source)->entries().size());
        Value copy = level.array ? Value(level.array) : Value(level.dictionary);
        open_.push_back(std::move(level));
        return copy;
    }

    void copyNext() {
        Level &level = open_.back();
        const size_t index = level.next++;
        if (level.isRepeated && ++repeatedMembers_ > maxRepeatedMembers) {
            error_.message = "shared containers expand to too many members";
            return;
        }
        const size_t depth = open_.size() - 1; // Copying a member may move the levels.
        if (level.array) {
            const std::vector<Value> &values = static_cast<const ArrayNode *>(level.source)->values;
            if (index == values.size())
                return end();
            Value member = copyMember(values[index], level.isRepeated);
            open_[depth].array.append(std::move(member));
        } else {
            const auto &entries = static_cast<const DictionaryNode *>(level.source)->entries();
            if (index == entries.size())
                return end();
            Value member = copyMember(entries[index].value, level.isRepeated);
            open_[depth].dictionary.set(entries[index].key, std::move(member));
        }
    }

    Value copyMember(const Value &member, bool isRepeated) {
        return isContainer(member) ? begin(member, isRepeated) : member;
    }

    void end() {
        const Node *source = open_.back().source;
        if (!source->hasOneReference())
            progress_.insert(source).number = done;
        open_.pop_back();
    }

    std::vector<Level> open_;
    detail::NodeMap progress_; ///< Of containers that may be met again.
    size_t repeatedMembers_ = 0;
    Error error_;
};

} // namespace

Result<Value> deepMutableCopy(const Value &value) { return DeepCopier().copy(value); }

} // namespace moxel
