#include <gtest/gtest.h>

#include <sstream>
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
using ValueChecks::expectEveryFieldCounts;
using ValueChecks::hashOf;
using ValueChecks::with;

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

IpAddr const vtep = IpAddr::parse("10.0.0.1");
EthAddr const mac = EthAddr::parse("00:1c:73:00:00:01");

TEST(BfdPeerStatusV2, DefaultHasBothBytesThreeAndCountsAsAbsent) {
  using VxlanController::BfdPeerStatusV2;
  BfdPeerStatusV2 def;
  EXPECT_TRUE(def.label().empty());
  EXPECT_TRUE(def.ip().isZero());
  EXPECT_EQ(def.status(), 3);
  EXPECT_EQ(def.remoteStatus(), 3);
  EXPECT_TRUE(def.isEq(BfdPeerStatusV2("", IpAddr(), 3, 3)));
  EXPECT_FALSE(def.isEq(BfdPeerStatusV2("", IpAddr(), 0, 0)));

  BfdPeerStatusV2 base("Vxlan1", vtep, 1, 2);
  EXPECT_EQ(base.key(), vtep) << "stored under its peer address";
  expectEveryFieldCounts(base, with(base, [](auto& v) { v.labelIs("Vxlan1-mlag"); }),
                         with(base, [](auto& v) { v.ipIs(IpAddr(10, 0, 0, 2)); }),
                         with(base, [](auto& v) { v.statusIs(3); }), with(base, [](auto& v) { v.remoteStatusIs(3); }));
  EXPECT_EQ(text(base), "label=Vxlan1, ip=10.0.0.1, status=1, remoteStatus=2");
}

TEST(MacVtepV2, DefaultPreferenceIsSixteen) {
  using VxlanController::MacVtepV2;
  MacVtepV2 def;
  EXPECT_EQ(def.preference(), 16) << "16, not 0";
  EXPECT_TRUE(def.macAddr().isZero());
  EXPECT_TRUE(def.isEq(MacVtepV2(EthAddr(), IpAddr(), 0, 16)));
  EXPECT_FALSE(def.isEq(MacVtepV2(EthAddr(), IpAddr(), 0, 0)));

  MacVtepV2 base(mac, vtep, 7, 100);
  expectEveryFieldCounts(base, with(base, [](auto& v) { v.macAddrIs(EthAddr(0, 0, 2)); }),
                         with(base, [](auto& v) { v.vtepIpIs(IpAddr(10, 0, 0, 9)); }),
                         with(base, [](auto& v) { v.seqNumIs(8); }), with(base, [](auto& v) { v.preferenceIs(1); }));
  EXPECT_EQ(text(base), "macAddr=00:1c:73:00:00:01, vtepIp=10.0.0.1, seqNum=7, preference=100");
}

TEST(ArpEntry, DefaultKindOneAndStoredUnderItsAddress) {
  Arp::ArpEntry def;
  EXPECT_TRUE(def.ipAddr().isZero());
  EXPECT_TRUE(def.ethAddr().isZero());
  EXPECT_EQ(def.kind(), 1);

  Arp::ArpEntry base(vtep, mac, 2);
  EXPECT_EQ(base.key(), vtep);
  expectEveryFieldCounts(base, with(base, [](auto& v) { v.ipAddrIs(IpAddr(10, 0, 0, 2)); }),
                         with(base, [](auto& v) { v.ethAddrIs(EthAddr()); }), with(base, [](auto& v) { v.kindIs(1); }));
  EXPECT_EQ(text(base), "ipAddr=10.0.0.1, ethAddr=00:1c:73:00:00:01, kind=2");
}

