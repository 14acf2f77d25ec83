// Keyed archives, written and read, beside libplist with the same object table and GNUstep's archiver.
#include "Peers/GNUstepPeers.h"
#include "Peers/PropertyListPeer.h"
#include "Support/Measurement.h"
#include "Support/Table.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MxlApplication.h>

#include <cstdlib>
#include <map>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 9;
constexpr size_t roundsWithGNUstep = 3; // It takes seconds.

/// The record of an application that has exported everything.
Ref<MxlApplication> applicationRecord() {
    const auto record = makeRef<MxlApplication>();
    const std::string folder =
        "/home/someone/.config/Preferences/Moxel/Applications/com.example.viewer_Viewer/";
    record->setClientid(uint16_t{17});
    record->setName("Viewer");
    record->setAppFileName("viewer");
    record->setClientName("Viewer");
    record->setBundleid("com.example.viewer");
    record->setExecutablePath("/usr/bin/viewer");
    record->setCommandsFile(folder + "1234567890123_Test_4711.commands.plist");
    record->setImagesFile(folder + "1234567890123_Test_4711.images.plist");
    record->setSettingsFile(folder + "Viewer_Test.settings.plist");
    record->setSignature(uint32_t{0x54657374});
    record->setProcessid(4711);
    record->setMode(uint16_t{3});
    record->setMask(uint32_t{0x3F});
    record->setButtonMask(uint32_t{0x3F});
    record->setSwitches(uint32_t{0x80000000});
    record->setChannelID(uint64_t{1234567890123});
    return record;
}

Dictionary entries(size_t count) {
    std::vector<Dictionary::Entry> entries;
    for (size_t i = 0; i < count; ++i)
        entries.push_back({"entry " + std::to_string(i), "Value of entry " + std::to_string(i)});
    return Dictionary(std::move(entries));
}

struct Times {
    double write;
    double read;
};

#if MOXEL_WITH_LIBPLIST
/// Ours and libplist's. A list of `bytes` is the archive's object table.
std::pair<Times, Times> besideLibplist(const Value &root, std::span<const uint8_t> bytes) {
    const PeerPropertyList table = readBinaryWithPeer(bytes);
    const std::vector<double> medians = mediansPerCall(
        rounds, [&] { return archivedDataWithRootObject(root); },
        [&] { return unarchiveObjectWithData(bytes); }, [&] { return writeBinaryWithPeer(table); },
        [&] { return readBinaryWithPeer(bytes); });
    return {{medians[0], medians[1]}, {medians[2], medians[3]}};
}
#endif

#if MOXEL_WITH_GNUSTEP
struct ReleaseGNUstepObject {
    void operator()(void *object) const { gnustepRelease(object); }
};
using GNUstepObject = std::unique_ptr<void, ReleaseGNUstepObject>;

std::pair<Times, Times> besideGNUstep(const Value &root, std::span<const uint8_t> bytes) {
    const GNUstepObject objects(gnustepUnarchive(bytes.data(), bytes.size()));
    if (!objects)
        std::abort();
    const std::vector<double> medians = mediansPerCall(
        roundsWithGNUstep, [&] { return archivedDataWithRootObject(root); },
        [&] { return unarchiveObjectWithData(bytes); },
        [&] { return GNUstepObject(gnustepArchive(objects.get())); },
        [&] { return GNUstepObject(gnustepUnarchive(bytes.data(), bytes.size())); });
    return {{medians[0], medians[1]}, {medians[2], medians[3]}};
}
#endif

void print(const std::string &what, const std::string &peer, const std::pair<Times, Times> &times,
           Goal goal) {
    printTimes(what + ", written", peer, times.second.write, times.first.write, goal);
    printTimes(what + ", read", peer, times.second.read, times.first.read, goal);
}

Times measure(const std::string &what, const Value &root) {
    const Result<Data> archive = archivedDataWithRootObject(root);
    if (!archive.ok() || !unarchiveObjectWithData(archive->bytes()).ok())
        std::abort();
    const std::span<const uint8_t> bytes = archive->bytes();
    const std::string name = "keyed archive of " + what;
#if MOXEL_WITH_GNUSTEP
    if (GNUstepObject(gnustepUnarchive(bytes.data(), bytes.size())))
        print(name, "GNUstep's archiver", besideGNUstep(root, bytes), atMost(1));
    else
        printMissing(name, "GNUstep's archiver", "cannot read it");
#else
    printMissing(name, "GNUstep's archiver");
#endif
#if MOXEL_WITH_LIBPLIST
    const std::pair<Times, Times> times = besideLibplist(root, bytes);
    print(name, "libplist, the same object table", times, atMost(0.7));
    return times.first;
#else
    printMissing(name, "libplist");
    const std::vector<double> medians = mediansPerCall(
        rounds, [&] { return archivedDataWithRootObject(root); },
        [&] { return unarchiveObjectWithData(bytes); });
    return {medians[0], medians[1]};
#endif
}

void run() {
    constexpr size_t few = 500;
    constexpr size_t many = 100'000;
    measure("the application record", Value(applicationRecord()));
    const Times small = measure("500 entries", Value(entries(few)));
    const Times large = measure("100,000 entries", Value(entries(many)));
    const auto row = [](const char *what, double smallTime, double largeTime) {
        printRow(std::string("keyed archive, ") + what + ": power of its size", "500 entries, per entry",
                 duration(smallTime / few), duration(largeTime / many),
                 growth(few, smallTime, many, largeTime), linear);
    };
    row("written", small.write, large.write);
    row("read", small.read, large.read);
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
