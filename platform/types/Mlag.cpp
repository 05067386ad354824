#include "types/Mlag.h"

#include <fmt/format.h>

#include "types/EnumText.h"

namespace Mlag {

namespace {
std::string_view nameOf(MlagState s) noexcept {
  switch (s) {
    case MlagState::disabled:
      return "disabled";
    case MlagState::inactive:
      return "inactive";
    case MlagState::negotiating:
      return "negotiating";
    case MlagState::primary:
      return "primary";
    case MlagState::secondary:
      return "secondary";
  }
  return {};
}
}  // namespace

std::string_view stringValue(MlagState s) noexcept { return EnumText::orUnknown(nameOf(s)); }

std::ostream& operator<<(std::ostream& os, MlagState s) { return EnumText::put(os, s, nameOf(s)); }

std::ostream& operator<<(std::ostream& os, VtiVtep const& v) {
  return os << '(' << v.intfId() << ", " << v.vtep() << ')';
}

Brix::String VlanIpSource::toStrep() const {
  return fmt::format("vlanId: {}, ipAddr: {}, arpSource: {}", vlanId_.value(), ipAddr_.stringValue().view(),
                     Arp::stringValue(arpSource_.id()));
}

std::ostream& operator<<(std::ostream& os, VlanIpSource const& v) { return os << v.toStrep(); }

std::ostream& operator<<(std::ostream& os, HostEntryKey const& k) {
  return os << '(' << k.vlanId() << ", " << k.macAddr() << ')';
}

std::ostream& operator<<(std::ostream& os, HostEntry const& e) {
  return os << fmt::format("intf={}, lastMoveTime={}, moves={}, key=", e.intf().view(), e.lastMoveTime(), e.moves())
            << e.key() << ", entryType=" << unsigned{e.entryType()}
            << ", hostEntryFlag=" << unsigned{e.hostEntryFlag()};
}

}  // namespace Mlag
