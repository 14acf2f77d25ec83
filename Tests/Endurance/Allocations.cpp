#include "Endurance/Allocations.h"

#include "Support/Sanitizers.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <execinfo.h>
#include <limits>
#include <mutex>
#include <new>
#include <sys/auxv.h>
#include <unistd.h>
#include <utility>

namespace moxel::endurance {

namespace {

constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

std::atomic<int64_t> blocksInUse{0};
std::atomic<bool> isArmed{false};
std::atomic<uint64_t> position{0};
std::atomic<uint64_t> firstFailure{never};
std::atomic<uint64_t> failureCount{0};
std::atomic<uint64_t> failures{0};
thread_local int exemptions = 0;

bool mayAllocate() noexcept {
    if (!isArmed.load(std::memory_order_relaxed) || exemptions > 0)
        return true;
    const uint64_t number = position.fetch_add(1, std::memory_order_relaxed);
    const uint64_t first = firstFailure.load(std::memory_order_relaxed);
    if (number < first || number - first >= failureCount.load(std::memory_order_relaxed))
        return true;
    failures.fetch_add(1, std::memory_order_relaxed);
    errno = ENOMEM;
    return false;
}

/// Who allocated the blocks in use. It allocates nothing: a block that finds no place within reach of its own
/// stays without an entry.
class Origins {
  public:
    void note(const void *block) noexcept {
        if (!isKept_.load(std::memory_order_relaxed) || isNoting)
            return;
        isNoting = true; // Looking at the stack may allocate.
        Entry entry{block, 0, {}};
        entry.depth = ::backtrace(entry.stack.data(), static_cast<int>(entry.stack.size()));
        isNoting = false;
        const std::lock_guard lock(mutex_);
        if (Entry *place = find(block, nullptr))
            *place = entry;
    }
    void forget(const void *block) noexcept {
        if (!isKept_.load(std::memory_order_relaxed) || isNoting)
            return;
        const std::lock_guard lock(mutex_);
        if (Entry *place = find(block, block))
            place->block = nullptr;
    }
    void keep() {
        void *warmUp[1];
        (void)::backtrace(warmUp, 1); // The first call loads a library.
        isKept_ = true;
    }
    /// Remembers how many blocks each stack has in use.
    void mark() {
        const std::lock_guard lock(mutex_);
        markedCount_ = 0;
        for (const Entry &entry : entries_)
            if (entry.block != nullptr)
                marked_[markedCount_++] = entry.stack;
    }
    /// Writes the stacks that have more blocks in use than they had.
    void writeAdded(int descriptor) {
        const std::lock_guard lock(mutex_);
        for (const Entry &entry : entries_) {
            if (entry.block == nullptr || wereInUse(entry.stack) >= inUse(entry.stack))
                continue;
            constexpr char title[] = "in use and of:\n";
            (void)!::write(descriptor, title, sizeof title - 1);
            ::backtrace_symbols_fd(entry.stack.data(), entry.depth, descriptor);
        }
    }

  private:
    using Stack = std::array<void *, 24>;
    struct Entry {
        const void *block = nullptr;
        int depth = 0;
        Stack stack{};
    };
    static constexpr size_t reach = 64;
    static constexpr size_t size = 1 << 14;

    Entry *find(const void *home, const void *content) noexcept {
        const size_t start = reinterpret_cast<uintptr_t>(home) / alignof(std::max_align_t);
        for (size_t i = 0; i < reach; ++i)
            if (Entry &entry = entries_[(start + i) % size]; entry.block == content)
                return &entry;
        return nullptr;
    }

    [[nodiscard]] std::ptrdiff_t inUse(const Stack &stack) const {
        return std::ranges::count_if(
            entries_, [&](const Entry &entry) { return entry.block != nullptr && entry.stack == stack; });
    }
    [[nodiscard]] std::ptrdiff_t wereInUse(const Stack &stack) const {
        return std::count(marked_.begin(), marked_.begin() + static_cast<std::ptrdiff_t>(markedCount_),
                          stack);
    }

