// Keyed archives of the daemon, against python's plistlib and against everything that can be wrong with them.
#include "Daemon/ArchiveValues.h"
#include "Moxel Daemon/Archive/BinaryPropertyListReader.h"
#include "Moxel Daemon/Archive/BinaryPropertyListWriter.h"
#include "Moxel Daemon/Archive/KeyedArchiveReader.h"
#include "Moxel Daemon/Archive/KeyedArchiveWriter.h"
#include "Support/Python.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;
using Index = ObjectIndex;

Data bytesOfText(std::string_view text) { return {text.begin(), text.end()}; }
std::string_view textOf(const Data &data) {
    return {reinterpret_cast<const char *>(data.data()), data.size()};
}

/// A keyed archive around an object list whose entries come after "$null".
PropertyListTable archiveOf(std::vector<PropertyListObject> objects,
                            PropertyListObject root = ArchiveReference{1}) {
    PropertyListTable table;
    const auto add = [&table](PropertyListObject object) -> Index {
        table.objects.push_back(std::move(object));
        return table.objects.size() - 1;
    };
    IndexArray list;
    // The first object has index 0, so that containers in `objects` can refer to what helpers appended.
    for (PropertyListObject &object : objects)
        list.push_back(add(std::move(object)));
    list.insert(list.begin(), add(std::string("$null")));
    const Index rootDictionary = add(IndexDictionary{{add(std::string("root")), add(std::move(root))}});
    IndexDictionary top;
    top.emplace_back(add(std::string("$version")), add(int64_t{100000}));
    top.emplace_back(add(std::string("$archiver")), add(std::string("NSKeyedArchiver")));
    top.emplace_back(add(std::string("$top")), rootDictionary);
    const Index objectsKey = add(std::string("$objects"));
    top.emplace_back(objectsKey, add(list));
    table.top = add(top);
    return table;
}

Result<Value> readArchive(const PropertyListTable &table) {
    const Result<Data> bytes = writeBinaryPropertyList(table);
    EXPECT_TRUE(bytes.ok());
    return readKeyedArchive(*bytes);
}

std::string problemOf(const PropertyListTable &table) {
    const Result<Value> value = readArchive(table);
    return value.ok() ? "no problem" : value.error().message;
}

/// Arrays in arrays, `depth` of them.
Value nestedArrays(size_t depth) {
    Value value = Array{};
    for (size_t level = 1; level < depth; ++level)
        value = Array{std::move(value)};
    return value;
}

// ------------------------------------------------------------------------------------------ Writing, reading

TEST(DaemonKeyedArchive, EverythingSurvivesTheRoundTrip) {
    const Result<Data> bytes = writeKeyedArchive(sampleValue());
    ASSERT_TRUE(bytes.ok());
    const Result<Value> value = readKeyedArchive(*bytes);
    ASSERT_TRUE(value.ok()) << value.error().message;
    EXPECT_EQ(*value, sampleValue());
}

TEST(DaemonKeyedArchive, NullIsArchivedAsNothing) {
    const Result<Data> bytes = writeKeyedArchive(Value());
    ASSERT_TRUE(bytes.ok());
    const Result<PropertyListTable> table = readBinaryPropertyList(*bytes);
    ASSERT_TRUE(table.ok());
    const Result<Value> value = readKeyedArchive(*bytes);
    ASSERT_TRUE(value.ok());
    EXPECT_TRUE(value->isNull());
}

TEST(DaemonKeyedArchive, NotANumberAndNegativeZeroSurvive) {
    const Value value = Array{std::numeric_limits<double>::quiet_NaN(), -0.0, 0.0};
    const Result<Value> read = readKeyedArchive(*writeKeyedArchive(value));
    ASSERT_TRUE(read.ok());
    const Array &array = *read->as<Array>();
    EXPECT_TRUE(std::isnan(*array[0].as<double>()));
    EXPECT_TRUE(std::signbit(*array[1].as<double>()));
    EXPECT_FALSE(std::signbit(*array[2].as<double>()));
}

