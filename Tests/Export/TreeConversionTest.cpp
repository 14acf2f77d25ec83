// Action trees as dictionaries.
#include <Moxel/MxlActionInterfaceDictConvert.h>

#include "Support/CapturedLog.h"
#include "Support/DeepValue.h"
#include "Support/PlistJSON.h"
#include "Support/PropertyLists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <string>
#include <vector>

namespace moxel {
namespace {

using test::ExactText;
using Node = MoxelCommandSyncNode_s;

/// Owns the nodes and strings of a tree, as an application does.
class Tree {
  public:
    Node *set(const char *id, std::vector<Node *> children = {}) {
        return add(kMoxelNodeActionSet, id, linked(children));
    }
    Node *category(const char *id, std::vector<Node *> children = {}) {
        return add(kMoxelNodeActionCategory, id, linked(children));
    }
    Node *action(const char *id, const char *label = "L", const char *description = "D") {
        Node *node = add(kMoxelNodeAction, id, nullptr);
        node->label = label;
        node->description = description;
        return node;
    }
    Node *add(int32_t type, const char *id, Node *children) {
        return &nodes_.emplace_back(Node{0xDECAFBAD, type, nullptr, children, id, "L", "D"});
    }
    const char *text(std::string text) { return texts_.emplace_back(std::move(text)).c_str(); }

    /// Makes siblings of the nodes; the first one, or null.
    static Node *linked(const std::vector<Node *> &nodes) {
        for (size_t i = 1; i < nodes.size(); ++i)
            nodes[i - 1]->next = nodes[i];
        return nodes.empty() ? nullptr : nodes.front();
    }

