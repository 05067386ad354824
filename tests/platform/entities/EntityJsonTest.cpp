// The JSON dump of every entity type, checked as exact text: attribute order, which values are
// numbers or booleans and which are text, and collections in walk order.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/EntityJson.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Shoal/Status.h"
#include "entities/VxlanController/VtepStatus.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::Ip6Addr;
using Lanx::IpAddr;
using Vok::toJson;

IpAddr const vtep1(10, 0, 0, 1);
IpAddr const vtep2(10, 0, 0, 2);
IpAddr const host(10, 1, 0, 5);
EthAddr const mac(0x001c, 0x7300, 0x0001);

// The expected text, with its order kept, in the form the dump is compared in.
std::string json(char const* text) { return Vok::EntityJson::parse(text).dump(1); }

TEST(EntityJson, VxlanStatusWithItsMembers) {
  auto s = Brix::newNode<Mlag::VxlanStatus>();
  s->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10020), VlanIdOrNone(20));
  s->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), VlanIdOrNone(10));
  s->sharedDynVlanIs(VlanId(30), true);
  s->sharedDynVlanIs(VlanId(10), false);
  s->bfdPeerStatusIs(VxlanController::BfdPeerStatusV2("Vxlan1", vtep1, 1, 2));
  s->arpStatusIs(L3::VrfName("red"))->arpEntryIs(Arp::ArpEntry(host, mac));
  s->vtepTypeAddrIs(Vxlan::VtepType::localVtep, vtep1);
  s->sdeFloodListCapableIs(true);
  s->vtepTypeAddr6Is(Vxlan::VtepType::mlagVtep, Ip6Addr::parse("2001:db8::1"));
  s->allVxlanBfdPeerStatusIs(Mlag::VtiVtep(Vxlan1, vtep2))->operStateIs(Bfd::OperState::up);
  s->arpStatusWithVlanIs(L3::VrfName("red"))
      ->arpEntryIs(Mlag::VlanIpSource(VlanIdOrNone(10), host, Arp::ArpSourceId::dynamic), mac);
  s->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), Vxlan1), Bridging::ExtendedVlanId(4001));
  s->scheduledMlagPeerArpSyncIs(true);
  EXPECT_EQ(toJson(*s).dump(1), json(R"j({
    "vniToDynVlanMap": {"10020": "20", "10010": "10"},
    "sharedDynVlan": {"30": true, "10": false},
    "bfdPeerStatus": {"10.0.0.1": "label=Vxlan1, ip=10.0.0.1, status=1, remoteStatus=2"},
    "arpStatus": {"red": {"vrfName": "red",
                          "arpEntry": {"10.1.0.5": "ipAddr=10.1.0.5, ethAddr=00:1c:73:00:00:01, kind=1"}}},
    "mlagBfdPeerStatus": {},
    "vtepTypeAddr": {"localVtep": "10.0.0.1"},
    "sdeFloodListCapable": true,
    "vtepTypeAddr6": {"mlagVtep": "2001:db8::1"},
    "allVxlanBfdPeerStatus": {"(Vxlan1, 10.0.0.2)": {"vtiVtep": "(Vxlan1, 10.0.0.2)", "operState": "up"}},
    "peerArpByVlanIpCapable": false,
    "arpStatusWithVlan": {"red": {"vrfName": "red",
        "arpEntry": {"vlanId: 10, ipAddr: 10.1.0.5, arpSource: dynamic": "00:1c:73:00:00:01"}}},
    "vniVtiToDynVlanMap": {"(Vxlan1, 10010)": "4001"},
    "scheduledMlagPeerArpSync": true,
    "loopDetectionCapable": false})j"));
}

