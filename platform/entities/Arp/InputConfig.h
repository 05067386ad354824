// The ARP input tables, per VRF in VRF order ("default" first), and the source to stamp on
// what is published from them.
#pragma once

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "types/Arp.h"
#include "types/L3.h"
#include "types/Lanx.h"

namespace Arp {

#define ARP_INPUT_CONFIG_VRF_ATTRIBUTES(A)                     \
  A(key, name, L3::VrfName)                                    \
  A(records, ipv6, Arp::InputConfigKey, Arp::InputConfigEntry) \
  A(records, ipv4, Arp::InputConfigKey, Arp::InputConfigEntry)

class InputConfigVrf : public Vok::Entity {
  VOK_ENTITY(InputConfigVrf, "Arp::InputConfigVrf", ARP_INPUT_CONFIG_VRF_ATTRIBUTES)
 public:
  explicit InputConfigVrf(L3::VrfName const& name) : name_(name) {}

  // The entry of `key` in the collection of its address family; the default if absent.
  Arp::InputConfigEntry afEntry(Arp::InputConfigKey const& key) const { return isV6(key) ? ipv6(key) : ipv4(key); }
  bool afEntryHas(Arp::InputConfigKey const& key) const { return isV6(key) ? ipv6Has(key) : ipv4Has(key); }

 private:
  static bool isV6(Arp::InputConfigKey const& key) { return key.addr().af() == Lanx::AddressFamily::ipv6; }
};

#define ARP_INPUT_CONFIG_ATTRIBUTES(A)                      \
  A(orderedEntities, vrf, L3::VrfName, Arp::InputConfigVrf) \
  A(scalar, source, Arp::ArpSource)

class InputConfig : public Vok::Entity {
  VOK_ENTITY(InputConfig, "Arp::InputConfig", ARP_INPUT_CONFIG_ATTRIBUTES)
};

}  // namespace Arp
