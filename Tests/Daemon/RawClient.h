// A client of the bus made of a bare socket, which sends and expects literal bytes.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Moxel Daemon/Daemon.h"
#include "Support/Await.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::daemon {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Statuses of replies, as numbers.
namespace status {
inline constexpr uint32_t error = 0xE00002BC;
inline constexpr uint32_t badArgument = 0xE00002C2;
inline constexpr uint32_t notOpen = 0xE00002CD;
inline constexpr uint32_t timedOut = 0xE00002D6;
inline constexpr uint32_t notPermitted = 0xE00002E2;
} // namespace status

inline Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

inline Bytes littleEndian(uint64_t number, size_t width) {
    Bytes bytes;
    for (size_t index = 0; index < width; ++index)
        bytes.push_back(static_cast<uint8_t>(number >> (8 * index)));
    return bytes;
}

/// A message of the bus.
inline Bytes message(uint8_t operation, uint8_t type, uint8_t reportID, uint32_t value,
                     const Bytes &payload = {}) {
    return Bytes{operation, type, reportID, 0} + littleEndian(value, 4) + payload;
}

/// How long a test waits for something that has to happen.
inline constexpr std::chrono::milliseconds patience = test::patience;

/// One connection to a device. All waits are bounded by the tests' patience.
class RawConnection {
  public:
    /// Connects to a socket by its path; fails the test when it is not there.
    explicit RawConnection(const std::string &path)
        : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof address.sun_path);
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const timeval limit{test::patience.count(), 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0)
            << path << ": " << std::generic_category().message(errno);
    }
    ~RawConnection() { hangUp(); }
    RawConnection(RawConnection &&other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
    RawConnection &operator=(RawConnection &&) = delete;

    void hangUp() {
        if (socket_ >= 0)
            ::close(std::exchange(socket_, -1));
    }

    void send(const Bytes &bytes) const {
        EXPECT_EQ(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    /// The next message; empty when the device has hung up.
    [[nodiscard]] Bytes receive() const {
        Bytes bytes(8192);
        const ssize_t size = ::recv(socket_, bytes.data(), bytes.size(), 0);
        EXPECT_FALSE(size < 0 && errno == EAGAIN) << "nothing comes";
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        return bytes;
    }
    /// True when no message is there now.
    [[nodiscard]] bool isQuiet() const {
        uint8_t byte = 0;
        return ::recv(socket_, &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
    }
    [[nodiscard]] int descriptor() const { return socket_; }

  private:
    int socket_;
};

/// A connection that has read the properties: requests and their replies, and the input between them.
class RawClient {
  public:
    struct Answer {
        uint32_t status = 0;
        Bytes content;
    };

    RawClient(const std::string &folder, const std::string &name)
        : connection_(folder + "/" + name + ".hid") {
        properties = connection_.receive();
    }

    /// Sends a request and waits for its reply; input that comes before it is kept.
    Answer request(const Bytes &bytes) {
        connection_.send(bytes);
        return reply(bytes.at(0));
    }
    Answer reply(uint8_t operation) {
        for (;;) {
            Bytes received = connection_.receive();
            if (received.size() < 8) {
                ADD_FAILURE() << "the device hung up";
                return {};
            }
            if (received[0] == 6) {
                input_.emplace_back(received.begin() + 8, received.end());
                continue;
            }
            EXPECT_EQ(received[0], operation);
            Answer answer;
            std::memcpy(&answer.status, &received[4], 4);
            answer.content.assign(received.begin() + 8, received.end());
            return answer;
        }
    }

    uint32_t open() { return request(message(2, 0, 0, 0)).status; }
    uint32_t close() { return request(message(3, 0, 0, 0)).status; }
    uint32_t setReport(uint8_t reportID, uint64_t tag, const Bytes &payload) {
        return request(message(4, 1, reportID, 0, littleEndian(tag, 8) + payload)).status;
    }
    Answer getReport(uint8_t reportID, uint32_t capacity) {
        return request(message(5, 1, reportID, capacity));
    }

    /// The next input report, its identifier first; empty when the device has hung up.
    Bytes input() {
        if (!input_.empty()) {
            Bytes report = std::move(input_.front());
            input_.pop_front();
            return report;
        }
        const Bytes received = connection_.receive();
        if (received.empty())
            return {};
        EXPECT_EQ(received.at(0), 6) << "a reply that nobody asked for";
        return {received.begin() + 8, received.end()};
    }
    /// True when no input has come. A request before it makes sure that all that was due has come.
    [[nodiscard]] bool isQuiet() const { return input_.empty() && connection_.isQuiet(); }
    /// True when the device hangs up; what it sends before that is dropped.
    [[nodiscard]] bool awaitHangUp() const {
        while (!connection_.receive().empty()) {
        }
        return true;
    }

    [[nodiscard]] const RawConnection &connection() const { return connection_; }
    RawConnection &connection() { return connection_; }

    Bytes properties;

  private:
    RawConnection connection_;
    std::deque<Bytes> input_;
};

} // namespace moxel::daemon
