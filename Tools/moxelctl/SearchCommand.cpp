// "moxelctl search": finds commands that applications have exported by their labels.
#include "Commands.h"
#include "Complaint.h"
#include "ExitCode.h"
#include "ExportedApplication.h"
#include "Output.h"
#include "QuotedText.h"
#include "Values/Format.h"
#include <Moxel/MxlPlistDictionaries.h>

namespace moxel::tool {

namespace {

/// Categories within categories, as far as they are shown.
constexpr size_t depthLimit = 32;

/// A row for each action: the way to it, its label and its identifier.
void addFinds(std::string &rows, const Dictionary &finds, const std::string &way, size_t depth) {
    for (const Dictionary::Entry &entry : finds.entries()) {
        const Dictionary found = entry.value.asDictionary();
        if (!found)
            continue;
        const std::string label = quotedText(found["label"].asString().view());
        if (found["type"].asString() == String("action"))
            rows += way + label + "  " + quotedText(entry.key.view()) + "\n";
        else if (depth < depthLimit)
            addFinds(rows, found, way + label + " > ", depth + 1);
    }
}

class SearchCommand final : public Command {
  public:
    SearchCommand() : Command("search", "Find exported commands by their labels") {}

    int run() override {
        if (!hasStore())
            return failure;
        const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
        std::string rows;
        for (const ExportedApplication &application : exportedApplications(filter_)) {
            uint16_t count = 0;
            const Dictionary finds = store->dictionaryForSearchStringFromDict(
                text_, store->appExportedCommandsDictUsingPrefs(application.preferences()), exact_, false,
                &count);
            addFinds(rows, finds, quotedText(application.name) + ": ", 0);
        }
        if (!rows.empty())
            return printResult(rows);
        complain("no command has such a label", "\"moxelctl commands\" shows all commands.");
        return failure;
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("TEXT", text_, "Part of the label, in any case")->required()->type_name("");
        command.add_flag("--exact", exact_, "The text is the whole label");
        command
            .add_option("--bundle", filter_.bundleID,
                        "Only of applications whose bundle identifier contains this")
            ->type_name("BUNDLE");
        command.add_option("--application", filter_.name, "Only of applications of that name")
            ->type_name("NAME");
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
};

} // namespace

std::unique_ptr<Command> makeSearchCommand() { return std::make_unique<SearchCommand>(); }

} // namespace moxel::tool