TEST(InputConfigEntry, DefaultsAndEveryFieldCounts) {
  Arp::InputConfigEntry def;
  EXPECT_EQ(def.key(), Arp::InputConfigKey());
  EXPECT_EQ(def.kind(), 0);
  EXPECT_EQ(def.stateCode(), 0);
  EXPECT_EQ(def.metric(), 0xffffu);
  EXPECT_EQ(def.generation(), 0u);

  Arp::InputConfigKey key(IntfId("Vlan10"), IpGenAddr(vtep));
  expectEveryFieldCounts(key, Arp::InputConfigKey(IntfId("Vlan11"), IpGenAddr(vtep)),
                         Arp::InputConfigKey(IntfId("Vlan10"), IpGenAddr(IpAddr(10, 0, 0, 2))));

  Arp::InputConfigEntry base(key, mac, 1, 0);
  expectEveryFieldCounts(base, with(base, [](auto& v) { v.keyIs(Arp::InputConfigKey()); }),
                         with(base, [](auto& v) { v.ethAddrIs(EthAddr()); }), with(base, [](auto& v) { v.kindIs(0); }),
                         with(base, [](auto& v) { v.stateCodeIs(Arp::InputConfigEntry::stateCodeNotPublished); }),
                         with(base, [](auto& v) { v.metricIs(0); }), with(base, [](auto& v) { v.generationIs(1); }));
  EXPECT_EQ(text(base),
            "key=(Vlan10, 10.0.0.1), ethAddr=00:1c:73:00:00:01, kind=1, stateCode=0, metric=65535, generation=0");
}

TEST(ArpSource, RawValuesAndTexts) {
  EXPECT_EQ(Arp::ArpSource(), Arp::ArpSource(Arp::ArpSourceId::unknown));
  Arp::ArpSource peer(std::uint8_t{100});
  EXPECT_EQ(peer.id(), Arp::ArpSourceId::peer);
  EXPECT_EQ(Arp::stringValue(peer.id()), "peer");
  Arp::ArpSource odd(std::uint8_t{57});
  EXPECT_EQ(odd.value(), 57);
  EXPECT_EQ(Arp::stringValue(odd.id()), "unknown");
  EXPECT_EQ(text(odd), "57");
  EXPECT_EQ(text(Arp::ArpSource(Arp::ArpSourceId::dynamic)), "dynamic");
  EXPECT_NE(hashOf(peer), hashOf(odd));
}

TEST(VlanIpSource, ToStrepAndEveryFieldCounts) {
  Mlag::VlanIpSource v4(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::dynamic);
  EXPECT_EQ(v4.toStrep().view(), "vlanId: 10, ipAddr: 10.0.0.1, arpSource: dynamic");
  Mlag::VlanIpSource v6(Bridging::VlanIdOrNone(), IpGenAddr::parse("2001:db8::1"), Arp::ArpSource(std::uint8_t{100}));
  EXPECT_EQ(v6.toStrep().view(), "vlanId: 0, ipAddr: 2001:db8::1, arpSource: peer");
  EXPECT_EQ(text(v6), v6.toStrep().str());

  expectEveryFieldCounts(
      v4, Mlag::VlanIpSource(Bridging::VlanIdOrNone(11), IpGenAddr(vtep), Arp::ArpSourceId::dynamic),
      Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(IpAddr(10, 0, 0, 2)), Arp::ArpSourceId::dynamic),
      Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::evpn));
}

TEST(VtiVtep, OrderedByInterfaceThenVtep) {
  Mlag::VtiVtep base(Vxlan1, IpGenAddr(vtep));
  expectEveryFieldCounts(base, Mlag::VtiVtep(IntfId("Vxlan2"), IpGenAddr(vtep)),
                         Mlag::VtiVtep(Vxlan1, IpGenAddr(IpAddr(10, 0, 0, 2))));
  EXPECT_LT(Mlag::VtiVtep(Vxlan1, IpGenAddr(IpAddr(10, 0, 0, 9))), Mlag::VtiVtep(IntfId("Vxlan2"), IpGenAddr(vtep)));
  EXPECT_LT(base, Mlag::VtiVtep(Vxlan1, IpGenAddr(IpAddr(10, 0, 0, 2))));
  EXPECT_EQ(text(base), "(Vxlan1, 10.0.0.1)");
}

TEST(MlagState, PrimaryIsThreeSecondaryIsFour) {
  EXPECT_EQ(static_cast<int>(Mlag::MlagState::primary), 3);
  EXPECT_EQ(static_cast<int>(Mlag::MlagState::secondary), 4);
  EXPECT_EQ(text(Mlag::MlagState::primary), "primary");
  EXPECT_EQ(Mlag::stringValue(Mlag::MlagState::secondary), "secondary");
}

