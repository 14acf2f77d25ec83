// Routes log lines to the newest capture, or to the destination chosen for the process.
#include "Platform/Log.h"

#include "Platform/LogText.h"
#include "Platform/SystemLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace moxel {

namespace {

enum class Destination { undecided, system, standardError, off };

Destination destinationFromEnvironment() {
    const char *text = ::getenv("MOXEL_LOG"); // NOLINT(concurrency-mt-unsafe): read only, once
    const std::string_view choice = text != nullptr ? text : "";
    if (choice == "stderr")
        return Destination::standardError;
    return choice == "off" ? Destination::off : Destination::system;
}

Destination destination() noexcept {
    static std::atomic<Destination> chosen = Destination::undecided;
    auto current = chosen.load(std::memory_order_relaxed);
    if (current == Destination::undecided) {
        const auto fromEnvironment = destinationFromEnvironment();
        if (chosen.compare_exchange_strong(current, fromEnvironment, std::memory_order_relaxed))
            current = fromEnvironment;
    }
    return current;
}

void writeStandardError(std::string_view line) {
    const std::string text = "moxel: " + printableText(line) + '\n';
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

void writeToDestination(LogLevel level, std::string_view line) {
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    switch (destination()) {
    case Destination::standardError:
        writeStandardError(line);
        break;
    case Destination::system:
        writeSystemLog(level, line);
        break;
    case Destination::undecided:
    case Destination::off:
        break;
    }
}

class Capture;

// The capture whose sink this thread runs: what the sink itself logs passes the captures by.
thread_local const Capture *runningCapture = nullptr;

class Capture {
  public:
    Capture(const LogCapture *owner, LogSink sink) : owner_(owner), sink_(std::move(sink)) {}

    const LogCapture *owner() const { return owner_; }

    // False when the capture has ended meanwhile.
    bool deliver(LogLevel level, std::string_view line) {
        const std::lock_guard lock(delivery_);
        if (ended_)
            return false;
        runningCapture = this;
        try {
            sink_(level, line);
        } catch (...) { // NOLINT(bugprone-empty-catch): a line that cannot be written is lost
        }
        runningCapture = nullptr;
        return true;
    }

    // Afterwards no sink call is under way, save the one that this is called from, and none begins.
    void end() {
        if (runningCapture == this) {
            ended_ = true;
            return;
        }
        const std::lock_guard lock(delivery_);
        ended_ = true;
    }

  private:
    const LogCapture *owner_;
    LogSink sink_;
    std::mutex delivery_; // held while the sink runs
    bool ended_ = false;
};

// The captures in force, oldest first.
class Captures {
  public:
    // Never destroyed: threads may log until the process is gone.
    static Captures &instance() {
        static auto &captures = *new Captures;
        return captures;
    }

    bool any() const { return count_.load(std::memory_order_acquire) != 0; }

    void add(std::shared_ptr<Capture> capture) {
        const std::lock_guard lock(mutex_);
        captures_.push_back(std::move(capture));
        count_.store(captures_.size(), std::memory_order_release);
    }

    std::shared_ptr<Capture> remove(const LogCapture *owner) {
        const std::lock_guard lock(mutex_);
        const auto position = std::find_if(captures_.begin(), captures_.end(),
                                           [owner](const auto &each) { return each->owner() == owner; });
        auto capture = std::move(*position);
        captures_.erase(position);
        count_.store(captures_.size(), std::memory_order_release);
        return capture;
    }

    std::shared_ptr<Capture> newest() {
        const std::lock_guard lock(mutex_);
        return captures_.empty() ? nullptr : captures_.back();
    }

  private:
    std::mutex mutex_;
    std::vector<std::shared_ptr<Capture>> captures_;
    std::atomic<size_t> count_ = 0;
};

bool deliverToNewestCapture(LogLevel level, std::string_view line) {
    auto &captures = Captures::instance();
    while (captures.any()) {
        const auto capture = captures.newest();
        if (capture && capture->deliver(level, line))
            return true;
    }
    return false;
}

} // namespace

void logLine(LogLevel level, std::string_view line) noexcept {
    const int savedErrno = errno;
    try {
        if (runningCapture != nullptr || !deliverToNewestCapture(level, line))
            writeToDestination(level, line);
    } catch (...) { // NOLINT(bugprone-empty-catch): a line that cannot be written is lost
    }
    errno = savedErrno;
}

bool logEnabled() noexcept { return destination() != Destination::off || Captures::instance().any(); }

LogCapture::LogCapture(LogSink sink) {
    Captures::instance().add(std::make_shared<Capture>(this, std::move(sink)));
}

LogCapture::~LogCapture() { Captures::instance().remove(this)->end(); }

} // namespace moxel
