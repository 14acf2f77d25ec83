// The device record: defaults, properties, copying, printing and archiving.
#include <Moxel/MxlHIDDevice.h>

#include "Values/PropertyList.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace moxel {
namespace {

MoxelHIDDeviceRef handle(uintptr_t number) { return reinterpret_cast<MoxelHIDDeviceRef>(number); }

MutableArray listOf(std::initializer_list<Value> values) {
    return Array(std::vector<Value>(values)).mutableCopy();
}

/// A record in which nothing has its default.
Ref<MxlHIDDevice> filledRecord() {
    auto record = makeRef<MxlHIDDevice>();
    record->setIVendorID(0x4D58);
    record->setIProductID(2);
    record->setIRawProductID(3);
    record->setIFirmwareVersion(4);
    record->setIURFirmwareVersion(5);
    record->setIInterfaceNum(6);
    record->setIDeviceType(7);
    record->setIAddress(8);
    record->setIPrimaryUsage(9);
    record->setIBatteryStatus(10);
    record->setZero(listOf({1, 2, 3, 4, 5, 6}));
    record->setStringAddress("00:11");
    record->setStringDevicePath("/dev/a");
    record->setStringDevicePathBase("/dev");
    record->setStringSerial("S1");
    record->setStringFWVersion("F1");
    record->setStringURSerial("S2");
    record->setStringURFWVersion("F2");
    record->setStringName("Desk controller");
    record->setStringManufacturer("Moxel");
    record->setIsUniversal(true);
    record->setIsBusy(true);
    record->setArrPairedDevices(listOf({"one", "two", "three"}));
    record->setIsFullyEnumerated(true);
    record->setIsOpen(true);
    record->setRefDevice(handle(0x1234));
    record->setBaseConfigurationDone(true);
    record->setMainSpeed(11);
    record->setTranslations(12);
    record->setRotations(13);
    record->setLeds(0);
    record->setSmartScroll(14);
    record->setArrButtonMap(listOf({8, 7, 6, 5, 4, 3, 2, 1}));
    record->setDateConnected(Date{15});
    record->setIdxLastUsedSlot(16);
    return record;
}

void expectArchivedFieldsEqual(const MxlHIDDevice &a, const MxlHIDDevice &b) {
    EXPECT_EQ(a.stringName(), b.stringName());
    EXPECT_EQ(a.stringSerial(), b.stringSerial());
    EXPECT_EQ(a.stringFWVersion(), b.stringFWVersion());
    EXPECT_EQ(a.stringURSerial(), b.stringURSerial());
    EXPECT_EQ(a.stringURFWVersion(), b.stringURFWVersion());
    EXPECT_EQ(a.iURFirmwareVersion(), b.iURFirmwareVersion());
    EXPECT_EQ(a.stringAddress(), b.stringAddress());
    EXPECT_EQ(a.iProductID(), b.iProductID());
    EXPECT_EQ(a.iRawProductID(), b.iRawProductID());
    EXPECT_EQ(a.iVendorID(), b.iVendorID());
    EXPECT_EQ(a.iAddress(), b.iAddress());
    EXPECT_EQ(a.iInterfaceNum(), b.iInterfaceNum());
    EXPECT_EQ(a.iDeviceType(), b.iDeviceType());
    EXPECT_EQ(a.isUniversal(), b.isUniversal());
    EXPECT_EQ(a.isFullyEnumerated(), b.isFullyEnumerated());
    EXPECT_EQ(a.stringDevicePathBase(), b.stringDevicePathBase());
    EXPECT_EQ(a.stringDevicePath(), b.stringDevicePath());
    EXPECT_EQ(a.arrPairedDevices(), b.arrPairedDevices());
    EXPECT_EQ(a.refDevice(), b.refDevice());
}

Ref<MxlHIDDevice> archivedAndBack(const Ref<MxlHIDDevice> &record) {
    const Result<Data> archive = archivedDataWithRootObject(record);
    EXPECT_TRUE(archive.ok());
    const Result<Value> back = unarchiveObjectWithData(archive->bytes());
    EXPECT_TRUE(back.ok());
    return back->asObject<MxlHIDDevice>();
}

/// The record's own entry in its archive's object table, and that table.
struct ArchivedRecord {
    explicit ArchivedRecord(const Ref<MxlHIDDevice> &record) {
        const Result<Data> archive = archivedDataWithRootObject(record);
        EXPECT_TRUE(archive.ok());
        const Result<PropertyList> list = readPropertyList(archive->bytes());
        EXPECT_TRUE(list.ok());
        objects = list->root.asDictionary()["$objects"].asArray();
        const UID root = list->root.asDictionary()["$top"].asDictionary()["root"].asUID();
        entry = objects[root.index].asDictionary();
    }
    /// What the member's reference leads to.
    [[nodiscard]] const Value &member(std::string_view key) const {
        EXPECT_EQ(entry[key].kind(), Kind::uid) << key;
        return objects[entry[key].asUID().index];
    }

