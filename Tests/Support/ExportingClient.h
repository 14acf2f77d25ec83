// A registered client without a daemon, whose requests are acknowledged at once.
#pragma once

#include "Helpers/Condition.h"
#include "Moxel Daemon/Archive/KeyedArchiveReader.h"
#include "Platform/Process.h"
#include "Session/ClientRegistry.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"
#include "Support/PlistStore.h"
#include <Moxel/CFileObserver.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace moxel::test {

/// The client of the calling thread, with export folders of its own.
class ExportingClient {
  public:
    static constexpr uint16_t identifier = 77;

    ExportingClient() {
        client->setM_refHIDChannelDedicated(dedicated);
        dedicated->onSetReport = [this](const SentReport &report) { answer(report); };
        const Ref<MxlApplication> record = client->applicationInfo();
        record->setBundleid("com.example.viewer");
        record->setName("Viewer");
        record->setSignature(uint32_t{0x54657374});
        record->setChannelID(uint64_t{1234567890123});
        gClients().set(identifier, client, currentThreadKey());
    }
    ~ExportingClient() {
        gClients().remove(identifier);
        client->observerSettingsFile()->stopObservation();
    }
    ExportingClient(const ExportingClient &) = delete;
    ExportingClient &operator=(const ExportingClient &) = delete;

    [[nodiscard]] std::string folder() const { return store.base("com.example.viewer_Viewer"); }
    [[nodiscard]] std::string commandsPath() const { return runPath("commands"); }
    [[nodiscard]] std::string imagesPath() const { return runPath("images"); }
    [[nodiscard]] std::string settingsPath() const { return folder() + "/Viewer_Test.settings.plist"; }

    /// Bytes of a file; empty when there is none.
    static std::string contentOf(const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] bool hasNoFiles() const {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(store.base()))
            if (!entry.is_directory())
                return false;
        return true;
    }

    /// The requests so far, as the daemon reads them.
    [[nodiscard]] std::vector<daemon::Value> requests() const {
        std::vector<daemon::Value> result;
        for (const SentReport &report : dedicated->reports) {
            if (report.reportID != 0x63)
                continue;
            const Result<daemon::Value> request =
                daemon::readKeyedArchive(std::span(report.bytes).subspan(8));
            EXPECT_TRUE(request.ok());
            result.push_back(request.ok() ? *request : daemon::Value());
        }
        return result;
    }

    PlistStore store;
    std::shared_ptr<MoxelClientAPI> client =
        MoxelClientTestAccess::make([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, true);
    std::shared_ptr<FakeHIDDevice> dedicated = FakeHIDDevice::channel("dedicated");
    bool acknowledges = true;

  private:
    [[nodiscard]] std::string runPath(const std::string &kind) const {
        return folder() + "/1234567890123_Test_" + std::to_string(processIdentifier()) + "." + kind +
               ".plist";
    }
    /// Sets the acknowledgement as the client thread does when one arrives.
    void answer(const SentReport &report) const {
        if (report.reportID != 0x46 || !acknowledges)
            return;
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard lock(*condition);
        client->setM_bPacketACK(true);
        condition->signal();
    }
};

} // namespace moxel::test
