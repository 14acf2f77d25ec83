// The one background thread of the process, on which platform services wait for the system's news.
#pragma once

#include "Platform/Result.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"

#include <memory>

namespace moxel {

/// Runs a run loop for whoever holds a lease. Its users never block on it, so that each of them may wait for
/// work that it posted there. Any thread.
class ServiceThread {
  public:
    /// A share in the thread: it starts with the first lease and has ended when the last one is gone. A last
    /// lease that is dropped on the thread itself lets it end by itself instead.
    static Result<std::shared_ptr<ServiceThread>> lease();

    ~ServiceThread();
    ServiceThread(const ServiceThread &) = delete;
    ServiceThread &operator=(const ServiceThread &) = delete;

    /// For use on the thread itself, except what the loop allows elsewhere.
    RunLoop &runLoop() noexcept { return *runLoop_; }
    Thread &thread() noexcept { return *thread_; }

  private:
    ServiceThread() = default;
    static Result<std::shared_ptr<ServiceThread>> start();

    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> runLoop_; ///< Null when the thread has none to run.
};

} // namespace moxel
