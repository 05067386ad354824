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

// An entity that reports when its last use goes.
class Tag : public Vok::Entity {
 public:
  explicit Tag(std::string name) : name_(std::move(name)) {}
  ~Tag() override { ev("~tag " + name_); }

 private:
  std::string name_;
};

// A child state machine: one subscribed input, a value argument, a cleanup. A negative weight
// makes its constructor fail after it has subscribed.
class LeafSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<LeafSm>;

  LeafSm(std::string name, Brix::Ptr<ParentEntity const> parent, int weight)
      : name_(std::move(name)), parent_(this, std::move(parent), &parentDispatch), weight_(weight) {
    if (weight_ < 0) throw std::invalid_argument("negative weight");
    handleInitialized();
  }
  ~LeafSm() override { ev("~leaf " + name_); }

  auto vokArgs() const { return std::tie(name_, parent_.ptr(), weight_); }
  std::string const& name() const noexcept { return name_; }

  void handleInitialized() {
    initialized_ = true;
    ev("leaf " + name_ + " init");
  }
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
    handleInitialized();
  }
  ~MemberReactor() override { ev("~member " + std::to_string(id_) + " owner=" + std::to_string(owner() != nullptr)); }

  static int keyOf(MemberEntity const& e) { return e.id(); }

  void handleInitialized() {
    ev("member " + std::to_string(id_) + " init");
    if (onMemberInit) onMemberInit(id_);
  }
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

// An owner with every attribute kind, declared in this order: tag, subscribed input, input
// collection, reactor pointer, child, child collection, tag.
class WatchSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<WatchSm>;
  static constexpr char const* typeName = "LifeTest::WatchSm";

  WatchSm(Brix::Ptr<Tag> firstTag, Brix::Ptr<ParentEntity const> parent, Brix::Ptr<Tag> lastTag)
      : firstTag_(std::move(firstTag)),
        parent_(this, std::move(parent), &parentDispatch),
        members_(this, typeName, "member"),
        focus_(this),
        leaf_(this),
        leaves_(this, typeName, "leaves"),
        lastTag_(std::move(lastTag)) {
    ev("watch ctor");
    if (parent_) {
      for (auto& n : parent_->memberIter()) membersIs(n.value);
      if (parent_->level() < 0) throw std::invalid_argument("negative level");
    }
    handleInitialized();
  }
  ~WatchSm() override { ev("~watch"); }

  MemberReactor* members(int id) const noexcept { return members_(id); }
  std::size_t memberCount() const noexcept { return members_.size(); }
  Brix::Ptr<MemberReactor> membersIs(Brix::Ptr<MemberEntity const> const& entry) { return members_.is(entry); }
  Brix::Ptr<MemberEntity const> membersDel(int id) { return members_.del(id); }
  void membersDelAll() { members_.delAll(); }

  FocusReactor* focus() const noexcept { return focus_.get(); }
  void focusIs(Brix::Ptr<MemberEntity const> const& entry) { focus_.is(entry); }

  LeafSm* leaf() const noexcept { return leaf_.get(); }
  LeafSm::Ptr leafIs(std::string const& name, Brix::Ptr<ParentEntity const> const& parent, int weight) {
    return leaf_.is(name, parent, weight);
  }
  LeafSm::Ptr leafDel() { return leaf_.del(); }

  LeafSm* leaves(std::string const& name) const noexcept { return leaves_(name); }
  LeafSm::Ptr leavesIs(std::string const& name, Brix::Ptr<ParentEntity const> const& parent, int weight) {
    return leaves_.is(name, parent, weight);
  }
  LeafSm::Ptr leavesDel(std::string const& name) { return leaves_.del(name); }
  void leavesDelAll() { leaves_.delAll(); }

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
    int value = members_(id)->input()->value();
    ev("watch member " + std::to_string(id) + " value " + std::to_string(value));
    if (value < 0) (void)membersDel(id);
  }
  void handleFocus() {
    if (!initialized_) return;
    auto const* in = focus_->input();
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
        self->membersIs(entry);
      } else {
        (void)self->membersDel(id);
      }
      return;
    }
    if (field != ParentEntity::levelField) return;
    if (self->zombie()) return;
    self->handleLevel();
  }

  Brix::Ptr<Tag> const firstTag_;
  Vok::Input<ParentEntity> parent_;
  Vok::InputCollection<int, MemberReactor> members_;
  Vok::ReactorPtr<FocusReactor> focus_;
  Vok::Child<LeafSm> leaf_;
  Vok::ChildCollection<std::string, LeafSm> leaves_;
  Brix::Ptr<Tag> const lastTag_;
  bool initialized_ = false;
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

