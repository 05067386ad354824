// The wire codec: random changes of each exchanged entity carried to a peer's copy, a
// resynchronisation by difference, malformed changes refused whole, and the schema fingerprint.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "Wire/EntityCodec.h"
#include "entities/EntityJson.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/BumStatus.h"

namespace Wire = MlagVxlan::Wire;

namespace {

using Bytes = std::vector<std::byte>;

// Random values from small pools, so that keys collide and deletes find something.
template <class T>
T any() {
  auto small = [] { return *rc::gen::inRange<std::uint32_t>(0, 6); };
  auto pick = [](auto const& pool) { return pool[*rc::gen::inRange<std::size_t>(0, pool.size())]; };
  if constexpr (std::is_same_v<T, bool>) {
    return *rc::gen::arbitrary<bool>();
  } else if constexpr (std::is_enum_v<T> || std::is_unsigned_v<T>) {
    return static_cast<T>(small());
  } else if constexpr (std::is_same_v<T, double>) {
    return small() * 0.5;
  } else if constexpr (std::is_same_v<T, Bridging::VlanId>) {
    return *rc::gen::element(T(1), T(2), T(4094));
  } else if constexpr (requires(std::uint32_t n) { T(n); }) {
    return T(small());  // VlanIdOrNone, ExtendedVlanId, VNIs, DestId
  } else if constexpr (std::is_same_v<T, Brix::String> || std::is_same_v<T, L3::VrfName>) {
    return T(pick(std::array<char const*, 3>{"", "default", "red"}));
  } else if constexpr (std::is_same_v<T, Lanx::IntfId>) {
    return T(pick(std::array<char const*, 4>{"", "Vxlan1", "Ethernet3/1", "odd-intf"}));
  } else if constexpr (std::is_same_v<T, Lanx::EthAddr>) {
    return T(0x0200, 0, static_cast<std::uint16_t>(small()));
  } else if constexpr (std::is_same_v<T, Lanx::IpAddr>) {
    return T(10, 0, 0, static_cast<std::uint8_t>(small()));
  } else if constexpr (std::is_same_v<T, Lanx::Ip6Addr>) {
    return T(Lanx::Ip6Addr::Bytes{0x20, 0x01, 15, static_cast<std::uint8_t>(small())});
  } else if constexpr (std::is_same_v<T, Lanx::IpGenAddr>) {
    return *rc::gen::element(T(any<Lanx::IpAddr>()), T(any<Lanx::Ip6Addr>()), T());
  } else if constexpr (std::is_same_v<T, L2Rib::Dest>) {
    switch (small() % 5) {
      case 0:
        return L2Rib::canonicalVxlanDest(any<Lanx::IpGenAddr>());
      case 1:
        return T(any<L2Rib::DestId>(), any<L2Rib::DestDataIntf>());
      case 2:
        return T(any<L2Rib::DestId>(), any<L2Rib::DestDataMpls>());
      case 3:
        return T(any<L2Rib::DestId>(), any<L2Rib::DestDataTunnel>());
      default:
        return T(any<L2Rib::DestId>());
    }
  } else {
    T v{};
    std::apply([](auto&... f) { ((f = any<std::remove_cvref_t<decltype(f)>>()), ...); }, v.vokFields());
    return v;
  }
}

// One random change anywhere in `e`, its members included, through the attributes' mutators.
template <class E>
void mutate(E& e) {
  auto field = *rc::gen::inRange<Brix::FieldId>(1, E::vokFieldCount);
  e.vokVisitField(field, [&](auto, Brix::FieldId f, auto& attr) {
    using A = std::decay_t<decltype(attr)>;
    auto keys = [&] {
      if constexpr (requires { typename A::KeyType; })
        return Vok::Attr::keysOf(attr);
      else
        return std::vector<int>{};
    }();
    bool onExisting = !keys.empty() && *rc::gen::arbitrary<bool>();
    auto existing = [&] { return keys[*rc::gen::inRange<std::size_t>(0, keys.size())]; };
    if constexpr (Vok::Attr::ScalarAttr<A>) {
      attr.set(e, f, any<typename A::ValueType>());
    } else if constexpr (Vok::Attr::ValuesAttr<A>) {
      if (onExisting && *rc::gen::arbitrary<bool>()) {
        attr.del(e, f, existing());
      } else if constexpr (requires { attr.set(e, f, any<typename A::ValueType>()); }) {
        attr.set(e, f, any<typename A::ValueType>());  // a record with its key inside
      } else {
        attr.set(e, f, any<typename A::KeyType>(), any<typename A::ValueType>());
      }
    } else if constexpr (Vok::Attr::MembersAttr<A>) {
      if (!onExisting) {
        attr.set(e, f, any<typename A::KeyType>());
      } else if (*rc::gen::inRange(0, 4) == 0) {
        attr.del(e, f, existing());
      } else {
        mutate(*attr.get(existing()));
      }
    }
  });
}

template <class E>
void roundTrip() {
  auto src = Brix::newNode<E>();
  auto dst = Brix::newNode<E>();
  Wire::Receiver<E> rx(dst, 7);
  Wire::Sender<E> tx(src, 7, [&](std::span<std::byte const> c) { rx.apply(c); });
  auto steps = *rc::gen::inRange(1, 80);
  for (int i = 0; i < steps; ++i) mutate(*src);
  RC_ASSERT(Vok::toJson(*dst).dump() == Vok::toJson(*src).dump());
  RC_ASSERT(*dst == *src);

  // A sender made on a filled source brings a fresh peer to the same state by its snapshot.
  auto fresh = Brix::newNode<E>();
  Wire::Receiver<E> rx2(fresh, 7);
  Wire::Sender<E> tx2(src, 7, [&](std::span<std::byte const> c) { rx2.apply(c); });
  tx2.snapshot();
  RC_ASSERT(*fresh == *src);
}

RC_GTEST_PROP(Wire, VxlanStatusRoundTrips, ()) { roundTrip<Mlag::VxlanStatus>(); }
RC_GTEST_PROP(Wire, HostTableRoundTrips, ()) { roundTrip<MlagP2p::HostTable>(); }
RC_GTEST_PROP(Wire, ActiveArpIpTableRoundTrips, ()) { roundTrip<Vxlan::ActiveArpIpTable>(); }
RC_GTEST_PROP(Wire, SourceDirEntryRoundTrips, ()) { roundTrip<L2Rib::SourceDirEntry>(); }
RC_GTEST_PROP(Wire, BumStatusRoundTrips, ()) { roundTrip<Vxlan::BumStatus>(); }

// Counts the notifications of one publisher, by field.
struct Counter {
  explicit Counter(Brix::Ptr<Vok::Entity> const& e) : sub(this) { sub.subscribeTo(e->publisher(), &count); }
  static void count(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId f, void const*, void const*) noexcept {
    ++s->ownerAs<Counter>()->byField[f];
  }
  std::map<Brix::FieldId, int> byField;
  Brix::Subscriber sub;
};

TEST(Wire, ResyncDeletesWhatTheSnapshotLacksAndPublishesOnlyChanges) {
  using S = Mlag::VxlanStatus;
  auto src = Brix::newNode<S>();
  auto dst = Brix::newNode<S>();
  for (auto [vni, vlan] : {std::pair{1, 10}, {2, 20}, {3, 30}}) {
    src->vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni), Bridging::VlanIdOrNone(vlan));
  }
  src->sdeFloodListCapableIs(true);
  src->arpStatusIs(L3::VrfName("red"))->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 0, 0, 1), Lanx::EthAddr(2, 0, 1)));

  dst->vniToDynVlanMapIs(Vxlan::VniExtOrNone(1), Bridging::VlanIdOrNone(10));  // as the source
  dst->vniToDynVlanMapIs(Vxlan::VniExtOrNone(2), Bridging::VlanIdOrNone(99));  // stale
  dst->vniToDynVlanMapIs(Vxlan::VniExtOrNone(4), Bridging::VlanIdOrNone(40));  // extra
  auto red = dst->arpStatusIs(L3::VrfName("red"));
  red->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 0, 0, 1), Lanx::EthAddr(2, 0, 1)));
  red->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 0, 0, 2), Lanx::EthAddr(2, 0, 2)));  // extra
  dst->arpStatusIs(L3::VrfName("blue"));                                              // extra member

  Counter top(dst), member(red);
  Wire::Receiver<S> rx(dst, 1);
  Wire::Sender<S> tx(src, 1, [&](std::span<std::byte const> c) { rx.apply(c); });
  tx.snapshot();

  EXPECT_TRUE(*dst == *src) << Vok::toJson(*dst).dump();
  EXPECT_EQ(dst->arpStatus(L3::VrfName("red")), red) << "a member named by the snapshot is kept, not replaced";
  // VNI 2 rewritten, 3 added, 4 deleted; the flag; the blue member deleted; one ARP entry deleted.
  EXPECT_EQ(top.byField, (std::map<Brix::FieldId, int>{
                             {S::vniToDynVlanMapField, 3}, {S::sdeFloodListCapableField, 1}, {S::arpStatusField, 1}}));
  EXPECT_EQ(member.byField, (std::map<Brix::FieldId, int>{{Mlag::VxlanArpStatus::arpEntryField, 1}}));
}

