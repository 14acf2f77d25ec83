// The plain functions, records and constants of the Moxel client library, for C11 and C++20.
//
// An application calls SetMoxelHandlers, RegisterMoxelClient, any number of the other calls,
// UnregisterMoxelClient, CleanupMoxelHandlers. Installation, registration and cleanup belong on one thread.
// Events reach the handlers on that same thread while it runs its run loop (see MoxelRunLoop.h), or, when
// asked for, on a thread of the library's own.
#ifndef MOXEL_MOXELCLIENT_H
#define MOXEL_MOXELCLIENT_H

#include "MoxelBase.h"
#include "MoxelKeys.h"

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

MOXEL_BEGIN_DECLS

// ---------------------------------------------------------------------------------------------- Result codes

/// Results of the exported functions. MoxelClientSendMessage alone reports failure as 1.
enum {
    kMoxelResultOK = 0, ///< Success.
    /// No client with that identifier, a missing pointer, a request that could not be sent, or data that is
    /// absent or belongs to another device.
    kMoxelResultFailed = -1,
    /// Handler installation: no message handler, or the driver's base channel did not open within 2.0 s.
    kMoxelResultNoChannel = -36,
    /// Handler installation on a thread whose last installation still waits for RegisterMoxelClient.
    kMoxelResultAlreadyPending = -188,
};

// ---------------------------------------------------------------------------------------------- Messages

/// Message codes: four characters, the first in the most significant byte. The comment tells the argument.
enum {
    kMoxelMsgDeviceState = 0x6D765352,  ///< 'mvSR': pointer to a MoxelStateRecord.
    kMoxelMsgPrefsChanged = 0x6D765043, ///< 'mvPC': threaded: the daemon's number; forwarded: null.
    kMoxelMsgCommandSync = 0x6D764353,  ///< 'mvCS': pointer to a command-sync block of 506 bytes.
    kMoxelMsgPairingInfo = 0x6D76506F, ///< 'mvPo': threaded: a MoxelDataRef; forwarded: pointer to its bytes,
                                       ///< a length (u64, little-endian) and a keyed archive of that length.
    kMoxelMsgSettingsFileChanged = 0x6D764E43, ///< 'mvNC': pointer to a MoxelSettingsChange.
};

/// What a MoxelStateRecord reports. A driver may send other commands too; they come whatever the mask.
enum {
    kMoxelStateButtons = 2,           ///< Buttons were pressed or released; `buttons` tells which are down.
    kMoxelStateMotion = 3,            ///< The cap moved; `axis` tells where it is.
    kMoxelStateApplicationEvent = 10, ///< A button that stands for an exported action; see Export below.
    kMoxelStateDeviceAction = 11,     ///< An action of the device itself.
};

/// Bits of the mask of events wanted.
enum {
    kMoxelWantsMotion = 1,      ///< kMoxelStateMotion.
    kMoxelWantsButtons = 2,     ///< kMoxelStateButtons.
    kMoxelWantsApplication = 4, ///< kMoxelStateApplicationEvent and kMoxelStateDeviceAction.
};

/// The product identifier that comes with every message but 'mvSR'.
enum { kMoxelAnyProduct = 32767 };

/// Control codes that the library answers itself; every other code goes to the driver.
enum {
    kMoxelCtlIgnored = 0x6D766568, ///< 'mveh': MoxelControl returns 0 and does nothing.
    kMoxelCtlGetDeviceID =
        0x6D766964, ///< 'mvid': vendor identifier in the high 16 bits, product in the low 16.
};

/// What 'mvid' answers while no device is known.
enum { kMoxelDefaultDeviceID = 0x4D580001 };

/// USB vendor identifier of the driver's virtual channel devices.
enum { kMoxelVendorID = 0x4D58 };

// ---------------------------------------------------------------------------------------------- Records

#pragma pack(push, 2)
/// One state of the device as the driver reports it; little-endian, 48 bytes, packed to two bytes.
typedef struct MoxelStateRecord {
    uint16_t version;  ///< Record version.
    uint16_t client;   ///< Client identifier that the record is meant for.
    uint16_t command;  ///< What the record reports: kMoxelStateMotion and so on. Under a backlog records with
                       ///< commands 2, 10 and 11 are delivered, and others give way to newer ones.
    int16_t param;     ///< Command parameter.
    int32_t value;     ///< Command value.
    uint64_t time;     ///< Time stamp of the driver; unaligned.
    uint8_t report[8]; ///< Raw report bytes of the device.
    union {
        uint16_t buttons8;        ///< State of the first eight buttons.
        uint16_t appEventPressed; ///< Pressed state of an application event.
    };
    int16_t axis[6];  ///< Translation x, y, z, then rotation x, y, z, in the device's units.
    uint16_t address; ///< Device address.
    uint32_t buttons; ///< One bit a button.
} MoxelStateRecord;
#pragma pack(pop)

