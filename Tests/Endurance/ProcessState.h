// What a process has of threads, descriptors and memory.
#pragma once

#include "Endurance/Allocations.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <string>
#include <thread>

namespace moxel::endurance {

struct ProcessState {
    size_t threads = 0;
    size_t descriptors = 0;
    int64_t blocks = 0; ///< Of memory.

    static ProcessState now() {
        const Allocations::Exempt exempt;
        const int64_t blocks = Allocations::inUse();
        return {entries("/proc/self/task"), entries("/proc/self/fd"), blocks};
    }
    /// The state when the threads that were left to themselves have ended, and nothing is more than before,
    /// if it comes to that. What others of the library's threads have in hand at a time counts as memory.
    static ProcessState atRest(const ProcessState &before, std::chrono::milliseconds patience,
                               std::chrono::milliseconds patienceWithMemory) {
        const auto start = std::chrono::steady_clock::now();
        for (;;) {
            const ProcessState state = now();
            const bool isMore = state.threads > before.threads || state.descriptors > before.descriptors;
            const auto limit = isMore                         ? patience
                               : state.blocks > before.blocks ? patienceWithMemory
                                                              : std::chrono::milliseconds(0);
            if (std::chrono::steady_clock::now() - start >= limit)
                return state;
            std::this_thread::sleep_for(
                std::chrono::milliseconds(1)); // The end of another cannot be awaited.
        }
    }
    [[nodiscard]] std::string description() const {
        return std::to_string(threads) + " threads, " + std::to_string(descriptors) + " descriptors, " +
               std::to_string(blocks) + " blocks";
    }

  private:
    static size_t entries(const char *folder) {
        size_t count = 0;
        DIR *listing = ::opendir(folder);
        while (listing != nullptr && ::readdir(listing) != nullptr)
            ++count;
        if (listing != nullptr)
            ::closedir(listing);
        return count;
    }
};

} // namespace moxel::endurance