    Array objects;
    Dictionary entry;
};

// ------------------------------------------------------------------------------------------ Defaults

TEST(MxlHIDDevice, FreshRecordHasItsDefaults) {
    const auto record = makeRef<MxlHIDDevice>();
    EXPECT_EQ(record->leds(), 0xFF);
    EXPECT_EQ(Value(record->arrButtonMap()), Value(Array{0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Value(record->zero()), Value(Array{0, 0, 0, 0, 0, 0}));
    ASSERT_TRUE(record->arrPairedDevices());
    EXPECT_TRUE(record->arrPairedDevices().empty());
    EXPECT_EQ(record->lastUsedDevice(), 255);
    for (const Array &list : {record->arrButtonMap(), record->zero(), record->arrPairedDevices()})
        EXPECT_TRUE(list.isMutable());
}

TEST(MxlHIDDevice, EverythingElseOfAFreshRecordIsZeroOrNull) {
    const MxlHIDDevice record;
    for (const uint32_t number :
         {record.iVendorID(), record.iProductID(), record.iRawProductID(), record.iFirmwareVersion(),
          record.iURFirmwareVersion(), record.iInterfaceNum(), uint32_t{record.iDeviceType()},
          record.iAddress(), record.iPrimaryUsage(), uint32_t{record.iBatteryStatus()},
          uint32_t{record.mainSpeed()}, uint32_t{record.translations()}, uint32_t{record.rotations()},
          uint32_t{record.smartScroll()}})
        EXPECT_EQ(number, 0U);
    for (const bool flag : {record.isUniversal(), record.isBusy(), record.isFullyEnumerated(),
                            record.isOpen(), record.baseConfigurationDone()})
        EXPECT_FALSE(flag);
    for (const String &string :
         {record.stringAddress(), record.stringDevicePath(), record.stringDevicePathBase(),
          record.stringSerial(), record.stringFWVersion(), record.stringURSerial(),
          record.stringURFWVersion(), record.stringName(), record.stringManufacturer()})
        EXPECT_FALSE(string);
    EXPECT_EQ(record.refDevice(), nullptr);
    EXPECT_EQ(record.dateConnected(), std::nullopt);
}

// ------------------------------------------------------------------------------------------ Properties

TEST(MxlHIDDevice, PropertiesKeepWhatIsSet) {
    const Ref<MxlHIDDevice> record = filledRecord();
    EXPECT_EQ(record->iVendorID(), 0x4D58U);
    EXPECT_EQ(record->iProductID(), 2U);
    EXPECT_EQ(record->iRawProductID(), 3U);
    EXPECT_EQ(record->iFirmwareVersion(), 4U);
    EXPECT_EQ(record->iURFirmwareVersion(), 5U);
    EXPECT_EQ(record->iInterfaceNum(), 6U);
    EXPECT_EQ(record->iDeviceType(), 7);
    EXPECT_EQ(record->iAddress(), 8U);
    EXPECT_EQ(record->iPrimaryUsage(), 9U);
    EXPECT_EQ(record->iBatteryStatus(), 10);
    EXPECT_EQ(Value(record->zero()), Value(Array{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(record->stringAddress(), "00:11");
    EXPECT_EQ(record->stringDevicePath(), "/dev/a");
    EXPECT_EQ(record->stringDevicePathBase(), "/dev");
    EXPECT_EQ(record->stringSerial(), "S1");
    EXPECT_EQ(record->stringFWVersion(), "F1");
    EXPECT_EQ(record->stringURSerial(), "S2");
    EXPECT_EQ(record->stringURFWVersion(), "F2");
    EXPECT_EQ(record->stringName(), "Desk controller");
    EXPECT_EQ(record->stringManufacturer(), "Moxel");
    EXPECT_TRUE(record->isUniversal());
    EXPECT_TRUE(record->isBusy());
    EXPECT_EQ(Value(record->arrPairedDevices()), Value(Array{"one", "two", "three"}));
    EXPECT_TRUE(record->isFullyEnumerated());
    EXPECT_TRUE(record->isOpen());
    EXPECT_EQ(record->refDevice(), handle(0x1234));
    EXPECT_TRUE(record->baseConfigurationDone());
    EXPECT_EQ(record->mainSpeed(), 11);
    EXPECT_EQ(record->translations(), 12);
    EXPECT_EQ(record->rotations(), 13);
    EXPECT_EQ(record->leds(), 0);
    EXPECT_EQ(record->smartScroll(), 14);
    EXPECT_EQ(Value(record->arrButtonMap()), Value(Array{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(record->dateConnected(), Date{15});
}

TEST(MxlHIDDevice, PairedDevicesCanBeAppendedToAFreshRecord) {
    const auto record = makeRef<MxlHIDDevice>();
    Value(record->arrPairedDevices()).asMutableArray().append("device");
    EXPECT_EQ(Value(record->arrPairedDevices()), Value(Array{"device"}));
}

TEST(MxlHIDDevice, FreshRecordsShareNoLists) {
    const MxlHIDDevice one;
    const MxlHIDDevice other;
    Value(one.zero()).asMutableArray().set(0, 1);
    EXPECT_EQ(other.zero()[0], Value(0));
}

TEST(MxlHIDDevice, LastUsedDeviceFollowsFromThePairedDevicesOnly) {
    const Ref<MxlHIDDevice> record = filledRecord();
    for (const uint8_t slot : {0, 1, 2, 200, 255}) {
        record->setIdxLastUsedSlot(slot);
        EXPECT_EQ(record->lastUsedDevice(), 2);
    }
    record->setArrPairedDevices(nullptr);
    EXPECT_EQ(record->lastUsedDevice(), 255);
    record->setArrPairedDevices(Array(std::vector<Value>(256, 0)));
    EXPECT_EQ(record->lastUsedDevice(), 255);
    record->setArrPairedDevices(Array(std::vector<Value>(257, 0)));
    EXPECT_EQ(record->lastUsedDevice(), 0);
}

// ------------------------------------------------------------------------------------------ Archiving

TEST(MxlHIDDevice, IsArchivedUnderTwentyKeysInTheirOrder) {
    const ArchivedRecord archived(filledRecord());
    std::vector<std::string> keys;
    for (const Dictionary::Entry &entry : archived.entry)
        keys.push_back(entry.key.string());
    EXPECT_EQ(keys,
              (std::vector<std::string>{
                  "name",          "serial",    "firmware",  "urserial",        "urfirmware",  "iurfirmware",
                  "saddress",      "productid", "rawpid",    "vendorid",        "refdevice",   "address",
                  "interface",     "devtype",   "universal", "fullyenumerated", "basedevpath", "devpath",
                  "paireddevices", "devref",    "$class"}));
    const Dictionary recordClass = archived.objects[archived.entry["$class"].asUID().index].asDictionary();
    EXPECT_EQ(recordClass["$classname"], Value("MxlHIDDevice"));
    EXPECT_EQ(recordClass["$classes"], Value(Array{"MxlHIDDevice", "NSObject"}));
}

TEST(MxlHIDDevice, EveryKeyHoldsItsField) {
    const ArchivedRecord archived(filledRecord());
    EXPECT_EQ(archived.member("name"), Value("Desk controller"));
    EXPECT_EQ(archived.member("serial"), Value("S1"));
    EXPECT_EQ(archived.member("firmware"), Value("F1"));
    EXPECT_EQ(archived.member("urserial"), Value("S2"));
    EXPECT_EQ(archived.member("urfirmware"), Value("F2"));
    EXPECT_EQ(archived.member("iurfirmware"), Value(5));
    EXPECT_EQ(archived.member("saddress"), Value("00:11"));
    EXPECT_EQ(archived.member("productid"), Value(2));
    EXPECT_EQ(archived.member("rawpid"), Value(3));
    EXPECT_EQ(archived.member("vendorid"), Value(0x4D58));
    EXPECT_EQ(archived.member("refdevice"), Value(0x1234));
    EXPECT_EQ(archived.member("address"), Value(8));
    EXPECT_EQ(archived.member("interface"), Value(6));
    EXPECT_EQ(archived.member("devtype"), Value(7));
    EXPECT_EQ(archived.member("universal"), Value(true));
    EXPECT_EQ(archived.member("fullyenumerated"), Value(true));
    EXPECT_EQ(archived.member("basedevpath"), Value("/dev"));
    EXPECT_EQ(archived.member("devpath"), Value("/dev/a"));
    EXPECT_EQ(archived.member("devref"), Value(0x1234));
}

TEST(MxlHIDDevice, NumbersAreArchivedInTheirKinds) {
    auto record = makeRef<MxlHIDDevice>();
    record->setIURFirmwareVersion(0xFFFFFFFF);
    record->setIProductID(0xFFFFFFFE);
    record->setIRawProductID(0xFFFFFFFD);
    record->setIVendorID(0xFFFFFFFC);
    record->setIAddress(0x80000000);
    record->setIInterfaceNum(0xFFFFFFFB);
    record->setIDeviceType(0xFF);
    record->setIsUniversal(true);
    record->setRefDevice(handle(0xFFFFFFFFFFFFFF00));
    const ArchivedRecord archived(record);
    // Signed: the numbers of the wrong sign are negative in the archive.
    EXPECT_EQ(archived.member("iurfirmware").int64Value(), -1);
    EXPECT_EQ(archived.member("productid").int64Value(), -2);
    EXPECT_EQ(archived.member("rawpid").int64Value(), -3);
    EXPECT_EQ(archived.member("vendorid").int64Value(), -4);
    EXPECT_EQ(archived.member("address").int64Value(), INT32_MIN);
    // Unsigned: they are large.
    EXPECT_EQ(archived.member("interface").int64Value(), 0xFFFFFFFB);
    EXPECT_EQ(archived.member("devtype").int64Value(), 255);
    for (const char *key : {"refdevice", "devref"}) {
        EXPECT_EQ(archived.member(key).kind(), Kind::unsignedInteger) << key;
        EXPECT_EQ(archived.member(key).uint64Value(), 0xFFFFFFFFFFFFFF00) << key;
    }
    EXPECT_EQ(archived.member("universal").kind(), Kind::boolean);
    EXPECT_EQ(archived.member("fullyenumerated").kind(), Kind::boolean);
    EXPECT_NE(archived.member("devtype").kind(), Kind::boolean);
}

TEST(MxlHIDDevice, NumbersOfEveryKindComeBack) {
    auto record = makeRef<MxlHIDDevice>();
    record->setIURFirmwareVersion(0xFFFFFFFF);
    record->setIProductID(0xFFFFFFFE);
    record->setIRawProductID(0xFFFFFFFD);
    record->setIVendorID(0xFFFFFFFC);
    record->setIAddress(0x80000000);
    record->setIInterfaceNum(0xFFFFFFFB);
    record->setIDeviceType(0xFF);
    record->setRefDevice(handle(0xFFFFFFFFFFFFFF00));
    const Ref<MxlHIDDevice> back = archivedAndBack(record);
    ASSERT_TRUE(back);
    expectArchivedFieldsEqual(*record, *back);
}

TEST(MxlHIDDevice, NullStringsAndListsAreArchivedAsNullObjects) {
    auto record = makeRef<MxlHIDDevice>();
    record->setArrPairedDevices(nullptr);
    const ArchivedRecord archived(record);
    for (const char *key : {"name", "serial", "firmware", "urserial", "urfirmware", "saddress", "basedevpath",
                            "devpath", "paireddevices"})
        EXPECT_EQ(archived.entry[key], Value(UID{0})) << key;
    const Ref<MxlHIDDevice> back = archivedAndBack(record);
    ASSERT_TRUE(back);
    EXPECT_FALSE(back->stringName());
    EXPECT_FALSE(back->arrPairedDevices()) << "not the empty list of a new record";
}

TEST(MxlHIDDevice, ArchivingKeepsTheKeyedFieldsAndNoOthers) {
    const Ref<MxlHIDDevice> record = filledRecord();
    const Ref<MxlHIDDevice> back = archivedAndBack(record);
    ASSERT_TRUE(back);
    expectArchivedFieldsEqual(*record, *back);
    EXPECT_FALSE(back->stringManufacturer());
    EXPECT_EQ(back->iFirmwareVersion(), 0U);
    EXPECT_EQ(back->iPrimaryUsage(), 0U);
    EXPECT_EQ(back->iBatteryStatus(), 0);
    EXPECT_FALSE(back->isBusy());
    EXPECT_FALSE(back->isOpen());
    EXPECT_FALSE(back->baseConfigurationDone());
    EXPECT_EQ(back->mainSpeed(), 0);
    EXPECT_EQ(back->translations(), 0);
    EXPECT_EQ(back->rotations(), 0);
    EXPECT_EQ(back->leds(), 0xFF);
    EXPECT_EQ(back->smartScroll(), 0);
    EXPECT_EQ(Value(back->zero()), Value(Array{0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Value(back->arrButtonMap()), Value(Array{0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(back->dateConnected(), std::nullopt);
}

TEST(MxlHIDDevice, DevrefWinsOverRefdevice) {
    const auto decode = [](Dictionary members) {
        return MxlHIDDevice::initWithCoder(KeyedDecoder(std::move(members)))->refDevice();
    };
    EXPECT_EQ(decode({{"refdevice", 5}, {"devref", 7}}), handle(7));
    EXPECT_EQ(decode({{"devref", 7}, {"refdevice", 5}}), handle(7));
    EXPECT_EQ(decode({{"refdevice", 5}}), nullptr) << "an absent number is 0";
}

TEST(MxlHIDDevice, MissingKeysGiveNullAndZero) {
    const Ref<MxlHIDDevice> record = MxlHIDDevice::initWithCoder(KeyedDecoder(Dictionary{{"other", 1}}));
    auto empty = makeRef<MxlHIDDevice>();
    empty->setArrPairedDevices(nullptr);
    expectArchivedFieldsEqual(*record, *empty);
    EXPECT_EQ(record->leds(), 0xFF);
}

TEST(MxlHIDDevice, MembersOfTheWrongKindCountAsAbsent) {
    const Ref<MxlHIDDevice> record = MxlHIDDevice::initWithCoder(KeyedDecoder(Dictionary{
        {"name", 5}, {"serial", Array{1}}, {"vendorid", "4"}, {"universal", "yes"}, {"paireddevices", "x"}}));
    EXPECT_FALSE(record->stringName());
    EXPECT_FALSE(record->stringSerial());
    EXPECT_EQ(record->iVendorID(), 0U);
    EXPECT_FALSE(record->isUniversal());
    EXPECT_FALSE(record->arrPairedDevices());
}

TEST(MxlHIDDevice, NumbersAreConvertedToTheirFields) {
    const Ref<MxlHIDDevice> record =
        MxlHIDDevice::initWithCoder(KeyedDecoder(Dictionary{{"vendorid", int64_t{0x1'0000'0002}},
                                                            {"devtype", 0x1FE},
                                                            {"interface", -1},
                                                            {"universal", 2},
                                                            {"fullyenumerated", 1.5},
                                                            {"productid", true}}));
    EXPECT_EQ(record->iVendorID(), 2U);
    EXPECT_EQ(record->iDeviceType(), 0xFE);
    EXPECT_EQ(record->iInterfaceNum(), 0xFFFFFFFF);
    EXPECT_TRUE(record->isUniversal());
    EXPECT_TRUE(record->isFullyEnumerated());
    EXPECT_EQ(record->iProductID(), 1U);
}

TEST(MxlHIDDevice, PairedDevicesMayBeRecordsThemselves) {
    auto receiver = makeRef<MxlHIDDevice>();
    auto device = makeRef<MxlHIDDevice>();
    device->setStringName("Paired");
    Value(receiver->arrPairedDevices()).asMutableArray().append(device);
    const Ref<MxlHIDDevice> back = archivedAndBack(receiver);
    ASSERT_TRUE(back);
    const Ref<MxlHIDDevice> paired = back->arrPairedDevices()[0].asObject<MxlHIDDevice>();
    ASSERT_TRUE(paired);
    EXPECT_EQ(paired->stringName(), "Paired");
}

TEST(MxlHIDDevice, RecordThatIsPairedWithItselfCannotBeArchived) {
    auto record = makeRef<MxlHIDDevice>();
    Value(record->arrPairedDevices()).asMutableArray().append(record);
    EXPECT_FALSE(archivedDataWithRootObject(record).ok());
    EXPECT_LT(record->description().size(), size_t{2} << 20) << "its text ends";
    record->setArrPairedDevices(nullptr); // Breaks the cycle, which would keep the record for ever.
}

// ------------------------------------------------------------------------------------------ Copying

TEST(MxlHIDDevice, CopyHasTheValuesOfItsSource) {
    const Ref<MxlHIDDevice> record = filledRecord();
    const Ref<MxlHIDDevice> copy = record->copyWithZone();
    expectArchivedFieldsEqual(*record, *copy);
    EXPECT_EQ(copy->iFirmwareVersion(), 4U);
    EXPECT_EQ(copy->iPrimaryUsage(), 9U);
    EXPECT_EQ(copy->iBatteryStatus(), 10);
    EXPECT_TRUE(copy->baseConfigurationDone());
    EXPECT_EQ(copy->mainSpeed(), 11);
    EXPECT_EQ(copy->translations(), 12);
    EXPECT_EQ(copy->rotations(), 13);
    EXPECT_EQ(copy->leds(), 0);
    EXPECT_EQ(copy->smartScroll(), 14);
    EXPECT_EQ(Value(copy->zero()), Value(record->zero()));
    EXPECT_EQ(copy->stringManufacturer(), "Moxel");
    EXPECT_TRUE(copy->isBusy());
    EXPECT_TRUE(copy->isOpen());
    EXPECT_EQ(copy->refDevice(), handle(0x1234));
}

TEST(MxlHIDDevice, CopyHasADefaultButtonMapAndNoDate) {
    const Ref<MxlHIDDevice> copy = filledRecord()->copyWithZone();
    EXPECT_EQ(Value(copy->arrButtonMap()), Value(Array{0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(copy->arrButtonMap().isMutable());
    EXPECT_EQ(copy->dateConnected(), std::nullopt);
}

TEST(MxlHIDDevice, CopyHoldsImmutableSnapshotsOfTheLists) {
    const Ref<MxlHIDDevice> record = filledRecord();
    const Ref<MxlHIDDevice> copy = record->copyWithZone();
    EXPECT_FALSE(copy->zero().isMutable());
    EXPECT_FALSE(copy->arrPairedDevices().isMutable());
    Value(record->zero()).asMutableArray().set(0, 100);
    Value(record->arrPairedDevices()).asMutableArray().append("four");
    EXPECT_EQ(copy->zero()[0], Value(1));
    EXPECT_EQ(copy->arrPairedDevices().size(), 3U);
    EXPECT_EQ(copy->lastUsedDevice(), 2);
}

TEST(MxlHIDDevice, CopyOfNullListsHasNullLists) {
    auto record = makeRef<MxlHIDDevice>();
    record->setZero(nullptr);
    record->setArrPairedDevices(nullptr);
    const Ref<MxlHIDDevice> copy = record->copyWithZone();
    EXPECT_FALSE(copy->zero());
    EXPECT_FALSE(copy->arrPairedDevices());
}

// ------------------------------------------------------------------------------------------ Printing

std::string prefixOf(const MxlHIDDevice &record) {
    char text[64];
    std::snprintf(text, sizeof text, "<MxlHIDDevice:%p ", static_cast<const void *>(&record));
    return text;
}

TEST(MxlHIDDevice, DescriptionShowsTwentyTwoEntries) {
    const Ref<MxlHIDDevice> record = filledRecord();
    record->setIDeviceType(200);
    record->setIVendorID(0xFFFFFFFF);
    EXPECT_EQ(record->description(), prefixOf(*record) + R"({
    arrPairedDevices =     (
        one,
        two,
        three
    );
    iAddress = 8;
    iDeviceType = 200;
    iFirmwareVersion = 4;
    iInterFaceNum = 6;
    iPrimaryUsage = 9;
    iProductID = 2;
    iRawProductID = 3;
    iURFirmwareVersion = 5;
    iVendorID = 4294967295;
    isBusy = 1;
    isFullyEnumerated = 1;
    isOpen = 1;
    refDevice = 0x1234;
    stringDevicePath = "/dev/a";
    stringDevicePathBase = "/dev";
    stringFWVersion = F1;
    stringManufacturer = Moxel;
    stringName = "Desk controller";
    stringSerial = S1;
    stringURFWVersion = F2;
    stringURSerial = S2;
}>)");
}

TEST(MxlHIDDevice, DescriptionShowsNullForWhatIsNotThere) {
    auto record = makeRef<MxlHIDDevice>();
    record->setArrPairedDevices(nullptr);
    const std::string text = record->description();
    for (const char *key :
         {"stringManufacturer", "stringSerial", "stringFWVersion", "stringURSerial", "stringURFWVersion",
          "stringName", "refDevice", "arrPairedDevices", "stringDevicePath", "stringDevicePathBase"})
        EXPECT_NE(text.find(std::string("    ") + key + " = \"(null)\";\n"), std::string::npos) << key;
}

} // namespace
} // namespace moxel
