// Vok::Clock, its notifiees, and the event loop that fires them.
//
// A notifiee asks to be called at an absolute time with timeMinIs(t). The loop fires timers;
// a mutator never does: a timeMin already past fires at the loop's next turn, never inside the
// call that set it. Timers due at the same time fire in the order they were set.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "runtime/Entity.h"
#include "runtime/Notifiee.h"
#include "runtime/Time.h"

namespace Vok {

class Clock : public Entity {
 public:
  static constexpr Brix::FieldId timeMinField = 1;

  class Notifiee;

  char const* typeData() const override { return "Vok::Clock"; }
  Brix::Duration now() const { return System::currentTime(); }

  // The earliest armed time, or never.
  // NOLINTNEXTLINE(bugprone-narrowing-conversions): clang-tidy 14 misreads infinity as narrowed
  Brix::Duration nextTime() const noexcept { return timers_.empty() ? Brix::never : timers_.begin()->first.first; }
  std::size_t armedCount() const noexcept { return timers_.size(); }

  // One turn of the loop: fires, in time order, every timer that was armed before the turn and
  // is due now. A timer that a handler arms during the turn waits for the next one.
  std::size_t runDue();

 private:
  friend class Notifiee;
  using Key = std::pair<Brix::Duration, std::uint64_t>;
  std::map<Key, Notifiee*> timers_;
  std::uint64_t seq_ = 0;
};

class Clock::Notifiee : public NotifieeConst {
 public:
  Notifiee() = default;
  ~Notifiee() override { disconnect(); }

  Brix::Duration timeMin() const noexcept { return timeMin_; }
  // Positive infinity turns the timer off; a new time replaces the earlier one. The timer fires
  // in the activity current when it was set.
  inline void timeMinIs(Brix::Duration t);

 protected:
  void vokSubscriptionIs(bool on) override {
    armed_ = on;
    rearm();
  }

 private:
  friend class Clock;
  Clock* clock() const noexcept { return const_cast<Clock*>(static_cast<Clock const*>(notifier())); }
  void rearm() {
    if (inClock_) {
      clock()->timers_.erase(pos_);
      inClock_ = false;
    }
    if (armed_ && timeMin_ != Brix::never && notifier()) {
      Clock* c = clock();
      pos_ = c->timers_.emplace(Clock::Key{timeMin_, c->seq_++}, this).first;
      inClock_ = true;
    }
  }

  Brix::Duration timeMin_ = Brix::never;
  void const* activity_ = nullptr;
  std::map<Clock::Key, Notifiee*>::iterator pos_;
  bool armed_ = false;
  bool inClock_ = false;
};

namespace ActivityFacility {
// The process clock, made at first use and kept for the life of the process.
Clock& clock();

// What the event thread is doing work for: an opaque tag that the host sets around its own
// dispatch (none by default). A timer remembers the tag current when it was set and fires under
// it, so that a host running several agents on one clock (the pair simulator) can tell whose
// timer it is.
void const* currentActivity() noexcept;
void currentActivityIs(void const* activity) noexcept;
}  // namespace ActivityFacility

void Clock::Notifiee::timeMinIs(Brix::Duration t) {
  timeMin_ = t;
  activity_ = ActivityFacility::currentActivity();
  rearm();
}

}  // namespace Vok

namespace Vok {

// The loop of tests and the simulator: a manual time source installed for its lifetime, and
// virtual time advanced step by step so that every timer fires at its own time, in order.
class ManualLoop {
 public:
  explicit ManualLoop(Brix::Duration start = 0.0) : time_(start) { System::timeSourceIs(&time_); }
  ~ManualLoop() { System::timeSourceIs(nullptr); }
  ManualLoop(ManualLoop const&) = delete;
  ManualLoop& operator=(ManualLoop const&) = delete;

  Brix::Duration now() const { return time_.now(); }
  // Takes the process's time back after another loop, made and gone meanwhile, had it.
  void resume() { System::timeSourceIs(&time_); }
  std::size_t runOnce() { return ActivityFacility::clock().runDue(); }

  // Runs every timer due up to `t` at its own time, then leaves the time at `t`.
  std::size_t advanceTo(Brix::Duration t) {
    std::size_t fired = runOnce();
    Clock& c = ActivityFacility::clock();
    while (c.nextTime() <= t) {
      if (c.nextTime() > time_.now()) time_.nowIs(c.nextTime());
      fired += runOnce();
    }
    if (t > time_.now()) time_.nowIs(t);
    return fired;
  }
  std::size_t advanceBy(Brix::Duration d) { return advanceTo(time_.now() + d); }

 private:
  ManualTimeSource time_;
};

}  // namespace Vok
