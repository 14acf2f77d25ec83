// Publishers of the user-space HID bus made of raw sockets: one that a test leads by the hand, one that
// serves by itself.
#pragma once

#include "Support/Await.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::test {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

inline Bytes pascalString(std::string_view text) {
    return Bytes{static_cast<uint8_t>(text.size())} + bytesOf(text);
}

/// PROPERTIES of vendor 0x4D58, product 0x0102, usage page 0xFF00, usage 0x0001.
inline Bytes propertiesMessage(std::string_view name) {
    return Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0x58, 0x4D, 0x02, 0x01, 0x00, 0xFF, 0x01, 0x00} +
           pascalString(name) + pascalString("Moxel") + pascalString("Channel") + pascalString("S1");
}

/// A reply without payload to operation `operation`.
inline Bytes replyMessage(uint8_t operation, uint32_t status = 0) {
    return {operation,
            0,
            0,
            0,
            static_cast<uint8_t>(status),
            static_cast<uint8_t>(status >> 8),
            static_cast<uint8_t>(status >> 16),
            static_cast<uint8_t>(status >> 24)};
}

inline Bytes inputMessage(const Bytes &report) {
    return Bytes{6, 0, report.empty() ? uint8_t{0} : report[0], 0, 0, 0, 0, 0} + report;
}

/// The publisher's end of one connection. Waits are bounded by the test's patience.
class PublisherConnection {
  public:
    explicit PublisherConnection(int descriptor = -1) : descriptor_(descriptor) {
        const timeval limit{patience.count(), 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~PublisherConnection() { hangUp(); }
    PublisherConnection(PublisherConnection &&other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    PublisherConnection &operator=(PublisherConnection &&other) noexcept {
        hangUp();
        descriptor_ = std::exchange(other.descriptor_, -1);
        return *this;
    }

    [[nodiscard]] int descriptor() const { return descriptor_; }

    /// False when the client has hung up.
    bool send(const Bytes &message) const {
        return ::send(descriptor_, message.data(), message.size(), MSG_NOSIGNAL) >= 0;
    }
    /// The next message; empty when the client has hung up.
    [[nodiscard]] Bytes receive() const {
        Bytes message(8192);
        const ssize_t size = ::recv(descriptor_, message.data(), message.size(), 0);
        EXPECT_FALSE(size < 0 && errno == EAGAIN) << "The client sent nothing";
        message.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return message;
    }
    /// True when the client hangs up; what it sends before that is dropped.
    [[nodiscard]] bool awaitHangUp() const {
        Bytes message(8192);
        ssize_t size = 1;
        while (size > 0)
            size = ::recv(descriptor_, message.data(), message.size(), 0);
        return size == 0 || errno == ECONNRESET;
    }
    void hangUp() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }

  private:
    int descriptor_;
};

/// A device's socket, accepted and answered by hand.
class PublisherSocket {
  public:
    enum class Appear { now, later };

    PublisherSocket(const std::filesystem::path &folder, const std::string &name, Appear appear = Appear::now,
                    int type = SOCK_SEQPACKET, int backlog = SOMAXCONN)
        : hidden_(folder / ("." + name + ".tmp")),
          visible_(folder / (name + ".hid")),
          descriptor_(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
        bindTo(hidden_);
        EXPECT_EQ(::listen(descriptor_, backlog), 0);
        if (appear == Appear::now)
            show();
    }
    ~PublisherSocket() {
        stopListening();
        std::error_code ignored;
        std::filesystem::remove(hidden_, ignored);
        std::filesystem::remove(visible_, ignored);
    }
    PublisherSocket(const PublisherSocket &) = delete;
    PublisherSocket &operator=(const PublisherSocket &) = delete;

    /// Listens as another user; needs root. The kernel remembers who called listen().
    void listenAs(uid_t user) const {
        std::thread([this, user] {
            // The system call changes this one thread only, unlike the library's function.
            EXPECT_EQ(::syscall(SYS_setresuid, user, user, user), 0);
            EXPECT_EQ(::listen(descriptor_, SOMAXCONN), 0);
        }).join();
    }
    void show() const { std::filesystem::rename(hidden_, visible_); }
    /// Leaves a stale file behind.
    void stopListening() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }
    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] const std::filesystem::path &path() const { return visible_; }
    [[nodiscard]] const std::filesystem::path &hiddenPath() const { return hidden_; }