TEST(DaemonKeyedArchive, TextThatIsNotUTF8CannotBeWritten) {
    for (const char *text : {"\xFF", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\x80"})
        EXPECT_FALSE(writeKeyedArchive(Dictionary{{"key", text}}).ok()) << text;
}

TEST(DaemonKeyedArchive, NestingHasALimitInBothDirections) {
    const Result<Data> deepest = writeKeyedArchive(nestedArrays(Value::depthLimit));
    ASSERT_TRUE(deepest.ok());
    EXPECT_TRUE(readKeyedArchive(*deepest).ok());
    EXPECT_FALSE(writeKeyedArchive(nestedArrays(Value::depthLimit + 1)).ok());
}

TEST(DaemonKeyedArchive, ContainerBytesAreExact) {
    PropertyListTable table;
    table.objects = {IndexArray{1, 2, 3, 4}, int64_t{-2}, std::string("Hi"), ArchiveReference{258},
                     Data(15, 0xAB)};
    const Result<Data> bytes = writeBinaryPropertyList(table);
    ASSERT_TRUE(bytes.ok());
    const Data expected = {
        'b',  'p',  'l',  'i',  's',  't',  '0',  '0',        // magic
        0xA4, 0x01, 0x02, 0x03, 0x04,                         // array
        0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, // -2
        0x52, 'H',  'i',                                      // string
        0x81, 0x01, 0x02,                                     // reference
        0x4F, 0x10, 0x0F,                                     // data
        0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB,
        0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0x08, 0x0D, 0x16, 0x19, 0x1C, // offsets
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01,             // widths
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,             // objects
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,             // top
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2E,             // offset table
    };
    EXPECT_EQ(*bytes, expected);
}

// ------------------------------------------------------------------------------------------ Against plistlib

/// Prints the archive's root with everything resolved, classes included, in a form that has one spelling.
constexpr const char *printArchive = R"(
import sys, plistlib
archive = plistlib.loads(sys.stdin.buffer.read())
assert archive['$version'] == 100000 and archive['$archiver'] == 'NSKeyedArchiver'
objects = archive['$objects']
assert objects[0] == '$null'
def class_of(thing):
    record = objects[thing['$class'].data]
    assert record['$classes'] == [record['$classname'], 'NSObject'], record
    return record['$classname']
def show(thing):
    if isinstance(thing, plistlib.UID):
        return 'nil' if thing.data == 0 else show(objects[thing.data])
    if isinstance(thing, bool): return str(thing).lower()
    if isinstance(thing, bytes): return '<' + thing.hex() + '>'
    if isinstance(thing, str): return '"' + thing + '"'
    if not isinstance(thing, dict): return repr(thing)
    name = class_of(thing)
    if name == 'NSDictionary':
        return '{' + ', '.join(show(k) + ': ' + show(v) for k, v in zip(thing['NS.keys'], thing['NS.objects'])) + '}'
    if name == 'NSArray':
        return '[' + ', '.join(show(element) for element in thing['NS.objects']) + ']'
    return name + '(' + ', '.join(k + '=' + show(v) for k, v in thing.items() if k != '$class') + ')'
sys.stdout.buffer.write(show(archive['$top']['root']).encode())
)";

TEST(DaemonKeyedArchive, PlistlibReadsWhatTheDaemonWrites) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python";
    const Result<Data> bytes = writeKeyedArchive(sampleValue());
    ASSERT_TRUE(bytes.ok());
    const test::SubprocessResult printed = test::runPython(printArchive, textOf(*bytes));
    EXPECT_EQ(printed.exitCode, 0);
    EXPECT_EQ(
        printed.output,
        "{\"req\": \"regclient\", \"type\": true, \"no\": false, \"numbers\": [0, 255, 256, 65535, 65536, "
        "9223372036854775807, -1, -9223372036854775808, 18446744073709551615], \"real\": 2.5, "
        "\"text\": \"Grüße, 世界 🎛\", \"long\": \"" +
            std::string(300, 'x') +
            "\", \"data\": <00ff80>, \"empty\": [[], {}, \"\", <>], "
            "\"app\": MxlApplication(appname=\"Demo\", mask=63, clientname=\"Demo\"), "
            "\"apps\": [MxlApplication(appname=nil), NSNull()]}");
}

