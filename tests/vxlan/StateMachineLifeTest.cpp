// The life every state machine and reactor shares: construction, dispatch, notification
// activity, the zombie state, the attribute kinds' mutators and the fixed teardown order.
//
// The classes below are small stand-ins with every attribute kind. Each records what it does in
// one event log, and the tests assert on exact orders.
#include <fmt/format.h>

#include <stdexcept>
#include <tuple>

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/Exceptions.h"
#include "runtime/StateMachine.h"
#include "vxlan/Harness.h"

namespace LifeTest {

using namespace TestSupport;

std::vector<std::string> events;
void ev(std::string e) { events.push_back(std::move(e)); }
std::vector<std::string> takeEvents() { return std::exchange(events, {}); }
std::string n(int i) { return std::to_string(i); }

// Lets a test act from inside a reactor's first run.
std::function<void(int)> onMemberInit;

#define LIFE_TEST_MEMBER_ATTRIBUTES(A) A(key, id, int) A(scalar, value, int)
class MemberEntity : public Vok::Entity {
  VOK_ENTITY(MemberEntity, "LifeTest::MemberEntity", LIFE_TEST_MEMBER_ATTRIBUTES)
 public:
  explicit MemberEntity(int id) : id_(id) {}
};

#define LIFE_TEST_PARENT_ATTRIBUTES(A) \
  A(scalar, level, int) A(entities, member, int, MemberEntity) A(scalar, other, int)
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

 protected:
  void destructorCleanup() override {
    if (initialized_) ev("leaf " + name_ + " cleanup");
  }

 private:
  static void parentDispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const*,
                             void const*) noexcept {
    auto* self = s->ownerAs<LeafSm>();
    if (field != ParentEntity::levelField || self->zombie() || !self->initialized_ || !self->parent_) return;
    ev("leaf " + self->name_ + " level " + n(self->parent_->level()));
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
  MemberReactor(Brix::Ptr<MemberEntity const> const& entry, WatchSm* owner) : Reactor(entry, owner), id_(entry->id()) {
    ev("member " + n(id_) + " init");
    if (onMemberInit) onMemberInit(id_);
  }
  ~MemberReactor() override { ev("~member " + n(id_) + " owner=" + n(owner() != nullptr)); }
  static int keyOf(MemberEntity const& e) { return e.id(); }
  void onAttribute(Brix::FieldId field, void const* key) override;

 protected:
  void zombieCleanup() override { ev("member " + n(id_) + " cleanup owner=" + n(owner() != nullptr)); }

 private:
  int const id_;
};

// The reactor of a reactor pointer: on a rebind it runs its owner's handler.
class FocusReactor : public Vok::Reactor<WatchSm, MemberEntity> {
 public:
  FocusReactor(Brix::Ptr<MemberEntity const> const& entry, WatchSm* owner) : Reactor(entry, owner) {
    ev("focus ctor " + n(entry->id()));
  }
  ~FocusReactor() override { ev("~focus owner=" + n(owner() != nullptr)); }
  void onAttribute(Brix::FieldId field, void const* key) override;

 protected:
  void onNotifierBound() override;
  void zombieCleanup() override { ev("focus cleanup owner=" + n(owner() != nullptr)); }
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
      for (auto& m : parent_->memberIter()) members.is(m.value);
      if (parent_->level() < 0) throw std::invalid_argument("negative level");
    }
    initialized_ = true;
    ev("watch init");
    handleLevel();
  }
  ~WatchSm() override { ev("~watch"); }

  void handleLevel() {
    if (!initialized_) return ev("watch level skipped");
    ev(parent_ ? "watch level " + n(parent_->level()) : "watch level absent");
  }
  // A negative value retires the member's reactor, from inside the delivery to it.
  void handleMember(int id) {
    if (!initialized_) return;
    int value = members(id)->input()->value();
    ev("watch member " + n(id) + " value " + n(value));
    if (value < 0) (void)members.del(id);
  }
  void handleFocus() {
    if (!initialized_) return;
    ev("watch focus " + n(focus->input()->id()) + " value " + n(focus->input()->value()));
  }

 protected:
  void destructorCleanup() override { ev("watch cleanup subscribed=" + n(parent_.subscribed())); }

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
    } else if (field == ParentEntity::levelField && !self->zombie()) {
      self->handleLevel();
    }
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
  if (field != MemberEntity::valueField || zombie()) return;
  Brix::Ptr<MemberReactor> hold(this);  // the owner may delete this reactor
  owner()->handleMember(id_);
  ev("member " + n(id_) + " handled");
}

