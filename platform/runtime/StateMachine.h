// The one form all state machines and reactors share.
//
// A state machine declares its attributes as members, in order. Members of the kinds that take
// part in the life of the object (subscribed inputs, children, reactors) register with their
// owner as they are constructed, so the owner knows them in declared order. The life itself,
// notification activity, the zombie state and the fixed teardown order, is written once here.
//
// A state machine or reactor ends only when its last use goes: lastUserGone() runs the teardown
// while the object is whole (so its own cleanup is still reachable), then deletes it, and the
// members release themselves in reverse declared order.
#pragma once

#include <cassert>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/Entity.h"
#include "runtime/Exceptions.h"
#include "runtime/HashMap2018.h"
#include "runtime/Node.h"
#include "runtime/Notifiee.h"
#include "runtime/Publisher.h"

namespace Vok {

namespace Impl {

class MemberOwner;

class Member {
 public:
  enum class Kind : std::uint8_t { input, reactorCollection, reactorPtr, child };

  Member(MemberOwner* owner, Kind kind) noexcept;
  Member(Member const&) = delete;
  Member& operator=(Member const&) = delete;

  Kind kind() const noexcept { return kind_; }

  virtual void activeIs(bool /*on*/) {}
  virtual void zombieIs(bool /*zombie*/) {}
  virtual void unsubscribeAll() noexcept {}
  virtual void clearBackPointers() noexcept {}
  virtual void releaseChildren() {}

 protected:
  ~Member() = default;

 private:
  friend class MemberOwner;
  Member* next_ = nullptr;
  Kind kind_;
};

class MemberOwner {
 public:
  explicit MemberOwner(Brix::Node const* self) noexcept : self_(self) {}
  MemberOwner(MemberOwner const&) = delete;
  MemberOwner& operator=(MemberOwner const&) = delete;

  bool ownerZombie() const noexcept { return self_->markAndSweepFlag(); }

 protected:
  ~MemberOwner() = default;

  template <class F>
  void forEachMember(F&& f) {
    for (Member* m = head_; m; m = m->next_) f(*m);
  }
  template <class F>
  void forEachMember(Member::Kind kind, F&& f) {
    for (Member* m = head_; m; m = m->next_) {
      if (m->kind() == kind) f(*m);
    }
  }

  // Subscribed inputs first, then children and reactors, each in declared order.
  void membersActiveIs(bool on) {
    forEachMember(Member::Kind::input, [on](Member& m) { m.activeIs(on); });
    forEachMember([on](Member& m) {
      if (m.kind() != Member::Kind::input) m.activeIs(on);
    });
  }
  // Reactor collections first, then reactor pointers, each in declared order.
  void membersZombieIs(bool zombie) {
    forEachMember(Member::Kind::reactorCollection, [zombie](Member& m) { m.zombieIs(zombie); });
    forEachMember(Member::Kind::reactorPtr, [zombie](Member& m) { m.zombieIs(zombie); });
  }

 private:
  friend class Member;
  void add(Member* m) noexcept {
    (tail_ ? tail_->next_ : head_) = m;
    tail_ = m;
  }
  Brix::Node const* self_;
  Member* head_ = nullptr;
  Member* tail_ = nullptr;
};

inline Member::Member(MemberOwner* owner, Kind kind) noexcept : kind_(kind) { owner->add(this); }

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Brix::Ptr<T>> : std::true_type {};

template <class T>
std::string argText(T const& v) {
  if constexpr (requires(std::ostream & os) { os << v; }) {
    std::ostringstream os;
    os << v;
    return os.str();
  } else {
    return "?";
  }
}

// Compares constructor arguments as the mutators do: pointers by identity, values by value.
template <class Stored, class Given>
bool argEq(Stored const& a, Given const& b) {
  return a == b;
}

}  // namespace Impl

// The base of every state machine class.
class StateMachine : public Brix::Node, public Impl::MemberOwner {
 public:
  StateMachine() noexcept : MemberOwner(this) {}

  char const* typeData() const override { return "Vok::StateMachine"; }
  bool zombie() const noexcept { return markAndSweepFlag(); }

