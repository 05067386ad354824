// The wire codec's receivers on any bytes: each change is refused with DecodeError or applied,
// never anything else. The input is a sequence of changes, each with a 16-bit little-endian
// length in front, so that a change can reach into members that earlier ones made; the first
// byte of a change picks the receiver, as a connection would.
#include <cstddef>
#include <cstdint>
#include <span>

#include "Wire/EntityCodec.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/BumStatus.h"

namespace Wire = MlagVxlan::Wire;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Wire::Receiver<Mlag::VxlanStatus> vx(Brix::newNode<Mlag::VxlanStatus>(), 0);
  Wire::Receiver<MlagP2p::HostTable> hosts(Brix::newNode<MlagP2p::HostTable>(), 1);
  Wire::Receiver<Vxlan::ActiveArpIpTable> arp(Brix::newNode<Vxlan::ActiveArpIpTable>(), 2);
  Wire::Receiver<L2Rib::SourceDirEntry> sde(Brix::newNode<L2Rib::SourceDirEntry>(), 3);
  Wire::Receiver<Vxlan::BumStatus> bum(Brix::newNode<Vxlan::BumStatus>(), 4);
  std::span<std::byte const> in(reinterpret_cast<std::byte const*>(data), size);
  while (!in.empty()) {
    std::size_t n = in.size() < 2 ? 0 : static_cast<std::size_t>(in[0]) | static_cast<std::size_t>(in[1]) << 8;
    in = in.subspan(in.size() < 2 ? in.size() : 2);
    auto change = in.first(n < in.size() ? n : in.size());
    in = in.subspan(change.size());
    try {
      switch (change.empty() ? 0 : static_cast<unsigned>(change[0])) {
        case 1:
          hosts.apply(change);
          break;
        case 2:
          arp.apply(change);
          break;
        case 3:
          sde.apply(change);
          break;
        case 4:
          bum.apply(change);
          break;
        default:
          vx.apply(change);
          break;
      }
    } catch (Wire::DecodeError const&) {
    }
  }
  return 0;
}
