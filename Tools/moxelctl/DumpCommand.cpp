// "moxelctl dump": shows a property list or a keyed archive.
#include "Commands.h"
#include "Complaint.h"
#include "ExitCode.h"
#include "InputFile.h"
#include "Output.h"
#include "ValueJson.h"
#include "ValueText.h"
#include "Values/Format.h"
#include "Values/KeyedArchive.h"
#include "Values/PropertyList.h"

namespace moxel::tool {

namespace {

/// Bytes shown of each data value, unless all are wanted.
constexpr size_t shownBytes = 256;

const char *formatName(PropertyListFormat format) {
    constexpr const char *names[] = {"binary property list", "XML property list", "old-style property list"};
    return names[static_cast<size_t>(format)];
}

bool isKeyedArchive(const Value &root) {
    const Dictionary dictionary = root.asDictionary();
    return dictionary["$archiver"].kind() == Kind::string && dictionary["$objects"].kind() == Kind::array &&
           dictionary["$top"].kind() == Kind::dictionary;
}

/// A lone object under "root" stands for itself.
Value withoutTop(const Dictionary &top) {
    return top.size() == 1 && top.contains("root") ? top["root"] : Value(top);
}

class DumpCommand final : public Command {
  public:
    DumpCommand() : Command("dump", "Show a property list or a keyed archive") {}

    int run() override {
        const Result<std::vector<uint8_t>> content = readInput(path_);
        if (!content.ok()) {
            complain(content.error().message);
            return failure;
        }
        const Result<PropertyList> list = readPropertyList(*content);
        if (!list.ok()) {
            complain(inputName(path_) + " is no property list: " + list.error().message);
            return failure;
        }
        if (raw_ || !isKeyedArchive(list->root))
            return show(list->root, formatName(list->format), content->size());
        const Result<Dictionary> top = unarchiveTopLevelObjects(*content);
        if (!top.ok()) {
            complain(inputName(path_) + ": " + top.error().message, "--raw shows its parts.");
            return failure;
        }
        return show(withoutTop(*top), format("keyed archive in a %s", formatName(list->format)),
                    content->size());
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("FILE", path_, "File to show (default: standard input)")->type_name("");
        command.add_flag("--json", json_, "Print JSON");
        command.add_flag("--raw", raw_, "Show a keyed archive as the property list that it is");
        command.add_flag("--full", full_, "Show all bytes of data, not only the first 256")
            ->excludes("--json");
        command.footer(
            R"(
Reads binary, XML and old-style property lists. Keyed archives are decoded; records show their
class and their members, whether the class is known or not. What stands in several places is
marked &N where it is shown and *N from then on.

In JSON, what JSON has no form for is an object: {"$data": HEX}, {"$date": TEXT, "$seconds":
SINCE_2001}, {"$uid": N}, {"$real": "nan"}, and a record {"$class": NAME, "$classes": [...],
"$members": {...}}.

Examples:
  moxelctl dump settings.plist
  moxelctl dump archive.plist --json | jq
  moxelctl dump --raw < archive.plist)");
    }

    [[nodiscard]] int show(const Value &value, const std::string &what, size_t size) const {
        if (!json_)
            return printResult(format("%s, %zu bytes\n", what, size) +
                               readableText(value, full_ ? allBytes : shownBytes));
        const Result<std::string> text = jsonText(value, JsonLayout::indented);
        if (text.ok())
            return printResult(*text + "\n");
        complain(inputName(path_) + ": " + text.error().message, "Without --json it is shown once.");
        return failure;
    }

    std::string path_ = "-";
    bool json_ = false;
    bool raw_ = false;
    bool full_ = false;
};

} // namespace

std::unique_ptr<Command> makeDumpCommand() { return std::make_unique<DumpCommand>(); }

} // namespace moxel::tool
