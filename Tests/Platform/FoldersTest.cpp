// The standard folders after the XDG base-directory rules.
#include "Platform/Folders.h"
#include "Platform/Accounts.h"
#include "Support/EnvironmentVariable.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace moxel {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;

TEST(UserLibraryFolder, IsTheConfigurationHome) {
    const EnvironmentVariable home("HOME", "/home/someone");
    const EnvironmentVariable configuration("XDG_CONFIG_HOME", "/elsewhere/config");
    EXPECT_EQ(userLibraryFolder(), "/elsewhere/config");
    configuration.set("/elsewhere/config//");
    EXPECT_EQ(userLibraryFolder(), "/elsewhere/config");
}

TEST(UserLibraryFolder, LiesInTheHomeByDefault) {
    const EnvironmentVariable home("HOME", "/home/someone");
    const EnvironmentVariable configuration("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(userLibraryFolder(), "/home/someone/.config");
    home.set("/home/someone/");
    EXPECT_EQ(userLibraryFolder(), "/home/someone/.config");
    home.set("/");
    EXPECT_EQ(userLibraryFolder(), "/.config");
}

TEST(UserLibraryFolder, RelativeConfigurationHomeIsIgnored) {
    const EnvironmentVariable home("HOME", "/home/someone");
    const EnvironmentVariable configuration("XDG_CONFIG_HOME", "config");
    EXPECT_EQ(userLibraryFolder(), "/home/someone/.config");
    configuration.set("");
    EXPECT_EQ(userLibraryFolder(), "/home/someone/.config");
}

TEST(UserLibraryFolder, HomeComesFromTheAccountWithoutAVariable) {
    const EnvironmentVariable configuration("XDG_CONFIG_HOME", std::nullopt);
    const EnvironmentVariable home("HOME", std::nullopt);
    const auto account = accountOf(::getuid());
    ASSERT_TRUE(account && account->home.starts_with('/'));
    EXPECT_EQ(userLibraryFolder(), account->home + "/.config");
    home.set("not/absolute");
    EXPECT_NE(userLibraryFolder(), "not/absolute/.config");
}

TEST(LocalApplicationSupportFolder, IsTheFirstThatHoldsTheDriversFiles) {
    const TemporaryFolder empty;
    const TemporaryFolder first;
    const TemporaryFolder second;
    first.write("Moxel/MxlWare/MxlCommands.plist");
    second.write("Moxel/MxlWare/MxlCommands.plist");
    const EnvironmentVariable folders("XDG_DATA_DIRS", "relative:" + empty.path() + "::" + first.path() +
                                                           "/:" + second.path());
    EXPECT_EQ(localApplicationSupportFolder(), first.path());
}

TEST(LocalApplicationSupportFolder, IsTheFirstAbsoluteOneOtherwise) {
    const TemporaryFolder first;
    const TemporaryFolder second;
    first.write("Moxel/MxlWare"); // a file is not what is looked for
    const EnvironmentVariable folders("XDG_DATA_DIRS", "relative:" + first.path() + ":" + second.path());
    EXPECT_EQ(localApplicationSupportFolder(), first.path());
}

TEST(LocalApplicationSupportFolder, HasADefault) {
    const EnvironmentVariable folders("XDG_DATA_DIRS", std::nullopt);
    const auto isDefault = [](const std::string &folder) {
        return folder == "/usr/local/share" || folder == "/usr/share";
    };
    EXPECT_TRUE(isDefault(localApplicationSupportFolder()));
    folders.set("");
    EXPECT_TRUE(isDefault(localApplicationSupportFolder()));
    folders.set("relative:also/relative");
    EXPECT_TRUE(isDefault(localApplicationSupportFolder()));
}

} // namespace
} // namespace moxel
