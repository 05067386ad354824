// The source-directory form of a flood list: per VLAN, per MAC, a flood set of destinations.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"

namespace L2Rib {

#define L2RIB_FLOOD_SET_ATTRIBUTES(A)          \
  A(key, macAddr, Lanx::EthAddr)               \
  A(scalar, floodSetType, L2Rib::FloodSetType) \
  A(values, destSet, L2Rib::Dest, bool)

class FloodSet : public Vok::Entity {
  VOK_ENTITY(FloodSet, "L2Rib::FloodSet", L2RIB_FLOOD_SET_ATTRIBUTES)
 public:
  explicit FloodSet(Lanx::EthAddr const& macAddr) : macAddr_(macAddr) {}
};

#define L2RIB_VLAN_FLOOD_SET_ATTRIBUTES(A) \
  A(key, vlanId, Bridging::VlanId)         \
  A(entities, floodSet, Lanx::EthAddr, L2Rib::FloodSet)

class VlanFloodSet : public Vok::Entity {
  VOK_ENTITY(VlanFloodSet, "L2Rib::VlanFloodSet", L2RIB_VLAN_FLOOD_SET_ATTRIBUTES)
 public:
  explicit VlanFloodSet(Bridging::VlanId const& vlanId) : vlanId_(vlanId) {}
};

#define L2RIB_SOURCE_DIR_ENTRY_ATTRIBUTES(A) \
  A(scalar, sourceInitialized, bool)         \
  A(entities, vlanFloodSet, Bridging::VlanId, L2Rib::VlanFloodSet)

class SourceDirEntry : public Vok::Entity {
  VOK_ENTITY(SourceDirEntry, "L2Rib::SourceDirEntry", L2RIB_SOURCE_DIR_ENTRY_ATTRIBUTES)
};

}  // namespace L2Rib
