// Application names in sandbox information, unit names and bundle layouts.
#include "Platform/Linux/ApplicationIdentity.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

TEST(ApplicationOfFlatpak, IsTheNameInTheApplicationGroup) {
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=org.example.Viewer\nruntime=runtime/x\n"),
              "org.example.Viewer");
    EXPECT_EQ(applicationOfFlatpak("[Instance]\nname=other\n\n[Application]\n# name=comment\n"
                                   "  runtime = r\n name = org.example.Viewer \r\n"),
              "org.example.Viewer");
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=org.example.NoNewline"), "org.example.NoNewline");
}

TEST(ApplicationOfFlatpak, IsAbsentInAnythingElse) {
    EXPECT_EQ(applicationOfFlatpak(""), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("name=org.example.Viewer\n"), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("[Runtime]\nname=org.example.Platform\n"), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=\n"), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=a\x01\n"), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=\xFF\n"), std::nullopt);
    EXPECT_EQ(applicationOfFlatpak("[Application]\nname=../etc\n"), std::nullopt);
}

TEST(ApplicationOfUnit, ScopeHasLauncherApplicationAndRandomPart) {
    EXPECT_EQ(applicationOfUnit("app-gnome-org.example.Viewer-4711.scope"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-KDE-org.example.Viewer-0af3.scope"), "org.example.Viewer");
}

TEST(ApplicationOfUnit, ScopeMayLackTheLauncher) {
    EXPECT_EQ(applicationOfUnit("app-org.example.Viewer-4711.scope"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-viewer-4711.scope"), "viewer");
}

TEST(ApplicationOfUnit, ScopeMayLackTheRandomPart) {
    EXPECT_EQ(applicationOfUnit("app-org.example.Viewer.scope"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-flatpak-org.example.Viewer.scope"), "org.example.Viewer");
}

TEST(ApplicationOfUnit, ServiceHasItsRandomPartBehindAnAtSign) {
    EXPECT_EQ(applicationOfUnit("app-org.example.Viewer.service"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-gnome-org.example.Viewer.service"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-gnome-org.example.Viewer@4711.service"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-org.example.Viewer@autostart.service"), "org.example.Viewer");
    EXPECT_EQ(applicationOfUnit("app-gnome-viewer@a-b-c.service"), "viewer");
}

TEST(ApplicationOfUnit, EscapesAreUndone) {
    EXPECT_EQ(applicationOfUnit("app-gnome-org.example.my\\x2dviewer-4711.scope"), "org.example.my-viewer");
    EXPECT_EQ(applicationOfUnit("app-org.example.my\\x2dviewer@1.service"), "org.example.my-viewer");
    EXPECT_EQ(applicationOfUnit("app-caf\\xc3\\xa9@1.service"), "caf\xC3\xA9");
}

TEST(ApplicationOfUnit, UnescapedDashesStayInTheApplication) {
    EXPECT_EQ(applicationOfUnit("app-gnome-my-viewer-4711.scope"), "my-viewer");
    EXPECT_EQ(applicationOfUnit("app-gnome-my-viewer@1.service"), "my-viewer");
}

TEST(ApplicationOfUnit, IsAbsentForOtherUnitsAndBrokenNames) {
    for (const char *unit :
         {"", "app-.scope", "app-", ".scope", "session-2.scope", "vte-spawn-1234.scope", "app.slice",
          "app-org.example.Viewer-1.slice", "application-x-1.scope", "app--1.scope", "app-gnome--1.scope",
          "app-a\\x2-1.scope", "app-a\\-1.scope", "app-a\\xzz@1.service", "app-a\\x00@1.service",
          "app-a\\x2fb@1.service", "app-\\xff@1.service", "app-a\\x0a@1.service", "app-@1.service"})
        EXPECT_EQ(applicationOfUnit(unit), std::nullopt) << unit;
}

TEST(BundlePath, IsTheBundleAroundAnExecutableInItsLayout) {
    EXPECT_EQ(bundlePathOf("/opt/Viewer.app/Contents/MacOS/viewer"), "/opt/Viewer.app");
    EXPECT_EQ(bundlePathOf("/opt/Viewer.app/Contents/Linux/viewer"), "/opt/Viewer.app");
    EXPECT_EQ(bundlePathOf("/opt/Helper.xpc/Contents/MacOS/helper"), "/opt/Helper.xpc");
}

TEST(BundlePath, IsTheInnermostBundle) {
    EXPECT_EQ(bundlePathOf("/Applications/Tool.app/Contents/Helpers/X.app/Contents/MacOS/x"),
              "/Applications/Tool.app/Contents/Helpers/X.app");
}

TEST(BundlePath, IsTheFolderOfAnyOtherExecutable) {
    EXPECT_EQ(bundlePathOf("/usr/bin/viewer"), "/usr/bin");
    EXPECT_EQ(bundlePathOf("/viewer"), "/");
    EXPECT_EQ(bundlePathOf("/opt/Viewer.app/Contents/Helpers/tool"), "/opt/Viewer.app/Contents/Helpers");
    EXPECT_EQ(bundlePathOf("/opt/Viewer/Contents/MacOS/viewer"), "/opt/Viewer/Contents/MacOS");
    EXPECT_EQ(bundlePathOf("/opt/.app/Contents/MacOS/viewer"), "/opt/.app/Contents/MacOS");
    EXPECT_EQ(bundlePathOf("/Contents/MacOS/viewer"), "/Contents/MacOS");
    EXPECT_EQ(bundlePathOf(""), "");
}

} // namespace
} // namespace moxel
