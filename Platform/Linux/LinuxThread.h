// A thread and its queue of posted work over POSIX threads.
#pragma once

#include "Platform/Linux/LinuxRunLoop.h"
#include "Platform/Linux/WorkQueue.h"
#include "Platform/Thread.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace moxel {

/// Any thread, but for what is said to be for the thread itself.
class LinuxThread final : public Thread {
  public:
    LinuxThread(std::string name, bool isMain);
    ~LinuxThread() override = default;

    /// The calling thread's object, made on first use.
    static std::shared_ptr<LinuxThread> currentLinuxThread();

    /// The thread's run loop, made on first use; only on the thread itself.
    Result<std::shared_ptr<RunLoop>> runLoop();

    void join() override;
    void detach() noexcept override;
    uint64_t identifier() const noexcept override { return identifier_; }
    std::string name() const override;
    void setName(const std::string &name) override;
    bool isMain() const noexcept override { return isMain_; }
    bool post(WorkItem &item) noexcept override { return queue_->post(item); }

  private:
    friend class Thread;
    using Holder = std::unique_ptr<std::shared_ptr<LinuxThread>>;

    class Attachment;

    /// Makes the object the calling thread's own until the thread ends.
    static void adopt(Holder holder);
    /// Has the system call threadEnds() when the calling thread ends; 0, or why it does not.
    static int keepUntilThreadEnds(const Holder &holder) noexcept;
    static void threadEnds(void *holder) noexcept;
    void end() noexcept;
    void nameSystemThread() const noexcept;

    const uint64_t identifier_;
    const bool isMain_;
    mutable std::mutex nameMutex_;
    std::string name_;
    std::shared_ptr<WorkQueue> queue_ = std::make_shared<WorkQueue>();
    std::shared_ptr<LinuxRunLoop> runLoop_; ///< Only on the thread itself.
    std::thread thread_;                    ///< Of threads made by start().
};

} // namespace moxel