TEST(DaemonKeyedArchive, ObjectsAreNumberedInArchiveOrder) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python";
    const Result<Data> bytes = writeKeyedArchive(Dictionary{{"a", Array{7}}, {"b", 7}});
    ASSERT_TRUE(bytes.ok());
    const test::SubprocessResult printed = test::runPython(
        "import sys, plistlib; print([o.get('$classname', 'object') if isinstance(o, dict) else o "
        "for o in plistlib.loads(sys.stdin.buffer.read())['$objects']])",
        textOf(*bytes));
    EXPECT_EQ(printed.output, "['$null', 'object', 'a', 'b', 'object', 7, 'NSArray', 'NSDictionary']\n");
}

TEST(DaemonKeyedArchive, ReadsWhatPlistlibWrites) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python";
    const test::SubprocessResult written = test::runPython(R"(
import sys, plistlib, datetime
UID = plistlib.UID
objects = ['$null',
  {'NS.keys': [UID(2), UID(3), UID(4), UID(5), UID(14), UID(17)],
   'NS.objects': [UID(6), UID(7), UID(8), UID(9), UID(15), UID(18)], '$class': UID(12)},
  'req', 'app', 'list', 'blob', 'regclient',
  {'appname': UID(13), 'mask': UID(10), 'inline': 17, 'flag': True, 'nothing': UID(0), '$class': UID(11)},
  {'NS.objects': [UID(10), UID(10), UID(0), 5], '$class': UID(20)},
  {'NS.data': b'\x01\x02', '$class': UID(21)},
  63,
  {'$classname': 'MxlApplication', '$classes': ['MxlApplication', 'NSObject']},
  {'$classname': 'NSMutableDictionary', '$classes': ['NSMutableDictionary', 'NSDictionary', 'NSObject']},
  {'NS.string': 'Größe', '$class': UID(22)},
  'date', {'NS.time': 3.5, '$class': UID(16)},
  {'$classname': 'NSDate', '$classes': ['NSDate', 'NSObject']},
  'null', {'$class': UID(19)},
  {'$classname': 'NSNull'},
  {'$classname': 'NSArray', '$classes': ['NSArray', 'NSObject']},
  {'$classname': 'NSMutableData', '$classes': ['NSMutableData', 'NSData', 'NSObject']},
  {'$classname': 'NSMutableString', '$classes': ['NSMutableString', 'NSString', 'NSObject']}]
sys.stdout.buffer.write(plistlib.dumps({'$objects': objects, '$top': {'root': UID(1)},
  '$archiver': 'NSKeyedArchiver', '$version': 100000}, fmt=plistlib.FMT_BINARY, sort_keys=False))
)");
    ASSERT_EQ(written.exitCode, 0);
    const Result<Value> value = readKeyedArchive(bytesOfText(written.output));
    ASSERT_TRUE(value.ok()) << value.error().message;
    const Dictionary expected{
        {"req", "regclient"},
        {"app",
         Record{"MxlApplication",
                {{"appname", "Größe"}, {"mask", 63}, {"inline", 17}, {"flag", true}, {"nothing", Value()}}}},
        {"list", Array{63, 63, Value(), 5}},
        {"blob", Data{1, 2}},
        {"date", Record{"NSDate", {{"NS.time", 3.5}}}},
        {"null", Value()},
    };
    EXPECT_EQ(*value, Value(expected));
}

// ------------------------------------------------------------------------------------------ Bad archives

