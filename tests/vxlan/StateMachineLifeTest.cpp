// The life every state machine and reactor shares: construction, dispatch, notification
// activity, the zombie state, the attribute kinds' mutators and the fixed teardown order.
//
// The classes below are small stand-ins with every attribute kind. Each records what it does in
// one event log, and the tests assert on exact orders.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/Exceptions.h"
#include "runtime/Node.h"
#include "runtime/StateMachine.h"
#include "vxlan/PublicationRecorder.h"

namespace LifeTest {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using TestSupport::PublicationRecorder;

std::vector<std::string> events;
void ev(std::string e) { events.push_back(std::move(e)); }
std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

// Lets a test act from inside a reactor's first run.
std::function<void(int)> onMemberInit;

#define LIFE_TEST_MEMBER_ATTRIBUTES(A) A(key, id, int) A(scalar, value, int)
class MemberEntity : public Vok::Entity {
  VOK_ENTITY(MemberEntity, "LifeTest::MemberEntity", LIFE_TEST_MEMBER_ATTRIBUTES)
 public:
  explicit MemberEntity(int id) : id_(id) {}
};

#define LIFE_TEST_PARENT_ATTRIBUTES(A) \
  A(scalar, level, int)                \
  A(entities, member, int, MemberEntity) A(scalar, other, int)
class ParentEntity : public Vok::Entity {
  VOK_ENTITY(ParentEntity, "LifeTest::ParentEntity", LIFE_TEST_PARENT_ATTRIBUTES)
};

// A child state machine: one subscribed input, a value argument, a cleanup. A negative weight
// makes its constructor fail after it has subscribed.
class LeafSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<LeafSm>;

  LeafSm(std::string name, Brix::Ptr<ParentEntity const> parent, int weight)
      : name_(std::move(name)), parent_(this, std::move(parent), &parentDispatch), weight_(weight) {
    if (weight_ < 0) throw std::invalid_argument("negative weight");
    initialized_ = true;
    ev("leaf " + name_ + " init");
  }
  ~LeafSm() override { ev("~leaf " + name_); }

  auto vokArgs() const { return std::tie(name_, parent_.ptr(), weight_); }
  std::string const& name() const noexcept { return name_; }

  void handleLevel() {
    if (!initialized_ || !parent_) return;
    ev("leaf " + name_ + " level " + std::to_string(parent_->level()));
  }

 protected:
  void destructorCleanup() override {
    if (initialized_) ev("leaf " + name_ + " cleanup");
  }

 private:
  static void parentDispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const*,
                             void const*) noexcept {
    auto* self = s->ownerAs<LeafSm>();
    if (field != ParentEntity::levelField) return;
    if (self->zombie()) return;
    self->handleLevel();
  }

  std::string const name_;
  Vok::Input<ParentEntity> parent_;
  int const weight_;
  bool initialized_ = false;
};

class WatchSm;

// One per member of the parent's collection.
class MemberReactor : public Vok::Reactor<WatchSm, MemberEntity> {
 public:
  MemberReactor(WatchSm* owner, Brix::Ptr<MemberEntity const> const& entry) : Reactor(owner, entry), id_(entry->id()) {
    ev("member " + std::to_string(id_) + " init");
    if (onMemberInit) onMemberInit(id_);
  }
  ~MemberReactor() override { ev("~member " + std::to_string(id_) + " owner=" + std::to_string(owner() != nullptr)); }

  static int keyOf(MemberEntity const& e) { return e.id(); }

  void onAttribute(Brix::FieldId field, void const* key) override;

 protected:
  void zombieCleanup() override {
    ev("member " + std::to_string(id_) + " cleanup owner=" + std::to_string(owner() != nullptr));
  }

 private:
  int const id_;
};

// The reactor of a reactor pointer: on a rebind it runs its owner's handler.
class FocusReactor : public Vok::Reactor<WatchSm, MemberEntity> {
 public:
  FocusReactor(WatchSm* owner, Brix::Ptr<MemberEntity const> const& entry) : Reactor(owner, entry) {
    ev("focus ctor " + std::to_string(entry->id()));
  }
  ~FocusReactor() override { ev("~focus owner=" + std::to_string(owner() != nullptr)); }

