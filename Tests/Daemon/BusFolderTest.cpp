// The bus folder: found, made, checked; names in it taken, replaced and given back.
#include "Moxel Daemon/Bus/BusFolder.h"
#include "Support/EnvironmentVariable.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

mode_t modeOf(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

std::shared_ptr<const BusFolder> openFolder(const std::string &path) {
    Result<std::shared_ptr<const BusFolder>> folder = BusFolder::open(path);
    EXPECT_TRUE(folder.ok()) << folder.error().message;
    return folder.ok() ? *folder : nullptr;
}

/// Leaves a socket behind that nobody listens on, as a killed process does.
void leaveSocket(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}

TEST(DaemonBusFolder, IsTheOneThatTheEnvironmentNames) {
    const EnvironmentVariable bus("MOXEL_HID_BUS", "/some/where");
    const EnvironmentVariable runtime("XDG_RUNTIME_DIR", "/run/user/501");
    EXPECT_EQ(BusFolder::defaultPath(), "/some/where");
    bus.set("relative");
    EXPECT_EQ(BusFolder::defaultPath(), "/run/user/501/moxel/hid");
    bus.set(std::nullopt);
    EXPECT_EQ(BusFolder::defaultPath(), "/run/user/501/moxel/hid");
    runtime.set(std::nullopt);
    EXPECT_EQ(BusFolder::defaultPath(), "/run/moxel/hid");
}

TEST(DaemonBusFolder, IsMadeForItsOwnerAlone) {
    const TemporaryFolder folder;
    const mode_t before = ::umask(0);
    openFolder(folder.path("a/b/hid"));
    ::umask(before);
    EXPECT_EQ(modeOf(folder.path("a")), 0700U);
    EXPECT_EQ(modeOf(folder.path("a/b/hid")), 0700U);
}

TEST(DaemonBusFolder, MayBeReadByOthers) {
    const TemporaryFolder folder;
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_TRUE(BusFolder::open(folder.path()).ok());
}

TEST(DaemonBusFolder, IsRefusedWhenOthersMayWriteIt) {
    const TemporaryFolder folder;
    for (const mode_t mode : {0720U, 0702U, 0777U, 01777U}) {
        ::chmod(folder.path().c_str(), mode);
        const auto opened = BusFolder::open(folder.path());
        ASSERT_FALSE(opened.ok()) << mode;
        EXPECT_THAT(opened.error().message, HasSubstr(folder.path()));
        EXPECT_THAT(opened.error().message, HasSubstr("may be written by its group or by others"));
    }
}

TEST(DaemonBusFolder, IsRefusedWhenItBelongsToSomebodyElse) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give a folder away";
    const TemporaryFolder folder;
    ASSERT_EQ(::chown(folder.path().c_str(), 4711, 4711), 0);
    const auto opened = BusFolder::open(folder.path());
    ASSERT_FALSE(opened.ok());
    EXPECT_THAT(opened.error().message, HasSubstr("belongs to user 4711"));
}

TEST(DaemonBusFolder, MustBeAnAbsolutePathOfAFolder) {
    const TemporaryFolder folder;
    EXPECT_FALSE(BusFolder::open("").ok());
    EXPECT_FALSE(BusFolder::open("relative").ok());
    EXPECT_FALSE(BusFolder::open(folder.write("file")).ok());
    EXPECT_FALSE(BusFolder::open(folder.path("file/below")).ok());
}

TEST(DaemonBusFolder, ThatCannotBeMadeIsToldWithWhatNamesAnotherOne) {
    const auto folder = BusFolder::open("/proc/moxel/hid");
    ASSERT_FALSE(folder.ok());
    EXPECT_THAT(folder.error().message, HasSubstr("Cannot make the folder /proc/moxel "));
    EXPECT_THAT(folder.error().message, HasSubstr("MOXEL_HID_BUS"));
}

