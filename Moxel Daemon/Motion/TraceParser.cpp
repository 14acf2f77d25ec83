#include "Moxel Daemon/Motion/TraceParser.h"

#include "Moxel Daemon/Motion/TraceEvents.h"
#include "Moxel Daemon/Protocol/Numbers.h"
#include "Platform/Linux/Descriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace moxel::daemon {

namespace {

constexpr uint32_t mostRepeats = 1'000'000;
constexpr std::chrono::seconds longestTrace{1'000'000'000};
constexpr size_t largestFile = size_t{16} << 20;

} // namespace

TraceParser::TraceParser() : open_(1) {}

Error TraceParser::atLine(const std::string &what) const {
    return {"line " + std::to_string(line_) + ": " + what, 0};
}

Result<std::optional<TraceStep>> TraceParser::parse(std::string_view text) {
    ++line_;
    const Result<TraceLine> line = readTraceLine(text);
    if (!line.ok())
        return atLine(line.error().message);
    if (line->keyword.empty())
        return std::optional<TraceStep>();
    if (Result<void> advanced = advance(line->time); !advanced.ok())
        return advanced.error();
    if (line->keyword == "end")
        return closeRepeat(*line);
    if (open_.back().isEndless)
        return atLine("nothing can follow what is repeated for ever");
    if (line->keyword == "repeat") {
        if (Result<void> opened = openRepeat(*line); !opened.ok())
            return opened.error();
        return std::optional<TraceStep>();
    }
    Result<TraceEvent> event = traceEvent(*line);
    if (!event.ok())
        return atLine(event.error().message);
    return add({open_.back().now, std::move(*event)});
}

/// Sets the time of the line.
Result<void> TraceParser::advance(const TraceTime &time) {
    OpenBlock &block = open_.back();
    const std::chrono::nanoseconds now = time.isRelative ? block.now + time.seconds : time.seconds;
    if (now < block.now)
        return atLine("earlier than the line before it");
    if (now > longestTrace)
        return atLine("later than a trace can last");
    block.now = now;
    return {};
}

Result<std::optional<TraceStep>> TraceParser::add(TraceStep step) {
    if (open_.size() == 1)
        return std::optional(std::move(step));
    if (++heldSteps_ > stepLimit)
        return atLine("too many events in a repeat");
    open_.back().block.steps.push_back(std::move(step));
    return std::optional<TraceStep>();
}

Result<void> TraceParser::openRepeat(const TraceLine &line) {
    const bool isSound = line.arguments.size() == 1 && line.arguments[0].key.empty();
    const std::string count = isSound ? line.arguments[0].text : "";
    const uint32_t number = parseNumber<uint32_t>(count).value_or(0);
    const bool isEndless = count == "forever";
    if (!isEndless && (number == 0 || number > mostRepeats))
        return atLine("this should be written: repeat COUNT|forever");
    if (open_.size() > depthLimit)
        return atLine("repeats are nested too deep");
    OpenBlock block;
    block.startsAt = open_.back().now;
    block.count = isEndless ? 0 : number;
    block.line = line_;
    open_.push_back(std::move(block));
    return {};
}

Result<std::optional<TraceStep>> TraceParser::closeRepeat(const TraceLine &line) {
    if (!line.arguments.empty())
        return atLine("this should be written: end");
    if (open_.size() == 1)
        return atLine("there is no repeat to end");
    OpenBlock closed = std::move(open_.back());
    open_.pop_back();
    OpenBlock &around = open_.back();
    heldSteps_ = open_.size() == 1 ? 0 : heldSteps_;
    closed.block.duration = closed.now;
    around.isEndless = closed.isEndless || closed.count == 0;
    if (closed.count == 0 && closed.now.count() == 0)
        return atLine("what is repeated for ever must take some time");
    if (closed.count != 0 && closed.now > (longestTrace - closed.startsAt) / closed.count)
        return atLine("later than a trace can last");
    around.now = closed.startsAt + closed.now * closed.count;
    return add({closed.startsAt,
                TraceRepeat{closed.count, std::make_shared<const TraceBlock>(std::move(closed.block))}});
}

Result<std::chrono::nanoseconds> TraceParser::finish() const {
    if (open_.size() > 1)
        return Error{"line " + std::to_string(open_.back().line) + ": this repeat has no end", 0};
    return open_.back().now;
}

Result<TraceBlock> parseTrace(std::string_view text) {
    TraceParser parser;
    TraceBlock trace;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        Result<std::optional<TraceStep>> step = parser.parse(text.substr(0, end));
        if (!step.ok())
            return step.error();
        if (*step)
            trace.steps.push_back(std::move(**step));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    const Result<std::chrono::nanoseconds> duration = parser.finish();
    if (!duration.ok())
        return duration.error();
    trace.duration = *duration;
    return trace;
}

Result<std::string> readTraceText(int descriptor) {
    std::string text;
    std::array<char, 65536> buffer;
    while (true) {
        const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            return systemError("Cannot read the trace", errno);
        if (size == 0)
            return text;
        text.append(buffer.data(), static_cast<size_t>(size));
        if (text.size() > largestFile)
            return Error{"the trace is larger than 16 MiB", 0};
    }
}

Result<TraceBlock> loadTrace(const std::string &path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return systemError(path, errno);
    const Result<std::string> text = readTraceText(file.get());
    if (!text.ok())
        return Error{path + ": " + text.error().message, text.error().code};
    Result<TraceBlock> trace = parseTrace(*text);
    if (!trace.ok())
        return Error{path + ": " + trace.error().message, 0};
    return trace;
}

} // namespace moxel::daemon
