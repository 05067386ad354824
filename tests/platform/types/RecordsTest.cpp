// The number types' ranges; every field of a pair or record takes part in ==, isEq and the hash;
// the defaults that are not zero; the text forms no entity dump shows (EntityJsonTest checks the
// others).
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "platform/types/ValueChecks.h"
#include "runtime/Exceptions.h"
#include "types/Arp.h"
#include "types/Bfd.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/L3.h"
#include "types/Mlag.h"
#include "types/MlagP2p.h"
#include "types/Shoal.h"
#include "types/Swix.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace {

using Bridging::ExtendedVlanId;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::IpAddr;
using Lanx::IpGenAddr;
using ValueChecks::expectEachChangeCounts;
using ValueChecks::expectEveryFieldCounts;
using ValueChecks::expectThrowsText;
using ValueChecks::hashOf;
using ValueChecks::text;

IpAddr const vtep = IpAddr::parse("10.0.0.1");
IpAddr const vtep2(10, 0, 0, 2);
EthAddr const mac = EthAddr::parse("00:1c:73:00:00:01");

TEST(Records, EveryFieldCounts) {
  VxlanController::BfdPeerStatusV2 bfd("Vxlan1", vtep, 1, 2);
  expectEachChangeCounts(
      bfd, [](auto& v) { v.labelIs("Vxlan1-mlag"); }, [](auto& v) { v.ipIs(vtep2); }, [](auto& v) { v.statusIs(3); },
      [](auto& v) { v.remoteStatusIs(3); });
  VxlanController::MacVtepV2 macVtep(mac, vtep, 7, 100);
  expectEachChangeCounts(
      macVtep, [](auto& v) { v.macAddrIs(EthAddr(0, 0, 2)); }, [](auto& v) { v.vtepIpIs(vtep2); },
      [](auto& v) { v.seqNumIs(8); }, [](auto& v) { v.preferenceIs(1); });
  Arp::ArpEntry arp(vtep, mac, 2);
  expectEachChangeCounts(
      arp, [](auto& v) { v.ipAddrIs(vtep2); }, [](auto& v) { v.ethAddrIs(EthAddr()); }, [](auto& v) { v.kindIs(1); });

  Arp::InputConfigKey key(IntfId("Vlan10"), IpGenAddr(vtep));
  expectEveryFieldCounts(key, Arp::InputConfigKey(IntfId("Vlan11"), IpGenAddr(vtep)),
                         Arp::InputConfigKey(IntfId("Vlan10"), IpGenAddr(vtep2)));
  Arp::InputConfigEntry input(key, mac, 1, 0);
  expectEachChangeCounts(
      input, [](auto& v) { v.keyIs(Arp::InputConfigKey()); }, [](auto& v) { v.ethAddrIs(EthAddr()); },
      [](auto& v) { v.kindIs(0); }, [](auto& v) { v.stateCodeIs(Arp::InputConfigEntry::stateCodeNotPublished); },
      [](auto& v) { v.metricIs(0); }, [](auto& v) { v.generationIs(1); });

  Mlag::VlanIpSource src(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::dynamic);
  expectEveryFieldCounts(src,
                         Mlag::VlanIpSource(Bridging::VlanIdOrNone(11), IpGenAddr(vtep), Arp::ArpSourceId::dynamic),
                         Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(vtep2), Arp::ArpSourceId::dynamic),
                         Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::evpn));
  expectEveryFieldCounts(Mlag::VtiVtep(Vxlan1, IpGenAddr(vtep)), Mlag::VtiVtep(IntfId("Vxlan2"), IpGenAddr(vtep)),
                         Mlag::VtiVtep(Vxlan1, IpGenAddr(vtep2)));

  expectEveryFieldCounts(Mlag::HostEntryKey(10, mac), Mlag::HostEntryKey(11, mac), Mlag::HostEntryKey(10, EthAddr()));
  Mlag::HostEntry host("Vxlan1:10.0.0.1", 12.5, 3, Mlag::HostEntryKey(10, mac), 5, 1);
  expectEachChangeCounts(
      host, [](auto& v) { v.intfIs("Vxlan1:10.0.0.2"); }, [](auto& v) { v.lastMoveTimeIs(12.25); },
      [](auto& v) { v.movesIs(4); }, [](auto& v) { v.keyIs(Mlag::HostEntryKey(10, EthAddr())); },
      [](auto& v) { v.entryTypeIs(6); }, [](auto& v) { v.hostEntryFlagIs(0); });
  expectEveryFieldCounts(MlagP2p::HostEntryKey(10, mac), MlagP2p::HostEntryKey(11, mac),
                         MlagP2p::HostEntryKey(10, EthAddr()));
  MlagP2p::HostEntry sent("Vxlan1:10.0.0.1:100", 12.5, 3, MlagP2p::HostEntryKey(10, mac), 5);
  expectEachChangeCounts(
      sent, [](auto& v) { v.intfIs("Vxlan1:10.0.0.1"); }, [](auto& v) { v.lastMoveTimeIs(13.0); },
      [](auto& v) { v.movesIs(0); }, [](auto& v) { v.keyIs(MlagP2p::HostEntryKey(1, mac)); },
      [](auto& v) { v.entryTypeIs(0); });

  using Shoal::Bridging::ShoalFdbStatus;
  using Shoal::Vxlan::LearnedHost;
  static_assert(std::is_trivially_copyable_v<ShoalFdbStatus> && std::is_trivially_copyable_v<LearnedHost>,
                "Shoal table rows");
  ShoalFdbStatus fdb(Bridging::HostKey(Bridging::VlanId(10), mac), Vxlan1, 100.5, 2,
                     Bridging::EntryType::learnedRemoteMac, 0);
  expectEachChangeCounts(
      fdb, [](auto& v) { v.keyIs(Bridging::HostKey(Bridging::VlanId(11), mac)); },
      [](auto& v) { v.intfIs(IntfId("Vxlan2")); }, [](auto& v) { v.lastMoveTimeIs(100.25); },
      [](auto& v) { v.movesIs(3); }, [](auto& v) { v.entryTypeIs(Bridging::EntryType::receivedRemoteMac); },
      [](auto& v) { v.flagsIs(1); });
  LearnedHost learned(100.5, Vxlan::MacVlanPair(mac, Bridging::VlanId(10)), IpGenAddr(vtep), 0);
  expectEachChangeCounts(
      learned, [](auto& v) { v.lastMoveTimeIs(1.0); },
      [](auto& v) { v.keyIs(Vxlan::MacVlanPair(mac, Bridging::VlanId(1))); },
      [](auto& v) { v.vtepIpIs(IpGenAddr::parse("2001:db8::1")); }, [](auto& v) { v.flagsIs(2); });
}

