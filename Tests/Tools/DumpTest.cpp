// moxelctl dump: property lists and keyed archives as text and as JSON.
#include "Tools/ToolTest.h"

#include "Support/Python.h"
#include "Support/Subprocess.h"

#include <cstdlib>
#include <filesystem>

namespace moxel::test {
namespace {

constexpr const char *allKinds = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>text</key><string>a "word" &#xE9;</string>
<key>odd key</key><true/>
<key>whole</key><integer>-7</integer>
<key>large</key><integer>18446744073709551615</integer>
<key>real</key><real>0.1</real>
<key>nan</key><real>nan</real>
<key>when</key><date>2004-10-26T10:33:33Z</date>
<key>bytes</key><data>AP8=</data>
<key>list</key><array><integer>1</integer><array/></array>
<key>none</key><dict/>
</dict></plist>
)";

class Dump : public ToolTest {
  protected:
    /// The bytes that a python program writes.
    static std::string python(const std::string &program) {
        return runSubprocess(MOXEL_PYTHON,
                             {"-c", "import sys, plistlib\nfrom plistlib import UID\n"
                                    "def archive(objects, top={'root': UID(1)}):\n"
                                    "    return plistlib.dumps({'$version': 100000, "
                                    "'$archiver': 'NSKeyedArchiver', '$top': top, "
                                    "'$objects': ['$null'] + objects}, fmt=plistlib.FMT_BINARY, "
                                    "sort_keys=False)\n"
                                    "sys.stdout.buffer.write(" +
                                        program + ")"})
            .output;
    }
};

TEST_F(Dump, ShowsEveryKindOfValue) {
    const Finished dump = run({"dump"}, allKinds);
    EXPECT_EQ(dump.exitCode, 0) << dump.errors;
    EXPECT_EQ(dump.output, "XML property list, " + std::to_string(std::string(allKinds).size()) + R"( bytes
{
  text = "a \"word\" é"
  "odd key" = true
  whole = -7
  large = 18446744073709551615
  real = 0.1
  nan = nan
  when = 2004-10-26T10:33:33Z
  bytes = <00 FF>
  list = [
    1
    []
  ]
  none = {}
}
)");
}

TEST_F(Dump, PrintsJson) {
    const Finished dump = run({"dump", "--json"}, allKinds);
    EXPECT_EQ(Json::parse(dump.output), Json::parse(R"({"text": "a \"word\" é", "odd key": true, "whole": -7,
        "large": 18446744073709551615, "real": 0.1, "nan": {"$real": "nan"},
        "when": {"$date": "2004-10-26T10:33:33Z", "$seconds": 120479613.0}, "bytes": {"$data": "00ff"},
        "list": [1, []], "none": {}})"))
        << dump.output;
    EXPECT_THAT(dump.output, StartsWith("{\n  \"text\": "));
}

TEST_F(Dump, ReadsFilesOfAllForms) {
    EXPECT_EQ(run({"dump", folder.write("old.plist", "{ a = (b, <4d58>); }")}).output,
              "old-style property list, 20 bytes\n{\n  a = [\n    \"b\"\n    <4D 58>\n  ]\n}\n");
    const std::string binary = python("plistlib.dumps({'a': 1}, fmt=plistlib.FMT_BINARY)");
    EXPECT_THAT(run({"dump", "-"}, binary).output,
                AllOf(StartsWith("binary property list, "), EndsWith(" bytes\n{\n  a = 1\n}\n")));
}

TEST_F(Dump, DecodesKeyedArchives) {
    const std::string archive =
        python("archive([{'$class': UID(2), 'NS.keys': [UID(3)], 'NS.objects': [UID(4)]},"
               "{'$classname': 'NSDictionary', '$classes': ['NSDictionary', 'NSObject']}, 'device',"
               "{'$class': UID(5), 'id': 7, 'name': UID(6)},"
               "{'$classname': 'Unheard Of', '$classes': ['Unheard Of', 'NSObject']}, 'Näme'])");
    const Finished dump = run({"dump"}, archive);
    EXPECT_EQ(dump.output,
              "keyed archive in a binary property list, " + std::to_string(archive.size()) +
                  " bytes\n{\n  device = \"Unheard Of\" {\n    id = 7\n    name = \"Näme\"\n  }\n}\n")
        << dump.errors;
    EXPECT_EQ(Json::parse(run({"dump", "--json"}, archive).output),
              Json::parse(R"({"device": {"$class": "Unheard Of", "$classes": ["Unheard Of", "NSObject"],
                              "$members": {"id": 7, "name": "Näme"}}})"));
}

TEST_F(Dump, ShowsAnArchiveAsItIsWhenToldTo) {
    const std::string archive = python("archive(['text'])");
    EXPECT_THAT(run({"dump"}, archive).output, EndsWith(" bytes\n\"text\"\n"));
    EXPECT_THAT(run({"dump", "--raw"}, archive).output,
                AllOf(StartsWith("binary property list"), HasSubstr("    root = uid 1\n"),
                      HasSubstr("  $objects = [\n    \"$null\"\n    \"text\"\n  ]\n")));
    EXPECT_EQ(Json::parse(run({"dump", "--raw", "--json"}, archive).output)["$top"]["root"],
              Json({{"$uid", 1}}));
}

TEST_F(Dump, ShowsSeveralTopLevelObjects) {
    const std::string archive = python("archive(['one', 'two'], {'a': UID(1), 'b': UID(2)})");
    EXPECT_THAT(run({"dump"}, archive).output, EndsWith("{\n  a = \"one\"\n  b = \"two\"\n}\n"));
}