  void hasNotificationActiveIs(bool on) {
    if (on == hasNotificationActive()) return;
    Brix::hasNotificationActiveSet(this, on);
    bool saved = markAndSweepFlag();
    markAndSweepFlagSet(true);  // nothing reaches the object while its subscriptions change
    membersActiveIs(on);
    markAndSweepFlagSet(saved);
  }

  virtual void vokDoZombieReactors(bool zombie) {
    if (zombie == markAndSweepFlag()) return;
    membersZombieIs(zombie);
    markAndSweepFlagSet(zombie);
  }

  void lastUserGone() override {
    incUse();  // held for the teardown, so that a handler's own hold cannot end it twice
    hasNotificationActiveIs(false);
    destructorCleanup();
    vokDoZombieReactors(true);
    forEachMember([](Impl::Member& m) { m.unsubscribeAll(); });
    forEachMember([](Impl::Member& m) { m.clearBackPointers(); });
    forEachMember([](Impl::Member& m) { m.releaseChildren(); });
    assert(useCount() == 1 && "a state machine was kept alive by its own teardown");
    delete this;
  }

 protected:
  // The cleanup this class's destructor runs, if it has one.
  virtual void destructorCleanup() {}
};

// Builds a state machine with its notifications active: the body of every XSmIs.
template <class Sm, class... A>
void smIs(Brix::Ptr<Sm>& out, A&&... args) {
  out = Brix::newNode<Sm>(std::forward<A>(args)...);
  out->hasNotificationActiveIs(true);
}
template <class Sm, class... A>
Brix::Ptr<Sm> smNew(A&&... args) {
  Brix::Ptr<Sm> out;
  smIs(out, std::forward<A>(args)...);
  return out;
}

// An internal value collection of a state machine: values by key, a read of an absent key
// giving the default. Declared with VOK_SM_VALUES, which gives the named members.
template <class K, class V>
class ValueCollection {
 public:
  using Map = HashMap2018<K, V>;

  V get(K const& k) const {
    auto const* n = map_.lookupNodeG(k);
    return n ? n->value : V{};
  }
  bool has(K const& k) const noexcept { return map_.contains(k); }
  void set(K const& k, V v) { map_.newMemberG(k, std::move(v)); }
  V del(K const& k) {
    V old{};
    map_.deleteMemberG(k, &old);
    return old;
  }
  void delAll() { map_._memberDelAll(); }
  Map const& map() const noexcept { return map_; }

 private:
  Map map_;
};

#define VOK_SM_VALUES(name, K, V)                                           \
 public:                                                                    \
  V name(K const& k) const { return name##_.get(k); }                       \
  bool name##Has(K const& k) const { return name##_.has(k); }               \
  void name##Is(K const& k, V const& v) { name##_.set(k, v); }              \
  V name##Del(K const& k) { return name##_.del(k); }                        \
  void name##DelAll() { name##_.delAll(); }                                 \
  std::size_t name##Count() const noexcept { return name##_.map().size(); } \
  auto name##Iter() const { return name##_.map().begin(); }                 \
                                                                            \
 private:                                                                   \
  ::Vok::ValueCollection<K, V> name##_;

// A constructor input. With a dispatch function it is subscribed while the owner is active.
// `Held` is `T const` but for an input that the owner is given writable and only reads.
template <class T, class Held = T const>
class Input final : Impl::Member {
 public:
  template <class Owner>
  Input(Owner* owner, Brix::Ptr<Held> p, Brix::Dispatch fn = nullptr)
      : Member(owner, Kind::input), p_(std::move(p)), fn_(fn), sub_(static_cast<void*>(owner)) {
    if (p_ && fn_) sub_.subscribeTo(p_, fn_);
  }

  Brix::Ptr<Held> const& ptr() const noexcept { return p_; }
  Held* get() const noexcept { return p_.get(); }
  Held* operator->() const noexcept { return p_.operator->(); }
  Held& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return bool(p_); }
  bool subscribed() const noexcept { return sub_.subscribed(); }

  void activeIs(bool on) override {
    if (!p_ || !fn_) return;
    if (on) {
      sub_.subscribeTo(p_, fn_);
    } else {
      sub_.unsubscribe();
    }
  }
  void unsubscribeAll() noexcept override { sub_.unsubscribe(); }

 private:
  Brix::Ptr<Held> p_;
  Brix::Dispatch fn_;
  Brix::Subscriber sub_;
};

// The base of reactors nested in a state machine or in another reactor: a back pointer to the
// owner, one input as notifier, reactors of its own. `Base` is NotifieeConst, or a kind of it
// such as a clock's notifiee.
template <class Owner, class In, class Base = NotifieeConst>
class Reactor : public Base, public Impl::MemberOwner {
 public:
  using Input = In;
  using Base::hasNotificationActive;
  using Base::isRegisteredNotifieeIs;
  using Base::markAndSweepFlag;
  using Base::notifier;
  using Base::zombie;

