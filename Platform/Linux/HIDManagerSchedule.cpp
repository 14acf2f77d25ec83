#include "Platform/Linux/HIDManagerSchedule.h"

#include <utility>

namespace moxel {

HIDManagerSchedule::HIDManagerSchedule(Manager &manager, RunLoop &runLoop)
    : thread_(Thread::current()), runLoop_(&runLoop), manager_(&manager) {}

void HIDManagerSchedule::end() noexcept {
    manager_ = nullptr;
    runLoop_ = nullptr;
    const std::lock_guard lock(mutex_);
    ended_ = true;
    events_.clear();
}

void HIDManagerSchedule::deviceEnded(HIDBusDevice &device) {
    if (manager_)
        manager_->deviceEnded(device);
}

// ----------------------------------------------------------------------------- On the bus's thread

void HIDManagerSchedule::entryArrived(const HIDBusEntryReference &entry) {
    enqueue({entry, &Manager::entryArrived});
}

void HIDManagerSchedule::entryLeft(const HIDBusEntryReference &entry) {
    enqueue({entry, &Manager::entryLeft});
}

void HIDManagerSchedule::entryRefused(const HIDBusEntryReference &entry) {
    enqueue({entry, &Manager::entryRefused});
}

void HIDManagerSchedule::enqueue(Event event) {
    {
        const std::lock_guard lock(mutex_);
        if (ended_)
            return;
        events_.push_back(std::move(event));
        if (posted_)
            return;
        posted_ = shared_from_this();
    }
    thread_->post(*this);
}

// ----------------------------------------------------------------------------- On the scheduled thread

void HIDManagerSchedule::run() {
    std::shared_ptr<HIDManagerSchedule> self;
    {
        const std::lock_guard lock(mutex_);
        self.swap(posted_); // From here on, new events post it anew.
    }
    Event event;
    while (manager_ && takeEvent(event))
        (manager_->*event.tell)(event.entry);
}

bool HIDManagerSchedule::takeEvent(Event &event) {
    const std::lock_guard lock(mutex_);
    if (events_.empty())
        return false;
    event = std::move(events_.front());
    events_.pop_front();
    return true;
}

void HIDManagerSchedule::discard() noexcept {
    std::shared_ptr<HIDManagerSchedule> self;
    const std::lock_guard lock(mutex_);
    self.swap(posted_);
    ended_ = true;
    events_.clear();
}

} // namespace moxel
