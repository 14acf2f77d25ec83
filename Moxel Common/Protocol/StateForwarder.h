// Carries device-state records from the client thread to the caller thread without allocating for each.
#pragma once

#include <Moxel/MoxelClient.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace moxel {

class MoxelClientAPI;
class Thread;

/// Records travel in work items that are used over and over. While the caller thread lags, a waiting record
/// that the backlog rule would drop on delivery anyway (there is a newer one behind it) is overwritten in
/// place by the next, so that motion needs no more memory however long the caller thread sleeps. Records that
/// are never dropped wait each in an item of its own, up to a limit. Lives on the client thread; items come
/// back from any.
class StateForwarder {
  public:
    explicit StateForwarder(MoxelClientAPI &client);
    ~StateForwarder();
    StateForwarder(const StateForwarder &) = delete;
    StateForwarder &operator=(const StateForwarder &) = delete;

    /// On the client thread.
    void forward(Thread &callerThread, uint32_t productID, const MoxelStateRecord &record);
    /// On the client thread, before a message of another kind is forwarded: no later record may take a place
    /// before it.
    void keepOrder() noexcept { newestMotion_ = nullptr; }

    /// Whether a record may be dropped under a backlog.
    [[nodiscard]] static bool isDroppable(const MoxelStateRecord &record) noexcept {
        return record.command != kMoxelStateButtons && record.command != kMoxelStateApplicationEvent &&
               record.command != kMoxelStateDeviceAction;
    }

  private:
    class Item;

    /// An item that is not under way, or null at the limit.
    Item *takeItem();
    /// Any thread.
    void giveBack(Item &item) noexcept;

    MoxelClientAPI &client_;
    std::vector<std::unique_ptr<Item>> items_; ///< All items; client thread only.
    Item *spare_ = nullptr;                    ///< Free items of the client thread.
    std::atomic<Item *> returned_{nullptr};    ///< Free items on their way back to it.
    Item *newestMotion_ = nullptr; ///< Last item posted, when it may be overwritten; client thread only.
    bool limitReported_ = false;
};

} // namespace moxel
