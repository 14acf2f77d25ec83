// Archives of the records, key by key, against Python's plistlib and GNUstep's archiver.
#include "Support/PropertyLists.h"
#include "Support/Python.h"
#include "Support/Subprocess.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MxlApplication.h>
#include <Moxel/MxlHIDDevice.h>

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::ExactText;
using test::SubprocessResult;

/// The members of a class's records that the tests archive, in the order of their keys. Each number shows by
/// its value or its kind how it was archived.
Dictionary deviceMembers() {
    return {{"name", "Tisch-Gerät \"1\""},
            {"serial", "S-0001"},
            {"firmware", "1.20"},
            {"urserial", "UR 2"},
            {"urfirmware", ""},
            {"iurfirmware", -1},
            {"saddress", "00:11:22"},
            {"productid", -2},
            {"rawpid", 0x7FFFFFFF},
            {"vendorid", 0x4D58},
            {"refdevice", uint64_t{0x7FFF12345678}},
            {"address", INT32_MIN},
            {"interface", uint32_t{0xFFFFFFFF}},
            {"devtype", uint8_t{0xFE}},
            {"universal", true},
            {"fullyenumerated", false},
            {"basedevpath", "/dev"},
            {"devpath", "/dev/hidraw7"},
            {"paireddevices", Array{"first", 2, Array{true}}},
            {"devref", uint64_t{0x7FFF12345678}}};
}

Dictionary applicationMembers() {
    return {{"clientid", 7},
            {"appname", "Größe"},
            {"appfilename", "viewer"},
            {"clientname", "Viewer client"},
            {"bundleid", "org.example.Viewer"},
            {"exepath", "/opt/viewer/viewer"},
            {"commandsfile", "/a/commands.plist"},
            {"imagesfile", "/a/images.plist"},
            {"settingsfile", "/a/settings.plist"},
            {"signature", uint32_t{0xF6566965}},
            {"processid", 4711},
            {"mode", uint16_t{3}},
            {"mask", uint32_t{0xFFFFFFFF}},
            {"buttonmask", uint32_t{0xFF}},
            {"switches", uint32_t{0x80000000}},
            {"channelid", uint64_t{1700000000123}}};
}

/// A record with those members, made by its setters.
Ref<MxlHIDDevice> deviceRecord() {
    const Dictionary members = deviceMembers();
    auto record = makeRef<MxlHIDDevice>();
    record->setStringName(members["name"].asString());
    record->setStringSerial(members["serial"].asString());
    record->setStringFWVersion(members["firmware"].asString());
    record->setStringURSerial(members["urserial"].asString());
    record->setStringURFWVersion(members["urfirmware"].asString());
    record->setIURFirmwareVersion(members["iurfirmware"].uint32Value());
    record->setStringAddress(members["saddress"].asString());
    record->setIProductID(members["productid"].uint32Value());
    record->setIRawProductID(members["rawpid"].uint32Value());
    record->setIVendorID(members["vendorid"].uint32Value());
    record->setIAddress(members["address"].uint32Value());
    record->setIInterfaceNum(members["interface"].uint32Value());
    record->setIDeviceType(members["devtype"].uint8Value());
    record->setIsUniversal(members["universal"].boolValue());
    record->setIsFullyEnumerated(members["fullyenumerated"].boolValue());
    record->setStringDevicePathBase(members["basedevpath"].asString());
    record->setStringDevicePath(members["devpath"].asString());
    record->setArrPairedDevices(members["paireddevices"].asArray());
    record->setRefDevice(
        reinterpret_cast<MoxelHIDDeviceRef>(static_cast<uintptr_t>(members["devref"].uint64Value())));
    return record;
}

Ref<MxlApplication> applicationRecord() {
    const Dictionary members = applicationMembers();
    auto record = makeRef<MxlApplication>();
    record->setClientid(members["clientid"]);
    record->setName(members["appname"]);
    record->setAppFileName(members["appfilename"]);
    record->setClientName(members["clientname"]);
    record->setBundleid(members["bundleid"]);
    record->setExecutablePath(members["exepath"]);
    record->setCommandsFile(members["commandsfile"]);
    record->setImagesFile(members["imagesfile"]);
    record->setSettingsFile(members["settingsfile"]);
    record->setSignature(members["signature"]);
    record->setProcessid(members["processid"]);
    record->setMode(members["mode"]);
    record->setMask(members["mask"]);
    record->setButtonMask(members["buttonmask"]);
    record->setSwitches(members["switches"]);
    record->setChannelID(members["channelid"]);
    return record;
}

/// One class of records, for tests that treat both alike.
struct RecordClass {
    const char *name;
    Ref<Object> (*record)();
    Dictionary (*members)();
};

const RecordClass device{"MxlHIDDevice", []() -> Ref<Object> { return deviceRecord(); }, deviceMembers};
const RecordClass application{"MxlApplication", []() -> Ref<Object> { return applicationRecord(); },
                              applicationMembers};

class RecordArchives : public ::testing::TestWithParam<const RecordClass *> {
  protected:
    [[nodiscard]] static const RecordClass &recordClass() { return *GetParam(); }

