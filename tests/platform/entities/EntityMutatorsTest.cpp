// The status entities as the state machines see them: what each mutator publishes, members made
// by key, and the reads with rules of their own.
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "entities/Arp/InputConfig.h"
#include "entities/EntityJson.h"
#include "entities/Mlag/VxlanStatus.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::IpAddr;
using Mlag::VxlanStatus;

using Event = std::pair<Brix::FieldId, std::string>;  // the field and the key's text, "-" for none
using Events = std::vector<Event>;

// A subscriber like a state machine's: its dispatch gets the field and a pointer to the key, and
// reads the key as the type the entity declares for that field.
template <class E>
class Publications {
 public:
  explicit Publications(Brix::Ptr<E const> e) : e_(std::move(e)) { sub_.subscribeTo(e_, &Publications::dispatch); }
  Events take() { return std::exchange(events_, {}); }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    auto* self = s->ownerAs<Publications>();
    std::string k = "-";
    bool known = self->e_->vokVisitField(field, [&](auto, Brix::FieldId, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (requires { typename A::KeyType; }) {
        if (key) k = Vok::jsonText(*static_cast<typename A::KeyType const*>(key));
      } else if (key) {
        k = "key on a plain attribute";
      }
    });
    self->events_.emplace_back(field, known ? k : "unknown field");
  }

  Brix::Ptr<E const> e_;
  Events events_;
  Brix::Subscriber sub_{this};
};

IpAddr const vtep1(10, 0, 0, 1);
IpAddr const vtep2(10, 0, 0, 2);
L3::VrfName const red("red");

// Each attribute kind's behaviour is the runtime's; here, that each attribute publishes its key
// as the type it declares, and that member entities publish their own changes.
TEST(VxlanStatusMutators, PublishFieldAndKeyOfEachChangeOnly) {
  auto s = Brix::newNode<VxlanStatus>();
  Publications<VxlanStatus> pubs(s);
  using F = VxlanStatus;
  s->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), VlanIdOrNone(10));
  s->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), VlanIdOrNone(10));
  s->vniToDynVlanMapIs(Vxlan::VniExtOrNone(0), VlanIdOrNone(11));  // VNI 0 is a VNI like any other
  s->bfdPeerStatusIs(VxlanController::BfdPeerStatusV2("Vxlan1", vtep1, 1, 1));
  s->mlagBfdPeerStatusIs(VxlanController::BfdPeerStatusV2("Vxlan1", vtep2, 2, 2));
  s->vtepTypeAddrIs(Vxlan::VtepType::localVtep, vtep1);
  s->vtepTypeAddr6Is(Vxlan::VtepType::mlagVtep, Lanx::Ip6Addr::parse("2001:db8::1"));
  s->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), Vxlan1), Bridging::ExtendedVlanId(4000));
  s->sharedDynVlanIs(VlanId(10), false);
  s->scheduledMlagPeerArpSyncIs(true);
  auto arp = s->arpStatusIs(red);
  Publications<Mlag::VxlanArpStatus> arpPubs(arp);
  arp->arpEntryIs(Arp::ArpEntry(vtep1, EthAddr(0, 0, 1)));
  auto bfdStatus = s->allVxlanBfdPeerStatusIs(Mlag::VtiVtep(Vxlan1, vtep1));
  auto withVlan = s->arpStatusWithVlanIs(red);
  Publications<Mlag::VxlanArpStatusWithVlan> withVlanPubs(withVlan);
  withVlan->arpEntryIs(Mlag::VlanIpSource(VlanIdOrNone(10), vtep1, Arp::ArpSourceId::dynamic), EthAddr(0, 0, 1));
  EXPECT_EQ(pubs.take(), (Events{{F::vniToDynVlanMapField, "10010"},
                                 {F::vniToDynVlanMapField, "0"},
                                 {F::bfdPeerStatusField, "10.0.0.1"},
                                 {F::mlagBfdPeerStatusField, "10.0.0.2"},
                                 {F::vtepTypeAddrField, "localVtep"},
                                 {F::vtepTypeAddr6Field, "mlagVtep"},
                                 {F::vniVtiToDynVlanMapField, "(Vxlan1, 10010)"},
                                 {F::sharedDynVlanField, "10"},
                                 {F::scheduledMlagPeerArpSyncField, "-"},
                                 {F::arpStatusField, "red"},
                                 {F::allVxlanBfdPeerStatusField, "(Vxlan1, 10.0.0.1)"},
                                 {F::arpStatusWithVlanField, "red"}}));
  EXPECT_EQ(arpPubs.take(), (Events{{Mlag::VxlanArpStatus::arpEntryField, "10.0.0.1"}}));
  EXPECT_EQ(
      withVlanPubs.take(),
      (Events{{Mlag::VxlanArpStatusWithVlan::arpEntryField, "vlanId: 10, ipAddr: 10.0.0.1, arpSource: dynamic"}}));
  // A false shared VLAN is a key holding false; absent and false read alike.
  EXPECT_TRUE(s->sharedDynVlanHas(VlanId(10)));
  EXPECT_FALSE(s->sharedDynVlan(VlanId(10)) || s->sharedDynVlanHas(VlanId(11)));
  EXPECT_EQ(s->allVxlanBfdPeerStatusIs(Mlag::VtiVtep(Vxlan1, vtep1)), bfdStatus) << "a member is made once";
}

