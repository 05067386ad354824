#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/Clock.h"

namespace {

using Fired = std::vector<std::pair<std::string, Brix::Duration>>;

// A timer that records its name and the time at which it fired, then runs its action.
class Timer : public Vok::Clock::Notifiee {
 public:
  Timer(std::string name, Fired& fired) : name_(std::move(name)), fired_(fired) {
    notifierIs(&Vok::ActivityFacility::clock());
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Brix::FieldId field, void const* key) override {
    EXPECT_EQ(field, Vok::Clock::timeMinField);
    EXPECT_EQ(key, nullptr);
    fired_.emplace_back(name_, Vok::System::currentTime());
    if (auto a = action) a(*this);
  }
  std::function<void(Timer&)> action;

 private:
  std::string name_;
  Fired& fired_;
};

class ClockTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(clock().armedCount(), 0u); }
  void TearDown() override { EXPECT_EQ(clock().armedCount(), 0u) << "a test left a timer armed"; }

  static Vok::Clock& clock() { return Vok::ActivityFacility::clock(); }
  Brix::Ptr<Timer> timer(std::string name) { return Brix::newNode<Timer>(std::move(name), fired); }

  Vok::ManualLoop loop{100.0};
  Fired fired;
};

TEST_F(ClockTest, FiresOnceAtItsTimeMinAndPastTimesAtTheNextTurn) {
  auto t = timer("t");
  t->timeMinIs(105.0);
  EXPECT_EQ(loop.advanceTo(104.5), 0u);
  EXPECT_EQ(loop.advanceTo(110.0), 1u);
  EXPECT_EQ(t->timeMin(), Brix::never);
  EXPECT_EQ(loop.advanceBy(1000.0), 0u);
  // A past time fires at the loop's next turn, not inside timeMinIs, and a handler may do it again.
  int rearms = 1;
  t->action = [&](Timer& self) {
    if (rearms-- > 0) self.timeMinIs(Vok::System::currentTime() - 1.0);
  };
  t->timeMinIs(50.0);
  EXPECT_EQ(fired.size(), 1u);
  EXPECT_EQ(loop.runOnce(), 1u);
  EXPECT_EQ(loop.runOnce(), 1u);
  EXPECT_EQ(loop.runOnce(), 0u);
  EXPECT_EQ(fired, (Fired{{"t", 105.0}, {"t", 1110.0}, {"t", 1110.0}})) << "time stands at the timer's own time";
}

TEST_F(ClockTest, ATimerFiresInTheActivityThatSetItAndPutsBackTheCurrentOne) {
  int const a = 0;
  int const b = 0;
  auto ta = timer("a");
  auto tb = timer("b");
  auto tc = timer("c");
  std::vector<void const*> seen;
  ta->action = tb->action = tc->action = [&](Timer&) { seen.push_back(Vok::ActivityFacility::currentActivity()); };
  Vok::ActivityFacility::currentActivityIs(&a);
  ta->timeMinIs(101.0);
  tc->timeMinIs(104.0);
  Vok::ActivityFacility::currentActivityIs(&b);
  tb->timeMinIs(102.0);
  ta->timeMinIs(103.0);  // set again under b: fires under b
  Vok::ActivityFacility::currentActivityIs(nullptr);
  loop.advanceTo(110.0);
  EXPECT_EQ(seen, (std::vector<void const*>{&b, &b, &a}));
  EXPECT_EQ(Vok::ActivityFacility::currentActivity(), nullptr);
}

TEST_F(ClockTest, TimersFireInTimeOrderWithTimeAdvancedToEachAndTheLastTimeSetCounts) {
  auto c = timer("c");
  auto a = timer("a");
  auto b1 = timer("b1");
  auto b2 = timer("b2");
  c->timeMinIs(130.0);
  b1->timeMinIs(115.0);
  a->timeMinIs(110.0);
  b2->timeMinIs(115.0);  // same time: in the order they were set
  // A handler may arm another timer that is due before the end of the advance.
  a->action = [&](Timer&) { c->timeMinIs(120.0); };
  EXPECT_EQ(loop.advanceTo(200.0), 4u);
  // Infinity turns a timer off; a new time replaces the old.
  a->timeMinIs(205.0);
  a->timeMinIs(Brix::never);
  EXPECT_EQ(clock().armedCount(), 0u);
  for (double when : {1020.0, 1010.0, 1030.0}) b1->timeMinIs(when);
  EXPECT_EQ(clock().armedCount(), 1u);
  EXPECT_EQ(loop.advanceTo(2000.0), 1u);
  EXPECT_EQ(fired, (Fired{{"a", 110.0}, {"b1", 115.0}, {"b2", 115.0}, {"c", 120.0}, {"b1", 1030.0}}));
}

TEST_F(ClockTest, InactiveOrUnboundNotifieeDoesNotFire) {
  auto t = timer("t");
  t->timeMinIs(110.0);
  t->hasNotificationActiveIs(false);
  EXPECT_EQ(loop.advanceTo(120.0), 0u);
  t->hasNotificationActiveIs(true);  // still holds its time, now past
  EXPECT_EQ(loop.runOnce(), 1u);
  t->timeMinIs(130.0);
  t->isRegisteredNotifieeIs(false);
  EXPECT_EQ(loop.advanceTo(140.0), 0u);
  t->isRegisteredNotifieeIs(true);
  t->timeMinIs(150.0);
  t->notifierIs(nullptr);
  EXPECT_EQ(loop.advanceTo(160.0), 0u);
  EXPECT_EQ(fired, (Fired{{"t", 120.0}}));
}

TEST_F(ClockTest, DestroyingAnArmedNotifieeIsSafe) {
  auto doomed = timer("doomed");
  doomed->timeMinIs(110.0);
  doomed = nullptr;
  EXPECT_EQ(clock().armedCount(), 0u);
  // Both due in one turn: the first destroys the second, and then itself.
  auto first = timer("first");
  auto second = timer("second");
  first->timeMinIs(120.0);
  second->timeMinIs(120.0);
  first->action = [&](Timer&) {
    second = nullptr;
    first = nullptr;
  };
  EXPECT_EQ(loop.advanceTo(130.0), 1u);
  EXPECT_EQ(fired, (Fired{{"first", 120.0}}));
}

}  // namespace
