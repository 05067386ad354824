// Brix::Publisher and Brix::Subscriber: synchronous delivery of changes, in subscription order.
//
// A subscriber may unsubscribe itself or another, or be destroyed, during a delivery: removal
// nulls its slot and the list is compacted when the outermost delivery returns. A subscriber
// added during a delivery receives the next change, not the present one.
#pragma once

#include <cassert>
#include <cstdint>
#include <vector>

#include "runtime/Node.h"

namespace Brix {

class Publisher;
class Subscriber;

// Must not throw: an exception that reaches a dispatch function ends the process.
using Dispatch = void (*)(Publisher const* publisher, Subscriber* subscriber, FieldId field, void const* key,
                          void const* value) noexcept;
using IsEq = bool (*)(void const*, void const*);

class Subscriber {
 public:
  // The owner is stored beside the dispatch function: the dispatch finds its object from it.
  explicit Subscriber(void* owner = nullptr) noexcept : owner_(owner) {}
  Subscriber(Subscriber const&) = delete;
  Subscriber& operator=(Subscriber const&) = delete;
  inline ~Subscriber();

  void ownerIs(void* owner) noexcept { owner_ = owner; }
  void* owner() const noexcept { return owner_; }
  template <class O>
  O* ownerAs() const noexcept {
    return static_cast<O*>(owner_);
  }
  Dispatch dispatch() const noexcept { return fn_; }
  bool subscribed() const noexcept { return fn_ != nullptr; }
  Publisher* publisherOf() const noexcept { return pub_; }

  // If not subscribed, stores `fn` and adds itself to the target's publisher.
  template <class T>
  void subscribeTo(Ptr<T> const& target, Dispatch fn) {
    if (target) subscribeTo(target->publisher(), fn);
  }
  inline void subscribeTo(Publisher* publisher, Dispatch fn);
  template <class T>
  void unsubscribeFrom(Ptr<T> const&) noexcept {
    unsubscribe();
  }
  inline void unsubscribe() noexcept;

 private:
  friend class Publisher;
  Dispatch fn_ = nullptr;
  void* owner_ = nullptr;
  Publisher* pub_ = nullptr;
};

class Publisher {
 public:
  Publisher() = default;
  Publisher(Publisher const&) = delete;
  Publisher& operator=(Publisher const&) = delete;
  ~Publisher() {
    assert(depth_ == 0);
    for (Subscriber* s : subs_) {
      if (s) s->fn_ = nullptr, s->pub_ = nullptr;
    }
  }

  // `deliverAtOnce` is accepted for the interface; delivery is always synchronous here.
  void subscriberAdd(Subscriber& s, bool /*deliverAtOnce*/ = false) {
    assert(s.pub_ == nullptr || s.pub_ == this);
    s.pub_ = this;
    subs_.push_back(&s);
  }

  void subscriberRemove(Subscriber& s) noexcept {
    for (auto& slot : subs_) {
      if (slot == &s) {
        slot = nullptr;
        holes_ = true;
        break;
      }
    }
    s.pub_ = nullptr;
    if (depth_ == 0) compact();
  }

  // Delivers a change to every subscriber: the field, the key (null for a plain attribute) and
  // a value that no handler reads. `isEq` is accepted for the interface and not used.
  void publishChangeRecursive(FieldId field, void const* key, void const* value = nullptr,
                              IsEq /*isEq*/ = nullptr) const noexcept {
    if (subs_.empty()) return;
    ++depth_;
    std::size_t n = subs_.size();
    for (std::size_t i = 0; i < n; ++i) {
      Subscriber* s = subs_[i];
      if (s) s->fn_(this, s, field, key, value);
    }
    if (--depth_ == 0 && holes_) const_cast<Publisher*>(this)->compact();
  }

  std::size_t subscriberCount() const noexcept {
    std::size_t n = 0;
    for (Subscriber* s : subs_) n += s != nullptr;
    return n;
  }

 private:
  void compact() noexcept {
    std::erase(subs_, nullptr);
    holes_ = false;
  }

  std::vector<Subscriber*> subs_;
  mutable std::uint32_t depth_ = 0;
  bool holes_ = false;
};

Subscriber::~Subscriber() { unsubscribe(); }

void Subscriber::subscribeTo(Publisher* publisher, Dispatch fn) {
  assert(fn);
  if (fn_ || !publisher) return;
  fn_ = fn;
  publisher->subscriberAdd(*this, false);
}

void Subscriber::unsubscribe() noexcept {
  if (pub_) pub_->subscriberRemove(*this);
  fn_ = nullptr;
  pub_ = nullptr;
}

}  // namespace Brix
