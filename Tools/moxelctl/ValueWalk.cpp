#include "ValueWalk.h"

#include "Values/KeyedArchive.h"

#include <vector>

namespace moxel::tool {

namespace {

/// A container whose members are being visited.
class OpenContainer {
  public:
    explicit OpenContainer(Value container) : container_(std::move(container)) {
        if (const Ref<Object> record = container_.asObject())
            record->encodeWithCoder(members_);
    }

    [[nodiscard]] const Value &container() const noexcept { return container_; }
    [[nodiscard]] size_t size() const noexcept {
        switch (container_.kind()) {
        case Kind::array:
            return container_.asArray().size();
        case Kind::dictionary:
            return container_.asDictionary().size();
        default:
            return members_.members().size();
        }
    }
    [[nodiscard]] bool isOver() const noexcept { return next_ >= size(); }

    struct Member {
        String key;
        Value value;
        size_t index;
    };
    [[nodiscard]] Member takeNext() {
        const size_t index = next_++;
        switch (container_.kind()) {
        case Kind::array:
            return {nullptr, container_.asArray()[index], index};
        case Kind::dictionary: {
            const Dictionary dictionary = container_.asDictionary();
            return {dictionary.entries()[index].key, dictionary.entries()[index].value, index};
        }
        default:
            return {members_.members()[index].key, members_.members()[index].value, index};
        }
    }

  private:
    Value container_;
    KeyedEncoder members_; ///< Of a record.
    size_t next_ = 0;
};

bool isContainer(const Value &value) {
    return value.kind() == Kind::array || value.kind() == Kind::dictionary || value.kind() == Kind::object;
}

class Walk {
  public:
    explicit Walk(ValueVisitor &visitor) : visitor_(visitor) {}

    void run(const Value &root) {
        visit(root);
        while (!open_.empty() && !visitor_.hasEnough()) {
            OpenContainer &top = open_.back();
            if (top.isOver()) {
                visitor_.close(top.container(), top.size(), open_.size() - 1);
                open_.pop_back();
                continue;
            }
            const OpenContainer::Member member = top.takeNext();
            visitor_.member(member.key, member.index, open_.size());
            visit(member.value);
        }
    }

  private:
    void visit(const Value &value) {
        if (!isContainer(value))
            return visitor_.leaf(value, open_.size());
        OpenContainer container(value);
        if (visitor_.open(value, container.size(), open_.size()))
            open_.push_back(std::move(container));
    }

    ValueVisitor &visitor_;
    std::vector<OpenContainer> open_; ///< The outermost first.
};

} // namespace

void walk(const Value &root, ValueVisitor &visitor) { Walk(visitor).run(root); }

} // namespace moxel::tool
