// What a change of the application's settings file makes the client object tell, and to whom.
#include "Platform/DistributedNotificationCenter.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/EnvironmentVariable.h"
#include "Support/HandlerRecorder.h"
#include "Support/Python.h"
#include "Support/SessionBusMonitor.h"
#include "Support/TemporaryFolder.h"
#include <Moxel/CFileObserver.h>
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <malloc.h>
#include <thread>
#include <utility>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using test::ChildProgram;
using test::HandlerRecorder;
using test::PostedNotification;
using test::ReceivedCall;
using test::SessionBusDaemon;
using test::SessionBusMonitor;
using test::TemporaryFolder;

HandlerRecorder &recorder() { return HandlerRecorder::instance(); }

Access::Client makeClient(MoxelMessageHandlerProc handler, bool threaded) {
    Access::Client client = Access::make(handler, nullptr, nullptr, threaded);
    client->applicationInfo()->setName("Viewer \xC3\xA9");
    client->applicationInfo()->setBundleid("com.example.viewer");
    client->applicationInfo()->setButtonMask(0x3F);
    return client;
}

/// Tells every client of a change, as a file observer does on its thread.
void postChange(int32_t reason, const String &folder, const String &file) {
    CFileObserverInfo info;
    info.setEventReason(reason);
    info.setFolderName(folder);
    info.setFileName(file);
    NotificationCenter::defaultCenter().post({"MxlFileChange", &info});
}

uint32_t reasonIn(const ReceivedCall &call) {
    uint32_t reason = 0;
    std::memcpy(&reason, call.bytes.data() + 65538, sizeof reason);
    return reason;
}

/// What the notification's text says: the entries of the archived dictionary, the record's class and members.
std::string decoded(const std::string &hexadecimalText) {
    const test::SubprocessResult result = test::runPython(R"(
import plistlib, sys
text = sys.stdin.read()
assert text == text.lower()
archive = plistlib.loads(bytes.fromhex(text))
assert archive['$archiver'] == 'NSKeyedArchiver'
objects = archive['$objects']
def resolve(uid): return objects[uid.data]
root = resolve(archive['$top']['root'])
entries = {resolve(k): resolve(v) for k, v in zip(root['NS.keys'], root['NS.objects'])}
app = entries.pop('app')
print(sorted(entries.items()))
print(resolve(app['$class'])['$classname'], resolve(app['appname']), resolve(app['bundleid']), resolve(app['buttonmask']))
)",
                                                          hexadecimalText);
    EXPECT_EQ(result.exitCode, 0);
    return result.output;
}

std::string expectedRequest(const std::string &path) {
    return "[('filepath', '" + path + "'), ('req', 'unavsett')]\n" +
           "MxlApplication Viewer \xC3\xA9 com.example.viewer 63\n";
}

// ------------------------------------------------------------------------------------------ The message

/// Nobody hears these tests' distributed notifications.
class SettingsFileChange : public testing::Test {
  protected:
    void SetUp() override { recorder().clear(); }
    static Access::Client subscribedClient(MoxelMessageHandlerProc handler, bool threaded) {
        Access::Client client = makeClient(handler, threaded);
        Access::subscribe(client);
        return client;
    }

    test::EnvironmentVariable bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"};
    test::CapturedLog log;
};

TEST_F(SettingsFileChange, MessageIsARecordOf65542Bytes) {
    EXPECT_EQ(sizeof(MoxelSettingsChange), 65542U);
    EXPECT_EQ(offsetof(MoxelSettingsChange, path), 0U);
    EXPECT_EQ(offsetof(MoxelSettingsChange, pathLength), 65536U);
    EXPECT_EQ(offsetof(MoxelSettingsChange, reason), 65538U);
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    ::mallopt(M_PERTURB, 0x5A); // Fresh memory is full of something.
    postChange(2, "/folder", "file");
    ::mallopt(M_PERTURB, 0);
    const ReceivedCall call = recorder().calls().at(0);
    EXPECT_EQ(call.message, 0x6D764E43U);
    EXPECT_EQ(call.productID, 32767U);
    std::vector<uint8_t> expected(65542);
    expected[65538] = 2;
    EXPECT_EQ(call.bytes, expected) << "nothing of the process may leak into the unused areas";
}

