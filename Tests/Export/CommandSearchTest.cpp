// The search for actions by their labels.
#include "Export/ExportFile.h"
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/DeepValue.h"
#include "Support/PlistStore.h"
#include "Support/PropertyLists.h"
#include "Support/Sanitizers.h"

#include <Moxel/MxlPlistDictionaries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#if !MOXEL_UNDER_SANITIZERS
namespace {
thread_local size_t searchAllocations = 0;
} // namespace

void *operator new(std::size_t size) {
    ++searchAllocations;
    if (void *memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace moxel {
namespace {

using test::ExactText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Dictionary action(const char *label) { return {{"label", label}, {"type", "action"}}; }

// Two sets: "set" holds Open and, in the category "edit", Copy and Paste; "other" holds Close.
Dictionary commands() {
    const Dictionary edit{{"id", "edit-id"},          {"type", "actioncategory"}, {"copy", action("Copy")},
                          {"paste", action("Paste")}, {"label", "Edit"},          {"description", "Editing"}};
    const Dictionary set{{"id", "set-id"},         {"label", "Set"},         {"type", "actionset"},
                         {"open", action("Open")}, {"description", "A set"}, {"edit", edit}};
    const Dictionary other{
        {"id", "other-id"}, {"label", "Op"}, {"type", "actionset"}, {"close", action("Close")}};
    return {{"Commands", Dictionary{{"activesetid", "set"}, {"set", set}, {"other", other}}}};
}

class CommandSearching : public ::testing::Test {
  protected:
    Dictionary search(const String &text, const Dictionary &in, bool exact = false, bool single = false) {
        return store_->dictionaryForSearchStringFromDict(text, in, exact, single, &finds_);
    }

    test::PlistStore store_;
    uint16_t finds_ = 4711;
    test::CapturedLog log_; // one line for each action
};

TEST_F(CommandSearching, PartialSearchFindsWithinThePathOfReducedContainers) {
    EXPECT_EQ(ExactText::of(search("Op", commands())),
              R"({"Commands": {"set-id": {"open": {"label": "Open", "type": "action"}, )"
              R"("edit-id": {"copy": {"label": "Copy", "type": "action"}, )"
              R"("description": "Editing", "type": "actioncategory", "id": "edit-id", "label": "Edit"}, )"
              R"("description": "A set", "type": "actionset", "id": "set-id", "label": "Set"}}})");
    EXPECT_EQ(finds_, 2);
}

TEST_F(CommandSearching, SingleSearchYieldsTheFirstEntryAndCountsNothing) {
    EXPECT_EQ(ExactText::of(search("op", commands(), false, true)), R"({"label": "Open", "type": "action"})");
    EXPECT_EQ(finds_, 0);
    EXPECT_EQ(ExactText::of(search("paste", commands(), true, true)),
              R"({"label": "Paste", "type": "action"})");
    EXPECT_FALSE(search("nothing", commands(), false, true));
}

TEST_F(CommandSearching, ExactSearchTakesWholeLabels) {
    EXPECT_FALSE(search("Op", commands(), true));
    EXPECT_EQ(finds_, 0);
    EXPECT_EQ(ExactText::of(search("OPEN", commands(), true)),
              R"({"Commands": {"set-id": {"open": {"label": "Open", "type": "action"}, )"
              R"("description": "A set", "type": "actionset", "id": "set-id", "label": "Set"}}})");
    EXPECT_EQ(finds_, 1);
}

TEST_F(CommandSearching, TextWithCapitalsIsFoundByTheLowerCasingFormOnly) {
    uint16_t finds = 5;
    EXPECT_FALSE(store_->dictionaryForSearchStringInDict("Open", commands(), false, false, &finds));
    EXPECT_EQ(finds, 5);
    EXPECT_TRUE(store_->dictionaryForSearchStringInDict("open", commands(), false, false, &finds));
    EXPECT_EQ(finds, 6);
    EXPECT_TRUE(search("oPeN", commands()));
    EXPECT_EQ(finds_, 1);
}

TEST_F(CommandSearching, EveryScriptHasLowerCase) {
    EXPECT_TRUE(search("ОТКРЫТЬ", {{"a", action("Открыть файл")}}));
    EXPECT_TRUE(search("öffnen", {{"a", action("ÖFFNEN")}}, true));
    EXPECT_TRUE(search("開く", {{"a", action("ファイルを開く")}}));
}

TEST_F(CommandSearching, WithoutACounterTheLowerCasingFormFindsNothing) {
    EXPECT_FALSE(store_->dictionaryForSearchStringFromDict("open", commands(), false, false, nullptr));
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_TRUE(store_->dictionaryForSearchStringInDict("open", commands(), false, false, nullptr));
}

TEST_F(CommandSearching, NothingIsFoundInNothing) {
    EXPECT_FALSE(search("open", nullptr));
    EXPECT_FALSE(search("open", test::emptyDictionary()));
    EXPECT_FALSE(search(nullptr, commands()));
    EXPECT_FALSE(search("", commands()));
    EXPECT_FALSE(search("", {{"a", action("")}}));
    EXPECT_EQ(finds_, 0);
    EXPECT_TRUE(search("", {{"a", action("")}}, true));
}

TEST_F(CommandSearching, EachActionIsLogged) {
    (void)search("P", commands());
    EXPECT_THAT(log_.lines(), ElementsAre("Search open compare to p", "Search copy compare to p",
                                          "Search paste compare to p", "Search close compare to p"));
}

#if !MOXEL_UNDER_SANITIZERS
const test::ChildProgram searchWithoutLog("searchWithoutLog", [] {
    constexpr size_t count = 1000;
    test::PlistStore store;
    uint16_t finds = 0;
    MutableDictionary many = MutableDictionary::withCapacity(count);
    for (size_t number = 0; number < count; ++number)
        many.set(String("action " + std::to_string(number)), action("Save"));
    const size_t before = searchAllocations;
    EXPECT_FALSE(store->dictionaryForSearchStringFromDict("open", many, false, false, &finds));
    EXPECT_LT(searchAllocations - before, count * 3 / 2); // One for each action; a text would be another.
});

TEST(CommandSearchWithoutLog, MakesNoTextForEachAction) { searchWithoutLog.run({{"MOXEL_LOG", "off"}}); }
#endif

TEST_F(CommandSearching, FindsAreTheEntriesThemselves) {
    auto open = action("Open").mutableCopy();
    const Dictionary found = search("open", {{"a", open}});
    EXPECT_EQ(found["a"].node(), open.node());
}

TEST_F(CommandSearching, TopLevelActionsAndPlainValuesAreHandled) {
    EXPECT_EQ(ExactText::of(search("x", {{"text", "x"},
                                         {"list", Array{"x", action("x")}},
                                         {"a", action("x")},
                                         {"no label", Dictionary{{"type", "action"}}},
                                         {"odd label", Dictionary{{"type", "action"}, {"label", 7}}}})),
              R"({"a": {"label": "x", "type": "action"}})");
    EXPECT_EQ(finds_, 1);
}

TEST_F(CommandSearching, ContainerWithoutAnIdentifierKeepsItsKey) {
    EXPECT_EQ(ExactText::of(search("x", {{"key", Dictionary{{"type", "actionset"}, {"a", action("x")}}}})),
              R"({"key": {"a": {"label": "x", "type": "action"}, "type": "actionset"}})");
}

TEST_F(CommandSearching, CounterWrapsAtSixteenBits) {
    auto set = MutableDictionary::withCapacity(70'000);
    for (int i = 0; i < 70'000; ++i)
        set.set(std::to_string(i), action("x"));
    const Dictionary found = search("x", {{"s", set}});
    EXPECT_EQ(found["s"].asDictionary().size(), 70'000u);
    EXPECT_EQ(finds_, 70'000 - 65'536);
}

TEST_F(CommandSearching, ContainerThatHoldsItselfIsSearchedOnce) {
    auto set = MutableDictionary::withCapacity(2);
    set.set("a", action("x"));
    set.set("itself", set);
    const Dictionary found = search("x", {{"s", set}});
    EXPECT_EQ(finds_, 1);
    EXPECT_EQ(ExactText::of(found), R"({"s": {"a": {"label": "x", "type": "action"}}})");
    set.clear();
}

Value nested(size_t depth) {
    Value value = Dictionary{{"a", action("deep")}};
    for (size_t i = 0; i < depth; ++i)
        value = Dictionary{{"id", "c"}, {"type", "actioncategory"}, {"c", value}};
    return value;
}

TEST_F(CommandSearching, DepthHasNoLimit) {
    constexpr size_t depth = 100'000;
    const Dictionary root = nested(depth).asDictionary();
    EXPECT_EQ(search("deep", root, true, true)["label"].asString(), String("deep"));
    Value level = search("deep", root);
    EXPECT_EQ(finds_, 1);
    for (size_t i = 0; i < depth; ++i)
        level = level.asDictionary()["c"];
    EXPECT_EQ(ExactText::of(level), R"({"a": {"label": "deep", "type": "action"}})");
}

class LargeExports : public CommandSearching {
  protected:
    /// What was written as the application's commands, read back through the index.
    Dictionary exported(const Dictionary &commands) {
        const std::string path = store_.base("x/commands.plist");
        EXPECT_TRUE(makeExportFolder(store_.base("x")));
        const auto written = writeExportDictionary(path, Dictionary{{"Commands", commands}});
        EXPECT_TRUE(written) << written.error().message;
        const Dictionary client{{"name", "Viewer"}, {"commandsfile", path}};
        store_.writeList(store_.indexPath(), Dictionary{{"org.example.Viewer", Dictionary{{"1", client}}}});
        return store_->appExportedCommandsDictUsingPrefs(
            {{"bundleid", "org.example.Viewer"}, {"application", "Viewer"}});
    }
};

TEST_F(LargeExports, DeepTreesAreWrittenReadAndSearched) {
    const Dictionary commands = exported(nested(100'000).asDictionary());
    ASSERT_TRUE(commands);
    EXPECT_TRUE(search("deep", commands));
    EXPECT_EQ(finds_, 1);
}

TEST_F(LargeExports, WideSetsAreWrittenReadAndSearched) {
    auto set = MutableDictionary::withCapacity(100'001);
    set.set("type", "actionset");
    for (int i = 0; i < 100'000; ++i)
        set.set("org.example.ビューア." + std::to_string(i), action(("Label " + std::to_string(i)).c_str()));
    const Dictionary commands = exported({{"s", set}});
    ASSERT_TRUE(commands);
    EXPECT_TRUE(search("label 99999", commands, true));
    EXPECT_EQ(finds_, 1);
    EXPECT_EQ(store_->idForLabel("Label 50000", commands["s"].asDictionary()),
              String("org.example.ビューア.50000"));
}

TEST_F(LargeExports, FilesWhoseSharedPartsExpandWithoutMeasureAreNull) {
    Value value = action("x");
    for (int i = 0; i < 60; ++i)
        value = Dictionary{{"a", value}, {"b", value}};
    store_.writeList(store_.base("x/commands.plist"), Dictionary{{"Commands", value}},
                     PropertyListFormat::binary);
    const Dictionary client{{"name", "Viewer"}, {"commandsfile", store_.base("x/commands.plist")}};
    store_.writeList(store_.indexPath(), Dictionary{{"org.example.Viewer", Dictionary{{"1", client}}}});
    EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(
        {{"bundleid", "org.example.Viewer"}, {"application", "Viewer"}}));
}

} // namespace
} // namespace moxel