// An entity that publishes its one child, as the container does.
class LeafBox : public Vok::Entity, public Vok::Impl::MemberOwner {
 public:
  enum Field : Brix::FieldId { vokNoField, leafField };

  LeafBox() : MemberOwner(this) {}

  LeafSm* leaf() const noexcept { return leaf_.get(); }
  LeafSm::Ptr leafIs(std::string const& name, Brix::Ptr<ParentEntity const> const& parent, int weight) {
    return leaf_.is(name, parent, weight);
  }
  LeafSm::Ptr leafDel() { return leaf_.del(); }

 private:
  Vok::Child<LeafSm> leaf_{this, this, leafField};
};

class StateMachineLife : public ::testing::Test {
 protected:
  void SetUp() override {
    baseline_ = Brix::Node::liveCount();
    events.clear();
    onMemberInit = nullptr;
    parent = Brix::newNode<ParentEntity>();
    first = Brix::newNode<Tag>("first");
    last = Brix::newNode<Tag>("last");
  }
  void TearDown() override {
    onMemberInit = nullptr;
    parent = nullptr;
    first = nullptr;
    last = nullptr;
    EXPECT_EQ(Brix::Node::liveCount(), baseline_) << "a teardown left nodes behind";
  }

  WatchSm::Ptr watch() { return Vok::smNew<WatchSm>(first, parent, last); }
  std::size_t parentSubscribers() const { return parent->publisher()->subscriberCount(); }

  Brix::Ptr<ParentEntity> parent;
  Brix::Ptr<Tag> first;
  Brix::Ptr<Tag> last;

 private:
  std::int64_t baseline_ = 0;
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
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_EQ(parentSubscribers(), 1u);

  // The reactors the walk built are live.
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
  EXPECT_EQ(parentSubscribers(), 0u);
  EXPECT_EQ(parent->member(1)->publisher()->subscriberCount(), 0u);

  // A null input: no walk, and the first run sees the input as absent.
  auto bare = Vok::smNew<WatchSm>(nullptr, nullptr, nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre("watch ctor", "watch init", "watch level absent"));
  EXPECT_EQ(bare->memberCount(), 0u);
  bare = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("watch cleanup subscribed=0", "~watch"));
}

TEST_F(StateMachineLife, DispatchSelectsItsFieldsAndDropsEverythingWhileZombie) {
  parent->memberIs(1);
  auto sm = watch();
  takeEvents();

  parent->otherIs(9);
  EXPECT_THAT(takeEvents(), IsEmpty());
  parent->levelIs(4);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 4"));

  sm->vokDoZombieReactors(true);
  EXPECT_THAT(takeEvents(), ElementsAre("member 1 cleanup owner=1"));
  parent->levelIs(5);
  parent->member(1)->valueIs(3);
  EXPECT_THAT(takeEvents(), IsEmpty());

  // A new entry still gets its reactor, which takes on the zombie state at once.
  parent->memberIs(2);
  EXPECT_THAT(takeEvents(), ElementsAre("member 2 init", "member 2 cleanup owner=1"));
  parent->member(2)->valueIs(1);
  EXPECT_THAT(takeEvents(), IsEmpty());

  sm->vokDoZombieReactors(true);
  EXPECT_THAT(takeEvents(), IsEmpty());

  // The reactors' cleanup has no test of the direction: it runs on the way back too.
  sm->vokDoZombieReactors(false);
  EXPECT_THAT(takeEvents(), UnorderedElementsAre("member 1 cleanup owner=1", "member 2 cleanup owner=1"));
  parent->levelIs(6);
  parent->member(2)->valueIs(8);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 6", "watch member 2 value 8", "member 2 handled"));
}

