// The login time: the newest override's, else the platform's.
#include "Platform/LoginTime.h"

#include "Platform/SystemLoginTime.h"

#include <mutex>
#include <utility>
#include <vector>

namespace moxel {

namespace {

// The overrides in force, oldest first. Never destroyed: threads may ask until the process is gone.
struct Overrides {
    std::mutex mutex;
    std::vector<std::pair<const LoginTimeOverride *, std::optional<LoginTime>>> times;

    static Overrides &instance() {
        static auto &overrides = *new Overrides;
        return overrides;
    }
};

} // namespace

std::optional<LoginTime> loginTime() {
    {
        auto &overrides = Overrides::instance();
        const std::lock_guard lock(overrides.mutex);
        if (!overrides.times.empty())
            return overrides.times.back().second;
    }
    return systemLoginTime();
}

LoginTimeOverride::LoginTimeOverride(std::optional<LoginTime> time) {
    auto &overrides = Overrides::instance();
    const std::lock_guard lock(overrides.mutex);
    overrides.times.emplace_back(this, time);
}

LoginTimeOverride::~LoginTimeOverride() {
    auto &overrides = Overrides::instance();
    const std::lock_guard lock(overrides.mutex);
    std::erase_if(overrides.times, [this](const auto &entry) { return entry.first == this; });
}

} // namespace moxel