  void onAttribute(Brix::FieldId field, void const* key) override;

 protected:
  void onNotifierBound() override;
  void zombieCleanup() override { ev("focus cleanup owner=" + std::to_string(owner() != nullptr)); }
};

// An owner with every attribute kind, declared in this order: subscribed input, input
// collection, reactor pointer, child, child collection.
class WatchSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<WatchSm>;
  static constexpr char const* typeName = "LifeTest::WatchSm";

  explicit WatchSm(Brix::Ptr<ParentEntity const> parent)
      : parent_(this, std::move(parent), &parentDispatch),
        members(this, typeName, "member"),
        focus(this),
        leaf(this),
        leaves(this, typeName, "leaves") {
    ev("watch ctor");
    if (parent_) {
      for (auto& n : parent_->memberIter()) members.is(n.value);
      if (parent_->level() < 0) throw std::invalid_argument("negative level");
    }
    handleInitialized();
  }
  ~WatchSm() override { ev("~watch"); }

  void handleInitialized() {
    initialized_ = true;
    ev("watch init");
    handleLevel();
  }
  void handleLevel() {
    if (!initialized_) {
      ev("watch level skipped");
      return;
    }
    ev(parent_ ? "watch level " + std::to_string(parent_->level()) : "watch level absent");
  }
  // A negative value retires the member's reactor, from inside the delivery to it.
  void handleMember(int id) {
    if (!initialized_) return;
    int value = members(id)->input()->value();
    ev("watch member " + std::to_string(id) + " value " + std::to_string(value));
    if (value < 0) (void)members.del(id);
  }
  void handleFocus() {
    if (!initialized_) return;
    auto const* in = focus->input();
    ev("watch focus " + std::to_string(in->id()) + " value " + std::to_string(in->value()));
  }

 protected:
  void destructorCleanup() override { ev("watch cleanup subscribed=" + std::to_string(parent_.subscribed())); }

 private:
  static void parentDispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                             void const*) noexcept {
    auto* self = s->ownerAs<WatchSm>();
    if (field == ParentEntity::memberField) {
      // The input collection follows its input even in the zombie state: xIs hands the state on.
      int id = *static_cast<int const*>(key);
      if (auto entry = self->parent_->member(id)) {
        self->members.is(entry);
      } else {
        (void)self->members.del(id);
      }
      return;
    }
    if (field != ParentEntity::levelField) return;
    if (self->zombie()) return;
    self->handleLevel();
  }

  Vok::Input<ParentEntity> parent_;
  bool initialized_ = false;

 public:
  // The tests drive the attributes' own mutators.
  Vok::InputCollection<int, MemberReactor> members;
  Vok::ReactorPtr<FocusReactor> focus;
  Vok::Child<LeafSm> leaf;
  Vok::ChildCollection<std::string, LeafSm> leaves;
};

void MemberReactor::onAttribute(Brix::FieldId field, void const*) {
  if (field != MemberEntity::valueField) return;
  if (zombie()) return;
  Brix::Ptr<MemberReactor> hold(this);  // the owner may delete this reactor
  owner()->handleMember(id_);
  ev("member " + std::to_string(id_) + " handled");
}

void FocusReactor::onAttribute(Brix::FieldId field, void const*) {
  if (field != MemberEntity::valueField) return;
  if (zombie()) return;
  owner()->handleFocus();
}

void FocusReactor::onNotifierBound() { owner()->handleFocus(); }

class StateMachineLife : public ::testing::Test {
 protected:
  StateMachineLife() {
    events.clear();
    onMemberInit = nullptr;
  }
  ~StateMachineLife() override {
    parent = nullptr;
    EXPECT_EQ(Brix::Node::liveCount(), baseline_) << "a teardown left nodes behind";
  }

