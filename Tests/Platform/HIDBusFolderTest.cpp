// How a client finds devices in the folder of the user-space HID bus.
#include "Platform/Linux/BusFolder.h"
#include "Platform/Linux/BusSocket.h"
#include "Platform/Linux/ServiceThread.h"
#include "Support/BusPublisher.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel {
namespace {

using test::Bytes;
using test::EnvironmentVariable;
using test::HIDClient;
using test::PublisherSocket;
using test::ServingPublisher;
namespace fs = std::filesystem;

constexpr uid_t nobody = 65534;

using HIDBusFolder = test::HIDBusTest;

// ------------------------------------------------------------------------------------------ Which folder

TEST_F(HIDBusFolder, IsTheOneOfTheVariableWhenThatIsAbsolute) {
    const EnvironmentVariable bus("MOXEL_HID_BUS", "/some/bus");
    const EnvironmentVariable runtime("XDG_RUNTIME_DIR", "/run/user/1");
    EXPECT_EQ(BusFolder::standardPath(), "/some/bus");
}

TEST_F(HIDBusFolder, LiesInTheRuntimeFolderOtherwise) {
    const EnvironmentVariable runtime("XDG_RUNTIME_DIR", "/run/user/1");
    using Value = std::optional<std::string>;
    for (const Value &unusable : {Value(), Value(""), Value("some/bus")}) {
        const EnvironmentVariable bus("MOXEL_HID_BUS", unusable);
        EXPECT_EQ(BusFolder::standardPath(), "/run/user/1/moxel/hid");
    }
}

TEST_F(HIDBusFolder, LiesInRunWithoutARuntimeFolder) {
    const EnvironmentVariable bus("MOXEL_HID_BUS", std::nullopt);
    const EnvironmentVariable runtime("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_EQ(BusFolder::standardPath(), "/run/moxel/hid");
}

// ------------------------------------------------------------------------------------------ Names

TEST_F(HIDBusFolder, NamesOfLettersDigitsDotUnderscoreAndHyphenAreDevices) {
    for (const char *name : {"a.hid", "Base_01.hid", "a.b-c.hid", "-.hid", "x.hid.hid"})
        EXPECT_TRUE(BusSocket::isDeviceName(name)) << name;
    for (const char *name : {"", "hid", ".hid", "..hid", ".a.hid", ".a.tmp", "a.tmp", "a.HID", "a.hid.tmp",
                             "a b.hid", "a/b.hid", "\xC3\xA4.hid", "a\n.hid", "a*.hid"})
        EXPECT_FALSE(BusSocket::isDeviceName(name)) << name;
}

TEST_F(HIDBusFolder, SocketsWithOtherNamesAreIgnored) {
    ServingPublisher first(bus_, "first");
    PublisherSocket hidden(bus_, "hidden", PublisherSocket::Appear::later);
    PublisherSocket odd(bus_, "odd name");
    PublisherSocket foreign(bus_, "foreign");
    fs::rename(foreign.path(), bus_ / "foreign.socket");
    HIDClient client;
    ASSERT_TRUE(client.awaitArrivals(1));
    PublisherSocket lateHidden(bus_, "late", PublisherSocket::Appear::later);
    PublisherSocket lateOdd(bus_, "late name");
    ServingPublisher last(bus_, "last");
    client.awaitDevice("last");
    EXPECT_EQ(client.arrivedNames(), (std::vector<std::string>{"first", "last"}));
    fs::remove(bus_ / "foreign.socket");
}

TEST_F(HIDBusFolder, FilesThatAreNoSeqpacketSocketsAreIgnored) {
    PublisherSocket stream(bus_, "stream", PublisherSocket::Appear::now, SOCK_STREAM);
    PublisherSocket real(folder_.path(), "real");
    fs::create_symlink(real.path(), bus_ / "link.hid");
    fs::create_directory(bus_ / "folder.hid");
    std::ofstream(bus_ / "file.hid") << "x";
    ASSERT_EQ(::mkfifo((bus_ / "fifo.hid").c_str(), 0600), 0);
    HIDClient client;
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_TRUE(errors().empty());
}

TEST_F(HIDBusFolder, NameAndPathMayBeLongerThanASocketAddress) {
    const fs::path deep = bus_ / std::string(120, 'd') / std::string(120, 'e');
    fs::create_directories(deep);
    const EnvironmentVariable bus("MOXEL_HID_BUS", deep.string());
    PublisherSocket device(deep, "device");
    const fs::path longest = deep / (std::string(251, 'n') + ".hid");
    fs::rename(device.path(), longest);
    HIDClient client;
    const auto presence = device.acceptAs("long");
    const HIDDeviceReference found = client.awaitDevice("long");
    auto opened = std::async(std::launch::async, [&] { return found->open(); });
    const auto input = device.acceptAs("long");
    EXPECT_EQ(input.receive(), (Bytes{2, 0, 0, 0, 0, 0, 0, 0}));
    input.send(test::replyMessage(2));
    EXPECT_EQ(opened.get(), HIDStatus::success);
    fs::remove(longest);
}

// ------------------------------------------------------------------------------------------ Coming and going

TEST_F(HIDBusFolder, DevicesThatAreThereAreFound) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    HIDClient client;
    EXPECT_TRUE(client.awaitArrivals(2));
}

TEST_F(HIDBusFolder, DeviceThatAppearsIsFoundAndOneThatHangsUpIsRemoved) {
    HIDClient client;
    ServingPublisher device(bus_, "device");
    const HIDDeviceReference found = client.awaitDevice("device");
    EXPECT_TRUE(client.removed().empty());
    device.stop();
    EXPECT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(client.removed(), (HIDClient::Devices{found}));
}

TEST_F(HIDBusFolder, UnlinkedDeviceStaysUntilItHangsUp) {
    PublisherSocket device(bus_, "device");
    HIDClient client;
    auto presence = device.acceptAs("device");
    client.awaitDevice("device");
    fs::remove(device.path());
    ServingPublisher marker(bus_, "marker");
    client.awaitDevice("marker");
    EXPECT_TRUE(client.removed().empty());
    presence.hangUp();
    EXPECT_TRUE(client.awaitRemovals(1));
}

TEST_F(HIDBusFolder, SocketThatTakesOverANameIsANewDevice) {
    PublisherSocket older(bus_, "device");
    HIDClient client;
    auto olderPresence = older.acceptAs("older");
    const HIDDeviceReference olderDevice = client.awaitDevice("older");
    {
        PublisherSocket newer(bus_, "device");
        auto newerPresence = newer.acceptAs("newer");
        client.awaitDevice("newer");
        EXPECT_TRUE(client.removed().empty());

        auto opened = std::async(std::launch::async, [&] { return olderDevice->open(); });
        auto input = older.acceptAs("older");
        EXPECT_EQ(input.receive()[0], 2);
        input.send(test::replyMessage(2));
        EXPECT_EQ(opened.get(), HIDStatus::success);

        input.hangUp();
        olderPresence.hangUp();
        ASSERT_TRUE(client.awaitRemovals(1));
        EXPECT_EQ(client.removed(), (HIDClient::Devices{olderDevice}));
    }
    EXPECT_TRUE(client.awaitRemovals(2));
}

TEST_F(HIDBusFolder, StaleSocketIsIgnoredUntilItsNameIsTakenOver) {
    PublisherSocket stale(bus_, "device");
    stale.stopListening();
    HIDClient client;
    ServingPublisher marker(bus_, "marker");
    client.awaitDevice("marker");
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_TRUE(errors().empty());
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
}

TEST_F(HIDBusFolder, SocketThatRefusedIsTriedAgainWhenThereIsNewsOfIt) {
    const int early = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (bus_ / "device.hid").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(early, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    HIDClient client;
    ServingPublisher marker(bus_, "marker");
    client.awaitDevice("marker");
    ASSERT_EQ(::listen(early, 8), 0);
    fs::permissions(bus_ / "device.hid", fs::perms::owner_all);
    pollfd listener{early, POLLIN, 0};
    EXPECT_EQ(::poll(&listener, 1, 30000), 1);
    ::close(early);
}

TEST_F(HIDBusFolder, DeviceThatIsTouchedStaysOneDevice) {
    ServingPublisher device(bus_, "device");
    HIDClient client;
    client.awaitDevice("device");
    fs::permissions(bus_ / "device.hid", fs::perms::owner_all);
    fs::rename(bus_ / "device.hid", bus_ / "renamed.hid");
    fs::permissions(bus_, fs::perms::owner_all);
    ServingPublisher marker(bus_, "marker");
    client.awaitDevice("marker");
    EXPECT_EQ(client.arrived().size(), 2U);
    EXPECT_EQ(device.acceptedConnections(), 1);
    fs::remove(bus_ / "renamed.hid");
}

TEST_F(HIDBusFolder, LostNewsIsMadeUpForByListingAgain) {
    HIDClient client;
    ServingPublisher first(bus_, "first");
    client.awaitDevice("first");
    std::ifstream limitFile("/proc/sys/fs/inotify/max_queued_events");
    int limit = 0;
    ASSERT_TRUE(limitFile >> limit);
    std::ofstream(bus_ / "a");
    std::ofstream(bus_ / "b");

    // Held up, the watcher's queue overflows before the device appears.
    const auto services = *ServiceThread::lease();
    std::promise<void> go;
    services->thread().perform([released = go.get_future().share()] { released.wait(); });
    for (int i = 0; i < limit + 10; ++i)
        fs::permissions(bus_ / (i % 2 == 0 ? "a" : "b"), fs::perms::owner_all);
    ServingPublisher device(bus_, "device");
    go.set_value();
    client.awaitDevice("device");
    EXPECT_EQ(client.arrived().size(), 2U);
}

// ---------------------------------------------------------------------- The folder itself

TEST_F(HIDBusFolder, MissingFolderIsWaitedFor) {
    fs::remove(bus_);
    HIDClient client;
    client.settle();
    fs::create_directory(bus_);
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
    EXPECT_TRUE(errors().empty());
}

TEST_F(HIDBusFolder, FolderOnAMissingPathIsWaitedFor) {
    const fs::path deep = folder_.path() + "/one/two/three/hid";
    const EnvironmentVariable bus("MOXEL_HID_BUS", deep.string());
    HIDClient client;
    client.settle();
    for (fs::path path : {deep.parent_path().parent_path().parent_path(), deep.parent_path().parent_path(),
                          deep.parent_path(), deep}) {
        fs::create_directory(path);
        client.settle();
    }
    ServingPublisher device(deep, "device");
    client.awaitDevice("device");
    EXPECT_TRUE(errors().empty());
}

TEST_F(HIDBusFolder, WholePathThatAppearsAtOnceIsFound) {
    const fs::path deep = folder_.path() + "/one/two/three/hid";
    const EnvironmentVariable bus("MOXEL_HID_BUS", deep.string());
    HIDClient client;
    client.settle();
    const fs::path prepared = folder_.path() + "/prepared";
    fs::create_directories(prepared / "two/three/hid");
    ServingPublisher device(prepared / "two/three/hid", "device");
    fs::rename(prepared, folder_.path() + "/one");
    client.awaitDevice("device");
}

TEST_F(HIDBusFolder, FolderThatIsMadeAgainIsFollowed) {
    HIDClient client;
    {
        ServingPublisher device(bus_, "first");
        client.awaitDevice("first");
    }
    for (const char *name : {"second", "third", "fourth"}) {
        fs::remove_all(bus_);
        fs::create_directory(bus_);
        ServingPublisher device(bus_, name);
        client.awaitDevice(name);
    }
    EXPECT_TRUE(errors().empty());
}

TEST_F(HIDBusFolder, FolderThatIsExchangedIsFollowedAndKeepsTheOldDevices) {
    HIDClient client;
    ServingPublisher first(bus_, "first");
    client.awaitDevice("first");
    const fs::path other = folder_.path() + "/other";
    fs::create_directory(other);
    ServingPublisher second(other, "second");
    fs::rename(bus_, folder_.path() + "/gone");
    fs::rename(other, bus_);
    client.awaitDevice("second");
    EXPECT_TRUE(client.removed().empty());
}

TEST_F(HIDBusFolder, FolderWhoseAncestorIsMovedAwayIsWaitedForAgain) {
    const fs::path ancestor = folder_.path() + "/ancestor";
    const fs::path deep = ancestor / "between/hid";
    fs::create_directories(deep);
    const EnvironmentVariable bus("MOXEL_HID_BUS", deep.string());
    HIDClient client;
    ServingPublisher first(deep, "first");
    client.awaitDevice("first");
    fs::rename(ancestor, folder_.path() + "/elsewhere");
    fs::create_directories(deep);
    ServingPublisher second(deep, "second");
    client.awaitDevice("second");
    EXPECT_TRUE(client.removed().empty());
}

TEST_F(HIDBusFolder, FileInPlaceOfTheFolderIsComplainedOfAndWaitedOut) {
    fs::remove(bus_);
    std::ofstream(bus_) << "x";
    HIDClient client;
    EXPECT_TRUE(awaitError(bus_.string()));
    fs::remove(bus_);
    fs::create_directory(bus_);
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
    EXPECT_EQ(errors().size(), 1U);
}

// ------------------------------------------------------------------------------------------ Rights

class HIDBusFolderWritableBy : public test::HIDBusTest, public ::testing::WithParamInterface<fs::perms> {};

TEST_P(HIDBusFolderWritableBy, OthersIsNotUsedUntilThatIsMended) {
    fs::permissions(bus_, fs::perms::owner_all | GetParam());
    ServingPublisher device(bus_, "device");
    HIDClient client;
    EXPECT_TRUE(
        awaitError("HID bus folder " + bus_.string() + " is not used: its group or others may write to it"));
    ServingPublisher another(bus_, "another");
    client.settle();
    EXPECT_TRUE(client.arrived().empty());
    EXPECT_EQ(device.acceptedConnections(), 0);
    EXPECT_EQ(errors().size(), 1U);
    fs::permissions(bus_, fs::perms::owner_all);
    EXPECT_TRUE(client.awaitArrivals(2));
    EXPECT_EQ(errors().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Rights, HIDBusFolderWritableBy,
                         ::testing::Values(fs::perms::group_write, fs::perms::others_write,
                                           fs::perms::group_all | fs::perms::others_all));

TEST_F(HIDBusFolder, ThatOthersMayReadIsUsed) {
    fs::permissions(bus_, static_cast<fs::perms>(0755));
    ServingPublisher device(bus_, "device");
    HIDClient client;
    client.awaitDevice("device");
}

TEST_F(HIDBusFolder, ThatIsOpenedToOthersWhileInUseFindsNoMoreDevices) {
    ServingPublisher first(bus_, "first");
    HIDClient client;
    const HIDDeviceReference device = client.awaitDevice("first");
    fs::permissions(bus_, static_cast<fs::perms>(0777));
    EXPECT_TRUE(awaitError("others may write"));
    ServingPublisher second(bus_, "second");
    client.settle();
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_EQ(device->open(), HIDStatus::success); // Its publisher was checked before.
    fs::permissions(bus_, static_cast<fs::perms>(0700));
    client.awaitDevice("second");
    EXPECT_EQ(client.arrived().size(), 2U);
}

TEST_F(HIDBusFolder, OfAnotherUserIsNotUsed) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to give a folder away";
    ServingPublisher device(bus_, "device");
    ASSERT_EQ(::chown(bus_.c_str(), nobody, nobody), 0);
    HIDClient client;
    EXPECT_TRUE(awaitError("HID bus folder " + bus_.string() +
                           " is not used: it belongs to user 65534, neither root nor this user"));
    EXPECT_EQ(device.acceptedConnections(), 0);
    ASSERT_EQ(::chown(bus_.c_str(), 0, 0), 0);
    client.awaitDevice("device");
    EXPECT_EQ(errors().size(), 1U);
}

TEST_F(HIDBusFolder, ThatMayNotBeReadIsComplainedOfAndUsedOnceItMay) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "root may read everything";
    fs::permissions(bus_, fs::perms::none);
    HIDClient client;
    EXPECT_TRUE(awaitError("HID bus folder " + bus_.string() + " is not used: it cannot be opened"));
    fs::permissions(bus_, fs::perms::owner_all);
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
}

TEST_F(HIDBusFolder, PublisherOfAnotherUserIsRefused) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    PublisherSocket foreign(bus_, "foreign", PublisherSocket::Appear::later);
    foreign.listenAs(nobody);
    foreign.show();
    HIDClient client;
    EXPECT_TRUE(awaitError("HID device " + foreign.path().string() +
                           " is not used: its publisher runs as user 65534, neither root nor this user"));
    EXPECT_TRUE(foreign.accept().awaitHangUp());
    ServingPublisher device(bus_, "device");
    client.awaitDevice("device");
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_EQ(errors().size(), 1U);
}

// ------------------------------------------------------------------------------------------ Without /proc

TEST_F(HIDBusFolder, WorksWhereThereIsNoProc) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to hide /proc";
    ServingPublisher first(bus_, "first");
    std::thread([&] {
        // For this thread, and for those that it starts.
        if (::unshare(CLONE_NEWNS | CLONE_FS) != 0 ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", "/proc", "tmpfs", 0, nullptr) != 0)
            GTEST_SKIP() << "may not mount";
        HIDClient client;
        EXPECT_EQ(client.awaitDevice("first")->open(), HIDStatus::success);
        ServingPublisher second(bus_, "second");
        EXPECT_EQ(client.awaitDevice("second")->open(), HIDStatus::success);
    }).join();
}

} // namespace
} // namespace moxel