/// The current device's preferences as the driver sends them; 152 bytes. The library reads the device
/// identifier only and passes the rest through untouched.
typedef struct MoxelDevicePrefs {
    uint8_t header[4];     ///< The driver's own.
    uint32_t deviceID;     ///< Vendor in the high 16 bits, product in the low 16.
    uint8_t settings[144]; ///< The driver's own.
} MoxelDevicePrefs;

#pragma pack(push, 2)
/// Argument of 'mvNC'; 65,542 bytes.
typedef struct MoxelSettingsChange {
    uint8_t path[65536]; ///< Reserved; its content is unspecified.
    uint16_t pathLength; ///< Reserved.
    uint32_t reason;     ///< 1 the settings file was removed, 2 created or changed, 0 anything else.
} MoxelSettingsChange;
#pragma pack(pop)

/// Types of the nodes of an action tree; every other type is an action too.
enum { kMoxelNodeActionSet = 0, kMoxelNodeActionCategory = 1, kMoxelNodeAction = 2 };

/// One node of an application's action tree. The application owns nodes and strings; the library reads them
/// during the call only.
typedef struct MoxelCommandSyncNode_s {
    uint32_t tag;                            ///< The application's own.
    int32_t type;                            ///< kMoxelNodeActionSet and so on.
    struct MoxelCommandSyncNode_s *next;     ///< Next sibling or null.
    struct MoxelCommandSyncNode_s *children; ///< First child or null; read for types 0 and 1.
    const char *id;                          ///< Identifier, UTF-8, not null; key among the siblings.
    const char *label;                       ///< Text shown to the user, UTF-8, or null.
    const char *description;                 ///< Longer text, UTF-8, or null.
} MoxelCommandSyncNode_s;

/// Types of images; a record of another type gives an empty entry.
enum { kMoxelImageFile = 1, kMoxelImageData = 3, kMoxelImageGlyph = 4 };

/// An image that lies in a file.
typedef struct MoxelImageFile_s {
    const char *path; ///< The image file's path, UTF-8; not null.
    uint32_t index;   ///< Which image of the file.
} MoxelImageFile_s;

/// An image that lies in memory.
typedef struct MoxelImageData_s {
    const uint8_t *data; ///< The bytes of an image file.
    uint64_t size;       ///< Bytes.
    uint32_t index;      ///< Which image of the file.
} MoxelImageData_s;

/// Carried for the driver; the library reads none of it.
typedef struct MoxelImageGlyph_s {
    const char *text;         ///< Text of the glyphs, UTF-8.
    const int32_t *positions; ///< Where the glyphs stand.
    const uint32_t *glyphs;   ///< The glyphs' numbers.
    uint32_t count;           ///< Number of glyphs.
} MoxelImageGlyph_s;

/// One image of an application.
typedef struct MoxelImage_s {
    uint32_t tag;   ///< The application's own.
    int32_t type;   ///< kMoxelImageFile and so on.
    const char *id; ///< Identifier of the command that the image belongs to, UTF-8, not null.
    union {
        MoxelImageFile_s file;
        MoxelImageData_s image;
        MoxelImageGlyph_s glyph;
    };
} MoxelImage_s;

/// What the driver is told when an application starts and when it leaves; 32 bytes on the wire.
typedef struct MoxelAppInfoRecord {
    uint16_t exitState;  ///< 0 while the application runs, 0xDEAD when it unregisters.
    uint8_t reserved[6]; ///< Zero.
    char name[24];       ///< Application name, UTF-8, zero-padded.
} MoxelAppInfoRecord;

// ---------------------------------------------------------------------------------------------- Handlers

/// Called for every message: product identifier, message code, argument.
typedef void (*MoxelMessageHandlerProc)(uint32_t productID, uint32_t messageType, void *messageArgument);
/// Called when a device arrives; the product identifier is the driver's device identifier.
typedef void (*MoxelAddedHandlerProc)(uint32_t productID);
/// Called when a device goes.
typedef void (*MoxelRemovedHandlerProc)(uint32_t productID);

/// The same with the context that was given to _SetMoxelHandlers.
typedef void (*_MoxelMessageHandlerProc)(uint32_t productID, uint32_t messageType, void *messageArgument,
                                         void *context);