    [[nodiscard]] PublisherConnection accept() const {
        pollfd listener{descriptor_, POLLIN, 0};
        const auto limit = std::chrono::milliseconds(patience).count();
        EXPECT_EQ(::poll(&listener, 1, static_cast<int>(limit)), 1) << "No client connects";
        return PublisherConnection(::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC));
    }
    /// Accepts and says what the device is.
    [[nodiscard]] PublisherConnection acceptAs(std::string_view name) const {
        PublisherConnection connection = accept();
        connection.send(propertiesMessage(name));
        return connection;
    }

  private:
    /// Binds through the folder's descriptor, since a path may be too long for an address.
    void bindTo(const std::filesystem::path &path) const {
        const int folder = ::open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        const std::string shortPath =
            "/proc/thread-self/fd/" + std::to_string(folder) + "/" + path.filename().string();
        const std::string &chosen = path.native().size() < 100 ? path.native() : shortPath;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, chosen.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0)
            << "errno " << errno;
        ::close(folder);
    }

    std::filesystem::path hidden_;
    std::filesystem::path visible_;
    int descriptor_;
};

/// A device that serves all its connections on a thread of its own: properties first, every request answered
/// by `answer`, which gets the request and returns the messages to send.
class ServingPublisher {
  public:
    using Answer = std::function<std::vector<Bytes>(const Bytes &request)>;

    static std::vector<Bytes> answerSuccess(const Bytes &request) { return {replyMessage(request[0])}; }

    ServingPublisher(const std::filesystem::path &folder, const std::string &name,
                     Answer answer = answerSuccess)
        : socket_(std::make_unique<PublisherSocket>(folder, name, PublisherSocket::Appear::later)),
          name_(name),
          answer_(std::move(answer)),
          wake_(::eventfd(0, EFD_CLOEXEC)) {
        thread_ = std::thread([this] { serve(); });
        socket_->show();
    }
    ~ServingPublisher() {
        stop();
        ::close(wake_);
    }
    ServingPublisher(const ServingPublisher &) = delete;
    ServingPublisher &operator=(const ServingPublisher &) = delete;

    /// Hangs up everywhere and removes the file.
    void stop() {
        if (!thread_.joinable())
            return;
        const uint64_t one = 1;
        EXPECT_EQ(::write(wake_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
        thread_.join();
        open_.set({});
        connections_.clear();
        socket_.reset();
    }

    /// Sends to every connection that is open; waits for slow ones.
    void sendInput(const Bytes &report) const {
        for (const auto &connection : open_.get())
            connection->send(inputMessage(report));
    }
    [[nodiscard]] bool awaitOpenConnections(size_t count) const {
        return open_.await([count](const auto &open) { return open.size() == count; });
    }
    [[nodiscard]] int acceptedConnections() const { return accepted_.get(); }
    [[nodiscard]] std::vector<Bytes> requests() const { return requests_.get(); }

  private:
    using Shared = std::shared_ptr<PublisherConnection>;

    void serve() {
        for (;;) {
            std::vector<pollfd> watched{{wake_, POLLIN, 0}, {socket_->descriptor(), POLLIN, 0}};
            for (const Shared &connection : connections_)
                watched.push_back({connection->descriptor(), POLLIN, 0});
            ::poll(watched.data(), watched.size(), -1);
            if (watched[0].revents != 0)
                return;
            const auto served = connections_;
            for (size_t i = 0; i < served.size(); ++i) {
                if (watched[i + 2].revents != 0)
                    serveConnection(served[i]);
            }
            if (watched[1].revents != 0) {
                connections_.push_back(std::make_shared<PublisherConnection>(socket_->acceptAs(name_)));
                accepted_.change([](int &count) { ++count; });
            }
        }
    }

    void serveConnection(const Shared &connection) {
        const Bytes request = connection->receive();
        if (request.empty()) {
            forget(connection);
            std::erase(connections_, connection);
            return;
        }
        requests_.change([&](auto &requests) { requests.push_back(request); });
        if (request[0] == 3)
            forget(connection);
        for (const Bytes &message : answer_(request)) {
            // In one step: whoever sees the device open may send input, which goes behind the reply.
            open_.change([&](auto &open) {
                connection->send(message);
                if (message == replyMessage(2))
                    open.push_back(connection);
            });
        }
    }

    void forget(const Shared &connection) {
        open_.change([&](auto &open) { std::erase(open, connection); });
    }

    std::unique_ptr<PublisherSocket> socket_;
    const std::string name_;
    const Answer answer_;
    const int wake_;
    std::vector<Shared> connections_; // The thread's.
    Awaited<std::vector<Shared>> open_;
    Awaited<int> accepted_;
    Awaited<std::vector<Bytes>> requests_;
    std::thread thread_;
};

} // namespace moxel::test