TEST(EntityJson, MlagStatusProtoStatusAndBothHostTables) {
  auto status = Brix::newNode<Mlag::Status>();
  status->mlagStateIs(Mlag::MlagState::secondary);
  status->peerLinkKnownIs(1);
  status->peerLinkDownFlagIs(7);  // a byte: 7, not a bell character
  status->peerMacAddrIs(EthAddr(0x001c, 0x7300, 0x00ff));
  EXPECT_EQ(toJson(*status).dump(1), json(R"j({"mlagState": "secondary", "peerLinkKnown": 1, "peerLinkDownFlag": 7,
                                              "peerMacAddr": "00:1c:73:00:00:ff"})j"));

  auto proto = Brix::newNode<Mlag::ProtoStatus>();
  proto->peerMonotonicOffsetIs(2.5);
  proto->peerP2pVersionIs(3);
  proto->peerMonotonicOffsetValidIs(true);
  EXPECT_EQ(toJson(*proto).dump(1), json(R"j({"peerMonotonicOffset": 2.5, "peerP2pVersion": 3,
                                             "peerMonotonicOffsetValid": true, "peerMonotonicOffsetFlag": false})j"));
  proto->peerMonotonicOffsetIs(Brix::never);
  EXPECT_EQ(toJson(*proto)["peerMonotonicOffset"], "inf") << "JSON has no infinity; null would lose it";
  EXPECT_EQ(Vok::jsonText(1234567.125), "1234567.125") << "a time as the trace prints it, every digit kept";

  auto hosts = Brix::newNode<Mlag::HostTable>();
  hosts->hostEntryIs(Mlag::HostEntry("Ethernet1", 12.5, 2, Mlag::HostEntryKey(10, mac), 1));
  EXPECT_EQ(toJson(*hosts).dump(1), json(R"j({"hostEntry": {"(10, 00:1c:73:00:00:01)":
      "intf=Ethernet1, lastMoveTime=12.5, moves=2, key=(10, 00:1c:73:00:00:01), entryType=1, hostEntryFlag=0"}})j"));

  // The peer's host table, in insertion order.
  auto p2p = Brix::newNode<MlagP2p::HostTable>();
  EthAddr mac2(0x001c, 0x7300, 0x0002);
  p2p->hostEntryIs(MlagP2p::HostEntry("Vxlan1:10.0.0.2", 105.25, 1, MlagP2p::HostEntryKey(20, mac2), 5));
  p2p->hostEntryIs(MlagP2p::HostEntry("Et1", 7.5, 0, MlagP2p::HostEntryKey(10, mac), 1));
  EXPECT_EQ(toJson(*p2p).dump(1), json(R"j({"hostEntry": {
    "(20, 00:1c:73:00:00:02)": "intf=Vxlan1:10.0.0.2, lastMoveTime=105.25, moves=1, key=(20, 00:1c:73:00:00:02), entryType=5",
    "(10, 00:1c:73:00:00:01)": "intf=Et1, lastMoveTime=7.5, moves=0, key=(10, 00:1c:73:00:00:01), entryType=1"}})j"));
}

TEST(EntityJson, SourceDirEntryNestsVlanAndFloodSets) {
  auto sde = Brix::newNode<L2Rib::SourceDirEntry>();
  sde->sourceInitializedIs(true);
  auto fs = sde->vlanFloodSetIs(VlanId(10))->floodSetIs(EthAddr::broadcast());
  fs->floodSetTypeIs(L2Rib::FloodSetType::all);
  fs->destSetIs(L2Rib::canonicalVxlanDest(vtep1), true);
  EXPECT_EQ(toJson(*sde).dump(1), json(R"j({"sourceInitialized": true, "vlanFloodSet": {
    "10": {"vlanId": "10", "floodSet": {
      "ff:ff:ff:ff:ff:ff": {"macAddr": "ff:ff:ff:ff:ff:ff", "floodSetType": "all",
                            "destSet": {"vxlan(id=ffffffffffffffff, intf=, vni=0, vtepAddr=10.0.0.1)": true}}}}}})j"));
}

TEST(EntityJson, BridgingConfigAndItsFlatTable) {
  auto config = Brix::newNode<Bridging::Config>();
  config->vlanConfigIs(VlanId(10))->configSourceIs("mlag");
  config->bridgeMacAddrIs(mac);
  config->vlanRangeBound1Is(2);
  config->vlanRangeBound2Is(4094);
  EXPECT_EQ(toJson(*config).dump(1), json(R"j({"vlanConfig": {"10": {"vlanId": "10", "configSource": "mlag"}},
    "bridgeMacAddr": "00:1c:73:00:00:01", "vlanRangeBound1": 2, "vlanRangeBound2": 4094})j"));

  auto flat = Brix::newNode<Bridging::Flat::VlanConfigDir>();
  flat->vlanConfigIs(VlanId(10), Bridging::Flat::VlanConfigFlat(VlanId(10), Swix::FString("static")));
  EXPECT_EQ(toJson(*flat).dump(1), json(R"j({"vlanConfig": {"10":
    "vlanId=10, state=0, name=, priority=256, timestamp=0, flags=0, owner=0, configSource=static, reserved1=0, reserved2=0"}})j"));
}

