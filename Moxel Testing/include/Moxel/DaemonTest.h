// A GoogleTest fixture for an application's own suite: each test has a daemon that it can tell what to do.
#pragma once

#include "Platform/Session.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>
#include <Moxel/TestDaemon.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace moxel {

/// Starts a TestDaemon before each test and stops it afterwards. The application's code under test opens its
/// sessions as it always does. Tests behave the same on a desktop, over ssh and on a build server: the
/// session that this process runs in is not asked whether it is on the console.
///
/// Lives on the test's thread.
class DaemonTest : public ::testing::Test {
  protected:
    /// How long a test waits for what must come.
    static constexpr std::chrono::milliseconds patience{10000};

    /// Asked before the daemon is started.
    [[nodiscard]] virtual TestDaemonOptions daemonOptions() const { return {}; }

    /// Starts the daemon; the test fails when it cannot be.
    void SetUp() override {
        TestDaemonOptions options = daemonOptions();
        if (!options.user)
            options.user = 0; // Whom sessions look for where there is no console.
        Result<std::unique_ptr<TestDaemon>> started = TestDaemon::start(options);
        ASSERT_TRUE(started.ok()) << started.error().message;
        daemon_ = *std::move(started);
    }
    /// Stops the daemon.
    void TearDown() override { daemon_.reset(); }

    /// Only after SetUp().
    [[nodiscard]] TestDaemon &daemon() const { return *daemon_; }

    /// Plays a trace to its end; the test fails when it is no trace.
    void play(std::string_view trace) const {
        const Result<void> playing = daemon_->play(trace);
        ASSERT_TRUE(playing.ok()) << playing.error().message;
        EXPECT_TRUE(daemon_->waitUntilPlayed(patience)) << "the trace takes too long";
    }
    /// The test fails when there is no such fault.
    void addFault(std::string_view fault) const {
        const Result<void> added = daemon_->addFault(fault);
        EXPECT_TRUE(added.ok()) << (added.ok() ? std::string() : added.error().message);
    }
    /// Runs the calling thread's run loop, so that handlers are called, until the predicate holds; false when
    /// `patience` is over first.
    [[nodiscard]] static bool runUntil(const std::function<bool()> &holds) {
        using std::chrono::milliseconds;
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!holds()) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left <= milliseconds(0) || MoxelRunLoopDispatch(static_cast<int>(left.count())) < 0)
                return false;
        }
        return true;
    }

  private:
    SessionOverride session_{[]() -> std::optional<SessionDescription> { return std::nullopt; }};
    std::unique_ptr<TestDaemon> daemon_;
};

} // namespace moxel
