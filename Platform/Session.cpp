// Session queries: answered by the newest override, else by the platform's session service.
#include "Platform/Session.h"

#include "Platform/Accounts.h"
#include "Platform/SystemSession.h"

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace moxel {

namespace {

using Source = std::function<std::optional<SessionDescription>()>;

// The overrides in force, oldest first.
class Overrides {
  public:
    // Never destroyed: threads may ask until the process is gone.
    static Overrides &instance() {
        static auto &overrides = *new Overrides;
        return overrides;
    }

    void add(const SessionOverride *owner, Source source) {
        const std::unique_lock lock(mutex_);
        sources_.emplace_back(owner, std::move(source));
        any_.store(true, std::memory_order_release);
    }

    // Waits until no thread runs the source any more.
    void remove(const SessionOverride *owner) {
        const std::unique_lock lock(mutex_);
        std::erase_if(sources_, [owner](const auto &entry) { return entry.first == owner; });
        any_.store(!sources_.empty(), std::memory_order_release);
    }

    // Asks the newest override; false when there is none.
    bool answer(std::optional<SessionDescription> &session) {
        if (!any_.load(std::memory_order_acquire))
            return false;
        const std::shared_lock lock(mutex_);
        if (sources_.empty())
            return false;
        session = sources_.back().second();
        return true;
    }

  private:
    std::shared_mutex mutex_;
    std::vector<std::pair<const SessionOverride *, Source>> sources_;
    std::atomic<bool> any_ = false;
};

} // namespace

std::optional<SessionDescription> currentSession() {
    std::optional<SessionDescription> session;
    return Overrides::instance().answer(session) ? session : systemSession();
}

std::optional<bool> currentSessionOnConsole() {
    std::optional<SessionDescription> session;
    if (!Overrides::instance().answer(session))
        return systemSessionOnConsole();
    return session ? session->onConsole : std::nullopt;
}

std::optional<uint32_t> userIdentifierForName(const std::string &name) {
    const auto account = accountNamed(name);
    if (!account)
        return std::nullopt;
    return account->userIdentifier;
}

SessionOverride::SessionOverride(std::function<std::optional<SessionDescription>()> source) {
    Overrides::instance().add(this, std::move(source));
}

SessionOverride::~SessionOverride() { Overrides::instance().remove(this); }

} // namespace moxel
