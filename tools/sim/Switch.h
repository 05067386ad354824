// One simulated switch: every entity that the container's children take, a container, and the
// hosting plug-in that brings the children up and down as the switch's Mlag::Status says.
#pragma once

#include <string>
#include <string_view>

#include "PlugIn.h"
#include "Vxlan/SmContainer.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Routing/L2VpnConfig.h"
#include "entities/Shoal/Status.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/BumStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/Dir.h"
#include "runtime/Publisher.h"

namespace Sim {

// The entities of a switch that a dump shows, in its order, each with whether the report shows
// its changes.
#define SIM_SWITCH_ENTITIES(X) \
  X(sentVxStatus, true)        \
  X(recvVxStatus, true)        \
  X(localVxStatus, true)       \
  X(mlagStatus, true)          \
  X(mlagProtoStatus, true)     \
  X(vtiStatusDir, false)       \
  X(vtepStatusDir, false)      \
  X(arpInputConfig, false)     \
  X(bfdStatusPeer, true)       \
  X(bridgingConfig, false)     \
  X(vlanConfigFlatDir, false)  \
  X(l2VpnConfig, false)        \
  X(bridgingStatus, false)     \
  X(vxlanFdbStatus, true)      \
  X(mlagHostTable, true)       \
  X(sentP2pHostTable, true)    \
  X(recvP2pHostTable, true)    \
  X(activeArpConfig, false)    \
  X(corestateActiveArp, false) \
  X(sentActiveArp, true)       \
  X(recvActiveArp, true)       \
  X(peerActiveArp, true)       \
  X(sdeInput, false)           \
  X(sentSde, true)             \
  X(recvSde, true)             \
  X(sentBumStatus, true)       \
  X(recvBumStatus, true)       \
  X(sdeOutput, true)

// The entities of one switch, each made once and kept for the switch's life: a state machine
// holds uses of them, and the peer link mirrors into them, so none is ever replaced.
struct SwitchEntities {
  template <class T>
  using P = Brix::Ptr<T> const;

  // The peer exchange.
  P<Mlag::VxlanStatus> sentVxStatus = Brix::newNode<Mlag::VxlanStatus>();
  P<Mlag::VxlanStatus> recvVxStatus = Brix::newNode<Mlag::VxlanStatus>();
  P<Mlag::VxlanStatus> localVxStatus = Brix::newNode<Mlag::VxlanStatus>();
  // The MLAG agent.
  P<Mlag::Status> mlagStatus = Brix::newNode<Mlag::Status>();
  P<Mlag::ProtoStatus> mlagProtoStatus = Brix::newNode<Mlag::ProtoStatus>();
  // The switch's own configuration and status.
  P<Vxlan::VtiStatusDir> vtiStatusDir = Brix::newNode<Vxlan::VtiStatusDir>();
  P<VxlanController::VtepStatusDirV2> vtepStatusDir = Brix::newNode<VxlanController::VtepStatusDirV2>();
  P<Arp::InputConfig> arpInputConfig = Brix::newNode<Arp::InputConfig>();
  P<Bfd::StatusPeer> bfdStatusPeer = Brix::newNode<Bfd::StatusPeer>();
  P<Bridging::Config> bridgingConfig = Brix::newNode<Bridging::Config>();
  P<Bridging::Flat::VlanConfigDir> vlanConfigFlatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
  P<Routing::L2Vpn::Config> l2VpnConfig = Brix::newNode<Routing::L2Vpn::Config>();
  P<Vok::Dir> controllerStatusBaseDir = Brix::newNode<Vok::Dir>("controllerStatus");
  // The FDB tables in shared memory.
  P<Shoal::Bridging::Status> bridgingStatus = Brix::newNode<Shoal::Bridging::Status>();
  P<Shoal::Vxlan::FdbStatus> vxlanFdbStatus = Brix::newNode<Shoal::Vxlan::FdbStatus>();
  // The host tables: this side's, the one sent to the peer, and the one received from it.
  P<Mlag::HostTable> mlagHostTable = Brix::newNode<Mlag::HostTable>();
  P<MlagP2p::HostTable> sentP2pHostTable = Brix::newNode<MlagP2p::HostTable>();
  P<MlagP2p::HostTable> recvP2pHostTable = Brix::newNode<MlagP2p::HostTable>();
  // Active ARP: the configuration, this switch's own table in the central store, the tables
  // sent to and received from the peer, and the peer's table as this switch takes it into its
  // store. The peer's entries go to a table of their own, so that nothing of the peer's comes
  // back to it as this switch's.
  P<Vxlan::ActiveArpIpTable> activeArpConfig = Brix::newNode<Vxlan::ActiveArpIpTable>();
  P<Vxlan::ActiveArpIpTable> corestateActiveArp = Brix::newNode<Vxlan::ActiveArpIpTable>();
  P<Vxlan::ActiveArpIpTable> sentActiveArp = Brix::newNode<Vxlan::ActiveArpIpTable>();
  P<Vxlan::ActiveArpIpTable> recvActiveArp = Brix::newNode<Vxlan::ActiveArpIpTable>();
  P<Vxlan::ActiveArpIpTable> peerActiveArp = Brix::newNode<Vxlan::ActiveArpIpTable>();
  // Flood lists: this switch's own in the central store, sent to the peer in both forms, and
  // the peer's as this switch takes them in from the form its selector picks.
  P<L2Rib::SourceDirEntry> sdeInput = Brix::newNode<L2Rib::SourceDirEntry>();
  P<L2Rib::SourceDirEntry> sentSde = Brix::newNode<L2Rib::SourceDirEntry>();
  P<L2Rib::SourceDirEntry> recvSde = Brix::newNode<L2Rib::SourceDirEntry>();
  P<Vxlan::BumStatus> sentBumStatus = Brix::newNode<Vxlan::BumStatus>();
  P<Vxlan::BumStatus> recvBumStatus = Brix::newNode<Vxlan::BumStatus>();
  P<L2Rib::SourceDirEntry> sdeOutput = Brix::newNode<L2Rib::SourceDirEntry>();

  // Calls f(name, ptr, reported) for every declared entity, in the order above. `reported`
  // marks what the library or the peer link writes: the report shows their changes. The
  // directory of controller tables is not a declared entity and is left out.
  template <class F>
  void forEachEntity(F&& f) const {
#define SIM_ENTITY_CALL(name, reported) f(std::string_view(#name), name, reported);
    SIM_SWITCH_ENTITIES(SIM_ENTITY_CALL)
#undef SIM_ENTITY_CALL
  }
  // Calls f(name, reported) for the same entities, with no switch at hand.
  template <class F>
  static void forEachEntityName(F&& f) {
#define SIM_ENTITY_NAME(name, reported) f(std::string_view(#name), reported);
    SIM_SWITCH_ENTITIES(SIM_ENTITY_NAME)
#undef SIM_ENTITY_NAME
  }
};

class Switch : public SwitchEntities {
 public:
  explicit Switch(std::string name);
  ~Switch();
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;

  std::string const& name() const noexcept { return name_; }
  MlagVxlan::SmContainer::Ptr const& container() const noexcept { return container_; }

  // Runs the plug-in's decisions now. They also run by themselves on every change of
  // mlagStatus, before any other reader of it hears of the change.
  void plugInRun();

 private:
  static void mlagStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                 void const*) noexcept;

  std::string name_;
  MlagVxlan::SmContainer::Ptr container_;
  Brix::Subscriber mlagStatusSub_{this};
};

}  // namespace Sim