  WatchSm::Ptr watch() { return Vok::smNew<WatchSm>(parent); }
  std::size_t parentSubscribers() const { return parent->publisher()->subscriberCount(); }

  std::int64_t const baseline_ = Brix::Node::liveCount();
  Brix::Ptr<ParentEntity> parent = Brix::newNode<ParentEntity>();
};

TEST_F(StateMachineLife, ConstructionSubscribesBuildsReactorsThenRunsOwnFirstRun) {
  parent->memberIs(1);
  parent->memberIs(2);
  // A change made while the state machine is being built reaches it (it has subscribed before
  // the walk), and its handler ignores it: the first run comes after and sees everything.
  std::vector<int> walked;  // the walk's order is the collection's affair
  onMemberInit = [this, &walked](int id) {
    walked.push_back(id);
    if (walked.size() == 1) parent->levelIs(5);
  };
  auto sm = watch();
  ASSERT_THAT(walked, UnorderedElementsAre(1, 2));
  auto init = [](int id) { return "member " + std::to_string(id) + " init"; };
  EXPECT_THAT(takeEvents(), ElementsAre("watch ctor", init(walked[0]), "watch level skipped", init(walked[1]),
                                        "watch init", "watch level 5"));
  parent->member(2)->valueIs(7);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 2 value 7", "member 2 handled"));

  // A constructor that fails after the walk takes back its subscriptions and its reactors,
  // whose cleanup no longer reaches the half-built owner.
  sm = nullptr;
  takeEvents();
  onMemberInit = nullptr;
  parent->levelIs(-1);
  EXPECT_THROW(watch(), std::invalid_argument);
  EXPECT_THAT(takeEvents(),
              UnorderedElementsAre("watch ctor", "member 1 init", "member 2 init", "member 1 cleanup owner=0",
                                   "~member 1 owner=0", "member 2 cleanup owner=0", "~member 2 owner=0"));
  EXPECT_EQ(parentSubscribers() + parent->member(1)->publisher()->subscriberCount(), 0u);

  // A null input: no walk, and the first run sees the input as absent.
  (void)Vok::smNew<WatchSm>(nullptr);
  EXPECT_THAT(takeEvents(),
              ElementsAre("watch ctor", "watch init", "watch level absent", "watch cleanup subscribed=0", "~watch"));
}

TEST_F(StateMachineLife, DispatchSelectsItsFieldsDropsEverythingWhileZombieOrInactive) {
  parent->memberIs(1);
  auto sm = watch();
  takeEvents();
  parent->otherIs(9);
  parent->levelIs(4);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 4"));

  sm->vokDoZombieReactors(true);
  parent->levelIs(5);
  parent->member(1)->valueIs(3);
  // A new entry still gets its reactor, which takes on the zombie state at once.
  parent->memberIs(2);
  parent->member(2)->valueIs(1);
  sm->vokDoZombieReactors(true);
  EXPECT_THAT(takeEvents(), ElementsAre("member 1 cleanup owner=1", "member 2 init", "member 2 cleanup owner=1"));

  // The reactors' cleanup has no test of the direction: it runs on the way back too.
  sm->vokDoZombieReactors(false);
  EXPECT_THAT(takeEvents(), UnorderedElementsAre("member 1 cleanup owner=1", "member 2 cleanup owner=1"));
  parent->levelIs(6);
  parent->member(2)->valueIs(8);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 6", "watch member 2 value 8", "member 2 handled"));

  // Notification activity reaches children and reactors, and repeats harmlessly.
  sm->leaf.is("A", parent, 1);
  sm->leaves.is("k", parent, 1);
  takeEvents();
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(parentSubscribers(), 0u);
  EXPECT_FALSE(sm->members(1)->hasNotificationActive());
  parent->levelIs(2);
  parent->member(1)->valueIs(2);
  EXPECT_THAT(takeEvents(), IsEmpty());

  // On again, twice: one subscription each, the owner's inputs before its children.
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(parentSubscribers(), 3u);
  parent->levelIs(3);
  parent->member(1)->valueIs(3);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 3", "leaf A level 3", "leaf k level 3", "watch member 1 value 3",
                                        "member 1 handled"));
}