TEST(ArpInputConfig, VrfsWalkInOrderWithDefaultFirst) {
  auto config = Brix::newNode<Arp::InputConfig>();
  for (char const* name : {"red", "default", "blue", "Zeta", "alpha"}) config->vrfIs(L3::VrfName(name));
  std::vector<std::string> walk;
  for (auto it = config->vrfIter(); !it.done(); it.advance()) {
    walk.emplace_back(it.key().view());
    EXPECT_EQ(it.value()->name(), it.key()) << "each member carries its own name";
    if (it.key() == L3::VrfName("blue")) config->vrfDel(L3::VrfName("blue"));  // a walk survives it
  }
  EXPECT_EQ(walk, (std::vector<std::string>{"default", "Zeta", "alpha", "blue", "red"}));
}

TEST(ArpInputConfig, AfEntryReadsTheCollectionOfTheKeysFamily) {
  auto vrf = Brix::newNode<Arp::InputConfigVrf>(L3::VrfName("default"));
  IntfId vlan10("Vlan10");
  Arp::InputConfigKey v4(vlan10, vtep1);
  Arp::InputConfigKey v6(vlan10, Lanx::Ip6Addr::parse("2001:db8::1"));
  Arp::InputConfigKey v6Misfiled(vlan10, Lanx::Ip6Addr::parse("2001:db8::2"));
  Arp::InputConfigEntry e4(v4, EthAddr(0, 0, 4));
  Arp::InputConfigEntry e6(v6, EthAddr(0, 0, 6));
  vrf->ipv4Is(e4);
  vrf->ipv6Is(e6);
  vrf->ipv4Is(Arp::InputConfigEntry(v6Misfiled, EthAddr(0, 0, 7)));

  EXPECT_TRUE(vrf->afEntryHas(v4));
  EXPECT_EQ(vrf->afEntry(v4), e4);
  EXPECT_TRUE(vrf->afEntryHas(v6));
  EXPECT_EQ(vrf->afEntry(v6), e6);
  EXPECT_FALSE(vrf->afEntryHas(v6Misfiled)) << "an IPv6 key is looked up among the IPv6 entries only";
  EXPECT_EQ(vrf->afEntry(v6Misfiled), Arp::InputConfigEntry());
  EXPECT_FALSE(vrf->afEntryHas(Arp::InputConfigKey(vlan10, vtep2)));
  EXPECT_EQ(vrf->afEntry(Arp::InputConfigKey(vlan10, vtep2)), Arp::InputConfigEntry());
}

}  // namespace
