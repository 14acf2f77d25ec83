// The HID manager: which devices it reports, when, and until when.
#include "Platform/HIDManager.h"
#include "Support/BusPublisher.h"
#include "Support/DescriptorShortage.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

namespace moxel {
namespace {

using test::Bytes;
using test::DescriptorShortage;
using test::HIDClient;
using test::InputRecorder;
using test::LoopThread;
using test::PublisherSocket;
using test::ServingPublisher;

using HIDManagerTest = test::HIDBusTest;
using Matching = HIDManager::Matching;

// ------------------------------------------------------------------------------------------ Matching

TEST_F(HIDManagerTest, ReportsDevicesThatHaveEveryPropertyOfTheMatching) {
    ServingPublisher first(bus_, "first");
    const HIDClient both(Matching{{"VendorID", int64_t{0x4D58}}, {"Manufacturer", "Moxel"}});
    const HIDClient otherVendor(Matching{{"VendorID", int64_t{0x4D59}}});
    const HIDClient otherMaker(Matching{{"VendorID", int64_t{0x4D58}}, {"Manufacturer", "moxel"}});
    const HIDClient otherType(Matching{{"VendorID", "19800"}});
    const HIDClient unknown(Matching{{"Colour", "red"}});
    const HIDClient all;
    EXPECT_TRUE(both.awaitArrivals(1));
    EXPECT_TRUE(all.awaitArrivals(1));
    for (const HIDClient *none : {&otherVendor, &otherMaker, &otherType, &unknown}) {
        none->settle();
        EXPECT_TRUE(none->arrived().empty());
    }
}

TEST_F(HIDManagerTest, MatchingThatChangesReportsWhatMatchesNow) {
    ServingPublisher device(bus_, "device");
    HIDClient client(Matching{{"VendorID", int64_t{1}}});
    client.onLoop([&] { client.manager()->setDeviceMatching({{"VendorID", int64_t{0x4D58}}}); });
    client.awaitDevice("device");
    client.onLoop([&] { client.manager()->setDeviceMatching({}); });
    ServingPublisher another(bus_, "another");
    client.awaitDevice("another");
    EXPECT_EQ(client.arrived().size(), 2U);
    device.stop();
    EXPECT_TRUE(client.awaitRemovals(1));
}

TEST_F(HIDManagerTest, WorksWithoutCallbacks) {
    ServingPublisher device(bus_, "device");
    const LoopThread thread;
    std::unique_ptr<HIDManager> manager;
    thread.run([&] {
        manager = HIDManager::create();
        manager->scheduleWithRunLoop(thread.loop());
    });
    HIDClient client;
    client.awaitDevice("device");
    device.stop();
    EXPECT_TRUE(client.awaitRemovals(1));
    thread.run([&] { manager.reset(); });
}

TEST_F(HIDManagerTest, ThatWasNeverScheduledReportsNothing) {
    ServingPublisher device(bus_, "device");
    const auto manager = HIDManager::create();
    manager->setDeviceMatching({});
    EXPECT_EQ(manager->close(), HIDStatus::success);
    manager->unscheduleFromRunLoop();
    EXPECT_EQ(device.acceptedConnections(), 0);
}

// ---------------------------------------------------------------------- Arrival and removal

TEST_F(HIDManagerTest, RemovesTheVeryObjectThatArrived) {
    ServingPublisher device(bus_, "device");
    ServingPublisher another(bus_, "another");
    HIDClient client;
    ASSERT_TRUE(client.awaitArrivals(2));
    const HIDDeviceReference found = client.awaitDevice("device");
    device.stop();
    ASSERT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(client.removed(), (HIDClient::Devices{found}));
}

TEST_F(HIDManagerTest, ForgetsADeviceAfterItsRemoval) {
    ServingPublisher device(bus_, "device");
    HIDClient client;
    std::weak_ptr<HIDDevice> weak = client.awaitDevice("device");
    device.stop();
    ASSERT_TRUE(client.awaitRemovals(1));
    client.settle();
    client.forget();
    EXPECT_TRUE(weak.expired());
}

TEST_F(HIDManagerTest, FiftyManagersShareOneConnectionPerDeviceAndHaveDevicesOfTheirOwn) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    std::vector<std::unique_ptr<HIDClient>> clients;
    std::set<HIDDevice *> devices;
    for (int i = 0; i < 50; ++i)
        clients.push_back(std::make_unique<HIDClient>());
    for (const auto &client : clients) {
        ASSERT_TRUE(client->awaitArrivals(2));
        for (const HIDDeviceReference &device : client->arrived())
            devices.insert(device.get());
    }
    EXPECT_EQ(devices.size(), 100U);
    EXPECT_EQ(first.acceptedConnections(), 1);
    EXPECT_EQ(second.acceptedConnections(), 1);
    first.stop();
    for (const auto &client : clients)
        EXPECT_TRUE(client->awaitRemovals(1));
}

TEST_F(HIDManagerTest, ManyDevicesReachManyManagers) {
    constexpr size_t count = 40;
    std::vector<std::unique_ptr<ServingPublisher>> devices;
    std::vector<std::unique_ptr<HIDClient>> clients;
    for (size_t i = 0; i < count; ++i) {
        devices.push_back(std::make_unique<ServingPublisher>(bus_, "device" + std::to_string(i)));
        if (i % 4 == 0)
            clients.push_back(std::make_unique<HIDClient>());
    }
    for (const auto &client : clients) {
        EXPECT_TRUE(client->awaitArrivals(count));
        const std::vector<std::string> names = client->arrivedNames();
        EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), count);
    }
    devices.clear();
    for (const auto &client : clients)
        EXPECT_TRUE(client->awaitRemovals(count));
}