    static inline thread_local bool isNoting = false;
    std::atomic<bool> isKept_{false};
    std::mutex mutex_;
    std::array<Entry, size> entries_{};
    std::array<Stack, size> marked_{}; ///< One for each block.
    size_t markedCount_ = 0;
};
constinit Origins origins;

void *counted(void *block) noexcept {
    if (block != nullptr) {
        blocksInUse.fetch_add(1, std::memory_order_relaxed);
        origins.note(block);
    }
    return block;
}

void uncount(const void *block) noexcept {
    if (block != nullptr) {
        blocksInUse.fetch_sub(1, std::memory_order_relaxed);
        origins.forget(block);
    }
}

} // namespace

void Allocations::failFrom(uint64_t first, uint64_t count) {
    position = 0;
    failures = 0;
    firstFailure = first;
    failureCount = count;
    isArmed = true;
}

void Allocations::failNoMore() { isArmed = false; }

int64_t Allocations::inUse() { return blocksInUse; }

uint64_t Allocations::since() { return position; }

uint64_t Allocations::failed() { return failures; }

void Allocations::keepOrigins() { origins.keep(); }

void Allocations::markOrigins() { origins.mark(); }

void Allocations::writeAddedOrigins(int descriptor) { origins.writeAdded(descriptor); }

Allocations::Exempt::Exempt() { ++exemptions; }

Allocations::Exempt::~Exempt() { --exemptions; }

Allocations::Tested::Tested() : before_(std::exchange(exemptions, 0)) {}

Allocations::Tested::~Tested() { exemptions = before_; }

} // namespace moxel::endurance

using moxel::endurance::counted;
using moxel::endurance::mayAllocate;
using moxel::endurance::uncount;

#if MOXEL_UNDER_SANITIZERS

void *operator new(size_t size) {
    void *block = mayAllocate() ? counted(std::malloc(size)) : nullptr;
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    return mayAllocate() ? counted(std::malloc(size)) : nullptr;
}
void operator delete(void *block) noexcept {
    uncount(block);
    std::free(block);
}
void operator delete(void *block, size_t) noexcept { operator delete(block); }

#else

namespace {

/// The dynamic loader allocates what threads have of their own. The C library keeps that of some threads that
/// have ended for those to come, so that it tells nothing.
bool isLoader(const void *caller) noexcept {
    constexpr uintptr_t mostOfALoader = 256 << 10;
    static const uintptr_t begin = ::getauxval(AT_BASE);
    const auto address = reinterpret_cast<uintptr_t>(caller);
    return address >= begin && address - begin < mostOfALoader;
}

void *countedFor(const void *caller, void *block) noexcept {
    return isLoader(caller) ? block : counted(block);
}

void uncountFor(const void *caller, const void *block) noexcept {
    if (!isLoader(caller))
        uncount(block);
}

} // namespace

// What the C library calls its own functions. Everybody's calls come here, those of libraries too.
#pragma GCC visibility push(default)
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

void *malloc(size_t size) noexcept {
    return mayAllocate() ? countedFor(__builtin_return_address(0), __libc_malloc(size)) : nullptr;
}
void *calloc(size_t count, size_t size) noexcept {
    return mayAllocate() ? countedFor(__builtin_return_address(0), __libc_calloc(count, size)) : nullptr;
}
void *realloc(void *block, size_t size) noexcept {
    if (!mayAllocate())
        return nullptr;
    const void *caller = __builtin_return_address(0);
    if (block == nullptr)
        return countedFor(caller, __libc_realloc(block, size));
    uncountFor(caller, block);
    void *moved = __libc_realloc(block, size);
    return moved == nullptr && size != 0 ? (countedFor(caller, block), nullptr) : countedFor(caller, moved);
}
void *memalign(size_t alignment, size_t size) noexcept {
    return mayAllocate() ? counted(__libc_memalign(alignment, size)) : nullptr;
}
void *aligned_alloc(size_t alignment, size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void **block, size_t alignment, size_t size) noexcept {
    void *made = memalign(alignment, size);
    if (made == nullptr)
        return ENOMEM;
    *block = made;
    return 0;
}
void free(void *block) noexcept {
    uncountFor(__builtin_return_address(0), block);
    __libc_free(block);
}
}
#pragma GCC visibility pop

#endif
