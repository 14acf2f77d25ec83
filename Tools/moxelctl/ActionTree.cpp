#include "ActionTree.h"

#include "JsonValue.h"
#include "QuotedText.h"
#include "Values/Dictionary.h"
#include "Values/PropertyList.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

namespace moxel::tool {

namespace {

/// Categories within categories.
constexpr size_t actionDepthLimit = 32;

/// Keys that the export files use for themselves.
constexpr std::array<std::string_view, 5> reserved{"id", "label", "description", "type", "activesetid"};

Error wrong(const std::string &place, const std::string &what) { return {place + ": " + what}; }

std::string placeOf(const std::string &list, size_t index) {
    return list + "[" + std::to_string(index) + "]";
}

/// JSON, or else a property list of any form.
Result<Value> readValue(std::span<const uint8_t> content) {
    const auto *first = std::ranges::find_if_not(content, [](uint8_t byte) { return byte <= ' '; }).base();
    const bool maybeJson = first != content.data() + content.size() && (*first == '{' || *first == '[');
    Result<Value> json = maybeJson ? valueFromJson(content) : Result<Value>(Error{});
    if (json.ok())
        return json;
    const Result<PropertyList> list = readPropertyList(content);
    if (list.ok())
        return list->root;
    return maybeJson ? json : Result<Value>(list.error());
}

/// What is wrong with a node's members; empty when nothing is.
std::string problemOf(const Dictionary &node, bool isSet) {
    const String identifier = node["id"].asString();
    if (!identifier || identifier.view().empty())
        return "it needs an \"id\"";
    if (std::ranges::find(reserved, identifier.view()) != reserved.end())
        return quotedText(identifier.view()) + " cannot be an \"id\"";
    for (const Dictionary::Entry &member : node.entries()) {
        const std::string_view key = member.key.view();
        const bool isText = key == "id" || key == "label" || key == "description" || key == "image";
        if (isText ? !member.value.asString() : key != "children")
            return isText ? quotedText(key) + " must be text" : "what is " + quotedText(key) + "?";
    }
    if (isSet && !node["children"])
        return "a set needs \"children\"";
    if (node["children"] && node["image"])
        return "only actions have an \"image\"";
    return {};
}

/// Depth first, as the driver does.
void collect(const MoxelCommandSyncNode_s *list, std::vector<NumberedAction> &actions) {
    for (; list; list = list->next) {
        if (list->type == kMoxelNodeAction)
            actions.push_back({list->id, list->label ? list->label : ""});
        else
            collect(list->children, actions);
    }
}

} // namespace

Result<ActionTree> ActionTree::read(std::span<const uint8_t> content) {
    const Result<Value> root = readValue(content);
    if (!root.ok())
        return root.error();
    const Dictionary dictionary = root->asDictionary();
    if (!dictionary["sets"].asArray() || dictionary["sets"].asArray().empty())
        return Error{"there must be action sets under \"sets\""};
    for (const Dictionary::Entry &member : dictionary.entries())
        if (member.key != String("sets") && member.key != String("active") &&
            member.key != String("settings"))
            return Error{"what is " + quotedText(member.key.view()) + "?"};
    ActionTree tree;
    if (const Result<Node *> sets = tree.addList(dictionary["sets"], "sets", 0); !sets.ok())
        return sets.error();
    if (Result<void> taken = tree.takeActive(dictionary["active"]); !taken.ok())
        return taken.error();
    if (Result<void> taken = tree.takeSettings(dictionary["settings"]); !taken.ok())
        return taken.error();
    return tree;
}

Result<ActionTree::Node *> ActionTree::addList(const Value &list, const std::string &place, size_t depth) {
    if (!list.asArray())
        return wrong(place, "must be a list");
    if (depth > actionDepthLimit)
        return wrong(place, "nested too deep");
    std::set<std::string_view> identifiers;
    Node *first = nullptr;
    Node *last = nullptr;
    for (size_t index = 0; index < list.asArray().size(); ++index) {
        const std::string nodePlace = placeOf(place, index);
        const Result<Node *> node = addNode(list.asArray()[index], nodePlace, depth);
        if (!node.ok())
            return node.error();
        if (!identifiers.insert((*node)->id).second)
            return wrong(nodePlace, quotedText((*node)->id) + " is there already");
        (last ? last->next : first) = *node;
        last = *node;
    }
    return first;
}

Result<ActionTree::Node *> ActionTree::addNode(const Value &value, const std::string &place, size_t depth) {
    const Dictionary members = value.asDictionary();
    if (!members)
        return wrong(place, "must be a dictionary");
    if (const std::string problem = problemOf(members, depth == 0); !problem.empty())
        return wrong(place, problem);
    Node &node = nodes_.emplace_back();
    node.type = depth == 0            ? kMoxelNodeActionSet
                : members["children"] ? kMoxelNodeActionCategory
                                      : kMoxelNodeAction;
    node.id = keep(members["id"].asString());
    node.label = keep(members["label"].asString());
    node.description = keep(members["description"].asString());
    if (members["image"]) {
        MoxelImage_s &image = images_.emplace_back();
        image.type = kMoxelImageFile;
        image.id = node.id;
        image.file = {keep(members["image"].asString()), 0};
    }
    if (members["children"]) {
        const Result<Node *> children = addList(members["children"], place + ".children", depth + 1);
        if (!children.ok())
            return children.error();
        node.children = *children;
    }
    return &node;
}

Result<void> ActionTree::takeActive(const Value &active) {
    active_ = active ? active.asString().string() : std::string(nodes_.front().id);
    for (const Node *set = sets(); set; set = set->next)
        if (set->id == active_)
            return {};
    return Error{"active: there is no such set"};
}

Result<void> ActionTree::takeSettings(const Value &settings) {
    if (settings && !settings.asDictionary())
        return Error{"settings: must be a dictionary"};
    for (const Dictionary::Entry &setting : settings.asDictionary().entries()) {
        if (!setting.value.asString())
            return Error{"settings: " + quotedText(setting.key.view()) + " must be text"};
        settings_.emplace_back(setting.key.string(), setting.value.asString().string());
    }
    return {};
}

const char *ActionTree::keep(const String &text) {
    return text ? texts_.emplace_back(text.view()).c_str() : nullptr;
}

size_t ActionTree::setCount() const {
    return static_cast<size_t>(std::ranges::count(nodes_, int32_t{kMoxelNodeActionSet}, &Node::type));
}

size_t ActionTree::actionCount() const {
    return static_cast<size_t>(std::ranges::count(nodes_, int32_t{kMoxelNodeAction}, &Node::type));
}

std::vector<NumberedAction> ActionTree::activeActions() const {
    std::vector<NumberedAction> actions;
    for (const Node *set = sets(); set; set = set->next)
        if (set->id == active_)
            collect(set->children, actions);
    return actions;
}

} // namespace moxel::tool
