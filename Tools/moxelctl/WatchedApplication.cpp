#include "WatchedApplication.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <utility>

namespace moxel::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t lineLimit = 4096;
constexpr size_t lineCountLimit = 4096;

} // namespace

Result<WatchedApplication> WatchedApplication::start(const std::vector<std::string> &commandLine) {
    Result<ChildProcess> process =
        ChildProcess::start(commandLine, ChildProcess::Piped::errors, {"MOXEL_LOG=stderr"});
    if (!process.ok())
        return process.error();
    return WatchedApplication(*std::move(process));
}

WatchedApplication::~WatchedApplication() { process_.stopWithin(std::chrono::seconds(1)); }

bool WatchedApplication::hasLogged(const std::string &text) const {
    return std::ranges::any_of(
        logged_, [&text](const std::string &line) { return line.find(text) != std::string::npos; });
}

bool WatchedApplication::awaitLine(const std::string &text, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (!hasLogged(text)) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{process_.descriptor(), POLLIN, 0};
        if (left <= 0 || (::poll(&entry, 1, static_cast<int>(left)) < 0 && errno != EINTR))
            return false;
        if (entry.revents != 0 && !process_.read([this](std::string_view read) { take(read); }))
            return hasLogged(text);
    }
    return true;
}

void WatchedApplication::take(std::string_view text) {
    unread_ += text;
    for (size_t end = 0; (end = unread_.find('\n')) != std::string::npos; unread_.erase(0, end + 1)) {
        if (logged_.size() < lineCountLimit)
            logged_.push_back(unread_.substr(0, std::min(end, lineLimit)));
    }
    if (unread_.size() > lineLimit)
        unread_.resize(lineLimit);
}

} // namespace moxel::tool