TEST(DaemonKeyedArchive, EveryCutArchiveIsRefused) {
    const Result<Data> bytes = writeKeyedArchive(sampleValue());
    ASSERT_TRUE(bytes.ok());
    for (size_t size = 0; size < bytes->size(); ++size)
        EXPECT_FALSE(readKeyedArchive(std::span(*bytes).first(size)).ok()) << size;
}

TEST(DaemonKeyedArchive, NoChangedByteDoesHarm) {
    const Result<Data> bytes = writeKeyedArchive(sampleValue());
    ASSERT_TRUE(bytes.ok());
    int refused = 0;
    for (size_t position = 0; position < bytes->size(); ++position) {
        for (const uint8_t mask : {uint8_t{0xFF}, uint8_t{0x80}, uint8_t{0x01}, uint8_t{0x10}}) {
            Data changed = *bytes;
            changed[position] ^= mask;
            const Result<Value> value = readKeyedArchive(changed);
            refused += value.ok() ? 0 : 1;
            if (value.ok()) {
                EXPECT_TRUE(readKeyedArchive(*writeKeyedArchive(*value)).ok());
            }
        }
    }
    EXPECT_GT(refused, 100);
}

TEST(DaemonKeyedArchive, OtherFilesAreNoArchives) {
    EXPECT_FALSE(readKeyedArchive({}).ok());
    EXPECT_FALSE(
        readKeyedArchive(bytesOfText("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>")).ok());
    EXPECT_FALSE(readKeyedArchive(Data(4096, 0)).ok());
    PropertyListTable number;
    number.objects = {int64_t{5}};
    EXPECT_EQ(problemOf(number), "not a keyed archive");
    PropertyListTable dictionary;
    dictionary.objects = {IndexDictionary{{1, 1}}, std::string("req")};
    EXPECT_EQ(problemOf(dictionary), "not a keyed archive");
}

TEST(DaemonKeyedArchive, HeaderMustBeRight) {
    const PropertyListTable good = archiveOf({int64_t{5}});
    ASSERT_EQ(problemOf(good), "no problem");
    for (const auto &[from, to] : std::vector<std::pair<PropertyListObject, PropertyListObject>>{
             {int64_t{100000}, int64_t{100001}},
             {std::string("NSKeyedArchiver"), std::string("NSArchiver")},
             {std::string("$null"), std::string("null")},
             {std::string("root"), std::string("$root")},
             {std::string("$top"), std::string("top")},
             {std::string("$objects"), std::string("objects")},
             {ArchiveReference{1}, int64_t{1}}}) {
        PropertyListTable bad = good;
        std::replace(bad.objects.begin(), bad.objects.end(), from, to);
        EXPECT_EQ(problemOf(bad), "not a keyed archive");
    }
}

TEST(DaemonKeyedArchive, ReferencesMustExist) {
    EXPECT_THAT(problemOf(archiveOf({int64_t{5}}, ArchiveReference{2})), HasSubstr("out of range"));
    EXPECT_THAT(problemOf(archiveOf({int64_t{5}}, ArchiveReference{UINT64_MAX})), HasSubstr("out of range"));
}

/// `archiveOf` with a class record of that name as object 2 and its parts behind it; `members` begin at 7.
PropertyListTable instanceOf(const std::string &className, IndexDictionary members,
                             std::vector<PropertyListObject> more) {
    members.emplace_back(2, 3); // "$class"
    std::vector<PropertyListObject> objects = {std::move(members),        IndexDictionary{{4, 5}},
                                               std::string("$class"),     ArchiveReference{2},
                                               std::string("$classname"), className,
                                               std::string("unused")};
    objects.insert(objects.end(), more.begin(), more.end());
    return archiveOf(std::move(objects));
}

