// Files that other programs wrote are read and merged; files of ours are read by them.
#include "Export/ExportFile.h"
#include "Support/ExportFolders.h"
#include "Support/PlistJSON.h"
#include "Support/PropertyLists.h"
#include "Support/Python.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace moxel {
namespace {

std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr const char *commandsInXML = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>Commands</key><dict>
  <key>activesetid</key><string>Größe</string>
  <key>set</key><dict><key>label</key><string>Öffnen &amp; ビュー</string><key>type</key><string>actionset</string></dict>
</dict>
<key>extra</key><array><integer>-3</integer><real>0.1</real><true/><data>AAEC/w==</data><string>a&#9;b</string></array>
</dict></plist>
)";

// What the file above holds after the merge of the tests, as plistlib tells it.
constexpr const char *mergedJSON =
    R"({"Commands": {"activesetid": "Gr\u00f6\u00dfe", "new": {"type": "actionset"}, )"
    R"("set": {"label": "\u00d6ffnen & \u30d3\u30e5\u30fc", "type": "actionset"}}, )"
    R"("extra": [-3, 0.1, true, "data:000102ff", "a\tb"]})";

class PeerFiles : public ::testing::Test {
  protected:
    PeerFiles() { EXPECT_TRUE(makeExportFolder(folders_.base())); }

    [[nodiscard]] std::string file() const { return folders_.base("a.plist"); }

    /// Adds an action set to the commands in the file.
    void merge() const {
        auto list = readExportDictionary(file());
        ASSERT_TRUE(list) << list.error().message;
        auto commands = (*list)["Commands"].asMutableDictionary();
        ASSERT_TRUE(commands);
        commands.set("new", Dictionary{{"type", "actionset"}});
        ASSERT_TRUE(writeExportDictionary(file(), *list));
    }
    /// The file as another program converts it.
    [[nodiscard]] std::string convertedByPlistutil(const char *format) const {
        const auto result = test::runSubprocess("plistutil", {"-i", file(), "-f", format});
        EXPECT_EQ(result.exitCode, 0);
        return result.output;
    }

    test::ExportFolders folders_;
};

class PeerFilesOfPlistlib : public PeerFiles, public ::testing::WithParamInterface<const char *> {};

TEST_P(PeerFilesOfPlistlib, AreMergedWithoutLoss) {
    if (!test::hasPython())
        GTEST_SKIP() << "python3 is missing";
    const auto written =
        test::runPython("import plistlib, sys\n"
                        "root = plistlib.loads(sys.stdin.buffer.read())\n"
                        "plistlib.dump(root, open(sys.argv[1], 'wb'), fmt=getattr(plistlib, sys.argv[2]))",
                        commandsInXML, {file(), GetParam()});
    ASSERT_EQ(written.exitCode, 0);
    merge();
    EXPECT_EQ(test::jsonFromPlistlib(contentOf(file())), mergedJSON);
}
INSTANTIATE_TEST_SUITE_P(Forms, PeerFilesOfPlistlib, ::testing::Values("FMT_XML", "FMT_BINARY"));

class PeerFilesOfPlistutil : public PeerFiles, public ::testing::WithParamInterface<const char *> {};

TEST_P(PeerFilesOfPlistutil, AreMergedWithoutLoss) {
    if (!test::hasPython() || test::runSubprocess("plistutil", {"--version"}).exitCode != 0)
        GTEST_SKIP() << "python3 or plistutil is missing";
    const std::string source = folders_.write(folders_.outside("source.plist"), commandsInXML);
    ASSERT_EQ(test::runSubprocess("plistutil", {"-i", source, "-o", file(), "-f", GetParam()}).exitCode, 0);
    merge();
    EXPECT_EQ(test::jsonFromPlistlib(contentOf(file())), mergedJSON);
    EXPECT_EQ(test::jsonFromPlistlib(convertedByPlistutil("bin")), mergedJSON);
}
INSTANTIATE_TEST_SUITE_P(Forms, PeerFilesOfPlistutil, ::testing::Values("xml", "bin"));

TEST_F(PeerFiles, OfOldStyleTextAreMergedWithoutLoss) {
    if (!test::hasPython())
        GTEST_SKIP() << "python3 is missing";
    folders_.write(file(), R"(// by hand
{ Commands = { activesetid = "Größe"; set = { label = "Öffnen & ビュー"; type = actionset; }; };
  extra = (<000102ff>, "a\rb"); })");
    merge();
    EXPECT_EQ(test::jsonFromPlistlib(contentOf(file())),
              R"({"Commands": {"activesetid": "Gr\u00f6\u00dfe", "new": {"type": "actionset"}, )"
              R"("set": {"label": "\u00d6ffnen & \u30d3\u30e5\u30fc", "type": "actionset"}}, )"
              R"("extra": ["data:000102ff", "a\rb"]})");
}

TEST_F(PeerFiles, DatesKeepTheirFractions) {
    if (!test::hasPython())
        GTEST_SKIP() << "python3 is missing";
    const auto written = test::runPython(
        "import plistlib, sys, datetime\n"
        "when = datetime.datetime(2024, 2, 29, 1, 2, 3, 500000)\n"
        "plistlib.dump({'when': when, 'Commands': {}}, open(sys.argv[1], 'wb'), fmt=plistlib.FMT_BINARY)",
        {}, {file()});
    ASSERT_EQ(written.exitCode, 0);
    merge();
    const auto read = test::runPython("import plistlib, sys\n"
                                      "print(plistlib.load(open(sys.argv[1], 'rb'))['when'])",
                                      {}, {file()});
    EXPECT_EQ(read.output, "2024-02-29 01:02:03.500000\n");
}

} // namespace
} // namespace moxel
