// Reads inotify on a run loop and delivers in batches.
#include "Platform/Linux/InotifyFileEventStream.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace moxel {

namespace {

// More than this is delivered at once, so that a storm of changes does not fill the memory.
constexpr size_t largestBatch = 16384;
// Buffers read in one go, so that a storm of changes does not keep the loop's other sources waiting.
constexpr int readsPerTurn = 4;

bool canBeWatched(const std::string &folder) {
    return !folder.empty() && folder.find('\0') == std::string::npos;
}

} // namespace

Result<std::unique_ptr<FileEventStream>> FileEventStream::create(std::vector<std::string> folders,
                                                                 RunLoop::Seconds latency, Callback callback,
                                                                 void *context) {
    if (folders.empty() || !std::ranges::all_of(folders, canBeWatched))
        return systemError("No folder to watch", EINVAL);
    auto inotify = Inotify::create();
    if (!inotify)
        return inotify.error();
    return std::unique_ptr<FileEventStream>(
        std::make_unique<InotifyFileEventStream>(std::move(*inotify), folders, latency, callback, context));
}

InotifyFileEventStream::InotifyFileEventStream(Inotify inotify, const std::vector<std::string> &folders,
                                               RunLoop::Seconds latency, Callback callback, void *context)
    : latency_(latency), callback_(callback), context_(context), inotify_(std::move(inotify)) {
    const auto report = [this](const std::string &path, uint32_t flags) { buffer_.add(path, flags); };
    for (const auto &folder : folders)
        trees_.push_back(std::make_unique<FolderTree>(folder, inotify_, report, FolderTree::Limits{}));
}

Result<void> InotifyFileEventStream::start(RunLoop &runLoop) {
    if (runLoop_ != nullptr)
        return systemError("The file-event stream has been started before", EALREADY);
    auto events = runLoop.watchDescriptor(inotify_.descriptor(), RunLoop::Descriptor::readable,
                                          [this](RunLoop::Readiness) { readEvents(); });
    if (!events)
        return events.error();
    events_ = std::move(*events);
    runLoop_ = &runLoop;
    for (const auto &tree : trees_)
        tree->start();
    return {};
}

void InotifyFileEventStream::readEvents() {
    const auto handler = [this](const InotifyEvent &event) {
        for (const auto &tree : trees_)
            tree->handle(event);
    };
    for (int i = 0; i < readsPerTurn && buffer_.size() < largestBatch; ++i) {
        if (!inotify_.read(handler))
            break;
    }
    if (buffer_.size() >= largestBatch)
        deliver();
    else if (!buffer_.isEmpty() && !delivery_)
        deliverSoon();
}

void InotifyFileEventStream::deliverSoon() {
    auto timer = runLoop_->addTimer(latency_, RunLoop::Seconds(0), [this] { deliver(); });
    if (timer)
        delivery_ = std::move(*timer);
    else
        deliver();
}

void InotifyFileEventStream::deliver() {
    delivery_.reset();
    const auto batch = buffer_.take();
    std::vector<const char *> paths;
    paths.reserve(batch.paths.size());
    for (const auto &path : batch.paths)
        paths.push_back(path.c_str());
    callback_(this, context_, paths.size(), paths.data(), batch.flags.data(), batch.identifiers.data());
}

} // namespace moxel
