// Mlag::VxlanStatus, the object of the peer exchange. Each switch holds three: sentVxStatus
// (what it publishes), recvVxStatus (the peer's, as received) and localVxStatus (what its own
// agents take from the exchange).
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Arp.h"
#include "types/Bfd.h"
#include "types/Bridging.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace Mlag {

// The ARP table of one VRF, IPv4 only.
#define MLAG_VXLAN_ARP_STATUS_ATTRIBUTES(A) \
  A(key, vrfName, L3::VrfName)              \
  A(records, arpEntry, Lanx::IpAddr, Arp::ArpEntry)

class VxlanArpStatus : public Vok::Entity {
  VOK_ENTITY(VxlanArpStatus, "Mlag::VxlanArpStatus", MLAG_VXLAN_ARP_STATUS_ATTRIBUTES)
 public:
  explicit VxlanArpStatus(L3::VrfName const& vrfName) : vrfName_(vrfName) {}
};

// The ARP and neighbour table of one VRF, with VLAN and source.
#define MLAG_VXLAN_ARP_STATUS_WITH_VLAN_ATTRIBUTES(A) \
  A(key, vrfName, L3::VrfName)                        \
  A(values, arpEntry, Mlag::VlanIpSource, Lanx::EthAddr)

class VxlanArpStatusWithVlan : public Vok::Entity {
  VOK_ENTITY(VxlanArpStatusWithVlan, "Mlag::VxlanArpStatusWithVlan", MLAG_VXLAN_ARP_STATUS_WITH_VLAN_ATTRIBUTES)
 public:
  explicit VxlanArpStatusWithVlan(L3::VrfName const& vrfName) : vrfName_(vrfName) {}
};

// The BFD state of one VTEP of one VTI.
#define MLAG_VXLAN_BFD_STATUS_ATTRIBUTES(A) \
  A(key, vtiVtep, Mlag::VtiVtep)            \
  A(scalar, operState, Bfd::OperState)

class VxlanBfdStatus : public Vok::Entity {
  VOK_ENTITY(VxlanBfdStatus, "Mlag::VxlanBfdStatus", MLAG_VXLAN_BFD_STATUS_ATTRIBUTES)
 public:
  explicit VxlanBfdStatus(Mlag::VtiVtep const& vtiVtep) : vtiVtep_(vtiVtep) {}
};

#define MLAG_VXLAN_STATUS_ATTRIBUTES(A)                                         \
  A(values, vniToDynVlanMap, Vxlan::VniExtOrNone, Bridging::VlanIdOrNone)       \
  A(values, sharedDynVlan, Bridging::VlanId, bool)                              \
  A(records, bfdPeerStatus, Lanx::IpAddr, VxlanController::BfdPeerStatusV2)     \
  A(entities, arpStatus, L3::VrfName, Mlag::VxlanArpStatus)                     \
  A(records, mlagBfdPeerStatus, Lanx::IpAddr, VxlanController::BfdPeerStatusV2) \
  A(values, vtepTypeAddr, Vxlan::VtepType, Lanx::IpAddr)                        \
  A(scalar, sdeFloodListCapable, bool)                                          \
  A(values, vtepTypeAddr6, Vxlan::VtepType, Lanx::Ip6Addr)                      \
  A(entities, allVxlanBfdPeerStatus, Mlag::VtiVtep, Mlag::VxlanBfdStatus)       \
  A(scalar, peerArpByVlanIpCapable, bool)                                       \
  A(entities, arpStatusWithVlan, L3::VrfName, Mlag::VxlanArpStatusWithVlan)     \
  A(values, vniVtiToDynVlanMap, Vxlan::VniVtiPair, Bridging::ExtendedVlanId)    \
  A(scalar, scheduledMlagPeerArpSync, bool)                                     \
  A(scalar, loopDetectionCapable, bool)

class VxlanStatus : public Vok::Entity {
  VOK_ENTITY(VxlanStatus, "Mlag::VxlanStatus", MLAG_VXLAN_STATUS_ATTRIBUTES)
};

}  // namespace Mlag
