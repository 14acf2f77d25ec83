// Equality of values at any depth, in constant stack and in time that sharing cannot multiply.
#include "ContainerNodes.h"
#include "DataNode.h"
#include "KeyedArchive.h"
#include "StringNode.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>
#include <unordered_map>

namespace moxel {

namespace {

using detail::ArrayNode;
using detail::DataNode;
using detail::DictionaryNode;
using detail::Node;
using detail::StringNode;

bool realsEqual(double a, double b) noexcept { return a == b || (std::isnan(a) && std::isnan(b)); }

/// Compares by value; exact where a conversion to a common type would round.
bool numbersEqual(const Value &a, const Value &b) noexcept {
    if (a.kind() == Kind::real && b.kind() == Kind::real)
        return realsEqual(a.doubleValue(), b.doubleValue());
    if (b.kind() == Kind::real)
        return numbersEqual(b, a);
    const auto isAboveSigned = [](const Value &v) {
        return v.kind() == Kind::unsignedInteger && v.uint64Value() > INT64_MAX;
    };
    if (a.kind() != Kind::real)
        return a.int64Value() == b.int64Value() && isAboveSigned(a) == isAboveSigned(b);
    const double real = a.doubleValue();
    if (real != b.doubleValue())
        return false;
    // The integer may have been rounded to this real, which is whole and can be converted back exactly
    // unless it lies just beyond the range.
    if (isAboveSigned(b))
        return real < 0x1p64 && static_cast<uint64_t>(real) == b.uint64Value();
    return real < 0x1p63 && static_cast<int64_t>(real) == b.int64Value();
}

/// Nodes found or assumed to be equal, as disjoint sets (union by find, with path halving). Nodes of one set
/// need no second look, so a comparison takes at most one step per node however often nodes are shared, and
/// ends where containers hold themselves. The first difference ends a comparison, so that no assumption
/// outlives it.
class EqualNodes {
  public:
    /// False when the two were in one set already.
    bool unite(const Node *a, const Node *b) {
        a = find(a);
        b = find(b);
        if (a == b)
            return false;
        parents_[a] = b;
        return true;
    }
    void clear() noexcept { parents_.clear(); }

  private:
    const Node *find(const Node *node) {
        for (;;) {
            const auto at = parents_.find(node);
            if (at == parents_.end())
                return node;
            const auto above = parents_.find(at->second);
            if (above == parents_.end())
                return at->second;
            at->second = above->second;
            node = above->second;
        }
    }

    std::unordered_map<const Node *, const Node *> parents_;
};

/// What comparisons share that run inside each other, on one thread, because records compare their members.
class NestedComparison {
  public:
    NestedComparison() noexcept : outer_(current_) { current_ = outer_ ? outer_ : this; }
    ~NestedComparison() { current_ = outer_; }
    NestedComparison(const NestedComparison &) = delete;
    NestedComparison &operator=(const NestedComparison &) = delete;

    [[nodiscard]] EqualNodes &equalNodes() noexcept { return current_->equalNodes_; }

    bool areEqual(const Object &a, const Object &b) {
        if (current_->depth_ == maxDepth || typeid(a) != typeid(b))
            return false;
        ++current_->depth_;
        const bool equal = a.isEqual(b);
        --current_->depth_;
        return equal;
    }

  private:
    /// Records nested deeper than this within each other are compared by identity.
    static constexpr int maxDepth = 64;

    static constinit thread_local NestedComparison *current_;

    NestedComparison *const outer_;
    EqualNodes equalNodes_;
    int depth_ = 0;
};

constinit thread_local NestedComparison *NestedComparison::current_ = nullptr;

/// One comparison of two values. Lives for one call, on its thread.
class Comparison {
  public:
    bool run(const Value &a, const Value &b) {
        bool equal = compare(a, b);
        while (equal && !pending_.empty()) {
            Pair &pair = pending_.back();
            if (pair.next == pair.size)
                pending_.pop_back();
            else
                equal = compareMember(pair.a, pair.b, pair.next++);
        }
        if (!equal)
            nested_.equalNodes().clear();
        return equal;
    }

