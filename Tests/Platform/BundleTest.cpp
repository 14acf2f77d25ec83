// The main bundle of processes started from several places and by several launchers.
#include "Platform/Bundle.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sched.h>
#include <sys/stat.h>

namespace moxel {
namespace {

using test::ChildProcess;
using test::ChildProgram;
using test::TemporaryFolder;
namespace fs = std::filesystem;

constexpr const char *applicationGroup =
    "/user.slice/user-1000.slice/user@1000.service/app.slice/app-gnome-org.example.Launched-77.scope";

void tellBundle() {
    const MainBundle bundle = mainBundle();
    ChildProcess::tell(bundle.identifier.value_or("(none)"));
    ChildProcess::tell(bundle.path);
    ChildProcess::tell(bundle.executableName.value_or("(none)"));
    ChildProcess::tell(bundle.executablePath.value_or("(none)"));
}

MainBundle hearBundle(ChildProcess &child) {
    const auto hear = [&child]() -> std::optional<std::string> {
        std::string text = child.hear();
        if (text == "(none)")
            return std::nullopt;
        return text;
    };
    MainBundle bundle;
    bundle.identifier = hear();
    bundle.path = hear().value_or("");
    bundle.executableName = hear();
    bundle.executablePath = hear();
    return bundle;
}

const ChildProgram plainProgram("plainProgram", tellBundle);

/// Starts the test program as if it were installed at that place.
MainBundle bundleOf(const std::string &executable, const ChildProcess::Environment &environment = {}) {
    fs::create_directories(fs::path(executable).parent_path());
    fs::copy_file(ChildProgram::ownExecutable(), executable);
    auto child = plainProgram.start(environment, ChildProgram::Place::here, executable);
    return hearBundle(child);
}

TEST(MainBundle, NamesTheExecutable) {
    const TemporaryFolder folder;
    const MainBundle bundle = bundleOf(folder.path("bin/viewer"));
    EXPECT_EQ(bundle.path, folder.path("bin"));
    EXPECT_EQ(bundle.executableName, "viewer");
    EXPECT_EQ(bundle.executablePath, folder.path("bin/viewer"));
    EXPECT_TRUE(bundle.identifier.has_value());
}

TEST(MainBundle, ApplicationLayoutLeavesTheIdentifierToItsPropertyList) {
    const TemporaryFolder folder;
    folder.write("Viewer.app/Contents/Info.plist");
    const MainBundle bundle = bundleOf(folder.path("Viewer.app/Contents/MacOS/viewer"));
    EXPECT_EQ(bundle.identifier, std::nullopt);
    EXPECT_EQ(bundle.path, folder.path("Viewer.app"));
    EXPECT_EQ(bundle.executableName, "viewer");
}

TEST(MainBundle, HelperBundleLeavesTheIdentifierToTheEnclosingApplication) {
    const TemporaryFolder folder;
    folder.write("Tool.app/Contents/Info.plist");
    const MainBundle bundle = bundleOf(folder.path("Tool.app/Contents/Helpers/X.app/Contents/MacOS/x"));
    EXPECT_EQ(bundle.identifier, std::nullopt);
    EXPECT_EQ(bundle.path, folder.path("Tool.app/Contents/Helpers/X.app"));
}

TEST(MainBundle, HelperProgramLeavesTheIdentifierToTheEnclosingApplication) {
    const TemporaryFolder folder;
    folder.write("Tool.app/Contents/Info.plist");
    const MainBundle bundle = bundleOf(folder.path("Tool.app/Contents/Helpers/tool"));
    EXPECT_EQ(bundle.identifier, std::nullopt);
    EXPECT_EQ(bundle.path, folder.path("Tool.app/Contents/Helpers"));
}

TEST(MainBundle, LayoutWithoutPropertyListIsNamedLikeAnyProgram) {
    const TemporaryFolder folder;
    EXPECT_NE(bundleOf(folder.path("Viewer.app/Contents/MacOS/viewer")).identifier, std::nullopt);
}

TEST(MainBundle, SnapNamesWhatLiesInItsFolder) {
    const TemporaryFolder folder;
    const ChildProcess::Environment snap = {{"SNAP", folder.path("snap/viewer/7")},
                                            {"SNAP_NAME", "viewer"},
                                            {"SNAP_INSTANCE_NAME", "viewer_two"}};
    EXPECT_EQ(bundleOf(folder.path("snap/viewer/7/bin/program"), snap).identifier, "viewer_two");
    EXPECT_NE(bundleOf(folder.path("snap/viewer/70/program"), snap).identifier, "viewer_two");
    const ChildProcess::Environment older = {{"SNAP", folder.path("snap/viewer/7")},
                                             {"SNAP_NAME", "viewer"},
                                             {"SNAP_INSTANCE_NAME", std::nullopt}};
    EXPECT_EQ(bundleOf(folder.path("snap/viewer/7/bin/older"), older).identifier, "viewer");
}

const ChildProgram replacedProgram("replacedProgram", [] {
    fs::remove(ChildProgram::ownExecutable());
    tellBundle();
});

TEST(MainBundle, DeletedExecutableKeepsItsName) {
    const TemporaryFolder folder;
    const std::string executable = folder.path("viewer");
    fs::copy_file(ChildProgram::ownExecutable(), executable);
    auto child = replacedProgram.start({}, ChildProgram::Place::here, executable);
    const MainBundle bundle = hearBundle(child);
    EXPECT_EQ(bundle.executablePath, executable);
    EXPECT_EQ(bundle.executableName, "viewer");
}

TEST(MainBundle, ExecutableMayBeNamedLikeADeletedOne) {
    const TemporaryFolder folder;
    const MainBundle bundle = bundleOf(folder.path("viewer (deleted)"));
    EXPECT_EQ(bundle.executableName, "viewer (deleted)");
}

const ChildProgram launchedProgram("launchedProgram", [] {
    test::mountEmpty("/run");
    test::pretendControlGroup(applicationGroup);
    EXPECT_EQ(mainBundle().identifier, "org.example.Launched");
});

TEST(MainBundle, IsNamedAfterTheApplicationThatTheServiceManagerStarted) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    launchedProgram.run({}, ChildProgram::Place::ownNamespaces);
}

const ChildProgram shellProgram("shellProgram", [] {
    test::mountEmpty("/run");
    test::pretendControlGroup("/user.slice/user-1000.slice/session-2.scope");
    const MainBundle bundle = mainBundle();
    EXPECT_EQ(bundle.identifier, bundle.executableName);
});

TEST(MainBundle, IsNamedAfterTheExecutableOtherwise) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    shellProgram.run({}, ChildProgram::Place::ownNamespaces);
}

/// A root folder with everything of the machine's and a sandbox's information.
const ChildProgram sandboxedProgram("sandboxedProgram", [] {
    test::mountEmpty("/mnt");
    for (const auto &entry : fs::directory_iterator("/")) {
        const std::string place = "/mnt/" + entry.path().filename().string();
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), place);
        } else if (entry.is_directory() && entry.path() != "/mnt") {
            fs::create_directory(place);
            if (::mount(entry.path().c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
                ChildProgram::skip("cannot mount " + place);
        }
    }
    std::ofstream("/mnt/.flatpak-info") << "[Application]\nname=org.example.Sandboxed\n";
    ASSERT_EQ(::chroot("/mnt"), 0);
    EXPECT_EQ(mainBundle().identifier, "org.example.Sandboxed");
});

TEST(MainBundle, IsNamedAfterTheSandboxesApplicationFirst) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    sandboxedProgram.run({}, ChildProgram::Place::ownNamespaces);
}

} // namespace
} // namespace moxel