  // Binds with the base's notifierIs, so the class's own rebinding step does not run here.
  Reactor(Brix::Ptr<In const> const& input, Owner* owner) : MemberOwner(this), owner_(owner) {
    NotifieeConst::notifierIs(input.get());
    isRegisteredNotifieeIs(true);
  }

  Owner* owner() const noexcept { return owner_; }
  void ownerIs(Owner* o) noexcept { owner_ = o; }
  In const* input() const noexcept { return static_cast<In const*>(notifier()); }
  Brix::Ptr<In const> inputPtr() const noexcept { return input(); }

  // The class's own notifierIs: rebinds, then lets a reactor pointer's reactor run its handler.
  void notifierIs(Brix::Ptr<Brix::Node const> const& node) {
    auto const* n = static_cast<In const*>(node.get());
    if (n == input()) return;
    NotifieeConst::notifierIs(n);
    if (n && !zombie() && owner_) onNotifierBound();
    isRegisteredNotifieeIs(true);
  }

  void hasNotificationActiveIs(bool on) {
    if (on == hasNotificationActive()) return;
    NotifieeConst::hasNotificationActiveIs(on);
    membersActiveIs(on);
  }

  void vokDoZombieReactors(bool zombie) override {
    if (zombie == markAndSweepFlag()) return;
    if (notifier()) hasNotificationActiveIs(!zombie);
    zombieCleanup();  // no test of the direction: the cleanup runs either way
    membersZombieIs(zombie);
    this->markAndSweepFlagSet(zombie);
  }

  void lastUserGone() override {
    this->incUse();
    hasNotificationActiveIs(false);
    vokDoZombieReactors(true);
    forEachMember([](Impl::Member& m) { m.unsubscribeAll(); });
    forEachMember([](Impl::Member& m) { m.clearBackPointers(); });
    forEachMember([](Impl::Member& m) { m.releaseChildren(); });
    assert(this->useCount() == 1 && "a reactor was kept alive by its own teardown");
    delete this;
  }

 protected:
  // The cleanup run on entering (or leaving) the zombie state, for the reactors that have one.
  virtual void zombieCleanup() {}
  // Step 3 of the rebinding of a reactor pointer's reactor: run the owner's handler.
  virtual void onNotifierBound() {}

 private:
  Owner* owner_;
};

// One reactor per entry of an input's collection.
template <class K, class R>
class InputCollection final : Impl::Member {
 public:
  using Owner = std::remove_pointer_t<decltype(std::declval<R>().owner())>;
  using Entry = typename R::Input;
  using Map = HashMap2018<K, Brix::Ptr<R>>;

  InputCollection(Owner* owner, std::string_view type, std::string_view field)
      : Member(owner, Kind::reactorCollection), owner_(owner), type_(type), field_(field) {}

  Brix::Ptr<R> is(Brix::Ptr<Entry const> const& entry) {
    if (!entry) throwMutatorArgNullPointerException(type_, field_);
    K key = R::keyOf(*entry);
    if (auto* n = map_.lookupNodeG(key)) {
      Brix::Ptr<R> r = n->value;
      if (r->input() == entry.get()) return r;
      r->notifierIs(Brix::Ptr<Brix::Node const>(entry));
      r->vokDoZombieReactors(owner_->ownerZombie());
      return r;
    }
    Brix::Ptr<R> r = Brix::newNode<R>(entry, owner_);
    r->hasNotificationActiveIs(true);
    map_.newMemberG(key, r);
    r->vokDoZombieReactors(owner_->ownerZombie());
    return r;
  }

