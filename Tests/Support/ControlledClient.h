// A registered client whose dedicated channel is made of a test's answers.
#pragma once

#include "Helpers/Condition.h"
#include "Session/ClientRegistry.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace moxel::test {

/// The calling thread is the one that registered the client.
class ControlledClientTest : public ::testing::Test {
  protected:
    using Bytes = std::vector<uint8_t>;

    static constexpr uint16_t clientID = 0x1234;

    void SetUp() override {
        client->setChannelID(0x1122334455667788);
        client->setM_refHIDChannelDedicated(dedicated);
        gClients().set(clientID, client, currentThreadKey());
        dedicated->onSetReport = [this](const SentReport &report) {
            if (report.reportID == 0x46 && acknowledges)
                acknowledge();
        };
    }
    void TearDown() override { gClients().removeClient(client); }

    /// Sets the acknowledgement as the client thread does when one arrives.
    void acknowledge() {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard lock(*condition);
        client->setM_bPacketACK(true);
        condition->signal();
    }
    /// What was written into storage slot 1, block by block, without the channel tag.
    [[nodiscard]] std::vector<Bytes> blocks() const { return payloadsOf(0x63); }
    /// The control packets that announced the blocks.
    [[nodiscard]] std::vector<Bytes> announcements() const { return payloadsOf(0x46); }
    [[nodiscard]] std::vector<Bytes> payloadsOf(uint8_t reportID) const {
        const std::lock_guard lock(dedicated->mutex);
        std::vector<Bytes> payloads;
        for (const SentReport &report : dedicated->reports)
            if (report.reportID == reportID)
                payloads.emplace_back(report.bytes.begin() + 8, report.bytes.end());
        return payloads;
    }
    [[nodiscard]] size_t reportCount() const {
        const std::lock_guard lock(dedicated->mutex);
        return dedicated->reports.size();
    }
    /// The client as "%p" prints it.
    [[nodiscard]] std::string clientAddress() const {
        char text[32];
        std::snprintf(text, sizeof text, "%p", static_cast<const void *>(client.get()));
        return text;
    }
    /// The calling thread's key as "%lx" prints it.
    [[nodiscard]] static std::string threadKey() {
        char text[32];
        std::snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(currentThreadKey()));
        return text;
    }

    /// Whether a thread has the class-wide lock. Another thread asks, because the lock is recursive.
    [[nodiscard]] static bool classLockIsHeld() {
        bool isHeld = false;
        std::thread([&isHeld] {
            isHeld = !MoxelClientAPI::classLock().try_lock();
            if (!isHeld)
                MoxelClientAPI::classLock().unlock();
        }).join();
        return isHeld;
    }
    /// For each report that `send` makes, whether the class-wide lock was held; then, last, whether it still
    /// is.
    template <class Send>
    [[nodiscard]] std::vector<bool> locksDuring(Send &&send) {
        std::vector<bool> held;
        const auto answer = dedicated->onSetReport;
        dedicated->onSetReport = [&](const SentReport &report) {
            held.push_back(classLockIsHeld());
            answer(report);
        };
        send();
        dedicated->onSetReport = answer;
        held.push_back(classLockIsHeld());
        return held;
    }

    std::atomic<bool> acknowledges{true}; ///< Whether the daemon acknowledges every request.
    std::shared_ptr<FakeHIDDevice> dedicated = FakeHIDDevice::channel("dedicated");
    MoxelClientTestAccess::Client client =
        MoxelClientTestAccess::make([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, false);
};

} // namespace moxel::test