TEST(HostEntries, DefaultsAndEveryFieldCounts) {
  Mlag::HostEntry def;
  EXPECT_EQ(def.hostEntryFlag(), 0);
  EXPECT_EQ(def.lastMoveTime(), 0.0);
  EXPECT_TRUE(def.intf().empty());

  Mlag::HostEntryKey key(10, mac);
  expectEveryFieldCounts(key, Mlag::HostEntryKey(11, mac), Mlag::HostEntryKey(10, EthAddr()));
  Mlag::HostEntry local("Vxlan1:10.0.0.1", 12.5, 3, key, 5, 1);
  EXPECT_EQ(local.key(), key);
  expectEveryFieldCounts(
      local, with(local, [](auto& v) { v.intfIs("Vxlan1:10.0.0.2"); }),
      with(local, [](auto& v) { v.lastMoveTimeIs(12.25); }), with(local, [](auto& v) { v.movesIs(4); }),
      with(local, [](auto& v) { v.keyIs(Mlag::HostEntryKey(10, EthAddr())); }),
      with(local, [](auto& v) { v.entryTypeIs(6); }), with(local, [](auto& v) { v.hostEntryFlagIs(0); }));
  EXPECT_EQ(text(local),
            "intf=Vxlan1:10.0.0.1, lastMoveTime=12.5, moves=3, key=(10, 00:1c:73:00:00:01), entryType=5, "
            "hostEntryFlag=1");

  MlagP2p::HostEntryKey p2pKey(10, mac);
  expectEveryFieldCounts(p2pKey, MlagP2p::HostEntryKey(11, mac), MlagP2p::HostEntryKey(10, EthAddr()));
  MlagP2p::HostEntry sent("Vxlan1:10.0.0.1:100", 12.5, 3, p2pKey, 5);
  EXPECT_EQ(sent.key(), p2pKey);
  expectEveryFieldCounts(sent, with(sent, [](auto& v) { v.intfIs("Vxlan1:10.0.0.1"); }),
                         with(sent, [](auto& v) { v.lastMoveTimeIs(13.0); }), with(sent, [](auto& v) { v.movesIs(0); }),
                         with(sent, [](auto& v) { v.keyIs(MlagP2p::HostEntryKey(1, mac)); }),
                         with(sent, [](auto& v) { v.entryTypeIs(0); }));
  EXPECT_TRUE(MlagP2p::HostEntry().isEq(MlagP2p::HostEntry("", 0.0, 0, MlagP2p::HostEntryKey(), 0)));
}

TEST(BfdPeer, EveryFieldIsPartOfTheKeyAndTheOrder) {
  Bfd::Peer base("default", Vxlan1, 9, Bfd::Peer::typeVxlanTunnel, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100)));
  EXPECT_EQ(base.type(), 3u);
  Bfd::Peer variants[] = {
      Bfd::Peer("red", Vxlan1, 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", IntfId("Vxlan2"), 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 10, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 1, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 3, IpGenAddr(IpAddr(10, 0, 0, 2)), IpGenAddr(IpAddr(10, 0, 0, 100))),
      Bfd::Peer("default", Vxlan1, 9, 3, IpGenAddr(vtep), IpGenAddr(IpAddr(10, 0, 0, 101))),
  };
  expectEveryFieldCounts(base, variants[0], variants[1], variants[2], variants[3], variants[4], variants[5]);
  for (auto const& v : variants) EXPECT_TRUE((base < v) != (v < base)) << v;
  EXPECT_LT(base, variants[0]) << "the first field decides first";
  EXPECT_EQ(text(base), "vrf=default, intf=Vxlan1, sessionId=9, type=3, ip=10.0.0.1, srcIp=10.0.0.100");
}

TEST(BfdOperState, FourValuesWithTheirTypeDescription) {
  EXPECT_EQ(text(Bfd::OperState::up), "up");
  EXPECT_EQ(Bfd::stringValue(Bfd::OperState::adminDown), "adminDown");
  auto members = Bfd::operStateMembers();
  ASSERT_EQ(members.size(), 4u);
  for (std::size_t i = 0; i < members.size(); ++i) {
    EXPECT_EQ(members[i].first, i);
    EXPECT_EQ(members[i].second, Bfd::stringValue(static_cast<Bfd::OperState>(i)));
  }
}