  Brix::Ptr<Entry const> del(K const& key) {
    Brix::Ptr<R> r;
    if (!map_.deleteMemberG(key, &r)) return nullptr;
    r->vokDoZombieReactors(true);
    r->ownerIs(nullptr);
    r->hasNotificationActiveIs(false);
    return r->inputPtr();
  }

  void delAll() {
    for (auto it = map_.begin(); !it.done(); it.advance()) {
      K key = it.currNodeMaybeStale().key;
      (void)del(key);
    }
  }

  // The dispatch of the input's collection: `entry` is what the input now holds under `key`.
  void follow(K const& key, Brix::Ptr<Entry const> const& entry) {
    if (entry) {
      (void)is(entry);
    } else {
      (void)del(key);
    }
  }

  R* operator()(K const& key) const noexcept {
    auto const* n = map_.lookupNodeG(key);
    return n ? n->value.get() : nullptr;
  }
  std::size_t size() const noexcept { return map_.size(); }
  Map const& map() const noexcept { return map_; }

  void activeIs(bool on) override {
    for (auto& n : map_) n.value->hasNotificationActiveIs(on);
  }
  void zombieIs(bool zombie) override {
    for (auto& n : map_) n.value->vokDoZombieReactors(zombie);
  }
  void clearBackPointers() noexcept override {
    for (auto& n : map_) n.value->ownerIs(nullptr);
  }
  // Reached without a teardown only when the owner's constructor failed: the reactors must not
  // call back into a half-built owner.
  ~InputCollection() {
    clearBackPointers();
    map_._memberDelAll();
  }

 private:
  Owner* owner_;
  Map map_;
  std::string_view type_;
  std::string_view field_;
};

// A reactor bound to whatever input the owner names: built on first use, deleted with null.
template <class R>
class ReactorPtr final : Impl::Member {
 public:
  using Owner = std::remove_pointer_t<decltype(std::declval<R>().owner())>;
  using In = typename R::Input;

  explicit ReactorPtr(Owner* owner) : Member(owner, Kind::reactorPtr), owner_(owner) {}

  void is(Brix::Ptr<In const> const& p) {
    if (!p) {
      del();
      return;
    }
    if (r_) {
      if (r_->input() == p.get()) return;
      r_->notifierIs(Brix::Ptr<Brix::Node const>(p));
      r_->vokDoZombieReactors(owner_->ownerZombie());
      return;
    }
    r_ = Brix::newNode<R>(p, owner_);
    r_->hasNotificationActiveIs(true);
    r_->vokDoZombieReactors(owner_->ownerZombie());
  }

  void del() {
    Brix::Ptr<R> r = std::move(r_);
    if (!r) return;
    r->vokDoZombieReactors(true);
    r->ownerIs(nullptr);
    r->hasNotificationActiveIs(false);
  }

  R* get() const noexcept { return r_.get(); }
  R* operator->() const noexcept { return r_.get(); }
  explicit operator bool() const noexcept { return bool(r_); }

  void activeIs(bool on) override {
    if (r_) r_->hasNotificationActiveIs(on);
  }
  void zombieIs(bool zombie) override {
    if (r_) r_->vokDoZombieReactors(zombie);
  }
  void clearBackPointers() noexcept override {
    if (r_) r_->ownerIs(nullptr);
  }
  ~ReactorPtr() { clearBackPointers(); }

 private:
  Owner* owner_;
  Brix::Ptr<R> r_;
};

// One child state machine. Sm::vokArgs() gives the child's constructor arguments in order.
//
// In a state machine the old child is released when the new one is stored; in a container
// (an entity that publishes its children) the old child is detached first, the change is
// published, and the old child is released last of all. Either way the new child's first run
// comes before the old child's cleanup.
template <class Sm>
class Child final : Impl::Member {
 public:
  template <class Owner>
  explicit Child(Owner* owner) : Member(owner, Kind::child) {}
  // The container variant: each change is published under `field`.
  template <class Owner>
  Child(Owner* owner, Entity const* container, Brix::FieldId field)
      : Member(owner, Kind::child), container_(container), field_(field) {}

