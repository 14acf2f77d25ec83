// Property lists exchanged with other implementations: Python's plistlib, GNUstep and libplist.
#include "Support/PropertyLists.h"
#include "Support/Python.h"
#include "Support/Subprocess.h"

#include <algorithm>
#include <limits>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::binaryOf;
using test::dataOf;
using test::ExactText;
using test::hasPython;
using test::outcomeOf;
using test::runPython;
using test::runSubprocess;
using test::SubprocessResult;
using test::xmlOf;

/// Prints the exact text of the property list on standard input.
constexpr const char *printExactText = R"(
import datetime, plistlib, sys

def text(string):
    return '"' + ''.join('\\' + c if c in '"\\' else '\\x%02x' % ord(c) if c < ' ' else c for c in string) + '"'

def exact(value):
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, int):
        return str(value)
    if isinstance(value, float):
        return 'real(%.17g)' % value
    if isinstance(value, datetime.datetime):
        return 'date(%.17g)' % (value - datetime.datetime(2001, 1, 1)).total_seconds()
    if isinstance(value, plistlib.UID):
        return 'uid(%d)' % value.data
    if isinstance(value, str):
        return text(value)
    if isinstance(value, bytes):
        return '<' + value.hex() + '>'
    if isinstance(value, list):
        return '[' + ', '.join(map(exact, value)) + ']'
    return '{' + ', '.join(text(key) + ': ' + exact(value) for key, value in value.items()) + '}'

sys.stdout.buffer.write(exact(plistlib.loads(sys.stdin.buffer.read())).encode())
)";

/// Writes the property list on standard input anew.
std::string rewriteInPython(const std::string &format) {
    return "import plistlib, sys\n"
           "list = plistlib.loads(sys.stdin.buffer.read())\n"
           "sys.stdout.buffer.write(plistlib.dumps(list, fmt=plistlib." +
           format + ", sort_keys=False))\n";
}

/// What every form can hold, without two equal leaves of different kinds, which GNUstep confuses.
Value sample() {
    std::vector<uint8_t> bytes(200);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i);
    std::vector<Value> many;
    for (int i = 1000; i < 1020; ++i)
        many.emplace_back(i);
    return Dictionary{
        {"integers",
         Array{2, 255, 256, 65535, 65536, 4294967295, 4294967296, INT64_MAX, -3, -70000, INT64_MIN}},
        {"reals", Array{0.5, -1.25, 1e100, 0.1, 123456789.125}},
        {"booleans", Array{true, false}},
        {"dates", Array{Date{120479613}, Date{-978307200}, Date{0}}},
        {"data", Array{Data(std::move(bytes)), dataOf({7}), Data(std::vector<uint8_t>())}},
        {"strings", Array{"", "plain", "two\nlines\tand \"quotes\" \\ & <tags>", "\u00E9\u20AC\u65E5\u672C",
                          std::string(300, 'x')}},
        {"empty", Array{Array(std::vector<Value>()), Dictionary(std::vector<Dictionary::Entry>())}},
        {"nested", Array{Array{Array{Dictionary{{"a", Dictionary{{"b c", "d"}}}}}}}},
        {"many", Array(std::move(many))},
        {"\u00E9 key", "value"}};
}

/// The same with what only some forms hold.
Value binarySample() {
    return Dictionary{{"sample", sample()},
                      {"unsigned", UINT64_MAX},
                      {"uids", Array{UID{0}, UID{300}, UID{70000}}},
                      {"beyond the basic plane", "\U0001F600"},
                      {"infinite", std::numeric_limits<double>::infinity()}};
}

/// The same with the keys of all dictionaries in order: GNUstep does not keep theirs.
Value sorted(const Value &value) {
    if (value.kind() == Kind::array) {
        std::vector<Value> values;
        for (const Value &member : value.asArray())
            values.push_back(sorted(member));
        return Array(std::move(values));
    }
    if (value.kind() != Kind::dictionary)
        return value;
    std::vector<Dictionary::Entry> entries;
    for (const Dictionary::Entry &entry : value.asDictionary())
        entries.push_back({entry.key, sorted(entry.value)});
    std::ranges::sort(entries, {}, [](const Dictionary::Entry &entry) { return entry.key.view(); });
    return Dictionary(std::move(entries));
}

std::string sortedOutcomeOf(const std::string &text) {
    const Result<PropertyList> list = readPropertyList(asBytes(text));
    return list ? ExactText::of(sorted(list->root)) : "error: " + list.error().message;
}