TEST_F(HIDManagerTest, ManagersOfDifferentFoldersSeeDifferentDevices) {
    const std::filesystem::path other = folder_.path("other");
    std::filesystem::create_directory(other);
    ServingPublisher here(bus_, "here");
    ServingPublisher there(other, "there");
    const HIDClient first;
    ASSERT_TRUE(first.awaitArrivals(1));
    const test::EnvironmentVariable bus("MOXEL_HID_BUS", other.string());
    const HIDClient second;
    ASSERT_TRUE(second.awaitArrivals(1));
    EXPECT_EQ(first.arrivedNames(), std::vector<std::string>{"here"});
    EXPECT_EQ(second.arrivedNames(), std::vector<std::string>{"there"});
}

// ------------------------------------------------------------------------------------------ Unscheduling

TEST_F(HIDManagerTest, UnschedulingStopsAllCallbacks) {
    ServingPublisher device(bus_, "device");
    InputRecorder recorder;
    HIDClient client({}, [&](HIDClient &, const HIDDeviceReference &found) {
        EXPECT_EQ(found->open(), HIDStatus::success);
        recorder.registerWith(*found);
    });
    const HIDDeviceReference found = client.awaitDevice("device");
    device.sendInput({1});
    ASSERT_TRUE(recorder.awaitReports(1));
    client.onLoop([&] { client.manager()->unscheduleFromRunLoop(); });
    device.sendInput({2});
    ServingPublisher late(bus_, "late");
    HIDClient witness;
    witness.awaitDevice("late");
    EXPECT_EQ(found->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::success);
    device.stop();
    ASSERT_TRUE(witness.awaitRemovals(1));
    client.settle();
    EXPECT_EQ(recorder.reports().size(), 1U);
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_TRUE(client.removed().empty());
}

TEST_F(HIDManagerTest, DeviceOfAnUnscheduledManagerTakesRequestsButDeliversNothing) {
    ServingPublisher device(bus_, "device");
    HIDClient client;
    const HIDDeviceReference found = client.awaitDevice("device");
    InputRecorder recorder;
    recorder.registerWith(*found);
    client.onLoop([&] { client.manager()->unscheduleFromRunLoop(); });
    EXPECT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.awaitOpenConnections(1));
    device.sendInput({1});
    EXPECT_EQ(found->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::success);
    client.onLoop([&] {
        EXPECT_EQ(found->close(), HIDStatus::success);
        EXPECT_EQ(found->open(), HIDStatus::success);
    });
    client.settle();
    EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(HIDManagerTest, NewsOnItsWayIsNotReportedAfterUnscheduling) {
    HIDClient client;
    ServingPublisher first(bus_, "first");
    client.awaitDevice("first");
    HIDClient witness;
    client.onLoop([&] {
        ServingPublisher second(bus_, "second");
        witness.awaitDevice("second"); // So the news of it is in this loop's queue, too.
        client.manager()->unscheduleFromRunLoop();
    });
    client.settle();
    EXPECT_EQ(client.arrived().size(), 1U);
}

