// "moxelctl commands": shows what applications have exported.
#include "Commands.h"
#include "Complaint.h"
#include "ExitCode.h"
#include "ExportedApplication.h"
#include "Output.h"
#include "Platform/LogText.h"
#include "QuotedText.h"
#include "ValueJson.h"
#include "Values/Format.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <algorithm>
#include <vector>

namespace moxel::tool {

namespace {

/// Categories within categories, as far as they are shown.
constexpr size_t commandDepthLimit = 32;

std::string text(const Value &value) { return quotedText(value.asString().view()); }

/// The members of a set or category with a row each, categories with their own below.
void addMembers(std::string &rows, const Dictionary &container, size_t depth) {
    for (const Dictionary::Entry &entry : container.entries()) {
        const Dictionary member = entry.value.asDictionary();
        if (!member)
            continue;
        rows += std::string(4 + 2 * depth, ' ') + quotedText(entry.key.view()) + "  " +
                text(member["label"]) + "\n";
        if (!(member["type"].asString() == String("action")) && depth < commandDepthLimit)
            addMembers(rows, member, depth + 1);
    }
}

std::string setRows(const Dictionary &commands, const String &active) {
    std::string rows;
    for (const Dictionary::Entry &entry : commands.entries()) {
        if (!entry.value.asDictionary())
            continue;
        rows += std::string(active == entry.key ? "  * " : "    ") + quotedText(entry.key.view()) + "  " +
                text(entry.value.asDictionary()["label"]) + "\n";
        addMembers(rows, entry.value.asDictionary(), 1);
    }
    return rows;
}

std::string imageRows(const Dictionary &images) {
    std::string rows;
    for (const Dictionary::Entry &entry : images.entries()) {
        const Dictionary image = entry.value.asDictionary();
        rows += "    " + quotedText(entry.key.view()) + "  " +
                printableText(image["imagetype"].asString().view());
        rows += image["path"] ? "  " + text(image["path"]) : std::string();
        rows += "\n";
    }
    return rows;
}

std::string settingRows(const Dictionary &settings) {
    std::string rows;
    for (const Dictionary::Entry &entry : settings.entries())
        if (entry.key != String("filepath"))
            rows +=
                "    " + quotedText(entry.key.view()) + "  " + quotedText(entry.value.description()) + "\n";
    return rows;
}

std::string section(const std::string &title, const std::string &rows) {
    return rows.empty() ? std::string() : "  " + title + "\n" + rows;
}

class CommandsCommand final : public Command {
  public:
    CommandsCommand()
        : Command("commands", "Show what applications have exported: commands, images, settings") {}

    int run() override {
        if (!hasStore())
            return failure;
        const std::vector<ExportedApplication> applications = exportedApplications(filter_);
        if (applications.empty()) {
            complain("no such application has exported anything",
                     "\"moxelctl commands\" shows all that have; \"moxelctl export\" exports.");
            return failure;
        }
        return json_ ? showJson(applications) : showText(applications);
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("BUNDLE", filter_.bundleID, "Part of the bundle identifier (default: all)")
            ->type_name("");
        command.add_option("--application", filter_.name, "Name of the application")->type_name("NAME");
        command.add_flag("--json", json_, "Print a JSON array");
        command.footer(
            R"(
Shows what the driver's index of applications names; the active set is marked *.

Examples:
  moxelctl commands
  moxelctl commands org.example.Viewer --json)");
    }

    [[nodiscard]] static int showText(const std::vector<ExportedApplication> &applications) {
        const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
        std::string rows;
        for (const ExportedApplication &application : applications) {
            const Dictionary preferences = application.preferences();
            rows += quotedText(application.name) + "  " + printableText(application.bundleID) + "\n";
            rows += section("commands", setRows(store->appExportedCommandsDictUsingPrefs(preferences),
                                                store->activeCommandSetIDForPrefs(preferences)));
            rows += section("images", imageRows(store->imageDictionaryForPrefs(preferences)));
            rows += section("settings", settingRows(store->navSettingsDictionaryForPrefs(preferences)));
        }
        return printResult(rows);
    }

    [[nodiscard]] static int showJson(const std::vector<ExportedApplication> &applications) {
        const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
        std::vector<Value> all;
        for (const ExportedApplication &application : applications) {
            const Dictionary preferences = application.preferences();
            all.emplace_back(Dictionary{{"bundle", application.bundleID},
                                        {"name", application.name},
                                        {"client", application.clientName},
                                        {"commands", store->appExportedCommandsDictUsingPrefs(preferences)},
                                        {"images", store->imageDictionaryForPrefs(preferences)},
                                        {"settings", store->navSettingsDictionaryForPrefs(preferences)}});
        }
        const Result<std::string> json = jsonText(Array(std::move(all)), JsonLayout::indented);
        if (json.ok())
            return printResult(*json + "\n");
        complain(json.error().message);
        return failure;
    }

    ApplicationFilter filter_;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeCommandsCommand() { return std::make_unique<CommandsCommand>(); }

} // namespace moxel::tool