TEST(PropertyListPeers, PythonReadsTheBinaryForm) {
    if (!hasPython())
        GTEST_SKIP() << "python3 is missing";
    const SubprocessResult read = runPython(printExactText, asText(binaryOf(binarySample())));
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.output, ExactText::of(binarySample()));
}

TEST(PropertyListPeers, PythonReadsTheXMLForm) {
    if (!hasPython())
        GTEST_SKIP() << "python3 is missing";
    const SubprocessResult read = runPython(printExactText, xmlOf(sample()));
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(read.output, ExactText::of(sample()));
}

TEST(PropertyListPeers, PythonWritesTheSameBytes) {
    if (!hasPython())
        GTEST_SKIP() << "python3 is missing";
    const std::string binary = asText(binaryOf(binarySample()));
    EXPECT_EQ(runPython(rewriteInPython("FMT_BINARY"), binary).output, binary);
}

TEST(PropertyListPeers, ReadsWhatPythonWrites) {
    if (!hasPython())
        GTEST_SKIP() << "python3 is missing";
    const SubprocessResult binary = runPython(rewriteInPython("FMT_BINARY"), xmlOf(sample()));
    EXPECT_EQ(outcomeOf(readPropertyList(asBytes(binary.output))), ExactText::of(sample()));
    const SubprocessResult xml = runPython(rewriteInPython("FMT_XML"), asText(binaryOf(sample())));
    EXPECT_EQ(outcomeOf(readPropertyList(asBytes(xml.output))), ExactText::of(sample()));
}

TEST(PropertyListPeers, GNUstepReadsAndWritesEveryForm) {
    const std::string fixture = MOXEL_PROPERTY_LIST_FIXTURE;
    if (fixture.empty())
        GTEST_SKIP() << "GNUstep is missing";
    const std::string expected = ExactText::of(sorted(sample()));
    for (const std::string &written : {asText(binaryOf(sample())), xmlOf(sample())}) {
        for (const char *format : {"binary", "xml", "gnustep"}) {
            const SubprocessResult converted = runSubprocess(fixture, {format}, written);
            EXPECT_EQ(converted.exitCode, 0);
            EXPECT_EQ(sortedOutcomeOf(converted.output), expected) << format;
        }
    }
}

TEST(PropertyListPeers, GNUstepKeepsPairsOfSurrogates) {
    const std::string fixture = MOXEL_PROPERTY_LIST_FIXTURE;
    if (fixture.empty())
        GTEST_SKIP() << "GNUstep is missing";
    const Value pair = Array{"\U0001F600", "\u00E9\U0010FFFD"};
    for (const char *format : {"binary", "gnustep"}) // in XML it writes the escapes of its text form
        EXPECT_EQ(sortedOutcomeOf(runSubprocess(fixture, {format}, asText(binaryOf(pair))).output),
                  ExactText::of(pair));
}

TEST(PropertyListPeers, ReadsTheUntypedTextOfGNUstep) {
    const std::string fixture = MOXEL_PROPERTY_LIST_FIXTURE;
    if (fixture.empty())
        GTEST_SKIP() << "GNUstep is missing";
    const Value strings = Dictionary{{"data", dataOf({1, 2, 255})},
                                     {"list", sample().asDictionary()["strings"]},
                                     {"with \"quotes\" and \u00E9", Array{"a b", "c"}}};
    const SubprocessResult converted = runSubprocess(fixture, {"openstep"}, asText(binaryOf(strings)));
    EXPECT_EQ(converted.exitCode, 0);
    EXPECT_EQ(readPropertyList(asBytes(converted.output))->format, PropertyListFormat::openStep);
    EXPECT_EQ(sortedOutcomeOf(converted.output), ExactText::of(sorted(strings)));
}

TEST(PropertyListPeers, LibplistReadsAndWritesBothForms) {
    if (runSubprocess("plistutil", {"--version"}).exitCode != 0)
        GTEST_SKIP() << "plistutil is missing";
    for (const std::string &written : {asText(binaryOf(sample())), xmlOf(sample())}) {
        for (const char *format : {"bin", "xml"}) {
            const SubprocessResult converted = runSubprocess("plistutil", {"-i", "-", "-f", format}, written);
            EXPECT_EQ(converted.exitCode, 0);
            EXPECT_EQ(outcomeOf(readPropertyList(asBytes(converted.output))), ExactText::of(sample()))
                << format;
        }
    }
}

} // namespace
} // namespace moxel