TEST(EntityJson, ShoalTablesWithoutTrippingTheirHooks) {
  auto status = Brix::newNode<Shoal::Bridging::Status>();
  Bridging::HostKey key(VlanId(10), mac);
  status->shoalFdbStatusIs(
      key, Shoal::Bridging::ShoalFdbStatus(key, IntfId("Ethernet1"), 12.5, 2, Bridging::EntryType::learnedDynamicMac));
  status->shoalFdbStatus().damageIs(Shoal::ShoalMapBase::DamageAt::nthOfEach, 1);
  EXPECT_EQ(toJson(*status).dump(1), json(R"j({"shoalFdbStatus": {"(10, 00:1c:73:00:00:01)":
    "key=(10, 00:1c:73:00:00:01), intf=Ethernet1, lastMoveTime=12.5, moves=2, entryType=learnedDynamicMac, flags=0"}})j"));
  EXPECT_THROW(status->shoalFdbStatus().get(key), Brix::CorruptionDetectedException) << "the dump read no entry";
  Shoal::IterHint hint;
  EXPECT_THROW(status->shoalFdbStatus().first(hint, &key), Brix::CorruptionDetectedException) << "nor walked";

  auto learned = Brix::newNode<Shoal::Vxlan::FdbStatus>();
  Vxlan::MacVlanPair pair(mac, VlanId(10));
  learned->learnedHostIs(pair, Shoal::Vxlan::LearnedHost(7.25, pair, vtep1));
  EXPECT_EQ(toJson(*learned).dump(1), json(R"j({"learnedHost": {"(00:1c:73:00:00:01, 10)":
    "lastMoveTime=7.25, key=(00:1c:73:00:00:01, 10), vtepIp=10.0.0.1, flags=0"}})j"));
}

TEST(EntityJson, BfdArpInputAndControllerTables) {
  auto bfd = Brix::newNode<Bfd::StatusPeer>();
  bfd->peerStatusIs(Bfd::Peer("default", Vxlan1, 42, Bfd::Peer::typeVxlanTunnel, vtep2, vtep1))
      ->operStateIs(Bfd::OperState::up);
  EXPECT_EQ(toJson(*bfd).dump(1), json(R"j({"peerStatus": {
    "vrf=default, intf=Vxlan1, sessionId=42, type=3, ip=10.0.0.2, srcIp=10.0.0.1": {"operState": "up"}}})j"));

  auto arp = Brix::newNode<Arp::InputConfig>();
  arp->vrfIs(L3::VrfName("red"));
  arp->vrfIs(L3::VrfName("default"))
      ->ipv4Is(Arp::InputConfigEntry(Arp::InputConfigKey(IntfId("Vlan10"), host), mac, 1));
  arp->sourceIs(Arp::ArpSourceId::dynamic);
  EXPECT_EQ(toJson(*arp).dump(1), json(R"j({"vrf": {
    "default": {"name": "default", "ipv6": {}, "ipv4": {"(Vlan10, 10.1.0.5)":
      "key=(Vlan10, 10.1.0.5), ethAddr=00:1c:73:00:00:01, kind=1, stateCode=0, metric=65535, generation=0"}},
    "red": {"name": "red", "ipv6": {}, "ipv4": {}}},
    "source": "dynamic"})j"));

  auto vteps = Brix::newNode<VxlanController::VtepStatusDirV2>();
  vteps->vtepStatusV2Is("Vxlan1")->bfdPeerStatusIs(VxlanController::BfdPeerStatusV2("Vxlan1", vtep2, 0, 1));
  EXPECT_EQ(toJson(*vteps).dump(1), json(R"j({"vtepStatusV2": {"Vxlan1": {"name": "Vxlan1",
    "bfdPeerStatus": {"10.0.0.2": "label=Vxlan1, ip=10.0.0.2, status=0, remoteStatus=1"}}}})j"));

  auto fdb = Brix::newNode<VxlanController::VniFdbStatusV2>();
  fdb->macVtepTableIs(mac, VxlanController::MacVtepV2(mac, vtep1, 7, 16));
  EXPECT_EQ(toJson(*fdb).dump(1), json(R"j({"macVtepTable": {
    "00:1c:73:00:00:01": "macAddr=00:1c:73:00:00:01, vtepIp=10.0.0.1, seqNum=7, preference=16"}})j"));
}

// An entry is read by a key of either family from the collection of that family only.
TEST(ArpInputConfig, AfEntryReadsTheCollectionOfTheKeysFamily) {
  auto vrf = Brix::newNode<Arp::InputConfigVrf>(L3::VrfName("default"));
  IntfId vlan10("Vlan10");
  Arp::InputConfigEntry e4(Arp::InputConfigKey(vlan10, vtep1), EthAddr(0, 0, 4));
  Arp::InputConfigEntry e6(Arp::InputConfigKey(vlan10, Ip6Addr::parse("2001:db8::1")), EthAddr(0, 0, 6));
  Arp::InputConfigKey misfiled(vlan10, Ip6Addr::parse("2001:db8::2"));
  vrf->ipv4Is(e4);
  vrf->ipv6Is(e6);
  vrf->ipv4Is(Arp::InputConfigEntry(misfiled, EthAddr(0, 0, 7)));
  for (auto const& [key, entry] :
       {std::pair{e4.key(), e4}, std::pair{e6.key(), e6}, std::pair{misfiled, Arp::InputConfigEntry()},
        std::pair{Arp::InputConfigKey(vlan10, vtep2), Arp::InputConfigEntry()}}) {
    EXPECT_EQ(vrf->afEntryHas(key), entry != Arp::InputConfigEntry()) << key;
    EXPECT_EQ(vrf->afEntry(key), entry) << key;
  }
}

}  // namespace
