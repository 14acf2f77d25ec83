// Queries of the login session.
#include "Platform/Session.h"
#include "Values/String.h"
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace moxel {
namespace {

TEST(CheckUserActive, WithoutASessionIsTrueAndTheUserIs0) {
    const SessionOverride session([]() -> std::optional<SessionDescription> { return std::nullopt; });
    EXPECT_TRUE(MoxelCheckUserActive());
    EXPECT_EQ(MoxelGetSessionUserID(), 0U);
}

TEST(CheckUserActive, OffTheConsoleIsFalseAndTheUserIs0) {
    const SessionOverride session([] { return SessionDescription{false, std::string("nobody")}; });
    EXPECT_FALSE(MoxelCheckUserActive());
    EXPECT_EQ(MoxelGetSessionUserID(), 0U);
}

TEST(CheckUserActive, OnTheConsoleIsTrueAndTheUserIsTheSessions) {
    const SessionOverride session([] { return SessionDescription{true, std::string("nobody")}; });
    EXPECT_TRUE(MoxelCheckUserActive());
    EXPECT_EQ(MoxelGetSessionUserID(), userIdentifierForName("nobody").value());
    EXPECT_NE(MoxelGetSessionUserID(), 0U);
}

TEST(CheckUserActive, OnTheConsoleWithAnUnknownUserNameTheUserIs0) {
    const SessionOverride session([] { return SessionDescription{true, std::string("no-such-user-here")}; });
    EXPECT_TRUE(MoxelCheckUserActive());
    EXPECT_EQ(MoxelGetSessionUserID(), 0U);
}

TEST(CheckUserActive, WithoutAConsoleStateIsTrueButTheUserIs0) {
    const SessionOverride session([] { return SessionDescription{std::nullopt, std::string("nobody")}; });
    EXPECT_TRUE(MoxelCheckUserActive());
    EXPECT_EQ(MoxelGetSessionUserID(), 0U);
}

TEST(CheckUserActive, WithoutAUserNameTheUserIs0) {
    const SessionOverride session([] { return SessionDescription{true, std::nullopt}; });
    EXPECT_EQ(MoxelGetSessionUserID(), 0U);
}

TEST(CopyUTF8String, OfAnEmptyStringIsAllocatedAndEmpty) {
    const String empty("");
    char *copy = CFStringCopyUTF8String(&empty);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "");
    std::free(copy);
}

TEST(CopyUTF8String, IsTheTextInUTF8) {
    const String text("aä€😀");
    char *copy = CFStringCopyUTF8String(&text);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    std::free(copy);
}

TEST(CopyUTF8String, OfNullOrOfWhatUTF8CannotExpressIsNull) {
    const String null;
    EXPECT_EQ(CFStringCopyUTF8String(nullptr), nullptr);
    EXPECT_EQ(CFStringCopyUTF8String(&null), nullptr);
    const char16_t lone[] = {u'a', 0xD800};
    const String broken = String::fromUTF16(lone);
    EXPECT_EQ(CFStringCopyUTF8String(&broken), nullptr);
}

} // namespace
} // namespace moxel
