// What a file observer reports with each notification.
#pragma once

#include "MoxelBase.h"
#include "Platform/NotificationCenter.h"
#include "Values/String.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace moxel {

/// Filled anew for every notification; valid during its delivery. Any thread.
class MOXEL_EXPORT CFileObserverInfo final : public NotificationObject {
  public:
    /// 1 the item was removed; 2 it was created, changed, or its metadata changed; 0 between notifications.
    [[nodiscard]] int32_t eventReason() const noexcept { return eventReason_.load(); }
    void setEventReason(int32_t reason) noexcept { eventReason_.store(reason); }
    /// Name of the watched file; null when a folder is watched.
    [[nodiscard]] String fileName() const;
    void setFileName(const String &name);
    /// Path of the watched folder.
    [[nodiscard]] String folderName() const;
    void setFolderName(const String &name);

    /// A line with reason and names, for logs.
    [[nodiscard]] std::string description() const override;

  private:
    std::atomic<int32_t> eventReason_{0};
    mutable std::mutex mutex_;
    String fileName_;
    String folderName_;
};

} // namespace moxel
