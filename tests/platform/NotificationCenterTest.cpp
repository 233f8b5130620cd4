#include "platform/foundation/NotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using platform::Notification;
using platform::NotificationCenter;

const QString kChanged = QStringLiteral("QXDTestValueChanged");
const QString kOther = QStringLiteral("QXDTestOther");

// Observers are only identities; each test keeps its own log of deliveries.
struct Observers {
    int a = 0, b = 0, c = 0;
    std::vector<std::string> log;
    NotificationCenter::Handler logAs(std::string name) {
        return [this, name = std::move(name)](const Notification& n) {
            log.push_back(name + ":" + n.name.toStdString());
        };
    }
};

TEST(NotificationCenterTest, DeliversByNameAndSenderWithUserInfoInRegistrationOrder) {
    NotificationCenter center;
    Observers o;
    int sender1 = 0;
    int sender2 = 0;
    center.addObserver(&o.a, kChanged, nullptr, o.logAs("a-any-sender"));
    center.addObserver(&o.b, kChanged, &sender1, o.logAs("b-sender1"));
    center.addObserver(&o.c, QString(), nullptr, o.logAs("c-any-name"));
    EXPECT_EQ(center.observerCount(), 3u);

    center.post(kChanged, &sender1);
    center.post(kChanged, &sender2);
    center.post(kOther, &sender1);
    EXPECT_EQ(o.log, (std::vector<std::string>{
                         "a-any-sender:QXDTestValueChanged", "b-sender1:QXDTestValueChanged",
                         "c-any-name:QXDTestValueChanged", "a-any-sender:QXDTestValueChanged",
                         "c-any-name:QXDTestValueChanged", "c-any-name:QXDTestOther"}));

    Notification received;
    center.addObserver(&received, kOther, nullptr, [&](const Notification& n) { received = n; });
    center.post(Notification{kOther, &sender1, {{QStringLiteral("value"), 7}}});
    EXPECT_EQ(received.name, kOther);
    EXPECT_EQ(received.object, &sender1);
    EXPECT_EQ(received.userInfo.value(QStringLiteral("value")).toInt(), 7);
}

TEST(NotificationCenterTest, DeliversSynchronouslyOnThePostingThread) {
    NotificationCenter center;
    int observer = 0;
    std::thread::id deliveredOn;
    bool deliveredBeforePostReturned = false;
    center.addObserver(&observer, kChanged, nullptr,
                       [&](const Notification&) { deliveredOn = std::this_thread::get_id(); });
    std::thread::id poster;
    std::thread thread([&] {
        poster = std::this_thread::get_id();
        center.post(kChanged);
        deliveredBeforePostReturned = deliveredOn == poster;
    });
    thread.join();
    EXPECT_TRUE(deliveredBeforePostReturned);
}

TEST(NotificationCenterTest, ObserversRemovedDuringDeliveryAreNotCalledAgain) {
    NotificationCenter center;
    Observers o;
    center.addObserver(&o.a, kChanged, nullptr, [&](const Notification& n) {
        o.logAs("a")(n);
        center.removeObserver(&o.a);  // itself
        center.removeObserver(&o.c);  // an observer later in this delivery
    });
    center.addObserver(&o.b, kChanged, nullptr, o.logAs("b"));
    center.addObserver(&o.c, kChanged, nullptr, o.logAs("c"));

    center.post(kChanged);
    EXPECT_EQ(o.log, (std::vector<std::string>{"a:QXDTestValueChanged", "b:QXDTestValueChanged"}));
    EXPECT_EQ(center.observerCount(), 1u);

    o.log.clear();
    center.post(kChanged);
    EXPECT_EQ(o.log, (std::vector<std::string>{"b:QXDTestValueChanged"}));
}

TEST(NotificationCenterTest, RemoveObserverByNameAndSender) {
    NotificationCenter center;
    Observers o;
    int sender1 = 0;
    int sender2 = 0;
    center.addObserver(&o.a, kChanged, &sender1, o.logAs("a-changed-1"));
    center.addObserver(&o.a, kChanged, &sender2, o.logAs("a-changed-2"));
    center.addObserver(&o.a, kOther, &sender1, o.logAs("a-other-1"));
    center.addObserver(&o.b, kChanged, &sender1, o.logAs("b-changed-1"));
    auto postAll = [&] {
        o.log.clear();
        for (const QString& name : {kChanged, kOther}) {
            center.post(name, &sender1);
            center.post(name, &sender2);
        }
    };

    center.removeObserver(&o.a, kChanged, &sender1);
    postAll();
    EXPECT_EQ(o.log, (std::vector<std::string>{"b-changed-1:QXDTestValueChanged",
                                               "a-changed-2:QXDTestValueChanged",
                                               "a-other-1:QXDTestOther"}));

    center.removeObserver(&o.a, QString(), &sender1);  // any name, from sender1
    postAll();
    EXPECT_EQ(o.log, (std::vector<std::string>{"b-changed-1:QXDTestValueChanged",
                                               "a-changed-2:QXDTestValueChanged"}));

    center.removeObserver(&o.a, kChanged, nullptr);  // that name, from any sender
    postAll();
    EXPECT_EQ(o.log, (std::vector<std::string>{"b-changed-1:QXDTestValueChanged"}));

    center.removeObserver(&o.b);
    EXPECT_EQ(center.observerCount(), 0u);
}

TEST(NotificationCenterTest, DefaultCenterIsOneObject) {
    NotificationCenter& center = NotificationCenter::defaultCenter();
    EXPECT_EQ(&center, &NotificationCenter::defaultCenter());

    const std::size_t before = center.observerCount();
    int observer = 0;
    int delivered = 0;
    center.addObserver(&observer, kChanged, nullptr, [&](const Notification&) { ++delivered; });
    NotificationCenter::defaultCenter().post(kChanged);
    center.removeObserver(&observer);
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(center.observerCount(), before);
}

}  // namespace