// The handlers read a record equal to its default as absent: a default that moved would make
// rows appear or vanish.
TEST(Records, DefaultsThatAreNotZero) {
  EXPECT_TRUE(VxlanController::BfdPeerStatusV2().isEq(VxlanController::BfdPeerStatusV2("", IpAddr(), 3, 3)));
  EXPECT_TRUE(VxlanController::MacVtepV2().isEq(VxlanController::MacVtepV2(EthAddr(), IpAddr(), 0, 16)));
  EXPECT_EQ(Arp::ArpEntry().kind(), 1);
  EXPECT_EQ(Shoal::Vxlan::LearnedHost().key().vlanId(), Bridging::VlanId(1));
  EXPECT_EQ(Shoal::Bridging::ShoalFdbStatus().entryType(), Bridging::EntryType::unknownEntry);
  EXPECT_EQ(L2Rib::Dest().destType(), L2Rib::DestType::none);
}

TEST(Records, OrderAndRawValues) {
  // Bfd::Peer: every field is part of the key and of the order, the first field deciding first.
  auto peer = [](char const* vrf, IntfId intf, std::uint32_t id, std::uint8_t type, IpAddr ip, std::uint8_t src) {
    return Bfd::Peer(vrf, intf, id, type, IpGenAddr(ip), IpGenAddr(IpAddr(10, 0, 0, src)));
  };
  Bfd::Peer base = peer("default", Vxlan1, 9, Bfd::Peer::typeVxlanTunnel, vtep, 100);
  Bfd::Peer variants[] = {peer("red", Vxlan1, 9, 3, vtep, 100),      peer("default", IntfId("Vxlan2"), 9, 3, vtep, 100),
                          peer("default", Vxlan1, 10, 3, vtep, 100), peer("default", Vxlan1, 9, 1, vtep, 100),
                          peer("default", Vxlan1, 9, 3, vtep2, 100), peer("default", Vxlan1, 9, 3, vtep, 101)};
  expectEveryFieldCounts(base, variants[0], variants[1], variants[2], variants[3], variants[4], variants[5]);
  for (auto const& v : variants) EXPECT_TRUE((base < v) != (v < base)) << v;
  EXPECT_LT(base, variants[0]);
  EXPECT_LT(Mlag::VtiVtep(Vxlan1, IpGenAddr(IpAddr(10, 0, 0, 9))), Mlag::VtiVtep(IntfId("Vxlan2"), IpGenAddr(vtep)));

  // A source byte without a name keeps its value and prints as its number.
  Arp::ArpSource odd(std::uint8_t{57});
  EXPECT_EQ(Arp::ArpSource(std::uint8_t{100}).id(), Arp::ArpSourceId::peer);
  EXPECT_EQ(odd.value(), 57);
  EXPECT_EQ(text(odd), "57");
  EXPECT_EQ(text(static_cast<L2Rib::FloodSetType>(9)), "9");
  EXPECT_NE(hashOf(Arp::ArpSource(std::uint8_t{100})), hashOf(odd));
  EXPECT_EQ(
      Mlag::VlanIpSource(Bridging::VlanIdOrNone(), IpGenAddr::parse("2001:db8::1"), Arp::ArpSource(std::uint8_t{100}))
          .toStrep()
          .view(),
      "vlanId: 0, ipAddr: 2001:db8::1, arpSource: peer");
}

