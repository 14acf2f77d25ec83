#include "NotificationCenter.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace moxel {

class NotificationSubscription::Entry {
  public:
    Entry(std::string_view entryName, const NotificationObject *entryObject,
          NotificationCenter::Callback entryCallback)
        : name(entryName), object(entryObject), callback(std::move(entryCallback)) {}

    const std::string name;
    const NotificationObject *const object; ///< For identity only; never looked into.
    const NotificationCenter::Callback callback;
};

namespace {

using Entry = NotificationSubscription::Entry;

/// The one table of subscriptions; never destroyed, because threads may end after static destructors have
/// run.
struct Table {
    std::mutex mutex;
    std::vector<std::shared_ptr<Entry>> entries;
};

Table &table() {
    static Table &instance = *new Table;
    return instance;
}

} // namespace

std::string Notification::description() const {
    std::string text = "NSConcreteNotification {name = ";
    text += name;
    if (object)
        text += "; object = " + object->description();
    return text + "}";
}

NotificationSubscription::NotificationSubscription() noexcept = default;
NotificationSubscription::NotificationSubscription(std::shared_ptr<Entry> entry) noexcept
    : entry_(std::move(entry)) {}
NotificationSubscription::NotificationSubscription(NotificationSubscription &&) noexcept = default;

NotificationSubscription &NotificationSubscription::operator=(NotificationSubscription &&other) noexcept {
    reset();
    entry_ = std::move(other.entry_);
    return *this;
}

NotificationSubscription::~NotificationSubscription() { reset(); }

void NotificationSubscription::reset() noexcept {
    if (const std::shared_ptr<Entry> entry = std::move(entry_)) {
        const std::lock_guard lock(table().mutex);
        std::erase(table().entries, entry);
    }
}

NotificationCenter &NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationSubscription NotificationCenter::subscribe(std::string_view name,
                                                       const NotificationObject *object, Callback callback) {
    auto entry = std::make_shared<Entry>(name, object, std::move(callback));
    const std::lock_guard lock(table().mutex);
    table().entries.push_back(entry);
    return NotificationSubscription(std::move(entry));
}

void NotificationCenter::post(const Notification &notification) {
    std::vector<std::shared_ptr<Entry>> receivers;
    {
        const std::lock_guard lock(table().mutex);
        std::copy_if(table().entries.begin(), table().entries.end(), std::back_inserter(receivers),
                     [&](const std::shared_ptr<Entry> &entry) {
                         return entry->name == notification.name &&
                                (!entry->object || entry->object == notification.object);
                     });
    }
    for (const std::shared_ptr<Entry> &receiver : receivers)
        receiver->callback(notification);
}

} // namespace moxel
