// The export of growing action trees, acknowledged, beside writing the same bytes to a file.
#include "Support/ActionTree.h"
#include "Support/BareDriver.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/Table.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 15;

/// Whether a file survives a crash, as exported ones do, or is in the system's hands when it is written.
enum class Promise { none, keptAtACrash };

void writeFile(const std::string &folder, const std::vector<char> &bytes, Promise promise) {
    const std::string temporary = folder + "/.new";
    const std::string path = folder + "/peer";
    const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (::write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
    if (promise == Promise::keptAtACrash && ::fsync(file) != 0)
        std::abort();
    ::close(file);
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        std::abort();
    if (promise == Promise::none)
        return;
    const int opened = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (::fsync(opened) != 0)
        std::abort();
    ::close(opened);
}

double secondsOf(const std::function<void()> &work) {
    const double begin = now();
    work();
    return now() - begin;
}

/// The exporting session and its file of commands.
class Exporter {
  public:
    explicit Exporter(const PrivateFolders &folders)
        : driver_(folders.bus()), session_(Delivery::threaded, arrival_), base_(folders.path("config")) {}

    /// Seconds of an export to which there is no file yet.
    double exportNew(const ActionTree &tree) {
        if (!file_.empty())
            std::filesystem::remove(file_);
        return secondsOf([&] {
            if (MoxelClientWriteCommands(session_.clientID(), kMoxelExportTree, 0, tree.root()) != 0)
                std::abort();
        });
    }
    /// The bytes of the last export.
    std::vector<char> bytes() {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(base_))
            if (entry.path().string().ends_with(".commands.plist"))
                file_ = entry.path();
        std::ifstream file(file_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    Arrival arrival_;
    BareDriver driver_;
    Session session_;
    const std::string base_;
    std::filesystem::path file_;
};

void run() {
    const PrivateFolders folders;
    Exporter exporter(folders);
    const std::string peerFolder = folders.path("peer");
    std::filesystem::create_directory(peerFolder);
    std::vector<double> sizes{1'000, 10'000, 100'000};
    std::vector<double> perSize;
    for (const double size : sizes) {
        const ActionTree tree(static_cast<size_t>(size));
        exporter.exportNew(tree);
        const std::vector<char> bytes = exporter.bytes();
        const auto write = [&](Promise promise) {
            return [&, promise] { return secondsOf([&] { writeFile(peerFolder, bytes, promise); }); };
        };
        const RoundsOfSubjects times = inRounds(rounds, {[&] { return exporter.exportNew(tree); },
                                                         write(Promise::keptAtACrash), write(Promise::none)});
        perSize.push_back(median(times[0]));
        const std::string name = "export of " + std::to_string(static_cast<int>(size)) + " actions (" +
                                 digits(static_cast<double>(bytes.size()) / 1e6) + " MB)";
        printTimes(name, "the same bytes, on the disk", median(times[1]), perSize.back(), atMost(2));
        printTimes(name, "the same bytes, not waiting for the disk", median(times[2]), perSize.back(),
                   atMost(2));
    }
    for (size_t i = 1; i < sizes.size(); ++i)
        printRow("export: power of its size", std::to_string(static_cast<int>(sizes[i - 1])) + ", per action",
                 duration(perSize[i - 1] / sizes[i - 1]), duration(perSize[i] / sizes[i]),
                 growth(sizes[i - 1], perSize[i - 1], sizes[i], perSize[i]), linear);
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