TEST(L2RibDest, EachKindReadWithItsAccessorAndPrinted) {
  using namespace L2Rib;
  DestId id(5);
  Dest intf(id, DestDataIntf(IntfId("Ethernet1")));
  Dest mpls(id, DestDataMpls(16, IpGenAddr(vtep)));
  Dest tunnel(id, DestDataTunnel(77));
  EXPECT_THROW((void)intf.vxlan(), std::bad_variant_access);
  EXPECT_THROW((void)Dest().intf(), std::bad_variant_access);
  EXPECT_EQ(text(intf), "intf(id=5, intf=Ethernet1)");
  EXPECT_EQ(text(mpls), "mpls(id=5, label=16, nexthop=10.0.0.1)");
  EXPECT_EQ(text(tunnel), "tunnel(id=5, tunnelId=77)");
  EXPECT_EQ(text(Dest()), "none(id=0)");
  EXPECT_EQ(text(canonicalVxlanDest(IpGenAddr(vtep))), "vxlan(id=ffffffffffffffff, intf=, vni=0, vtepAddr=10.0.0.1)");

  // Empty data of different kinds under one id are still different destinations, and any field
  // that differs from a VTEP's canonical form makes another destination.
  expectEveryFieldCounts(Dest(id, DestDataIntf()), Dest(id, DestDataVxlan()), Dest(id, DestDataMpls()),
                         Dest(id, DestDataTunnel()), Dest(DestId(6), DestDataIntf()));
  expectEveryFieldCounts(mpls, Dest(id, DestDataMpls(17, IpGenAddr(vtep))), Dest(id, DestDataMpls(16, vtep2)));
  Dest d = canonicalVxlanDest(IpGenAddr(vtep));
  EXPECT_EQ(d, Dest(DestId::allOnes(), DestDataVxlan(IntfId(""), 0, IpGenAddr(vtep))));
  EXPECT_EQ(DestId::allOnes().value(), ~std::uint64_t{0});
  expectEveryFieldCounts(d, canonicalVxlanDest(IpGenAddr(vtep2)),
                         Dest(DestId(0), DestDataVxlan(IntfId(), 0, IpGenAddr(vtep))),
                         Dest(DestId::allOnes(), DestDataVxlan(Vxlan1, 0, IpGenAddr(vtep))),
                         Dest(DestId::allOnes(), DestDataVxlan(IntfId(), 1, IpGenAddr(vtep))),
                         canonicalVxlanDest(IpGenAddr::parse("2001:db8::1")));
}

// Equal values made apart hash alike, so that a hashed collection finds one by the other.
TEST(RecordKeys, EqualValuesMadeApartHashAlike) {
  EXPECT_EQ(hashOf(L2Rib::canonicalVxlanDest(IpGenAddr::parse("2001:0db8::0001"))),
            hashOf(L2Rib::canonicalVxlanDest(IpGenAddr::parse("2001:db8::1"))));
  EXPECT_EQ(
      hashOf(Mlag::VlanIpSource(VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::dynamic)),
      hashOf(Mlag::VlanIpSource(VlanIdOrNone(10), IpGenAddr::parse("10.0.0.1"), Arp::ArpSource(std::uint8_t{1}))));
  EXPECT_EQ(hashOf(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), Vxlan1)),
            hashOf(Vxlan::VniVtiPair(IntfId("Vxlan1"), Vxlan::VniExt(10010))));
}