/// MoxelAddedHandlerProc with that context.
typedef void (*_MoxelAddedHandlerProc)(uint32_t productID, void *context);
/// MoxelRemovedHandlerProc with that context.
typedef void (*_MoxelRemovedHandlerProc)(uint32_t productID, void *context);

// ---------------------------------------------------------------------------------------------- Installation

/// Starts a session on the calling thread and waits up to 2.0 s for the driver's base channel.
///
/// With `useSeparateThread` the handlers are called on a thread of the library's own, as soon as an event
/// arrives; otherwise on the calling thread while it runs its run loop. Returns 0, kMoxelResultNoChannel or
/// kMoxelResultAlreadyPending. After kMoxelResultNoChannel the session stays pending (unless messageHandler
/// was null): call CleanupMoxelHandlers before trying again. A record passed to the message handler on the
/// calling thread stays valid for the next 99 deliveries.
MOXEL_EXPORT int16_t SetMoxelHandlers(MoxelMessageHandlerProc messageHandler,
                                      MoxelAddedHandlerProc addedHandler,
                                      MoxelRemovedHandlerProc removedHandler, bool useSeparateThread);
/// SetMoxelHandlers without a separate thread.
MOXEL_EXPORT int16_t InstallMoxelHandlers(MoxelMessageHandlerProc messageHandler,
                                          MoxelAddedHandlerProc addedHandler,
                                          MoxelRemovedHandlerProc removedHandler);
/// SetMoxelHandlers with handlers that take a context. A record passed to the message handler is valid during
/// the call only.
MOXEL_EXPORT int16_t _SetMoxelHandlers(_MoxelMessageHandlerProc messageHandler,
                                       _MoxelAddedHandlerProc addedHandler,
                                       _MoxelRemovedHandlerProc removedHandler, void *context,
                                       bool useSeparateThread);
/// Ends the calling thread's session, which must not be registered; waits about 1 s at most for its thread. A
/// handler that runs on another of the library's threads at that moment (kMoxelMsgSettingsFileChanged with
/// useSeparateThread) may still run when this returns: keep its context until then.
MOXEL_EXPORT void CleanupMoxelHandlers(void);

// ---------------------------------------------------------------------------------------------- Registration

/// Registers the calling thread's session with the driver.
///
/// `signature` is a four-character code, `name` a length-prefixed UTF-8 string (a count byte and that many
/// bytes) or null, `mode` the client mode, `mask` the events wanted (kMoxelWantsMotion and so on; 0xFFFFFFFF
/// for all). The low 8 bits of `mask` become the button mask too: buttons 9 to 32 do not come until
/// SetMoxelClientButtonMask asks for them, nor do those of the first eight whose bits are missing. Returns
/// the client identifier, or 0 on failure, after at most 4.5 s; a driver that is slow to take what it is sent
/// adds up to 1 s for each of four reports.
MOXEL_EXPORT uint16_t RegisterMoxelClient(uint32_t signature, uint8_t *name, uint16_t mode, uint32_t mask);
/// Takes the registration back; 0 stands for the client of the calling thread. At once, unless the driver is
/// slow to take what it is sent: then up to 1 s for each of four reports.
MOXEL_EXPORT void UnregisterMoxelClient(uint16_t clientID);

// ---------------------------------------------------------------------------------------------- Control

// The calls below may be made on any thread of the application's. They take their turn with each other and
// with installation, registration and cleanup, so one that waits for the driver makes the others wait. A
// handler that runs on the library's own thread (see SetMoxelHandlers) must not make them: the answer would
// arrive on that very thread, and the call fails after 2.0 s.
//
// A client identifier of 0 stands for the client that the calling thread registered.

/// Tells the driver which events the client wants, in place of the mask given at registration. Waits up to
/// 2.0 s for the driver; nothing tells whether it took the mask.
MOXEL_EXPORT void SetMoxelClientMask(uint16_t clientID, uint32_t mask);
/// Tells the driver which buttons the client wants, one bit a button (0xFFFFFFFF for all), in place of the
/// first eight that registration asks for; otherwise like SetMoxelClientMask.
MOXEL_EXPORT void SetMoxelClientButtonMask(uint16_t clientID, uint32_t buttonMask);