TEST(DaemonBusFolder, SocketAppearsUnderItsNameAndGoesWithItsHandle) {
    const TemporaryFolder folder;
    {
        const Result<PublishedSocket> socket = openFolder(folder.path())->publish("Device_1");
        ASSERT_TRUE(socket.ok()) << socket.error().message;
        EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("Device_1.hid"));
        EXPECT_EQ(modeOf(folder.path("Device_1.hid")), 0600U);
    }
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST(DaemonBusFolder, NamesWithOtherCharactersAreRefused) {
    const TemporaryFolder folder;
    for (const char *name : {"", ".hidden", "a/b", "a b", "ä", "a\n"})
        EXPECT_FALSE(openFolder(folder.path())->publish(name).ok()) << name;
    EXPECT_TRUE(openFolder(folder.path())->publish("Az09._-").ok());
}

TEST(DaemonBusFolder, PathMayBeLongerThanAnAddress) {
    const TemporaryFolder folder;
    const std::string path = folder.path(std::string(100, 'x').append("/").append(100, 'y'));
    const Result<PublishedSocket> socket = openFolder(path)->publish("device");
    ASSERT_TRUE(socket.ok()) << socket.error().message;
    EXPECT_THAT(namesIn(path), UnorderedElementsAre("device.hid"));
    EXPECT_EQ(openFolder(path)->publish("device").error().code, BusFolder::alreadyPublished);
    EXPECT_FALSE(openFolder(path)->publish(std::string(90, 'n')).ok());
}

TEST(DaemonBusFolder, NameOfALivingPublisherIsRefused) {
    const TemporaryFolder folder;
    const Result<PublishedSocket> first = openFolder(folder.path())->publish("device");
    ASSERT_TRUE(first.ok());
    const Result<PublishedSocket> second = openFolder(folder.path())->publish("device");
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().code, BusFolder::alreadyPublished);
    EXPECT_THAT(second.error().message, HasSubstr("already published by a running daemon"));
    EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("device.hid"));
}

TEST(DaemonBusFolder, SocketsLeftBehindAreReplaced) {
    const TemporaryFolder folder;
    leaveSocket(folder.path("device.hid"));
    leaveSocket(folder.path(".device.tmp"));
    const Result<PublishedSocket> socket = openFolder(folder.path())->publish("device");
    ASSERT_TRUE(socket.ok()) << socket.error().message;
    EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("device.hid"));
}

TEST(DaemonBusFolder, OtherFilesAreNotReplaced) {
    const TemporaryFolder folder;
    folder.write("device.hid", "precious");
    const Result<PublishedSocket> socket = openFolder(folder.path())->publish("device");
    ASSERT_FALSE(socket.ok());
    EXPECT_THAT(socket.error().message, HasSubstr("in the way"));
    EXPECT_EQ(std::filesystem::file_size(folder.path("device.hid")), 8U);
}

TEST(DaemonBusFolder, SocketOfSomebodyElseIsLeftAlone) {
    const TemporaryFolder folder;
    {
        const Result<PublishedSocket> socket = openFolder(folder.path())->publish("device");
        ASSERT_TRUE(socket.ok());
        std::filesystem::remove(folder.path("device.hid"));
        leaveSocket(folder.path("device.hid"));
    }
    EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("device.hid"));
}

TEST(DaemonBusFolder, OneOfManyPublishersTakesAStaleName) {
    const TemporaryFolder folder;
    for (int round = 0; round < 20; ++round) {
        leaveSocket(folder.path("device.hid"));
        std::vector<Result<PublishedSocket>> sockets;
        std::vector<std::thread> threads;
        std::mutex mutex;
        for (int index = 0; index < 4; ++index)
            threads.emplace_back([&] {
                Result<PublishedSocket> socket = openFolder(folder.path())->publish("device");
                const std::lock_guard lock(mutex);
                sockets.push_back(std::move(socket));
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(
            std::count_if(sockets.begin(), sockets.end(), [](const auto &socket) { return socket.ok(); }), 1);
    }
}

} // namespace
} // namespace moxel::daemon
