// A registered session on a thread of its own, whose records are counted as they reach the handler.
#pragma once

#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Support/Arrival.h"
#include <Moxel/MoxelClient.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>

namespace moxel::benchmarks {

enum class Delivery : bool { forwarded, threaded };

/// Needs a driver. Ends its session and its thread with itself.
class Session {
  public:
    Session(Delivery delivery, Arrival &arrival) {
        std::promise<uint16_t> registered;
        thread_ = *Thread::start("session", [&, this] {
            loop_ = *RunLoop::current();
            const std::shared_ptr<RunLoop> loop = loop_;
            registered.set_value(begin(delivery, arrival));
            loop->run();
            UnregisterMoxelClient(0);
            CleanupMoxelHandlers();
        });
        clientID_ = registered.get_future().get();
    }
    ~Session() {
        loop_->stop();
        thread_->join();
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] uint16_t clientID() const { return clientID_; }
    /// Runs a function on the session's thread and waits for it.
    void perform(const std::function<void()> &work) const { thread_->perform(work, Thread::Wait::untilDone); }

  private:
    static uint16_t begin(Delivery delivery, Arrival &arrival) {
        uint8_t name[] = {9, 'B', 'e', 'n', 'c', 'h', 'm', 'a', 'r', 'k'};
        uint16_t clientID = 0;
        if (_SetMoxelHandlers(handle, nullptr, nullptr, &arrival, delivery == Delivery::threaded) == 0)
            clientID = RegisterMoxelClient(0x54657374, name, 3, 0x3F);
        if (clientID == 0) {
            std::fputs("No session: is this login session on the console?\n", stderr);
            std::exit(1);
        }
        return clientID;
    }
    static void handle(uint32_t, uint32_t message, void *, void *arrival) {
        if (message == kMoxelMsgDeviceState)
            static_cast<Arrival *>(arrival)->mark();
    }

    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
    uint16_t clientID_ = 0;
};

} // namespace moxel::benchmarks
