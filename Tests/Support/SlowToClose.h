// A descriptor whose closing takes its time.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace moxel::test {

/// A connection whose other end reads nothing of what has been sent: closing it lingers until release(), or
/// for twenty seconds.
class SlowToClose {
  public:
    SlowToClose() {
        const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *const generic = reinterpret_cast<sockaddr *>(&address);
        limit(listener, SO_RCVBUF, 1 << 12); // Much less than is sent.
        EXPECT_EQ(::bind(listener.get(), generic, size), 0);
        EXPECT_EQ(::listen(listener.get(), 1), 0);
        EXPECT_EQ(::getsockname(listener.get(), generic, &size), 0);
        slow_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        limit(slow_, SO_SNDBUF, 1 << 16);
        EXPECT_EQ(::connect(slow_.get(), generic, size), 0);
        other_.reset(::accept(listener.get(), nullptr, nullptr));
        EXPECT_EQ(::fcntl(slow_.get(), F_SETFL, O_NONBLOCK), 0);
        const linger lingering{1, 20};
        EXPECT_EQ(::setsockopt(slow_.get(), SOL_SOCKET, SO_LINGER, &lingering, sizeof lingering), 0);
        static constexpr std::array<char, 65536> bytes{};
        while (::send(slow_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0)
            continue;
        limit(slow_, SO_SNDBUF, 1 << 17); // What its user sends has room.
    }

    [[nodiscard]] Descriptor take() { return std::move(slow_); }
    /// Its closing ends.
    void release() { other_.reset(); }

  private:
    static void limit(const Descriptor &socket, int queue, int bytes) {
        EXPECT_EQ(::setsockopt(socket.get(), SOL_SOCKET, queue, &bytes, sizeof bytes), 0);
    }

    Descriptor slow_;
    Descriptor other_;
};

} // namespace moxel::test
