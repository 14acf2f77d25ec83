// One period during which a manager is scheduled on a run loop: brings it the news of its buses, and gives
// its devices what they need of it.
#pragma once

#include "Platform/Linux/HIDBus.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Platform/WorkItem.h"

#include <deque>
#include <memory>
#include <mutex>

namespace moxel {

/// Buses and devices may hold it longer than its manager lives; it then keeps silent. Buses tell it their
/// news on their threads; the rest is for the scheduled thread.
class HIDManagerSchedule final : public HIDBusObserver,
                                 public HIDDeviceHost,
                                 public WorkItem,
                                 public std::enable_shared_from_this<HIDManagerSchedule> {
  public:
    /// The manager's side; called on the scheduled thread, and free to end the schedule or itself.
    class Manager {
      public:
        virtual ~Manager() = default;
        virtual void entryArrived(const HIDBusEntryReference &entry) = 0;
        virtual void entryLeft(const HIDBusEntryReference &entry) = 0;
        virtual void entryRefused(const HIDBusEntryReference &entry) = 0;
        virtual void deviceEnded(HIDBusDevice &device) = 0;
    };

    /// For the calling thread, whose run loop is `runLoop`.
    HIDManagerSchedule(Manager &manager, RunLoop &runLoop);
    ~HIDManagerSchedule() override = default;

    /// On the scheduled thread: nothing is called any more.
    void end() noexcept;

    void entryArrived(const HIDBusEntryReference &entry) override;
    void entryLeft(const HIDBusEntryReference &entry) override;
    void entryRefused(const HIDBusEntryReference &entry) override;

    [[nodiscard]] Thread &thread() const noexcept override { return *thread_; }
    [[nodiscard]] RunLoop *runLoop() const noexcept override { return runLoop_; }
    void deviceEnded(HIDBusDevice &device) override;

    void run() override;
    void discard() noexcept override;

  private:
    struct Event {
        HIDBusEntryReference entry;
        void (Manager::*tell)(const HIDBusEntryReference &entry) = nullptr;
    };

    void enqueue(Event event);
    [[nodiscard]] bool takeEvent(Event &event);

    const std::shared_ptr<Thread> thread_;
    RunLoop *runLoop_; ///< On the scheduled thread, as manager_.
    Manager *manager_;

    std::mutex mutex_; ///< Guards the rest.
    bool ended_ = false;
    std::deque<Event> events_;
    std::shared_ptr<HIDManagerSchedule> posted_; ///< Keeps this alive while it is queued as work.
};

} // namespace moxel