  template <class... A>
  Brix::Ptr<Sm> is(A&&... args) {
    if (child_ && sameArgs(child_->vokArgs(), std::forward_as_tuple(args...), std::index_sequence_for<A...>{})) {
      return child_;
    }
    if (!container_) {
      Brix::Ptr<Sm> fresh = smNew<Sm>(std::forward<A>(args)...);
      child_ = fresh;
      fresh->hasNotificationActiveIs(true);
      return fresh;
    }
    Brix::Ptr<Sm> old = std::move(child_);
    Brix::Ptr<Sm> fresh;
    try {
      fresh = smNew<Sm>(std::forward<A>(args)...);
    } catch (...) {
      child_ = std::move(old);  // a refused child leaves the former one in place
      throw;
    }
    child_ = fresh;
    container_->publish(field_, nullptr, old.get());
    fresh->hasNotificationActiveIs(true);
    old = nullptr;
    return fresh;
  }

  Brix::Ptr<Sm> del() {
    Brix::Ptr<Sm> old = std::move(child_);
    if (!old) return nullptr;
    if (container_) container_->publish(field_, nullptr, old.get());
    old->hasNotificationActiveIs(false);
    return old;
  }

  Brix::Ptr<Sm> const& ptr() const noexcept { return child_; }
  Sm* get() const noexcept { return child_.get(); }
  Sm* operator->() const noexcept { return child_.get(); }
  explicit operator bool() const noexcept { return bool(child_); }

  void activeIs(bool on) override {
    if (child_) child_->hasNotificationActiveIs(on);
  }
  void releaseChildren() override {
    if (!child_) return;
    child_->hasNotificationActiveIs(false);
    child_ = nullptr;
  }

 private:
  template <class Stored, class Given, std::size_t... I>
  static bool sameArgs(Stored const& stored, Given const& given, std::index_sequence<I...>) {
    static_assert(std::tuple_size_v<Stored> == sizeof...(I), "vokArgs() must list every constructor argument");
    return (Impl::argEq(std::get<I>(stored), std::get<I>(given)) && ...);
  }

  Brix::Ptr<Sm> child_;
  Entity const* container_ = nullptr;
  Brix::FieldId field_ = 0;
};

// What a child collection's is() does with a child that stands under the key with other
// arguments: refuse (the general rule), or replace it, as a single child is replaced.
enum class OtherArgs : std::uint8_t { raise, replace };

// Child state machines by key. The key is the child's first constructor argument, or, where
// the child's vokArgs() lists no key, a value the child reads from its own input.
template <class K, class Sm, OtherArgs onOther = OtherArgs::raise>
class ChildCollection final : Impl::Member {
 public:
  using Map = HashMap2018<K, Brix::Ptr<Sm>>;

  template <class Owner>
  ChildCollection(Owner* owner, std::string_view type, std::string_view field)
      : Member(owner, Kind::child), type_(type), field_(field) {}

  // Returns the child under `key`, built if absent. A child there with other arguments is a
  // misuse that raises (another pointer throwMutatorReinstantiating, another value
  // throwMutatorReinstVal), or, with OtherArgs::replace, gives way to a new child: the new one's
  // first run comes before the old one's release.
  template <class... A>
  Brix::Ptr<Sm> is(K const& key, A&&... args) {
    constexpr std::size_t offset = keyOffset<A...>();
    if (auto* n = map_.lookupNodeG(key)) {
      if constexpr (onOther == OtherArgs::raise) {
        checkSameArgs<offset>(n->value->vokArgs(), std::forward_as_tuple(args...), std::index_sequence_for<A...>{});
        return n->value;
      } else if (sameArgs<offset>(n->value->vokArgs(), std::forward_as_tuple(args...),
                                  std::index_sequence_for<A...>{})) {
        return n->value;
      }
    }
    return make(key, std::forward<A>(args)...);
  }

