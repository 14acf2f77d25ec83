#include "Moxel Daemon/Protocol/MessageJoiner.h"

#include "Platform/Log.h"

#include <utility>

namespace moxel::daemon {

void MessageJoiner::take(const ReceivedRequest &block) {
    if (!block.continues || message_.bytes.size() + block.bytes.size() > messageLimit)
        finish();
    if (!block.name.empty())
        return;
    message_.channelID = block.channelID;
    message_.clientID = block.clientID;
    message_.bytes.insert(message_.bytes.end(), block.bytes.begin(), block.bytes.end());
    ++message_.slices;
    if (block.mayGoOn)
        waitForNextSlice();
    else
        finish();
}

void MessageJoiner::finish() {
    timer_.reset();
    if (message_.slices > 0)
        whenComplete_(std::exchange(message_, {}));
}

void MessageJoiner::waitForNextSlice() {
    Result<RunLoopSource> timer = runLoop_.addTimer(timeout_, RunLoop::Seconds(0), [this] { finish(); });
    if (timer.ok()) {
        timer_ = std::move(*timer);
        return;
    }
    logLine(LogLevel::error, "Error: " + timer.error().message);
    finish();
}

} // namespace moxel::daemon
