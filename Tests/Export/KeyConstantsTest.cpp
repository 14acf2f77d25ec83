// The exported words, letter by letter.
#include <Moxel/MoxelKeys.h>

#include <gtest/gtest.h>

namespace {

// clang-format off
TEST(KeyConstants, HaveTheDriversTexts) {
    EXPECT_STREQ(kStrImageDataSubfolder, "imagedata");
    EXPECT_STREQ(kMxMappingKeyFormat, "%02d");
    EXPECT_STREQ(kMxRadialMenuKeyFormat, "%d");
    EXPECT_STREQ(kMxMappingDescFormat, "%02d-%02d");
    EXPECT_STREQ(kMxExportFileType, "mvx");
    EXPECT_STREQ(kMxPlistFileType, "plist");
    EXPECT_STREQ(kMxAppFileType, "app");
    EXPECT_STREQ(kMxWebAppSettingsName, "Web Applications");
    EXPECT_STREQ(kMxKeyRequest, "req");
    EXPECT_STREQ(kMxKeyRequestPrefsUpdate, "updateprefs");
    EXPECT_STREQ(kMxKeyRequestCheckUpdate, "updateavailable");
    EXPECT_STREQ(kMxKeyRequestCalibrate, "calibrate");
    EXPECT_STREQ(kMxKeyRequestUnCalibrate, "uncalibrate");
    EXPECT_STREQ(kMxKeyRequestConnDevs, "connected");
    EXPECT_STREQ(kMxKeyOptions, "options");
    EXPECT_STREQ(kMxKeyAxisMax, "axisMax");
    EXPECT_STREQ(kMxKeyLeds, "leds");
    EXPECT_STREQ(kMxKeyCheckForUpdate, "checkforupdate");
    EXPECT_STREQ(kMxKeyMobileEnabled, "mobile");
    EXPECT_STREQ(kMxKeyMobileServer, "server");
    EXPECT_STREQ(kMxKeyMobilePassword, "password");
    EXPECT_STREQ(kMxKeySettings, "settings");
    EXPECT_STREQ(kMxKeyEnabled, "enabled");
    EXPECT_STREQ(kMxKeyName, "name");
    EXPECT_STREQ(kMxKeyApplication, "application");
    EXPECT_STREQ(kMxKeyTitle, "title");
    EXPECT_STREQ(kMxKeyConfig, "config");
    EXPECT_STREQ(kMxKeyBundleID, "bundleid");
    EXPECT_STREQ(kMxKeySignature, "signature");
    EXPECT_STREQ(kMxKeyAppIcon, "appicon");
    EXPECT_STREQ(kMxKeyProcessID, "processid");
    EXPECT_STREQ(kMxKeyProcessName, "processname");
    EXPECT_STREQ(kMxKeyClientName, "clientname");
    EXPECT_STREQ(kMxKeyProductID, "pid");
    EXPECT_STREQ(kMxKeyLocation, "location");
    EXPECT_STREQ(kMxKeyFactory, "factory");
    EXPECT_STREQ(kMxKeyDominant, "dominant");
    EXPECT_STREQ(kMxKeyTranslations, "translations");
    EXPECT_STREQ(kMxKeyRotations, "rotations");
    EXPECT_STREQ(kMxKeyMainSpeed, "speed");
    EXPECT_STREQ(kMxKeyDPISlider, "dpiSlider");
    EXPECT_STREQ(kMxKeySmartScroll, "smartScroll");
    EXPECT_STREQ(kMxKeyMappings, "mappings");
    EXPECT_STREQ(kMxKeyNoEnvMapping, "MxlNoEnvDefault");
    EXPECT_STREQ(kMxKeyRadialMenus, "menus");
    EXPECT_STREQ(kMxKeyRadialMenuName, "menuName");
    EXPECT_STREQ(kMxKeyGamma, "gamma");
    EXPECT_STREQ(kMxKeyIntersect, "intersect");
    EXPECT_STREQ(kMxKeyCommand, "cmd");
    EXPECT_STREQ(kMxKeyParam, "param");
    EXPECT_STREQ(kMxKeyModifiers, "mod");
    EXPECT_STREQ(kMxKeyMoveMouse, "move");
    EXPECT_STREQ(kMxKeyRepeat, "repeat");
    EXPECT_STREQ(kMxKeyDelay, "delay");
    EXPECT_STREQ(kMxKeySpeed, "speed");
    EXPECT_STREQ(kMxKeyThreshold, "thresh");
    EXPECT_STREQ(kMxKeyHash, "hash");
    EXPECT_STREQ(kMxKeyLabel, "label");
    EXPECT_STREQ(kMxKeyCmdSetID, "cmdsetid");
    EXPECT_STREQ(kMxKeyCmdSetLabel, "cmdsetlabel");
    EXPECT_STREQ(kMxKeySyncFileCmds, "commandsfile");
    EXPECT_STREQ(kMxKeyAppCommands, "Commands");
    EXPECT_STREQ(kMxKeySyncFileImgs, "imagesfile");
    EXPECT_STREQ(kMxKeyAppImages, "Images");
    EXPECT_STREQ(kMxKeySyncFileNavSettings, "settingsfile");
    EXPECT_STREQ(kMxKeyAppNavSettings, "NavSettings");
    EXPECT_STREQ(kMxKeyActiveSetID, "activesetid");
    EXPECT_STREQ(kMxKeyActionSet, "actionset");
    EXPECT_STREQ(kMxKeyPath, "path");
    EXPECT_STREQ(kMxKeyMacros, "macros");
    EXPECT_STREQ(kMxKeyState, "state");
    EXPECT_STREQ(kMxKeyCalibration, "calibration");
    EXPECT_STREQ(kMxKeyLastDevice, "lastDevice");
    EXPECT_STREQ(kMxKeySettingsIndex, "settingsIndex");
    EXPECT_STREQ(kMxKeyManualClients, "manualClients");
    EXPECT_STREQ(kMxKeyVersion, "version");
    EXPECT_STREQ(kMxKeyMark, "mark");
    EXPECT_STREQ(kMxKeyMacroID, "id");
    EXPECT_STREQ(kMxKeyMacroName, "name");
    EXPECT_STREQ(kMxKeyMacroNotes, "notes");
    EXPECT_STREQ(kMxKeyMacroSteps, "steps");
    EXPECT_STREQ(kMxKeyMacroCmd, "cmd");
    EXPECT_STREQ(kMxKeyMacroData, "data");
    EXPECT_STREQ(kMxKeyBtnListAxes, "axes");
    EXPECT_STREQ(kMxKeyBtnListButtons, "buttons");
    EXPECT_STREQ(kMxKeyBtnListIndex, "index");
    EXPECT_STREQ(kMxKeyBtnListKeys, "keys");
}
// clang-format on

} // namespace
