// The shared, reference-counted storage behind values; only Values/ touches it directly.
#pragma once

#include "../Platform/Export.h"
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace moxel {

/// What a Value holds.
enum class Kind : uint8_t {
    null,
    boolean,
    integer,         ///< Signed 64-bit.
    unsignedInteger, ///< Unsigned 64-bit, above INT64_MAX or given as unsigned.
    real,
    date,
    uid, ///< A reference inside a keyed archive's object table.
    string,
    data,
    array,
    dictionary,
    object, ///< A keyed-codable record.
};

namespace detail {

/// Base of everything on the heap. Born with one reference. Counts are atomic, so values may be passed
/// between threads; a mutable container's contents are not guarded.
class MOXEL_EXPORT Node {
  public:
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    void retain() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    /// Frees the node with the last reference. Freeing a deep tree uses no stack per level.
    void release() const noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            destroy(const_cast<Node *>(this));
    }
    /// Whether the caller's is the only reference, so that a walk cannot meet the node a second time.
    [[nodiscard]] bool hasOneReference() const noexcept {
        return references_.load(std::memory_order_acquire) == 1;
    }
    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] bool isMutable() const noexcept { return mutable_; }

  protected:
    explicit Node(Kind kind, bool isMutable = false) noexcept : kind_(kind), mutable_(isMutable) {}
    virtual ~Node() = default;

  private:
    static void destroy(Node *node) noexcept;

    mutable std::atomic<uint32_t> references_{1};
    const Kind kind_;
    const bool mutable_;
    Node *nextToDestroy_ = nullptr;
};

} // namespace detail

/// A counted reference to a node of type N, or null.
template <class N>
class Ref {
  public:
    Ref() noexcept = default;
    Ref(std::nullptr_t) noexcept {}
    /// Takes over the reference that a new node is born with.
    static Ref adopt(N *node) noexcept {
        Ref ref;
        ref.node_ = node;
        return ref;
    }
    /// Adds a reference.
    static Ref share(N *node) noexcept {
        if (node)
            node->retain();
        return adopt(node);
    }
    Ref(const Ref &other) noexcept : node_(other.node_) {
        if (node_)
            node_->retain();
    }
    Ref(Ref &&other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    /// Refers to the same.
    template <class M>
    requires std::is_convertible_v<M *, N *> Ref(const Ref<M> &other)
    noexcept : Ref(share(other.get())) {}
    /// Takes over what the other one refers to.
    template <class M>
    requires std::is_convertible_v<M *, N *> Ref(Ref<M> &&other)
    noexcept : Ref(adopt(other.leak())) {}
    ~Ref() {
        if (node_)
            node_->release();
    }
    Ref &operator=(Ref other) noexcept {
        std::swap(node_, other.node_);
        return *this;
    }

    /// The node; null when there is none.
    [[nodiscard]] N *get() const noexcept { return node_; }
    /// Only when there is a node.
    N *operator->() const noexcept { return node_; }
    /// Only when there is a node.
    N &operator*() const noexcept { return *node_; }
    explicit operator bool() const noexcept { return node_ != nullptr; }
    /// Gives the reference away without releasing it.
    [[nodiscard]] N *leak() noexcept { return std::exchange(node_, nullptr); }

    /// Identity, not equality of contents.
    friend bool operator==(const Ref &a, const Ref &b) noexcept { return a.node_ == b.node_; }

  private:
    N *node_ = nullptr;
};

/// A new node of type N, referenced once.
template <class N, class... Arguments>
[[nodiscard]] Ref<N> makeRef(Arguments &&...arguments) {
    return Ref<N>::adopt(new N(std::forward<Arguments>(arguments)...));
}

} // namespace moxel
