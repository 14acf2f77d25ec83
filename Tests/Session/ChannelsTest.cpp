// Recognition, opening and loss of the driver's channels.
#include "Helpers/Condition.h"
#include "Session/ChannelCallbacks.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using test::FakeHIDDevice;

constexpr const char *connectedEntry = "void ChannelConnectedEntry(void *, IOReturn, void *, IOHIDDeviceRef)";

class Channels : public testing::Test {
  protected:
    void SetUp() override {
        client = Access::make([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, false);
        client->setM_strBaseChannelName("MxlVirtualHIDData_Base000001F5");
        client->setChannelID(0x18BCFE56800);
    }
    void connect(const std::shared_ptr<FakeHIDDevice> &device) {
        ChannelConnectedEntry(client.get(), HIDStatus::success, nullptr, device);
    }
    void disconnect(const std::shared_ptr<FakeHIDDevice> &device) {
        ChannelDisconnectedEntry(client.get(), HIDStatus::success, nullptr, device);
    }
    static std::string text(const std::string &format, const void *pointer) {
        char line[512];
        std::snprintf(line, sizeof line, format.c_str(), pointer);
        return line;
    }

    Access::Client client;
    std::shared_ptr<FakeHIDDevice> base =
        FakeHIDDevice::channel("MxlVirtualHIDData_Base000001F5", "  Moxel  ");
    std::shared_ptr<FakeHIDDevice> dedicated = FakeHIDDevice::channel("MxlVirtualHIDData_ID18BCFE56800");
};

TEST_F(Channels, BaseChannelOfUser501WithSpacesAroundItsManufacturerIsAcceptedAndOpened) {
    connect(base);
    EXPECT_EQ(client->m_refHIDChannelBase(), base);
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    EXPECT_EQ(base->opens, 1);
    EXPECT_EQ(base->inputBuffer.size(), 64U);
    EXPECT_EQ(base->context, client.get());
    EXPECT_EQ(base->callback, HandleIncomingDataEntryBase);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
}

TEST_F(Channels, ManufacturerMayBeTheReverseDomainForm) {
    base->properties["Manufacturer"] = std::string("com.moxel");
    connect(base);
    EXPECT_EQ(client->m_refHIDChannelBase(), base);
}

TEST_F(Channels, SameNameFromAnotherManufacturerIsIgnored) {
    test::CapturedLog log;
    for (const char *manufacturer : {"Other", "moxel", "Moxel Inc", "MOXEL", ""}) {
        const auto foreign = FakeHIDDevice::channel("MxlVirtualHIDData_Base000001F5", manufacturer);
        connect(foreign);
        EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
        EXPECT_EQ(foreign->opens, 0);
        EXPECT_TRUE(log.has(std::string(connectedEntry) + ", Ignoring Manufacturer " + manufacturer));
    }
}

TEST_F(Channels, MissingManufacturerIsIgnored) {
    base->properties.erase("Manufacturer");
    connect(base);
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
}

TEST_F(Channels, BaseChannelOfAnotherUserIsNotTaken) {
    connect(FakeHIDDevice::channel("MxlVirtualHIDData_Base000001F6"));
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
}

TEST_F(Channels, DedicatedChannelOfThisClientIsOpenedAfterItsPause) {
    const auto start = std::chrono::steady_clock::now();
    connect(dedicated);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
    EXPECT_EQ(client->m_refHIDChannelDedicated(), dedicated);
    EXPECT_TRUE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(dedicated->opens, 1);
    EXPECT_EQ(dedicated->callback, HandleIncomingDataDedicated);
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
}

TEST_F(Channels, DedicatedChannelOfAnotherClientIsNotTaken) {
    const auto other = FakeHIDDevice::channel("MxlVirtualHIDData_ID18BCFE56801");
    connect(other);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
    EXPECT_EQ(other->opens, 0);
}

TEST_F(Channels, IdentifierAloneOrPrefixAloneIsNotEnough) {
    connect(FakeHIDDevice::channel("18BCFE56800"));
    connect(FakeHIDDevice::channel("MxlVirtualHIDData_ID"));
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
}

TEST_F(Channels, NameHoldingBothIsTakenAsBoth) {
    const auto both =
        FakeHIDDevice::channel("MxlVirtualHIDData_Base000001F5 MxlVirtualHIDData_ID18BCFE56800");
    connect(both);
    EXPECT_EQ(client->m_refHIDChannelBase(), both);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), both);
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    EXPECT_TRUE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(both->opens, 2);
}

TEST_F(Channels, BaseChannelThatCannotBeOpenedKeepsItsReferenceOnly) {
    test::CapturedLog log;
    base->openStatus = HIDStatus::notPermitted;
    connect(base);
    EXPECT_EQ(client->m_refHIDChannelBase(), base);
    EXPECT_FALSE(client->m_bHIDChannelBaseOpen());
    EXPECT_EQ(base->callback, nullptr);
    EXPECT_TRUE(
        log.has("-[MoxelClientAPI baseChannelConnected:fromSender:]. Error!! Failed to open application "
                "channel!"));
    EXPECT_TRUE(
        log.has("-[MoxelClientAPI baseChannelConnected:fromSender:], channelBaseConnected open returns "
                "-536870174"));
}

