// Level-triggered: after any sequence of input changes, the publisher and the applier leave
// their output as a freshly built one makes it of the final input.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "Vxlan/VlanToVniMapToP2pSm.h"
#include "Vxlan/VniToDynVlanMapToCorestateSm.h"
#include "vxlan/VlanVniTestSupport.h"

namespace VlanVniTest {
namespace {

constexpr auto primary = Mlag::MlagState::primary;
constexpr auto secondary = Mlag::MlagState::secondary;

// One change of a VTI's map that keeps it one-to-one: a VLAN that holds the VNI wanted
// elsewhere gives it up first, as a change of its own. Only sources the role may share.
void changeMapping(Vxlan::VtiStatus& vti, std::map<std::uint16_t, std::uint32_t>& model, Mlag::MlagState state) {
  auto const vlan = *rc::gen::element<std::uint16_t>(1, 2, 100, 4094, 4095, 5000);
  if (*rc::gen::inRange(0, 4) == 0) {
    vti.extendedVlanToVniMapDel(Bridging::ExtendedVlanId(vlan));
    model.erase(vlan);
    return;
  }
  auto const vni = *rc::gen::element<std::uint32_t>(0, 1, 10, 20, Vxlan::VniExt::max);
  auto const source = state == primary ? *rc::gen::element<std::string>("static", "evpn", "controller", "")
                                       : *rc::gen::element<std::string>("evpn", "controller", "");
  auto const flags = *rc::gen::element<std::uint8_t>(0, 1);
  for (auto it = model.begin(); it != model.end(); ++it) {
    if (it->first != vlan && it->second == vni) {
      vti.extendedVlanToVniMapDel(Bridging::ExtendedVlanId(it->first));
      model.erase(it);
      break;
    }
  }
  vti.extendedVlanToVniMapIs(Bridging::ExtendedVlanId(vlan), mapping(vni, source, flags));
  model[vlan] = vni;
}

// One change of what the peer published, in either collection; VLAN 0 entries included.
void changePeer(Mlag::VxlanStatus& recv) {
  auto const vni = *rc::gen::element<std::uint32_t>(0, 1, 10, 20);
  switch (*rc::gen::inRange(0, 4)) {
    case 0:
      recv.vniVtiToDynVlanMapIs(key(vni, *rc::gen::element(::Vxlan1, vxlan2)),
                                Bridging::ExtendedVlanId(*rc::gen::element<std::uint16_t>(0, 1, 100, 5000)));
      break;
    case 1:
      recv.vniVtiToDynVlanMapDel(key(vni, *rc::gen::element(::Vxlan1, vxlan2)));
      break;
    case 2:
      recv.vniToDynVlanMapIs(Vxlan::VniExtOrNone(vni),
                             Bridging::VlanIdOrNone(*rc::gen::element<std::uint16_t>(0, 1, 100, 4094)));
      break;
    default:
      recv.vniToDynVlanMapDel(Vxlan::VniExtOrNone(vni));
      break;
  }
}

RC_GTEST_PROP(VlanToVniProperty, APublisherEndsWhereAFreshOneStarts, ()) {
  auto const baseline = Brix::Node::liveCount();
  {
    auto const state = *rc::gen::element(primary, secondary);
    auto vti = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1);
    auto sent = Brix::newNode<Mlag::VxlanStatus>();
    std::map<std::uint16_t, std::uint32_t> model;
    for (int n = *rc::gen::inRange(0, 6); n > 0; --n) changeMapping(*vti, model, state);
    auto sm = MlagVxlan::vlanToVniMapToP2pSmFactory(::Vxlan1, vti, sent, state);
    for (int n = *rc::gen::inRange(0, 40); n > 0; --n) changeMapping(*vti, model, state);

    auto freshSent = Brix::newNode<Mlag::VxlanStatus>();
    auto freshSm = MlagVxlan::vlanToVniMapToP2pSmFactory(::Vxlan1, vti, freshSent, state);
    RC_ASSERT(vniVtiMap(*sent) == vniVtiMap(*freshSent));
    RC_ASSERT(vniMap(*sent) == vniMap(*freshSent));
    RC_ASSERT(*sent == *freshSent);
  }
  RC_ASSERT(Brix::Node::liveCount() == baseline);
}

RC_GTEST_PROP(VlanToVniProperty, AnApplierEndsWhereAFreshOneStarts, ()) {
  auto const baseline = Brix::Node::liveCount();
  {
    auto const state = *rc::gen::element(primary, secondary);
    auto recv = Brix::newNode<Mlag::VxlanStatus>();
    auto local = Brix::newNode<Mlag::VxlanStatus>();
    for (int n = *rc::gen::inRange(0, 6); n > 0; --n) changePeer(*recv);
    auto sm = MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, local, state);
    for (int n = *rc::gen::inRange(0, 40); n > 0; --n) changePeer(*recv);

    auto freshLocal = Brix::newNode<Mlag::VxlanStatus>();
    auto freshSm = MlagVxlan::vniToDynVlanMapToCorestateSmFactory(recv, freshLocal, state);
    RC_ASSERT(vniVtiMap(*local) == vniVtiMap(*freshLocal));
    RC_ASSERT(*local == *freshLocal);
  }
  RC_ASSERT(Brix::Node::liveCount() == baseline);
}

}  // namespace
}  // namespace VlanVniTest
