// The record that describes one connected motion controller, or receiver, as the driver sees it.
#pragma once

#include "MoxelBase.h"
#include "Values/KeyedArchive.h"
#include "Values/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace moxel {

/// One thread fills a record and then hands it on; after that any thread may read it.
class MOXEL_EXPORT MxlHIDDevice final : public Object {
  public:
    /// A record without identity: all numbers 0, all texts null.
    MxlHIDDevice();

    /// A record of the archive's members; registered with the archives under the class's name. A member of
    /// another kind counts as absent.
    [[nodiscard]] static Ref<MxlHIDDevice> initWithCoder(const KeyedDecoder &decoder);
    /// A new record of the same values, but for the button map, the date and the last slot, which are those
    /// of a new record. Its lists are immutable.
    [[nodiscard]] Ref<MxlHIDDevice> copyWithZone() const;

    /// The name in archives.
    [[nodiscard]] std::string className() const override { return "MxlHIDDevice"; }
    /// Archives what identifies the device, under twenty keys.
    void encodeWithCoder(KeyedEncoder &encoder) const override;
    /// A line with the members, for logs.
    [[nodiscard]] std::string description() const override;

    /// Slot of the last paired device; 255 when none is paired. Follows from the list of paired devices, not
    /// from what setIdxLastUsedSlot() stored.
    [[nodiscard]] uint8_t lastUsedDevice() const noexcept;
    void setIdxLastUsedSlot(uint8_t slot) noexcept { idxLastUsedSlot_ = slot; }

    // ---------------------------------------------------------------------------------- Identity

    /// USB vendor identifier.
    [[nodiscard]] uint32_t iVendorID() const noexcept { return iVendorID_; }
    void setIVendorID(uint32_t identifier) noexcept { iVendorID_ = identifier; }
    /// USB product identifier that the driver serves the device under.
    [[nodiscard]] uint32_t iProductID() const noexcept { return iProductID_; }
    void setIProductID(uint32_t identifier) noexcept { iProductID_ = identifier; }
    /// USB product identifier as the hardware reports it.
    [[nodiscard]] uint32_t iRawProductID() const noexcept { return iRawProductID_; }
    void setIRawProductID(uint32_t identifier) noexcept { iRawProductID_ = identifier; }
    /// Firmware version of the device.
    [[nodiscard]] uint32_t iFirmwareVersion() const noexcept { return iFirmwareVersion_; }
    void setIFirmwareVersion(uint32_t version) noexcept { iFirmwareVersion_ = version; }
    /// Firmware version of the universal receiver.
    [[nodiscard]] uint32_t iURFirmwareVersion() const noexcept { return iURFirmwareVersion_; }
    void setIURFirmwareVersion(uint32_t version) noexcept { iURFirmwareVersion_ = version; }
    /// Number of the USB interface.
    [[nodiscard]] uint32_t iInterfaceNum() const noexcept { return iInterfaceNum_; }
    void setIInterfaceNum(uint32_t number) noexcept { iInterfaceNum_ = number; }
    /// The driver's number for the kind of device.
    [[nodiscard]] uint8_t iDeviceType() const noexcept { return iDeviceType_; }
    void setIDeviceType(uint8_t type) noexcept { iDeviceType_ = type; }
    /// Address in the driver, as in state records.
    [[nodiscard]] uint32_t iAddress() const noexcept { return iAddress_; }
    void setIAddress(uint32_t address) noexcept { iAddress_ = address; }
    /// Primary usage of the HID device.
    [[nodiscard]] uint32_t iPrimaryUsage() const noexcept { return iPrimaryUsage_; }
    void setIPrimaryUsage(uint32_t usage) noexcept { iPrimaryUsage_ = usage; }
    /// Address as text; may be null, as all texts may.
    [[nodiscard]] String stringAddress() const { return stringAddress_; }
    void setStringAddress(String address) { stringAddress_ = std::move(address); }
    /// Path of the device in the system.
    [[nodiscard]] String stringDevicePath() const { return stringDevicePath_; }
    void setStringDevicePath(String path) { stringDevicePath_ = std::move(path); }
    /// The part of the path that all interfaces of the device share.
    [[nodiscard]] String stringDevicePathBase() const { return stringDevicePathBase_; }
    void setStringDevicePathBase(String path) { stringDevicePathBase_ = std::move(path); }
    /// Serial number.
    [[nodiscard]] String stringSerial() const { return stringSerial_; }
    void setStringSerial(String serial) { stringSerial_ = std::move(serial); }
    /// Firmware version as text.
    [[nodiscard]] String stringFWVersion() const { return stringFWVersion_; }
    void setStringFWVersion(String version) { stringFWVersion_ = std::move(version); }
    /// Serial number of the universal receiver.
    [[nodiscard]] String stringURSerial() const { return stringURSerial_; }
    void setStringURSerial(String serial) { stringURSerial_ = std::move(serial); }
    /// Firmware version of the universal receiver, as text.
    [[nodiscard]] String stringURFWVersion() const { return stringURFWVersion_; }
    void setStringURFWVersion(String version) { stringURFWVersion_ = std::move(version); }
    /// Name shown to the user.
    [[nodiscard]] String stringName() const { return stringName_; }
    void setStringName(String name) { stringName_ = std::move(name); }
    /// Manufacturer shown to the user.
    [[nodiscard]] String stringManufacturer() const { return stringManufacturer_; }
    void setStringManufacturer(String manufacturer) { stringManufacturer_ = std::move(manufacturer); }
    /// Whether this is a universal receiver.
    [[nodiscard]] bool isUniversal() const noexcept { return isUniversal_; }
    void setIsUniversal(bool universal) noexcept { isUniversal_ = universal; }
    /// Devices that a receiver is paired with. A new record's list is mutable; may be null.
    [[nodiscard]] Array arrPairedDevices() const { return arrPairedDevices_; }
    void setArrPairedDevices(Array devices) { arrPairedDevices_ = std::move(devices); }
    /// Borrowed. In a record that comes out of an archive it only identifies the device in the process that
    /// made the archive, and must not be used as a device.
    [[nodiscard]] MoxelHIDDeviceRef refDevice() const noexcept { return refDevice_; }
    void setRefDevice(MoxelHIDDeviceRef device) noexcept { refDevice_ = device; }

