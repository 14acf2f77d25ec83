// What the tests of the export functions have in common: an application, and a channel that acknowledges.
#pragma once

#include "Support/CapturedLog.h"
#include "Support/ExportingClient.h"
#include "Values/Format.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace moxel::test {

/// The client of the calling thread.
inline constexpr uint16_t client0 = 0;

class ExportFunctions : public ::testing::Test {
  protected:
    using Node = MoxelCommandSyncNode_s;
    static constexpr const char *writeCommands =
        "int16_t MoxelClientWriteCommands(uint16_t, uint32_t, int64_t, const void *)";
    static constexpr const char *writeImages =
        "int16_t MoxelClientWriteImages(uint16_t, uint32_t, const void *, size_t)";

    /// The set "Edit", as Python's plistlib reads it.
    static constexpr const char *editJSON =
        R"({"copy": {"description": "Copies \u00e9", "id": "copy", "label": "Copy", "type": "action"}, )"
        R"("description": "", "id": "Edit", "label": "Editing", )"
        R"("paste": {"description": "", "id": "paste", "label": "Paste", "type": "action"}, "type": "actionset"})";

    /// Functions that refuse their arguments must not wait for another call.
    static int16_t whileTheClassLockIsHeld(const std::function<int16_t()> &call) {
        const std::lock_guard lock(MoxelClientAPI::classLock());
        int16_t result = 1;
        std::thread([&] { result = call(); }).join();
        return result;
    }

    [[nodiscard]] std::string address() const {
        return format("%p", static_cast<const void *>(exporter.client.get()));
    }
    static std::string contentOf(const std::string &path) { return ExportingClient::contentOf(path); }

    /// The whole commands file.
    [[nodiscard]] Dictionary writtenCommands() const {
        const std::string content = contentOf(exporter.commandsPath());
        return readPropertyList({reinterpret_cast<const uint8_t *>(content.data()), content.size()})
            ->root.asDictionary();
    }

    int16_t writeTree(const Node &first) const {
        return MoxelClientWriteCommands(exporter.identifier, 0x6D767472, 0, &first);
    }
    int16_t writeArchive(const Value &root) const {
        const Result<Data> archive = archivedDataWithRootObject(root);
        return MoxelClientWriteCommands(exporter.identifier, 0x6D766473,
                                        static_cast<int64_t>(archive->size()), archive->bytes().data());
    }
    static daemon::Value request(const char *name, const char *command, const std::string &parameter) {
        return daemon::Dictionary{{"req", name}, {"ctrlcmd", command}, {"ctrlparm", parameter}};
    }

    ExportingClient exporter;
    Node paste{2, 2, nullptr, nullptr, "paste", "Paste", nullptr};
    Node copy{1, 2, &paste, nullptr, "copy", "Copy", "Copies \xC3\xA9"};
    Node edit{0, 0, nullptr, &copy, "Edit", "Editing", nullptr};
    CapturedLog log;
};

class WriteCommands : public ExportFunctions {};

} // namespace moxel::test
