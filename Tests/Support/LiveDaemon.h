// A reference daemon on a bus folder of its own, and the sessions of a test with it.
#pragma once

#include "Moxel Daemon/Daemon.h"
#include "Session/ClientRegistry.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HandlerRecorder.h"
#include "Support/TemporaryFolder.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::test {

/// True where the tests' daemons publish through the kernel, whose devices the library then finds.
inline bool usesKernel() {
    const char *bus = std::getenv("MOXEL_TEST_BUS");
    return bus != nullptr && std::string_view(bus) == "uhid";
}

/// Starts without a daemon; whatever session a test leaves behind is ended with it.
class LiveDaemonTest : public ::testing::Test {
  protected:
    static constexpr std::chrono::seconds patience{10};
    static constexpr uint64_t firstReport = 0;

    void SetUp() override { HandlerRecorder::instance().clear(); }
    void TearDown() override { endSession(); }

    void startDaemon(daemon::Options options = {}) {
        if (usesKernel())
            options.bus = daemon::Options::Bus::uhid;
        else
            options.busFolder = folder.path("bus");
        Result<std::unique_ptr<daemon::Daemon>> started = daemon::Daemon::start(std::move(options));
        ASSERT_TRUE(started.ok()) << started.error().message;
        moxeld = *std::move(started);
    }
    void startDaemonWithFaults(const daemon::Faults &faults) {
        daemon::Options options;
        options.faults = faults;
        startDaemon(std::move(options));
    }

    static int16_t install(bool threaded = false) {
        return SetMoxelHandlers(HandlerRecorder::message, HandlerRecorder::added, HandlerRecorder::removed,
                                threaded);
    }
    /// Registers the calling thread's session under a name of at most 255 bytes.
    static uint16_t registerAs(const std::string &name, uint16_t mode = 3, uint32_t mask = 0x3F) {
        std::vector<uint8_t> pascal(1 + name.size());
        pascal[0] = static_cast<uint8_t>(name.size());
        std::ranges::copy(name, pascal.begin() + 1);
        return RegisterMoxelClient(0x54657374, pascal.data(), mode, mask);
    }
    /// Installs and registers; the client identifier.
    static uint16_t beginSession(bool threaded = false) {
        EXPECT_EQ(install(threaded), 0);
        const uint16_t clientID = registerAs("Test");
        EXPECT_NE(clientID, 0);
        return clientID;
    }
    /// Ends the calling thread's session, whatever its state.
    static void endSession() {
        if (CurrentPendingClient()) // It may stand beside one whose registration failed.
            CleanupMoxelHandlers();
        if (CurrentClientViaClientID(0))
            UnregisterMoxelClient(0);
        if (CurrentPendingClient())
            CleanupMoxelHandlers();
    }

    /// The first report with that identifier that arrived at the daemon, among those from number `from` on.
    [[nodiscard]] std::optional<daemon::ReceivedReport> reportWithID(uint8_t reportID,
                                                                     uint64_t from = 0) const {
        return moxeld->waitForReport(
            [reportID](const daemon::ReceivedReport &report) {
                return !report.isRead && report.reportID == reportID;
            },
            patience, from);
    }
    /// Number of reports that the daemon has got so far, those of registrations that are over included: the
    /// kernel passes a report on when its sender is already doing something else.
    [[nodiscard]] uint64_t reportCount() const {
        EXPECT_TRUE(moxeld->waitUntil(
            [](const daemon::Observation &seen) {
                return std::ranges::all_of(seen.clients, [](const daemon::ClientDescription &client) {
                    return !client.registered || client.exitState;
                });
            },
            patience));
        return moxeld->observe().reportCount;
    }

    test::TemporaryFolder folder;
    test::EnvironmentVariable busFolder{"MOXEL_HID_BUS", folder.path("bus")};
    /// Devices of this machine are none of the tests' business.
    test::EnvironmentVariable hidraw{"MOXEL_HIDRAW",
                                     usesKernel() ? std::optional<std::string>() : std::string("off")};
    std::unique_ptr<daemon::Daemon> moxeld;
};

} // namespace moxel::test
