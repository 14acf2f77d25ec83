// The process-local notification centre.
#include "Platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace moxel {
namespace {

class Sender final : public NotificationObject {
  public:
    std::string description() const override { return "<Sender>"; }
};

TEST(NotificationCenter, DeliversToEverySubscriberOfTheNameInOrder) {
    NotificationCenter &center = NotificationCenter::defaultCenter();
    std::vector<std::string> seen;
    const auto first =
        center.subscribe("Name", nullptr, [&](const Notification &) { seen.push_back("first"); });
    const auto second =
        center.subscribe("Name", nullptr, [&](const Notification &) { seen.push_back("second"); });
    const auto other =
        center.subscribe("Other", nullptr, [&](const Notification &) { seen.push_back("other"); });
    center.post({"Name", nullptr});
    EXPECT_EQ(seen, (std::vector<std::string>{"first", "second"}));
}

TEST(NotificationCenter, SubscriptionToOneSenderIgnoresOthers) {
    NotificationCenter &center = NotificationCenter::defaultCenter();
    Sender wanted;
    Sender unwanted;
    std::vector<const NotificationObject *> seen;
    const auto subscription =
        center.subscribe("Sender", &wanted, [&](const Notification &n) { seen.push_back(n.object); });
    center.post({"Sender", &unwanted});
    center.post({"Sender", nullptr});
    center.post({"Sender", &wanted});
    EXPECT_EQ(seen, (std::vector<const NotificationObject *>{&wanted}));
}

TEST(NotificationCenter, EndedSubscriptionHearsNothing) {
    NotificationCenter &center = NotificationCenter::defaultCenter();
    int heard = 0;
    NotificationSubscription subscription =
        center.subscribe("Ended", nullptr, [&](const Notification &) { ++heard; });
    NotificationSubscription moved = std::move(subscription);
    center.post({"Ended", nullptr});
    moved.reset();
    center.post({"Ended", nullptr});
    EXPECT_EQ(heard, 1);
}

TEST(NotificationCenter, SubscriberMayEndAndMakeSubscriptionsDuringDelivery) {
    NotificationCenter &center = NotificationCenter::defaultCenter();
    NotificationSubscription self;
    NotificationSubscription late;
    int heard = 0;
    self = center.subscribe("Changing", nullptr, [&](const Notification &) {
        ++heard;
        self.reset();
        late = center.subscribe("Changing", nullptr, [&](const Notification &) { heard += 10; });
    });
    center.post({"Changing", nullptr});
    EXPECT_EQ(heard, 1);
    center.post({"Changing", nullptr});
    EXPECT_EQ(heard, 11);
}

TEST(NotificationCenter, DescriptionNamesTheNotificationAndItsObject) {
    Sender sender;
    EXPECT_EQ((Notification{"Name", &sender}).description(),
              "NSConcreteNotification {name = Name; object = <Sender>}");
    EXPECT_EQ((Notification{"Name", nullptr}).description(), "NSConcreteNotification {name = Name}");
}

} // namespace
} // namespace moxel
