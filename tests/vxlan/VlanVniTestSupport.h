// Helpers shared by the tests of the VLAN-to-VNI exchange: readable snapshots of the maps of a
// Mlag::VxlanStatus, a log of its changes as they go out, and short ways of writing keys.
#pragma once

#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"
#include "vxlan/Harness.h"

namespace VlanVniTest {

using namespace TestSupport;

inline Lanx::IntfId const vxlan2{"Vxlan2"};

// (VNI, VTI short name) to VLAN, and VNI to VLAN.
using VniVtiMap = std::map<std::pair<std::uint32_t, std::string>, std::uint16_t>;
using VniMap = std::map<std::uint32_t, std::uint16_t>;

inline VniVtiMap vniVtiMap(Mlag::VxlanStatus const& s) {
  return entries<VniVtiMap>(s.vniVtiToDynVlanMapIter(), [](auto const& n) {
    return std::pair(std::pair(n.key.vni().value(), std::string(n.key.intfId().shortName().view())), n.value.value());
  });
}

inline VniMap vniMap(Mlag::VxlanStatus const& s) {
  return entries<VniMap>(s.vniToDynVlanMapIter(),
                         [](auto const& n) { return std::pair(n.key.value(), n.value.value()); });
}

inline Vxlan::VniVtiPair key(std::uint32_t vni, Lanx::IntfId intf = ::Vxlan1) {
  return Vxlan::VniVtiPair(Vxlan::VniExtOrNone(vni), intf);
}

inline Vxlan::VniSourcePair mapping(std::uint32_t vni, std::string_view source = "evpn", std::uint8_t flags = 0,
                                    Lanx::IntfId intf = ::Vxlan1) {
  return Vxlan::VniSourcePair(intf, Brix::String(source), Vxlan::VniExtOrNone(vni), flags);
}

inline std::string sourceText(Vxlan::VniSource s) { return std::string(Vxlan::stringValue(s)); }

// The changes of the two VLAN maps of one status, in the order they are published, each with
// the value it left: "+vniVti 10/Vx1=100", "-vniVti 10/Vx1", "+vni 10=100", "-vni 10".
class MapChanges {
 public:
  explicit MapChanges(Mlag::VxlanStatus const& s)
      : status_(s), recorder_(s, [this](TestSupport::PublicationRecorder::Publication const& p) { note(p); }) {}
  std::vector<std::string> take() { return std::exchange(log_, {}); }

 private:
  void note(TestSupport::PublicationRecorder::Publication const& p) {
    auto const& s = status_;
    if (p.field == Mlag::VxlanStatus::vniVtiToDynVlanMapField) {
      auto const& k = *static_cast<Vxlan::VniVtiPair const*>(p.key);
      add("vniVti " + std::to_string(k.vni().value()) + "/" + std::string(k.intfId().shortName().view()),
          s.vniVtiToDynVlanMapHas(k), s.vniVtiToDynVlanMap(k).value());
    } else if (p.field == Mlag::VxlanStatus::vniToDynVlanMapField) {
      auto const& k = *static_cast<Vxlan::VniExtOrNone const*>(p.key);
      add("vni " + std::to_string(k.value()), s.vniToDynVlanMapHas(k), s.vniToDynVlanMap(k).value());
    }
  }
  void add(std::string const& name, bool present, std::uint32_t vlan) {
    log_.push_back(present ? "+" + name + "=" + std::to_string(vlan) : "-" + name);
  }

  Mlag::VxlanStatus const& status_;
  TestSupport::PublicationRecorder recorder_;
  std::vector<std::string> log_;
};

}  // namespace VlanVniTest
