// A thread that runs a main loop of GLib.
#include "Peers/ThreadPeer.h"

#if MOXEL_WITH_GLIB
#include <glib.h>
#include <thread>
#endif

namespace moxel::benchmarks {

#if MOXEL_WITH_GLIB

namespace {

class GLibThread final : public ThreadPeer {
  public:
    explicit GLibThread(std::function<void()> function)
        : function_(std::move(function)),
          context_(g_main_context_new()),
          loop_(g_main_loop_new(context_, FALSE)),
          thread_([this] {
              g_main_context_push_thread_default(context_);
              g_main_loop_run(loop_);
              g_main_context_pop_thread_default(context_);
          }) {}
    ~GLibThread() override {
        g_main_context_invoke(
            context_,
            [](gpointer loop) {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return gboolean{G_SOURCE_REMOVE};
            },
            loop_);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    GLibThread(const GLibThread &) = delete;
    GLibThread &operator=(const GLibThread &) = delete;

    void handOver() override {
        g_main_context_invoke(
            context_,
            [](gpointer self) {
                static_cast<GLibThread *>(self)->function_();
                return gboolean{G_SOURCE_REMOVE};
            },
            this);
    }

  private:
    const std::function<void()> function_;
    GMainContext *const context_;
    GMainLoop *const loop_;
    std::thread thread_;
};

} // namespace

std::unique_ptr<ThreadPeer> makeGLibThread(std::function<void()> function) {
    return std::make_unique<GLibThread>(std::move(function));
}

#else

std::unique_ptr<ThreadPeer> makeGLibThread(std::function<void()>) { return nullptr; }

#endif

} // namespace moxel::benchmarks