TEST_F(StateMachineLife, NotificationActivityReachesChildrenAndReactorsAndRepeatsHarmlessly) {
  parent->memberIs(1);
  auto sm = watch();
  sm->leafIs("A", parent, 1);
  sm->leavesIs("k", parent, 1);
  takeEvents();
  ASSERT_EQ(parentSubscribers(), 3u);

  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(parentSubscribers(), 0u);
  EXPECT_FALSE(sm->leaf()->hasNotificationActive());
  EXPECT_FALSE(sm->leaves("k")->hasNotificationActive());
  EXPECT_FALSE(sm->members(1)->hasNotificationActive());
  parent->levelIs(2);
  parent->member(1)->valueIs(2);
  EXPECT_THAT(takeEvents(), IsEmpty());

  // On again, twice: one subscription each, the owner's inputs before its children.
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(parentSubscribers(), 3u);
  EXPECT_FALSE(sm->zombie());
  parent->levelIs(3);
  parent->member(1)->valueIs(3);
  EXPECT_THAT(takeEvents(), ElementsAre("watch level 3", "leaf A level 3", "leaf k level 3", "watch member 1 value 3",
                                        "member 1 handled"));
}

TEST_F(StateMachineLife, TeardownRunsInTheFixedOrder) {
  parent->memberIs(1);
  auto sm = watch();
  sm->focusIs(parent->member(1));
  sm->leafIs("A", parent, 1);
  sm->leavesIs("k", parent, 1);
  first = nullptr;  // the state machine now holds the last use of each tag
  last = nullptr;
  takeEvents();

  sm = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre(
                                // notifications off before the own cleanup
                                "watch cleanup subscribed=0",
                                // reactors' cleanups, collections before reactor pointers, back pointers set
                                "member 1 cleanup owner=1", "focus cleanup owner=1",
                                // children, each with its own cleanup
                                "leaf A cleanup", "~leaf A", "leaf k cleanup", "~leaf k",
                                // then the members in reverse declared order, back pointers cleared
                                "~watch", "~tag last", "~focus owner=0", "~member 1 owner=0", "~tag first"));
  EXPECT_EQ(parentSubscribers(), 0u);
  EXPECT_EQ(parent->member(1)->publisher()->subscriberCount(), 0u);
}

