#include "Moxel Daemon/Exports/ExportDesk.h"

#include "Moxel Daemon/Exports/ButtonActions.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

namespace moxel::daemon {

namespace {

/// Under which key the index notes the file; empty for requests that name none.
std::string pathKeyOf(ExportRequest::Kind kind) {
    switch (kind) {
    case ExportRequest::Kind::commands:
        return "commandsfile";
    case ExportRequest::Kind::images:
        return "imagesfile";
    case ExportRequest::Kind::settings:
        return "settingsfile";
    case ExportRequest::Kind::activeSet:
        break;
    }
    return {};
}

void useSet(const std::string &setIdentifier, const ActionSets &sets, ClientExports &exports) {
    exports.activeSet = setIdentifier;
    exports.actions = sets.actionsOf(setIdentifier, ButtonActions::buttonCount);
}

} // namespace

Result<void> ExportDesk::serve(const ApplicationRecord &application, const ExportRequest &request,
                               ClientExports &exports) const {
    if (!application.bundleID)
        return Error{"an export is refused: the application has no bundle identifier", 0};
    ClientExports result = exports;
    Result<void> taken;
    switch (request.kind) {
    case ExportRequest::Kind::commands:
        taken = takeCommands(request.argument, result);
        break;
    case ExportRequest::Kind::images:
        taken = takeImages(request.argument, result);
        break;
    case ExportRequest::Kind::settings:
        taken = takeSettings(request.argument, result);
        break;
    case ExportRequest::Kind::activeSet:
        taken = activate(request.argument, result);
        break;
    }
    if (!taken.ok())
        return taken;
    exports = std::move(result);
    if (request.kind == ExportRequest::Kind::activeSet)
        return {};
    return index_.note(application, pathKeyOf(request.kind), request.argument);
}

Result<void> ExportDesk::takeCommands(const std::string &path, ClientExports &exports) const {
    const Result<Dictionary> commands = readPart(path, "Commands");
    if (!commands.ok())
        return commands.error();
    const ActionSets sets(*commands);
    if (sets.activeSet().size() > identifierLimit)
        return Error{printableText(path) + " names an active set too long", 0};
    exports.commandsFile = path;
    useSet(sets.activeSet(), sets, exports);
    return {};
}

Result<void> ExportDesk::takeImages(const std::string &path, ClientExports &exports) const {
    const Result<Dictionary> images = readPart(path, "Images");
    if (!images.ok())
        return images.error();
    exports.imagesFile = path;
    exports.imageCount = images->size();
    return {};
}

Result<void> ExportDesk::takeSettings(const std::string &path, ClientExports &exports) const {
    const Result<Dictionary> settings = readDictionary(path);
    if (!settings.ok())
        return settings.error();
    exports.settingsFile = path;
    exports.settingCount = settings->size();
    return {};
}

/// The request tells the set; its actions are those of the commands file, which may come later. A set that is
/// not there is active all the same, without any action.
Result<void> ExportDesk::activate(const std::string &setIdentifier, ClientExports &exports) const {
    ActionSets sets;
    if (exports.commandsFile) {
        const Result<Dictionary> commands = readPart(*exports.commandsFile, "Commands");
        if (!commands.ok())
            return commands.error();
        sets = ActionSets(*commands);
        if (!sets.has(setIdentifier))
            logLine(LogLevel::error, "Error: " + printableText(*exports.commandsFile) +
                                         " has no action set \"" + printableText(setIdentifier) + '"');
    }
    useSet(setIdentifier, sets, exports);
    return {};
}

Result<Dictionary> ExportDesk::readDictionary(const std::string &path) const {
    Result<Value> file = folder_.read(path);
    if (!file.ok())
        return file.error();
    const auto *dictionary = file->as<Dictionary>();
    if (!dictionary)
        return Error{printableText(path) + " holds no dictionary", 0};
    return *dictionary;
}

Result<Dictionary> ExportDesk::readPart(const std::string &path, const std::string &key) const {
    const Result<Dictionary> file = readDictionary(path);
    if (!file.ok())
        return file.error();
    const Value *value = file->find(key);
    const auto *part = value ? value->as<Dictionary>() : nullptr;
    if (!part)
        return Error{printableText(path) + " has no " + key, 0};
    return *part;
}

} // namespace moxel::daemon
