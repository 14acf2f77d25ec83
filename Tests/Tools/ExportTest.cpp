// moxelctl export, commands, search and settings; and the example that exports.
#include "Support/ExportFolders.h"
#include "Tools/ToolTest.h"

#include <filesystem>

namespace moxel::test {
namespace {

constexpr const char *description = R"({
    "sets": [
        {"id": "edit", "label": "Editing", "children": [
            {"id": "copy", "label": "Copy", "description": "Copies", "image": "/icons/copy.png"},
            {"id": "more", "label": "More", "children": [{"id": "cut", "label": "Cut \u00e9"}]},
            {"id": "paste"}]},
        {"id": "view", "label": "Viewing", "children": [{"id": "open", "label": "Open copy"}]}],
    "active": "edit",
    "settings": {"speed": "fast"}})";

class ExportTool : public ToolTest {
  protected:
    void SetUp() override {
        folders.write(folders.applicationSupport() + "/Moxel/MxlWare/MxlCommands.plist",
                      "<plist><dict/></plist>");
        startDaemon();
    }
    [[nodiscard]] std::string write(const std::string &content) const {
        return folders.write(folders.outside("description"), content);
    }
    [[nodiscard]] Finished exportText(const std::string &content) const {
        return run({"export", write(content)});
    }
    void press(std::string_view trace) const {
        EXPECT_TRUE(moxeld->playTrace(*daemon::parseTrace(trace)).ok());
    }

    ExportFolders folders;
};

TEST_F(ExportTool, ExportsWhatTheFileDescribes) {
    const Finished tool = exportText(description);
    EXPECT_EQ(tool.output, "exported 2 sets, 4 actions, 1 images, 1 settings; \"edit\" is active\n")
        << tool.errors;
    EXPECT_EQ(tool.exitCode, 0);
    ASSERT_TRUE(awaitNoClients());
    const daemon::ClientExports exports = moxeld->observe().departed.back().exports;
    EXPECT_EQ(exports.activeSet, "edit");
    EXPECT_THAT(exports.actions, ::testing::ElementsAre(daemon::ExportedAction{"copy", "Copy"},
                                                        daemon::ExportedAction{"cut", "Cut \xC3\xA9"},
                                                        daemon::ExportedAction{"paste", ""}));
    EXPECT_EQ(exports.imageCount, 1U);
    EXPECT_EQ(exports.settingCount, 1U);
}

TEST_F(ExportTool, ReadsPropertyListsOfTheSameForm) {
    const Finished xml = exportText(
        "<plist><dict><key>sets</key><array><dict><key>id</key><string>a</string><key>children</key><array/>"
        "</dict></array></dict></plist>");
    EXPECT_EQ(xml.output, "exported 1 sets, 0 actions, 0 images, 0 settings; \"a\" is active\n")
        << xml.errors;
    const Finished text = exportText("{ \"sets\" = ( { id = a; children = ( { id = b; } ); } ); }");
    EXPECT_EQ(text.output, "exported 1 sets, 1 actions, 0 images, 0 settings; \"a\" is active\n")
        << text.errors;
}

TEST_F(ExportTool, PrintsJson) {
    const Finished tool = run({"export", "--json", write(description)});
    EXPECT_EQ(tool.output, "{\"sets\":2,\"actions\":4,\"images\":1,\"settings\":1,\"active\":\"edit\"}\n");
}

TEST_F(ExportTool, ShowsTheActionsThatArePressed) {
    ChildProcess tool = startTool({"export", write(description), "--count", "2"});
    EXPECT_THAT(tool.readLine(), StartsWith("exported"));
    press("buttons 2\nbuttons 0\nbuttons 4\n");
    EXPECT_EQ(tool.readLine(), "pressed  \"Cut \xC3\xA9\" (\"cut\")");
    EXPECT_EQ(tool.readLine(), "released \"Cut \xC3\xA9\" (\"cut\")");
    EXPECT_EQ(tool.readLine(), "pressed  \"\" (\"paste\")");
    EXPECT_EQ(tool.exitStatus(), 0);
}

TEST_F(ExportTool, ShowsPressedActionsAsJson) {
    ChildProcess tool = startTool({"export", write(description), "--count", "1", "--json"});
    EXPECT_THAT(tool.readLine(), StartsWith("{\"sets\""));
    press("buttons 1\n");
    EXPECT_EQ(Json::parse(tool.readLine()), (Json{{"action", "copy"}, {"label", "Copy"}, {"pressed", true}}));
}

