#include "runtime/Clock.h"

#include <chrono>

namespace Vok {

std::size_t Clock::runDue() {
  std::uint64_t turn = seq_;
  Brix::Duration t = now();
  std::size_t fired = 0;
  for (;;) {
    auto it = timers_.begin();
    while (it != timers_.end() && it->first.second >= turn && it->first.first <= t) ++it;
    if (it == timers_.end() || it->first.first > t) break;
    Notifiee* n = it->second;
    timers_.erase(it);
    n->inClock_ = false;
    n->timeMin_ = Brix::never;  // fired once; the handler arms it again if it wants
    Brix::Ptr<Notifiee> hold(n);
    void const* previous = ActivityFacility::currentActivity();
    ActivityFacility::currentActivityIs(n->activity_);
    n->onAttribute(timeMinField, nullptr);
    ActivityFacility::currentActivityIs(previous);
    ++fired;
  }
  return fired;
}

namespace ActivityFacility {
Clock& clock() {
  // Never released: the clock outlives every notifiee, including those torn down at exit.
  static Clock* c = [] {
    auto* p = new Clock();
    p->incUse();
    p->processLifetimeIs();
    return p;
  }();
  return *c;
}

namespace {
void const* activity = nullptr;
}
void const* currentActivity() noexcept { return activity; }
void currentActivityIs(void const* a) noexcept { activity = a; }
}  // namespace ActivityFacility

namespace {
class MonotonicTime final : public TimeSource {
 public:
  Brix::Duration now() const override { return System::monotonicTime(); }
};
MonotonicTime const monotonic;
TimeSource const* source = &monotonic;
}  // namespace

namespace System {
void timeSourceIs(TimeSource const* s) {
  source = s ? s : &monotonic;
  Impl::monotonicInForce = source == &monotonic;
}
TimeSource const& timeSource() { return *source; }
Brix::Duration currentTime() { return source->now(); }
Brix::Duration monotonicTime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
}  // namespace System

}  // namespace Vok
