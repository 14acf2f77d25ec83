// The process-local notification centre: named events, delivered synchronously on the posting thread.
#pragma once

#include "Export.h"
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace moxel {

/// Whatever can stand as the object of a notification: its sender, or the record that it carries.
class MOXEL_EXPORT NotificationObject {
  public:
    virtual ~NotificationObject() = default;
    /// The text that stands for the object in a log line.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// What is told to subscribers.
struct Notification {
    std::string_view name;                ///< What has happened.
    NotificationObject *object = nullptr; ///< Valid during delivery only; may be null.

    /// "NSConcreteNotification" style text: name and object.
    [[nodiscard]] std::string description() const;
};

/// Posted on a thread that is about to end; the object is its Thread.
inline constexpr std::string_view threadWillExitNotification = "NSThreadWillExitNotification";
/// Posted when the user's session leaves the console.
inline constexpr std::string_view sessionDidResignActiveNotification =
    "NSWorkspaceSessionDidResignActiveNotification";
/// Posted when the user's session comes back to the console.
inline constexpr std::string_view sessionDidBecomeActiveNotification =
    "NSWorkspaceSessionDidBecomeActiveNotification";
/// Posted when another application of the session ends; never posted where the platform does not tell.
inline constexpr std::string_view didTerminateApplicationNotification =
    "NSWorkspaceDidTerminateApplicationNotification";

/// A registration with a centre; ends when destroyed. A delivery that another thread has already begun may
/// still finish afterwards, so a callback holds what it needs (a weak pointer) rather than rely on its
/// owner's life.
class MOXEL_EXPORT NotificationSubscription {
  public:
    class Entry;

    NotificationSubscription() noexcept;
    /// The centre's own.
    explicit NotificationSubscription(std::shared_ptr<Entry> entry) noexcept;
    ~NotificationSubscription();
    NotificationSubscription(NotificationSubscription &&) noexcept;
    NotificationSubscription &operator=(NotificationSubscription &&) noexcept;

    explicit operator bool() const noexcept { return entry_ != nullptr; }
    void reset() noexcept;

  private:
    std::shared_ptr<Entry> entry_;
};

/// Any thread.
class MOXEL_EXPORT NotificationCenter {
  public:
    /// Called on the thread that posts.
    using Callback = std::function<void(const Notification &)>;

    /// The one that the system posts on.
    static NotificationCenter &defaultCenter();

    /// Calls back for every notification of that name, or, with an object, for those of that very object.
    [[nodiscard]] NotificationSubscription subscribe(std::string_view name, const NotificationObject *object,
                                                     Callback callback);
    /// Returns when every subscriber has been called, in the order of their subscriptions.
    void post(const Notification &notification);
};

} // namespace moxel