// A change as the codec lays it out, for the malformed table.
Bytes change(std::uint8_t channel, std::vector<std::uint8_t> const& rest) {
  Bytes b{std::byte{channel}};
  for (auto x : rest) b.push_back(std::byte{x});
  return b;
}

TEST(Wire, MalformedChangesRaiseAndLeaveTheDestinationAsItWas) {
  using S = Mlag::VxlanStatus;
  auto src = Brix::newNode<S>();
  src->sharedDynVlanIs(Bridging::VlanId(5), true);
  src->arpStatusIs(L3::VrfName("red"))->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 0, 0, 1), Lanx::EthAddr(2, 0, 1)));
  src->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone(7)), Bridging::ExtendedVlanId(4095));
  src->loopDetectionCapableIs(true);
  std::vector<Bytes> valid;
  Wire::Sender<S> tx(src, 1, [&](std::span<std::byte const> c) { valid.emplace_back(c.begin(), c.end()); });
  tx.snapshot();

  auto dst = Brix::newNode<S>();
  Wire::Receiver<S> rx(dst, 1);
  for (auto const& c : valid) rx.apply(c);
  ASSERT_TRUE(*dst == *src);

  auto const red = [] {  // the path to member "red" of arpStatus (field 4)
    return std::vector<std::uint8_t>{1, S::arpStatusField, 3, 0, 0, 0, 'r', 'e', 'd'};
  }();
  constexpr std::uint8_t arpEntry = Mlag::VxlanArpStatus::arpEntryField;
  auto inRed = [&](std::vector<std::uint8_t> tail) {
    auto v = red;
    v.insert(v.end(), tail.begin(), tail.end());
    return v;
  };
  std::vector<std::pair<char const*, Bytes>> bad = {
      {"empty", {}},
      {"unknown channel", change(2, {0, S::loopDetectionCapableField, 0, 1})},
      {"unknown field", change(1, {0, 99, 0, 1})},
      {"unknown operation", change(1, {0, S::loopDetectionCapableField, 9, 1})},
      {"delete of a scalar", change(1, {0, S::loopDetectionCapableField, 1})},
      {"boolean of 2", change(1, {0, S::loopDetectionCapableField, 0, 2})},
      {"VLAN 0", change(1, {0, S::sharedDynVlanField, 0, 0, 0, 1})},
      {"VLAN 4095", change(1, {0, S::sharedDynVlanField, 1, 0xff, 0x0f})},
      {"VNI none in a VNI-VTI key",
       change(1, {0, S::vniVtiToDynVlanMapField, 1, 6, 0, 0, 0, 'V', 'x', 'l', 'a', 'n', '1', 0xff, 0xff, 0xff, 0xff})},
      {"VRF name of 101 bytes",
       [] {
         auto v = change(1, {0, S::arpStatusField, 0, 101, 0, 0, 0});
         v.resize(v.size() + 101, std::byte{'x'});
         return v;
       }()},
      {"trailing byte", change(1, {0, S::loopDetectionCapableField, 0, 0, 0})},
      {"path through a scalar", change(1, {1, S::loopDetectionCapableField, 0, 7, 0, 0})},
      {"path to an absent member",
       change(1, {1, S::arpStatusField, 4, 0, 0, 0, 'b', 'l', 'u', 'e', 1, 1, 10, 0, 0, 1})},
      {"record under another key", change(1, inRed({arpEntry, 0, 10, 0, 0, 1, 10, 0, 0, 2, 2, 0, 0, 0, 0, 9, 1}))},
      {"end without begin", change(1, {0, 0, 3})},
      {"mark on a field", change(1, {0, 1, 2})},
  };
  for (auto const& c : valid) {  // every proper prefix of every real change is truncated
    for (std::size_t n = 0; n < c.size(); ++n)
      bad.emplace_back("truncated", Bytes(c.begin(), c.begin() + static_cast<std::ptrdiff_t>(n)));
  }
  auto before = Vok::toJson(*dst).dump();
  for (auto const& [what, bytes] : bad) {
    EXPECT_THROW(rx.apply(bytes), Wire::DecodeError) << what;
    EXPECT_EQ(Vok::toJson(*dst).dump(), before) << what;
  }
  // The same table is accepted once corrected: a delete of the red entry at 10.0.0.1 applies.
  rx.apply(change(1, inRed({arpEntry, 1, 10, 0, 0, 1})));
  EXPECT_EQ(dst->arpStatus(L3::VrfName("red"))->arpEntryCount(), 0u);
}

