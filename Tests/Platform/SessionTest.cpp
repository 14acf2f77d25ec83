// Session queries: overrides, and the account database.
#include "Platform/Session.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace moxel {
namespace {

using test::ChildProgram;

SessionDescription description(std::optional<bool> onConsole, std::optional<std::string> userName) {
    return {onConsole, std::move(userName)};
}

TEST(SessionOverride, AnswersInsteadOfTheService) {
    bool active = true;
    const SessionOverride session([&] { return description(active, "someone"); });
    ASSERT_TRUE(currentSession().has_value());
    EXPECT_EQ(currentSession()->userName, "someone");
    EXPECT_EQ(currentSession()->onConsole, true);
    EXPECT_EQ(currentSessionOnConsole(), true);
    active = false;
    EXPECT_EQ(currentSession()->onConsole, false);
    EXPECT_EQ(currentSessionOnConsole(), false);
}

TEST(SessionOverride, MayKnowNothing) {
    {
        const SessionOverride session([] { return description(std::nullopt, std::nullopt); });
        ASSERT_TRUE(currentSession().has_value());
        EXPECT_EQ(currentSession()->onConsole, std::nullopt);
        EXPECT_EQ(currentSession()->userName, std::nullopt);
        EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
    }
    const SessionOverride session([] { return std::nullopt; });
    EXPECT_FALSE(currentSession().has_value());
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
}

TEST(SessionOverride, NewestWinsAndTheOlderOneComesBack) {
    const SessionOverride outer([] { return description(true, "outer"); });
    {
        const SessionOverride inner([] { return description(false, "inner"); });
        EXPECT_EQ(currentSession()->userName, "inner");
        EXPECT_EQ(currentSessionOnConsole(), false);
    }
    EXPECT_EQ(currentSession()->userName, "outer");
    EXPECT_EQ(currentSessionOnConsole(), true);
}

TEST(SessionOverride, EndsWhileOtherThreadsAsk) {
    const SessionOverride outer([] { return description(true, "outer"); });
    std::atomic<bool> done = false;
    std::thread asking([&done] {
        while (!done)
            EXPECT_TRUE(currentSessionOnConsole().has_value());
    });
    for (int i = 0; i < 100; ++i) {
        auto alive = std::make_unique<std::atomic<int>>(0);
        {
            const SessionOverride inner([&alive] {
                ++*alive;
                return description(false, "inner");
            });
            while (*alive == 0)
                std::this_thread::yield();
        }
        alive.reset(); // the source must not run any more
    }
    done = true;
    asking.join();
}

TEST(UserIdentifierForName, KnowsTheSuperUser) { EXPECT_EQ(userIdentifierForName("root"), 0u); }

TEST(UserIdentifierForName, IsAbsentForUnknownNames) {
    EXPECT_EQ(userIdentifierForName("no such user, surely"), std::nullopt);
    EXPECT_EQ(userIdentifierForName(""), std::nullopt);
    EXPECT_EQ(userIdentifierForName(std::string("root\0x", 6)), std::nullopt);
}

const ChildProgram longAccounts("longAccounts", [] {
    test::mountEmpty("/run");
    std::ofstream("/run/passwd") << "root:x:0:0:root:/root:/bin/sh\n"
                                 << "verbose:x:4242:0:" << std::string(60'000, 'x')
                                 << ":/home/verbose:/bin/sh\n"
                                 << "excessive:x:4243:0:" << std::string(3'000'000, 'x') << ":/:/bin/sh\n";
    if (::mount("/run/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0)
        ChildProgram::skip("cannot mount over /etc/passwd");
    EXPECT_EQ(userIdentifierForName("verbose"), 4242u);
    EXPECT_EQ(userIdentifierForName("excessive"), std::nullopt);
});

TEST(UserIdentifierForName, ReadsLongEntriesWithinReason) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    longAccounts.run({}, ChildProgram::Place::ownNamespaces);
}

} // namespace
} // namespace moxel