constexpr char const* vlanIdText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
constexpr char const* vlanIdOrNoneText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
constexpr char const* vniExtText = "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed";

// Each number type's ends, and the values and conversions its check refuses; a wide value must
// not wrap into the range.
TEST(VlanAndVniNumbers, EndsAreKeptAndEverythingOutsideRaisesWithItsText) {
  EXPECT_EQ(VlanId().value() + VlanId(ExtendedVlanId(4094)).value() + VlanIdOrNone(4094).value(), 1 + 4094 + 4094);
  EXPECT_TRUE(VlanIdOrNone(0).isNone());
  EXPECT_EQ(ExtendedVlanId(4094).vlanIdOrNone(), VlanIdOrNone(4094));
  EXPECT_EQ(Vxlan::VniExt(0).value(), 0u) << "VNI 0 is a valid VNI";
  EXPECT_EQ(Vxlan::VniExt(Vxlan::VniExtOrNone(0xfffffffeu)).value(), 0xfffffffeu);
  EXPECT_FALSE(Vxlan::VniExtOrNone(0).isNone());
  EXPECT_TRUE(Vxlan::VniExtOrNone().isNone());

  struct Case {
    std::function<void()> make;
    char const* text;
  };
  Case const cases[] = {
      {[] { (void)VlanId(0); }, vlanIdText},
      {[] { (void)VlanId(4095); }, vlanIdText},
      {[] { (void)VlanId(-1); }, vlanIdText},
      {[] { (void)VlanId(std::uint32_t{65536 + 10}); }, vlanIdText},
      {[] { (void)VlanId(VlanIdOrNone()); }, vlanIdText},
      {[] { (void)VlanId(ExtendedVlanId(4095)); }, vlanIdText},
      {[] { (void)VlanIdOrNone(4095); }, vlanIdOrNoneText},
      {[] { (void)VlanIdOrNone(-1); }, vlanIdOrNoneText},
      {[] { (void)VlanIdOrNone(std::uint32_t{70000}); }, vlanIdOrNoneText},
      {[] { (void)ExtendedVlanId(4095).vlanIdOrNone(); }, vlanIdOrNoneText},
      {[] { (void)Vxlan::VniExt(0xffffffffu); }, vniExtText},
      {[] { (void)Vxlan::VniExt(-1); }, vniExtText},
      {[] { (void)Vxlan::VniExt(std::uint64_t{1} << 32); }, vniExtText},
      {[] { (void)Vxlan::VniExt(Vxlan::VniExtOrNone()); }, vniExtText},
      {[] { (void)Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone()); }, vniExtText},
      {[] { (void)Vxlan::VniVtiPair(Vxlan::VniExtOrNone(), Vxlan1); }, vniExtText},
  };
  for (auto const& c : cases) expectThrowsText<Brix::RangeException>(c.make, c.text);
  EXPECT_NE(hashOf(Vxlan::VniExtOrNone(0)), hashOf(Vxlan::VniExtOrNone()));
  EXPECT_EQ(text(ExtendedVlanId(5000)) + text(Vxlan::VniExtOrNone()), "5000none");
}

TEST(VxlanPairs, EveryFieldCountsAndTheOrder) {
  Vxlan::MacVlanPair mv(Lanx::EthAddr(0, 0, 1), VlanId(10));
  expectEveryFieldCounts(mv, Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(10)),
                         Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(11)));
  // Ordered by MAC first, then VLAN.
  EXPECT_LT(mv, Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(1)));
  EXPECT_LT(mv, Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(11)));
  // The VLAN of a VlanIpPair is a plain number until checked.
  EXPECT_EQ(Vxlan::VlanIpPair(5000, Lanx::IpGenAddr()).vlanId(), 5000);
  expectEveryFieldCounts(Vxlan::VlanIpPair(10, IpGenAddr(vtep)), Vxlan::VlanIpPair(11, IpGenAddr(vtep)),
                         Vxlan::VlanIpPair(10, IpGenAddr(vtep2)), Vxlan::VlanIpPair(10, IpGenAddr::parse("a00:1::")));
  expectEveryFieldCounts(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(0), IntfId("Vxlan2")),
                         Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExt(0)),
                         Vxlan::VniVtiPair(IntfId("Vxlan2"), Vxlan::VniExt(1)));
  Vxlan::VniSourcePair vs(Vxlan1, "static", Vxlan::VniExtOrNone(10010), 0);
  expectEachChangeCounts(
      vs, [](auto& v) { v.intfIdIs(Lanx::IntfId("Vxlan2")); }, [](auto& v) { v.sourceIs("evpn"); },
      [](auto& v) { v.vniIs(Vxlan::VniExtOrNone(10011)); }, [](auto& v) { v.flagsIs(1); });
  EXPECT_EQ(text(vs), "(10010, Vxlan1, static)") << "no flags when there are none";
  expectEveryFieldCounts(Bridging::HostKey(VlanId(10), mac), Bridging::HostKey(VlanId(11), mac),
                         Bridging::HostKey(VlanId(10), Lanx::EthAddr(0, 0, 2)));
}