  private:
    /// Two containers of one size whose members are being compared.
    struct Pair {
        const Node *a;
        const Node *b;
        size_t size;
        size_t next = 0;
    };

    /// False for a difference; the members of containers are left for later.
    bool compare(const Value &a, const Value &b) {
        const Node *nodeA = a.node();
        const Node *nodeB = b.node();
        if (!nodeA || !nodeB || nodeA == nodeB || a.kind() != b.kind())
            return a == b;
        switch (a.kind()) {
        case Kind::array:
            return push(nodeA, nodeB, static_cast<const ArrayNode *>(nodeA)->values.size(),
                        static_cast<const ArrayNode *>(nodeB)->values.size());
        case Kind::dictionary:
            return push(nodeA, nodeB, static_cast<const DictionaryNode *>(nodeA)->entries().size(),
                        static_cast<const DictionaryNode *>(nodeB)->entries().size());
        case Kind::object:
            return compareObjects(static_cast<const Object &>(*nodeA), static_cast<const Object &>(*nodeB));
        default:
            return a == b;
        }
    }

    bool push(const Node *a, const Node *b, size_t sizeA, size_t sizeB) {
        if (sizeA != sizeB)
            return false;
        if (isNew(a, b))
            pending_.push_back({a, b, sizeA});
        return true;
    }

    bool compareObjects(const Object &a, const Object &b) {
        if (!isNew(&a, &b))
            return true;
        const auto *genericA = dynamic_cast<const GenericObject *>(&a);
        const auto *genericB = dynamic_cast<const GenericObject *>(&b);
        if (!genericA || !genericB)
            return nested_.areEqual(a, b);
        const ArchivedClass &classA = genericA->archivedClass();
        const ArchivedClass &classB = genericB->archivedClass();
        return (&classA == &classB || classA == classB) && compare(genericA->members(), genericB->members());
    }

    /// Two nodes that are not shared cannot be met together again.
    bool isNew(const Node *a, const Node *b) {
        return (a->hasOneReference() && b->hasOneReference()) || nested_.equalNodes().unite(a, b);
    }

    bool compareMember(const Node *a, const Node *b, size_t index) {
        if (a->kind() == Kind::array)
            return compare(static_cast<const ArrayNode *>(a)->values[index],
                           static_cast<const ArrayNode *>(b)->values[index]);
        const Dictionary::Entry &entry = static_cast<const DictionaryNode *>(a)->entries()[index];
        const Dictionary::Entry *other = static_cast<const DictionaryNode *>(b)->find(entry.key.view());
        return other && compare(entry.value, other->value);
    }

    NestedComparison nested_;
    std::vector<Pair> pending_;
};

} // namespace

bool operator==(const Value &a, const Value &b) noexcept {
    if (a.isNumber() && b.isNumber())
        return numbersEqual(a, b);
    if (a.kind() != b.kind())
        return false;
    const Node *nodeA = a.node();
    const Node *nodeB = b.node();
    switch (a.kind()) {
    case Kind::date:
        return realsEqual(a.asDate().secondsSince2001, b.asDate().secondsSince2001);
    case Kind::uid:
        return a.asUID() == b.asUID();
    case Kind::string:
        return static_cast<const StringNode *>(nodeA)->view() ==
               static_cast<const StringNode *>(nodeB)->view();
    case Kind::data:
        return std::ranges::equal(static_cast<const DataNode *>(nodeA)->bytes(),
                                  static_cast<const DataNode *>(nodeB)->bytes());
    case Kind::array:
    case Kind::dictionary:
    case Kind::object:
        return nodeA == nodeB || Comparison().run(a, b);
    default:
        return true;
    }
}

} // namespace moxel
