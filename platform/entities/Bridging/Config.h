// The bridging configuration: VLANs with who configured them, the bridge MAC, the VLAN range,
// and the flat form of the VLAN configuration in a shared-memory table.
#pragma once

#include <cstdint>

#include "entities/Shoal/ShoalMap.h"
#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/String.h"
#include "types/Bridging.h"
#include "types/Lanx.h"

namespace Bridging {

#define BRIDGING_VLAN_CONFIG_ATTRIBUTES(A) \
  A(key, vlanId, Bridging::VlanId)         \
  A(scalar, configSource, Brix::String)

class VlanConfig : public Vok::Entity {
  VOK_ENTITY(VlanConfig, "Bridging::VlanConfig", BRIDGING_VLAN_CONFIG_ATTRIBUTES)
 public:
  explicit VlanConfig(Bridging::VlanId const& vlanId) : vlanId_(vlanId) {}
};

#define BRIDGING_CONFIG_ATTRIBUTES(A)                             \
  A(entities, vlanConfig, Bridging::VlanId, Bridging::VlanConfig) \
  A(scalar, bridgeMacAddr, Lanx::EthAddr)                         \
  A(scalar, vlanRangeBound1, std::uint16_t)                       \
  A(scalar, vlanRangeBound2, std::uint16_t)

class Config : public Vok::Entity {
  VOK_ENTITY(Config, "Bridging::Config", BRIDGING_CONFIG_ATTRIBUTES)
};

namespace Flat {

#define BRIDGING_FLAT_VLAN_CONFIG_DIR_ATTRIBUTES(A) \
  A(shoal, vlanConfig, Bridging::VlanId, Bridging::Flat::VlanConfigFlat)

class VlanConfigDir : public Vok::Entity {
  VOK_ENTITY(VlanConfigDir, "Bridging::Flat::VlanConfigDir", BRIDGING_FLAT_VLAN_CONFIG_DIR_ATTRIBUTES)
};

}  // namespace Flat
}  // namespace Bridging
