// Helpers of the flood-list tests: the two forms of a flood list as sorted readable text, and
// short ways of writing them.
#pragma once

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Vxlan/BumStatus.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"

namespace FloodListTest {

inline Lanx::EthAddr const zeroMac;
inline Lanx::EthAddr const otherMac(0x0a00, 0, 0x0001);

inline L2Rib::Dest dest(std::string_view addr) { return L2Rib::canonicalVxlanDest(Lanx::IpGenAddr::parse(addr)); }
// A VXLAN destination of the same address as dest(addr) that differs from the canonical form.
inline L2Rib::Dest foreignDest(std::string_view addr) {
  return L2Rib::Dest(L2Rib::DestId(7), L2Rib::DestDataVxlan(::Vxlan1, 100, Lanx::IpGenAddr::parse(addr)));
}

// "vlan mac type: addr addr=false ..." per flood set, sorted; a canonical destination by its
// address, any other by its full text.
inline std::string text(L2Rib::SourceDirEntry const& sde) {
  std::set<std::string> lines;
  for (auto v = sde.vlanFloodSetIter(); !v.done(); v.advance()) {
    auto const& vfs = *v.currNodeNonStale().value;
    if (vfs.floodSetCount() == 0) lines.insert(std::to_string(vfs.vlanId().value()) + " -");
    for (auto f = vfs.floodSetIter(); !f.done(); f.advance()) {
      auto const& fs = *f.currNodeNonStale().value;
      std::set<std::string> dests;
      for (auto d = fs.destSetIter(); !d.done(); d.advance()) {
        auto const& [key, value] = d.currNodeNonStale();
        bool const canonical =
            key.destType() == L2Rib::destTypeVxlan() && key == L2Rib::canonicalVxlanDest(key.vxlan().vtepAddr());
        std::string t(canonical ? key.vxlan().vtepAddr().stringValue().view() : key.stringValue().view());
        dests.insert(value ? t : t + "=false");
      }
      std::ostringstream os;
      os << vfs.vlanId().value() << ' ' << fs.macAddr() << ' ' << fs.floodSetType() << ':';
      for (auto const& d : dests) os << ' ' << d;
      lines.insert(os.str());
    }
  }
  std::string out;
  for (auto const& l : lines) out += l + "\n";
  return out;
}

// "mode" then "mac/vlan type: addr addr6=false ..." per list, sorted.
inline std::string text(Vxlan::BumStatus const& bum) {
  std::set<std::string> lines;
  for (auto it = bum.bumVtepListIter(); !it.done(); it.advance()) {
    auto const& l = *it.currNodeNonStale().value;
    std::set<std::string> addrs;
    auto add = [&](auto const& addr, bool value) {
      std::ostringstream a;
      a << addr << (value ? "" : "=false");
      addrs.insert(a.str());
    };
    for (auto a = l.remoteVtepAddrIter(); !a.done(); a.advance()) add(a->key, a->value);
    for (auto a = l.remoteVtepAddr6Iter(); !a.done(); a.advance()) add(a->key, a->value);
    std::ostringstream os;
    os << l.macVlanPair().mac() << '/' << l.macVlanPair().vlanId().value() << ' ' << l.bumVtepIpListType() << ':';
    for (auto const& a : addrs) os << ' ' << a;
    lines.insert(os.str());
  }
  std::ostringstream out;
  out << "mode " << bum.bumReplicationMode() << "\n";
  for (auto const& l : lines) out << l << "\n";
  return out.str();
}

// The flood set of (vlan, mac) in `sde`, made if missing.
inline Brix::Ptr<L2Rib::FloodSet> floodSet(L2Rib::SourceDirEntry& sde, std::uint16_t vlan,
                                           Lanx::EthAddr const& mac = zeroMac) {
  return sde.vlanFloodSetIs(Bridging::VlanId(vlan))->floodSetIs(mac);
}

// The VTEP list of (mac, vlan) in `bum`, made if missing.
inline Brix::Ptr<Vxlan::BumVtepList> list(Vxlan::BumStatus& bum, std::uint16_t vlan,
                                          Lanx::EthAddr const& mac = zeroMac) {
  return bum.bumVtepListIs(Vxlan::MacVlanPair(mac, Bridging::VlanId(vlan)));
}

}  // namespace FloodListTest