/// MoxelClientControl for the calling thread's client, except that kMoxelCtlIgnored returns 0 at once, with
/// or without a client.
MOXEL_EXPORT int16_t MoxelControl(uint32_t message, int32_t param, int32_t *result);
/// Sends a control code and its parameter to the driver and waits up to 2.0 s for its acknowledgement.
///
/// `message` is a four-character code, its first character in the most significant byte. Returns 0, or
/// kMoxelResultFailed when there is no such client, the request could not be sent or was not acknowledged.
/// `result` is written for kMoxelCtlGetDeviceID only, which the library answers itself, at once;
/// kMoxelResultFailed when it is null then.
MOXEL_EXPORT int16_t MoxelClientControl(uint16_t clientID, uint32_t message, int32_t param, int32_t *result);
/// Sends bytes to the driver as they are; the message type is not used.
///
/// Up to 2,042 bytes are sent at once, without waiting for an acknowledgement. More are sent in slices of
/// 2,042 bytes and a shorter last one, with up to 2.0 s for the acknowledgement of each; a slice that fails
/// does not stop the others. Returns 0 when the last send succeeded and 1 when it failed, as it does for 0
/// bytes; kMoxelResultFailed when there is no such client, or `data` is null and `length` is not 0.
MOXEL_EXPORT int16_t MoxelClientSendMessage(uint16_t clientID, uint32_t messageType, const void *data,
                                            size_t length);

/// The preferences that the driver sent last to the calling thread's client.
///
/// Returns 0, or kMoxelResultFailed when that thread has no client, no preferences have come yet, they belong
/// to another device than `deviceID`, or `preferences` is null; the record is written only with 0.
MOXEL_EXPORT int16_t MoxelGetCurrentDevicePrefs(uint32_t deviceID, MoxelDevicePrefs *preferences);
/// Does nothing and returns kMoxelResultFailed, whatever the arguments. Any thread; at once.
MOXEL_EXPORT int16_t MoxelSetButtonLabels(uint32_t deviceID, const void *labels);

// ---------------------------------------------------------------------------------------------- Export

// A registered application hands the driver its commands, its images and its settings, so that a person can
// put them on the device's buttons. Each call writes a property list into the application's export folder,
// Preferences/Moxel/Applications/BUNDLE_NAME in the user's library, where other programs of the driver find
// it, and tells the driver which file to take. Commands and images are written for this run of the
// application; settings outlive it.
//
// `clientID` 0 stands for the client of the calling thread. All return 0, or kMoxelResultFailed: no such
// client, an argument that makes no sense, a file that cannot be written, or a driver that does not
// acknowledge within 2.0 s; files that were written by then stay. They must not be called on the thread of a
// threaded handler. An application whose bundle identifier, name or signature cannot be part of a file name
// (a slash, say) exports nothing; the log tells why.
//
// When a button is pressed that stands for an action, the message handler gets a MoxelStateRecord with
// command kMoxelStateApplicationEvent: `param` is the action's number and `appEventPressed` whether it was
// pressed or released.

/// What the data argument of an export is: four characters, the first in the most significant byte.
enum {
    kMoxelExportTree = 0x6D767472,       ///< 'mvtr': the first top-level MoxelCommandSyncNode_s.
    kMoxelExportImages = 0x6D76696D,     ///< 'mvim': an array of MoxelImage_s.
    kMoxelExportDictionary = 0x6D766473, ///< 'mvds': commands: a keyed archive; images: a MoxelDictionaryRef.
};

/// Hands the driver commands; action sets that were written before in this run stay, but for those with the
/// same identifier.
///
/// kMoxelExportTree: `data` is the first node of a tree, which must be an action set; `size` is not looked
/// at. kMoxelExportDictionary: `data` is `size` bytes of a keyed archive of a dictionary that holds action
/// sets under their identifiers.
MOXEL_EXPORT int16_t MoxelClientWriteCommands(uint16_t clientID, uint32_t type, int64_t size,
                                              const void *data);
/// Makes an action set the active one, whose actions the buttons stand for; `actionSetID` is UTF-8.
///
/// The set need not have been written yet. Null is an error, although the file then names "(null)".
MOXEL_EXPORT int16_t MoxelClientActivateActionSet(uint16_t clientID, const char *actionSetID);
/// Stores one setting, UTF-8 name and value.
///
/// From the first call on, the settings file is watched: every later change of it, by whomever, is told as
/// kMoxelMsgSettingsFileChanged. Returns 0 once the file is written, whether or not the driver acknowledges.
MOXEL_EXPORT int16_t MoxelClientSetSettingValue(uint16_t clientID, const char *name, const char *value);
/// Reads one setting as UTF-8 into a buffer of *length bytes.
///
/// *length becomes the number of UTF-16 units of the value, or 0 on failure. The buffer must be larger than
/// that number; it always ends in a zero, and a value that needs more bytes than it has is cut behind a whole
/// character. A setting that was never set reads as "(null)"; before the first setting is stored all calls
/// fail.
MOXEL_EXPORT int16_t MoxelClientGetSettingValue(uint16_t clientID, const char *name, char *buffer,
                                                uint64_t *length);
