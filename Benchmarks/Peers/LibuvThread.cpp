// A thread that runs a loop of libuv.
#include "Peers/ThreadPeer.h"

#if MOXEL_WITH_LIBUV
#include <atomic>
#include <thread>
#include <uv.h>
#endif

namespace moxel::benchmarks {

#if MOXEL_WITH_LIBUV

namespace {

class LibuvThread final : public ThreadPeer {
  public:
    explicit LibuvThread(std::function<void()> function) : function_(std::move(function)) {
        uv_loop_init(&loop_);
        wake_.data = this;
        uv_async_init(&loop_, &wake_,
                      [](uv_async_t *wake) { static_cast<LibuvThread *>(wake->data)->woken(); });
        thread_ = std::thread([this] { uv_run(&loop_, UV_RUN_DEFAULT); });
    }
    ~LibuvThread() override {
        ended_ = true;
        uv_async_send(&wake_);
        thread_.join();
        uv_loop_close(&loop_);
    }
    LibuvThread(const LibuvThread &) = delete;
    LibuvThread &operator=(const LibuvThread &) = delete;

    void handOver() override { uv_async_send(&wake_); }

  private:
    void woken() {
        if (ended_)
            uv_close(reinterpret_cast<uv_handle_t *>(&wake_), nullptr);
        else
            function_();
    }

    const std::function<void()> function_;
    std::atomic<bool> ended_{false};
    uv_loop_t loop_{};
    uv_async_t wake_{};
    std::thread thread_;
};

} // namespace

std::unique_ptr<ThreadPeer> makeLibuvThread(std::function<void()> function) {
    return std::make_unique<LibuvThread>(std::move(function));
}

#else

std::unique_ptr<ThreadPeer> makeLibuvThread(std::function<void()>) { return nullptr; }

#endif

} // namespace moxel::benchmarks
