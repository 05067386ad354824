#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/Entity.h"
#include "runtime/Publisher.h"

namespace {

using Log = std::vector<std::string>;

// A subscriber that writes "name:field" for each delivery, then runs its action.
struct Sub {
  Sub(std::string n, Log& l) : name(std::move(n)), log(l) {}
  void subscribe(Brix::Publisher& p) { sub.subscribeTo(&p, &Sub::dispatch); }

  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    auto* self = s->ownerAs<Sub>();
    std::string line = self->name + ":" + std::to_string(field);
    if (key) {
      line += '/';  // appended apart: GCC 12 at -O3 misreads "/" + string as overlapping copies
      line += std::to_string(*static_cast<int const*>(key));
    }
    self->log.push_back(line);
    // Copied: the action may destroy this subscriber.
    if (auto action = self->action) action(field);
  }

  std::string name;
  Log& log;
  std::function<void(Brix::FieldId)> action;
  Brix::Subscriber sub{this};
};

TEST(Publisher, DeliversInSubscriptionOrderFromTheNextChangeOn) {
  Brix::Publisher pub;
  Log log;
  Sub a("a", log), b("b", log), c("c", log);
  c.subscribe(pub);
  a.subscribe(pub);
  b.subscribe(pub);
  a.subscribe(pub);  // a second subscribe does nothing
  EXPECT_EQ(pub.subscriberCount(), 3u);

  int key = 42;
  pub.publishChangeRecursive(7, &key);
  pub.publishChangeRecursive(8, nullptr);
  EXPECT_EQ(log, (Log{"c:7/42", "a:7/42", "b:7/42", "c:8", "a:8", "b:8"}));

  log.clear();
  a.sub.unsubscribe();
  EXPECT_FALSE(a.sub.subscribed());
  pub.publishChangeRecursive(9, nullptr);
  EXPECT_EQ(log, (Log{"c:9", "b:9"}));

  // One that subscribes during a delivery gets the next change only.
  log.clear();
  c.action = [&](Brix::FieldId) { a.subscribe(pub); };
  pub.publishChangeRecursive(1, nullptr);
  pub.publishChangeRecursive(2, nullptr);
  EXPECT_EQ(log, (Log{"c:1", "b:1", "c:2", "b:2", "a:2"}));
}

// Leaving by unsubscribing or by being destroyed: itself, one already served, one still to come.
TEST(Publisher, SubscribersLeavingDuringADelivery) {
  Brix::Publisher pub;
  Log log;
  Sub a("a", log), b("b", log), c("c", log), d("d", log), e("e", log);
  auto f = std::make_unique<Sub>("f", log);
  auto g = std::make_unique<Sub>("g", log);
  for (Sub* s : {&a, f.get(), &b, &c, g.get(), &d, &e}) s->subscribe(pub);
  a.action = [&](Brix::FieldId) { a.sub.unsubscribe(); };
  f->action = [&](Brix::FieldId) { f.reset(); };
  c.action = [&](Brix::FieldId) {
    b.sub.unsubscribe();
    e.sub.unsubscribe();
    g.reset();
  };
  pub.publishChangeRecursive(1, nullptr);
  EXPECT_EQ(log, (Log{"a:1", "f:1", "b:1", "c:1", "d:1"}));

  log.clear();
  pub.publishChangeRecursive(2, nullptr);
  EXPECT_EQ(log, (Log{"c:2", "d:2"}));
  EXPECT_EQ(pub.subscriberCount(), 2u);

  // A subscriber that outlives its publisher is left unsubscribed.
  auto gone = std::make_unique<Brix::Publisher>();
  d.sub.unsubscribe();
  d.subscribe(*gone);
  gone.reset();
  EXPECT_FALSE(d.sub.subscribed());
}

TEST(Publisher, NestedPublication) {
  Brix::Publisher pub;
  Log log;
  Sub a("a", log), b("b", log), c("c", log);
  for (Sub* s : {&a, &b, &c}) s->subscribe(pub);
  // While field 1 is delivered, a publishes field 2, and b leaves during the inner delivery.
  a.action = [&](Brix::FieldId f) {
    if (f == 1) pub.publishChangeRecursive(2, nullptr);
  };
  b.action = [&](Brix::FieldId f) {
    if (f == 2) b.sub.unsubscribe();
  };
  pub.publishChangeRecursive(1, nullptr);
  EXPECT_EQ(log, (Log{"a:1", "a:2", "b:2", "c:2", "c:1"}));
  EXPECT_EQ(pub.subscriberCount(), 2u);
}

TEST(Publisher, EntityOutlivesItsOwnDelivery) {
  struct Thing : Vok::Entity {};
  auto const base = Brix::Node::liveCount();
  Log log;
  Sub first("first", log), second("second", log);
  {
    auto thing = Brix::newNode<Thing>();
    Brix::Ptr<Thing const> input = thing;
    first.sub.subscribeTo(input, &Sub::dispatch);
    second.sub.subscribeTo(input, &Sub::dispatch);
    thing = nullptr;
    // The first subscriber drops the last use of the entity while it publishes.
    first.action = [&](Brix::FieldId) { input = nullptr; };
    auto const* raw = input.get();
    raw->publish(3);
  }
  EXPECT_EQ(log, (Log{"first:3", "second:3"}));
  EXPECT_EQ(Brix::Node::liveCount(), base);
  EXPECT_FALSE(first.sub.subscribed());
}

}  // namespace
