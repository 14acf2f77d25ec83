// Handlers for tests: they remember every call, and on which thread it came.
#pragma once

#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include <Moxel/MoxelClient.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <vector>

namespace moxel::test {

struct ReceivedCall {
    enum class Handler { message, added, removed } handler;
    bool withContext;
    uint32_t productID;
    uint32_t message; ///< 0 for devices.
    void *argument;
    std::vector<uint8_t> bytes; ///< What the argument points to, when its size is known.
    void *context;
    uint64_t thread;
};

/// There is one, because handlers are plain functions; clear() it at the start of a test.
class HandlerRecorder {
  public:
    static HandlerRecorder &instance() {
        static HandlerRecorder &recorder = *new HandlerRecorder;
        return recorder;
    }

    static void message(uint32_t productID, uint32_t message, void *argument) {
        instance().add({ReceivedCall::Handler::message, false, productID, message, argument,
                        bytesOf(message, argument), nullptr, Thread::current()->identifier()});
    }
    static void added(uint32_t productID) {
        instance().add({ReceivedCall::Handler::added,
                        false,
                        productID,
                        0,
                        nullptr,
                        {},
                        nullptr,
                        Thread::current()->identifier()});
    }
    static void removed(uint32_t productID) {
        instance().add({ReceivedCall::Handler::removed,
                        false,
                        productID,
                        0,
                        nullptr,
                        {},
                        nullptr,
                        Thread::current()->identifier()});
    }
    static void messageWithContext(uint32_t productID, uint32_t message, void *argument, void *context) {
        instance().add({ReceivedCall::Handler::message, true, productID, message, argument,
                        bytesOf(message, argument), context, Thread::current()->identifier()});
    }
    static void addedWithContext(uint32_t productID, void *context) {
        instance().add({ReceivedCall::Handler::added,
                        true,
                        productID,
                        0,
                        nullptr,
                        {},
                        context,
                        Thread::current()->identifier()});
    }
    static void removedWithContext(uint32_t productID, void *context) {
        instance().add({ReceivedCall::Handler::removed,
                        true,
                        productID,
                        0,
                        nullptr,
                        {},
                        context,
                        Thread::current()->identifier()});
    }

    void clear() {
        const std::lock_guard lock(mutex_);
        calls_.clear();
        onCall_ = nullptr;
    }
    /// Called inside the handler, on its thread, before the call counts.
    void setOnCall(std::function<void(const ReceivedCall &)> onCall) {
        const std::lock_guard lock(mutex_);
        onCall_ = std::move(onCall);
    }
    [[nodiscard]] std::vector<ReceivedCall> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    [[nodiscard]] size_t count() const {
        const std::lock_guard lock(mutex_);
        return calls_.size();
    }
    /// Waits for threaded calls; false after 10 s.
    [[nodiscard]] bool waitFor(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return calls_.size() >= count; });
    }
    /// Runs the calling thread's loop until so many calls came; false after 10 s.
    [[nodiscard]] bool dispatchUntil(size_t wanted) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (count() < wanted && std::chrono::steady_clock::now() < deadline)
            (*RunLoop::current())->dispatch(100);
        return count() >= wanted;
    }

  private:
    void add(const ReceivedCall &call) {
        std::function<void(const ReceivedCall &)> onCall;
        {
            const std::lock_guard lock(mutex_);
            onCall = onCall_;
        }
        if (onCall)
            onCall(call);
        const std::lock_guard lock(mutex_);
        calls_.push_back(call);
        changed_.notify_all();
    }

    static std::vector<uint8_t> bytesOf(uint32_t message, const void *argument) {
        size_t size = 0;
        if (message == kMoxelMsgDeviceState)
            size = sizeof(MoxelStateRecord);
        else if (message == kMoxelMsgCommandSync)
            size = 506;
        else if (message == kMoxelMsgSettingsFileChanged)
            size = sizeof(MoxelSettingsChange);
        const auto *bytes = static_cast<const uint8_t *>(argument);
        return argument && size ? std::vector<uint8_t>(bytes, bytes + size) : std::vector<uint8_t>();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<ReceivedCall> calls_;
    std::function<void(const ReceivedCall &)> onCall_;
};

} // namespace moxel::test
