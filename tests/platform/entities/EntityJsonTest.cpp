// The JSON dump of an entity, checked as exact text: attribute order, which values are numbers or
// booleans and which are text, and collections in walk order. The examples read every other
// entity type through the same dump.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "entities/Arp/InputConfig.h"
#include "entities/EntityJson.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Shoal/Status.h"

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

// A byte is a number, a time keeps every digit and never is text; a peer table keeps insertion
// order; a Shoal table is read without its hooks.
TEST(EntityJson, NumbersTimesInsertionOrderAndShoalTables) {
  auto status = Brix::newNode<Mlag::Status>();
  status->mlagStateIs(Mlag::MlagState::secondary);
  status->peerLinkDownFlagIs(7);  // a byte: 7, not a bell character
  EXPECT_EQ(toJson(*status).dump(1), json(R"j({"mlagState": "secondary", "peerLinkKnown": 0, "peerLinkDownFlag": 7,
                                              "peerMacAddr": "00:00:00:00:00:00"})j"));
  auto proto = Brix::newNode<Mlag::ProtoStatus>();
  proto->peerMonotonicOffsetIs(Brix::never);
  EXPECT_EQ(toJson(*proto)["peerMonotonicOffset"], "inf") << "JSON has no infinity; null would lose it";
  EXPECT_EQ(Vok::jsonText(1234567.125), "1234567.125");

  auto p2p = Brix::newNode<MlagP2p::HostTable>();
  EthAddr mac2(0x001c, 0x7300, 0x0002);
  p2p->hostEntryIs(MlagP2p::HostEntry("Vxlan1:10.0.0.2", 105.25, 1, MlagP2p::HostEntryKey(20, mac2), 5));
  p2p->hostEntryIs(MlagP2p::HostEntry("Et1", 7.5, 0, MlagP2p::HostEntryKey(10, mac), 1));
  EXPECT_EQ(toJson(*p2p).dump(1), json(R"j({"hostEntry": {
    "(20, 00:1c:73:00:00:02)": "intf=Vxlan1:10.0.0.2, lastMoveTime=105.25, moves=1, key=(20, 00:1c:73:00:00:02), entryType=5",
    "(10, 00:1c:73:00:00:01)": "intf=Et1, lastMoveTime=7.5, moves=0, key=(10, 00:1c:73:00:00:01), entryType=1"}})j"));

  auto shoal = Brix::newNode<Shoal::Bridging::Status>();
  Bridging::HostKey key(VlanId(10), mac);
  shoal->shoalFdbStatusIs(
      key, Shoal::Bridging::ShoalFdbStatus(key, IntfId("Ethernet1"), 12.5, 2, Bridging::EntryType::learnedDynamicMac));
  shoal->shoalFdbStatus().damageIs(Shoal::ShoalMapBase::DamageAt::nthOfEach, 1);
  EXPECT_EQ(toJson(*shoal).dump(1), json(R"j({"shoalFdbStatus": {"(10, 00:1c:73:00:00:01)":
    "key=(10, 00:1c:73:00:00:01), intf=Ethernet1, lastMoveTime=12.5, moves=2, entryType=learnedDynamicMac, flags=0"}})j"));
  EXPECT_THROW(shoal->shoalFdbStatus().get(key), Brix::CorruptionDetectedException) << "the dump read no entry";
  Shoal::IterHint hint;
  EXPECT_THROW(shoal->shoalFdbStatus().first(hint, &key), Brix::CorruptionDetectedException) << "nor walked";
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
