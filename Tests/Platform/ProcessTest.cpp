// The process's identifier, its random numbers, and errors from the system.
#include "Platform/Process.h"
#include "Platform/Result.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <unistd.h>

namespace moxel {
namespace {

TEST(Process, IdentifierIsTheSystems) { EXPECT_EQ(processIdentifier(), ::getpid()); }

TEST(Process, ReseedingStartsANewSequenceOfRandomNumbers) {
    std::set<std::pair<long, long>> beginnings;
    for (int i = 0; i < 10; ++i) {
        ::srandom(1);
        reseedRandomNumberGenerator();
        const long first = ::random();
        beginnings.emplace(first, ::random());
    }
    EXPECT_GE(beginnings.size(), 9u);
}

TEST(SystemError, NamesWhatFailedAndWhy) {
    const Error error = systemError("Cannot open file", ENOENT);
    EXPECT_EQ(error.message, "Cannot open file: No such file or directory");
    EXPECT_EQ(error.code, ENOENT);
}

TEST(SystemError, UnknownNumbersHaveATextToo) {
    EXPECT_NE(systemError("What", 99999).message.find("99999"), std::string::npos);
}

} // namespace
} // namespace moxel
