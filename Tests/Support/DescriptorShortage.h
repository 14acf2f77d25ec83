// A process that has no descriptor left.
#pragma once

#include "Platform/Result.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace moxel::test {

/// Uses up the process's descriptors until destroyed, except for as many as `spare`.
class DescriptorShortage {
  public:
    explicit DescriptorShortage(size_t spare = 0) {
        // The undefined-behaviour sanitizer needs a pipe when it first meets a class.
        (void)systemError("", EMFILE);
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
        // A low limit is reached soon.
        rlimit low = before_;
        low.rlim_cur = std::min<rlim_t>(before_.rlim_cur, 512);
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
        for (int copy = ::dup(STDERR_FILENO); copy >= 0; copy = ::dup(STDERR_FILENO))
            copies_.push_back(copy);
        for (; spare > 0; --spare) {
            ::close(copies_.back());
            copies_.pop_back();
        }
    }
    ~DescriptorShortage() {
        for (const int copy : copies_)
            ::close(copy);
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0);
    }
    DescriptorShortage(const DescriptorShortage &) = delete;
    DescriptorShortage &operator=(const DescriptorShortage &) = delete;

  private:
    rlimit before_{};
    std::vector<int> copies_;
};

} // namespace moxel::test
