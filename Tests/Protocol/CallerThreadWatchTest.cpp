// The watch over messages that wait for a thread: when it speaks, when it is silent, and what it costs.
#include "Protocol/CallerThreadWatch.h"
#include "Support/CapturedLog.h"

#include <gtest/gtest.h>

#include <vector>

namespace moxel {
namespace {

/// Time passes when a test says so.
class CallerThread : public testing::Test {
  protected:
    /// Two seconds pass: the looks that are due happen.
    void passTime() {
        std::vector<RunLoop::Callback> due;
        due.swap(looks);
        for (const RunLoop::Callback &look : due)
            look();
    }
    [[nodiscard]] size_t complaints() const {
        return log.countContaining("messages have waited for more than 2 s for a thread that does not run");
    }

    std::vector<RunLoop::Callback> looks;
    bool hasTimers = true;
    std::shared_ptr<CallerThreadWatch> watch =
        std::make_shared<CallerThreadWatch>([this](RunLoop::Seconds delay, RunLoop::Callback call) {
            EXPECT_EQ(delay.count(), 2.0);
            if (hasTimers)
                looks.push_back(std::move(call));
            return hasTimers;
        });
    test::CapturedLog log;
};

TEST_F(CallerThread, ThatTakesNothingForTwoSecondsIsComplainedOf) {
    watch->posted();
    EXPECT_EQ(complaints(), 0U);
    passTime();
    EXPECT_EQ(complaints(), 1U);
}

TEST_F(CallerThread, IsComplainedOfOnce) {
    for (int i = 0; i < 5; ++i) {
        watch->posted();
        passTime();
    }
    watch->taken();
    watch->posted();
    passTime();
    EXPECT_EQ(complaints(), 1U);
    EXPECT_TRUE(looks.empty());
}

TEST_F(CallerThread, ThatKeepsUpIsNotComplainedOf) {
    for (int i = 0; i < 5; ++i) {
        watch->posted();
        watch->taken();
        watch->posted(); // One always waits when the look comes.
        passTime();
        watch->taken();
    }
    EXPECT_EQ(complaints(), 0U);
}

TEST_F(CallerThread, ThatStopsAfterItHasBegunIsComplainedOf) {
    watch->posted();
    watch->posted();
    watch->taken();
    passTime();
    EXPECT_EQ(complaints(), 0U) << "what waits now may have come a moment ago";
    passTime();
    EXPECT_EQ(complaints(), 1U);
}

TEST_F(CallerThread, WithNothingToTakeCostsNothing) {
    EXPECT_TRUE(looks.empty());
    watch->posted();
    watch->posted();
    EXPECT_EQ(looks.size(), 1U) << "one timer is enough";
    watch->taken();
    watch->taken();
    passTime();
    EXPECT_TRUE(looks.empty());
    watch->posted();
    EXPECT_EQ(looks.size(), 1U);
}

TEST_F(CallerThread, IsWatchedOnceThereAreTimersAgain) {
    hasTimers = false;
    watch->posted();
    hasTimers = true;
    watch->posted();
    passTime();
    EXPECT_EQ(complaints(), 1U);
}

TEST_F(CallerThread, MayOutliveItsWatch) {
    watch->posted();
    watch.reset();
    passTime();
    EXPECT_EQ(complaints(), 0U);
}

} // namespace
} // namespace moxel