void FocusReactor::onAttribute(Brix::FieldId field, void const*) {
  if (field == MemberEntity::valueField && !zombie()) owner()->handleFocus();
}

void FocusReactor::onNotifierBound() { owner()->handleFocus(); }

class StateMachineLife : public ::testing::Test {
 protected:
  StateMachineLife() {
    events.clear();
    onMemberInit = nullptr;
  }
  // A state machine on `parent` with member 1, the events of its construction taken.
  WatchSm::Ptr watch(bool withMember = true) {
    if (withMember) parent->memberIs(1);
    auto sm = Vok::smNew<WatchSm>(parent);
    takeEvents();
    return sm;
  }
  std::size_t subscribers(Vok::Entity const& e) const { return e.publisher()->subscriberCount(); }

  NoNodesLeft noNodesLeft;
  Brix::Ptr<ParentEntity> parent = Brix::newNode<ParentEntity>();
  Brix::Ptr<ParentEntity> other = Brix::newNode<ParentEntity>();
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
  auto sm = Vok::smNew<WatchSm>(parent);
  ASSERT_THAT(walked, UnorderedElementsAre(1, 2));
  auto init = [](int id) { return "member " + n(id) + " init"; };
  EXPECT_THAT(takeEvents(), ElementsAre("watch ctor", init(walked[0]), "watch level skipped", init(walked[1]),
                                        "watch init", "watch level 5"));

  // A constructor that fails after the walk takes back its subscriptions and its reactors,
  // whose cleanup no longer reaches the half-built owner.
  sm = nullptr;
  takeEvents();
  onMemberInit = nullptr;
  parent->levelIs(-1);
  EXPECT_THROW(Vok::smNew<WatchSm>(parent), std::invalid_argument);
  EXPECT_THAT(takeEvents(),
              UnorderedElementsAre("watch ctor", "member 1 init", "member 2 init", "member 1 cleanup owner=0",
                                   "~member 1 owner=0", "member 2 cleanup owner=0", "~member 2 owner=0"));
  EXPECT_EQ(subscribers(*parent) + subscribers(*parent->member(1)), 0u);

  // A null input: no walk, and the first run sees the input as absent.
  (void)Vok::smNew<WatchSm>(nullptr);
  EXPECT_THAT(takeEvents(),
              ElementsAre("watch ctor", "watch init", "watch level absent", "watch cleanup subscribed=0", "~watch"));
}

TEST_F(StateMachineLife, DispatchSelectsItsFieldsDropsEverythingWhileZombieOrInactive) {
  auto sm = watch();
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

  // Notification activity reaches children and reactors, and repeats harmlessly.
  sm->leaf.is("A", parent, 1);
  sm->leaves.is("k", parent, 1);
  takeEvents();
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(subscribers(*parent), 0u);
  parent->levelIs(2);
  parent->member(1)->valueIs(2);
  EXPECT_THAT(takeEvents(), IsEmpty());
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(subscribers(*parent), 3u);
  // Back on: the owner's inputs before its children.
  parent->levelIs(3);
  parent->member(2)->valueIs(3);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 3", "leaf A level 3", "leaf k level 3", "watch member 2 value 3",
                                        "member 2 handled"));
}

TEST_F(StateMachineLife, TeardownRunsInTheFixedOrder) {
  auto sm = watch();
  sm->focus.is(parent->member(1));
  sm->leaf.is("A", parent, 1);
  sm->leaves.is("k", parent, 1);
  takeEvents();
  sm = nullptr;
  // Notifications off before the own cleanup; the reactors' cleanups, collections before reactor
  // pointers, back pointers set; the children, each with its own cleanup; then the members, back
  // pointers cleared.
  EXPECT_THAT(takeEvents(), ElementsAre("watch cleanup subscribed=0", "member 1 cleanup owner=1",
                                        "focus cleanup owner=1", "leaf A cleanup", "~leaf A", "leaf k cleanup",
                                        "~leaf k", "~watch", "~focus owner=0", "~member 1 owner=0"));
  EXPECT_EQ(subscribers(*parent) + subscribers(*parent->member(1)), 0u);
}

