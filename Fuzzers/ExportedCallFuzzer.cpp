// The exported functions, called with whatever an application may hand them, by a client that is registered.
#include "Fuzzers/FuzzInput.h"
#include "Helpers/Condition.h"
#include "Platform/Log.h"
#include "Session/ClientRegistry.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"
#include <Moxel/CFileObserver.h>
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>
#include <Moxel/MoxelStrings.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>

using namespace moxel;
using fuzz::FuzzInput;

namespace {

constexpr uint16_t clientID = 7;

/// The registered client, whose requests are acknowledged at once.
struct Session {
    Session() {
        client->setM_refHIDChannelDedicated(channel);
        channel->onSetReport = [this](const test::SentReport &report) {
            if (report.reportID == 0x46)
                acknowledge();
        };
        const Ref<MxlApplication> record = client->applicationInfo();
        record->setBundleid("org.example.fuzz");
        record->setName("Fuzz");
        record->setSignature(uint32_t{0x54657374});
        record->setChannelID(uint64_t{1});
        gClients().set(clientID, client, currentThreadKey());
    }
    void acknowledge() const {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard lock(*condition);
        client->setM_bPacketACK(true);
        condition->signal();
    }

    std::shared_ptr<test::FakeHIDDevice> channel = test::FakeHIDDevice::channel("dedicated");
    MoxelClientTestAccess::Client client =
        MoxelClientTestAccess::make([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, true);
};

/// Texts live as long as the call that they are made for. One in sixteen is null.
class Texts {
  public:
    explicit Texts(FuzzInput &input) : input_(input) {}
    const char *next() {
        if (input_.number<uint8_t>() % 16 == 0)
            return nullptr;
        return texts_.emplace_back(input_.text(300)).c_str();
    }