TEST(ShoalRecords, AllDefaultRecordsAndEveryFieldCounts) {
  using Shoal::Bridging::ShoalFdbStatus;
  using Shoal::Vxlan::LearnedHost;
  static_assert(std::is_trivially_copyable_v<ShoalFdbStatus>, "a Shoal table row");
  static_assert(std::is_trivially_copyable_v<LearnedHost>, "a Shoal table row");

  ShoalFdbStatus def;
  EXPECT_EQ(def.key(), Bridging::HostKey());
  EXPECT_TRUE(def.intf().isEmpty());
  EXPECT_EQ(def.entryType(), Bridging::EntryType::unknownEntry);
  EXPECT_TRUE(def.isEq(ShoalFdbStatus()));

  ShoalFdbStatus fdb(Bridging::HostKey(Bridging::VlanId(10), mac), Vxlan1, 100.5, 2,
                     Bridging::EntryType::learnedRemoteMac, 0);
  expectEveryFieldCounts(fdb, with(fdb, [](auto& v) { v.keyIs(Bridging::HostKey(Bridging::VlanId(11), mac)); }),
                         with(fdb, [](auto& v) { v.intfIs(IntfId("Vxlan2")); }),
                         with(fdb, [](auto& v) { v.lastMoveTimeIs(100.25); }), with(fdb, [](auto& v) { v.movesIs(3); }),
                         with(fdb, [](auto& v) { v.entryTypeIs(Bridging::EntryType::receivedRemoteMac); }),
                         with(fdb, [](auto& v) { v.flagsIs(1); }));
  EXPECT_EQ(text(fdb),
            "key=(10, 00:1c:73:00:00:01), intf=Vxlan1, lastMoveTime=100.5, moves=2, entryType=learnedRemoteMac, "
            "flags=0");

  LearnedHost hostDef;
  EXPECT_EQ(hostDef.key().vlanId(), Bridging::VlanId(1)) << "its key defaults to VLAN 1";
  EXPECT_EQ(hostDef.vtepIp(), IpGenAddr());
  LearnedHost host(100.5, Vxlan::MacVlanPair(mac, Bridging::VlanId(10)), IpGenAddr(vtep), 0);
  expectEveryFieldCounts(host, with(host, [](auto& v) { v.lastMoveTimeIs(1.0); }),
                         with(host, [](auto& v) { v.keyIs(Vxlan::MacVlanPair(mac, Bridging::VlanId(1))); }),
                         with(host, [](auto& v) { v.vtepIpIs(IpGenAddr::parse("2001:db8::1")); }),
                         with(host, [](auto& v) { v.flagsIs(2); }));
  EXPECT_EQ(text(host), "lastMoveTime=100.5, key=(00:1c:73:00:00:01, 10), vtepIp=10.0.0.1, flags=0");
}

