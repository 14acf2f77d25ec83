#include "WorkQueue.h"

#include "Platform/Linux/Guard.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace moxel {

namespace {

/// Stands at the head of a closed queue; never run.
class ClosedMark final : public WorkItem {
  public:
    void run() override {}
    void discard() noexcept override {}
};

} // namespace

WorkItem *WorkQueue::closedMark() noexcept {
    static ClosedMark mark;
    return &mark;
}

WorkQueue::~WorkQueue() {
    close();
    if (const int descriptor = wakeDescriptor_.load(); descriptor >= 0)
        ::close(descriptor);
}

bool WorkQueue::post(WorkItem &item) noexcept {
    WorkItem *newest = newest_.load();
    do {
        if (newest == closedMark()) {
            item.discard();
            return false;
        }
        item.next_ = newest;
    } while (!newest_.compare_exchange_weak(newest, &item));
    if (!newest)
        wake();
    return true;
}

void WorkQueue::wake() noexcept {
    // The order matters: an owner that makes its descriptor after this load finds the item when it first
    // looks.
    if (const int descriptor = wakeDescriptor_.load(); descriptor >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(descriptor, &one, sizeof one);
    }
}

int WorkQueue::wakeDescriptor() noexcept {
    int descriptor = wakeDescriptor_.load();
    if (descriptor < 0) {
        descriptor =
            ::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK); // Readable at once: items may be waiting already.
        wakeDescriptor_.store(descriptor);
    }
    return descriptor;
}

WorkItem *WorkQueue::oldestFirst(WorkItem *newest) noexcept {
    WorkItem *oldest = nullptr;
    while (newest)
        oldest = std::exchange(newest, std::exchange(newest->next_, oldest));
    return oldest;
}

int WorkQueue::runPosted(Clock::time_point until) noexcept {
    uint64_t count;
    if (const int descriptor = wakeDescriptor_.load(); descriptor >= 0) {
        [[maybe_unused]] const ssize_t got = ::read(descriptor, &count, sizeof count);
    }
    int ran = run(std::exchange(leftOver_, nullptr), until, true);
    if (!leftOver_)
        ran += run(oldestFirst(newest_.exchange(nullptr)), until, ran == 0);
    if (leftOver_)
        wake();
    return ran;
}

int WorkQueue::run(WorkItem *oldest, Clock::time_point until, bool isFirstDue) noexcept {
    const bool isLimited = until != Clock::time_point::max();
    int ran = 0;
    for (WorkItem *item = oldest; item; ++ran) {
        if (isLimited && !(isFirstDue && ran == 0) && Clock::now() >= until) {
            leftOver_ = item;
            break;
        }
        WorkItem *next = item->next_; // The item may be gone once it has run.
        guarded("posted work", [item] { item->run(); });
        item = next;
    }
    return ran;
}

void WorkQueue::close() noexcept {
    WorkItem *newest = newest_.exchange(closedMark());
    discard(std::exchange(leftOver_, nullptr));
    if (newest != closedMark())
        discard(oldestFirst(newest));
}

void WorkQueue::discard(WorkItem *oldest) noexcept {
    while (oldest) {
        WorkItem *next = oldest->next_;
        oldest->discard();
        oldest = next;
    }
}

} // namespace moxel