TEST_F(SettingsFileChange, ReasonIs1ForRemoval2ForChangeAnd0ForAnythingElse) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    const std::vector<std::pair<int32_t, uint32_t>> reasons{{1, 1}, {2, 2}, {0, 0}, {3, 0}, {-1, 0}};
    for (const auto &[reason, expected] : reasons) {
        postChange(reason, "/folder", "file");
        EXPECT_EQ(reasonIn(recorder().calls().back()), expected) << reason;
    }
}

TEST_F(SettingsFileChange, LengthFieldIs0ForPathsOf65535UnitsAndMore) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    postChange(2, String(std::string(40000, 'd')), String(std::string(40000, 'f')));
    const ReceivedCall call = recorder().calls().at(0);
    EXPECT_EQ(call.bytes[65536], 0);
    EXPECT_EQ(call.bytes[65537], 0);
    EXPECT_EQ(reasonIn(call), 2U);
}

TEST_F(SettingsFileChange, ThreadedHandlersRunOnTheThreadThatPosts) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    uint64_t thread = 0;
    std::thread([&thread] {
        thread = Thread::current()->identifier();
        postChange(1, "/folder", "file");
    }).join();
    EXPECT_EQ(recorder().calls().at(0).thread, thread);
}

TEST_F(SettingsFileChange, OtherwiseTheHandlerRunsOnTheCallerThread) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, false);
    std::thread([] { postChange(1, "/folder", "file"); }).join();
    EXPECT_EQ(recorder().count(), 0U) << "the handler was called while the caller thread did nothing";
    ASSERT_TRUE(recorder().dispatchUntil(1));
    const ReceivedCall call = recorder().calls().at(0);
    EXPECT_EQ(call.thread, Thread::current()->identifier());
    EXPECT_EQ(call.message, 0x6D764E43U);
    EXPECT_EQ(call.productID, 32767U);
    EXPECT_EQ(call.bytes.size(), 65542U);
    EXPECT_EQ(reasonIn(call), 1U);
}

TEST_F(SettingsFileChange, ForwardedMessagesOfKind6AreDeliveredAsTheyAre) {
    const Access::Client client = makeClient(HandlerRecorder::message, false);
    std::vector<uint8_t> record(65542, 0xAB);
    client->callerThreadProxy(
        {{"handler", 6}, {"pid", 1234}, {"arg", Data(std::span<const uint8_t>(record))}});
    EXPECT_EQ(recorder().calls().at(0).message, 0x6D764E43U);
    EXPECT_EQ(recorder().calls().at(0).productID, 1234U);
    EXPECT_EQ(recorder().calls().at(0).bytes, record);
}

TEST_F(SettingsFileChange, WithoutACallerThreadTheMessageIsDropped) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, false);
    Access::setCallerThread(client, nullptr);
    postChange(2, "/folder", "file");
    (*RunLoop::current())->dispatch(0);
    EXPECT_EQ(recorder().count(), 0U);
}

TEST_F(SettingsFileChange, ContextHandlersGetTheirContext) {
    for (const bool threaded : {true, false}) {
        recorder().clear();
        int context = 0;
        const Access::Client client = subscribedClient(nullptr, threaded);
        Access::setHandlersWithContext(client, HandlerRecorder::messageWithContext, nullptr, nullptr,
                                       &context);
        postChange(2, "/folder", "file");
        ASSERT_TRUE(recorder().dispatchUntil(1));
        EXPECT_TRUE(recorder().calls().at(0).withContext);
        EXPECT_EQ(recorder().calls().at(0).context, &context);
        EXPECT_EQ(reasonIn(recorder().calls().at(0)), 2U);
    }
}

TEST_F(SettingsFileChange, ThePlainHandlerComesBeforeTheContextHandler) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    Access::setHandlersWithContext(client, HandlerRecorder::messageWithContext, nullptr, nullptr, nullptr);
    postChange(2, "/folder", "file");
    ASSERT_EQ(recorder().count(), 1U);
    EXPECT_FALSE(recorder().calls().at(0).withContext);
}

