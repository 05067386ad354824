#include "types/Arp.h"

#include "types/EnumText.h"

namespace Arp {

namespace {
std::string_view nameOf(ArpSourceId id) noexcept {
  switch (id) {
    case ArpSourceId::unknown:
      return "unknown";
    case ArpSourceId::dynamic:
      return "dynamic";
    case ArpSourceId::staticConfig:
      return "static";
    case ArpSourceId::evpn:
      return "evpn";
    case ArpSourceId::vxlan:
      return "vxlan";
    case ArpSourceId::peer:
      return "peer";
  }
  return {};
}
}  // namespace

std::string_view stringValue(ArpSourceId id) noexcept { return EnumText::orUnknown(nameOf(id)); }

std::ostream& operator<<(std::ostream& os, ArpSourceId id) { return EnumText::put(os, id, nameOf(id)); }

std::ostream& operator<<(std::ostream& os, ArpSource source) { return os << source.id(); }

std::ostream& operator<<(std::ostream& os, ArpEntry const& e) {
  return os << "ipAddr=" << e.ipAddr() << ", ethAddr=" << e.ethAddr() << ", kind=" << unsigned{e.kind()};
}

std::ostream& operator<<(std::ostream& os, InputConfigKey const& k) {
  return os << '(' << k.intfId() << ", " << k.addr() << ')';
}

std::ostream& operator<<(std::ostream& os, InputConfigEntry const& e) {
  return os << "key=" << e.key() << ", ethAddr=" << e.ethAddr() << ", kind=" << unsigned{e.kind()}
            << ", stateCode=" << unsigned{e.stateCode()} << ", metric=" << e.metric()
            << ", generation=" << e.generation();
}

}  // namespace Arp
