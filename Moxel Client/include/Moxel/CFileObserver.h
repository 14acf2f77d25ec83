// Watches one folder, or one file inside a folder, on a thread of its own.
#pragma once

#include "CFileObserverInfo.h"
#include "MoxelBase.h"
#include "Values/String.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

namespace moxel {

class RunLoop;
class Thread;
template <class T>
class Result;

/// Posts the notification "MxlFileChange" (object: observerInfo()) on the default centre for every change, on
/// the observation thread "Mxl-FileChangeObserver". An observer watches once: after stopObservation() it
/// stays stopped.
///
/// All members may be called from any thread.
class MOXEL_EXPORT CFileObserver : public std::enable_shared_from_this<CFileObserver> {
  public:
    /// Null when the system has no kernel event queue left.
    [[nodiscard]] static std::shared_ptr<CFileObserver> init();
    ~CFileObserver();
    CFileObserver(const CFileObserver &) = delete;
    CFileObserver &operator=(const CFileObserver &) = delete;

    /// Watches one file, which need not exist yet; its folder must. False when the path is a folder.
    bool observeFile(const String &path);
    /// Watches everything in a folder. False when the path is null or does not exist.
    /// Returns when the observation has begun, so that no later change is missed.
    bool observeFolder(const String &path);
    /// Ends the observation; does not wait for its thread. From the observation thread itself too.
    void stopObservation();

    /// True once the observation has begun, after its end as well.
    [[nodiscard]] bool isObserving() const noexcept { return isObserving_.load(); }
    /// Name of the notifications.
    [[nodiscard]] String notificationString() const { return notificationString_; }
    /// The one record that every notification carries; read it during the notification.
    [[nodiscard]] std::shared_ptr<CFileObserverInfo> observerInfo() const { return observerInfo_; }
    /// The watched file's name; null when a folder is watched.
    [[nodiscard]] String m_fileName() const;
    void setM_fileName(const String &name);
    /// The watched folder's path.
    [[nodiscard]] String m_folderName() const;
    void setM_folderName(const String &name);

    /// The observation loop; on the observation thread.
    void observeIt();
    /// Handles one batch of a stream's events; on the observation thread.
    void handleEvents(size_t count, const char *const *paths, const uint32_t *flags);

  private:
    /// The platform's record of a kernel event.
    struct KernelEvent {
        uint64_t ident;
        int16_t filter;
        uint16_t flags;
        uint32_t fflags;
        int64_t data;
        void *udata;
    };

    CFileObserver() = default;
    std::unique_ptr<FileEventStream> startStream(const Result<std::shared_ptr<RunLoop>> &loop);
    MOXEL_HIDDEN void announceBeginning() noexcept;
    static void threadFileObserver(const std::shared_ptr<CFileObserver> &observer);
    /// True when the event concerns the watched file, or when a folder is watched.
    [[nodiscard]] bool isWatched(std::string_view path) const;

    int32_t theKQueue_ = -1;                ///< Serves as the success test of init() only.
    [[maybe_unused]] KernelEvent change_{}; ///< Reserved.
    [[maybe_unused]] KernelEvent event_{};  ///< Reserved.
    std::atomic<bool> bDone_{false};
    std::atomic<bool> isObserving_{false};
    mutable std::mutex mutex_; ///< Guards the members below.
    std::condition_variable hasBegun_;
    bool begun_ = false; ///< The stream runs, or cannot.
    std::shared_ptr<RunLoop> runloop_;
    std::shared_ptr<Thread> threadWatcher_;
    String m_fileName_;
    String m_folderName_;
    String notificationString_;
    std::shared_ptr<CFileObserverInfo> observerInfo_;
};

} // namespace moxel
