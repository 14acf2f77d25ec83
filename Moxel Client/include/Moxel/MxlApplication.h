// The record that describes a registering application to the driver.
#pragma once

#include "MoxelBase.h"
#include "Values/KeyedArchive.h"
#include "Values/Value.h"

#include <array>
#include <mutex>
#include <string>

namespace moxel {

/// Every field is a number or a string, null until set; archived fields are decoded as whatever the archive
/// holds. Any thread: one field is read or written whole, several fields are not one step.
class MOXEL_EXPORT MxlApplication final : public Object {
  public:
    /// A record whose fields are null.
    MxlApplication() = default;

    /// A record of the archive's members; registered with the archives under the class's name.
    [[nodiscard]] static Ref<MxlApplication> initWithCoder(const KeyedDecoder &decoder);
    /// A new record of copies, but for `buttonMask`, which stays null.
    [[nodiscard]] Ref<MxlApplication> copyWithZone() const;

    /// The name in archives.
    [[nodiscard]] std::string className() const override { return "MxlApplication"; }
    /// Archives sixteen fields under their keys.
    void encodeWithCoder(KeyedEncoder &encoder) const override;
    /// A line with the fields, for logs.
    [[nodiscard]] std::string description() const override;

    /// Identifier that the driver assigned (16 bits); 0 before.
    [[nodiscard]] Value clientid() const { return get(Field::clientid); }
    void setClientid(Value value) { set(Field::clientid, std::move(value)); }
    /// Application name given at registration.
    [[nodiscard]] Value name() const { return get(Field::name); }
    void setName(Value value) { set(Field::name, std::move(value)); }
    /// File name of the executable.
    [[nodiscard]] Value appFileName() const { return get(Field::appFileName); }
    void setAppFileName(Value value) { set(Field::appFileName, std::move(value)); }
    /// Name that the client registered under.
    [[nodiscard]] Value clientName() const { return get(Field::clientName); }
    void setClientName(Value value) { set(Field::clientName, std::move(value)); }
    /// Bundle identifier, a text.
    [[nodiscard]] Value bundleid() const { return get(Field::bundleid); }
    void setBundleid(Value value) { set(Field::bundleid, std::move(value)); }
    /// Path of the executable.
    [[nodiscard]] Value executablePath() const { return get(Field::executablePath); }
    void setExecutablePath(Value value) { set(Field::executablePath, std::move(value)); }
    /// Path of the exported commands.
    [[nodiscard]] Value commandsFile() const { return get(Field::commandsFile); }
    void setCommandsFile(Value value) { set(Field::commandsFile, std::move(value)); }
    /// Path of the exported images.
    [[nodiscard]] Value imagesFile() const { return get(Field::imagesFile); }
    void setImagesFile(Value value) { set(Field::imagesFile, std::move(value)); }
    /// Path of the exported settings.
    [[nodiscard]] Value settingsFile() const { return get(Field::settingsFile); }
    void setSettingsFile(Value value) { set(Field::settingsFile, std::move(value)); }
    /// Application signature, 32 bits.
    [[nodiscard]] Value signature() const { return get(Field::signature); }
    void setSignature(Value value) { set(Field::signature, std::move(value)); }
    /// Process identifier, 32 bits.
    [[nodiscard]] Value processid() const { return get(Field::processid); }
    void setProcessid(Value value) { set(Field::processid, std::move(value)); }
    /// Client mode, 16 bits.
    [[nodiscard]] Value mode() const { return get(Field::mode); }
    void setMode(Value value) { set(Field::mode, std::move(value)); }
    /// Event mask, 32 bits.
    [[nodiscard]] Value mask() const { return get(Field::mask); }
    void setMask(Value value) { set(Field::mask, std::move(value)); }
    /// Button mask, 32 bits; null until one is set.
    [[nodiscard]] Value buttonMask() const { return get(Field::buttonMask); }
    void setButtonMask(Value value) { set(Field::buttonMask, std::move(value)); }
    /// Switches, 32 bits.
    [[nodiscard]] Value switches() const { return get(Field::switches); }
    void setSwitches(Value value) { set(Field::switches, std::move(value)); }
    /// The client's channel identifier, 64 bits.
    [[nodiscard]] Value channelID() const { return get(Field::channelID); }
    void setChannelID(Value value) { set(Field::channelID, std::move(value)); }

  private:
    /// All fields in their order of declaration; those without an accessor stay null.
    enum class Field : uint8_t {
        enabled,
        global,
        mainSpeed,
        dominant,
        translations,
        rotations,
        leds,
        smartScroll,
        forward,
        clientMask,
        buttonMask,
        mode,
        mask,
        switches,
        axisMaxAllowed,
        gammaCount,
        gammaMaxInput,
        gammaTable,
        clientid,
        name,
        appFileName,
        clientName,
        bundleid,
        executablePath,
        commandsFile,
        imagesFile,
        settingsFile,
        signature,
        processid,
        channelID,
        count,
    };
    struct ArchivedField {
        Field field;
        const char *key;
    };
    static const std::array<ArchivedField, 16> archivedFields;

    [[nodiscard]] Value get(Field field) const;
    void set(Field field, Value value);

    mutable std::mutex mutex_;
    std::array<Value, static_cast<size_t>(Field::count)> fields_;
};

} // namespace moxel
