#include "Moxel Daemon/Bus/BusChannel.h"

#include "Platform/Log.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace moxel::daemon {

namespace {

/// Connections taken before others get their turn.
constexpr int connectionsPerTurn = 64;

} // namespace

class BusChannel::Use {
  public:
    explicit Use(BusChannel &channel) : channel_(channel) { ++channel_.uses_; }
    ~Use() {
        if (channel_.uses_ == 1)
            channel_.removeEnded();
        --channel_.uses_;
    }
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;

  private:
    BusChannel &channel_;
};

BusChannel::BusChannel(std::shared_ptr<BusServices> services, PublishedSocket socket, Data properties,
                       ChannelHandler &handler)
    : services_(std::move(services)),
      socket_(std::move(socket)),
      properties_(std::move(properties)),
      handler_(handler) {}

Result<void> BusChannel::start() {
    Result<RunLoopSource> source =
        services_->runLoop->watchDescriptor(socket_.descriptor(), RunLoop::Descriptor::readable,
                                            [this](RunLoop::Readiness) { acceptConnections(); });
    if (!source.ok())
        return source.error();
    source_ = std::move(*source);
    return {};
}

// ------------------------------------------------------------------------------------------ Connections

void BusChannel::acceptConnections() {
    const Use use(*this);
    for (int accepted = 0; accepted < connectionsPerTurn; ++accepted) {
        Descriptor socket(::accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket) {
            admit(std::move(socket));
            continue;
        }
        if (errno == EMFILE || errno == ENFILE)
            turnAway();
        else if (errno != ECONNABORTED && errno != EINTR)
            return;
    }
}

/// Without this a connection that cannot be accepted would keep the listening socket ready for ever.
void BusChannel::turnAway() {
    services_->spareDescriptor.reset();
    Descriptor(::accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
    services_->spareDescriptor.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    logLine(LogLevel::error, "Error: a client is turned away from the bus: descriptors are used up");
}

void BusChannel::admit(Descriptor socket) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) < 0)
        return;
    if (credentials.uid != 0 && credentials.uid != ::geteuid()) {
        logLine(LogLevel::error, "Error: process " + std::to_string(credentials.pid) + " of user " +
                                     std::to_string(credentials.uid) + " is refused on the bus");
        return;
    }
    const Peer peer{++services_->lastConnection, credentials.pid, credentials.uid};
    BusConnection::Owner &owner = *this;
    auto connection = std::make_unique<BusConnection>(std::move(socket), peer, owner);
    const Result<void> started = connection->start(
        *services_->runLoop, properties_, [this, served = connection.get()](RunLoop::Readiness readiness) {
            const Use use(*this);
            served->serveReadiness(readiness);
        });
    if (!started.ok()) {
        logLine(LogLevel::error, "Error: a client is turned away from the bus: " + started.error().message);
        return;
    }
    connections_.push_back(std::move(connection));
    handler_.connected(peer);
}

void BusChannel::removeEnded() {
    std::vector<std::unique_ptr<BusConnection>> ended;
    bool shrunk = false;
    // Handlers may send, which may end further connections.
    do {
        ended.clear();
        const auto firstEnded =
            std::stable_partition(connections_.begin(), connections_.end(),
                                  [](const auto &connection) { return !connection->hasEnded(); });
        std::move(firstEnded, connections_.end(), std::back_inserter(ended));
        connections_.erase(firstEnded, connections_.end());
        for (const auto &connection : ended) {
            shrunk = connection->takeShrunk() || shrunk;
            if (connection->isOpen())
                handler_.closed(connection->peer());
            handler_.disconnected(connection->peer());
        }
    } while (!ended.empty());
    for (const auto &connection : connections_)
        shrunk = connection->takeShrunk() || shrunk;
    if (shrunk)
        handler_.queuesShrank();
}

// ------------------------------------------------------------------------------------------ Requests

void BusChannel::received(BusConnection &connection, const BusRequest &request) {
    const Reply reply = answer(connection, request);
    if (!handler_.answersRequests())
        return;
    connection.send(busReplyMessage(request, reply.status, reply.content));
    if (reply.then)
        reply.then();
}

Reply BusChannel::answer(BusConnection &connection, const BusRequest &request) {
    const Peer &peer = connection.peer();
    if (request.operation == hidbus::Operation::open) {
        Reply reply = handler_.open(peer);
        if (reply.status == HIDStatus::success && handler_.answersRequests())
            connection.setOpen(true);
        return reply;
    }
    if (request.operation == hidbus::Operation::close) {
        if (!connection.isOpen())
            return {HIDStatus::notOpen, {}};
        connection.setOpen(false);
        handler_.closed(peer);
        return {};
    }
    if (!processHasOpened(peer.processID))
        return {HIDStatus::notOpen, {}};
    if (request.operation == hidbus::Operation::setReport)
        return handler_.setReport(peer, request.reportType, request.reportID, request.payload);
    if (request.capacity <= 0)
        return {HIDStatus::badArgument, {}};
    const size_t capacity = std::min(static_cast<size_t>(request.capacity), hidbus::payloadLimit);
    Reply reply = handler_.getReport(peer, request.reportType, request.reportID, capacity);
    if (reply.content.size() > capacity)
        reply.content.resize(capacity);
    return reply;
}

bool BusChannel::processHasOpened(int32_t processID) const {
    return std::any_of(connections_.begin(), connections_.end(), [processID](const auto &connection) {
        return connection->isOpen() && !connection->hasEnded() && connection->peer().processID == processID;
    });
}

// ------------------------------------------------------------------------------------------ The device

size_t BusChannel::sendInput(std::span<const uint8_t> report) {
    const Use use(*this);
    const Data message = busInputMessage(report.first(std::min(report.size(), hidbus::inputReportLimit)));
    size_t sent = 0;
    for (const auto &connection : connections_) {
        if (!connection->isOpen() || connection->hasEnded())
            continue;
        connection->send(message);
        ++sent;
    }
    return sent;
}

size_t BusChannel::openCount() const {
    return static_cast<size_t>(
        std::count_if(connections_.begin(), connections_.end(), [](const auto &connection) {
            return connection->isOpen() && !connection->hasEnded();
        }));
}

bool BusChannel::isConnectedTo(int32_t processID) const {
    return std::any_of(connections_.begin(), connections_.end(), [processID](const auto &connection) {
        return !connection->hasEnded() && connection->peer().processID == processID;
    });
}

size_t BusChannel::queuedBytes() const {
    size_t longest = 0;
    for (const auto &connection : connections_)
        longest = std::max(longest, connection->queuedBytes());
    return longest;
}

} // namespace moxel::daemon
