// A thread that runs a run loop of GNUstep.
#include "Peers/ThreadPeer.h"

#include "Peers/GNUstepPeers.h"

namespace moxel::benchmarks {

#if MOXEL_WITH_GNUSTEP

namespace {

class GNUstepThread final : public ThreadPeer {
  public:
    explicit GNUstepThread(std::function<void()> function)
        : function_(std::move(function)),
          thread_(gnustepThreadStart(
              [](void *self) { static_cast<const GNUstepThread *>(self)->function_(); }, this)) {}
    ~GNUstepThread() override { gnustepThreadStop(thread_); }
    GNUstepThread(const GNUstepThread &) = delete;
    GNUstepThread &operator=(const GNUstepThread &) = delete;

    void handOver() override { gnustepThreadPerform(thread_); }

  private:
    const std::function<void()> function_;
    void *const thread_;
};

} // namespace

std::unique_ptr<ThreadPeer> makeGNUstepThread(std::function<void()> function) {
    return std::make_unique<GNUstepThread>(std::move(function));
}

#else

std::unique_ptr<ThreadPeer> makeGNUstepThread(std::function<void()>) { return nullptr; }

#endif

} // namespace moxel::benchmarks
