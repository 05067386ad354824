#include "types/L2Rib.h"

#include <fmt/format.h>

#include <cstring>

#include "types/EnumText.h"

namespace L2Rib {

std::ostream& operator<<(std::ostream& os, DestId id) { return os << fmt::format("{:x}", id.value()); }

namespace {
std::string_view nameOf(DestType t) noexcept {
  switch (t) {
    case DestType::intf:
      return "intf";
    case DestType::vxlan:
      return "vxlan";
    case DestType::mpls:
      return "mpls";
    case DestType::tunnel:
      return "tunnel";
    case DestType::none:
      return "none";
  }
  return {};
}

std::string_view nameOf(FloodSetType t) noexcept {
  switch (t) {
    case FloodSetType::unknown:
      return "unknown";
    case FloodSetType::all:
      return "all";
    case FloodSetType::any:
      return "any";
  }
  return {};
}
}  // namespace

std::string_view stringValue(DestType t) noexcept { return EnumText::orUnknown(nameOf(t)); }

std::ostream& operator<<(std::ostream& os, DestType t) { return EnumText::put(os, t, nameOf(t)); }

std::string_view stringValue(FloodSetType t) noexcept { return EnumText::orUnknown(nameOf(t)); }

std::ostream& operator<<(std::ostream& os, FloodSetType t) { return EnumText::put(os, t, nameOf(t)); }

std::span<std::pair<std::uint8_t, std::string_view> const> floodSetTypeMembers() noexcept {
  static constexpr std::pair<std::uint8_t, std::string_view> members[] = {{0, "unknown"}, {1, "all"}, {2, "any"}};
  return members;
}

Brix::String Dest::stringValue() const {
  auto id = id_.value();
  switch (destType()) {
    case DestType::intf:
      return fmt::format("intf(id={:x}, intf={})", id, intf().intf().stringValue().view());
    case DestType::vxlan:
      return fmt::format("vxlan(id={:x}, intf={}, vni={}, vtepAddr={})", id, vxlan().intf().stringValue().view(),
                         vxlan().vni(), vxlan().vtepAddr().stringValue().view());
    case DestType::mpls:
      return fmt::format("mpls(id={:x}, label={}, nexthop={})", id, mpls().label(),
                         mpls().nexthop().stringValue().view());
    case DestType::tunnel:
      return fmt::format("tunnel(id={:x}, tunnelId={})", id, tunnel().tunnelId());
    case DestType::none:
      break;
  }
  return fmt::format("none(id={:x})", id);
}

namespace {
// Folds the words of a destination with one multiply each and finishes with one mix: flood
// lists hash destinations by the hundred thousand. Every field goes in.
struct Fold {
  std::uint64_t h;
  Fold& operator<<(std::uint64_t w) noexcept {
    h = (h ^ w) * 0x9e3779b97f4a7c15ull;
    return *this;
  }
  Fold& operator<<(Lanx::IpGenAddr const& a) noexcept {
    std::uint64_t hi = 0, lo = 0;
    std::memcpy(&hi, a.bytes().data(), 8);
    std::memcpy(&lo, a.bytes().data() + 8, 8);
    return *this << hi << lo << static_cast<std::uint64_t>(a.af());
  }
};
}  // namespace

std::size_t Dest::hash() const noexcept {
  Fold f{id_.value()};
  f << data_.index();
  switch (destType()) {
    case DestType::intf:
      f << intf().intf().value();
      break;
    case DestType::vxlan:
      f << vxlan().intf().value() << vxlan().vni() << vxlan().vtepAddr();
      break;
    case DestType::mpls:
      f << mpls().label() << mpls().nexthop();
      break;
    case DestType::tunnel:
      f << tunnel().tunnelId();
      break;
    case DestType::none:
      break;
  }
  return static_cast<std::size_t>(ValueHash::mix(f.h));
}

std::ostream& operator<<(std::ostream& os, Dest const& d) { return os << d.stringValue(); }

}  // namespace L2Rib