  private:
    FuzzInput &input_;
    std::deque<std::string> texts_;
};

void writeTree(FuzzInput &input) {
    Texts texts(input);
    std::deque<MoxelCommandSyncNode_s> nodes;
    const size_t count = input.number<uint8_t>() % 40U + 1;
    for (size_t i = 0; i < count; ++i) {
        MoxelCommandSyncNode_s node{};
        node.type = static_cast<decltype(node.type)>(input.number<uint8_t>() % 4);
        node.id = texts.next();
        node.label = texts.next();
        node.description = texts.next();
        nodes.push_back(node);
        if (i == 0)
            continue;
        // A node hangs below or beside one before it; whoever hung there is not reached any more.
        MoxelCommandSyncNode_s &other = nodes[input.number<uint8_t>() % i];
        (input.number<uint8_t>() % 2 == 0 ? other.children : other.next) = &nodes.back();
    }
    (void)MoxelClientWriteCommands(clientID, kMoxelExportTree, 0, &nodes.front());
}

void writeImages(FuzzInput &input) {
    Texts texts(input);
    std::deque<std::vector<uint8_t>> contents;
    std::vector<MoxelImage_s> images(input.number<uint8_t>() % 8U);
    for (MoxelImage_s &image : images) {
        image.type = static_cast<decltype(image.type)>(input.number<uint8_t>() % 6);
        image.id = texts.next();
        if (image.type == kMoxelImageFile) {
            image.file = {texts.next(), input.number<uint32_t>()};
        } else if (image.type == kMoxelImageData) {
            const std::vector<uint8_t> &content = contents.emplace_back(input.bytes(300));
            image.image = {content.data(), content.size(), input.number<uint32_t>()};
        }
    }
    (void)MoxelClientWriteImages(clientID, kMoxelExportImages, images.data(), images.size());
}

void useSettings(FuzzInput &input) {
    Texts texts(input);
    const char *name = texts.next();
    (void)MoxelClientSetSettingValue(clientID, name, texts.next());
    std::vector<char> buffer(input.number<uint8_t>());
    uint64_t length = buffer.size();
    if (MoxelClientGetSettingValue(clientID, name, buffer.data(), &length) == kMoxelResultOK)
        fuzz::require(length < buffer.size());
}

void useStrings(FuzzInput &input) {
    Texts texts(input);
    const String text(texts.next());
    (void)hexString(binaryData(text));
    (void)getHyperlink(text, true);
    (void)caseInsensitiveNumericCompare(text, String(texts.next()));
    (void)stringByReplacingIllegalCharacters(text);
    std::vector<uint8_t> pascal = input.bytes(256);
    pascal.resize(256);
    (void)stringWithPascalString(pascal.data());
    getPascalString(text, pascal.data());
}

void useTransport(FuzzInput &input, HIDDevice *device) {
    if (input.number<uint8_t>() % 16 == 0)
        device = nullptr;
    const auto tag = input.number<uint64_t>();
    const std::vector<uint8_t> bytes = input.bytes(4096);
    const auto length = static_cast<uint16_t>(bytes.size());
    (void)SetReport(device, tag, input.number<uint8_t>(), bytes.data(), length);
    (void)SetStorageDataSlot0(device, tag, bytes.data(), length);
    (void)SetStorageDataSlot1(device, tag, bytes.data(), length);
    (void)VDataChannel_SendReportID0_SetReport(device, tag, bytes.data(), length);
    (void)VDataChannel_SendReportID1_SetReport(device, tag, nullptr, length);
    MoxelAppInfoRecord record{};
    (void)VDataChannel_SetAppInfoRecord(device, tag, &record);
    std::vector<uint8_t> buffer(input.number<uint16_t>() % 4096U);
    auto room = static_cast<uint16_t>(buffer.size());
    (void)GetReport(device, input.number<uint8_t>(), buffer.data(), &room);
    (void)GetStorageDataSlot0(device, buffer.data(), &room);
}

void useCopies(FuzzInput &input) {
    Texts texts(input);
    const char *text = texts.next();
    const String string(text);
    const std::unique_ptr<char, decltype(&std::free)> copy(CFStringCopyUTF8String(text ? &string : nullptr),
                                                           &std::free);
    fuzz::require(text != nullptr || copy == nullptr);
    const Data data(std::span<const uint8_t>(input.bytes(300)));
    fuzz::require(MoxelDataGetLength(&data) == data.size());
    if (data.size() > 0)
        fuzz::require(*MoxelDataGetBytePtr(&data) == data.bytes()[0]);
    (void)MoxelSetButtonLabels(input.number<uint32_t>(), nullptr);
    fuzz::require(MoxelRunLoopDispatch(0) >= 0);
}

void callOne(FuzzInput &input, HIDDevice *channel) {
    int32_t result = 0;
    MoxelDevicePrefs preferences{};
    switch (input.number<uint8_t>() % 12) {
    case 0:
        return writeTree(input);
    case 1:
        return writeImages(input);
    case 2:
        return useSettings(input);
    case 3:
        return useStrings(input);
    case 4: {
        const std::vector<uint8_t> archive = input.bytes(2000);
        (void)MoxelClientWriteCommands(clientID, kMoxelExportDictionary, static_cast<int64_t>(archive.size()),
                                       archive.data());
        return;
    }
    case 5: {
        Texts texts(input);
        (void)MoxelClientActivateActionSet(clientID, texts.next());
        return;
    }
    case 6: {
        const std::vector<uint8_t> bytes = input.bytes(5000);
        (void)MoxelClientSendMessage(clientID, input.number<uint32_t>(), bytes.data(), bytes.size());
        return;
    }
    case 7:
        (void)MoxelClientControl(input.number<uint16_t>(), input.number<uint32_t>(), input.number<int32_t>(),
                                 &result);
        (void)MoxelControl(input.number<uint32_t>(), input.number<int32_t>(), nullptr);
        return;
    case 8:
        SetMoxelClientMask(input.number<uint16_t>(), input.number<uint32_t>());
        SetMoxelClientButtonMask(clientID, input.number<uint32_t>());
        return;
    case 9:
        return useTransport(input, channel);
    case 10:
        return useCopies(input);
    default:
        (void)MoxelGetCurrentDevicePrefs(input.number<uint32_t>(), &preferences);
        (void)MoxelClientWriteCommands(clientID, input.number<uint32_t>(), -1, nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static const LogCapture silence([](LogLevel, std::string_view) {});
    std::string scratch = (std::filesystem::temp_directory_path() / "moxel-fuzz-XXXXXX").string();
    fuzz::require(::mkdtemp(scratch.data()) != nullptr);
    static const struct Remover {
        std::string path;
        ~Remover() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    } remover{scratch};
    ::setenv("XDG_CONFIG_HOME", (scratch + "/config").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (scratch + "/share").c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    std::filesystem::create_directories(scratch + "/share/Moxel/MxlWare");
    std::ofstream(scratch + "/share/Moxel/MxlWare/MxlCommands.plist") << "{}";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Session session;
    FuzzInput input(data, size);
    for (int calls = 0; calls < 8 && !input.empty(); ++calls)
        callOne(input, session.channel.get());
    session.channel->reports.clear();
    return 0;
}