TEST(DaemonKeyedArchive, ContainersMustBeWhole) {
    const auto key = [](const char *name) { return PropertyListObject(std::string(name)); };
    EXPECT_THAT(problemOf(instanceOf("NSArray", {}, {})), HasSubstr("lacks its content"));
    EXPECT_THAT(problemOf(instanceOf("NSArray", {{7, 8}}, {key("NS.objects"), int64_t{1}})),
                HasSubstr("lacks its content"));
    EXPECT_THAT(
        problemOf(instanceOf("NSString", {{7, 8}}, {key("NS.string"), ArchiveReference{10}, int64_t{1}})),
        HasSubstr("of another type"));
    EXPECT_THAT(problemOf(instanceOf("NSDictionary", {{7, 8}}, {key("NS.keys"), IndexArray{}})),
                HasSubstr("do not match"));
    EXPECT_THAT(problemOf(instanceOf("NSDictionary", {{7, 8}, {9, 10}},
                                     {key("NS.keys"), IndexArray{7}, key("NS.objects"), IndexArray{}})),
                HasSubstr("do not match"));
    EXPECT_THAT(problemOf(instanceOf("NSDictionary", {{7, 8}, {9, 8}},
                                     {key("NS.keys"), IndexArray{10}, key("NS.objects"), int64_t{1}})),
                HasSubstr("no string or comes twice"));
    EXPECT_THAT(problemOf(instanceOf("NSDictionary", {{7, 8}, {9, 8}},
                                     {key("NS.keys"), IndexArray{7, 7}, key("NS.objects")})),
                HasSubstr("no string or comes twice"));
}

TEST(DaemonKeyedArchive, ObjectsMustHaveAClass) {
    EXPECT_THAT(problemOf(archiveOf({IndexDictionary{}})), HasSubstr("no class"));
    EXPECT_THAT(problemOf(archiveOf({IndexDictionary{{1, 2}}, std::string("$class"), ArchiveReference{1}})),
                HasSubstr("no class"));
    EXPECT_THAT(problemOf(archiveOf({IndexDictionary{{1, 2}}, std::string("$class"), ArchiveReference{0}})),
                HasSubstr("no class"));
    EXPECT_THAT(problemOf(archiveOf({IndexDictionary{{1, 2}}, std::string("$class"), ArchiveReference{99}})),
                HasSubstr("no class"));
}

TEST(DaemonKeyedArchive, CyclesAreRefused) {
    // An array that contains itself, a record that contains itself, a reference to a reference, a string that
    // is its own content.
    EXPECT_THAT(problemOf(instanceOf("NSArray", {{7, 8}},
                                     {std::string("NS.objects"), IndexArray{9}, ArchiveReference{1}})),
                HasSubstr("contains itself"));
    EXPECT_THAT(problemOf(instanceOf("Thing", {{7, 8}}, {std::string("me"), ArchiveReference{1}})),
                HasSubstr("contains itself"));
    EXPECT_THAT(problemOf(archiveOf({ArchiveReference{1}})), HasSubstr("but a reference"));
    EXPECT_THAT(problemOf(instanceOf("NSString", {{7, 8}}, {std::string("NS.string"), ArchiveReference{1}})),
                HasSubstr("contains itself"));
    // A container cycle that no archive reference takes part in.
    EXPECT_THAT(problemOf(instanceOf("NSArray", {{7, 8}}, {std::string("NS.objects"), IndexArray{8}})),
                HasSubstr("too deep"));
}

TEST(DaemonKeyedArchive, SharedArraysDoNotExplode) {
    // Sixty arrays, each of which lists the next one twice.
    std::vector<PropertyListObject> more;
    more.push_back(std::string("NS.objects"));
    constexpr size_t arrays = 60;
    for (size_t level = 0; level < arrays; ++level)
        more.push_back(IndexArray{level + 9, level + 9});
    more.push_back(int64_t{1});
    const PropertyListTable table = instanceOf("NSArray", {{7, 8}}, more);
    EXPECT_THAT(problemOf(table), HasSubstr("too large"));
}

