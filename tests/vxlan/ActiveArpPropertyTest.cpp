// Level-triggered: after any sequence of changes of the copied table and of the configuration,
// the output is what a freshly built copy makes of the final inputs.
//
// Left out, as the handlers keep them on purpose: localIp input (its entries are written by one
// handler and removed by the next pass), a flip of the far end's capability (it leaves localIp
// entries behind), changes of the SVI lists and of what the far end holds (no re-evaluation
// follows them), and a far end without loop detection (a same-MAC entry keeps what stood).
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "vxlan/ActiveArpTestSupport.h"

namespace ActiveArpTest {
namespace {

Lanx::EthAddr const macA = mac("02:00:00:00:00:0a");
Lanx::EthAddr const macB = mac("02:00:00:00:00:0b");

// A choice among a few values, all of them from the first case on (a plain generator's range
// grows with the size of the case).
template <class Gen>
auto pick(Gen gen) {
  return *rc::gen::resize(100, std::move(gen));
}

Vxlan::VlanIpPair anyKey() {
  // VLAN 20 has no SVI: there only selective install can pass an address.
  return key(pick(rc::gen::element<std::uint16_t>(10, 20)),
             pick(rc::gen::element<std::string>("10.0.0.1", "224.0.0.5", "2001:db8::1")));
}

void change(Copy& c) {
  // Mostly entries; a flip of a switch re-evaluates everything, now and then.
  int const n = pick(rc::gen::inRange(0, 25));
  if (n == 0) return c.config->arpSelectiveInstallIs(!c.config->arpSelectiveInstall());
  if (n == 1) return c.l2Vpn->l2LearningSwitch1Is(!c.l2Vpn->l2LearningSwitch1());
  if (n == 2) return c.l2Vpn->l2LearningSwitch2Is(!c.l2Vpn->l2LearningSwitch2());
  if (n == 3) return c.in->arpSelectiveInstallIs(!c.in->arpSelectiveInstall());
  if (n == 4) return c.in->l2LearningCapableIs(!c.in->l2LearningCapable());
  if (n == 5) return (void)c.in->remoteIpDel(anyKey());
  if (n <= 8) return c.in->remoteIpIs(anyKey(), *rc::gen::arbitrary<bool>());
  if (n <= 10) return (void)c.in->localIpMacDel(anyKey());
  c.in->localIpMacIs(anyKey(), pick(rc::gen::element(macA, macB, zeroMac)));
}

RC_GTEST_PROP(ActiveArpProperty, TheOutputEndsWhereAFreshCopyStarts, ()) {
  auto const baseline = Brix::Node::liveCount();
  {
    Copy c;
    for (auto vlan : {1, 10}) {
      c.config->validSviIs(Bridging::VlanIdOrNone(vlan), true);
      c.config->validSvi6Is(Bridging::VlanIdOrNone(vlan), true);
    }
    c.l2Vpn->l2LearningSwitch1Is(true);  // mostly enabled: the switches flip rarely
    c.dest->l2LearningCapableIs(*rc::gen::arbitrary<bool>());
    c.destVx->loopDetectionCapableIs(true);
    c.rx->remoteIpIs(key(10, "10.0.0.1"), true);
    c.rx->localIpMacIs(key(10, "10.0.0.1"), macA);
    c.rx->localIpMacIs(key(20, "2001:db8::1"), macB);
    for (int n = *rc::gen::inRange(0, 10); n > 0; --n) change(c);
    auto sm = c.make();
    for (int n = *rc::gen::inRange(0, 60); n > 0; --n) change(c);
    auto freshOut = Brix::newNode<Vxlan::ActiveArpIpTable>();
    auto fresh = c.make(freshOut);
    // A disabled copy leaves the capability it last told; a fresh one never told any.
    bool const enabled = fresh->vtiStatus(Lanx::IntfId("Vxlan1"))->initialized();
    RC_ASSERT(text(*c.out, enabled) == text(*freshOut, enabled));
  }
  RC_ASSERT(Brix::Node::liveCount() == baseline);
}

}  // namespace
}  // namespace ActiveArpTest
