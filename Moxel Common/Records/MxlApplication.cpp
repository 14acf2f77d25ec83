#include <Moxel/MxlApplication.h>

#include "Values/Format.h"

namespace moxel {

namespace {

const bool registered = [] {
    registerArchiveClass("MxlApplication", [](const KeyedDecoder &decoder) -> Ref<Object> {
        return MxlApplication::initWithCoder(decoder);
    });
    return true;
}();

} // namespace

/// In the order in which they are archived.
const std::array<MxlApplication::ArchivedField, 16> MxlApplication::archivedFields = {{
    {Field::clientid, "clientid"},
    {Field::name, "appname"},
    {Field::appFileName, "appfilename"},
    {Field::clientName, "clientname"},
    {Field::bundleid, "bundleid"},
    {Field::executablePath, "exepath"},
    {Field::commandsFile, "commandsfile"},
    {Field::imagesFile, "imagesfile"},
    {Field::settingsFile, "settingsfile"},
    {Field::signature, "signature"},
    {Field::processid, "processid"},
    {Field::mode, "mode"},
    {Field::mask, "mask"},
    {Field::buttonMask, "buttonmask"},
    {Field::switches, "switches"},
    {Field::channelID, "channelid"},
}};

Value MxlApplication::get(Field field) const {
    const std::lock_guard lock(mutex_);
    return fields_[static_cast<size_t>(field)];
}

void MxlApplication::set(Field field, Value value) {
    const std::lock_guard lock(mutex_);
    std::swap(fields_[static_cast<size_t>(field)], value); // The old value goes after the lock.
}

void MxlApplication::encodeWithCoder(KeyedEncoder &encoder) const {
    for (const ArchivedField &archived : archivedFields) {
        if (const Value value = get(archived.field))
            encoder.encodeObject(value, archived.key);
    }
}

Ref<MxlApplication> MxlApplication::initWithCoder(const KeyedDecoder &decoder) {
    auto record = makeRef<MxlApplication>();
    for (const ArchivedField &archived : archivedFields)
        record->set(archived.field, decoder.decode(archived.key));
    return record;
}

Ref<MxlApplication> MxlApplication::copyWithZone() const {
    auto copy = makeRef<MxlApplication>();
    copy->setClientid(clientid());
    copy->setName(name());
    copy->setAppFileName(appFileName());
    copy->setClientName(clientName());
    copy->setBundleid(bundleid());
    copy->setExecutablePath(executablePath());
    copy->setCommandsFile(commandsFile());
    copy->setImagesFile(imagesFile());
    copy->setSettingsFile(settingsFile());
    copy->setSignature(signature());
    copy->setProcessid(processid());
    copy->setMode(mode());
    copy->setMask(mask());
    // A second time, where the button mask would be expected: copies have none.
    copy->setBundleid(bundleid());
    copy->setSwitches(switches());
    copy->setChannelID(channelID());
    return copy;
}

std::string MxlApplication::description() const {
    return format("<%@:%p   \n appName = %@;\n clientid = %i;\n signature = %i;\n bundleid = %@;\n"
                  " executablePath = %@;\n appFileName = %@;\n clientName = %@;\n mode = %lx;\n mask = %lx;\n"
                  " buttonMask = %lx;\n switches = %lx;\n processid = %lx\n\n channelID=%@>\n",
                  className(), static_cast<const void *>(this), name(), clientid().int32Value(),
                  signature().int32Value(), bundleid(), executablePath(), appFileName(), clientName(),
                  mode().int64Value(), mask().int64Value(), buttonMask().int64Value(),
                  switches().int64Value(), processid().int64Value(), channelID());
}

} // namespace moxel
