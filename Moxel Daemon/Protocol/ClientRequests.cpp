#include "Moxel Daemon/Protocol/ClientRequests.h"

#include "Moxel Daemon/Archive/KeyedArchiveReader.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace moxel::daemon {

namespace {

std::optional<std::string> text(const Dictionary &members, std::string_view key) {
    const Value *value = members.find(key);
    const std::string *string = value ? value->as<std::string>() : nullptr;
    return string ? std::optional(*string) : std::nullopt;
}

template <class Integer>
std::optional<Integer> number(const Dictionary &members, std::string_view key) {
    const Value *value = members.find(key);
    return value ? value->number<Integer>() : std::nullopt;
}

struct KnownRequest {
    std::string_view name;
    bool (*isWellFormed)(const Dictionary &request);
};

bool isExport(const Dictionary &request) { return exportRequest(request).has_value(); }

constexpr std::array knownRequests{
    KnownRequest{"regclient",
                 [](const Dictionary &request) { return registrationRequest(request).has_value(); }},
    KnownRequest{"setclientmasks",
                 [](const Dictionary &request) { return maskRequest(request).has_value(); }},
    KnownRequest{"moxclientctrl",
                 [](const Dictionary &request) { return controlRequest(request).has_value(); }},
    KnownRequest{"moxclientwrite", isExport},
    KnownRequest{"moxclientactset", isExport},
};

} // namespace

std::optional<ApplicationRecord> applicationRecord(const Value &value) {
    const auto *record = value.as<Record>();
    if (!record || record->className != "MxlApplication")
        return std::nullopt;
    const Dictionary &members = record->members;
    return ApplicationRecord{
        .clientID = number<uint16_t>(members, "clientid"),
        .name = text(members, "appname"),
        .applicationFileName = text(members, "appfilename"),
        .clientName = text(members, "clientname"),
        .bundleID = text(members, "bundleid"),
        .executablePath = text(members, "exepath"),
        .commandsFile = text(members, "commandsfile"),
        .imagesFile = text(members, "imagesfile"),
        .settingsFile = text(members, "settingsfile"),
        .signature = number<uint32_t>(members, "signature"),
        .processID = number<int32_t>(members, "processid"),
        .mode = number<uint16_t>(members, "mode"),
        .mask = number<uint32_t>(members, "mask"),
        .buttonMask = number<uint32_t>(members, "buttonmask"),
        .switches = number<uint32_t>(members, "switches"),
        .channelID = number<uint64_t>(members, "channelid"),
    };
}

std::optional<RegistrationRequest> registrationRequest(const Dictionary &request) {
    const Value *application = request.find("app");
    std::optional<ApplicationRecord> record = application ? applicationRecord(*application) : std::nullopt;
    const std::optional<int64_t> type = number<int64_t>(request, "type");
    if (!record || !type)
        return std::nullopt;
    return RegistrationRequest{std::move(*record), *type != 0};
}

std::optional<MaskRequest> maskRequest(const Dictionary &request) {
    const std::optional<uint8_t> setsEventMask = number<uint8_t>(request, "bsetmask");
    const std::optional<uint8_t> setsButtonMask = number<uint8_t>(request, "bsetbuttonmask");
    const std::optional<uint32_t> eventMask = number<uint32_t>(request, "clientmask");
    const std::optional<uint32_t> buttonMask = number<uint32_t>(request, "buttonmask");
    if (!setsEventMask || !setsButtonMask || !eventMask || !buttonMask)
        return std::nullopt;
    return MaskRequest{*setsEventMask != 0 ? eventMask : std::nullopt,
                       *setsButtonMask != 0 ? buttonMask : std::nullopt};
}

std::optional<ExportRequest> exportRequest(const Dictionary &request) {
    struct KnownExport {
        std::string_view request;
        std::string_view command;
        ExportRequest::Kind kind;
    };
    static constexpr std::array knownExports{
        KnownExport{"moxclientwrite", "cswritecommands", ExportRequest::Kind::commands},
        KnownExport{"moxclientwrite", "cswriteimgages", ExportRequest::Kind::images}, // Spelled so.
        KnownExport{"moxclientwrite", "cswritesettings", ExportRequest::Kind::settings},
        KnownExport{"moxclientactset", "csactiveset", ExportRequest::Kind::activeSet},
    };
    const std::optional<std::string> name = text(request, "req");
    const std::optional<std::string> command = text(request, "ctrlcmd");
    std::optional<std::string> argument = text(request, "ctrlparm");
    const auto *known =
        std::find_if(knownExports.begin(), knownExports.end(), [&](const KnownExport &candidate) {
            return name == candidate.request && command == candidate.command;
        });
    if (known == knownExports.end() || !argument)
        return std::nullopt;
    return ExportRequest{known->kind, std::move(*argument)};
}

std::optional<ControlRequest> controlRequest(const Dictionary &request) {
    const std::optional<uint32_t> code = number<uint32_t>(request, "message");
    const std::optional<uint32_t> parameter = number<uint32_t>(request, "ctrlparm");
    if (!code || !parameter)
        return std::nullopt;
    return ControlRequest{*code, static_cast<int32_t>(*parameter)};
}

ReceivedRequest readRequest(std::span<const uint8_t> block) {
    ReceivedRequest request;
    request.bytes.assign(block.begin(), block.end());
    const Result<Value> archive = readKeyedArchive(block);
    const Dictionary *dictionary = archive.ok() ? archive->as<Dictionary>() : nullptr;
    const std::optional<std::string> name = dictionary ? text(*dictionary, "req") : std::nullopt;
    const auto *known =
        std::find_if(knownRequests.begin(), knownRequests.end(),
                     [&name](const KnownRequest &candidate) { return name == candidate.name; });
    if (known == knownRequests.end() || !dictionary)
        return request;
    request.name = *name;
    request.dictionary = *dictionary;
    if (!known->isWellFormed(*dictionary))
        request.problem = "a member is missing or of another type";
    return request;
}

} // namespace moxel::daemon