  private:
    std::deque<Node> nodes_;
    std::deque<std::string> texts_;
};

MxlActionInterfaceDictConvert &converter() {
    return *MxlActionInterfaceDictConvert::sharedDefaultDictionaries();
}

/// What the converter puts under "Commands".
Dictionary commandsOf(const Node *list) {
    const MutableDictionary target = MutableDictionary::withCapacity(0);
    const Result<void> generated = converter().genCommandsDict(target, list);
    EXPECT_TRUE(generated) << generated.error().message;
    EXPECT_EQ(target.size(), 1U);
    return target["Commands"].asDictionary();
}

std::string textOf(const Node *list) { return ExactText::of(commandsOf(list)); }

std::string errorOf(const Node *list) {
    const MutableDictionary target = MutableDictionary::withCapacity(0);
    const Result<void> generated = converter().genCommandsDict(target, list);
    EXPECT_FALSE(target.contains("Commands"));
    return generated ? "" : generated.error().message;
}

// ------------------------------------------------------------------------------------------------ Entries

TEST(TreeConversion, ActionHasFourKeys) {
    Tree tree;
    EXPECT_EQ(textOf(tree.action("cut", "Cut", "Cuts the selection")),
              R"({"cut": {"id": "cut", "label": "Cut", "description": "Cuts the selection", )"
              R"("type": "action"}})");
}

TEST(TreeConversion, NullLabelAndDescriptionOfAnActionAreEmptyStrings) {
    Tree tree;
    EXPECT_EQ(textOf(tree.action("cut", nullptr, nullptr)),
              R"({"cut": {"id": "cut", "label": "", "description": "", "type": "action"}})");
}

TEST(TreeConversion, NullLabelAndDescriptionOfContainersAreEmptyStrings) {
    Tree tree;
    Node *category = tree.category("c");
    Node *set = tree.set("s", {category});
    for (Node *node : {category, set})
        node->label = node->description = nullptr;
    EXPECT_EQ(textOf(set), R"({"s": {"id": "s", "label": "", "description": "", "type": "actionset", )"
                           R"("c": {"id": "c", "label": "", "description": "", "type": "actioncategory"}}})");
}

TEST(TreeConversion, ActionSetWithoutChildrenHasFourKeys) {
    Tree tree;
    EXPECT_EQ(textOf(tree.set("s")),
              R"({"s": {"id": "s", "label": "L", "description": "D", "type": "actionset"}})");
}

TEST(TreeConversion, CategoryWithoutChildrenHasFourKeys) {
    Tree tree;
    EXPECT_EQ(textOf(tree.category("c")),
              R"({"c": {"id": "c", "label": "L", "description": "D", "type": "actioncategory"}})");
}

TEST(TreeConversion, EveryOtherTypeIsAnAction) {
    for (const int32_t type : {2, 3, -1, INT_MAX, INT_MIN}) {
        Tree tree;
        EXPECT_EQ(textOf(tree.add(type, "a", nullptr)),
                  R"({"a": {"id": "a", "label": "L", "description": "D", "type": "action"}})")
            << type;
    }
}

TEST(TreeConversion, ChildrenOfAnActionAreNotRead) {
    Tree tree;
    Node *child = tree.action(nullptr);
    child->next = child;
    EXPECT_EQ(textOf(tree.add(kMoxelNodeAction, "a", child)),
              R"({"a": {"id": "a", "label": "L", "description": "D", "type": "action"}})");
}

TEST(TreeConversion, MembersStandInTheOrderOfTheLists) {
    Tree tree;
    Node *set = tree.set(
        "s", {tree.action("b"), tree.category("c", {tree.action("z"), tree.action("y")}), tree.action("a")});
    EXPECT_EQ(textOf(Tree::linked({set, tree.set("r")})),
              R"({"s": {"id": "s", "label": "L", "description": "D", "type": "actionset", )"
              R"("b": {"id": "b", "label": "L", "description": "D", "type": "action"}, )"
              R"("c": {"z": {"id": "z", "label": "L", "description": "D", "type": "action"}, )"
              R"("y": {"id": "y", "label": "L", "description": "D", "type": "action"}, )"
              R"("id": "c", "label": "L", "description": "D", "type": "actioncategory"}, )"
              R"("a": {"id": "a", "label": "L", "description": "D", "type": "action"}}, )"
              R"("r": {"id": "r", "label": "L", "description": "D", "type": "actionset"}})");
}

TEST(TreeConversion, EveryDictionaryIsMutable) {
    Tree tree;
    const Dictionary commands = commandsOf(tree.set("s", {tree.category("c", {tree.action("a")})}));
    const Dictionary set = commands["s"].asDictionary();
    const Dictionary category = set["c"].asDictionary();
    for (const Dictionary &dictionary : {commands, set, category, category["a"].asDictionary()})
        EXPECT_TRUE(dictionary.isMutable());
}

// ------------------------------------------------------------------------------------------------ Equal keys

TEST(TreeConversion, SecondOfTwoSiblingsWithOneIdentifierRemains) {
    Tree tree;
    EXPECT_EQ(
        textOf(tree.set("s", {tree.action("a", "first"), tree.action("b"), tree.action("a", "second")})),
        R"({"s": {"id": "s", "label": "L", "description": "D", "type": "actionset", )"
        R"("a": {"id": "a", "label": "second", "description": "D", "type": "action"}, )"
        R"("b": {"id": "b", "label": "L", "description": "D", "type": "action"}}})");
}

TEST(TreeConversion, SecondOfTwoSetsWithOneIdentifierRemainsWithItsOwnChildren) {
    Tree tree;
    EXPECT_EQ(textOf(Tree::linked({tree.set("s", {tree.action("a")}), tree.set("s", {tree.action("b")})})),
              R"({"s": {"id": "s", "label": "L", "description": "D", "type": "actionset", )"
              R"("b": {"id": "b", "label": "L", "description": "D", "type": "action"}}})");
}

TEST(TreeConversion, SameIdentifierInTwoCategoriesStandsInBoth) {
    Tree tree;
    const Dictionary commands = commandsOf(Tree::linked(
        {tree.category("c", {tree.action("a", "1")}), tree.category("d", {tree.action("a", "2")})}));
    EXPECT_EQ(commands["c"].asDictionary()["a"].asDictionary()["label"], Value("1"));
    EXPECT_EQ(commands["d"].asDictionary()["a"].asDictionary()["label"], Value("2"));
}

TEST(TreeConversion, LabelOfACategoryOverwritesItsChildCalledLabel) {
    Tree tree;
    EXPECT_EQ(textOf(tree.category("c", {tree.action("label"), tree.action("a")})),
              R"({"c": {"label": "L", )"
              R"("a": {"id": "a", "label": "L", "description": "D", "type": "action"}, )"
              R"("id": "c", "description": "D", "type": "actioncategory"}})");
}

TEST(TreeConversion, ChildOfAnActionSetCalledLabelReplacesItsLabel) {
    Tree tree;
    EXPECT_EQ(textOf(tree.set("s", {tree.action("label")})),
              R"({"s": {"id": "s", )"
              R"("label": {"id": "label", "label": "L", "description": "D", "type": "action"}, )"
              R"("description": "D", "type": "actionset"}})");
}

TEST(TreeConversion, EveryAttributeOfACategoryOverwritesAChildOfItsName) {
    for (const char *name : {"id", "label", "description", "type"}) {
        Tree tree;
        const Dictionary entry =
            commandsOf(tree.category("c", {tree.set(name, {tree.action("a")})}))["c"].asDictionary();
        EXPECT_EQ(entry.size(), 4U);
        EXPECT_EQ(entry[name].kind(), Kind::string) << name;
    }
}

TEST(TreeConversion, ChildOfAnActionSetReplacesEveryAttributeOfItsName) {
    for (const char *name : {"id", "label", "description", "type"}) {
        Tree tree;
        const Dictionary entry =
            commandsOf(tree.set("s", {tree.category(name, {tree.action("a")})}))["s"].asDictionary();
        EXPECT_EQ(entry.size(), 4U);
        EXPECT_EQ(entry[name].asDictionary()["type"], Value("actioncategory")) << name;
    }
}

// ------------------------------------------------------------------------------------------------ Targets

TEST(TreeConversion, CommandsOfTheTargetAreReplacedAndTheRestKept) {
    Tree tree;
    MutableDictionary target = MutableDictionary::withCapacity(0);
    target.set("activesetid", "s");
    target.set("Commands", Dictionary{{"old", "x"}});
    ASSERT_TRUE(converter().genCommandsDict(target, tree.action("a")));
    EXPECT_EQ(ExactText::of(target),
              R"({"activesetid": "s", )"
              R"("Commands": {"a": {"id": "a", "label": "L", "description": "D", "type": "action"}}})");
}

TEST(TreeConversion, NullListGivesEmptyCommands) { EXPECT_EQ(textOf(nullptr), "{}"); }

TEST(TreeConversion, WalkAddsToWhatTheDictionaryHolds) {
    Tree tree;
    MutableDictionary parent = MutableDictionary::withCapacity(0);
    parent.set("x", 1);
    parent.set("a", 2);
    ASSERT_TRUE(converter().treeWalk(tree.action("a"), parent));
    EXPECT_EQ(ExactText::of(parent),
              R"({"x": 1, "a": {"id": "a", "label": "L", "description": "D", "type": "action"}})");
}

TEST(TreeConversion, WalkWithoutAListOrADictionaryDoesNothing) {
    Tree tree;
    MutableDictionary parent = MutableDictionary::withCapacity(0);
    EXPECT_TRUE(converter().treeWalk(nullptr, parent));
    EXPECT_TRUE(parent.empty());
    EXPECT_TRUE(converter().treeWalk(tree.action(nullptr), {}));
}

TEST(TreeConversion, NothingOfTheTreeIsChangedOrKept) {
    MutableDictionary target = MutableDictionary::withCapacity(0);
    {
        Tree tree;
        Node *child = tree.action(tree.text("child"), tree.text("label"), tree.text("description"));
        Node *set = tree.set(tree.text("set"), {child});
        ASSERT_TRUE(converter().genCommandsDict(target, set));
        EXPECT_EQ(set->tag, 0xDECAFBADU);
        EXPECT_EQ(set->children, child);
    }
    EXPECT_EQ(ExactText::of(target),
              R"({"Commands": {"set": {"id": "set", "label": "L", "description": "D", "type": "actionset", )"
              R"("child": {"id": "child", "label": "label", "description": "description", )"
              R"("type": "action"}}}})");
}

// ------------------------------------------------------------------------------------------------ Refusals

TEST(TreeConversion, NullIdentifierIsRefusedAtEveryPlace) {
    Tree tree;
    EXPECT_EQ(errorOf(tree.action(nullptr)), "Node 1 of the action tree has no identifier");
    EXPECT_EQ(errorOf(tree.set(nullptr)), "Node 1 of the action tree has no identifier");
    EXPECT_EQ(errorOf(Tree::linked({tree.set("s", {tree.action("a")}), tree.category(nullptr)})),
              "Node 3 of the action tree has no identifier");
    EXPECT_EQ(errorOf(tree.set("s", {tree.category("c", {tree.action("a"), tree.action(nullptr)})})),
              "Node 4 of the action tree has no identifier");
}

TEST(TreeConversion, RefusedTreeLeavesTheTargetAsItWas) {
    Tree tree;
    MutableDictionary target = MutableDictionary::withCapacity(0);
    target.set("Commands", Dictionary{{"old", "x"}});
    const Node *list = Tree::linked({tree.set("s"), tree.set(nullptr)});
    const test::CapturedLog log;
    EXPECT_FALSE(converter().genCommandsDict(target, list));
    EXPECT_FALSE(converter().treeWalk(list, target));
    EXPECT_EQ(ExactText::of(target), R"({"Commands": {"old": "x"}})");
    EXPECT_TRUE(log.lines().empty());
}

TEST(TreeConversion, EmptyIdentifierIsAKey) {
    Tree tree;
    EXPECT_EQ(textOf(tree.action("")),
              R"({"": {"id": "", "label": "L", "description": "D", "type": "action"}})");
}

TEST(TreeConversion, TreeThatHoldsItselfIsRefused) {
    const std::string error = "The action tree holds itself, or more than 4194304 nodes";
    Tree tree;
    Node *ring = tree.action("a");
    ring->next = ring;
    EXPECT_EQ(errorOf(ring), error);
    Node *set = tree.set("s");
    set->children = set;
    EXPECT_EQ(errorOf(set), error);
    Node *lower = tree.category("lower");
    Node *upper = tree.category("upper", {lower, tree.action("last")});
    lower->children = upper;
    EXPECT_EQ(errorOf(upper), error);
}

TEST(TreeConversion, SharedPartsThatExpandWithoutMeasureAreRefused) {
    Tree tree;
    Node *shared = tree.action("leaf");
    for (int level = 0; level < 40; ++level)
        shared = Tree::linked({tree.category("left", {shared}), tree.category("right", {shared})});
    EXPECT_EQ(errorOf(shared), "The action tree holds itself, or more than 4194304 nodes");
}

TEST(TreeConversion, SharedPartsStandInEveryPlace) {
    Tree tree;
    Node *shared = tree.action("leaf");
    const Dictionary commands =
        commandsOf(Tree::linked({tree.category("c", {shared}), tree.category("d", {shared})}));
    EXPECT_TRUE(commands["c"].asDictionary().contains("leaf"));
    EXPECT_TRUE(commands["d"].asDictionary().contains("leaf"));
}

// ------------------------------------------------------------------------------------------------ Size

TEST(TreeConversion, HundredThousandLevels) {
    constexpr size_t levels = 100'000;
    Tree tree;
    Node *node = tree.action("n");
    for (size_t i = 1; i < levels; ++i) {
        node = i % 2 == 0 ? tree.set("n", {node}) : tree.category("n", {node});
        node->next = i % 3 == 0 ? tree.action("sibling") : nullptr;
    }
    const Value read = [&] {
        const Data bytes = test::binaryOf(commandsOf(node));
        const Result<PropertyList> list = readPropertyList(bytes.bytes());
        return list ? list->root : Value();
    }();
    size_t depth = 0;
    for (Dictionary entry = read.asDictionary(); entry.contains("n"); ++depth)
        entry = entry["n"].asDictionary();
    EXPECT_EQ(depth, levels);
}

TEST(TreeConversion, HundredThousandSiblings) {
    constexpr size_t count = 100'000;
    Tree tree;
    std::vector<Node *> actions;
    for (size_t i = 0; i < count; ++i)
        actions.push_back(tree.action(tree.text("action " + std::to_string(i))));
    const Dictionary entry = commandsOf(tree.set("s", actions))["s"].asDictionary();
    ASSERT_EQ(entry.size(), count + 4);
    EXPECT_EQ(entry["action 99999"].asDictionary()["id"], Value("action 99999"));
    EXPECT_EQ(entry.entries()[4 + 77'777].key, String("action 77777"));
}

TEST(TreeConversion, TextsOfAMegabyte) {
    Tree tree;
    const std::string text(size_t{1} << 20, 'x');
    const Dictionary commands = commandsOf(tree.action(tree.text(text), tree.text(text), tree.text(text)));
    const Dictionary entry = commands[text].asDictionary();
    EXPECT_EQ(entry["label"], Value(text));
    EXPECT_EQ(entry["description"], Value(text));
}

// ------------------------------------------------------------------------------------------------ Text

TEST(TreeConversion, TextInEveryScriptIsReadByPlistlib) {
    Tree tree;
    Node *action =
        tree.action("\u5207\u308a\u53d6\u308a \U0001F600", "\u0412\u044b\u0440\u0435\u0437\u0430\u0442\u044c",
                    "\u0642\u0635 / e\u0301 \"<&>\" \\ \n");
    const MutableDictionary target = MutableDictionary::withCapacity(0);
    ASSERT_TRUE(converter().genCommandsDict(
        target, tree.set("\u0395\u03bd\u03c4\u03bf\u03bb\u03ad\u03c2", {action})));
    const std::string expected =
        R"({"Commands": {"\u0395\u03bd\u03c4\u03bf\u03bb\u03ad\u03c2": {"description": "D", )"
        R"("id": "\u0395\u03bd\u03c4\u03bf\u03bb\u03ad\u03c2", "label": "L", "type": "actionset", )"
        R"("\u5207\u308a\u53d6\u308a \ud83d\ude00": )"
        R"({"description": "\u0642\u0635 / e\u0301 \"<&>\" \\ \n", )"
        R"("id": "\u5207\u308a\u53d6\u308a \ud83d\ude00", )"
        R"("label": "\u0412\u044b\u0440\u0435\u0437\u0430\u0442\u044c", "type": "action"}}}})";
    EXPECT_EQ(test::jsonViaBinary(target), expected);
    EXPECT_EQ(test::jsonViaXML(target), expected);
}

TEST(TreeConversion, IllFormedTextIsRepaired) {
    Tree tree;
    const MutableDictionary target = MutableDictionary::withCapacity(0);
    ASSERT_TRUE(converter().genCommandsDict(target, tree.action("a\xFFz", "\xC3", "\xED\xA0\x80")));
    EXPECT_EQ(test::jsonViaBinary(target),
              R"({"Commands": {"a\ufffdz": {"description": "\ufffd\ufffd\ufffd", "id": "a\ufffdz", )"
              R"("label": "\ufffd", "type": "action"}}})");
}

// ------------------------------------------------------------------------------------------------ Converter

TEST(ActionInterfaceDictConvert, OneIsShared) {
    const auto shared = MxlActionInterfaceDictConvert::sharedDefaultDictionaries();
    ASSERT_TRUE(shared);
    EXPECT_EQ(MxlActionInterfaceDictConvert::sharedDefaultDictionaries(), shared);
    EXPECT_EQ(shared->init(), shared);
}

TEST(ActionInterfaceDictConvert, AllocIsRefused) {
    const test::CapturedLog log;
    EXPECT_EQ(MxlActionInterfaceDictConvert::alloc(), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{
                               "MxlActionInterfaceDictConvert : Use +sharedInstance instead of +alloc"});
}

TEST(ActionInterfaceDictConvert, NewIsRefused) {
    const test::CapturedLog log;
    EXPECT_EQ(MxlActionInterfaceDictConvert::newInstance(), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{
                               "MxlActionInterfaceDictConvert : Use +sharedInstance instead of +alloc"});
}

TEST(ActionInterfaceDictConvert, CopiesAreTheConverterItself) {
    const auto shared = MxlActionInterfaceDictConvert::sharedDefaultDictionaries();
    EXPECT_EQ(shared->copyWithZone(), shared);
    EXPECT_EQ(shared->mutableCopyWithZone(), shared);
}

} // namespace
} // namespace moxel
