#include "types/Shoal.h"

#include <fmt/format.h>

namespace Shoal {

namespace Bridging {

std::ostream& operator<<(std::ostream& os, ShoalFdbStatus const& s) {
  return os << "key=" << s.key() << ", intf=" << s.intf() << fmt::format(", lastMoveTime={}", s.lastMoveTime())
            << ", moves=" << s.moves() << ", entryType=" << s.entryType() << ", flags=" << unsigned{s.flags()};
}

}  // namespace Bridging

namespace Vxlan {

std::ostream& operator<<(std::ostream& os, LearnedHost const& h) {
  return os << fmt::format("lastMoveTime={}", h.lastMoveTime()) << ", key=" << h.key() << ", vtepIp=" << h.vtepIp()
            << ", flags=" << unsigned{h.flags()};
}

}  // namespace Vxlan

}  // namespace Shoal
