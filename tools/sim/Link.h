// One direction of the simulated peer link: changes posted now are applied after the link's
// delay, in the order they were posted. While the link is cut nothing is posted or applied.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "runtime/Time.h"

namespace Sim {

class Link {
 public:
  using Apply = std::function<void()>;

  Brix::Duration delay() const noexcept { return delay_; }
  void delayIs(Brix::Duration d) noexcept { delay_ = d; }

  bool up() const noexcept { return up_; }
  // Cutting drops what is in flight: the peer never receives it.
  void upIs(bool up) {
    up_ = up;
    if (!up_) queue_.clear();
  }

  void post(Apply apply) {
    if (!up_) return;
    queue_.push_back({Vok::System::currentTime() + delay_, std::move(apply)});
  }

  // Applies, in order, everything due by `now`. What an applied change posts in turn waits for
  // the next call, so one call is one hop.
  std::size_t deliverDue(Brix::Duration now) {
    std::size_t n = 0;
    std::size_t limit = queue_.size();
    while (n < limit && !queue_.empty() && queue_.front().due <= now) {
      Apply a = std::move(queue_.front().apply);
      queue_.pop_front();
      a();
      ++n;
    }
    return n;
  }
  // NOLINTNEXTLINE(bugprone-narrowing-conversions): clang-tidy 14 misreads infinity as narrowed
  Brix::Duration nextDue() const noexcept { return queue_.empty() ? Brix::never : queue_.front().due; }
  bool idle() const noexcept { return queue_.empty(); }

 private:
  struct Item {
    Brix::Duration due;
    Apply apply;
  };
  std::deque<Item> queue_;
  Brix::Duration delay_ = 0.0;
  bool up_ = true;
};

}  // namespace Sim
