#include "Export/ActionTree.h"

#include "Values/Format.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace moxel {

namespace {

using Node = MoxelCommandSyncNode_s;

// Applications and the library are compiled apart.
static_assert(sizeof(void *) == 8, "the layouts below are those of 64-bit machines");
static_assert(sizeof(Node) == 48);
static_assert(offsetof(Node, tag) == 0);
static_assert(offsetof(Node, type) == 4);
static_assert(offsetof(Node, next) == 8);
static_assert(offsetof(Node, children) == 16);
static_assert(offsetof(Node, id) == 24);
static_assert(offsetof(Node, label) == 32);
static_assert(offsetof(Node, description) == 40);

/// Far more than any application has; a tree that holds itself has no end.
constexpr size_t nodeLimit = size_t{1} << 22;

/// The first child of a container; actions have none.
const Node *childrenOf(const Node &node) {
    const bool isContainer = node.type == kMoxelNodeActionSet || node.type == kMoxelNodeActionCategory;
    return isContainer ? node.children : nullptr;
}

/// Converts one tree, with a stack of its own in place of recursion. Lives for one call, on its thread.
class TreeWalk {
  public:
    TreeWalk(const Node *list, MutableDictionary dictionary) {
        open_.push_back({list, std::move(dictionary), nullptr});
        while (!open_.empty()) {
            if (const Node *node = open_.back().next) {
                open_.back().next = node->next;
                add(*node);
            } else {
                close();
            }
        }
    }

  private:
    /// A list whose nodes are being added to a dictionary.
    struct Level {
        const Node *next;
        MutableDictionary dictionary;
        const Node *category; ///< The owner of the dictionary when its attributes are still to come.
    };

    // A set gets its attributes before its children and a category after them: what comes later wins.
    void add(const Node &node) {
        const String identifier(node.id);
        MutableDictionary entry = MutableDictionary::withCapacity(attributeCount);
        open_.back().dictionary.set(identifier, entry);
        if (node.type == kMoxelNodeActionCategory) {
            open_.push_back({node.children, std::move(entry), &node});
            return;
        }
        setAttributes(entry, identifier, node);
        if (const Node *children = childrenOf(node))
            open_.push_back({children, std::move(entry), nullptr});
    }

    void close() {
        Level closed = std::move(open_.back());
        open_.pop_back();
        if (closed.category)
            setAttributes(closed.dictionary, closed.category->id, *closed.category);
    }

    void setAttributes(MutableDictionary &entry, const String &identifier, const Node &node) const {
        entry.set(idKey_, identifier);
        entry.set(labelKey_, textOf(node.label));
        entry.set(descriptionKey_, textOf(node.description));
        entry.set(typeKey_, typeOf(node));
    }

    [[nodiscard]] String textOf(const char *utf8) const { return utf8 ? String(utf8) : none_; }

    [[nodiscard]] const String &typeOf(const Node &node) const {
        switch (node.type) {
        case kMoxelNodeActionSet:
            return actionSet_;
        case kMoxelNodeActionCategory:
            return actionCategory_;
        default:
            return action_;
        }
    }

    static constexpr size_t attributeCount = 4;

    std::vector<Level> open_;
    // Shared by all entries.
    const String idKey_{"id"};
    const String labelKey_{"label"};
    const String descriptionKey_{"description"};
    const String typeKey_{"type"};
    const String actionSet_{"actionset"};
    const String actionCategory_{"actioncategory"};
    const String action_{"action"};
    const String none_{""};
};

} // namespace

Result<void> checkActionTree(const Node *list) {
    std::vector<const Node *> later; // The lists that go on after the children of one of their nodes.
    size_t count = 0;
    const Node *node = list;
    while (node || !later.empty()) {
        if (!node) {
            node = later.back();
            later.pop_back();
        }
        if (++count > nodeLimit)
            return Error{format("The action tree holds itself, or more than %lu nodes", nodeLimit)};
        if (!node->id)
            return Error{format("Node %lu of the action tree has no identifier", count)};
        const Node *children = childrenOf(*node);
        if (children && node->next)
            later.push_back(node->next);
        node = children ? children : node->next;
    }
    return {};
}

void addActionTree(const Node *list, MutableDictionary dictionary) {
    const TreeWalk walk(list, std::move(dictionary));
}

} // namespace moxel
