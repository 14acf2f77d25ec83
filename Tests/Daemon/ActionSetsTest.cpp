// Actions in a commands file, and the buttons that stand for them.
#include "Moxel Daemon/Exports/ActionSets.h"
#include "Moxel Daemon/Exports/ButtonActions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Events = std::vector<ActionEvent>;

Dictionary action(const std::string &identifier, const std::string &label) {
    return {{"id", identifier}, {"label", label}, {"description", ""}, {"type", "action"}};
}

Dictionary commands() {
    return {{"Edit", Dictionary{{"id", "Edit"},
                                {"label", "Editing"},
                                {"type", "actionset"},
                                {"copy", action("copy", "Copy")},
                                {"Clipboard", Dictionary{{"paste", action("paste", "Paste")},
                                                         {"More", Dictionary{{"cut", action("cut", "Cut")},
                                                                             {"type", "actioncategory"}}},
                                                         {"id", "Clipboard"},
                                                         {"type", "actioncategory"}}},
                                {"undo", action("undo", "Undo")}}},
            {"View", Dictionary{{"type", "actionset"}, {"zoom", action("zoom", "Zoom")}}},
            {"activesetid", "Edit"}};
}

TEST(DaemonActionSets, ActionsComeInTheOrderOfTheFile) {
    EXPECT_THAT(ActionSets(commands()).actionsOf("Edit", 32),
                ElementsAre(ExportedAction{"copy", "Copy"}, ExportedAction{"paste", "Paste"},
                            ExportedAction{"cut", "Cut"}, ExportedAction{"undo", "Undo"}));
    EXPECT_THAT(ActionSets(commands()).actionsOf("Edit", 2),
                ElementsAre(ExportedAction{"copy", "Copy"}, ExportedAction{"paste", "Paste"}));
}

TEST(DaemonActionSets, TheActiveSetIsTheOneThatTheFileNamesOrDefault) {
    EXPECT_EQ(ActionSets(commands()).activeSet(), "Edit");
    EXPECT_EQ(ActionSets(Dictionary{}).activeSet(), "Default");
    EXPECT_EQ(ActionSets(Dictionary{{"activesetid", 5}}).activeSet(), "Default");
}

TEST(DaemonActionSets, KnowsItsSets) {
    const ActionSets sets(commands());
    EXPECT_EQ(sets.setCount(), 2U);
    EXPECT_TRUE(sets.has("View"));
    EXPECT_FALSE(sets.has("None"));
    EXPECT_FALSE(sets.has("activesetid"));
    EXPECT_THAT(sets.actionsOf("None", 32), IsEmpty());
}

TEST(DaemonActionSets, WhatIsNoActionIsPassedOver) {
    const ActionSets sets(Dictionary{
        {"Set", Dictionary{{"text", "x"},
                           {"number", 5},
                           {"typeless", Dictionary{}},
                           {"strange", Dictionary{{"type", 7}}},
                           {"bare", Dictionary{{"type", "action"}}},
                           {"label", action("label", "An action in the place of the set's label")}}}});
    EXPECT_THAT(sets.actionsOf("Set", 32),
                ElementsAre(ExportedAction{"bare", ""},
                            ExportedAction{"label", "An action in the place of the set's label"}));
}

TEST(DaemonActionSets, LongTextsAreCut) {
    const ActionSets sets(Dictionary{{"Set", Dictionary{{"a", action("a", std::string(5000, 'x'))}}}});
    EXPECT_EQ(sets.actionsOf("Set", 32).at(0).label, std::string(1024, 'x'));
}

TEST(DaemonButtonActions, ButtonNStandsForActionN) {
    ButtonActions buttons;
    buttons.setActionCount(3);
    EXPECT_EQ(buttons.buttonsChanged(0b001), (Events{{1, true}}));
    EXPECT_EQ(buttons.buttonsChanged(0b111), (Events{{2, true}, {3, true}}));
    EXPECT_EQ(buttons.buttonsChanged(0b111), Events{});
    EXPECT_EQ(buttons.buttonsChanged(0b1010), (Events{{1, false}, {3, false}}));
    EXPECT_EQ(buttons.buttonsChanged(0), (Events{{2, false}}));
}

TEST(DaemonButtonActions, ReleasesComeBeforePresses) {
    ButtonActions buttons;
    buttons.setActionCount(2);
    EXPECT_EQ(buttons.buttonsChanged(0b10), (Events{{2, true}}));
    EXPECT_EQ(buttons.buttonsChanged(0b01), (Events{{2, false}, {1, true}}));
}

TEST(DaemonButtonActions, AllThirtyTwoButtonsCount) {
    ButtonActions buttons;
    buttons.setActionCount(1000);
    EXPECT_EQ(buttons.buttonsChanged(0xFFFFFFFF).size(), 32U);
    EXPECT_EQ(buttons.buttonsChanged(0x7FFFFFFF), (Events{{32, false}}));
}

TEST(DaemonButtonActions, AButtonThatIsDownReleasesWhatItPressed) {
    ButtonActions buttons;
    buttons.setActionCount(2);
    (void)buttons.buttonsChanged(0b10);
    buttons.setActionCount(0);
    EXPECT_EQ(buttons.buttonsChanged(0b11), Events{});
    EXPECT_EQ(buttons.buttonsChanged(0b01), (Events{{2, false}}));
    buttons.setActionCount(2);
    EXPECT_EQ(buttons.buttonsChanged(0b00), Events{}) << "nothing was pressed with this button";
}

} // namespace
} // namespace moxel::daemon