TEST_F(ExportTool, FailsWhenNothingIsPressedInTime) {
    const Finished tool = run({"export", write(description), "--count", "1", "--seconds", "0.1"});
    EXPECT_EQ(tool.exitCode, 1);
    EXPECT_THAT(tool.errors, HasSubstr("only 0 actions were pressed"));
}

TEST_F(ExportTool, SaysWhatIsWrongWithADescription) {
    const auto errorOf = [this](const std::string &content) {
        const Finished tool = exportText(content);
        EXPECT_EQ(tool.exitCode, 1) << content;
        EXPECT_EQ(tool.output, "");
        return tool.errors;
    };
    EXPECT_THAT(errorOf("{"), HasSubstr("parse error"));
    EXPECT_THAT(errorOf(""), HasSubstr("description"));
    EXPECT_THAT(errorOf("[]"), HasSubstr("there must be action sets under \"sets\""));
    EXPECT_THAT(errorOf(R"({"sets": []})"), HasSubstr("there must be action sets"));
    EXPECT_THAT(errorOf(R"({"sets": [1]})"), HasSubstr("sets[0]: must be a dictionary"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a"}]})"), HasSubstr("sets[0]: a set needs \"children\""));
    EXPECT_THAT(errorOf(R"({"sets": [{"children": []}]})"), HasSubstr("sets[0]: it needs an \"id\""));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": [{"id": "b", "label": 5}]}]})"),
                HasSubstr("sets[0].children[0]: \"label\" must be text"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": [{"id": "b"}, {"id": "b"}]}]})"),
                HasSubstr("sets[0].children[1]: \"b\" is there already"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": [{"id": "label"}]}]})"),
                HasSubstr("\"label\" cannot be an \"id\""));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": [{"id": "b", "colour": "x"}]}]})"),
                HasSubstr("what is \"colour\"?"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": []}], "active": "b"})"),
                HasSubstr("active: there is no such set"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": []}], "settings": {"x": 1}})"),
                HasSubstr("settings: \"x\" must be text"));
    EXPECT_THAT(errorOf(R"({"sets": [{"id": "a", "children": []}], "other": 1})"),
                HasSubstr("what is \"other\"?"));
    std::string deep = R"({"sets": [{"id": "a", "children": )";
    for (int i = 0; i < 1000; ++i)
        deep += R"([{"id": "a", "children": )";
    EXPECT_THAT(errorOf(deep), HasSubstr("nested too deep"));
    EXPECT_TRUE(moxeld->observe().departed.empty()) << "no session for what cannot be exported";
}

TEST_F(ExportTool, SaysWhatCannotBeWritten) {
    const Finished tool = run({"export", "--name", "a/b", write(description)});
    EXPECT_EQ(tool.exitCode, 1);
    EXPECT_THAT(tool.errors, HasSubstr("cannot export the commands"));
}

TEST_F(ExportTool, NeedsTheDriversDefaultCommands) {
    std::filesystem::remove(folders.applicationSupport() + "/Moxel/MxlWare/MxlCommands.plist");
    for (const Arguments &arguments : {Arguments{"export", write(description)}, Arguments{"commands"},
                                       Arguments{"search", "x"}, Arguments{"settings", "get", "x"}}) {
        const Finished tool = run(arguments);
        EXPECT_EQ(tool.exitCode, 1);
        EXPECT_THAT(tool.errors, HasSubstr("the driver's default commands cannot be read"));
    }
}

TEST_F(ExportTool, CommandsShowsWhatApplicationsHaveExported) {
    EXPECT_EQ(run({"commands"}).exitCode, 1) << "nothing yet";
    ASSERT_EQ(exportText(description).exitCode, 0);
    const Finished tool = run({"commands"});
    EXPECT_EQ(tool.output, "\"moxelctl\"  moxelctl\n"
                           "  commands\n"
                           "  * \"edit\"  \"Editing\"\n"
                           "      \"copy\"  \"Copy\"\n"
                           "      \"more\"  \"More\"\n"
                           "        \"cut\"  \"Cut \xC3\xA9\"\n"
                           "      \"paste\"  \"\"\n"
                           "    \"view\"  \"Viewing\"\n"
                           "      \"open\"  \"Open copy\"\n"
                           "  images\n"
                           "    \"copy\"  file  \"/icons/copy.png\"\n"
                           "  settings\n"
                           "    \"speed\"  \"fast\"\n");
    EXPECT_EQ(run({"commands", "MOXEL"}).output, tool.output);
    EXPECT_EQ(run({"commands", "--application", "Moxelctl"}).output, tool.output);
    EXPECT_EQ(run({"commands", "other"}).exitCode, 1);
    const Json json = Json::parse(run({"commands", "--json"}).output);
    EXPECT_EQ(json[0]["commands"]["activesetid"], "edit");
    EXPECT_EQ(json[0]["images"]["copy"]["path"], "/icons/copy.png");
    EXPECT_EQ(json[0]["settings"]["speed"], "fast");
}

