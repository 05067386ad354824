// Helpers shared by the ARP tests: input rows, readable snapshots of the published and applied
// tables, and a pair of roles with a transport that carries the primary's ARP tables to the
// secondary by difference, tables before the flag.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Vxlan/PrimarySm.h"
#include "Vxlan/SecondarySm.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "runtime/Attributes.h"

namespace ArpTest {

using Status = Mlag::VxlanStatus;
// VRF to rows, each row as its trace text shows it: "10.0.0.1" or "vlanId: 10, ipAddr: ...".
using Tables = std::map<std::string, std::map<std::string, std::string>>;

inline Arp::InputConfigKey key(std::uint32_t vlan, char const* addr) {
  return Arp::InputConfigKey(Lanx::IntfId("Vlan" + std::to_string(vlan)), Lanx::IpGenAddr::parse(addr));
}

inline Mlag::VlanIpSource vip(std::uint16_t vlan, char const* addr, Arp::ArpSource source) {
  return Mlag::VlanIpSource(Bridging::VlanIdOrNone(vlan), Lanx::IpGenAddr::parse(addr), source);
}
inline Arp::ArpEntry entry(char const* addr, std::uint16_t mac) {
  return Arp::ArpEntry(Lanx::IpGenAddr::parse(addr).v4Addr(), Lanx::EthAddr(0, 0, mac));
}

// Writes an input row in the collection of its family; stateCode 1 marks it not to be published.
inline void rowIs(Arp::InputConfig& in, char const* vrf, Arp::InputConfigKey const& k, std::uint16_t mac,
                  std::uint8_t stateCode = 0, std::uint8_t kind = 1) {
  auto v = in.vrfIs(L3::VrfName(vrf));
  Arp::InputConfigEntry e(k, Lanx::EthAddr(0, 0, mac), kind, stateCode);
  if (k.addr().isV6()) {
    v->ipv6Is(e);
  } else {
    v->ipv4Is(e);
  }
}

inline Tables byVrf(Status const& s) {
  Tables t;
  for (auto v = s.arpStatusIter(); !v.done(); v.advance()) {
    auto& rows = t[std::string(v.currNodeNonStale().key.view())];
    for (auto r = v.currNodeNonStale().value->arpEntryIter(); !r.done(); r.advance()) {
      auto const& e = r.currNodeNonStale().value;
      rows[std::string(e.ipAddr().stringValue().view())] =
          std::string(e.ethAddr().stringValue().view()) + " kind " + std::to_string(e.kind());
    }
  }
  return t;
}

inline Tables withVlan(Status const& s) {
  Tables t;
  for (auto v = s.arpStatusWithVlanIter(); !v.done(); v.advance()) {
    auto& rows = t[std::string(v.currNodeNonStale().key.view())];
    for (auto r = v.currNodeNonStale().value->arpEntryIter(); !r.done(); r.advance()) {
      rows[std::string(r.currNodeNonStale().key.toStrep().view())] =
          std::string(r.currNodeNonStale().value.stringValue().view());
    }
  }
  return t;
}

// Makes `dst`'s members of one collection equal to `src`'s by difference: a member the source
// lacks goes, a missing one is made empty and then filled row by row.
template <class Get, class Is, class Del, class Iter>
void carry(Status const& src, Status& dst, Get get, Is is, Del del, Iter iter) {
  for (auto it = iter(dst); !it.done(); it.advance()) {
    auto const vrf = it.currNodeMaybeStale().key;
    if (!get(src, vrf)) del(dst, vrf);
  }
  for (auto it = iter(src); !it.done(); it.advance()) {
    auto const& from = *it.currNodeNonStale().value;
    auto to = is(dst, it.currNodeNonStale().key);
    for (auto r = to->arpEntryIter(); !r.done(); r.advance()) {
      auto const k = r.currNodeMaybeStale().key;
      if (!from.arpEntryHas(k)) to->arpEntryDel(k);
    }
    for (auto r = from.arpEntryIter(); !r.done(); r.advance()) {
      if constexpr (requires { to->arpEntryIs(r.currNodeNonStale().value); }) {
        to->arpEntryIs(r.currNodeNonStale().value);
      } else {
        to->arpEntryIs(r.currNodeNonStale().key, r.currNodeNonStale().value);
      }
    }
  }
}

// Both switches' status objects and the primary's ARP input. The flag is the one value both
// peers publish to each other; the transport carries the tables first, then the flag.
struct Pair {
  Brix::Ptr<Status> sentP = Brix::newNode<Status>(), recvP = Brix::newNode<Status>(), localP = Brix::newNode<Status>();
  Brix::Ptr<Status> sentS = Brix::newNode<Status>(), recvS = Brix::newNode<Status>(), localS = Brix::newNode<Status>();
  Brix::Ptr<Arp::InputConfig> arpInput = Brix::newNode<Arp::InputConfig>();
  Brix::Ptr<Bfd::StatusPeer> bfdPeer = Brix::newNode<Bfd::StatusPeer>();
  Brix::Ptr<Mlag::Status> mlagP = Brix::newNode<Mlag::Status>(), mlagS = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Bridging::Config> bridgingConfig = Brix::newNode<Bridging::Config>();

  Pair() {
    mlagP->mlagStateIs(Mlag::MlagState::primary);
    mlagS->mlagStateIs(Mlag::MlagState::secondary);
  }
  MlagVxlan::PrimarySm::Ptr primary() {
    return MlagVxlan::primarySmFactory(sentP, recvP, localP, nullptr, nullptr, arpInput, bfdPeer, mlagP);
  }
  MlagVxlan::SecondarySm::Ptr secondary() {
    return MlagVxlan::secondarySmFactory(sentS, recvS, localS, bridgingConfig, nullptr, nullptr, nullptr, mlagS);
  }
  void flagIs(bool capable) {
    recvP->peerArpByVlanIpCapableIs(capable);
    sentP->peerArpByVlanIpCapableIs(capable);
  }
  void carry() {
    ArpTest::carry(
        *sentP, *recvS, [](Status const& s, L3::VrfName const& v) { return s.arpStatus(v); },
        [](Status& s, L3::VrfName const& v) { return s.arpStatusIs(v); },
        [](Status& s, L3::VrfName const& v) { s.arpStatusDel(v); }, [](Status const& s) { return s.arpStatusIter(); });
    ArpTest::carry(
        *sentP, *recvS, [](Status const& s, L3::VrfName const& v) { return s.arpStatusWithVlan(v); },
        [](Status& s, L3::VrfName const& v) { return s.arpStatusWithVlanIs(v); },
        [](Status& s, L3::VrfName const& v) { s.arpStatusWithVlanDel(v); },
        [](Status const& s) { return s.arpStatusWithVlanIter(); });
    recvS->peerArpByVlanIpCapableIs(sentP->peerArpByVlanIpCapable());
  }
};

}  // namespace ArpTest
