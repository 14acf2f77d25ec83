// The heap form of a String: header and text in one allocation.
#pragma once

#include "Node.h"

#include <cstddef>
#include <new>
#include <string_view>

namespace moxel::detail {

class StringNode final : public Node {
  public:
    /// Text of `size` bytes that the caller writes to text() before anybody else sees the node.
    [[nodiscard]] static Ref<StringNode> withSize(size_t size, size_t utf16Length, bool isWellFormed) {
        return Ref<StringNode>::adopt(new (TrailingBytes{size + 1})
                                          StringNode(size, utf16Length, isWellFormed));
    }

    [[nodiscard]] char *text() noexcept { return reinterpret_cast<char *>(this + 1); }
    [[nodiscard]] std::string_view view() const noexcept {
        return {reinterpret_cast<const char *>(this + 1), size_};
    }
    [[nodiscard]] size_t utf16Length() const noexcept { return utf16Length_; }
    [[nodiscard]] bool isWellFormed() const noexcept { return isWellFormed_; }

    // Without a size: the text makes a node larger than its type.
    static void operator delete(void *memory) noexcept { // NOLINT(misc-new-delete-overloads)
        ::operator delete(memory);
    }

  private:
    struct TrailingBytes {
        size_t count;
    };

    StringNode(size_t size, size_t utf16Length, bool isWellFormed) noexcept
        : Node(Kind::string), size_(size), utf16Length_(utf16Length), isWellFormed_(isWellFormed) {
        text()[size] = '\0';
    }

    static void *operator new(size_t size, TrailingBytes trailing) {
        return ::operator new(size + trailing.count);
    }
    static void operator delete(void *memory, TrailingBytes) noexcept { ::operator delete(memory); }

    const size_t size_;
    const size_t utf16Length_;
    const bool isWellFormed_;
};

} // namespace moxel::detail
