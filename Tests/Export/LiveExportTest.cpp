// Exports of a registered session with a live daemon: what the daemon makes of them, what others read in the
// files, and what comes back when a button is pressed.
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Support/ExportingClient.h"
#include "Support/LiveDaemon.h"
#include "Support/PlistJSON.h"
#include "Support/Subprocess.h"
#include <Moxel/MxlImage.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace moxel {
namespace {

using Recorder = test::HandlerRecorder;
using test::jsonFromPlistlib;
using test::ReceivedCall;
using ::testing::ElementsAre;
using Node = MoxelCommandSyncNode_s;

/// Both ways of delivery.
class LiveExport : public test::LiveDaemonTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        LiveDaemonTest::SetUp();
        startDaemon();
        clientID = beginSession(threaded());
    }
    [[nodiscard]] static bool threaded() { return GetParam(); }
    [[nodiscard]] static bool waitForCalls(size_t count) {
        return threaded() ? Recorder::instance().waitFor(count) : Recorder::instance().dispatchUntil(count);
    }
    [[nodiscard]] static std::string contentOf(const String &path) {
        return test::ExportingClient::contentOf(path.string());
    }
    [[nodiscard]] Ref<MxlApplication> record() const {
        return CurrentClientViaClientID(clientID)->applicationInfo();
    }
    [[nodiscard]] daemon::ClientExports exports() const { return moxeld->client(clientID)->exports; }
    /// The daemon must have got, or get, exactly these three texts.
    void expectRequest(const char *name, const char *command, const std::string &parameter) const {
        const daemon::Dictionary expected{{"req", name}, {"ctrlcmd", command}, {"ctrlparm", parameter}};
        EXPECT_TRUE(moxeld->waitForRequest(
            [&](const daemon::ReceivedRequest &request) { return request.dictionary == expected; },
            patience));
    }
    /// How the driver's other components name the application.
    [[nodiscard]] Dictionary preferences() const {
        return {{"bundleid", record()->bundleid()}, {"application", "Test"}, {"clientname", "Test"}};
    }
    int16_t writeTree() const { return MoxelClientWriteCommands(clientID, kMoxelExportTree, 0, &edit); }
    void press(std::string_view trace) const {
        EXPECT_TRUE(moxeld->playTrace(*daemon::parseTrace(trace)).ok());
    }
    /// The application events among the calls so far: number and pressed state.
    [[nodiscard]] static std::vector<std::pair<int, int>> applicationEvents() {
        std::vector<std::pair<int, int>> events;
        for (const ReceivedCall &call : Recorder::instance().calls()) {
            MoxelStateRecord state{};
            if (call.message != kMoxelMsgDeviceState)
                continue;
            std::memcpy(&state, call.bytes.data(), sizeof state);
            if (state.command == 10)
                events.emplace_back(state.param, state.appEventPressed);
        }
        return events;
    }

    test::PlistStore store;
    uint16_t clientID = 0;
    Node zoom{0, 2, nullptr, nullptr, "zoom", "Zoom", nullptr};
    Node view{0, 0, nullptr, &zoom, "View", "Viewing", nullptr};
    Node paste{0, 2, nullptr, nullptr, "paste", "Paste", nullptr};
    Node copy{0, 2, &paste, nullptr, "copy", "Copy", nullptr};
    Node edit{0, 0, &view, &copy, "Edit", "Editing", nullptr};
};

std::string deliveryName(const ::testing::TestParamInfo<bool> &parameter) {
    return parameter.param ? "Threaded" : "OnTheCallerThread";
}

INSTANTIATE_TEST_SUITE_P(Delivery, LiveExport, ::testing::Bool(), deliveryName);

TEST_P(LiveExport, CommandsReachTheDaemonAndItsIndex) {
    EXPECT_EQ(writeTree(), 0);
    const std::string path = record()->commandsFile().asString().string();
    expectRequest("moxclientwrite", "cswritecommands", path);
    EXPECT_EQ(exports().commandsFile, path);
    String activeSet;
    const Array sets = store->commandSetIDsForSetting(preferences(), &activeSet);
    EXPECT_EQ(sets, Array::of("Edit", "View"));
    EXPECT_FALSE(activeSet);
    String command;
    const Dictionary set = store->commandSetForLabel("Zoom", &command, preferences());
    EXPECT_EQ(set["id"], Value("View"));
    EXPECT_EQ(command, String("zoom"));
}

