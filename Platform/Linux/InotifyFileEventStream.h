// The file-event stream over inotify.
#pragma once

#include "Platform/FileEvents.h"
#include "Platform/Linux/FileEventBuffer.h"
#include "Platform/Linux/FolderTree.h"
#include "Platform/Linux/Inotify.h"

#include <memory>
#include <string>
#include <vector>

namespace moxel {

/// Lives on the thread of its run loop.
class InotifyFileEventStream final : public FileEventStream {
  public:
    InotifyFileEventStream(Inotify inotify, const std::vector<std::string> &folders, RunLoop::Seconds latency,
                           Callback callback, void *context);

    Result<void> start(RunLoop &runLoop) override;

  private:
    void readEvents();
    void deliverSoon();
    /// The callback may destroy the stream: nothing is touched afterwards.
    void deliver();

    const RunLoop::Seconds latency_;
    const Callback callback_;
    void *const context_;
    RunLoop *runLoop_ = nullptr;
    FileEventBuffer buffer_;
    Inotify inotify_;
    std::vector<std::unique_ptr<FolderTree>> trees_;
    RunLoopSource events_;
    RunLoopSource delivery_; ///< A timer while something waits to be delivered.
};

} // namespace moxel
