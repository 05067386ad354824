// Every field of a record takes part in ==, isEq and the hash; the defaults that are not zero;
// the text forms no entity dump shows (EntityJsonTest checks the others).
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <variant>

#include "platform/types/ValueChecks.h"
#include "runtime/HashMap2018.h"
#include "types/Arp.h"
#include "types/Bfd.h"
#include "types/L2Rib.h"
#include "types/Mlag.h"
#include "types/MlagP2p.h"
#include "types/Shoal.h"
#include "types/VxlanController.h"

namespace {

using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::IpAddr;
using Lanx::IpGenAddr;
using ValueChecks::expectEachChangeCounts;
using ValueChecks::expectEveryFieldCounts;
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

TEST(Records, DefaultsThatAreNotZero) {
  EXPECT_TRUE(VxlanController::BfdPeerStatusV2().isEq(VxlanController::BfdPeerStatusV2("", IpAddr(), 3, 3)));
  EXPECT_TRUE(VxlanController::MacVtepV2().isEq(VxlanController::MacVtepV2(EthAddr(), IpAddr(), 0, 16)));
  EXPECT_EQ(Arp::ArpEntry().kind(), 1);
  EXPECT_EQ(Arp::InputConfigEntry().metric(), 0xffffu);
  EXPECT_EQ(Shoal::Vxlan::LearnedHost().key().vlanId(), Bridging::VlanId(1));
  EXPECT_EQ(Shoal::Bridging::ShoalFdbStatus().entryType(), Bridging::EntryType::unknownEntry);
  EXPECT_EQ(L2Rib::Dest().destType(), L2Rib::DestType::none);
}

TEST(Records, OrderAndRawValues) {
  // Bfd::Peer: every field is part of the key and of the order, the first field deciding first.
  Bfd::Peer base("default", Vxlan1, 9, Bfd::Peer::typeVxlanTunnel, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100)));
  Bfd::Peer variants[] = {
      Bfd::Peer("red", Vxlan1, 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", IntfId("Vxlan2"), 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 10, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 1, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 3, IpGenAddr(vtep2), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 101))),
  };
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

TEST(RecordKeys, EqualValuesMadeApartFindEachOtherInAHashMap) {
  Vok::HashMap2018<L2Rib::Dest, bool> dests;
  dests.newMemberG(L2Rib::canonicalVxlanDest(IpGenAddr(vtep)), true);
  dests.newMemberG(L2Rib::canonicalVxlanDest(IpGenAddr::parse("2001:db8::1")), false);
  ASSERT_NE(dests.lookupNodeG(L2Rib::canonicalVxlanDest(IpGenAddr::parse("10.0.0.1"))), nullptr);
  EXPECT_FALSE(dests.lookupNodeG(L2Rib::canonicalVxlanDest(IpGenAddr::parse("2001:0db8::0001")))->value);

  Vok::HashMap2018<Mlag::VlanIpSource, EthAddr> arp;
  arp.newMemberG(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::dynamic), mac);
  EXPECT_EQ(arp.lookupNodeG(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr::parse("10.0.0.1"),
                                               Arp::ArpSource(std::uint8_t{1})))
                ->value,
            mac);

  Vok::HashMap2018<Vxlan::VniVtiPair, Bridging::ExtendedVlanId> vniVti;
  vniVti.newMemberG(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), Vxlan1), Bridging::ExtendedVlanId(10));
  EXPECT_EQ(vniVti.lookupNodeG(Vxlan::VniVtiPair(IntfId("Vxlan1"), Vxlan::VniExt(10010)))->value.value(), 10);
}

}  // namespace
