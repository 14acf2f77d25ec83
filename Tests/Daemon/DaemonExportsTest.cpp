// Exports as a client requests them, and their actions as it gets them back.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace moxel::daemon {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *commandsText = R"(<plist><dict>
<key>Commands</key><dict>
  <key>activesetid</key><string>Edit</string>
  <key>Edit</key><dict><key>type</key><string>actionset</string>
    <key>copy</key><dict><key>id</key><string>copy</string><key>label</key><string>Copy</string><key>type</key><string>action</string></dict>
    <key>paste</key><dict><key>id</key><string>paste</string><key>label</key><string>Paste</string><key>type</key><string>action</string></dict>
  </dict>
  <key>View</key><dict><key>type</key><string>actionset</string>
    <key>zoom</key><dict><key>id</key><string>zoom</string><key>label</key><string>Zoom</string><key>type</key><string>action</string></dict>
  </dict>
</dict></dict></plist>)";

class DaemonExports : public DaemonFixture {
  protected:
    TestClient &startWithClient(uint32_t mask = 0xFF) {
        Options options;
        options.exportFolder = folder.path("Applications");
        start(std::move(options));
        client.emplace(*daemon, 5);
        client->registerClient(mask);
        return *client;
    }
    /// Sends a request and waits until it is served.
    void request(const std::string &name, const std::string &command, const std::string &argument) {
        client->send(Dictionary{{"req", name}, {"ctrlcmd", command}, {"ctrlparm", argument}});
        EXPECT_EQ(client->input(), acknowledgementInput);
    }
    std::string write(const std::string &name, const std::string &content) const {
        return folder.write("Applications/com.example.demo_Demo/" + name, content);
    }
    void exportCommands() {
        request("moxclientwrite", "cswritecommands", write("commands.plist", commandsText));
    }
    [[nodiscard]] ClientExports exports() const { return daemon->client(client->clientID)->exports; }
    [[nodiscard]] Dictionary index() const {
        const Result<Data> content =
            ExportFolder(folder.path("Applications")).readOwn("SyncApplications.plist");
        const Result<Value> value = readPropertyList(*content);
        return value.ok() && value->as<Dictionary>() ? *value->as<Dictionary>() : Dictionary();
    }
    void press(std::string_view trace) { EXPECT_TRUE(daemon->playTrace(*parseTrace(trace)).ok()); }
    /// What the next state record says: command, param, pressed.
    std::vector<int> nextState() {
        const Bytes report = client->input();
        MoxelStateRecord record{};
        EXPECT_EQ(report.size(), 55U);
        if (report.size() == 55)
            std::memcpy(&record, report.data() + 7, sizeof record);
        return {record.command, record.param, record.appEventPressed};
    }

    std::optional<TestClient> client;
    test::CapturedLog log;
};

TEST_F(DaemonExports, CommandsAreReadAndIndexed) {
    startWithClient();
    exportCommands();
    EXPECT_EQ(exports().commandsFile, folder.path("Applications/com.example.demo_Demo/commands.plist"));
    EXPECT_EQ(exports().activeSet, "Edit");
    EXPECT_THAT(exports().actions,
                ElementsAre(ExportedAction{"copy", "Copy"}, ExportedAction{"paste", "Paste"}));
    EXPECT_EQ(
        index(),
        (Dictionary{{"com.example.demo",
                     Dictionary{{"Demo_44656D6F", Dictionary{{"clientname", "Demo"},
                                                             {"name", "Demo"},
                                                             {"processname", "demo"},
                                                             {"commandsfile", *exports().commandsFile}}}}}}));
}

TEST_F(DaemonExports, ImagesAreReadAndIndexed) {
    startWithClient();
    const std::string path = write(
        "images.plist",
        "<plist><dict><key>Images</key><dict><key>a</key><dict/><key>b</key><dict/></dict></dict></plist>");
    request("moxclientwrite", "cswriteimgages", path);
    EXPECT_EQ(exports().imagesFile, path);
    EXPECT_EQ(exports().imageCount, 2U);
    EXPECT_EQ(*index()
                   .find("com.example.demo")
                   ->as<Dictionary>()
                   ->entries()[0]
                   .value.as<Dictionary>()
                   ->find("imagesfile"),
              Value(path));
}

TEST_F(DaemonExports, SettingsAreReadAndIndexed) {
    startWithClient();
    const std::string path =
        write("settings.plist", "<plist><dict><key>a</key><string>1</string></dict></plist>");
    request("moxclientwrite", "cswritesettings", path);
    EXPECT_EQ(exports().settingsFile, path);
    EXPECT_EQ(exports().settingCount, 1U);
    EXPECT_EQ(*index()
                   .find("com.example.demo")
                   ->as<Dictionary>()
                   ->entries()[0]
                   .value.as<Dictionary>()
                   ->find("settingsfile"),
              Value(path));
}

TEST_F(DaemonExports, BinaryFilesAreReadToo) {
    startWithClient();
    const Result<Value> value =
        readPropertyList({reinterpret_cast<const uint8_t *>(commandsText), std::strlen(commandsText)});
    const Data bytes = *writePropertyList(*value);
    request("moxclientwrite", "cswritecommands",
            write("commands.plist", std::string(bytes.begin(), bytes.end())));
    EXPECT_EQ(exports().actions.size(), 2U);
}

TEST_F(DaemonExports, ActivatingASetChangesTheActions) {
    startWithClient();
    exportCommands();
    request("moxclientactset", "csactiveset", "View");
    EXPECT_EQ(exports().activeSet, "View");
    EXPECT_THAT(exports().actions, ElementsAre(ExportedAction{"zoom", "Zoom"}));
}