#define SCHEMA_A(A) A(scalar, up, bool) A(values, vlans, Bridging::VlanId, bool)
#define SCHEMA_RENAMED(A) A(scalar, up, bool) A(values, vlanz, Bridging::VlanId, bool)
#define SCHEMA_SWAPPED(A) A(values, vlans, Bridging::VlanId, bool) A(scalar, up, bool)
#define SCHEMA_KIND(A) A(scalar, up, bool) A(entities, vlans, Bridging::VlanId, SchemaMember)
#define SCHEMA_MEMBER(A) A(key, vlan, Bridging::VlanId) A(scalar, up, bool)
#define SCHEMA_MEMBER2(A) A(key, vlan, Bridging::VlanId) A(scalar, down, bool)
#define SCHEMA_DEEP(A) A(scalar, up, bool) A(entities, vlans, Bridging::VlanId, SchemaMember2)
}  // namespace

// Outside the unnamed namespace, where an unused equality operator of an entity is no warning.
namespace WireSchema {

struct SchemaMember : Vok::Entity {
  VOK_ENTITY(SchemaMember, "Test::Member", SCHEMA_MEMBER)
  explicit SchemaMember(Bridging::VlanId v) : vlan_(v) {}
};
struct SchemaMember2 : Vok::Entity {
  VOK_ENTITY(SchemaMember2, "Test::Member", SCHEMA_MEMBER2)
  explicit SchemaMember2(Bridging::VlanId v) : vlan_(v) {}
};
struct SchemaA : Vok::Entity {
  VOK_ENTITY(SchemaA, "Test::Schema", SCHEMA_A)
};
struct SchemaSame : Vok::Entity {
  VOK_ENTITY(SchemaSame, "Test::Schema", SCHEMA_A)
};
struct SchemaOtherName : Vok::Entity {
  VOK_ENTITY(SchemaOtherName, "Test::Other", SCHEMA_A)
};
struct SchemaRenamed : Vok::Entity {
  VOK_ENTITY(SchemaRenamed, "Test::Schema", SCHEMA_RENAMED)
};
struct SchemaSwapped : Vok::Entity {
  VOK_ENTITY(SchemaSwapped, "Test::Schema", SCHEMA_SWAPPED)
};
struct SchemaKind : Vok::Entity {
  VOK_ENTITY(SchemaKind, "Test::Schema", SCHEMA_KIND)
};
struct SchemaDeep : Vok::Entity {
  VOK_ENTITY(SchemaDeep, "Test::Schema", SCHEMA_DEEP)
};

TEST(Wire, FingerprintFollowsTheDeclarations) {
  EXPECT_EQ(Wire::fingerprint<SchemaA>(), Wire::fingerprint<SchemaSame>()) << "the C++ class name does not count";
  std::array others{Wire::fingerprint<SchemaOtherName>(), Wire::fingerprint<SchemaRenamed>(),
                    Wire::fingerprint<SchemaSwapped>(), Wire::fingerprint<SchemaKind>(),
                    Wire::fingerprint<SchemaDeep>()};
  for (auto f : others) EXPECT_NE(f, Wire::fingerprint<SchemaA>());
  EXPECT_NE(Wire::fingerprint<SchemaKind>(), Wire::fingerprint<SchemaDeep>()) << "a member's declarations count";
  EXPECT_NE((Wire::fingerprint<SchemaA, SchemaKind>()), (Wire::fingerprint<SchemaKind, SchemaA>()));
}

}  // namespace WireSchema

