// A client that registers with an in-process daemon, byte by byte.
#pragma once

#include "Daemon/RawClient.h"
#include "Moxel Daemon/Archive/KeyedArchiveReader.h"
#include "Moxel Daemon/Archive/KeyedArchiveWriter.h"
#include "Moxel Daemon/Daemon.h"
#include "Moxel Daemon/Protocol/EventFilter.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace moxel::daemon {

inline constexpr uint32_t testUser = 501;
inline const std::string testBaseName = "MxlVirtualHIDData_Base000001F5";

inline std::string dedicatedName(uint64_t channelID) {
    char name[64];
    std::snprintf(name, sizeof name, "MxlVirtualHIDData_ID%" PRIX64, channelID);
    return name;
}

/// 38 bytes of a control message that creates or terminates a channel.
inline Bytes channelMessage(uint16_t code, uint64_t channelID) {
    return littleEndian(6, 2) + littleEndian(code, 2) + littleEndian(channelID, 8) + Bytes(26);
}

/// 38 bytes that announce a request in storage slot 1.
inline Bytes requestAnnouncement(size_t length, uint16_t requestID = 49, uint16_t command = 0) {
    return littleEndian(6, 2) + littleEndian(requestID, 2) + littleEndian(length, 2) +
           littleEndian(command, 2) + Bytes(30);
}

inline const Bytes packetAcknowledgement = {7, 0, 18, 0, 1, 0, 0x32, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
inline const Bytes acknowledgementInput = {0x35, 5, 0, 0, 0, 0, 0, 0x34};

inline Bytes registrationAnswer(uint16_t clientID, uint64_t channelID) {
    return Bytes{0x35, 5, 0, 0, 0, 0, 0, 0x12, 0} + littleEndian(clientID, 2) + littleEndian(channelID, 8);
}

inline Bytes dataWaiting(uint16_t size, bool wantsAnswer) {
    return Bytes{0x35, 4, 0, 17, 0} + littleEndian(size, 2) + Bytes{wantsAnswer ? uint8_t{1} : uint8_t{0}};
}

inline Dictionary registrationRequestOf(uint64_t channelID, uint32_t mask, bool isAgain = false) {
    return {{"req", "regclient"},
            {"app", Record{"MxlApplication",
                           {{"clientid", 0},
                            {"appname", "Demo"},
                            {"appfilename", "demo"},
                            {"clientname", "Demo"},
                            {"bundleid", "com.example.demo"},
                            {"exepath", "/usr/bin/demo"},
                            {"signature", 0x44656D6F},
                            {"processid", ::getpid()},
                            {"mode", 3},
                            {"mask", mask},
                            {"buttonmask", mask & 0xFF},
                            {"switches", 0x80000000},
                            {"channelid", channelID}}}},
            {"type", isAgain}};
}

/// Asks for a channel and opens it; registers when told to.
class TestClient {
  public:
    TestClient(const Daemon &daemon, uint64_t channelIdentifier)
        : channelID(channelIdentifier), base(daemon.busFolder(), daemon.baseChannelName()) {
        EXPECT_EQ(base.open(), 0U);
        EXPECT_EQ(base.setReport(0x46, 0, channelMessage(0xBEEF, channelID)), 0U);
        const bool isThere = daemon
                                 .waitForClient(patience,
                                                [this](const ClientDescription &client) {
                                                    return client.channelID == channelID;
                                                })
                                 .has_value();
        EXPECT_TRUE(isThere);
        if (!isThere)
            return;
        dedicated.emplace(daemon.busFolder(), dedicatedName(channelID));
        EXPECT_EQ(dedicated->open(), 0U);
    }

    void place(const Bytes &block) { EXPECT_EQ(dedicated->setReport(0x63, channelID, block), 0U); }
    void announce(size_t length) {
        EXPECT_EQ(dedicated->setReport(0x46, channelID, requestAnnouncement(length)), 0U);
    }
    void send(const Bytes &block) {
        place(block);
        announce(block.size());
    }
    void send(const Dictionary &request) { send(*writeKeyedArchive(request)); }
    void acknowledgePacket() { EXPECT_EQ(dedicated->setReport(0x46, channelID, packetAcknowledgement), 0U); }
    void terminate() { EXPECT_EQ(base.setReport(0x46, 0, channelMessage(0xDEAD, channelID)), 0U); }

    /// Registers and takes the answer.
    void registerClient(uint32_t mask = 0xFF) {
        send(registrationRequestOf(channelID, mask));
        const Bytes answer = dedicated->input();
        ASSERT_EQ(answer.size(), 19U);
        clientID = static_cast<uint16_t>(answer[9] | answer[10] << 8);
        EXPECT_EQ(answer, registrationAnswer(clientID, channelID));
        EXPECT_NE(clientID, 0);
    }
    Bytes input() { return dedicated->input(); }
    /// True when nothing has come after all that was sent before has been served.
    [[nodiscard]] bool isQuiet() {
        (void)dedicated->getReport(0x01, 1); // Any answered request will do.
        return dedicated->isQuiet();
    }
    /// Takes a whole message out of storage slot 0; the number of its packets is left in `packets`.
    Dictionary takeMessage() {
        Bytes archive;
        packets = 0;
        for (bool isLast = false; !isLast;) {
            const Bytes announcement = input();
            EXPECT_EQ(announcement.size(), 8U);
            if (announcement.size() != 8)
                return {};
            EXPECT_EQ((Bytes{announcement.begin(), announcement.begin() + 5}), (Bytes{0x35, 4, 0, 17, 0}));
            const auto size = static_cast<uint32_t>(announcement[5] | announcement[6] << 8);
            const RawClient::Answer packet = dedicated->getReport(0x54, size);
            EXPECT_EQ(packet.status, 0U);
            EXPECT_EQ(packet.content.size(), size);
            if (packet.content.size() < 6)
                return {};
            EXPECT_EQ((Bytes{packet.content.begin(), packet.content.begin() + 4}),
                      (Bytes{2, 0} + littleEndian(size - 6, 2)));
            archive.insert(archive.end(), packet.content.begin() + 6, packet.content.end());
            isLast = packet.content[4] == 1;
            ++packets;
            if (announcement[7] != 0)
                acknowledgePacket();
        }
        const Result<Value> value = readKeyedArchive(archive);
        EXPECT_TRUE(value.ok());
        return value.ok() && value->as<Dictionary>() ? *value->as<Dictionary>() : Dictionary();
    }

    uint64_t channelID;
    uint16_t clientID = 0;
    int packets = 0;
    RawClient base;
    std::optional<RawClient> dedicated;
};

/// A daemon on a bus of its own.
class DaemonFixture : public ::testing::Test {
  protected:
    Daemon &start(Options options = {}) {
        options.busFolder = folder.path("bus");
        options.user = testUser;
        Result<std::unique_ptr<Daemon>> started = Daemon::start(std::move(options));
        if (!started.ok())
            ADD_FAILURE() << started.error().message;
        else
            daemon = std::move(*started);
        return *daemon;
    }

    test::TemporaryFolder folder;
    std::unique_ptr<Daemon> daemon;
};

/// The daemon as a client meets it.
class DaemonDaemon : public DaemonFixture {};

inline MoxelStateRecord motionRecord(int16_t x) {
    MoxelStateRecord record{};
    record.command = capMoved;
    record.axis[0] = x;
    return record;
}

} // namespace moxel::daemon
