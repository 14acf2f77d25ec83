#include <Moxel/CFileObserver.h>

#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Platform/FileEvents.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include <Moxel/MoxelClient.h>

#include <filesystem>
#include <system_error>

namespace moxel {

namespace {

constexpr std::string_view changeNotification = "MxlFileChange";
constexpr RunLoop::Seconds streamLatency{0.1};
/// How long one turn of the loop waits at most before it looks again whether it is to end.
constexpr RunLoop::Seconds loopTurn{10.0};

enum Reason : int32_t { noEvent = 0, removed = 1, changed = 2 };

bool isFolder(const String &path) {
    std::error_code error;
    return std::filesystem::is_directory(path.string(), error);
}

bool exists(const String &path) {
    std::error_code error;
    return std::filesystem::exists(path.string(), error);
}

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

std::string_view lastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

std::string_view withoutLastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return "";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// What an event's flags mean, the first that applies; noEvent for those that are of no interest.
Reason reasonOf(uint32_t flags) {
    if (flags & fileEventRemoved)
        return removed;
    if (flags & (fileEventMetadataChanged | fileEventCreated | fileEventModified))
        return changed;
    return noEvent;
}

} // namespace

// ------------------------------------------------------------------------------------------ Life

std::shared_ptr<CFileObserver> CFileObserver::init() {
    std::shared_ptr<CFileObserver> observer(new CFileObserver());
    observer->theKQueue_ = makeKernelEventQueue();
    if (observer->theKQueue_ < 1) {
        logError("ERROR initializing kqueue()!!");
        return nullptr;
    }
    observer->notificationString_ = changeNotification;
    observer->observerInfo_ = std::make_shared<CFileObserverInfo>();
    return observer;
}

CFileObserver::~CFileObserver() {
    closeKernelEventQueue(theKQueue_);
    if (!threadWatcher_)
        return;
    if (threadWatcher_->isCurrent()) // The observation held the last reference.
        threadWatcher_->detach();
    else
        threadWatcher_->join();
}

String CFileObserver::m_fileName() const {
    const std::lock_guard lock(mutex_);
    return m_fileName_;
}

void CFileObserver::setM_fileName(const String &name) {
    const std::lock_guard lock(mutex_);
    m_fileName_ = name;
}

String CFileObserver::m_folderName() const {
    const std::lock_guard lock(mutex_);
    return m_folderName_;
}

void CFileObserver::setM_folderName(const String &name) {
    const std::lock_guard lock(mutex_);
    m_folderName_ = name;
}

// ------------------------------------------------------------------------------------------ Observing

bool CFileObserver::observeFile(const String &path) {
    if (isFolder(path)) {
        logError("Error: %@ is a directory! Please provide a file!", path);
        return false;
    }
    if (!path)
        return false;
    setM_fileName(lastPathComponent(path.view()));
    return observeFolder(withoutLastPathComponent(path.view()));
}

bool CFileObserver::observeFolder(const String &path) {
    if (!path)
        return false;
    String folder = path;
    if (exists(path) && !isFolder(path)) {
        logInfo("Warning: %@ - is a file path! Stripping file information.", path);
        folder = withoutLastPathComponent(path.view());
    }
    setM_folderName(folder);
    if (!exists(path)) {
        logError("No such folder %@ !", folder);
        return false;
    }
    std::unique_lock lock(mutex_);
    if (!threadWatcher_) {
        Result<std::shared_ptr<Thread>> thread =
            Thread::start("", [observer = shared_from_this()] { threadFileObserver(observer); });
        if (thread.ok())
            threadWatcher_ = *thread;
        else
            logError("Error: %@", thread.error().message);
    }
    // Returns with the stream running, so that the caller's next change of the folder is seen.
    hasBegun_.wait(lock, [this] { return !threadWatcher_ || begun_; });
    return threadWatcher_ != nullptr;
}

void CFileObserver::stopObservation() {
    bDone_ = true;
    const std::lock_guard lock(mutex_);
    if (runloop_)
        runloop_->stop();
}

void CFileObserver::threadFileObserver(const std::shared_ptr<CFileObserver> &observer) {
    struct Announcement { // Whatever becomes of the thread: observeFolder() waits for it.
        CFileObserver &observer;
        ~Announcement() { observer.announceBeginning(); }
    } const announcement{*observer};
    Thread::current()->setName("Mxl-FileChangeObserver");
    observer->observeIt();
}

void CFileObserver::announceBeginning() noexcept {
    const std::lock_guard lock(mutex_);
    begun_ = true;
    hasBegun_.notify_all();
}

void CFileObserver::observeIt() {
    const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
    isObserving_ = true;
    {
        const std::lock_guard lock(mutex_);
        runloop_ = loop.ok() ? *loop : nullptr;
    }
    const std::unique_ptr<FileEventStream> stream = startStream(loop);
    announceBeginning();
    while (loop.ok() && !bDone_)
        (*loop)->runOneSource(loopTurn);
}

/// Null when there can be no events; the loop then simply runs without.
std::unique_ptr<FileEventStream> CFileObserver::startStream(const Result<std::shared_ptr<RunLoop>> &loop) {
    if (!loop.ok()) {
        logError("Error: %@", loop.error().message);
        return nullptr;
    }
    Result<std::unique_ptr<FileEventStream>> stream =
        FileEventStream::create({m_folderName().string()}, streamLatency, fsEvtCallback, this);
    const Result<void> started = stream.ok() ? (*stream)->start(**loop) : Result<void>(stream.error());
    if (!started.ok()) {
        logError("Error: %@", started.error().message);
        return nullptr;
    }
    return std::move(*stream);
}

// ------------------------------------------------------------------------------------------ Events

bool CFileObserver::isWatched(std::string_view path) const {
    const String fileName = m_fileName();
    if (!fileName)
        return true;
    const String folderName = m_folderName();
    if (!path.starts_with(folderName.view()))
        return false;
    path.remove_prefix(folderName.view().size());
    if (path.starts_with('/'))
        path.remove_prefix(1);
    return path == fileName.view();
}

void CFileObserver::handleEvents(size_t count, const char *const *paths, const uint32_t *flags) {
    for (size_t i = 0; i < count; ++i) {
        if (!isWatched(paths[i]))
            continue;
        const Reason reason = reasonOf(flags[i]);
        if (reason == noEvent)
            continue;
        if (reason == removed)
            logInfo("Observer - > file removed");
        observerInfo_->setFileName(m_fileName());
        observerInfo_->setFolderName(m_folderName());
        observerInfo_->setEventReason(reason);
        NotificationCenter::defaultCenter().post({notificationString_.view(), observerInfo_.get()});
        observerInfo_->setEventReason(noEvent);
    }
}

} // namespace moxel

using namespace moxel;

void fsEvtCallback(MoxelFileEventStreamRef, void *info, size_t count, const char *const *paths,
                   const uint32_t *flags, const uint64_t *) {
    if (info && paths && flags)
        exportedCall("fsEvtCallback",
                     [&] { static_cast<CFileObserver *>(info)->handleEvents(count, paths, flags); });
}