// Interface names of no known kind are kept by the process for good: a peer cannot make it keep
// more than a bound of them, while names of the known kinds are never refused.
TEST(Wire, APeerCannotGrowTheInterfaceNameTableWithoutEnd) {
  auto decodeName = [](std::string const& name) {
    std::vector<std::byte> buf;
    MlagVxlan::Wire::Writer(buf).text(name);
    MlagVxlan::Wire::Reader r(buf);
    return MlagVxlan::Wire::decode<Lanx::IntfId>(r);
  };
  std::size_t taken = 0;
  std::string refusal;
  for (std::size_t i = 0; i < 5000 && refusal.empty(); ++i) {
    try {
      EXPECT_EQ(decodeName("peer-odd-" + std::to_string(i)).stringValue().view(), "peer-odd-" + std::to_string(i));
      ++taken;
    } catch (MlagVxlan::Wire::DecodeError const& e) {
      refusal = e.what();
    }
  }
  EXPECT_LE(taken, MlagVxlan::Wire::Codec<Lanx::IntfId>::internedLimit);
  EXPECT_EQ(refusal, "an interface name of no known kind beyond the process's 4096");
  EXPECT_EQ(decodeName("peer-odd-0").stringValue().view(), "peer-odd-0");  // known already
  EXPECT_EQ(decodeName("Ethernet7/1"), Lanx::IntfId("Ethernet7/1"));
}
