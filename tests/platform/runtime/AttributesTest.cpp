#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/Attributes.h"
#include "runtime/Dir.h"
#include "runtime/Entity.h"
#include "vxlan/PublicationRecorder.h"

namespace Sample {

struct Rec {
  int id = 0;
  std::string text;
  int key() const { return id; }
  friend bool operator==(Rec const&, Rec const&) = default;
};

#define SAMPLE_MEMBER_ATTRIBUTES(A) \
  A(key, key, int)                  \
  A(scalar, weight, int)

class Member : public Vok::Entity {
  VOK_ENTITY(Member, "Sample::Member", SAMPLE_MEMBER_ATTRIBUTES)
 public:
  explicit Member(int k) : key_(k) {}
};

#define SAMPLE_THING_ATTRIBUTES(A) \
  A(scalar, enabled, bool)         \
  A(values, vlanOfVni, int, int)   \
  A(records, rec, int, Rec)        \
  A(entities, member, int, Member) \
  A(orderedEntities, ordered, int, Member)

class Thing : public Vok::Entity {
  VOK_ENTITY(Thing, "Sample::Thing", SAMPLE_THING_ATTRIBUTES)
};

// Made by a directory from its name alone.
class Named : public Vok::Entity {
 public:
  static constexpr char const* vokTypeName = "Sample::Named";
  static constexpr bool vokNameOnly = true;
  explicit Named(Brix::String n) : name(std::move(n)) {}
  Brix::String name;
};

}  // namespace Sample