TEST_F(ExportTool, CommandsLetsNoTextControlTheTerminal) {
    folders.write(folders.base("SyncApplications.plist"),
                  "{ \"mox\033[31mel\" = { \"a_1\" = { name = \"a\033[32m\"; clientname = a; }; }; }");
    const Finished tool = run({"commands"});
    EXPECT_EQ(tool.exitCode, 0) << tool.errors;
    EXPECT_THAT(tool.output, HasSubstr("[31mel"));
    EXPECT_THAT(tool.output, Not(HasSubstr("\x1b")));
}

TEST_F(ExportTool, SearchFindsCommandsByTheirLabels) {
    ASSERT_EQ(exportText(description).exitCode, 0);
    EXPECT_EQ(run({"search", "COPY"}).output, "\"moxelctl\": \"Editing\" > \"Copy\"  \"copy\"\n"
                                              "\"moxelctl\": \"Viewing\" > \"Open copy\"  \"open\"\n");
    EXPECT_EQ(run({"search", "--exact", "cut \xC3\x89"}).output,
              "\"moxelctl\": \"Editing\" > \"More\" > \"Cut \xC3\xA9\"  \"cut\"\n");
    EXPECT_EQ(
        Json::parse(run({"search", "--json", "open"}).output),
        (Json::array({{{"application", "moxelctl"}, {"path", {"Viewing", "Open copy"}}, {"id", "open"}}})));
    EXPECT_EQ(run({"search", "nothing"}).exitCode, 1);
    EXPECT_EQ(run({"search", "copy", "--application", "other"}).exitCode, 1);
}

TEST_F(ExportTool, SettingsAreStoredAndRead) {
    EXPECT_EQ(run({"settings", "get", "speed"}).exitCode, 1) << "nothing is stored";
    EXPECT_EQ(run({"settings", "set", "speed", "very \xC3\xA9"}).exitCode, 0);
    EXPECT_EQ(run({"settings", "get", "speed"}).output, "very \xC3\xA9\n");
    EXPECT_EQ(Json::parse(run({"settings", "get", "speed", "--json"}).output),
              (Json{{"name", "speed"}, {"value", "very \xC3\xA9"}}));
    EXPECT_EQ(run({"settings", "get", "never"}).output, "(null)\n");
    EXPECT_EQ(run({"settings", "get", "speed", "--name", "other"}).exitCode, 1);
    EXPECT_EQ(run({"settings"}).exitCode, 2);
}

TEST_F(ExportTool, SettingsTellWhenTheDriverDoesNotAnswer) {
    moxeld.reset();
    startDaemonWithFault("no-acknowledgement");
    const Finished tool = run({"settings", "set", "speed", "fast"});
    EXPECT_EQ(tool.exitCode, 5);
    EXPECT_THAT(tool.errors, HasSubstr("the setting is stored, but the driver did not take it"));
    const Finished exported = exportText(description);
    EXPECT_EQ(exported.exitCode, 5);
    EXPECT_THAT(exported.errors, HasSubstr("the driver did not take the commands"));
}

#ifdef EXAMPLE_EXPORTING
TEST_F(ExportTool, TheExamplePrintsTheCommandsThatArePressed) {
    ChildProcess example = start(EXAMPLE_EXPORTING, {});
    EXPECT_EQ(example.readLine(), "press a button");
    const auto exporting = moxeld->waitForClient(
        patience, [](const daemon::ClientDescription &client) { return client.exports.imageCount == 1; });
    EXPECT_TRUE(exporting.has_value()) << "it exports an image";
    press("buttons 2\nbuttons 0\nbuttons 5\nbuttons 0\n");
    EXPECT_EQ(example.readLine(), "Paste");
    EXPECT_EQ(example.readLine(), "Copy");
    EXPECT_EQ(example.readLine(), "Undo");
    EXPECT_EQ(example.exitStatus(), 0);
}
#endif

} // namespace
} // namespace moxel::test
