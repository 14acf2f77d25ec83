#include "Protocol/StateForwarder.h"

#include "Helpers/Logging.h"
#include "Platform/Thread.h"
#include "Platform/WorkItem.h"
#include "Protocol/CallerThreadWatch.h"
#include <Moxel/MoxelClientAPI.h>

#include <thread>
#include <utility>

namespace moxel {

namespace {

/// Records that may wait for a caller thread that does not run its loop.
constexpr size_t itemLimit = 65536;

} // namespace

class StateForwarder::Item final : public WorkItem {
  public:
    explicit Item(StateForwarder &forwarder) : forwarder_(forwarder) {}

    /// Client thread, for an item that is not under way.
    void fill(std::shared_ptr<MoxelClientAPI> client, uint32_t productID,
              const MoxelStateRecord &record) noexcept {
        client_ = std::move(client);
        productID_ = productID;
        record_ = record;
        state_.store(State::waiting);
    }

    /// Client thread. Overwrites the record if nobody has begun to deliver it.
    bool replace(uint32_t productID, const MoxelStateRecord &record) noexcept {
        State expected = State::waiting;
        if (!state_.compare_exchange_strong(expected, State::changing))
            return false;
        productID_ = productID;
        record_ = record;
        state_.store(State::waiting);
        return true;
    }

    void run() override {
        const std::shared_ptr<MoxelClientAPI> client = claim();
        client->callerThreadWatch_->taken();
        const uint32_t productID = productID_;
        MoxelStateRecord record = record_;
        forwarder_.giveBack(*this); // First, so that a handler that never returns does not keep the item.
        client->deliverForwardedState(productID, record);
    }

    void discard() noexcept override {
        const std::shared_ptr<MoxelClientAPI> client = claim();
        client->callerThreadWatch_->taken();
        --client->outstandingStateCallbacks_;
        forwarder_.giveBack(*this);
    }

    Item *next = nullptr; ///< In the lists of free items.

  private:
    enum class State : uint8_t { waiting, changing, claimed };

    /// The client, which keeps the item alive as long as the result.
    std::shared_ptr<MoxelClientAPI> claim() noexcept {
        State expected = State::waiting;
        while (!state_.compare_exchange_weak(expected, State::claimed)) {
            expected = State::waiting;
            std::this_thread::yield(); // The client thread is copying 48 bytes.
        }
        return std::move(client_);
    }

    StateForwarder &forwarder_;
    std::atomic<State> state_{State::claimed};
    std::shared_ptr<MoxelClientAPI> client_;
    uint32_t productID_ = 0;
    MoxelStateRecord record_{};
};

StateForwarder::StateForwarder(MoxelClientAPI &client) : client_(client) {}

StateForwarder::~StateForwarder() = default; // No item is under way: each holds the client while it is.

void StateForwarder::forward(Thread &callerThread, uint32_t productID, const MoxelStateRecord &record) {
    if (newestMotion_ && newestMotion_->replace(productID, record)) { // The overwritten one has been dropped.
        if (!isDroppable(record))
            newestMotion_ = nullptr;
        return;
    }
    Item *item = takeItem();
    if (!item) {
        if (!std::exchange(limitReported_, true))
            logError("Error: state records are dropped because %lu wait for a thread that does not run its "
                     "run loop",
                     itemLimit);
        return;
    }
    limitReported_ = false;
    ++client_.outstandingStateCallbacks_; // Once nothing can fail any more.
    item->fill(client_.shared_from_this(), productID, record);
    newestMotion_ = isDroppable(record) ? item : nullptr;
    client_.callerThreadWatch_->posted();
    callerThread.post(*item);
}

StateForwarder::Item *StateForwarder::takeItem() {
    if (!spare_)
        spare_ = returned_.exchange(nullptr);
    if (spare_)
        return std::exchange(spare_, spare_->next);
    if (items_.size() == itemLimit)
        return nullptr;
    return items_.emplace_back(std::make_unique<Item>(*this)).get();
}

void StateForwarder::giveBack(Item &item) noexcept {
    item.next = returned_.load();
    while (!returned_.compare_exchange_weak(item.next, &item)) {
    }
}

} // namespace moxel
