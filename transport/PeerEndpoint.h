// The endpoint an MLAG VXLAN agent runs: the entities the container publishes for the peer go out
// on fixed channels, and the peer's land in the received ones.
//
//   channel 0  Mlag::VxlanStatus         sentVxStatus      -> recvVxStatus
//   channel 1  MlagP2p::HostTable        sentP2pHostTable  -> recvP2pHostTable
//   channel 2  Vxlan::ActiveArpIpTable   sentActiveArp     -> recvActiveArp
//   channel 3  L2Rib::SourceDirEntry     sentSde           -> recvSde
//   channel 4  Vxlan::BumStatus          sentBumStatus     -> recvBumStatus
#pragma once

#include <string>

#include "Endpoint.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/BumStatus.h"

namespace MlagVxlan::Transport {

struct PeerEntities {
  Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus;
  Brix::Ptr<Mlag::VxlanStatus> recvVxStatus;
  Brix::Ptr<MlagP2p::HostTable const> sentP2pHostTable;
  Brix::Ptr<MlagP2p::HostTable> recvP2pHostTable;
  Brix::Ptr<Vxlan::ActiveArpIpTable const> sentActiveArp;
  Brix::Ptr<Vxlan::ActiveArpIpTable> recvActiveArp;
  Brix::Ptr<L2Rib::SourceDirEntry const> sentSde;
  Brix::Ptr<L2Rib::SourceDirEntry> recvSde;
  Brix::Ptr<Vxlan::BumStatus const> sentBumStatus;
  Brix::Ptr<Vxlan::BumStatus> recvBumStatus;

  // Every entity new and empty, for an endpoint with nobody behind it (tools, fuzzing).
  static PeerEntities made();
};

// The fingerprint of the five channels' declarations, which both ends' hellos carry.
std::uint64_t peerFingerprint();

class PeerEndpoint final : public Endpoint {
 public:
  PeerEndpoint(std::string name, PeerEntities const& entities, Brix::Ptr<Mlag::Status> status,
               Brix::Ptr<Mlag::ProtoStatus> protoStatus);
};

}  // namespace MlagVxlan::Transport
