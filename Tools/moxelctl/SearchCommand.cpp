// "moxelctl search": finds commands that applications have exported by their labels.
#include "Commands.h"
#include "Complaint.h"
#include "ExitCode.h"
#include "ExportedApplication.h"
#include "Output.h"
#include "QuotedText.h"
#include "Values/Format.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace moxel::tool {

namespace {

/// Categories within categories, as far as they are shown.
constexpr size_t searchDepthLimit = 32;

/// An action whose label is the one that was sought.
struct Find {
    std::string application;
    std::vector<std::string> way; ///< Labels of its set and its categories, then its own.
    std::string identifier;
};

void addFinds(std::vector<Find> &all, const Dictionary &finds, const Find &place) {
    for (const Dictionary::Entry &entry : finds.entries()) {
        const Dictionary found = entry.value.asDictionary();
        if (!found)
            continue;
        Find find = place;
        find.way.push_back(found["label"].asString().string());
        find.identifier = entry.key.view();
        if (found["type"].asString() == String("action"))
            all.push_back(std::move(find));
        else if (find.way.size() <= searchDepthLimit)
            addFinds(all, found, find);
    }
}

std::string row(const Find &find) {
    std::string text = quotedText(find.application) + ": ";
    for (const std::string &label : find.way)
        text += (&label == &find.way.front() ? "" : " > ") + quotedText(label);
    return text + "  " + quotedText(find.identifier) + "\n";
}

class SearchCommand final : public Command {
  public:
    SearchCommand() : Command("search", "Find exported commands by their labels") {}

    int run() override {
        if (!hasStore())
            return failure;
        const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
        std::vector<Find> all;
        for (const ExportedApplication &application : exportedApplications(filter_)) {
            uint16_t count = 0;
            const Dictionary finds = store->dictionaryForSearchStringFromDict(
                text_, store->appExportedCommandsDictUsingPrefs(application.preferences()), exact_, false,
                &count);
            addFinds(all, finds, {application.name, {}, {}});
        }
        if (!all.empty())
            return json_ ? showJson(all) : showText(all);
        complain("no command has such a label", "\"moxelctl commands\" shows all commands.");
        return failure;
    }

  private:
    [[nodiscard]] static int showText(const std::vector<Find> &all) {
        std::string rows;
        for (const Find &find : all)
            rows += row(find);
        return printResult(rows);
    }
    [[nodiscard]] static int showJson(const std::vector<Find> &all) {
        nlohmann::ordered_json rows;
        for (const Find &find : all)
            rows.push_back({{"application", find.application}, {"path", find.way}, {"id", find.identifier}});
        return printResult(rows.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }

    void describe(CLI::App &command) override {
        command.add_option("TEXT", text_, "Part of the label, in any case")->required()->type_name("");
        command.add_flag("--exact", exact_, "The text is the whole label");
        command
            .add_option("--bundle", filter_.bundleID,
                        "Only of applications whose bundle identifier contains this")
            ->type_name("BUNDLE");
        command.add_option("--application", filter_.name, "Only of applications of that name")
            ->type_name("NAME");
        command.add_flag("--json", json_, "Print a JSON array");
        command.footer(
            R"(
Prints a line for each command: application, set, categories, label and identifier. Exit code
1 when there is none.

Examples:
  moxelctl search copy
  moxelctl search --exact Open --application Viewer)");
    }

    std::string text_;
    ApplicationFilter filter_;
    bool exact_ = false;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeSearchCommand() { return std::make_unique<SearchCommand>(); }

} // namespace moxel::tool
