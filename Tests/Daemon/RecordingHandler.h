// Stands behind a published device in tests.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Support/Await.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <unistd.h>
#include <vector>

namespace moxel::daemon {

/// Answers as its members say, and writes down what it is told. Lives on the publisher's thread; `told` and
/// the members that tests set may be used from any.
class RecordingHandler : public ChannelHandler {
  public:
    void connected(const Peer &peer) override {
        tell("connected " + std::to_string(peer.processID == ::getpid()));
    }
    void disconnected(const Peer &) override { tell("disconnected"); }
    Reply open(const Peer &) override {
        tell("open");
        return {openStatus, {}, [this] { tell("open answered"); }};
    }
    void closed(const Peer &) override { tell("closed"); }
    Reply setReport(const Peer &, HIDReportType type, uint8_t reportID,
                    std::span<const uint8_t> report) override {
        tell("set " + std::to_string(static_cast<int>(type)) + " " + std::to_string(reportID) + " " +
             std::to_string(report.size()));
        return {setStatus, {}};
    }
    Reply getReport(const Peer &, HIDReportType, uint8_t reportID, size_t capacity) override {
        tell("get " + std::to_string(reportID) + " " + std::to_string(capacity));
        return {getStatus, content};
    }
    bool answersRequests() const override { return answers; }
    void queuesShrank() override {
        shrunk.change([](int &count) { ++count; });
    }

    std::atomic<HIDStatus> openStatus = HIDStatus::success;
    std::atomic<HIDStatus> setStatus = HIDStatus::success;
    std::atomic<HIDStatus> getStatus = HIDStatus::success;
    std::atomic<bool> answers = true;
    Data content = {1, 2, 3};
    test::Awaited<std::vector<std::string>> told;
    test::Awaited<int> shrunk;

    [[nodiscard]] bool wasTold(const std::string &text) const {
        return told.await(
            [&](const auto &lines) { return std::count(lines.begin(), lines.end(), text) > 0; });
    }

  private:
    void tell(const std::string &text) {
        told.change([&](std::vector<std::string> &lines) { lines.push_back(text); });
    }
};

} // namespace moxel::daemon
