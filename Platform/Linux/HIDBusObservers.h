// Those who observe one bus.
#pragma once

#include "Platform/Linux/HIDBus.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace moxel {

/// Lives on the bus's thread.
class HIDBusObservers {
  public:
    /// Adds one that may be there already, and forgets those that are gone.
    void add(std::weak_ptr<HIDBusObserver> observer) {
        std::erase_if(observers_, [](const auto &each) { return each.expired(); });
        const auto isSame = [&](const auto &each) {
            return !each.owner_before(observer) && !observer.owner_before(each);
        };
        if (std::ranges::none_of(observers_, isSame))
            observers_.push_back(std::move(observer));
    }

    /// Tells all of them.
    void tell(void (HIDBusObserver::*what)(const HIDBusEntryReference &),
              const HIDBusEntryReference &entry) const {
        for (const auto &observer : observers_) {
            if (const auto listener = observer.lock())
                ((*listener).*what)(entry);
        }
    }

  private:
    std::vector<std::weak_ptr<HIDBusObserver>> observers_;
};

} // namespace moxel
