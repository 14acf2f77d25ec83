// The classes that archives know.
#include "ArchiveClasses.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

namespace moxel {

namespace {

/// The process has one. Any thread.
class Registry {
  public:
    static Registry &shared() {
        static Registry registry;
        return registry;
    }

    void set(const std::string &name, ArchiveFactory factory) {
        const std::lock_guard lock(mutex_);
        factories_[name] = std::move(factory);
    }

    ArchiveFactory find(const std::string &name) {
        const std::lock_guard lock(mutex_);
        const auto found = factories_.find(name);
        return found == factories_.end() ? ArchiveFactory() : found->second;
    }

  private:
    std::mutex mutex_;
    std::unordered_map<std::string, ArchiveFactory> factories_;
};

/// In the order of ValueClass.
constexpr std::array<std::string_view, detail::valueClassCount> valueClassNames = {
    "NSArray",  "NSMutableArray",  "NSDictionary", "NSMutableDictionary",
    "NSString", "NSMutableString", "NSData",       "NSMutableData",
    "NSDate",   "NSNull"};

} // namespace

void registerArchiveClass(const std::string &name, ArchiveFactory factory) {
    Registry::shared().set(name, std::move(factory));
}

namespace detail {

ArchiveFactory archiveFactoryNamed(const std::string &name) { return Registry::shared().find(name); }

std::optional<ValueClass> valueClassNamed(std::string_view name) noexcept {
    const auto found = std::ranges::find(valueClassNames, name);
    if (found == valueClassNames.end())
        return std::nullopt;
    return static_cast<ValueClass>(found - valueClassNames.begin());
}

ArchivedClass archivedClassOf(ValueClass valueClass) {
    constexpr std::string_view mutablePrefix = "NSMutable";
    const std::string name(valueClassNames[static_cast<size_t>(valueClass)]);
    if (name.starts_with(mutablePrefix))
        return {name, {name, "NS" + name.substr(mutablePrefix.size()), "NSObject"}};
    return {name, {name, "NSObject"}};
}

} // namespace detail

} // namespace moxel