TEST_F(StateMachineLife, ChildIsBuildsTheNewChildBeforeTheOldOnesCleanup) {
  auto sm = watch(false);
  auto a = sm->leaf.is("A", parent, 1);
  EXPECT_EQ(sm->leaf.is(std::string("A"), parent, 1), a) << "equal arguments give the same child";
  a = nullptr;
  // Another pointer, then another value: each builds anew, the old child ends after.
  sm->leaf.is("A", other, 1);
  sm->leaf.is("B", other, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf A init", "leaf A init", "leaf A cleanup", "~leaf A", "leaf B init",
                                        "leaf A cleanup", "~leaf A"));
  EXPECT_EQ(subscribers(*parent), 1u);
  // A constructor that fails leaves the child there, and takes back its subscription.
  EXPECT_THROW(sm->leaf.is("C", other, -1), std::invalid_argument);
  EXPECT_EQ(sm->leaf.get()->name(), "B");
  EXPECT_EQ(subscribers(*other), 1u);
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
  auto sm = watch(false);
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
  EXPECT_EQ(subscribers(*other), 0u);

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
  EXPECT_EQ(subscribers(*parent), 1u);
}

// An owner whose input is made again under the key hands the old child to its own drop, which
// ends it before the new child's first run; the same arguments keep the child and drop nothing.
TEST_F(StateMachineLife, ChildCollectionHandsAChildWithOtherArgumentsToTheOwnersDropFirst) {
  auto sm = watch(false);
  auto dropOld = [&](std::string const& key) {
    ev("drop " + key);
    (void)sm->leaves.del(key);
  };
  Vok::StateMachine* const k = sm->leaves.is("k", parent, 1).get();
  takeEvents();
  EXPECT_EQ(sm->leaves.isDroppingOther(dropOld, "k", parent, 1).get(), k);
  EXPECT_THAT(takeEvents(), IsEmpty());
  auto again = sm->leaves.isDroppingOther(dropOld, "k", other, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("drop k", "leaf k cleanup", "~leaf k", "leaf k init"));
  EXPECT_EQ(sm->leaves("k"), again.get());
  EXPECT_EQ(subscribers(*other), 1u);
}

TEST_F(StateMachineLife, InputCollectionFollowsItsEntriesAndSurvivesADeleteDuringTheDelivery) {
  auto sm = watch();
  EXPECT_THROW(sm->members.is(nullptr), Vok::MutatorArgNullPointerException);
  // Another entity under the same key: the reactor moves to it and its handlers do not run.
  auto stray = Brix::newNode<MemberEntity>(1);
  EXPECT_EQ(sm->members.is(stray).get(), sm->members(1));
  parent->member(1)->valueIs(5);
  EXPECT_THAT(takeEvents(), IsEmpty());
  stray->valueIs(6);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 1 value 6", "member 1 handled"));
  // Del: cleanup with the back pointer set, then cleared; the notifier comes back.
  EXPECT_EQ(sm->members.del(1), stray);
  EXPECT_THAT(takeEvents(), ElementsAre("member 1 cleanup owner=1", "~member 1 owner=0"));
  EXPECT_EQ(subscribers(*stray), 0u);

  // Entries come and go with the input.
  parent->memberIs(2);
  parent->memberIs(3);
  (void)parent->memberDel(3);
  EXPECT_THAT(takeEvents(),
              ElementsAre("member 2 init", "member 3 init", "member 3 cleanup owner=1", "~member 3 owner=0"));

  // Subscribed after the reactor: each must get the change once when the reactor goes mid-way.
  TestSupport::PublicationRecorder second(*parent->member(2)), third(*parent->member(2));
  parent->member(2)->valueIs(-1);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 2 value -1", "member 2 cleanup owner=1", "member 2 handled",
                                        "~member 2 owner=0"));
  parent->member(2)->valueIs(2);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(second.count(MemberEntity::valueField) + third.count(MemberEntity::valueField), 4u);
  parent->memberIs(4);
  sm->members.delAll();
  EXPECT_THAT(takeEvents(), ElementsAre("member 4 init", "member 4 cleanup owner=1", "~member 4 owner=0"));
}

TEST_F(StateMachineLife, ReactorPointerBindsOnFirstUseAndRunsTheOwnersHandlerOnRebind) {
  auto f1 = Brix::newNode<MemberEntity>(10);
  auto f2 = Brix::newNode<MemberEntity>(20);
  auto sm = watch(false);
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
  EXPECT_EQ(subscribers(*f1), 0u);
}

}  // namespace LifeTest
