// Helpers of the active ARP tests: the inputs of one copy, a table as sorted readable text, and
// short ways of writing keys.
#pragma once

#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Vxlan/ActiveArpP2pSm.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Routing/L2VpnConfig.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/VtiStatus.h"

// Kept free of the test framework: the active ARP benchmark builds its copies with it too.
namespace ActiveArpTest {

inline Vxlan::VlanIpPair key(std::uint16_t vlan, std::string_view addr) {
  return Vxlan::VlanIpPair(vlan, Lanx::IpGenAddr::parse(addr));
}
inline Lanx::EthAddr mac(std::string_view text) { return Lanx::EthAddr::parse(text); }
inline Lanx::EthAddr const zeroMac;

// "remote vlan/addr[=false]", "local ...", "mac vlan/addr mac" per entry, sorted, then the flags.
inline std::string text(Vxlan::ActiveArpIpTable const& t, bool withCapability = true) {
  std::set<std::string> lines;
  auto add = [&](char const* kind, auto it) {
    for (; !it.done(); it.advance()) {
      std::ostringstream os;
      os << kind << ' ' << it->key.vlanId() << '/' << it->key.ipAddr();
      if constexpr (std::is_same_v<std::decay_t<decltype(it->value)>, bool>) {
        os << (it->value ? "" : "=false");
      } else {
        os << ' ' << it->value;
      }
      lines.insert(os.str());
    }
  };
  add("remote", t.remoteIpIter());
  add("local", t.localIpIter());
  add("mac", t.localIpMacIter());
  std::string out;
  for (auto const& l : lines) out += l + '\n';
  if (t.arpSelectiveInstall()) out += "selective\n";
  if (withCapability && t.l2LearningCapable()) out += "capable\n";
  return out;
}

// The inputs and the output of one copy, with one VTI in the directory.
struct Copy {
  Brix::Ptr<Vxlan::VtiStatusDir> vtiDir = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<Routing::L2Vpn::Config> l2Vpn = Brix::newNode<Routing::L2Vpn::Config>();
  Brix::Ptr<Vxlan::ActiveArpIpTable> config = Brix::newNode<Vxlan::ActiveArpIpTable>(),
                                     in = Brix::newNode<Vxlan::ActiveArpIpTable>(),
                                     out = Brix::newNode<Vxlan::ActiveArpIpTable>(),
                                     dest = Brix::newNode<Vxlan::ActiveArpIpTable>(),
                                     rx = Brix::newNode<Vxlan::ActiveArpIpTable>();
  Brix::Ptr<Mlag::VxlanStatus> destVx = Brix::newNode<Mlag::VxlanStatus>();

  Copy() { vtiDir->vtiStatusIs(Lanx::IntfId("Vxlan1")); }

  MlagVxlan::ActiveArpP2pSm::Ptr make(Brix::Ptr<Vxlan::ActiveArpIpTable> const& output, bool withRx = true) const {
    return MlagVxlan::activeArpP2pSmFactory(vtiDir, l2Vpn, config, in, output, dest, withRx ? rx : nullptr, destVx,
                                            "copy");
  }
  MlagVxlan::ActiveArpP2pSm::Ptr make(bool withRx = true) const { return make(out, withRx); }
};

}  // namespace ActiveArpTest