TEST_F(Channels, DedicatedChannelThatCannotBeOpenedKeepsItsReferenceOnly) {
    test::CapturedLog log;
    dedicated->openStatus = HIDStatus::error;
    connect(dedicated);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), dedicated);
    EXPECT_FALSE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_TRUE(log.has(
        "-[MoxelClientAPI channelConnected:fromSender:]. Error!! Failed to pen application channel!"));
}

TEST_F(Channels, DeviceWithoutAReadableNameIsIgnored) {
    test::CapturedLog log;
    base->name.reset();
    connect(base);
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
    EXPECT_TRUE(log.has(std::string(connectedEntry) + ", EXIT, connected? NO"));
    EXPECT_EQ(log.countContaining("stringname="), 0U);
}

TEST_F(Channels, ConnectionIsLoggedStepByStep) {
    test::CapturedLog log;
    connect(base);
    const std::string entry = connectedEntry;
    const std::string selector = "-[MoxelClientAPI baseChannelConnected:fromSender:]";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  entry + " ---- " + base->description(),
                  text("*** " + entry + ", MoxelClientAPI/client=%p", client.get()),
                  selector + ", channelBaseConnected " + base->description(),
                  selector + ", channelBaseConnected open returns 0",
                  selector + ", channelBaseConnected exit, connected? YES, open? 1 ",
                  entry + ", stringname=MxlVirtualHIDData_Base000001F5 <> MxlVirtualHIDData_ID18BCFE56800 "
                          "stringClientID=18BCFE56800, k=MxlVirtualHIDData_Base000001F5",
                  entry + ", EXIT, connected? YES",
              }));
    log.clear();
    connect(dedicated);
    EXPECT_TRUE(log.has(
        text("-[MoxelClientAPI channelConnected:fromSender:], self=%p, channelConnected ", client.get()) +
        dedicated->description()));
}

TEST_F(Channels, RemovingTheBaseChannelClearsItsFieldsAndWakesWaiters) {
    connect(base);
    connect(dedicated);
    const std::shared_ptr<Condition> condition = client->m_conditionSignal();
    std::thread remover;
    {
        const std::lock_guard lock(*condition);
        remover = std::thread([&] { disconnect(base); }); // Blocks until the wait below lets go of the lock.
        while (client->m_refHIDChannelBase())
            ASSERT_TRUE(condition->waitUntil(Condition::Clock::now() + std::chrono::seconds(10)));
    }
    remover.join();
    EXPECT_FALSE(client->m_bHIDChannelBaseOpen());
    EXPECT_EQ(client->m_refHIDChannelDedicated(), dedicated);
    EXPECT_TRUE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(base->closes, 0) << "the device is gone, there is nothing to close";
}

TEST_F(Channels, RemovingTheDedicatedChannelClearsItsFields) {
    test::CapturedLog log;
    connect(base);
    connect(dedicated);
    disconnect(dedicated);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
    EXPECT_FALSE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    EXPECT_TRUE(log.has(text("*** void ChannelDisconnectedEntry(void *, IOReturn, void *, IOHIDDeviceRef), "
                             "MoxelClientAPI/client=%p, dev=",
                             client.get()) +
                        dedicated->description()));
}

TEST_F(Channels, RemovalOfAnUnknownDeviceStillSignals) {
    connect(base);
    const std::shared_ptr<Condition> condition = client->m_conditionSignal();
    std::thread remover;
    {
        const std::lock_guard lock(*condition);
        remover = std::thread([&] { disconnect(dedicated); });
        EXPECT_TRUE(condition->waitUntil(Condition::Clock::now() + std::chrono::seconds(10)));
    }
    remover.join();
    EXPECT_EQ(client->m_refHIDChannelBase(), base);
}

TEST_F(Channels, RemovalWithoutAContextIsOnlyLogged) {
    ChannelDisconnectedEntry(nullptr, HIDStatus::success, nullptr, base);
}

TEST_F(Channels, ClosingTheBaseChannelClosesTheDeviceAndForgetsIt) {
    connect(base);
    client->closeBaseChannel();
    EXPECT_EQ(base->closes, 1);
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
    EXPECT_FALSE(client->m_bHIDChannelBaseOpen());
    client->closeBaseChannel();
    EXPECT_EQ(base->closes, 1);
}

TEST_F(Channels, ErrorWhenClosingTheBaseChannelIsLoggedAndTheChannelForgotten) {
    test::CapturedLog log;
    connect(base);
    base->closeStatus = HIDStatus::noDevice;
    client->closeBaseChannel();
    EXPECT_TRUE(log.has("ERROR: There was an error closing the base channel device, error -536870208!"));
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
}

TEST_F(Channels, InputOnTheBaseChannelIsOnlyLogged) {
    test::CapturedLog log;
    connect(base);
    log.clear();
    base->receive({0x35, 3, 0, 0, 0, 0, 0, 0});
    const std::string function =
        "void HandleIncomingDataEntryBase(void *, IOReturn, void *, IOHIDReportType, "
        "uint32_t, uint8_t *, CFIndex)";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  function + " on device " + base->description(),
                  text("*** " + function + ", MoxelClientAPI/client=%p", client.get()),
                  function + ", --------------> handleIncomingDataBase. BASE channel SIGNALLING! Not "
                             "used...ignoring.",
              }));
    log.clear();
    HandleIncomingDataEntryBase(nullptr, HIDStatus::success, base.get(), HIDReportType::input, 0x35, nullptr,
                                0);
    EXPECT_EQ(log.lines().size(), 1U);
}

} // namespace
} // namespace moxel