TEST_F(DaemonExports, ASetCanBeActivatedBeforeItsCommandsCome) {
    startWithClient();
    request("moxclientactset", "csactiveset", "View");
    EXPECT_EQ(exports().activeSet, "View");
    EXPECT_THAT(exports().actions, IsEmpty());
    EXPECT_TRUE(index().empty());
}

TEST_F(DaemonExports, ASetThatIsNotThereHasNoActions) {
    startWithClient();
    exportCommands();
    request("moxclientactset", "csactiveset", "None\n");
    EXPECT_EQ(exports().activeSet, "None\n");
    EXPECT_THAT(exports().actions, IsEmpty());
    EXPECT_EQ(log.countContaining("has no action set \"None\\n\""), 1U);
}

TEST_F(DaemonExports, PathsOutsideTheFolderAreRefusedWithALogLine) {
    startWithClient();
    exportCommands();
    const ClientExports before = exports();
    const std::string outside = folder.write("outside.plist", commandsText);
    for (const std::string &path :
         {outside, folder.path("Applications/../outside.plist"), std::string("/etc/passwd"), std::string()})
        request("moxclientwrite", "cswritecommands", path);
    EXPECT_EQ(exports().commandsFile, before.commandsFile);
    EXPECT_EQ(log.countStarting("Error: MxlVirtualHIDData_ID5: "), 4U);
    EXPECT_EQ(
        log.countContaining("is refused: it is no file of an application in " + folder.path("Applications")),
        4U);
}

TEST_F(DaemonExports, FilesThatCannotBeReadChangeNothing) {
    startWithClient();
    exportCommands();
    for (const char *content : {"", "nonsense", "<plist><array/></plist>", "<plist><dict/></plist>",
                                "<plist><dict><key>Commands</key><string/></dict></plist>"})
        request("moxclientwrite", "cswritecommands", write("bad.plist", content));
    request("moxclientwrite", "cswritecommands", folder.path("Applications/com.example.demo_Demo/none"));
    request("moxclientwrite", "cswriteimgages", write("bad.plist", "<plist><dict/></plist>"));
    request("moxclientwrite", "cswritesettings", write("bad.plist", "<plist><array/></plist>"));
    EXPECT_EQ(log.countStarting("Error: MxlVirtualHIDData_ID5: "), 8U);
    EXPECT_EQ(exports().commandsFile, folder.path("Applications/com.example.demo_Demo/commands.plist"));
    EXPECT_FALSE(exports().imagesFile);
    EXPECT_FALSE(exports().settingsFile);
    EXPECT_THAT(exports().actions, ::testing::SizeIs(2));
}

TEST_F(DaemonExports, RequestsOfOtherWordsAreAcknowledgedAndIgnored) {
    startWithClient();
    const std::string path = write("commands.plist", commandsText);
    request("moxclientwrite", "cswriteimages", path);
    request("moxclientwrite", "csactiveset", "Edit");
    request("moxclientactset", "cswritecommands", path);
    EXPECT_EQ(log.countContaining("is not well formed"), 3U);
    EXPECT_FALSE(exports().commandsFile);
    EXPECT_FALSE(exports().imagesFile);
    EXPECT_TRUE(exports().activeSet.empty());
}

TEST_F(DaemonExports, ClientsThatAreNotRegisteredExportNothing) {
    Options options;
    options.exportFolder = folder.path("Applications");
    start(std::move(options));
    client.emplace(*daemon, 5);
    request("moxclientwrite", "cswritecommands", write("commands.plist", commandsText));
    EXPECT_EQ(log.countContaining("an export is ignored"), 1U);
    EXPECT_TRUE(index().empty());
}

TEST_F(DaemonExports, ButtonsSendTheActionsOfTheActiveSet) {
    startWithClient();
    exportCommands();
    press("buttons 2\nbuttons 5\nbuttons 0\n");
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 2));
    EXPECT_THAT(nextState(), ElementsAre(10, 2, 1));
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 5));
    EXPECT_THAT(nextState(), ElementsAre(10, 2, 0));
    EXPECT_THAT(nextState(), ElementsAre(10, 1, 1)) << "there is no third action";
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 0));
    EXPECT_THAT(nextState(), ElementsAre(10, 1, 0));
    EXPECT_TRUE(client->isQuiet());
}

TEST_F(DaemonExports, ActionsReachTheirOwnClientOnly) {
    startWithClient();
    exportCommands();
    TestClient other(*daemon, 6);
    other.registerClient();
    press("buttons 1\n");
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 1));
    EXPECT_THAT(nextState(), ElementsAre(10, 1, 1));
    EXPECT_EQ(other.input().size(), 55U);
    EXPECT_TRUE(other.isQuiet());
}

TEST_F(DaemonExports, ClientsThatWantNoApplicationEventsGetNone) {
    startWithClient(0b011);
    exportCommands();
    press("buttons 1\n");
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 1));
    EXPECT_TRUE(client->isQuiet());
}

TEST_F(DaemonExports, ButtonsThatWereDownBeforeTheClientCamePressNothing) {
    Options options;
    options.exportFolder = folder.path("Applications");
    start(std::move(options));
    press("buttons 1\n");
    ASSERT_TRUE(daemon->waitUntil([](const Observation &seen) { return seen.traceIsOver; }, patience));
    client.emplace(*daemon, 5);
    client->registerClient();
    exportCommands();
    press("buttons 3\n");
    EXPECT_THAT(nextState(), ElementsAre(2, 0, 3));
    EXPECT_THAT(nextState(), ElementsAre(10, 2, 1));
    EXPECT_TRUE(client->isQuiet());
}

} // namespace
} // namespace moxel::daemon
