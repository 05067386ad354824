#include "types/MlagP2p.h"

#include <fmt/format.h>

namespace MlagP2p {

std::ostream& operator<<(std::ostream& os, HostEntryKey const& k) {
  return os << '(' << k.vlanId() << ", " << k.macAddr() << ')';
}

std::ostream& operator<<(std::ostream& os, HostEntry const& e) {
  return os << fmt::format("intf={}, lastMoveTime={}, moves={}, key=", e.intf().view(), e.lastMoveTime(), e.moves())
            << e.key() << ", entryType=" << unsigned{e.entryType()};
}

}  // namespace MlagP2p