TEST(L2RibDest, FiveKindsEachReadWithItsAccessor) {
  using namespace L2Rib;
  Dest none;
  EXPECT_EQ(none.destType(), DestType::none);
  EXPECT_EQ(static_cast<int>(none.destType()), 4);

  DestId id(5);
  Dest intf(id, DestDataIntf(IntfId("Ethernet1")));
  Dest vxlan(id, DestDataVxlan(IntfId("Vxlan1"), 10, IpGenAddr(vtep)));
  Dest mpls(id, DestDataMpls(16, IpGenAddr(vtep)));
  Dest tunnel(id, DestDataTunnel(77));
  EXPECT_EQ(static_cast<int>(intf.destType()), 0);
  EXPECT_EQ(static_cast<int>(vxlan.destType()), 1);
  EXPECT_EQ(static_cast<int>(mpls.destType()), 2);
  EXPECT_EQ(static_cast<int>(tunnel.destType()), 3);
  EXPECT_EQ(vxlan.destType(), destTypeVxlan());
  EXPECT_EQ(intf.intf().intf(), IntfId("Ethernet1"));
  EXPECT_EQ(vxlan.vxlan().vni(), 10u);
  EXPECT_EQ(mpls.mpls().label(), 16u);
  EXPECT_EQ(tunnel.tunnel().tunnelId(), 77u);
  EXPECT_THROW((void)intf.vxlan(), std::bad_variant_access);
  EXPECT_THROW((void)none.intf(), std::bad_variant_access);

  // Empty data of different kinds under one id are still different destinations.
  expectEveryFieldCounts(Dest(id, DestDataIntf()), Dest(id, DestDataVxlan()), Dest(id, DestDataMpls()),
                         Dest(id, DestDataTunnel()), Dest(DestId(6), DestDataIntf()));
  expectEveryFieldCounts(mpls, Dest(id, DestDataMpls(17, IpGenAddr(vtep))),
                         Dest(id, DestDataMpls(16, IpGenAddr(IpAddr(10, 0, 0, 2)))));
  EXPECT_EQ(intf.stringValue().view(), "intf(id=5, intf=Ethernet1)");
  EXPECT_EQ(mpls.stringValue().view(), "mpls(id=5, label=16, nexthop=10.0.0.1)");
  EXPECT_EQ(text(tunnel), "tunnel(id=5, tunnelId=77)");
  EXPECT_EQ(none.stringValue().view(), "none(id=0)");
}

TEST(L2RibDest, CanonicalVxlanDestinationOfAVtep) {
  using namespace L2Rib;
  Dest d = canonicalVxlanDest(IpGenAddr(vtep));
  EXPECT_EQ(d.destId(), DestId::allOnes());
  EXPECT_EQ(d.destId().value(), ~std::uint64_t{0});
  EXPECT_EQ(d.destType(), destTypeVxlan());
  EXPECT_TRUE(d.vxlan().intf().isEmpty());
  EXPECT_EQ(d.vxlan().vni(), 0u);
  EXPECT_EQ(d.vxlan().vtepAddr(), IpGenAddr(vtep));
  EXPECT_EQ(d, Dest(DestId::allOnes(), DestDataVxlan(IntfId(""), 0, IpGenAddr(IpAddr(10, 0, 0, 1)))));
  EXPECT_EQ(d.stringValue().view(), "vxlan(id=ffffffffffffffff, intf=, vni=0, vtepAddr=10.0.0.1)");

  Dest v6 = canonicalVxlanDest(IpGenAddr::parse("2001:db8::1"));
  EXPECT_EQ(v6.vxlan().vtepAddr().af(), Lanx::AddressFamily::ipv6);
  // Any field that differs from the canonical form makes another destination.
  expectEveryFieldCounts(d, canonicalVxlanDest(IpGenAddr(IpAddr(10, 0, 0, 2))),
                         Dest(DestId(0), DestDataVxlan(IntfId(), 0, IpGenAddr(vtep))),
                         Dest(DestId::allOnes(), DestDataVxlan(Vxlan1, 0, IpGenAddr(vtep))),
                         Dest(DestId::allOnes(), DestDataVxlan(IntfId(), 1, IpGenAddr(vtep))), v6);
}

TEST(FloodSetType, ValuesAndTexts) {
  EXPECT_EQ(static_cast<int>(L2Rib::FloodSetType::all), 1);
  EXPECT_EQ(static_cast<int>(L2Rib::FloodSetType::any), 2);
  EXPECT_EQ(text(L2Rib::FloodSetType::any), "any");
  EXPECT_EQ(text(static_cast<L2Rib::FloodSetType>(9)), "9");
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
  EXPECT_EQ(arp.lookupNodeG(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), IpGenAddr(vtep), Arp::ArpSourceId::evpn)),
            nullptr);

  Vok::HashMap2018<Vxlan::VniVtiPair, Bridging::ExtendedVlanId> vniVti;
  vniVti.newMemberG(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), Vxlan1), Bridging::ExtendedVlanId(10));
  EXPECT_EQ(vniVti.lookupNodeG(Vxlan::VniVtiPair(IntfId("Vxlan1"), Vxlan::VniExt(10010)))->value.value(), 10);
}

}  // namespace