TEST_F(HIDManagerTest, SchedulingAgainReportsTheDevicesAgain) {
    ServingPublisher device(bus_, "device");
    HIDClient client;
    client.awaitDevice("device");
    for (size_t round = 2; round < 5; ++round) {
        client.onLoop([&] {
            client.manager()->unscheduleFromRunLoop();
            client.manager()->scheduleWithRunLoop(client.loop());
        });
        ASSERT_TRUE(client.awaitArrivals(round));
    }
    device.stop();
    EXPECT_TRUE(client.awaitRemovals(1));
    client.settle();
    EXPECT_EQ(client.removed(), (HIDClient::Devices{client.arrived().back()}));
}

TEST_F(HIDManagerTest, CloseClosesWhateverIsOpenBeforeAndAfterUnscheduling) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    ServingPublisher closed(bus_, "closed");
    HIDClient client;
    ASSERT_TRUE(client.awaitArrivals(3));
    ASSERT_EQ(client.awaitDevice("first")->open(), HIDStatus::success);
    client.onLoop([&] { EXPECT_EQ(client.manager()->close(), HIDStatus::success); });
    EXPECT_TRUE(first.awaitOpenConnections(0));
    EXPECT_EQ(first.requests().back()[0], 3);
    ASSERT_EQ(client.awaitDevice("second")->open(), HIDStatus::success);
    client.onLoop([&] {
        client.manager()->unscheduleFromRunLoop();
        EXPECT_EQ(client.manager()->close(), HIDStatus::success);
    });
    EXPECT_TRUE(second.awaitOpenConnections(0));
    EXPECT_EQ(second.requests().back()[0], 3);
    EXPECT_TRUE(closed.requests().empty());
}

TEST_F(HIDManagerTest, CloseReportsWhatWentWrong) {
    ServingPublisher device(bus_, "device", [](const Bytes &request) -> std::vector<Bytes> {
        return {test::replyMessage(request[0], request[0] == 3 ? 0xE00002E2 : 0)};
    });
    HIDClient client;
    ASSERT_EQ(client.awaitDevice("device")->open(), HIDStatus::success);
    client.onLoop([&] { EXPECT_EQ(client.manager()->close(), HIDStatus::notPermitted); });
}

TEST_F(HIDManagerTest, DestroyedWithOpenDevicesHangsUp) {
    ServingPublisher device(bus_, "device");
    {
        HIDClient client({}, [](HIDClient &, const HIDDeviceReference &found) {
            EXPECT_EQ(found->open(), HIDStatus::success);
        });
        client.awaitDevice("device");
        ASSERT_TRUE(device.awaitOpenConnections(1));
        client.onLoop([&] {
            client.forget();
            client.manager().reset();
        });
        EXPECT_TRUE(device.awaitOpenConnections(0));
    }
}

TEST_F(HIDManagerTest, DeviceMayOutliveItsManagerAndItsThread) {
    ServingPublisher device(bus_, "device");
    HIDDeviceReference found;
    {
        HIDClient client;
        found = client.awaitDevice("device");
    }
    EXPECT_EQ(found->open(), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::success);
    EXPECT_EQ(found->close(), HIDStatus::success);
    EXPECT_EQ(found->open(), HIDStatus::success);
    device.stop();
    EXPECT_EQ(found->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::noDevice);
}

TEST_F(HIDManagerTest, MayBeUnscheduledInItsArrivalCallback) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    HIDClient client(
        {}, [](HIDClient &self, const HIDDeviceReference &) { self.manager()->unscheduleFromRunLoop(); });
    ASSERT_TRUE(client.awaitArrivals(1));
    client.settle();
    EXPECT_EQ(client.arrived().size(), 1U);
}

TEST_F(HIDManagerTest, MayBeDestroyedInItsArrivalCallback) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    HIDClient client({}, [](HIDClient &self, const HIDDeviceReference &found) {
        EXPECT_EQ(found->open(), HIDStatus::success);
        self.manager().reset();
    });
    ASSERT_TRUE(client.awaitArrivals(1));
    client.settle();
    EXPECT_EQ(client.arrived().size(), 1U);
}

