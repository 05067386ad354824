// One direction of the simulated peer link: changes posted now are applied after the link's
// delay, in the order they were posted. While the link is cut nothing is posted or applied.
//
// A change costs no heap allocation once the link has carried its first few: each one is a
// callable kept inline in a slot of a reused queue. Only a callable larger than a slot's room
// goes to the heap (none that the mirrors post is).
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Time.h"

namespace Sim {

// A move-only `void()` callable stored inline when it fits in `room` bytes.
class LinkTask {
 public:
  static constexpr std::size_t room = 120;

  LinkTask() noexcept = default;
  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, LinkTask>>>
  LinkTask(F&& f) {  // NOLINT(google-explicit-constructor): a lambda posts as it is
    using Fn = std::decay_t<F>;
    if constexpr (storedInline<Fn>()) {
      ::new (static_cast<void*>(buf_)) Fn(std::forward<F>(f));
      ops_ = &inlineOps<Fn>;
    } else {
      *reinterpret_cast<Fn**>(buf_) = new Fn(std::forward<F>(f));
      ops_ = &heapOps<Fn>;
    }
  }
  LinkTask(LinkTask&& o) noexcept : ops_(o.ops_) {
    if (ops_) ops_->move(o.buf_, buf_);
    o.ops_ = nullptr;
  }
  LinkTask& operator=(LinkTask&& o) noexcept {
    if (this != &o) {
      reset();
      ops_ = o.ops_;
      if (ops_) ops_->move(o.buf_, buf_);
      o.ops_ = nullptr;
    }
    return *this;
  }
  LinkTask(LinkTask const&) = delete;
  LinkTask& operator=(LinkTask const&) = delete;
  ~LinkTask() { reset(); }

  template <class Fn>
  static constexpr bool storedInline() noexcept {
    // NOLINTNEXTLINE(misc-redundant-expression): constant for one callable, not for all
    return sizeof(Fn) <= room && alignof(Fn) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<Fn>;
  }

  void operator()() { ops_->call(buf_); }

 private:
  struct Ops {
    void (*call)(void*);
    void (*move)(void* from, void* to) noexcept;  // leaves `from` destroyed
    void (*destroy)(void*) noexcept;
  };
  template <class Fn>
  static constexpr Ops inlineOps{[](void* p) { (*static_cast<Fn*>(p))(); },
                                 [](void* from, void* to) noexcept {
                                   ::new (to) Fn(std::move(*static_cast<Fn*>(from)));
                                   static_cast<Fn*>(from)->~Fn();
                                 },
                                 [](void* p) noexcept { static_cast<Fn*>(p)->~Fn(); }};
  template <class Fn>
  static constexpr Ops heapOps{[](void* p) { (**static_cast<Fn**>(p))(); },
                               [](void* from, void* to) noexcept { *static_cast<Fn**>(to) = *static_cast<Fn**>(from); },
                               [](void* p) noexcept { delete *static_cast<Fn**>(p); }};

  void reset() noexcept {
    if (ops_) ops_->destroy(buf_);
    ops_ = nullptr;
  }

  alignas(std::max_align_t) unsigned char buf_[room];
  Ops const* ops_ = nullptr;
};

class Link {
 public:
  using Apply = LinkTask;

  Brix::Duration delay() const noexcept { return delay_; }
  void delayIs(Brix::Duration d) noexcept { delay_ = d; }

  bool up() const noexcept { return up_; }
  // Cutting drops what is in flight: the peer never receives it.
  void upIs(bool up) {
    up_ = up;
    if (!up_) {
      queue_.clear();
      head_ = 0;
    }
  }

  void post(Apply apply) {
    if (!up_) return;
    queue_.push_back({Vok::System::currentTime() + delay_, std::move(apply)});
  }

  // Applies, in order, everything due by `now`. What an applied change posts in turn waits for
  // the next call, so one call is one hop.
  std::size_t deliverDue(Brix::Duration now) {
    std::size_t n = 0;
    std::size_t const end = queue_.size();
    while (head_ < end && head_ < queue_.size() && queue_[head_].due <= now) {
      Apply a = std::move(queue_[head_].apply);
      ++head_;
      a();
      ++n;
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
    Apply apply;
  };

  // Delivered slots are dropped from the front once they are the larger part, so the queue
  // keeps its capacity and moves each waiting change a bounded number of times.
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
  Brix::Duration delay_ = 0.0;
  bool up_ = true;
};

}  // namespace Sim
