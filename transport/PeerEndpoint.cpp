#include "PeerEndpoint.h"

#include <utility>

#include "Wire/EntityCodec.h"

namespace MlagVxlan::Transport {

std::uint64_t peerFingerprint() {
  static std::uint64_t const f = Wire::fingerprint<Mlag::VxlanStatus, MlagP2p::HostTable, Vxlan::ActiveArpIpTable,
                                                   L2Rib::SourceDirEntry, Vxlan::BumStatus>();
  return f;
}

PeerEntities PeerEntities::made() {
  return {Brix::newNode<Mlag::VxlanStatus>(),       Brix::newNode<Mlag::VxlanStatus>(),
          Brix::newNode<MlagP2p::HostTable>(),      Brix::newNode<MlagP2p::HostTable>(),
          Brix::newNode<Vxlan::ActiveArpIpTable>(), Brix::newNode<Vxlan::ActiveArpIpTable>(),
          Brix::newNode<L2Rib::SourceDirEntry>(),   Brix::newNode<L2Rib::SourceDirEntry>(),
          Brix::newNode<Vxlan::BumStatus>(),        Brix::newNode<Vxlan::BumStatus>()};
}

PeerEndpoint::PeerEndpoint(std::string name, PeerEntities const& e, Brix::Ptr<Mlag::Status> status,
                           Brix::Ptr<Mlag::ProtoStatus> protoStatus)
    : Endpoint(std::move(name), peerFingerprint(), std::move(status), std::move(protoStatus)) {
  channelIs(0, e.sentVxStatus, e.recvVxStatus);
  channelIs(1, e.sentP2pHostTable, e.recvP2pHostTable);
  channelIs(2, e.sentActiveArp, e.recvActiveArp);
  channelIs(3, e.sentSde, e.recvSde);
  channelIs(4, e.sentBumStatus, e.recvBumStatus);
}

}  // namespace MlagVxlan::Transport
