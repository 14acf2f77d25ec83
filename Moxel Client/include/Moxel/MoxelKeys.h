// The words of the driver's property lists and requests, and where applications' exports lie.
#ifndef MOXEL_MOXELKEYS_H
#define MOXEL_MOXELKEYS_H

#include "MoxelBase.h"

#ifdef __cplusplus
#include <atomic>
#endif

MOXEL_BEGIN_DECLS

/// The folder below which every application has its export folder; null until the shared store of property
/// lists has been asked for. Written by the store only. Any thread.
#ifdef __cplusplus
MOXEL_EXPORT extern std::atomic<const char *> kExportedCommandsBaseDirPath;
#else
MOXEL_EXPORT extern _Atomic(const char *) kExportedCommandsBaseDirPath;
#endif

// The comment tells the text. Several constants share one text.

MOXEL_EXPORT extern const char *const kStrImageDataSubfolder;    ///< "imagedata"
MOXEL_EXPORT extern const char *const kMxMappingKeyFormat;       ///< "%02d"
MOXEL_EXPORT extern const char *const kMxRadialMenuKeyFormat;    ///< "%d"
MOXEL_EXPORT extern const char *const kMxMappingDescFormat;      ///< "%02d-%02d"
MOXEL_EXPORT extern const char *const kMxExportFileType;         ///< "mvx"
MOXEL_EXPORT extern const char *const kMxPlistFileType;          ///< "plist"
MOXEL_EXPORT extern const char *const kMxAppFileType;            ///< "app"
MOXEL_EXPORT extern const char *const kMxWebAppSettingsName;     ///< "Web Applications"
MOXEL_EXPORT extern const char *const kMxKeyRequest;             ///< "req"
MOXEL_EXPORT extern const char *const kMxKeyRequestPrefsUpdate;  ///< "updateprefs"
MOXEL_EXPORT extern const char *const kMxKeyRequestCheckUpdate;  ///< "updateavailable"
MOXEL_EXPORT extern const char *const kMxKeyRequestCalibrate;    ///< "calibrate"
MOXEL_EXPORT extern const char *const kMxKeyRequestUnCalibrate;  ///< "uncalibrate"
MOXEL_EXPORT extern const char *const kMxKeyRequestConnDevs;     ///< "connected"
MOXEL_EXPORT extern const char *const kMxKeyOptions;             ///< "options"
MOXEL_EXPORT extern const char *const kMxKeyAxisMax;             ///< "axisMax"
MOXEL_EXPORT extern const char *const kMxKeyLeds;                ///< "leds"
MOXEL_EXPORT extern const char *const kMxKeyCheckForUpdate;      ///< "checkforupdate"
MOXEL_EXPORT extern const char *const kMxKeyMobileEnabled;       ///< "mobile"
MOXEL_EXPORT extern const char *const kMxKeyMobileServer;        ///< "server"
MOXEL_EXPORT extern const char *const kMxKeyMobilePassword;      ///< "password"
MOXEL_EXPORT extern const char *const kMxKeySettings;            ///< "settings"
MOXEL_EXPORT extern const char *const kMxKeyEnabled;             ///< "enabled"
MOXEL_EXPORT extern const char *const kMxKeyName;                ///< "name"
MOXEL_EXPORT extern const char *const kMxKeyApplication;         ///< "application"
MOXEL_EXPORT extern const char *const kMxKeyTitle;               ///< "title"
MOXEL_EXPORT extern const char *const kMxKeyConfig;              ///< "config"
MOXEL_EXPORT extern const char *const kMxKeyBundleID;            ///< "bundleid"
MOXEL_EXPORT extern const char *const kMxKeySignature;           ///< "signature"
MOXEL_EXPORT extern const char *const kMxKeyAppIcon;             ///< "appicon"
MOXEL_EXPORT extern const char *const kMxKeyProcessID;           ///< "processid"
MOXEL_EXPORT extern const char *const kMxKeyProcessName;         ///< "processname"
MOXEL_EXPORT extern const char *const kMxKeyClientName;          ///< "clientname"
MOXEL_EXPORT extern const char *const kMxKeyProductID;           ///< "pid"
MOXEL_EXPORT extern const char *const kMxKeyLocation;            ///< "location"
MOXEL_EXPORT extern const char *const kMxKeyFactory;             ///< "factory"
MOXEL_EXPORT extern const char *const kMxKeyDominant;            ///< "dominant"
MOXEL_EXPORT extern const char *const kMxKeyTranslations;        ///< "translations"
MOXEL_EXPORT extern const char *const kMxKeyRotations;           ///< "rotations"
MOXEL_EXPORT extern const char *const kMxKeyMainSpeed;           ///< "speed"
MOXEL_EXPORT extern const char *const kMxKeyDPISlider;           ///< "dpiSlider"
MOXEL_EXPORT extern const char *const kMxKeySmartScroll;         ///< "smartScroll"
MOXEL_EXPORT extern const char *const kMxKeyMappings;            ///< "mappings"
MOXEL_EXPORT extern const char *const kMxKeyNoEnvMapping;        ///< "MxlNoEnvDefault"
MOXEL_EXPORT extern const char *const kMxKeyRadialMenus;         ///< "menus"
MOXEL_EXPORT extern const char *const kMxKeyRadialMenuName;      ///< "menuName"
MOXEL_EXPORT extern const char *const kMxKeyGamma;               ///< "gamma"
MOXEL_EXPORT extern const char *const kMxKeyIntersect;           ///< "intersect"
MOXEL_EXPORT extern const char *const kMxKeyCommand;             ///< "cmd"
MOXEL_EXPORT extern const char *const kMxKeyParam;               ///< "param"
MOXEL_EXPORT extern const char *const kMxKeyModifiers;           ///< "mod"
MOXEL_EXPORT extern const char *const kMxKeyMoveMouse;           ///< "move"
MOXEL_EXPORT extern const char *const kMxKeyRepeat;              ///< "repeat"
MOXEL_EXPORT extern const char *const kMxKeyDelay;               ///< "delay"
MOXEL_EXPORT extern const char *const kMxKeySpeed;               ///< "speed"
MOXEL_EXPORT extern const char *const kMxKeyThreshold;           ///< "thresh"
MOXEL_EXPORT extern const char *const kMxKeyHash;                ///< "hash"
MOXEL_EXPORT extern const char *const kMxKeyLabel;               ///< "label"
MOXEL_EXPORT extern const char *const kMxKeyCmdSetID;            ///< "cmdsetid"
MOXEL_EXPORT extern const char *const kMxKeyCmdSetLabel;         ///< "cmdsetlabel"
MOXEL_EXPORT extern const char *const kMxKeySyncFileCmds;        ///< "commandsfile"
MOXEL_EXPORT extern const char *const kMxKeyAppCommands;         ///< "Commands"
MOXEL_EXPORT extern const char *const kMxKeySyncFileImgs;        ///< "imagesfile"
MOXEL_EXPORT extern const char *const kMxKeyAppImages;           ///< "Images"
MOXEL_EXPORT extern const char *const kMxKeySyncFileNavSettings; ///< "settingsfile"
MOXEL_EXPORT extern const char *const kMxKeyAppNavSettings;      ///< "NavSettings"
MOXEL_EXPORT extern const char *const kMxKeyActiveSetID;         ///< "activesetid"
MOXEL_EXPORT extern const char *const kMxKeyActionSet;           ///< "actionset"
MOXEL_EXPORT extern const char *const kMxKeyPath;                ///< "path"
MOXEL_EXPORT extern const char *const kMxKeyMacros;              ///< "macros"
MOXEL_EXPORT extern const char *const kMxKeyState;               ///< "state"
MOXEL_EXPORT extern const char *const kMxKeyCalibration;         ///< "calibration"
MOXEL_EXPORT extern const char *const kMxKeyLastDevice;          ///< "lastDevice"
MOXEL_EXPORT extern const char *const kMxKeySettingsIndex;       ///< "settingsIndex"
MOXEL_EXPORT extern const char *const kMxKeyManualClients;       ///< "manualClients"
MOXEL_EXPORT extern const char *const kMxKeyVersion;             ///< "version"
MOXEL_EXPORT extern const char *const kMxKeyMark;                ///< "mark"
MOXEL_EXPORT extern const char *const kMxKeyMacroID;             ///< "id"
MOXEL_EXPORT extern const char *const kMxKeyMacroName;           ///< "name"
MOXEL_EXPORT extern const char *const kMxKeyMacroNotes;          ///< "notes"
MOXEL_EXPORT extern const char *const kMxKeyMacroSteps;          ///< "steps"
MOXEL_EXPORT extern const char *const kMxKeyMacroCmd;            ///< "cmd"
MOXEL_EXPORT extern const char *const kMxKeyMacroData;           ///< "data"
MOXEL_EXPORT extern const char *const kMxKeyBtnListAxes;         ///< "axes"
MOXEL_EXPORT extern const char *const kMxKeyBtnListButtons;      ///< "buttons"
MOXEL_EXPORT extern const char *const kMxKeyBtnListIndex;        ///< "index"
MOXEL_EXPORT extern const char *const kMxKeyBtnListKeys;         ///< "keys"

MOXEL_END_DECLS

#endif
