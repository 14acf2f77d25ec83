#include <Moxel/MxlHIDDevice.h>

#include "Values/Format.h"

namespace moxel {

namespace {

constexpr size_t axisCount = 6;
constexpr size_t buttonMapSize = 8;

const bool registered = [] {
    registerArchiveClass("MxlHIDDevice", [](const KeyedDecoder &decoder) -> Ref<Object> {
        return MxlHIDDevice::initWithCoder(decoder);
    });
    return true;
}();

MutableArray zeros(size_t count) {
    MutableArray list = MutableArray::withCapacity(count);
    for (size_t i = 0; i < count; ++i)
        list.append(0);
    return list;
}

/// The handle as the number that archives hold.
uint64_t numberOf(MoxelHIDDeviceRef device) { return reinterpret_cast<uintptr_t>(device); }

MoxelHIDDeviceRef handleOf(uint64_t number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): archives hold handles as numbers.
    return reinterpret_cast<MoxelHIDDeviceRef>(static_cast<uintptr_t>(number));
}

Value orNullText(const Value &value) { return value ? value : Value("(null)"); }

} // namespace

MxlHIDDevice::MxlHIDDevice()
    : zero_(zeros(axisCount)),
      arrPairedDevices_(MutableArray::withCapacity(1)),
      arrButtonMap_(zeros(buttonMapSize)) {}

void MxlHIDDevice::encodeWithCoder(KeyedEncoder &encoder) const {
    encoder.encodeObject(stringName_, "name");
    encoder.encodeObject(stringSerial_, "serial");
    encoder.encodeObject(stringFWVersion_, "firmware");
    encoder.encodeObject(stringURSerial_, "urserial");
    encoder.encodeObject(stringURFWVersion_, "urfirmware");
    encoder.encodeObject(static_cast<int32_t>(iURFirmwareVersion_), "iurfirmware");
    encoder.encodeObject(stringAddress_, "saddress");
    encoder.encodeObject(static_cast<int32_t>(iProductID_), "productid");
    encoder.encodeObject(static_cast<int32_t>(iRawProductID_), "rawpid");
    encoder.encodeObject(static_cast<int32_t>(iVendorID_), "vendorid");
    encoder.encodeObject(numberOf(refDevice_), "refdevice");
    encoder.encodeObject(static_cast<int32_t>(iAddress_), "address");
    encoder.encodeObject(iInterfaceNum_, "interface");
    encoder.encodeObject(iDeviceType_, "devtype");
    encoder.encodeObject(isUniversal_, "universal");
    encoder.encodeObject(isFullyEnumerated_, "fullyenumerated");
    encoder.encodeObject(stringDevicePathBase_, "basedevpath");
    encoder.encodeObject(stringDevicePath_, "devpath");
    encoder.encodeObject(arrPairedDevices_, "paireddevices");
    encoder.encodeObject(numberOf(refDevice_), "devref");
}

Ref<MxlHIDDevice> MxlHIDDevice::initWithCoder(const KeyedDecoder &decoder) {
    auto record = makeRef<MxlHIDDevice>();
    record->stringName_ = decoder.decode("name").asString();
    record->stringSerial_ = decoder.decode("serial").asString();
    record->stringFWVersion_ = decoder.decode("firmware").asString();
    record->stringURSerial_ = decoder.decode("urserial").asString();
    record->stringURFWVersion_ = decoder.decode("urfirmware").asString();
    record->iURFirmwareVersion_ = decoder.decode("iurfirmware").uint32Value();
    record->stringAddress_ = decoder.decode("saddress").asString();
    record->iProductID_ = decoder.decode("productid").uint32Value();
    record->iRawProductID_ = decoder.decode("rawpid").uint32Value();
    record->iVendorID_ = decoder.decode("vendorid").uint32Value();
    record->iAddress_ = decoder.decode("address").uint32Value();
    record->iInterfaceNum_ = decoder.decode("interface").uint32Value();
    record->iDeviceType_ = decoder.decode("devtype").uint8Value();
    record->isUniversal_ = decoder.decode("universal").boolValue();
    record->isFullyEnumerated_ = decoder.decode("fullyenumerated").boolValue();
    record->stringDevicePathBase_ = decoder.decode("basedevpath").asString();
    record->stringDevicePath_ = decoder.decode("devpath").asString();
    record->arrPairedDevices_ = decoder.decode("paireddevices").asArray();
    // "refdevice" holds the handle as well, but "devref" is the one that counts.
    record->refDevice_ = handleOf(decoder.decode("devref").uint64Value());
    return record;
}

