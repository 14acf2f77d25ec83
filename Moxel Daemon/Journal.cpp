#include "Moxel Daemon/Journal.h"

namespace moxel::daemon {

namespace {

/// Adds an entry and forgets the oldest ones beyond the limits.
template <class Entry>
void keep(std::deque<Entry> &entries, size_t &bytes, Entry entry, size_t entryLimit, size_t byteLimit) {
    bytes += entry.bytes.size();
    entries.push_back(std::move(entry));
    while (!entries.empty() && (entries.size() > entryLimit || bytes > byteLimit)) {
        bytes -= entries.front().bytes.size();
        entries.pop_front();
    }
}

} // namespace

void Journal::add(ReceivedReport report) {
    update([&](Observation &observation) {
        report.sequence = observation.reportCount++;
        keep(observation.reports, reportBytes_, std::move(report), entryLimit_, byteLimit_);
    });
}

void Journal::add(ReceivedRequest request) {
    update([&](Observation &observation) {
        ++observation.requestCount;
        keep(observation.requests, requestBytes_, std::move(request), entryLimit_, byteLimit_);
    });
}

void Journal::add(ReceivedMessage message) {
    update([&](Observation &observation) {
        keep(observation.messages, messageBytes_, std::move(message), entryLimit_, byteLimit_);
    });
}

bool Journal::waitUntil(const Predicate &predicate, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return predicate(observation_); });
}

} // namespace moxel::daemon