TEST_P(LiveExport, TheActiveSetReachesTheDaemon) {
    EXPECT_EQ(writeTree(), 0);
    EXPECT_EQ(MoxelClientActivateActionSet(clientID, "Edit"), 0);
    expectRequest("moxclientactset", "csactiveset", "Edit");
    EXPECT_EQ(exports().activeSet, "Edit");
    EXPECT_THAT(exports().actions, ElementsAre(daemon::ExportedAction{"copy", "Copy"},
                                               daemon::ExportedAction{"paste", "Paste"}));
    EXPECT_EQ(store->activeCommandSetIDForPrefs(preferences()), String("Edit"));
}

TEST_P(LiveExport, PressedButtonsComeBackAsTheActionsOfTheActiveSet) {
    EXPECT_EQ(writeTree(), 0);
    EXPECT_EQ(MoxelClientActivateActionSet(clientID, "Edit"), 0);
    press("buttons 2\n+0.001 buttons 0\n");
    ASSERT_TRUE(waitForCalls(4));
    EXPECT_THAT(applicationEvents(), ElementsAre(std::pair(2, 1), std::pair(2, 0)));
    Recorder::instance().clear();
    EXPECT_EQ(MoxelClientActivateActionSet(clientID, "View"), 0);
    press("buttons 3\n+0.001 buttons 0\n");
    ASSERT_TRUE(waitForCalls(4));
    EXPECT_THAT(applicationEvents(), ElementsAre(std::pair(1, 1), std::pair(1, 0))) << "View has one action";
}

TEST_P(LiveExport, ImagesReachTheDaemonAndItsIndex) {
    std::array<MoxelImage_s, 2> images{};
    images[0].type = kMoxelImageFile;
    images[0].id = "copy";
    images[0].file = {"/icons/copy.png", 0};
    images[1].type = kMoxelImageData;
    images[1].id = "paste";
    images[1].image = {reinterpret_cast<const uint8_t *>("\x89PNG\r\n\x1A\n"), 8, 0};
    EXPECT_EQ(MoxelClientWriteImages(clientID, kMoxelExportImages, images.data(), images.size()), 0);
    const std::string path = record()->imagesFile().asString().string();
    expectRequest("moxclientwrite", "cswriteimgages", path);
    EXPECT_EQ(exports().imagesFile, path);
    EXPECT_EQ(exports().imageCount, 2U);
    EXPECT_EQ(store->imagePathForID("copy", preferences()), String("/icons/copy.png"));
    const std::shared_ptr<MxlImage> image = store->copyImageForID("paste", preferences());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->dataType(), MxlImageDataType::png);
}

TEST_P(LiveExport, SettingsReachTheDaemonAndTheirChangesTheApplication) {
    EXPECT_EQ(MoxelClientSetSettingValue(clientID, "speed", "fast"), 0);
    const std::string path = record()->settingsFile().asString().string();
    expectRequest("moxclientwrite", "cswritesettings", path);
    EXPECT_EQ(exports().settingsFile, path);
    EXPECT_EQ(exports().settingCount, 1U);
    const Dictionary settings = store->navSettingsDictionaryForPrefs(preferences());
    EXPECT_EQ(settings["speed"], Value("fast"));
    EXPECT_EQ(settings["filepath"], Value(path));

    // From now on the file is watched; the library's own changes count like everybody else's.
    EXPECT_EQ(MoxelClientSetSettingValue(clientID, "speed", "slow"), 0);
    ASSERT_TRUE(waitForCalls(1));
    const ReceivedCall changed = Recorder::instance().calls()[0];
    EXPECT_EQ(changed.message, 0x6D764E43U);
    EXPECT_EQ(changed.productID, 32767U);
    EXPECT_EQ(changed.bytes.size(), 65542U);
    EXPECT_EQ(changed.bytes[65538], 2);
    EXPECT_EQ(changed.thread == Thread::current()->identifier(), !threaded());
    std::filesystem::remove(path);
    size_t seen = 1; // More of the changes above may come first.
    do
        ASSERT_TRUE(waitForCalls(++seen)) << "the removal was not told";
    while (Recorder::instance().calls()[seen - 1].bytes[65538] != 1);
}