TEST_F(SettingsFileChange, OfAnyObserverIsHeard) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    const TemporaryFolder folder;
    std::shared_ptr<CFileObserver> other = CFileObserver::init();
    ASSERT_TRUE(other->observeFile(folder.path("file")));
    folder.write("file");
    EXPECT_TRUE(recorder().waitFor(1));
    other->stopObservation();
    const std::weak_ptr<CFileObserver> stopping = std::exchange(other, nullptr);
    while (!stopping.expired()) // Its thread still reads the environment, which the test changes.
        std::this_thread::yield();
}

TEST_F(SettingsFileChange, NotificationsWithoutAnInfoRecordAreIgnored) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    NotificationCenter::defaultCenter().post({"MxlFileChange", nullptr});
    NotificationCenter::defaultCenter().post({"MxlFileChange", Thread::current().get()});
    EXPECT_EQ(recorder().count(), 0U);
}

TEST_F(SettingsFileChange, TheHandlerIsCalledOutsideTheClassLock) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    bool isFree = false;
    recorder().setOnCall([&isFree](const ReceivedCall &) {
        std::thread([&isFree] {
            isFree = MoxelClientAPI::classLock().try_lock();
            if (isFree)
                MoxelClientAPI::classLock().unlock();
        }).join();
    });
    postChange(2, "/folder", "file");
    EXPECT_TRUE(isFree);
}

TEST_F(SettingsFileChange, ARequestLongerThan65535BytesIsDroppedWithAnErrorLine) {
    const Access::Client client = subscribedClient(HandlerRecorder::message, true);
    postChange(2, "/folder", String(std::string(66000, 'f')));
    EXPECT_EQ(recorder().count(), 1U);
    EXPECT_EQ(log.count("Error: a request to the user interface is dropped: it is too long"), 1U);
}

// ------------------------------------------------------------------------------------------ User interface

/// What the processes of these tests get from the test.
std::string scratch(const std::string &name) { return std::string(std::getenv("SCRATCH")) + '/' + name; }

/// Runs the program with a session bus address where no bus is as yet.
void runWithBusAddress(const ChildProgram &program) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python3";
    const TemporaryFolder folder;
    program.run(
        {{"SCRATCH", folder.path()}, {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.path("bus")}});
}

/// A session bus, a listener there, and a client whose settings file is observed.
struct ObservedClient {
    explicit ObservedClient(MoxelMessageHandlerProc handler, bool threaded)
        : client(makeClient(handler, threaded)) {
        Access::subscribe(client);
        EXPECT_TRUE(client->observerSettingsFile()->observeFile(file));
    }
    ~ObservedClient() { client->observerSettingsFile()->stopObservation(); }
    ObservedClient(const ObservedClient &) = delete;
    ObservedClient &operator=(const ObservedClient &) = delete;

    void write(const std::string &text) const { std::ofstream(file) << text; }
    /// The next notification must be a request for the observed file.
    void expectRequest() {
        const PostedNotification posted = monitor.next();
        EXPECT_EQ(posted.name, "com.moxel.ui.req");
        EXPECT_EQ(decoded(posted.object), expectedRequest(file));
    }
    /// Nothing but the notification that this posts may be on its way.
    void expectNoFurtherRequest() {
        postDistributedNotification("end", "");
        EXPECT_EQ(monitor.next().name, "end");
    }

    SessionBusDaemon bus{std::getenv("DBUS_SESSION_BUS_ADDRESS")};
    SessionBusMonitor monitor{bus.address()};
    std::string file = scratch("Viewer_Test.settings.plist");
    Access::Client client;
};

std::atomic<const char *> lastHandlerThread{""};
void noteHandlerThread(const ReceivedCall &) {
    static const std::string name = Thread::current()->name();
    lastHandlerThread = name.c_str();
}

const ChildProgram deleteSettings("deleteSettings", [] {
    std::ofstream(scratch("Viewer_Test.settings.plist")) << "old";
    ObservedClient observed(HandlerRecorder::message, true);
    recorder().setOnCall(noteHandlerThread);
    std::filesystem::remove(observed.file);
    ASSERT_TRUE(recorder().waitFor(1));
    EXPECT_EQ(recorder().calls().at(0).message, 0x6D764E43U);
    EXPECT_EQ(reasonIn(recorder().calls().at(0)), 1U);
    EXPECT_STREQ(lastHandlerThread, "Mxl-FileChangeObserver");
    observed.expectRequest();
    observed.expectNoFurtherRequest();
    EXPECT_EQ(recorder().count(), 1U);
});
TEST(SettingsFileChangeOnTheBus, DeletingTheFileGivesReason1AndPostsOneRequest) {
    runWithBusAddress(deleteSettings);
}