  // is() for an owner whose input can be deleted and made again under the same key: a child that
  // stands there with other arguments goes to `dropOther(key)`, which deletes it and runs what its
  // end needs, before the new one is made. One search, where asking hasOtherArgs first took two.
  template <class Drop, class... A>
  Brix::Ptr<Sm> isDroppingOther(Drop&& dropOther, K const& key, A&&... args) {
    if (auto* n = map_.lookupNodeG(key)) {
      if (sameArgs<keyOffset<A...>()>(n->value->vokArgs(), std::forward_as_tuple(args...),
                                      std::index_sequence_for<A...>{})) {
        return n->value;
      }
      // A copy on purpose: the drop may end what `key` refers to.
      K const kept = key;  // NOLINT(performance-unnecessary-copy-initialization)
      std::forward<Drop>(dropOther)(kept);
      return make(kept, std::forward<A>(args)...);
    }
    return make(key, std::forward<A>(args)...);
  }

  // Whether a child stands under `key` with other arguments than these: what is() refuses. An
  // owner that must drop every such child before it makes any new one asks first.
  template <class... A>
  bool hasOtherArgs(K const& key, A const&... args) const {
    auto const* n = map_.lookupNodeG(key);
    return n && !sameArgs<keyOffset<A...>()>(n->value->vokArgs(), std::forward_as_tuple(args...),
                                             std::index_sequence_for<A...>{});
  }

  // Room for `n` children: an owner that is about to make one per entry of an input says so.
  void reserve(std::size_t n) { map_.reserve(n); }

  Brix::Ptr<Sm> del(K const& key) {
    Brix::Ptr<Sm> old;
    map_.deleteMemberG(key, &old);
    return old;
  }
  void delAll() { map_._memberDelAll(); }

  Sm* operator()(K const& key) const noexcept {
    auto const* n = map_.lookupNodeG(key);
    return n ? n->value.get() : nullptr;
  }
  std::size_t size() const noexcept { return map_.size(); }
  Map const& map() const noexcept { return map_; }

  void activeIs(bool on) override {
    for (auto& n : map_) n.value->hasNotificationActiveIs(on);
  }
  void releaseChildren() override { map_._memberDelAll(); }

 private:
  template <class... A>
  Brix::Ptr<Sm> make(K const& key, A&&... args) {
    Brix::Ptr<Sm> fresh;
    if constexpr (keyOffset<A...>() == 1) {
      fresh = smNew<Sm>(key, std::forward<A>(args)...);
    } else {
      fresh = smNew<Sm>(std::forward<A>(args)...);
    }
    // The first run may have put a child under the key meanwhile: the new one takes its place.
    Brix::Ptr<Sm> old;
    if (auto [n, inserted] = map_.findOrInsert(key, fresh); !inserted) old = std::exchange(n->value, fresh);
    old = nullptr;
    fresh->hasNotificationActiveIs(true);
    return fresh;
  }

  // 1 where the key is the child's first constructor argument, 0 where the child reads it.
  template <class... A>
  static constexpr std::size_t keyOffset() {
    constexpr std::size_t stored = std::tuple_size_v<decltype(std::declval<Sm const&>().vokArgs())>;
    static_assert(stored == sizeof...(A) || stored == sizeof...(A) + 1,
                  "vokArgs() must list every constructor argument");
    return stored - sizeof...(A);
  }
  template <std::size_t Offset, class Stored, class Given, std::size_t... I>
  static bool sameArgs(Stored const& stored, Given const& given, std::index_sequence<I...>) {
    return (Impl::argEq(std::get<I + Offset>(stored), std::get<I>(given)) && ...);
  }
  template <std::size_t Offset, class Stored, class Given, std::size_t... I>
  void checkSameArgs(Stored const& stored, Given const& given, std::index_sequence<I...>) const {
    (checkArg(std::get<I + Offset>(stored), std::get<I>(given)), ...);
  }
  template <class S, class G>
  void checkArg(S const& stored, G const& given) const {
    if (Impl::argEq(stored, given)) return;
    if constexpr (Impl::IsPtr<std::decay_t<S>>::value) {
      Impl::throwMutatorReinstantiating(type_, field_, stored.get(), given.get());
    } else {
      Impl::throwMutatorReinstVal(type_, field_, Impl::argText(stored), Impl::argText(given));
    }
  }

  Map map_;
  std::string_view type_;
  std::string_view field_;
};

}  // namespace Vok