/// Hands the driver images; those that were written before in this run stay, but for those with the same
/// identifier.
///
/// kMoxelExportImages: `data` is an array of `count` records. kMoxelExportDictionary: `data` is a
/// MoxelDictionaryRef, whose entries replace all images; `count` must not be 0. Any other type writes the
/// file as it was. A record without an identifier, or bytes (kMoxelImageData) under one that cannot name a
/// file (it holds a slash, say), refuse the whole list.
MOXEL_EXPORT int16_t MoxelClientWriteImages(uint16_t clientID, uint32_t type, const void *data, size_t count);

// ---------------------------------------------------------------------------------------------- Queries

/// True when the process's login session is the one on the console, or when that cannot be told. Any thread.
MOXEL_EXPORT bool MoxelCheckUserActive(void);
/// User identifier of the session on the console; 0 when the session is not on the console. Any thread.
MOXEL_EXPORT uint32_t MoxelGetSessionUserID(void);
/// A zero-terminated UTF-8 copy that the caller frees with free(); null for null or for text that UTF-8
/// cannot express. Any thread.
MOXEL_EXPORT char *CFStringCopyUTF8String(MoxelStringRef string);

// ---------------------------------------------------------------------------------------------- Data objects

/// The bytes of a data object such as the threaded argument of 'mvPo'; null for null. Valid as long as the
/// object.
MOXEL_EXPORT const uint8_t *MoxelDataGetBytePtr(MoxelDataRef data);
/// Number of bytes of a data object; 0 for null.
MOXEL_EXPORT size_t MoxelDataGetLength(MoxelDataRef data);

// ---------------------------------------------------------------------------------------------- Transport

/// Sends one output report, `channelTag` and then 1 to 3063 bytes of data. True on success. Any thread; at
/// most 1 s.
MOXEL_EXPORT bool SetReport(MoxelHIDDeviceRef device, uint64_t channelTag, uint8_t reportID, const void *data,
                            uint16_t length);
/// Reads one report into a buffer of *length bytes; *length does not change. True on success. Any thread; at
/// most 1 s.
MOXEL_EXPORT bool GetReport(MoxelHIDDeviceRef device, uint8_t reportID, void *buffer, uint16_t *length);
/// SetReport on report 0x53.
MOXEL_EXPORT bool SetStorageDataSlot0(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data,
                                      uint16_t length);
/// SetReport on report 0x63.
MOXEL_EXPORT bool SetStorageDataSlot1(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data,
                                      uint16_t length);
/// GetReport on report 0x54.
MOXEL_EXPORT bool GetStorageDataSlot0(MoxelHIDDeviceRef device, void *buffer, uint16_t *length);
/// SetReport on report 0x44.
MOXEL_EXPORT bool VDataChannel_SendReportID0_SetReport(MoxelHIDDeviceRef device, uint64_t channelTag,
                                                       const void *data, uint16_t length);
/// SetReport on report 0x46.
MOXEL_EXPORT bool VDataChannel_SendReportID1_SetReport(MoxelHIDDeviceRef device, uint64_t channelTag,
                                                       const void *data, uint16_t length);
/// SetReport of the record on report 0x73.
MOXEL_EXPORT bool VDataChannel_SetAppInfoRecord(MoxelHIDDeviceRef device, uint64_t channelTag,
                                                const MoxelAppInfoRecord *record);

// Status vocabulary of the storage slots, shared with the driver extension.

/// Data identifier of the status of a write.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_DataID_SetReportStatus;
/// Data identifier of the status of a read.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_DataID_GetReportStatus;
/// Data identifier of the status of a release.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_DataID_ReleaseChannelSlotDataStatus;
/// The slot did what it was asked.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_Status_OK;
/// The slot has got memory.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_Status_MemoryAllocated;
/// There is no memory for the slot.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_Status_MemoryAllocationError;
/// The slot is empty.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_Status_NoData;
/// The buffer is smaller than what the slot holds.
MOXEL_EXPORT extern const uint16_t DEXT_Storage_Status_SmallBuffer;

// ---------------------------------------------------------------------------------------------- File events

/// Receives the events of a CFileObserver's stream; `info` is the observer, `paths` zero-terminated strings.
MOXEL_EXPORT void fsEvtCallback(MoxelFileEventStreamRef stream, void *info, size_t count,
                                const char *const *paths, const uint32_t *flags, const uint64_t *identifiers);

MOXEL_END_DECLS

#endif