    // ---------------------------------------------------------------------------------- State

    /// Charge as the device reports it.
    [[nodiscard]] uint16_t iBatteryStatus() const noexcept { return iBatteryStatus_; }
    void setIBatteryStatus(uint16_t status) noexcept { iBatteryStatus_ = status; }
    /// Whether the driver is talking with the device.
    [[nodiscard]] bool isBusy() const noexcept { return isBusy_; }
    void setIsBusy(bool busy) noexcept { isBusy_ = busy; }
    /// Whether the driver knows everything of the device.
    [[nodiscard]] bool isFullyEnumerated() const noexcept { return isFullyEnumerated_; }
    void setIsFullyEnumerated(bool enumerated) noexcept { isFullyEnumerated_ = enumerated; }
    /// Whether the driver has the device open.
    [[nodiscard]] bool isOpen() const noexcept { return isOpen_; }
    void setIsOpen(bool open) noexcept { isOpen_ = open; }
    /// Whether the driver has configured the device.
    [[nodiscard]] bool baseConfigurationDone() const noexcept { return baseConfigurationDone_; }
    void setBaseConfigurationDone(bool done) noexcept { baseConfigurationDone_ = done; }
    /// Absent until set.
    [[nodiscard]] std::optional<Date> dateConnected() const noexcept { return dateConnected_; }
    void setDateConnected(std::optional<Date> date) noexcept { dateConnected_ = date; }

    // ---------------------------------------------------------------------------------- Settings

    /// Rest positions of the six axes. A new record's list is mutable; may be null.
    [[nodiscard]] Array zero() const { return zero_; }
    void setZero(Array positions) { zero_ = std::move(positions); }
    /// Speed that the user chose.
    [[nodiscard]] uint16_t mainSpeed() const noexcept { return mainSpeed_; }
    void setMainSpeed(uint16_t speed) noexcept { mainSpeed_ = speed; }
    /// Which translations are on, one bit an axis.
    [[nodiscard]] uint8_t translations() const noexcept { return translations_; }
    void setTranslations(uint8_t translations) noexcept { translations_ = translations; }
    /// Which rotations are on, one bit an axis.
    [[nodiscard]] uint8_t rotations() const noexcept { return rotations_; }
    void setRotations(uint8_t rotations) noexcept { rotations_ = rotations; }
    /// On when not zero; a new record has all bits set.
    [[nodiscard]] uint8_t leds() const noexcept { return leds_; }
    void setLeds(uint8_t leds) noexcept { leds_ = leds; }
    /// Scrolling mode that the user chose.
    [[nodiscard]] uint8_t smartScroll() const noexcept { return smartScroll_; }
    void setSmartScroll(uint8_t smartScroll) noexcept { smartScroll_ = smartScroll; }
    /// One number a button. A new record's list is mutable; may be null.
    [[nodiscard]] Array arrButtonMap() const { return arrButtonMap_; }
    void setArrButtonMap(Array map) { arrButtonMap_ = std::move(map); }

  private:
    uint32_t iVendorID_ = 0;
    uint32_t iProductID_ = 0;
    uint32_t iRawProductID_ = 0;
    uint32_t iFirmwareVersion_ = 0;
    uint32_t iURFirmwareVersion_ = 0;
    uint32_t iInterfaceNum_ = 0;
    uint8_t iDeviceType_ = 0;
    uint32_t iAddress_ = 0;
    uint32_t iPrimaryUsage_ = 0;
    uint16_t iBatteryStatus_ = 0;
    Array zero_;
    String stringAddress_;
    String stringDevicePath_;
    String stringDevicePathBase_;
    String stringSerial_;
    String stringFWVersion_;
    String stringURSerial_;
    String stringURFWVersion_;
    String stringName_;
    String stringManufacturer_;
    bool isUniversal_ = false;
    bool isBusy_ = false;
    Array arrPairedDevices_;
    bool isFullyEnumerated_ = false;
    bool isOpen_ = false;
    [[maybe_unused]] uint16_t usage_ = 0;
    MoxelHIDDeviceRef refDevice_ = nullptr;
    bool baseConfigurationDone_ = false;
    uint16_t mainSpeed_ = 0;
    uint8_t translations_ = 0;
    uint8_t rotations_ = 0;
    uint8_t leds_ = 0xFF;
    uint8_t smartScroll_ = 0;
    Array arrButtonMap_;
    std::optional<Date> dateConnected_;
    uint8_t idxLastUsedSlot_ = 0;
};

} // namespace moxel
