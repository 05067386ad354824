// Brix::Node: the use-counted base of everything shared, and Brix::Ptr, its strong pointer.
#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Brix {

class Publisher;
using FieldId = std::uint16_t;

namespace ThreadControl {
// When set, use-count changes are atomic so that other threads of the agent may hold uses.
// It implies no further sharing: every notification still runs on the event thread.
inline std::uint8_t tsp_ = 0;
}  // namespace ThreadControl

class Node {
 public:
  enum class Flag : std::uint32_t {
    hasNotificationActive = 1u << 0,
    markAndSweep = 1u << 1,  // the zombie state
  };

  Node() noexcept { ++liveCount_; }
  Node(Node const&) = delete;
  Node& operator=(Node const&) = delete;
  virtual ~Node() { --liveCount_; }

  // Runs when the last use goes; destroys the node.
  virtual void lastUserGone() { delete this; }
  virtual Publisher* publisher() const { return nullptr; }
  virtual char const* typeData() const { return "Brix::Node"; }

  std::uint32_t useCount() const noexcept { return load() >> kCountShift; }

  void incUse() const noexcept { add(kOne); }
  void decUseImpl() const {
    assert(useCount() > 0);
    if ((add(-kOne) >> kCountShift) == 0) {
      const_cast<Node*>(this)->lastUserGone();
    }
  }

  bool nodeFlag(Flag f) const noexcept { return (load() & static_cast<std::uint32_t>(f)) != 0; }
  void nodeFlagSet(Flag f, bool on) const noexcept {
    auto bit = static_cast<std::uint32_t>(f);
    if (ThreadControl::tsp_) {
      std::atomic_ref<std::uint32_t> a(word_);
      on ? a.fetch_or(bit) : a.fetch_and(~bit);
    } else {
      word_ = on ? (word_ | bit) : (word_ & ~bit);
    }
  }

  bool hasNotificationActive() const noexcept { return nodeFlag(Flag::hasNotificationActive); }
  bool markAndSweepFlag() const noexcept { return nodeFlag(Flag::markAndSweep); }
  void markAndSweepFlagSet(bool on) const noexcept { nodeFlagSet(Flag::markAndSweep, on); }

  // Live nodes of the process: a test takes it before and after a teardown.
  static std::int64_t liveCount() noexcept { return liveCount_; }
  // A node made once and never released (the process clock) stays out of the live count, so
  // that whichever test happens to make it first is not taken to leak it.
  void processLifetimeIs() const noexcept { --liveCount_; }

 private:
  static constexpr unsigned kCountShift = 2;
  static constexpr std::uint32_t kOne = 1u << kCountShift;

  std::uint32_t load() const noexcept {
    return ThreadControl::tsp_ ? std::atomic_ref<std::uint32_t>(word_).load() : word_;
  }
  // Returns the word after the change.
  std::uint32_t add(std::uint32_t delta) const noexcept {
    if (ThreadControl::tsp_) return std::atomic_ref<std::uint32_t>(word_).fetch_add(delta) + delta;
    return word_ += delta;
  }

  // One word: the use count above the two flag bits. A new node holds one use.
  mutable std::uint32_t word_ = kOne;
  static inline std::int64_t liveCount_ = 0;
};

inline void hasNotificationActiveSet(Node const* n, bool on) noexcept {
  n->nodeFlagSet(Node::Flag::hasNotificationActive, on);
}

struct AdoptUse {};
inline constexpr AdoptUse adoptUse{};

// Intrusive strong pointer. Equality is identity: contents are never compared through it.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  Ptr(T* p) noexcept : p_(p) {               // NOLINT(google-explicit-constructor)
    if (p_) p_->incUse();
  }
  // Takes over a use already held, such as the first use of a new node.
  Ptr(T* p, AdoptUse) noexcept : p_(p) {}
  Ptr(Ptr const& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& o)
  noexcept : Ptr(o.get()) {}  // NOLINT(google-explicit-constructor)
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
  noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() {
    if (p_) p_->decUseImpl();
  }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept {
    assert(p_);
    return p_;
  }
  T& operator*() const noexcept {
    assert(p_);
    return *p_;
  }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator!() const noexcept { return p_ == nullptr; }

  // Gives up the use without dropping it.
  [[nodiscard]] T* release() noexcept { return std::exchange(p_, nullptr); }

  // Identity, compared as the more derived type so that a base that is not the first one
  // still names the same object.
  template <class U>
  bool operator==(Ptr<U> const& o) const noexcept {
    if constexpr (std::is_convertible_v<U*, T*>) {
      return p_ == static_cast<T*>(o.get());
    } else if constexpr (std::is_convertible_v<T*, U*>) {
      return static_cast<U*>(p_) == o.get();
    } else {
      return static_cast<void const*>(p_) == static_cast<void const*>(o.get());
    }
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

// Builds a node and takes over its first use.
template <class T, class... Args>
Ptr<T> newNode(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...), adoptUse);
}

}  // namespace Brix
