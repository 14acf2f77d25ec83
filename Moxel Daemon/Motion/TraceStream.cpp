#include "Moxel Daemon/Motion/TraceStream.h"

#include <array>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace moxel::daemon {

TraceStream::TraceStream(RunLoop &runLoop, int descriptor, TracePlayer &player)
    : runLoop_(runLoop), descriptor_(descriptor), player_(player) {}

Result<void> TraceStream::start() {
    Result<RunLoopSource> source = runLoop_.watchDescriptor(descriptor_, RunLoop::Descriptor::readable,
                                                            [this](RunLoop::Readiness) { read(); });
    if (source.ok()) {
        source_ = std::move(*source);
        player_.setWhenTaken([this] { regulate(); });
        return {};
    }
    if (source.error().code != EPERM)
        return source.error();
    Result<std::string> text = readTraceText(descriptor_);
    if (!text.ok())
        return text.error();
    text_ = std::move(*text);
    finishReading("");
    return {};
}

void TraceStream::read() {
    std::array<char, 4096> buffer;
    const ssize_t size = ::read(descriptor_, buffer.data(), buffer.size());
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (size <= 0) {
        finishReading(size < 0 ? systemError("Cannot read the trace", errno).message : "");
        return;
    }
    text_.append(buffer.data(), static_cast<size_t>(size));
    parseLines();
    regulate();
}

void TraceStream::finishReading(const std::string &problem) {
    text_ += text_.empty() ? "" : "\n"; // The last line may lack its end.
    parseLines();
    close(problem);
}

void TraceStream::parseLines() {
    size_t start = 0;
    for (size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n', start)) {
        Result<std::optional<TraceStep>> step =
            parser_.parse(std::string_view(text_).substr(start, end - start));
        start = end + 1;
        if (!step.ok()) {
            text_.clear();
            close(step.error().message);
            return;
        }
        if (*step)
            player_.append(std::move(**step));
    }
    text_.erase(0, start);
    if (text_.size() > longestLine && source_)
        close("a line has no end");
}

/// Only the first problem counts.
void TraceStream::close(const std::string &problem) {
    source_.reset();
    if (std::exchange(isClosed_, true))
        return;
    if (!problem.empty()) {
        player_.fail(problem);
        return;
    }
    const Result<std::chrono::nanoseconds> duration = parser_.finish();
    if (duration.ok())
        player_.end();
    else
        player_.fail(duration.error().message);
}

void TraceStream::regulate() {
    if (source_)
        runLoop_.setInterest(source_, player_.queuedSteps() < plenty, false);
}

} // namespace moxel::daemon
