#include "types/Vxlan.h"

#include "types/EnumText.h"

namespace Vxlan {

std::ostream& operator<<(std::ostream& os, VniExt v) { return os << v.value(); }

std::ostream& operator<<(std::ostream& os, VniExtOrNone v) {
  if (v.isNone()) return os << "none";
  return os << v.value();
}

std::ostream& operator<<(std::ostream& os, MacVlanPair const& v) {
  return os << '(' << v.mac() << ", " << v.vlanId() << ')';
}

std::ostream& operator<<(std::ostream& os, VlanIpPair const& v) {
  return os << '(' << v.vlanId() << ", " << v.ipAddr() << ')';
}

std::ostream& operator<<(std::ostream& os, VniVtiPair const& v) {
  return os << '(' << v.intfId() << ", " << v.vni() << ')';
}

// As the publication trace tells a mapping: VNI, interface, source. Flags, which no trace
// names, follow only when set, so that a dump of the entity still shows them.
std::ostream& operator<<(std::ostream& os, VniSourcePair const& v) {
  os << '(' << v.vni() << ", " << v.intfId() << ", " << v.source();
  if (v.flags() != 0) os << ", flags=" << unsigned{v.flags()};
  return os << ')';
}

namespace {
std::string_view nameOf(VtepType t) noexcept {
  switch (t) {
    case VtepType::unknownVtep:
      return "unknownVtep";
    case VtepType::localVtep:
      return "localVtep";
    case VtepType::alternateVtep:
      return "alternateVtep";
    case VtepType::mlagVtep:
      return "mlagVtep";
  }
  return {};
}
}  // namespace

std::string_view stringValue(VtepType t) noexcept { return EnumText::orUnknown(nameOf(t)); }

std::ostream& operator<<(std::ostream& os, VtepType t) { return EnumText::put(os, t, nameOf(t)); }

namespace {
std::string_view nameOf(VniSource s) noexcept {
  switch (s) {
    case VniSource::unknownSource:
      return "unknown";
    case VniSource::staticSource:
      return "static";
    case VniSource::controllerSource:
      return "controller";
    case VniSource::evpnSource:
      return "evpn";
    case VniSource::mlagSource:
      return "mlag";
  }
  return {};
}
}  // namespace

std::string_view stringValue(VniSource s) noexcept { return EnumText::orUnknown(nameOf(s)); }

std::ostream& operator<<(std::ostream& os, VniSource s) { return EnumText::put(os, s, nameOf(s)); }

namespace {
std::string_view nameOf(BumVtepIpListType t) noexcept {
  switch (t) {
    case BumVtepIpListType::all:
      return "all";
    case BumVtepIpListType::any:
      return "any";
  }
  return {};
}
}  // namespace

std::string_view stringValue(BumVtepIpListType t) noexcept { return EnumText::orUnknown(nameOf(t)); }

std::ostream& operator<<(std::ostream& os, BumVtepIpListType t) { return EnumText::put(os, t, nameOf(t)); }

std::span<std::pair<std::uint8_t, std::string_view> const> bumVtepIpListTypeMembers() noexcept {
  static constexpr std::pair<std::uint8_t, std::string_view> members[] = {{0, "all"}, {1, "any"}};
  return members;
}

namespace {
std::string_view nameOf(BumReplicationMode m) noexcept {
  switch (m) {
    case BumReplicationMode::none:
      return "none";
    case BumReplicationMode::multicast:
      return "multicast";
    case BumReplicationMode::hybrid:
      return "hybrid";
    case BumReplicationMode::headend:
      return "headend";
  }
  return {};
}
}  // namespace

std::string_view stringValue(BumReplicationMode m) noexcept { return EnumText::orUnknown(nameOf(m)); }

std::ostream& operator<<(std::ostream& os, BumReplicationMode m) { return EnumText::put(os, m, nameOf(m)); }

}  // namespace Vxlan

constinit Lanx::IntfId const Vxlan1{"Vxlan1"};
