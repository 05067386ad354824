// Level-triggered: after any sequence of ARP input changes and flips of the flag, carried to the
// secondary after each step, both roles' outputs are what fresh roles make of the final input.
// The input keeps one source, VLAN interfaces only and each IPv4 address on one VLAN (the form by
// VRF keys a row by its address alone), and the transport carries the tables before the flag:
// the quirks outside that (rows kept by address after a flip, a sleeping applier's VRF left
// behind) are tested by example.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string_view>

#include "vxlan/ArpTestSupport.h"

namespace ArpTest {
namespace {

void change(Pair& pair) {
  auto const vrf = *rc::gen::element("red", "blue");
  switch (*rc::gen::inRange(0, 8)) {
    case 0:
      pair.flagIs(!pair.recvP->peerArpByVlanIpCapable());
      return;
    case 1:
      pair.arpInput->vrfDel(L3::VrfName(vrf));
      return;
    default:
      break;
  }
  auto const addr = *rc::gen::element("10.0.0.1", "10.0.0.2", "2001:db8::1");
  std::string_view const a = addr;
  auto const k = key(a == "10.0.0.1" ? 10u : a == "10.0.0.2" ? 20u : *rc::gen::element(10u, 20u), addr);
  if (*rc::gen::inRange(0, 4) == 0) {
    if (auto v = pair.arpInput->vrf(L3::VrfName(vrf))) {
      v->ipv4Del(k);
      v->ipv6Del(k);
    }
    return;
  }
  auto const mac = *rc::gen::element<std::uint16_t>(1, 2);
  auto const stateCode = *rc::gen::element<std::uint8_t>(0, 0, Arp::InputConfigEntry::stateCodeNotPublished);
  rowIs(*pair.arpInput, vrf, k, mac, stateCode, *rc::gen::element<std::uint8_t>(1, 2));
}

RC_GTEST_PROP(ArpProperty, BothRolesEndWhereFreshRolesStart, ()) {
  auto const baseline = Brix::Node::liveCount();
  {
    Pair pair;
    pair.flagIs(*rc::gen::arbitrary<bool>());
    for (int n = *rc::gen::inRange(0, 5); n > 0; --n) change(pair);
    auto primary = pair.primary();
    pair.carry();
    auto secondary = pair.secondary();
    for (int n = *rc::gen::inRange(0, 30); n > 0; --n) {
      change(pair);
      pair.carry();
    }

    Pair fresh;
    fresh.arpInput = pair.arpInput;
    fresh.flagIs(pair.recvP->peerArpByVlanIpCapable());
    auto freshPrimary = fresh.primary();
    fresh.carry();
    auto freshSecondary = fresh.secondary();
    RC_ASSERT(byVrf(*pair.sentP) == byVrf(*fresh.sentP));
    RC_ASSERT(withVlan(*pair.sentP) == withVlan(*fresh.sentP));
    RC_ASSERT(withVlan(*pair.localS) == withVlan(*fresh.localS));
  }
  RC_ASSERT(Brix::Node::liveCount() == baseline);
}

}  // namespace
}  // namespace ArpTest