TEST_F(StateMachineLife, ChildIsBuildsTheNewChildBeforeTheOldOnesCleanup) {
  auto other = Brix::newNode<ParentEntity>();
  auto sm = watch();
  takeEvents();

  auto a = sm->leafIs("A", parent, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf A init"));
  EXPECT_EQ(sm->leafIs(std::string("A"), parent, 1), a) << "equal arguments give the same child";
  EXPECT_THAT(takeEvents(), IsEmpty());
  a = nullptr;

  // Another pointer, then another value: each builds anew, the old child ends after.
  LeafSm* before = sm->leaf();
  sm->leafIs("A", other, 1);
  EXPECT_NE(sm->leaf(), before);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf A init", "leaf A cleanup", "~leaf A"));
  sm->leafIs("B", other, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf B init", "leaf A cleanup", "~leaf A"));
  EXPECT_EQ(parent->publisher()->subscriberCount(), 1u);
  EXPECT_EQ(other->publisher()->subscriberCount(), 1u);

  // A constructor that fails leaves the child there, and takes back its subscription.
  EXPECT_THROW(sm->leafIs("C", other, -1), std::invalid_argument);
  ASSERT_NE(sm->leaf(), nullptr);
  EXPECT_EQ(sm->leaf()->name(), "B");
  EXPECT_EQ(other->publisher()->subscriberCount(), 1u);
  EXPECT_THAT(takeEvents(), IsEmpty());

  // Del hands the child over silenced; its cleanup waits for the last use.
  auto b = sm->leafDel();
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(sm->leaf(), nullptr);
  EXPECT_FALSE(b->hasNotificationActive());
  other->levelIs(1);
  EXPECT_THAT(takeEvents(), IsEmpty());
  b = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("leaf B cleanup", "~leaf B"));
  EXPECT_EQ(sm->leafDel(), nullptr);
}

TEST_F(StateMachineLife, ContainerChildPublishesOnceForEachChange) {
  auto box = Brix::newNode<LeafBox>();
  PublicationRecorder rec(*box, [&box](PublicationRecorder::Publication const&) {
    ev(std::string("box published ") + (box->leaf() ? box->leaf()->name() : "none"));
  });

  EXPECT_EQ(box->leafDel(), nullptr);
  EXPECT_THAT(rec.publications(), IsEmpty());

  box->leafIs("A", parent, 1);
  LeafSm* a = box->leaf();
  box->leafIs("A", parent, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf A init", "box published A"));

  // The new child is built and stored before the publication; the old one ends after it.
  box->leafIs("B", parent, 1);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf B init", "box published B", "leaf A cleanup", "~leaf A"));
  ASSERT_EQ(rec.publications().size(), 2u);
  EXPECT_EQ(rec.publications()[1].field, LeafBox::leafField);
  EXPECT_EQ(rec.publications()[1].key, nullptr);
  EXPECT_EQ(rec.publications()[1].value, a) << "the former child goes out as the value";

  EXPECT_THROW(box->leafIs("C", parent, -1), std::invalid_argument);
  ASSERT_NE(box->leaf(), nullptr);
  EXPECT_EQ(box->leaf()->name(), "B");
  EXPECT_EQ(rec.publications().size(), 2u);
  EXPECT_EQ(parentSubscribers(), 1u);

  auto b = box->leafDel();
  EXPECT_THAT(takeEvents(), ElementsAre("box published none"));
  EXPECT_EQ(rec.publications().back().value, b.get());
  b = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("leaf B cleanup", "~leaf B"));
  EXPECT_EQ(box->leafDel(), nullptr);
  EXPECT_EQ(rec.publications().size(), 3u);
}

TEST_F(StateMachineLife, ChildCollectionKeepsItsEntryAndRefusesOtherArguments) {
  auto other = Brix::newNode<ParentEntity>();
  auto sm = watch();
  takeEvents();

  auto k = sm->leavesIs("k", parent, 1);
  EXPECT_EQ(sm->leavesIs("k", parent, 1), k);
  EXPECT_THAT(takeEvents(), ElementsAre("leaf k init"));

  try {
    sm->leavesIs("k", other, 1);
    ADD_FAILURE() << "another pointer under a live key must be refused";
  } catch (Vok::MutatorReinstantiatingException const& e) {
    EXPECT_THAT(e.what(), HasSubstr("LifeTest::WatchSm::leaves"));
    EXPECT_THAT(e.what(), HasSubstr(fmt::format("{}", static_cast<void const*>(other.get()))))
        << "the pointer raiser names the pointers";
  }
  try {
    sm->leavesIs("k", parent, 2);
    ADD_FAILURE() << "another value under a live key must be refused";
  } catch (Vok::MutatorReinstantiatingException const& e) {
    EXPECT_THAT(e.what(), HasSubstr("1 != 2"));
  }
  EXPECT_EQ(sm->leaves("k"), k.get());
  EXPECT_EQ(other->publisher()->subscriberCount(), 0u);
  EXPECT_THAT(takeEvents(), IsEmpty());

  auto old = sm->leavesDel("k");
  EXPECT_EQ(old, k);
  EXPECT_EQ(sm->leaves("k"), nullptr);
  EXPECT_THAT(takeEvents(), IsEmpty());
  k = nullptr;
  old = nullptr;
  EXPECT_THAT(takeEvents(), ElementsAre("leaf k cleanup", "~leaf k"));
  EXPECT_EQ(sm->leavesDel("k"), nullptr);

  sm->leavesIs("x", parent, 1);
  sm->leavesIs("y", parent, 1);
  takeEvents();
  sm->leavesDelAll();
  EXPECT_THAT(takeEvents(), UnorderedElementsAre("leaf x cleanup", "~leaf x", "leaf y cleanup", "~leaf y"));
  EXPECT_EQ(parentSubscribers(), 1u);
}

TEST_F(StateMachineLife, InputCollectionFollowsItsEntries) {
  parent->memberIs(1);
  auto sm = watch();
  takeEvents();

  EXPECT_THROW(sm->membersIs(nullptr), Vok::MutatorArgNullPointerException);
  EXPECT_EQ(sm->memberCount(), 1u);

  MemberReactor* r1 = sm->members(1);
  EXPECT_EQ(sm->membersIs(parent->member(1)).get(), r1);

  // Another entity under the same key: the reactor moves to it and its handlers do not run.
  auto stray = Brix::newNode<MemberEntity>(1);
  EXPECT_EQ(sm->membersIs(stray).get(), r1);
  EXPECT_THAT(takeEvents(), IsEmpty());
  parent->member(1)->valueIs(5);
  EXPECT_THAT(takeEvents(), IsEmpty());
  stray->valueIs(6);
  EXPECT_THAT(takeEvents(), ElementsAre("watch member 1 value 6", "member 1 handled"));

  // Del: cleanup with the back pointer set, then cleared; the notifier comes back.
  EXPECT_EQ(sm->membersDel(1), stray);
  EXPECT_THAT(takeEvents(), ElementsAre("member 1 cleanup owner=1", "~member 1 owner=0"));
  EXPECT_EQ(stray->publisher()->subscriberCount(), 0u);
  EXPECT_EQ(sm->membersDel(1), nullptr);

  // Entries come and go with the input.
  parent->memberIs(2);
  parent->memberIs(3);
  EXPECT_THAT(takeEvents(), ElementsAre("member 2 init", "member 3 init"));
  (void)parent->memberDel(3);
  EXPECT_THAT(takeEvents(), ElementsAre("member 3 cleanup owner=1", "~member 3 owner=0"));

  parent->memberIs(4);
  takeEvents();
  sm->membersDelAll();
  EXPECT_THAT(takeEvents(), UnorderedElementsAre("member 2 cleanup owner=1", "~member 2 owner=0",
                                                 "member 4 cleanup owner=1", "~member 4 owner=0"));
  EXPECT_EQ(sm->memberCount(), 0u);
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
  EXPECT_EQ(sm->members(1), nullptr);
  EXPECT_EQ(second.count(MemberEntity::valueField), 1u);
  EXPECT_EQ(third.count(MemberEntity::valueField), 1u);

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

  sm->focusIs(f1);
  sm->focusIs(f1);
  EXPECT_THAT(takeEvents(), ElementsAre("focus ctor 10"));
  f1->valueIs(4);
  EXPECT_THAT(takeEvents(), ElementsAre("watch focus 10 value 4"));

  sm->focusIs(f2);
  EXPECT_THAT(takeEvents(), ElementsAre("watch focus 20 value 0"));
  f1->valueIs(5);
  f2->valueIs(6);
  EXPECT_THAT(takeEvents(), ElementsAre("watch focus 20 value 6"));

  // A rebind while the owner is a zombie binds without running the handler.
  sm->vokDoZombieReactors(true);
  EXPECT_THAT(takeEvents(), ElementsAre("focus cleanup owner=1"));
  sm->focusIs(f1);
  f1->valueIs(7);
  EXPECT_THAT(takeEvents(), IsEmpty());
  sm->vokDoZombieReactors(false);
  EXPECT_THAT(takeEvents(), ElementsAre("focus cleanup owner=1"));
  f1->valueIs(8);
  EXPECT_THAT(takeEvents(), ElementsAre("watch focus 10 value 8"));

  sm->focusIs(nullptr);
  EXPECT_THAT(takeEvents(), ElementsAre("focus cleanup owner=1", "~focus owner=0"));
  EXPECT_EQ(sm->focus(), nullptr);
  EXPECT_EQ(f1->publisher()->subscriberCount(), 0u);

  sm->focusIs(f2);
  EXPECT_THAT(takeEvents(), ElementsAre("focus ctor 20"));
}

}  // namespace LifeTest