TEST(DaemonKeyedArchive, LongStringsThatAreSharedDoNotExplode) {
    std::vector<PropertyListObject> more = {std::string("NS.objects"), IndexArray(1000, 9),
                                            std::string(10000, 'x')};
    EXPECT_THAT(problemOf(instanceOf("NSArray", {{7, 8}}, more)), HasSubstr("too large"));
}

// ------------------------------------------------------------------------------------------ Bad containers

std::string containerProblem(const Data &bytes) {
    const Result<PropertyListTable> table = readBinaryPropertyList(bytes);
    return table.ok() ? "no problem" : table.error().message;
}

/// A container of one object with those bytes.
Data containerOf(const Data &object) {
    Data bytes = bytesOfText("bplist00");
    bytes.insert(bytes.end(), object.begin(), object.end());
    const auto offsets = static_cast<uint8_t>(bytes.size());
    const Data tail = {8, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0,      1,
                       0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, offsets};
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}

TEST(DaemonPropertyList, ObjectsOfEveryKindAreRead) {
    const auto read = [](const Data &object) {
        const Result<PropertyListTable> table = readBinaryPropertyList(containerOf(object));
        EXPECT_TRUE(table.ok()) << table.error().message;
        return table.ok() ? table->objects.at(0) : PropertyListObject();
    };
    EXPECT_EQ(read({0x00}), PropertyListObject(std::monostate()));
    EXPECT_EQ(read({0x08}), PropertyListObject(false));
    EXPECT_EQ(read({0x09}), PropertyListObject(true));
    EXPECT_EQ(read({0x10, 0xFF}), PropertyListObject(int64_t{255}));
    EXPECT_EQ(read({0x12, 0xFF, 0xFF, 0xFF, 0xFF}), PropertyListObject(int64_t{0xFFFFFFFF}));
    EXPECT_EQ(read({0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), PropertyListObject(int64_t{-1}));
    EXPECT_EQ(read({0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5}), PropertyListObject(int64_t{5}));
    EXPECT_EQ(read({0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0}),
              PropertyListObject(uint64_t{1} << 63));
    EXPECT_EQ(read({0x22, 0x3F, 0x80, 0, 0}), PropertyListObject(1.0));
    EXPECT_EQ(read({0x33, 0x40, 0, 0, 0, 0, 0, 0, 0}), PropertyListObject(PropertyListDate{2.0}));
    EXPECT_EQ(read({0x61, 0x00, 0xE4}), PropertyListObject(std::string("ä")));
    EXPECT_EQ(read({0x62, 0xD8, 0x3D, 0xDE, 0x00}), PropertyListObject(std::string("😀")));
    EXPECT_EQ(read({0x80, 7}), PropertyListObject(ArchiveReference{7}));
}

TEST(DaemonPropertyList, ObjectsThatMakeNoSenseAreRefused) {
    EXPECT_THAT(containerProblem(containerOf({0x70})), HasSubstr("unknown type"));
    EXPECT_THAT(containerProblem(containerOf({0x01})), HasSubstr("unknown type"));
    EXPECT_THAT(containerProblem(containerOf({0x15})), HasSubstr("unknown width"));
    EXPECT_THAT(containerProblem(containerOf({0x13, 0})), HasSubstr("over the end"));
    EXPECT_THAT(containerProblem(containerOf({0x14, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})),
                HasSubstr("out of range"));
    EXPECT_THAT(containerProblem(containerOf({0x21, 0, 0})), HasSubstr("bad real"));
    EXPECT_THAT(containerProblem(containerOf({0x32, 0, 0, 0, 0})), HasSubstr("bad date"));
    EXPECT_THAT(containerProblem(containerOf({0x51, 0x80})), HasSubstr("ASCII"));
    EXPECT_THAT(containerProblem(containerOf({0x61, 0xD8, 0x00})), HasSubstr("lone surrogate"));
    EXPECT_THAT(containerProblem(containerOf({0x61, 0xDC, 0x00})), HasSubstr("lone surrogate"));
    EXPECT_THAT(containerProblem(containerOf({0x62, 0xD8, 0x00, 0x00, 0x41})), HasSubstr("lone surrogate"));
    EXPECT_THAT(containerProblem(containerOf({0x88, 0, 0, 0, 0, 0, 0, 0, 0, 0})), HasSubstr("unknown width"));
    EXPECT_THAT(containerProblem(containerOf({0xA1, 1})), HasSubstr("not there"));
    EXPECT_THAT(containerProblem(containerOf({0xD1, 0, 0})), HasSubstr("no string"));
    EXPECT_THAT(containerProblem(containerOf({0x5F, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
                HasSubstr("bad count"));
    EXPECT_THAT(containerProblem(containerOf({0x5F, 0x14})), HasSubstr("bad count"));
    EXPECT_THAT(containerProblem(containerOf({0x5F, 0x51})), HasSubstr("bad count"));
    EXPECT_THAT(containerProblem(containerOf({0x6F, 0x10, 0x20})), HasSubstr("over the end"));
}

TEST(DaemonPropertyList, TrailersThatLieAreRefused) {
    const Data good = containerOf({0x10, 5});
    ASSERT_EQ(containerProblem(good), "no problem");
    const size_t trailer = good.size() - 32;
    const auto with = [&good](size_t position, uint8_t byte) {
        Data bytes = good;
        bytes[position] = byte;
        return containerProblem(bytes);
    };
    EXPECT_THAT(with(0, 'x'), HasSubstr("magic"));
    EXPECT_THAT(with(trailer + 6, 0), HasSubstr("widths"));
    EXPECT_THAT(with(trailer + 6, 9), HasSubstr("widths"));
    EXPECT_THAT(with(trailer + 7, 0), HasSubstr("widths"));
    EXPECT_THAT(with(trailer + 8, 0xFF), HasSubstr("more objects"));
    EXPECT_THAT(with(trailer + 15, 0), HasSubstr("more objects"));
    EXPECT_THAT(with(trailer + 15, 2), HasSubstr("more objects"));
    EXPECT_THAT(with(trailer + 23, 1), HasSubstr("top object"));
    EXPECT_THAT(with(trailer + 24, 0xFF), HasSubstr("offset table"));
    EXPECT_THAT(with(trailer + 31, 8), HasSubstr("offset table"));
    EXPECT_THAT(with(trailer - 1, 7), HasSubstr("outside"));
    EXPECT_THAT(with(trailer - 1, 0xFF), HasSubstr("outside"));
}

TEST(DaemonPropertyList, ObjectsThatOverlapAreRefused) {
    // Two offsets to the same data: a file of n bytes could ask for n times n bytes.
    Data bytes = bytesOfText("bplist00");
    const Data object = {0x44, 1, 2, 3, 4};
    bytes.insert(bytes.end(), object.begin(), object.end());
    const Data tail = {8, 8, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0,
                       2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 13};
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    EXPECT_THAT(containerProblem(bytes), HasSubstr("over the end"));
}

TEST(DaemonPropertyList, DictionaryKeysComeOnce) {
    PropertyListTable table;
    table.objects = {IndexDictionary{{1, 3}, {2, 3}}, std::string("a"), std::string("a"), int64_t{1}};
    const Result<Data> bytes = writeBinaryPropertyList(table);
    ASSERT_TRUE(bytes.ok());
    EXPECT_THAT(containerProblem(*bytes), HasSubstr("comes twice"));
}

TEST(DaemonPropertyList, ReferencesOutOfTheTableCannotBeWritten) {
    PropertyListTable table;
    table.objects = {IndexArray{1}};
    EXPECT_FALSE(writeBinaryPropertyList(table).ok());
    EXPECT_FALSE(writeBinaryPropertyList(PropertyListTable{}).ok());
}

} // namespace
} // namespace moxel::daemon
