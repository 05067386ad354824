// The inputs of one switch's remote-MAC state machine and the state machine on them, on a manual
// clock: shared by the tests and the benchmark.
#pragma once

#include <cstdint>

#include "Vxlan/RemoteHostTableSm.h"
#include "runtime/Clock.h"

namespace TestSupport {

// MAC number i; distinct for every i below 2^32.
inline Lanx::EthAddr remoteMacOf(int i) {
  auto const u = static_cast<std::uint32_t>(i);
  return Lanx::EthAddr(0x0200, static_cast<std::uint16_t>(u >> 16), static_cast<std::uint16_t>(u & 0xffff));
}

struct RemoteHostSwitch {
  Vok::ManualLoop loop{1000.0};
  Brix::Ptr<MlagP2p::HostTable> sent = Brix::newNode<MlagP2p::HostTable>();
  Brix::Ptr<Mlag::HostTable> mlagHost = Brix::newNode<Mlag::HostTable>();
  Brix::Ptr<Bridging::Config> config = Brix::newNode<Bridging::Config>();
  Brix::Ptr<Shoal::Bridging::Status> fdb = Brix::newNode<Shoal::Bridging::Status>();
  Brix::Ptr<Shoal::Vxlan::FdbStatus> vxfdb = Brix::newNode<Shoal::Vxlan::FdbStatus>();
  Brix::Ptr<Mlag::ProtoStatus> proto = Brix::newNode<Mlag::ProtoStatus>();
  Brix::Ptr<Mlag::Status> mlag = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Vok::Dir> ctrl = Brix::newNode<Vok::Dir>();
  Brix::Ptr<Vxlan::VtiStatusDir> vtiDir = Brix::newNode<Vxlan::VtiStatusDir>();
  MlagVxlan::RemoteHostTableSm::Ptr sm;

  // The peer's clock runs 5 s ahead, not yet valid.
  RemoteHostSwitch() {
    proto->peerMonotonicOffsetIs(5.0);
    proto->peerP2pVersionIs(2);
  }
  // A state machine on these inputs, writing to `out` if given.
  MlagVxlan::RemoteHostTableSm::Ptr build(Brix::Ptr<MlagP2p::HostTable> const& out = nullptr) const {
    return MlagVxlan::remoteHostTableSmFactory(out ? out : sent, mlagHost, config, fdb, vxfdb, proto, mlag, ctrl,
                                               vtiDir);
  }
  void validIs(bool v) { proto->peerMonotonicOffsetValidIs(v); }
  // `vlan` is a Bridging::VlanId or its number.
  template <class Vlan>
  void fdbIs(int i, Vlan vlan, Bridging::EntryType type, double time, std::uint32_t moves = 0,
             Lanx::IntfId intf = ::Vxlan1) {
    Bridging::HostKey key(Bridging::VlanId(vlan), remoteMacOf(i));
    fdb->shoalFdbStatusIs(key, Shoal::Bridging::ShoalFdbStatus(key, intf, time, moves, type));
  }
  template <class Vlan>
  void learnedIs(int i, Vlan vlan, double time, Lanx::IpGenAddr vtep = Lanx::IpAddr(10, 0, 0, 1)) {
    Vxlan::MacVlanPair key(remoteMacOf(i), Bridging::VlanId(vlan));
    vxfdb->learnedHostIs(key, Shoal::Vxlan::LearnedHost(time, key, vtep));
  }
};

}  // namespace TestSupport
