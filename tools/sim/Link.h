// One direction of the simulated peer link: the frames a switch's endpoint writes are carried, in
// order, to the peer's endpoint after the link's delay, on virtual time. While the link is cut
// nothing is carried, and what was in flight is lost.
//
// The byte buffers go round: a carried buffer is swapped with a spare one, so that once the link
// has carried its first few frames, a change costs no heap allocation.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "Session.h"
#include "runtime/Time.h"

namespace Sim {

class Link {
 public:
  using Session = MlagVxlan::Transport::Session;
  using Bytes = MlagVxlan::Transport::Bytes;

  Brix::Duration delay() const noexcept { return delay_; }
  void delayIs(Brix::Duration d) noexcept { delay_ = d; }

  bool up() const noexcept { return up_; }
  // Cutting drops what is in flight: the peer never receives it.
  void upIs(bool up) {
    up_ = up;
    if (!up_) {
      for (std::size_t i = head_; i < queue_.size(); ++i) recycle(queue_[i].bytes);
      queue_.clear();
      head_ = 0;
    }
  }

  // Takes what `from` has written, to arrive after the delay; dropped while the link is cut.
  void carry(Session& from) { carryAt(from, Vok::System::currentTime() + delay_); }
  void carryAt(Session& from, Brix::Duration due) {
    Bytes& out = from.output();
    from.outputTaken();
    if (out.empty()) return;
    if (!up_) {
      out.clear();
      return;
    }
    queue_.push_back({due, spare()});
    std::swap(queue_.back().bytes, out);
  }
  // Bytes that come from elsewhere (the other process of a split run).
  void postAt(Brix::Duration due, MlagVxlan::Transport::ByteSpan bytes) {
    if (!up_ || bytes.empty()) return;
    queue_.push_back({due, spare()});
    queue_.back().bytes.assign(bytes.begin(), bytes.end());
  }

  // Hands `to`, in order, everything due by `now` that was in flight when called: what `to`
  // writes in turn waits for the next carry, so one call is one hop. Returns the frames' buffers
  // handed over.
  std::size_t deliverDue(Brix::Duration now, Session& to) {
    std::size_t n = 0;
    std::size_t const end = queue_.size();
    while (head_ < end && head_ < queue_.size() && queue_[head_].due <= now) {
      Bytes bytes = std::move(queue_[head_].bytes);
      ++head_;
      ++n;
      to.bytesIn(bytes);
      recycle(bytes);
    }
    compact();
    return n;
  }
  // NOLINTNEXTLINE(bugprone-narrowing-conversions): clang-tidy 14 misreads infinity as narrowed
  Brix::Duration nextDue() const noexcept { return idle() ? Brix::never : queue_[head_].due; }
  bool idle() const noexcept { return head_ >= queue_.size(); }

 private:
  struct Item {
    Brix::Duration due;
    Bytes bytes;
  };

  Bytes spare() {
    if (spares_.empty()) return {};
    Bytes b = std::move(spares_.back());
    spares_.pop_back();
    return b;
  }
  void recycle(Bytes& b) {
    b.clear();
    if (spares_.size() < 8) spares_.push_back(std::move(b));
  }

  // Delivered slots are dropped from the front once they are the larger part, so the queue
  // keeps its capacity and moves each waiting frame a bounded number of times.
  void compact() {
    if (head_ == queue_.size()) {
      queue_.clear();
      head_ = 0;
    } else if (head_ > queue_.size() / 2) {
      queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head_));
      head_ = 0;
    }
  }

  std::vector<Item> queue_;
  std::size_t head_ = 0;
  std::vector<Bytes> spares_;
  Brix::Duration delay_ = 0.0;
  bool up_ = true;
};

}  // namespace Sim