Ref<MxlHIDDevice> MxlHIDDevice::copyWithZone() const {
    auto copy = makeRef<MxlHIDDevice>();
    copy->iVendorID_ = iVendorID_;
    copy->iProductID_ = iProductID_;
    copy->iRawProductID_ = iRawProductID_;
    copy->iFirmwareVersion_ = iFirmwareVersion_;
    copy->iURFirmwareVersion_ = iURFirmwareVersion_;
    copy->iInterfaceNum_ = iInterfaceNum_;
    copy->iDeviceType_ = iDeviceType_;
    copy->iAddress_ = iAddress_;
    copy->iPrimaryUsage_ = iPrimaryUsage_;
    copy->iBatteryStatus_ = iBatteryStatus_;
    copy->baseConfigurationDone_ = baseConfigurationDone_;
    copy->mainSpeed_ = mainSpeed_;
    copy->translations_ = translations_;
    copy->rotations_ = rotations_;
    copy->leds_ = leds_;
    copy->smartScroll_ = smartScroll_;
    copy->zero_ = zero_.copy();
    copy->stringAddress_ = stringAddress_;
    copy->stringDevicePath_ = stringDevicePath_;
    copy->stringDevicePathBase_ = stringDevicePathBase_;
    copy->stringSerial_ = stringSerial_;
    copy->stringFWVersion_ = stringFWVersion_;
    copy->stringURSerial_ = stringURSerial_;
    copy->stringURFWVersion_ = stringURFWVersion_;
    copy->stringName_ = stringName_;
    copy->stringManufacturer_ = stringManufacturer_;
    copy->isUniversal_ = isUniversal_;
    copy->isFullyEnumerated_ = isFullyEnumerated_;
    copy->isBusy_ = isBusy_;
    copy->arrPairedDevices_ = arrPairedDevices_.copy();
    copy->isOpen_ = isOpen_;
    copy->refDevice_ = refDevice_;
    return copy;
}

uint8_t MxlHIDDevice::lastUsedDevice() const noexcept {
    return static_cast<uint8_t>(arrPairedDevices_.size() - 1);
}

std::string MxlHIDDevice::description() const {
    const Dictionary members{
        {"iProductID", iProductID_},
        {"iRawProductID", iRawProductID_},
        {"iVendorID", iVendorID_},
        {"stringManufacturer", orNullText(stringManufacturer_)},
        {"iInterFaceNum", iInterfaceNum_},
        {"iDeviceType", iDeviceType_},
        {"iPrimaryUsage", iPrimaryUsage_},
        {"iAddress", iAddress_},
        {"stringSerial", orNullText(stringSerial_)},
        {"stringFWVersion", orNullText(stringFWVersion_)},
        {"stringURSerial", orNullText(stringURSerial_)},
        {"stringURFWVersion", orNullText(stringURFWVersion_)},
        {"iURFirmwareVersion", iURFirmwareVersion_},
        {"iFirmwareVersion", iFirmwareVersion_},
        {"stringName", orNullText(stringName_)},
        {"refDevice",
         orNullText(refDevice_ ? Value(format("%p", static_cast<const void *>(refDevice_))) : Value())},
        {"isBusy", isBusy_},
        {"isOpen", isOpen_},
        {"isFullyEnumerated", isFullyEnumerated_},
        {"arrPairedDevices", orNullText(arrPairedDevices_)},
        {"stringDevicePath", orNullText(stringDevicePath_)},
        {"stringDevicePathBase", orNullText(stringDevicePathBase_)},
    };
    return format("<%@:%p %@>", className(), static_cast<const void *>(this), members);
}

} // namespace moxel
