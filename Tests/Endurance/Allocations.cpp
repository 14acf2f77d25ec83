#include "Endurance/Allocations.h"

#include "Support/Sanitizers.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
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

void *counted(void *block) noexcept {
    if (block != nullptr)
        blocksInUse.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void uncount(const void *block) noexcept {
    if (block != nullptr)
        blocksInUse.fetch_sub(1, std::memory_order_relaxed);
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

// What the C library calls its own functions. Everybody's calls come here, those of libraries too.
#pragma GCC visibility push(default)
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

void *malloc(size_t size) noexcept { return mayAllocate() ? counted(__libc_malloc(size)) : nullptr; }
void *calloc(size_t count, size_t size) noexcept {
    return mayAllocate() ? counted(__libc_calloc(count, size)) : nullptr;
}
void *realloc(void *block, size_t size) noexcept {
    if (!mayAllocate())
        return nullptr;
    void *moved = __libc_realloc(block, size);
    if (block == nullptr)
        return counted(moved);
    if (moved == nullptr && size == 0)
        uncount(block);
    return moved;
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
    uncount(block);
    __libc_free(block);
}
}
#pragma GCC visibility pop

#endif