TEST_F(HIDManagerTest, MayBeDestroyedInItsRemovalCallback) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    InputRecorder recorder;
    HIDClient client(
        {},
        [&](HIDClient &, const HIDDeviceReference &found) {
            EXPECT_EQ(found->open(), HIDStatus::success);
            recorder.registerWith(*found);
        },
        [](HIDClient &self, const HIDDeviceReference &) { self.manager().reset(); });
    ASSERT_TRUE(client.awaitArrivals(2));
    first.stop();
    ASSERT_TRUE(client.awaitRemovals(1));
    second.stop();
    client.settle();
    EXPECT_EQ(client.removed().size(), 1U);
}

TEST_F(HIDManagerTest, ManagersComeAndGoWhileDevicesComeAndGo) {
    std::atomic<bool> done{false};
    std::thread publishers([&] {
        while (!done) {
            ServingPublisher first(bus_, "first");
            ServingPublisher second(bus_, "second");
            first.stop();
        }
    });
    std::vector<std::thread> sessions;
    for (int i = 0; i < 4; ++i)
        sessions.emplace_back([] {
            for (int round = 0; round < 10; ++round) {
                HIDClient client({}, [](HIDClient &, const HIDDeviceReference &device) {
                    const HIDStatus status = device->open();
                    EXPECT_TRUE(status == HIDStatus::success || status == HIDStatus::noDevice);
                });
                EXPECT_TRUE(client.awaitArrivals(2));
                EXPECT_TRUE(client.awaitRemovals(1));
            }
        });
    for (std::thread &session : sessions)
        session.join();
    done = true;
    publishers.join();
}

// ------------------------------------------------------------------------------------------ No descriptors

TEST_F(HIDManagerTest, DeviceThatAppearsWhileDescriptorsAreUsedUpIsFoundLater) {
    HIDClient client;
    ServingPublisher first(bus_, "first");
    client.awaitDevice("first");
    PublisherSocket device(bus_, "device", PublisherSocket::Appear::later);
    {
        const DescriptorShortage shortage;
        device.show();
        EXPECT_TRUE(awaitError("Too many open files"));
        EXPECT_EQ(::close(::dup(STDERR_FILENO)), -1); // None is used while waiting.
    }
    const auto presence = device.acceptAs("device");
    client.awaitDevice("device");
    EXPECT_EQ(errorsWith("Too many open files"), 1U);
}

TEST_F(HIDManagerTest, EveryNumberOfDescriptorsTooFewIsLoggedOnceAndSurvived) {
    HIDClient client;
    ServingPublisher first(bus_, "first");
    client.awaitDevice("first");
    // The folder, the socket's file and the connection take one each.
    for (size_t spare = 0; spare < 3; ++spare) {
        const std::string name = "device" + std::to_string(spare);
        PublisherSocket device(bus_, name, PublisherSocket::Appear::later);
        {
            const DescriptorShortage shortage(spare);
            device.show();
            EXPECT_TRUE(awaitError("Too many open files", spare + 1));
        }
        const auto presence = device.acceptAs(name);
        client.awaitDevice(name);
        EXPECT_EQ(errorsWith("Too many open files"), spare + 1);
    }
}

TEST_F(HIDManagerTest, ThatCannotJoinTheBusForLackOfDescriptorsJoinsLater) {
    ServingPublisher device(bus_, "device");
    for (size_t spare = 1; spare < 6; ++spare) {
        const LoopThread thread;
        test::Awaited<int> arrivals;
        std::unique_ptr<HIDManager> manager = HIDManager::create();
        manager->registerDeviceMatchingCallback(
            [](void *context, HIDStatus, HIDManager *, const HIDDeviceReference &) {
                static_cast<test::Awaited<int> *>(context)->change([](int &count) { ++count; });
            },
            &arrivals);
        {
            const DescriptorShortage shortage(spare);
            thread.run([&] { manager->scheduleWithRunLoop(thread.loop()); });
        }
        EXPECT_TRUE(arrivals.awaitValue(1)) << spare;
        thread.run([&] { manager.reset(); });
    }
}

} // namespace
} // namespace moxel
