// The program's own allocation functions: they count what is in use, and fail when they are told to.
#pragma once

#include <cstdint>

namespace moxel::endurance {

/// Under sanitizers, which have allocation functions of their own, only C++'s operators count and fail.
class Allocations {
  public:
    /// From now on, allocation number `first` (from 0) and those behind it, `count` in all, fail. Allocations
    /// of exempt threads are neither counted nor failed.
    static void failFrom(uint64_t first, uint64_t count);
    static void failNoMore();

    /// Blocks that are in use.
    [[nodiscard]] static int64_t inUse();
    /// Allocations since failFrom().
    [[nodiscard]] static uint64_t since();
    [[nodiscard]] static uint64_t failed();

    /// From now on, remembers for each block in use who allocated it.
    static void keepOrigins();
    /// Remembers how many blocks each of them has in use.
    static void markOrigins();
    /// Writes the stacks of those who have more than they had at the mark.
    static void writeAddedOrigins(int descriptor);

    /// While it exists, the thread's allocations are those of the test, not of what is tested.
    class Exempt {
      public:
        Exempt();
        ~Exempt();
        Exempt(const Exempt &) = delete;
        Exempt &operator=(const Exempt &) = delete;
    };
    /// While it exists, the thread's allocations are those of what is tested although it is exempt.
    class Tested {
      public:
        Tested();
        ~Tested();
        Tested(const Tested &) = delete;
        Tested &operator=(const Tested &) = delete;

      private:
        int before_;
    };
};

} // namespace moxel::endurance