const ChildProgram rewriteSettings("rewriteSettings", [] {
    std::ofstream(scratch("Viewer_Test.settings.plist")) << "old";
    ObservedClient observed(HandlerRecorder::message, true);
    observed.write("new");
    ASSERT_TRUE(recorder().waitFor(1));
    EXPECT_EQ(reasonIn(recorder().calls().at(0)), 2U);
    observed.expectRequest();
});
TEST(SettingsFileChangeOnTheBus, RewritingTheFileGivesReason2) { runWithBusAddress(rewriteSettings); }

const ChildProgram createSettings("createSettings", [] {
    ObservedClient observed(HandlerRecorder::message, true);
    observed.write("new");
    ASSERT_TRUE(recorder().waitFor(1));
    EXPECT_EQ(reasonIn(recorder().calls().at(0)), 2U);
    observed.expectRequest();
});
TEST(SettingsFileChangeOnTheBus, CreatingTheFileGivesReason2) { runWithBusAddress(createSettings); }

const ChildProgram withoutHandler("withoutHandler", [] {
    ObservedClient observed(nullptr, false);
    observed.write("new");
    observed.expectRequest();
    (*RunLoop::current())->dispatch(0);
    EXPECT_EQ(recorder().count(), 0U);
});
TEST(SettingsFileChangeOnTheBus, WithoutAMessageHandlerOnlyTheRequestIsPosted) {
    runWithBusAddress(withoutHandler);
}

const ChildProgram withoutCallerThread("withoutCallerThread", [] {
    ObservedClient observed(HandlerRecorder::message, false);
    Access::setCallerThread(observed.client, nullptr);
    observed.write("new");
    observed.expectRequest();
    (*RunLoop::current())->dispatch(0);
    EXPECT_EQ(recorder().count(), 0U);
});
TEST(SettingsFileChangeOnTheBus, WithoutACallerThreadTheRequestIsPostedAllTheSame) {
    runWithBusAddress(withoutCallerThread);
}

const ChildProgram withCallerThread("withCallerThread", [] {
    ObservedClient observed(HandlerRecorder::message, false);
    observed.write("new");
    observed.expectRequest(); // Although the caller thread has done nothing so far.
    EXPECT_EQ(recorder().count(), 0U);
    ASSERT_TRUE(recorder().dispatchUntil(1));
    EXPECT_EQ(recorder().calls().at(0).thread, Thread::current()->identifier());
    EXPECT_EQ(reasonIn(recorder().calls().at(0)), 2U);
});
TEST(SettingsFileChangeOnTheBus, WithACallerThreadTheHandlerRunsThere) {
    runWithBusAddress(withCallerThread);
}

const ChildProgram underTheClassLock("underTheClassLock", [] {
    ObservedClient observed(HandlerRecorder::message, true);
    std::unique_lock lock(MoxelClientAPI::classLock());
    observed.write("new");
    ASSERT_TRUE(recorder().waitFor(1)) << "the handler waited for the class lock";
    postDistributedNotification("while locked", "");
    lock.unlock();
    EXPECT_EQ(observed.monitor.next().name, "while locked");
    observed.expectRequest();
});
TEST(SettingsFileChangeOnTheBus, TheRequestIsPostedUnderTheClassLock) {
    runWithBusAddress(underTheClassLock);
}

const ChildProgram twoClients("twoClients", [] {
    ObservedClient observed(nullptr, true);
    const Access::Client other = makeClient(nullptr, true);
    Access::subscribe(other);
    postChange(1, std::filesystem::path(observed.file).parent_path().string() + "/",
               "Viewer_Test.settings.plist");
    observed.expectRequest();
    observed.expectRequest();
    observed.expectNoFurtherRequest();
});
TEST(SettingsFileChangeOnTheBus, EveryClientOfTheProcessPostsItsOwnRequest) { runWithBusAddress(twoClients); }

} // namespace
} // namespace moxel