namespace {

using Sample::Member;
using Sample::Rec;
using Sample::Thing;
using Event = std::pair<Brix::FieldId, int>;  // the field and the key, -1 for none
using Events = std::vector<Event>;

// Collects what an entity publishes.
struct Recorder {
  explicit Recorder(Vok::Entity const& e)
      : pubs(e, [this](auto const& p) { events.emplace_back(p.field, p.key ? *static_cast<int const*>(p.key) : -1); }) {
  }
  Events take() { return std::exchange(events, {}); }
  Events events;
  TestSupport::PublicationRecorder pubs;
};

// The events of one field, one per key.
Events of(Brix::FieldId field, std::initializer_list<int> keys) {
  Events e;
  for (int k : keys) e.emplace_back(field, k);
  return e;
}
Events operator+(Events a, Events const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class AttributesTest : public ::testing::Test {
 protected:
  Brix::Ptr<Thing> thing = Brix::newNode<Thing>();
  Recorder rec{*thing};
};

TEST_F(AttributesTest, EachMutatorPublishesFieldAndKeyOfAChangeOnly) {
  thing->enabledIs(false);
  thing->enabledIs(true);
  thing->enabledIs(true);
  EXPECT_EQ(rec.take(), (Events{{Thing::enabledField, -1}}));

  for (int v : {100, 100, 101}) thing->vlanOfVniIs(5, v);
  thing->vlanOfVniIs(6, 0);  // a new key is a change even with the default value
  EXPECT_EQ(thing->vlanOfVniDel(5), 101);
  EXPECT_EQ(thing->vlanOfVniDel(5), 0);
  EXPECT_EQ(thing->vlanOfVni(5), 0) << "an absent key reads as the default";
  EXPECT_TRUE(thing->vlanOfVniHas(6));
  EXPECT_EQ(rec.take(), of(Thing::vlanOfVniField, {5, 5, 6, 5}));

  for (auto const& r : {Rec{1, "one"}, Rec{1, "one"}, Rec{1, "uno"}, Rec{2, "two"}}) thing->recIs(r);
  EXPECT_EQ(thing->rec(1).text, "uno");
  EXPECT_EQ(thing->recDel(2), (Rec{2, "two"}));
  EXPECT_EQ(thing->recDel(2), Rec{});
  EXPECT_EQ(rec.take(), of(Thing::recField, {1, 1, 2, 2}));
}

TEST_F(AttributesTest, EntityCollectionsCreateMembersOnce) {
  auto m = thing->memberIs(3);
  EXPECT_EQ(m->key(), 3);
  EXPECT_EQ(thing->memberIs(3), m) << "the second xIs returns the same member";
  m->weightIs(7);
  EXPECT_EQ(rec.take(), (Events{{Thing::memberField, 3}})) << "a member publishes its own changes, not its owner";
  EXPECT_EQ(thing->memberDel(3), m);
  EXPECT_EQ(thing->memberDel(3), nullptr);
  EXPECT_EQ(thing->member(3), nullptr);

  auto o = thing->orderedIs(30);
  for (int k : {50, 10, 40}) thing->orderedIs(k);
  EXPECT_EQ(thing->orderedIs(30), o);
  std::vector<int> keys;
  for (auto it = thing->orderedIter(); !it.done(); it.advance()) keys.push_back(it.key());
  EXPECT_EQ(keys, (std::vector<int>{10, 30, 40, 50}));
  EXPECT_EQ(thing->orderedDel(30), o);
  EXPECT_EQ(thing->orderedDel(30), nullptr);
  EXPECT_EQ(rec.take(), of(Thing::memberField, {3}) + of(Thing::orderedField, {30, 50, 10, 40, 30}));
}

TEST_F(AttributesTest, DelAllPublishesEachKeyOnce) {
  for (int k = 1; k <= 5; ++k) {
    thing->vlanOfVniIs(k, k);
    thing->recIs(Rec{k, "r"});
    thing->memberIs(k);
    thing->orderedIs(k);
  }
  rec.take();
  thing->vlanOfVniDelAll();
  thing->recDelAll();
  thing->memberDelAll();
  thing->orderedDelAll();
  thing->memberDelAll();  // emptying an empty collection publishes nothing
  Events expected;
  for (auto f : {Thing::vlanOfVniField, Thing::recField, Thing::memberField, Thing::orderedField}) {
    expected = expected + of(f, {1, 2, 3, 4, 5});
  }
  EXPECT_EQ(rec.take(), expected);
  EXPECT_EQ(thing->vlanOfVniCount() + thing->recCount() + thing->memberCount() + thing->orderedCount(), 0u);
}

TEST(Attributes, EqualityCoversEveryAttribute) {
  auto a = Brix::newNode<Thing>();
  auto b = Brix::newNode<Thing>();
  EXPECT_TRUE(*a == *b);

  // Each change in `a` alone makes the two differ; the same change in `b` makes them equal.
  std::vector<std::pair<char const*, std::function<void(Thing&)>>> changes = {
      {"scalar", [](Thing& t) { t.enabledIs(true); }},
      {"values", [](Thing& t) { t.vlanOfVniIs(1, 10); }},
      {"value of a key", [](Thing& t) { t.vlanOfVniIs(1, 11); }},
      {"records",
       [](Thing& t) {
         t.recIs(Rec{1, "x"});
       }},
      {"entities", [](Thing& t) { t.memberIs(1); }},
      {"a member's contents", [](Thing& t) { t.member(1)->weightIs(2); }},
      {"ordered entities", [](Thing& t) { t.orderedIs(1); }},
      {"an ordered member's contents", [](Thing& t) { t.ordered(1)->weightIs(3); }},
  };
  for (auto& [what, change] : changes) {
    change(*a);
    EXPECT_FALSE(*a == *b) << what;
    change(*b);
    EXPECT_TRUE(*a == *b) << what;
  }
}

TEST(Dir, EntityNew) {
  auto dir = Brix::newNode<Vok::Dir>("root");
  std::vector<Brix::String> names;
  TestSupport::PublicationRecorder log(*dir, [&](auto const& p) {
    EXPECT_EQ(p.field, Vok::Dir::entityField);
    names.push_back(*static_cast<Brix::String const*>(p.key));
  });
  auto thing = dir->entityNew<Thing>("thing");
  EXPECT_EQ(dir->entityNew<Member>("member", 9)->key(), 9);
  EXPECT_EQ(dir->entityNew<Sample::Named>("named")->name, Brix::String("named"));
  EXPECT_EQ(dir->entity("thing"), thing);
  EXPECT_EQ(dir->entityAs<Member>("thing"), nullptr);
  // A type made from its name alone refuses arguments, and the directory is left as it was.
  EXPECT_THROW(dir->entityNew<Sample::Named>("other", Brix::String("x")), Vok::NewEntityArgsException);
  EXPECT_EQ(dir->entityCount(), 3u);
  EXPECT_EQ(dir->entityDel("thing"), thing);
  EXPECT_EQ(dir->entityDel("thing"), nullptr);
  EXPECT_EQ(names, (std::vector<Brix::String>{"thing", "member", "named", "thing"}));
}

}  // namespace
