#include "Moxel Daemon/Exports/ActionSets.h"

#include <algorithm>
#include <string_view>

namespace moxel::daemon {

namespace {

std::string textUnder(const Dictionary &dictionary, std::string_view key, const std::string &fallback) {
    const Value *value = dictionary.find(key);
    const std::string *text = value ? value->as<std::string>() : nullptr;
    return text ? *text : fallback;
}

std::string cut(const std::string &text) { return text.substr(0, ExportedAction::textLimit); }

/// Nesting is limited by the reader of the file.
void collect(const Dictionary &container, size_t limit, std::vector<ExportedAction> &actions) {
    for (const Entry &entry : container.entries()) {
        const auto *member = entry.value.as<Dictionary>();
        if (!member || actions.size() >= limit)
            continue;
        const std::string type = textUnder(*member, "type", "");
        if (type == "action")
            actions.push_back(
                {cut(textUnder(*member, "id", entry.key)), cut(textUnder(*member, "label", ""))});
        else if (type == "actioncategory" || type == "actionset")
            collect(*member, limit, actions);
    }
}

} // namespace

bool ActionSets::has(const std::string &setIdentifier) const {
    const Value *set = commands_.find(setIdentifier);
    return set && set->as<Dictionary>();
}

std::string ActionSets::activeSet() const { return textUnder(commands_, "activesetid", "Default"); }

size_t ActionSets::setCount() const {
    return static_cast<size_t>(
        std::count_if(commands_.entries().begin(), commands_.entries().end(),
                      [](const Entry &entry) { return entry.value.as<Dictionary>() != nullptr; }));
}

std::vector<ExportedAction> ActionSets::actionsOf(const std::string &setIdentifier, size_t limit) const {
    std::vector<ExportedAction> actions;
    const Value *set = commands_.find(setIdentifier);
    if (const auto *members = set ? set->as<Dictionary>() : nullptr)
        collect(*members, limit, actions);
    return actions;
}

} // namespace moxel::daemon
