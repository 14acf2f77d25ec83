// The reports and packets of the data channels, byte by byte; layouts only, shared with the daemon.
#pragma once

#include <Moxel/MoxelClient.h>

#include <cstddef>
#include <cstdint>

namespace moxel::wire {

// The layouts are little-endian and are read and written by copying bytes.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "wire layouts need byte swapping on this machine");

/// Report identifiers; the characters are their ASCII forms.
enum ReportID : uint8_t {
    daemonMessage = 0x35,     ///< '5', input: every daemon message.
    programReport0 = 0x44,    ///< 'D', output: report-0 programming path.
    echoedReport0 = 0x45,     ///< 'E', input, echoed.
    controlReport = 0x46,     ///< 'F', output: control packets.
    storageSlot0Write = 0x53, ///< 'S', output.
    storageSlot0Read = 0x54,  ///< 'T', read: data that the daemon stored for the client.
    echoedStorage = 0x55,     ///< 'U', input, echoed.
    storageSlot1Write = 0x63, ///< 'c', output: the serialised request.
    applicationInfo = 0x73,   ///< 's', output: MoxelAppInfoRecord.
};

inline constexpr size_t channelTagSize = 8;
inline constexpr size_t reportPayloadRoom = 3064;
/// One less than the room.
inline constexpr size_t reportPayloadLimit = 3063;
inline constexpr size_t inputReportSize = 64;
inline constexpr size_t requestSizeLimit = 2048;
inline constexpr size_t messageSliceSize = 2042;
inline constexpr size_t commandSyncBlockSize = 506;

/// Tags in front of every output report.
inline constexpr uint64_t baseChannelTag = 0;
inline constexpr uint64_t foreignDeviceTag = 0xDEADBEEF;

/// First field of control packets and of data packets.
enum DataID : uint16_t { dataPacket = 2, controlMessage = 6, packetAcknowledgement = 7 };

/// Codes of control packets beside request identifiers.
enum ControlCode : uint16_t { createChannel = 0xBEEF, terminateChannel = 0xDEAD, storedDataReply = 0x71FE };

/// Request identifier and command of every request of the library.
inline constexpr uint16_t userRequestID = 49;
inline constexpr uint16_t userRequestCommand = 0;

enum MessageID : uint16_t { deviceState = 3, daemonRequest = 4, daemonResponse = 5 };
enum DaemonRequestCode : uint16_t { dataWaiting = 17, queryStoredData = 0xDEAF, registerAgain = 0xBEEF };
enum DaemonResponseCode : uint8_t { registrationAnswer = 0x12, acknowledgement = 0x34 };

enum ExitState : uint16_t { running = 0, leaving = 0xDEAD };

#pragma pack(push, 1)

/// What a control packet says of the request that stands in storage slot 1.
struct RequestAnnouncement {
    uint16_t length; ///< Bytes of the request.
    uint16_t command;
};

/// Payload of report 0x46: announces a request in storage slot 1, replies to a stored-data query (length and
/// command zero), or creates or terminates a dedicated channel.
struct MxControlPacket {
    uint16_t m_DataID;
    uint16_t code; ///< A ControlCode or a request identifier.
    union {
        RequestAnnouncement request;
        uint64_t channelID; ///< For createChannel and terminateChannel.
    };
    uint8_t reserved[26];
};
static_assert(sizeof(MxControlPacket) == 38);
static_assert(offsetof(MxControlPacket, request) == 4);
static_assert(offsetof(MxControlPacket, channelID) == 4);
static_assert(offsetof(MxControlPacket, reserved) == 12);

/// The client's acknowledgement of a data packet.
struct PacketAcknowledgement {
    uint16_t m_DataID;
    uint16_t length; ///< The packet's own length.
    uint8_t one;
    uint8_t reserved0;
    uint8_t code; ///< 0x32.
    uint8_t reserved1[11];
};
static_assert(sizeof(PacketAcknowledgement) == 18);
static_assert(offsetof(PacketAcknowledgement, code) == 6);

/// Head of what storage slot 0 holds; the payload follows.
struct mxVDataPacket {
    uint16_t m_DataID;
    uint16_t m_PayloadLength;
    uint8_t m_LastPacket; ///< 1 completes the message.
    uint8_t m_NumPackets; ///< Packets of the message; not checked.
};
static_assert(sizeof(mxVDataPacket) == 6);

/// First fields of every daemon message.
struct InputReportHeader {
    uint8_t reportID;
    uint16_t messageID;
};
static_assert(sizeof(InputReportHeader) == 3);

struct DaemonRequest {
    InputReportHeader header;
    uint16_t code;
    uint16_t dataSize;   ///< Code 17: bytes to read from storage slot 0.
    uint8_t wantsAnswer; ///< Code 17: nonzero when the daemon expects an acknowledgement.
};
static_assert(sizeof(DaemonRequest) == 8);

struct DaemonResponse {
    InputReportHeader header;
    uint8_t reserved0[4];
    uint8_t code;
    uint8_t reserved1;
    uint16_t clientID;  ///< Registration answer only.
    uint64_t channelID; ///< Registration answer only.
};
static_assert(offsetof(DaemonResponse, code) == 7);
static_assert(offsetof(DaemonResponse, clientID) == 9);
static_assert(offsetof(DaemonResponse, channelID) == 11);

struct DeviceStateReport {
    InputReportHeader header;
    uint8_t reserved[4];
    MoxelStateRecord record;
};
static_assert(offsetof(DeviceStateReport, record) == 7);
static_assert(sizeof(DeviceStateReport) == 55);

#pragma pack(pop)

static_assert(sizeof(MoxelStateRecord) == 48);
static_assert(offsetof(MoxelStateRecord, command) == 4);
static_assert(offsetof(MoxelStateRecord, value) == 8);
static_assert(offsetof(MoxelStateRecord, time) == 12);
static_assert(offsetof(MoxelStateRecord, report) == 20);
static_assert(offsetof(MoxelStateRecord, buttons8) == 28);
static_assert(offsetof(MoxelStateRecord, axis) == 30);
static_assert(offsetof(MoxelStateRecord, address) == 42);
static_assert(offsetof(MoxelStateRecord, buttons) == 44);
static_assert(sizeof(MoxelDevicePrefs) == 152);
static_assert(offsetof(MoxelDevicePrefs, deviceID) == 4);
static_assert(sizeof(MoxelAppInfoRecord) == 32);
static_assert(sizeof(MoxelSettingsChange) == 65542);
static_assert(offsetof(MoxelSettingsChange, reason) == 65538);

} // namespace moxel::wire
