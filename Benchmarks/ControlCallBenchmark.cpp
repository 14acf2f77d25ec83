// A control call with its acknowledgement, beside threads that send the same datagrams and do nothing else.
#include "Support/BareDriver.h"
#include "Support/BareReceivers.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/Table.h"
#include "Values/KeyedArchive.h"

#include <condition_variable>
#include <mutex>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 31;
constexpr size_t callsPerRound = 500;
constexpr size_t replySize = sizeof(hidbus::MessageHeader);
constexpr size_t acknowledgementSize = sizeof(hidbus::MessageHeader) + sizeof(wire::DaemonResponse);
constexpr size_t announcementSize =
    sizeof(hidbus::MessageHeader) + wire::channelTagSize + sizeof(wire::MxControlPacket);

/// The datagrams of a control call between three threads: the request and its announcement, each with the
/// reply that the bus asks for, then the acknowledgement, which the client's thread hands to the caller.
class BareCall {
  public:
    explicit BareCall(size_t requestSize)
        : request_(requestSize), driver_([this] { drive(); }), client_([this] { receive(); }) {}
    ~BareCall() {
        requests_.hangUp();
        driver_.join();
        input_.hangUp();
        client_.join();
    }
    BareCall(const BareCall &) = delete;
    BareCall &operator=(const BareCall &) = delete;

    void perform() {
        exchange(request_);
        exchange(announcement_);
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return acknowledged_; });
        acknowledged_ = false;
    }

  private:
    void exchange(const std::vector<uint8_t> &request) const {
        std::array<uint8_t, replySize> reply;
        ::send(requests_.sendersEnd(), request.data(), request.size(), MSG_NOSIGNAL);
        if (::recv(requests_.sendersEnd(), reply.data(), reply.size(), 0) != replySize)
            std::abort();
    }
    void drive() const {
        const Waiter waiter(requests_.receiversEnd());
        std::array<uint8_t, hidbus::messageLimit> request;
        const std::array<uint8_t, replySize> reply{};
        const std::array<uint8_t, acknowledgementSize> acknowledgement{};
        for (size_t received = 1;; ++received) {
            waiter.wait();
            if (::recv(requests_.receiversEnd(), request.data(), request.size(), 0) <= 0)
                return;
            ::send(requests_.receiversEnd(), reply.data(), reply.size(), MSG_NOSIGNAL);
            if (received % 2 == 0)
                ::send(input_.sendersEnd(), acknowledgement.data(), acknowledgement.size(), MSG_NOSIGNAL);
        }
    }
    void receive() {
        const Waiter waiter(input_.receiversEnd());
        std::array<uint8_t, acknowledgementSize> acknowledgement;
        for (;;) {
            waiter.wait();
            if (::recv(input_.receiversEnd(), acknowledgement.data(), acknowledgement.size(), 0) <= 0)
                return;
            const std::lock_guard lock(mutex_);
            acknowledged_ = true;
            changed_.notify_all();
        }
    }

    const std::vector<uint8_t> request_;
    const std::vector<uint8_t> announcement_ = std::vector<uint8_t>(announcementSize);
    SocketPair requests_;
    SocketPair input_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool acknowledged_ = false;
    std::thread driver_;
    std::thread client_;
};

double medianOf(const std::function<void()> &call) {
    std::vector<double> times;
    for (size_t i = 0; i < callsPerRound; ++i) {
        const double begin = now();
        call();
        times.push_back(now() - begin);
    }
    return median(std::move(times));
}

/// Of the request that the call sends, with its header and its tag.
size_t requestDatagramSize() {
    const Result<Data> archive = archivedDataWithRootObject(
        Dictionary{{"req", "moxclientctrl"}, {"ctrlcmd", uint32_t{0x6D763F72}}, {"ctrlparm", int32_t{1}}});
    return sizeof(hidbus::MessageHeader) + wire::channelTagSize + archive->size();
}

void run() {
    constexpr uint32_t anyControlCode = 0x6D763F72;
    const PrivateFolders folders;
    BareDriver driver(folders.bus());
    Arrival arrival;
    const Session session(Delivery::threaded, arrival);
    BareCall bareCall(requestDatagramSize());
    const auto libraryCall = [&session] {
        int32_t result = 0;
        if (MoxelClientControl(session.clientID(), anyControlCode, 1, &result) != 0)
            std::abort();
    };
    const RoundsOfSubjects times = inRounds(rounds, {[&] { return medianOf([&] { bareCall.perform(); }); },
                                                     [&] { return medianOf(libraryCall); }});
    printTimes("control call with acknowledgement", "its datagrams and one hop, bare", median(times[0]),
               median(times[1]), atMost(1.3));
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