    [[nodiscard]] static std::string archive() {
        const Result<Data> archived = archivedDataWithRootObject(recordClass().record());
        EXPECT_TRUE(archived.ok()) << archived.error().message;
        return archived.ok() ? asText(*archived) : std::string();
    }
    /// The members of a record that was made elsewhere, as this class archives them again.
    [[nodiscard]] static Dictionary membersIn(const std::string &foreignArchive) {
        const Result<Value> root = unarchiveObjectWithData(asBytes(foreignArchive));
        EXPECT_TRUE(root.ok()) << root.error().message;
        const Ref<Object> record = root.ok() ? root->asObject<Object>() : nullptr;
        if (!record || dynamic_cast<GenericObject *>(record.get())) {
            ADD_FAILURE() << "no record of the class";
            return {};
        }
        KeyedEncoder encoder;
        record->encodeWithCoder(encoder);
        std::vector<Dictionary::Entry> members;
        for (const KeyedEncoder::Member &member : encoder.members())
            members.push_back({member.key, member.value});
        return Dictionary(members);
    }
    static void expectSameMembers(const Dictionary &members, const Dictionary &expected) {
        ASSERT_EQ(members.size(), expected.size());
        for (size_t i = 0; i < members.size(); ++i) {
            const auto &[key, value] = members.entries()[i];
            EXPECT_EQ(key, expected.entries()[i].key);
            EXPECT_EQ(ExactText::of(value), ExactText::of(expected[key.view()])) << key.view();
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Classes, RecordArchives, ::testing::Values(&device, &application),
                         [](const auto &parameter) { return std::string(parameter.param->name); });

/// members(data, name) reads an archive of one record strictly; archive(members, name) makes one.
const std::string library = R"(
import plistlib, sys
from plistlib import UID

def members(data, name):
    root = plistlib.loads(data, fmt=plistlib.FMT_BINARY)
    assert root['$version'] == 100000 and root['$archiver'] == 'NSKeyedArchiver'
    objects = root['$objects']
    record = objects[root['$top']['root'].data]
    assert objects[record['$class'].data] == {'$classname': name, '$classes': [name, 'NSObject']}
    assert list(record)[-1] == '$class'
    def get(uid):
        assert isinstance(uid, UID)
        value = objects[uid.data]
        if isinstance(value, dict):
            assert objects[value['$class'].data]['$classname'] == 'NSArray'
            return [get(member) for member in value['NS.objects']]
        return value
    return {key: get(value) for key, value in record.items() if key != '$class'}

def archive(members, name):
    objects = ['$null', {}, {'$classname': name, '$classes': [name, 'NSObject']},
               {'$classname': 'NSArray', '$classes': ['NSArray', 'NSObject']}]
    def add(value):
        uid = UID(len(objects))
        objects.append(value)
        if isinstance(value, list):
            objects[uid.data] = {'NS.objects': [add(member) for member in value], '$class': UID(3)}
        return uid
    objects[1] = {key: add(value) for key, value in members.items()} | {'$class': UID(2)}
    return plistlib.dumps({'$version': 100000, '$archiver': 'NSKeyedArchiver', '$top': {'root': UID(1)},
                           '$objects': objects}, fmt=plistlib.FMT_BINARY, sort_keys=False)
)";

TEST_P(RecordArchives, PythonReadsEveryMemberInItsKind) {
    if (!test::hasPython())
        GTEST_SKIP() << "the build found no python3";
    const SubprocessResult read =
        test::runPython(library + "sys.stdout.buffer.write(plistlib.dumps(members(sys.stdin.buffer.read(), "
                                  "sys.argv[1]), fmt=plistlib.FMT_BINARY, sort_keys=False))",
                        archive(), {recordClass().name});
    ASSERT_EQ(read.exitCode, 0);
    const Result<PropertyList> list = readPropertyList(asBytes(read.output));
    ASSERT_TRUE(list.ok()) << list.error().message;
    expectSameMembers(list->root.asDictionary(), recordClass().members());
}

TEST_P(RecordArchives, ArchiveOfPythonIsReadMemberByMember) {
    if (!test::hasPython())
        GTEST_SKIP() << "the build found no python3";
    const SubprocessResult made =
        test::runPython(library + "sys.stdout.buffer.write(archive(plistlib.loads(sys.stdin.buffer.read()), "
                                  "sys.argv[1]))",
                        test::xmlOf(recordClass().members()), {recordClass().name});
    ASSERT_EQ(made.exitCode, 0);
    expectSameMembers(membersIn(made.output), recordClass().members());
}

TEST_P(RecordArchives, GNUstepReadsEveryMemberInItsKind) {
    if (std::string_view(MOXEL_RECORD_ARCHIVE_FIXTURE).empty())
        GTEST_SKIP() << "the build found no gnustep-config";
    const SubprocessResult read =
        test::runSubprocess(MOXEL_RECORD_ARCHIVE_FIXTURE, {"unarchive", recordClass().name}, archive());
    ASSERT_EQ(read.exitCode, 0);
    const Result<PropertyList> list = readPropertyList(asBytes(read.output));
    ASSERT_TRUE(list.ok()) << list.error().message;
    const Dictionary members = list->root.asDictionary(); // In an order of their own.
    const Dictionary expected = recordClass().members();
    EXPECT_EQ(members.size(), expected.size());
    for (const Dictionary::Entry &entry : expected)
        EXPECT_EQ(ExactText::of(members[entry.key.view()]), ExactText::of(entry.value)) << entry.key.view();
}

TEST_P(RecordArchives, ArchiveOfGNUstepIsReadMemberByMember) {
    if (std::string_view(MOXEL_RECORD_ARCHIVE_FIXTURE).empty())
        GTEST_SKIP() << "the build found no gnustep-config";
    const SubprocessResult made = test::runSubprocess(
        MOXEL_RECORD_ARCHIVE_FIXTURE, {"archive", recordClass().name}, test::xmlOf(recordClass().members()));
    ASSERT_EQ(made.exitCode, 0);
    expectSameMembers(membersIn(made.output), recordClass().members());
}

} // namespace
} // namespace moxel