TEST_F(StateMachineLife, TeardownRunsInTheFixedOrder) {
  parent->memberIs(1);
  auto sm = watch();
  sm->focus.is(parent->member(1));
  sm->leaf.is("A", parent, 1);
  sm->leaves.is("k", parent, 1);
  takeEvents();
  sm = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre(
                                // notifications off before the own cleanup
                                "watch cleanup subscribed=0",
                                // reactors' cleanups, collections before reactor pointers, back pointers set
                                "member 1 cleanup owner=1", "focus cleanup owner=1",
                                // children, each with its own cleanup
                                "leaf A cleanup", "~leaf A", "leaf k cleanup", "~leaf k",
                                // then the members, back pointers cleared
                                "~watch", "~focus owner=0", "~member 1 owner=0"));
  EXPECT_EQ(parentSubscribers() + parent->member(1)->publisher()->subscriberCount(), 0u);
}

TEST_F(StateMachineLife, ChildIsBuildsTheNewChildBeforeTheOldOnesCleanup) {
  auto other = Brix::newNode<ParentEntity>();
  auto sm = watch();
  takeEvents();
  auto a = sm->leaf.is("A", parent, 1);
  EXPECT_EQ(sm->leaf.is(std::string("A"), parent, 1), a) << "equal arguments give the same child";
  a = nullptr;
  // Another pointer, then another value: each builds anew, the old child ends after.
  sm->leaf.is("A", other, 1);
  sm->leaf.is("B", other, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf A init", "leaf A init", "leaf A cleanup", "~leaf A", "leaf B init",
                                        "leaf A cleanup", "~leaf A"));
  EXPECT_EQ(parentSubscribers(), 1u);

  // A constructor that fails leaves the child there, and takes back its subscription.
  EXPECT_THROW(sm->leaf.is("C", other, -1), std::invalid_argument);
  EXPECT_EQ(sm->leaf.get()->name(), "B");
  EXPECT_EQ(other->publisher()->subscriberCount(), 1u);

  // Del hands the child over silenced; its cleanup waits for the last use.
  auto b = sm->leaf.del();
  EXPECT_EQ(sm->leaf.get(), nullptr);
  other->levelIs(1);
  EXPECT_THAT(takeEvents(), IsEmpty());
  b = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("leaf B cleanup", "~leaf B"));
  EXPECT_EQ(sm->leaf.del(), nullptr);
}

TEST_F(StateMachineLife, ChildCollectionKeepsItsEntryAndRefusesOtherArguments) {
  auto other = Brix::newNode<ParentEntity>();
  auto sm = watch();
  auto k = sm->leaves.is("k", parent, 1);
  EXPECT_EQ(sm->leaves.is("k", parent, 1), k);
  takeEvents();
  // Another pointer or value under a live key is refused; the raiser names the pointers or values.
  auto refusal = [](auto call) -> std::string {
    try {
      call();
    } catch (Vok::MutatorReinstantiatingException const& e) {
      return e.what();
    }
    return "accepted";
  };
  std::string const byPointer = refusal([&] { sm->leaves.is("k", other, 1); });
  EXPECT_THAT(byPointer, HasSubstr("LifeTest::WatchSm::leaves"));
  EXPECT_THAT(byPointer, HasSubstr(fmt::format("{}", static_cast<void const*>(other.get()))));
  EXPECT_THAT(refusal([&] { sm->leaves.is("k", parent, 2); }), HasSubstr("1 != 2"));
  EXPECT_EQ(sm->leaves("k"), k.get());
  EXPECT_EQ(other->publisher()->subscriberCount(), 0u);

  EXPECT_EQ(sm->leaves.del("k"), k);
  EXPECT_EQ(sm->leaves("k"), nullptr);
  EXPECT_THAT(takeEvents(), IsEmpty());
  k = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("leaf k cleanup", "~leaf k"));
  sm->leaves.is("x", parent, 1);
  sm->leaves.is("y", parent, 1);
  takeEvents();
  sm->leaves.delAll();
  EXPECT_THAT(takeEvents(), UnorderedElementsAre("leaf x cleanup", "~leaf x", "leaf y cleanup", "~leaf y"));
  EXPECT_EQ(parentSubscribers(), 1u);
}