TEST_P(LiveExport, AnotherRunOfTheApplicationTakesThePlaceOfTheFirstInTheIndex) {
    EXPECT_EQ(writeTree(), 0);
    const Value first = record()->commandsFile();
    endSession();
    clientID = beginSession(threaded());
    edit.next = nullptr;
    EXPECT_EQ(writeTree(), 0);
    EXPECT_NE(record()->commandsFile(), first);
    EXPECT_EQ(store->commandSetIDsForSetting(preferences(), nullptr), Array::of("Edit"));
}

TEST_P(LiveExport, ADaemonThatDoesNotAcknowledgeMakesTheWritersFailAfterwards) {
    daemon::Faults faults;
    faults.noAcknowledgement = true;
    moxeld->setFaults(faults);
    EXPECT_EQ(writeTree(), -1);
    EXPECT_EQ(MoxelClientSetSettingValue(clientID, "speed", "fast"), 0);
    EXPECT_NE(contentOf(record()->commandsFile().asString()), "");
    EXPECT_NE(contentOf(record()->settingsFile().asString()), "");
    EXPECT_TRUE(exports().commandsFile) << "the daemon took the file all the same";
}

TEST_P(LiveExport, FilesAreReadByOthersAndThoseThatOthersWroteAreMerged) {
    EXPECT_EQ(writeTree(), 0);
    const String path = record()->commandsFile().asString();
    const std::string action = R"({"description": "", "id": "%", "label": "*", "type": "action"})";
    const auto actionOf = [&](const std::string &identifier, const std::string &label) {
        std::string text = action;
        return text.replace(text.find('*'), 1, label).replace(text.find('%'), 1, identifier);
    };
    const std::string viewText =
        R"("View": {"description": "", "id": "View", "label": "Viewing", "type": "actionset", "zoom": )" +
        actionOf("zoom", "Zoom") + "}";
    const std::string editText = R"("Edit": {"copy": )" + actionOf("copy", "Copy") +
                                 R"(, "description": "", "id": "Edit", "label": "Editing", "paste": )" +
                                 actionOf("paste", "Paste") + R"(, "type": "actionset"})";
    EXPECT_EQ(jsonFromPlistlib(contentOf(path)), "{\"Commands\": {" + editText + ", " + viewText + "}}");
    for (const char *form : {"bin", "xml"}) {
        // plistutil reads the file and writes it in its own way, python3 changes it in its own.
        ASSERT_EQ(
            test::runSubprocess("plistutil", {"-i", path.string(), "-o", path.string(), "-f", form}).exitCode,
            0);
        ASSERT_EQ(test::runPython(R"(
import plistlib, sys
path, form = sys.argv[1:]
with open(path, 'rb') as file: root = plistlib.load(file)
root['Commands']['View']['label'] = 'changed'
root['Commands']['activesetid'] = 'View'
root['extra'] = [form]
with open(path, 'wb') as file: plistlib.dump(root, file, fmt=plistlib.FMT_BINARY if form == 'bin' else plistlib.FMT_XML)
)",
                                  {}, {path.string(), form})
                      .exitCode,
                  0);
        edit.next = nullptr;
        EXPECT_EQ(writeTree(), 0);
        std::string changed = viewText;
        changed.replace(changed.find("Viewing"), 7, "changed");
        EXPECT_EQ(jsonFromPlistlib(contentOf(path)), "{\"Commands\": {" + editText + ", " + changed +
                                                         ", \"activesetid\": \"View\"}, \"extra\": [\"" +
                                                         form + "\"]}");
        EXPECT_EQ(exports().activeSet, "View") << "the daemon reads what python3 wrote, merged";
    }
}

TEST_P(LiveExport, ACallOnTheThreadOfAThreadedHandlerFailsInItsTime) {
    if (!threaded())
        GTEST_SKIP() << "there is no such thread";
    int16_t result = 1;
    Recorder::instance().setOnCall([&](const ReceivedCall &) { result = writeTree(); });
    press("buttons 1\n");
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_EQ(result, -1);
}

} // namespace
} // namespace moxel