TEST(VxlanEnumerations, UnnamedValuesPrintAsTheirNumbers) {
  // The four sources and "default" make five distinct shareable source names.
  std::set<std::string_view> names{"default", "unknown"};
  for (int v : {1, 8, 16, 32}) names.insert(Vxlan::stringValue(static_cast<Vxlan::VniSource>(v)));
  EXPECT_EQ(names.size(), 6u);
  EXPECT_EQ(Vxlan::stringValue(static_cast<Vxlan::VniSource>(2)), "unknown");
  EXPECT_EQ(Bridging::stringValue(static_cast<Bridging::EntryType>(200)), "unknown");
  EXPECT_EQ(text(static_cast<Vxlan::VniSource>(2)) + text(static_cast<Bridging::EntryType>(200)), "2200");
}

TEST(BoundedStrings, FStringHoldsUpTo129BytesAndAVrfNameSortsDefaultFirst) {
  std::string b129(129, 'x');
  EXPECT_EQ(Swix::FString(b129).stringValue().str(), b129);
  expectThrowsText<Vok::IndexRangeException>([] { (void)Swix::FString(std::string(130, 'x')); },
                                             "index 129 out of range for size 130");
  EXPECT_TRUE(Swix::FString().isEq(Swix::FString("")));
  EXPECT_FALSE(Swix::FString("default").isEq(Swix::FString("defaul")) ||
               Swix::FString("default").isEq(Swix::FString("default ")));
  EXPECT_EQ(hashOf(Swix::FString("abc")), hashOf(Swix::FString(Brix::String("abc"))));
  static_assert(std::is_trivially_copyable_v<Swix::FString>, "an FString lives in shared memory");

  std::set<L3::VrfName> vrfs;
  for (char const* v : {"b", "Default", "a", "default", "defaults", "MGMT", "", "a"}) vrfs.emplace(v);
  std::vector<std::string_view> order;
  order.reserve(vrfs.size());
  for (auto const& v : vrfs) order.push_back(v.view());
  EXPECT_EQ(order, (std::vector<std::string_view>{"default", "", "Default", "MGMT", "a", "b", "defaults"}));
  EXPECT_THROW((void)L3::VrfName(std::string(101, 'v')), Brix::RangeException) << "a bounded string of 100";
  EXPECT_EQ(hashOf(L3::VrfName("red")), hashOf(L3::VrfName(Brix::String("red"))));
  EXPECT_EQ(hashOf(L3::VrfName()), hashOf(L3::VrfName(std::string())));  // the hash kept with the name agrees
  EXPECT_NE(hashOf(L3::VrfName("red")), hashOf(L3::VrfName("blue")));
}

TEST(VlanConfigFlat, DefaultsAndEveryFieldCounts) {
  using R = Bridging::Flat::VlanConfigFlat;
  static_assert(std::is_trivially_copyable_v<R>, "a Shoal table row");
  R def;
  EXPECT_EQ(def.key(), VlanId(1));
  EXPECT_EQ(def.priority(), 256);
  EXPECT_TRUE(def.isEq(R(VlanId(1), Swix::FString("default"))));

  R base(VlanId(10), Swix::FString("static"));
  expectEachChangeCounts(
      base, [](R& v) { v.vlanIdIs(VlanId(11)); }, [](R& v) { v.stateIs(1); },
      [](R& v) { v.nameIs(Swix::FString("n")); }, [](R& v) { v.priorityIs(1); }, [](R& v) { v.timestampIs(1); },
      [](R& v) { v.flagsIs(1); }, [](R& v) { v.ownerIs(1); }, [](R& v) { v.configSourceIs(Swix::FString("evpn")); },
      [](R& v) { v.reserved1Is(1); }, [](R& v) { v.reserved2Is(1); });
}

}  // namespace