TEST_F(StateMachineLife, InputCollectionFollowsItsEntries) {
  parent->memberIs(1);
  auto sm = watch();
  takeEvents();
  EXPECT_THROW(sm->members.is(nullptr), Vok::MutatorArgNullPointerException);
  MemberReactor* r1 = sm->members(1);
  // Another entity under the same key: the reactor moves to it and its handlers do not run.
  auto stray = Brix::newNode<MemberEntity>(1);
  EXPECT_EQ(sm->members.is(stray).get(), r1);
  parent->member(1)->valueIs(5);
  EXPECT_THAT(takeEvents(), IsEmpty());
  stray->valueIs(6);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 1 value 6", "member 1 handled"));

  // Del: cleanup with the back pointer set, then cleared; the notifier comes back.
  EXPECT_EQ(sm->members.del(1), stray);
  EXPECT_THAT(takeEvents(), ElementsAre("member 1 cleanup owner=1", "~member 1 owner=0"));
  EXPECT_EQ(stray->publisher()->subscriberCount(), 0u);

  // Entries come and go with the input.
  parent->memberIs(2);
  parent->memberIs(3);
  (void)parent->memberDel(3);
  EXPECT_THAT(takeEvents(),
              ElementsAre("member 2 init", "member 3 init", "member 3 cleanup owner=1", "~member 3 owner=0"));
  sm->members.delAll();
  EXPECT_THAT(takeEvents(), ElementsAre("member 2 cleanup owner=1", "~member 2 owner=0"));
}

TEST_F(StateMachineLife, ReactorDeletedDuringTheDeliveryToIt) {
  parent->memberIs(1);
  auto sm = watch();
  // Subscribed after the reactor: each must get the change once when the reactor goes mid-way.
  PublicationRecorder second(*parent->member(1));
  PublicationRecorder third(*parent->member(1));
  takeEvents();
  parent->member(1)->valueIs(-1);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 1 value -1", "member 1 cleanup owner=1", "member 1 handled",
                                        "~member 1 owner=0"));
  parent->member(1)->valueIs(2);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(second.count(MemberEntity::valueField), 2u);
  EXPECT_EQ(third.count(MemberEntity::valueField), 2u);
}

TEST_F(StateMachineLife, ReactorPointerBindsOnFirstUseAndRunsTheOwnersHandlerOnRebind) {
  auto f1 = Brix::newNode<MemberEntity>(10);
  auto f2 = Brix::newNode<MemberEntity>(20);
  auto sm = watch();
  takeEvents();
  sm->focus.is(f1);
  sm->focus.is(f1);
  f1->valueIs(4);
  sm->focus.is(f2);
  f1->valueIs(5);
  f2->valueIs(6);
  EXPECT_THAT(takeEvents(), ElementsAre("focus ctor 10", "watch focus 10 value 4", "watch focus 20 value 0",
                                        "watch focus 20 value 6"));

  // A rebind while the owner is a zombie binds without running the handler.
  sm->vokDoZombieReactors(true);
  sm->focus.is(f1);
  f1->valueIs(7);
  sm->vokDoZombieReactors(false);
  f1->valueIs(8);
  EXPECT_THAT(takeEvents(), ElementsAre("focus cleanup owner=1", "focus cleanup owner=1", "watch focus 10 value 8"));

  sm->focus.is(nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre("focus cleanup owner=1", "~focus owner=0"));
  EXPECT_EQ(f1->publisher()->subscriberCount(), 0u);
}

}  // namespace LifeTest