TEST_F(Dump, ShowsSharedPartsOnce) {
    const std::string archive = python("archive([{'$class': UID(2), 'NS.objects': [UID(3), UID(3), UID(4)]},"
                                       "{'$classname': 'NSArray', '$classes': ['NSArray', 'NSObject']},"
                                       "{'$class': UID(2), 'NS.objects': [UID(4)]}, 'x'])");
    EXPECT_THAT(run({"dump"}, archive).output, EndsWith("[\n  &1 [\n    \"x\"\n  ]\n  *1\n  \"x\"\n]\n"));
    EXPECT_EQ(Json::parse(run({"dump", "--json"}, archive).output), Json::parse(R"([["x"], ["x"], "x"])"));
}

TEST_F(Dump, SurvivesArchivesThatRepeatThemselvesWithoutEnd) {
    // Forty arrays, each holding the next one twice: a million million values.
    const std::string archive = python(
        "archive([{'$class': UID(42), 'NS.objects': [UID(i + 2), UID(i + 2)]} for i in range(40)] + ['x',"
        "{'$classname': 'NSArray', '$classes': ['NSArray', 'NSObject']}])");
    const Finished text = run({"dump"}, archive);
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_THAT(text.output, HasSubstr("*39\n"));
    const Finished json = run({"dump", "--json"}, archive);
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(json.output, "");
    EXPECT_EQ(json.errors,
              "moxelctl: standard input: the JSON text would be larger than 256 MiB: it repeats what "
              "stands in several places\n  Without --json it is shown once.\n");
}

TEST_F(Dump, SurvivesDeepNesting) {
    const std::string deep = folder.write("deep", std::string(200'000, '(') + std::string(200'000, ')'));
    for (const Arguments &arguments : {Arguments{"dump", deep}, Arguments{"dump", deep, "--json"}}) {
        const Finished dump = run(arguments);
        EXPECT_EQ(dump.exitCode, 0) << dump.errors;
        EXPECT_EQ(std::ranges::count(dump.output, '['), 200'000);
    }
}

TEST_F(Dump, ShowsLongDataAsRowsAndCutsIt) {
    const std::string list = python("plistlib.dumps({'d': b'AB\\x00' + bytes(300)})");
    const std::string cut = run({"dump"}, list).output;
    EXPECT_THAT(cut,
                HasSubstr("  d = <303 bytes>\n"
                          "    00000000  41 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00  AB..............\n"
                          "    00000010  "));
    EXPECT_THAT(cut, EndsWith("    ... and 47 bytes more\n}\n"));
    const std::string full = run({"dump", "--full"}, list).output;
    EXPECT_THAT(full, EndsWith("    00000120  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                               "     ...............\n}\n"));
    EXPECT_EQ(Json::parse(run({"dump", "--json"}, list).output)["d"]["$data"].get<std::string>().size(),
              606U);
}

TEST_F(Dump, TextCannotControlTheTerminal) {
    const std::string list =
        python("plistlib.dumps({'k\\x1b': '\\x1b[31m\\x9b\\x7f\\n\\t\\\\'}, fmt=plistlib.FMT_BINARY)");
    EXPECT_THAT(run({"dump"}, list).output,
                HasSubstr("  \"k\\u001b\" = \"\\u001b[31m\\u009b\\u007f\\n\\t\\\\\"\n"));
    EXPECT_EQ(Json::parse(run({"dump", "--json"}, list).output)["k\x1b"], "\x1b[31m\u009b\x7f\n\t\\");
}

TEST_F(Dump, KeepsSurrogatesThatStandAlone) {
    // A binary list of one text: the UTF-16 unit D800.
    const std::string list(
        "bplist00\x61\xD8\x00\x08\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0B", 44);
    EXPECT_THAT(run({"dump"}, list).output, EndsWith(" bytes\n\"\\ud800\"\n"));
}

TEST_F(Dump, SaysWhatIsWrong) {
    const Finished missing = run({"dump", folder.path("none")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.errors,
              "moxelctl: cannot read " + folder.path("none") + ": No such file or directory\n");
    const Finished isFolder = run({"dump", folder.path()});
    EXPECT_EQ(isFolder.errors, "moxelctl: cannot read " + folder.path() + ": Is a directory\n");
    const Finished empty = run({"dump"});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_THAT(empty.errors, StartsWith("moxelctl: standard input is no property list: "));
    const Finished broken = run({"dump"}, "{ a = ");
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_EQ(broken.output, "");
    const Finished damaged = run({"dump"}, python("archive([{'a': 1}])"));
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_THAT(damaged.errors,
                MatchesRegex("moxelctl: standard input: damaged keyed archive: .*\n  --raw shows its "
                             "parts.\n"));
    EXPECT_EQ(run({"dump", "--full", "--json"}).exitCode, 2);
}

TEST_F(Dump, ReadsTheRealWorldsFiles) {
    const char *corpus = std::getenv("MOXEL_CORPUS");
    if (corpus == nullptr)
        GTEST_SKIP() << "MOXEL_CORPUS names no folder";
    size_t shown = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file())
            continue;
        const Finished text = run({"dump", entry.path()});
        const Finished json = run({"dump", "--json", entry.path()});
        EXPECT_EQ(text.exitCode, json.exitCode) << entry.path();
        ASSERT_LE(text.exitCode, 1) << entry.path();
        if (text.exitCode == 0) {
            ++shown;
            EXPECT_TRUE(Json::accept(json.output)) << entry.path();
        } else {
            EXPECT_NE(text.errors, "") << entry.path();
        }
    }
    EXPECT_GT(shown, 0U);
}

} // namespace
} // namespace moxel::test
