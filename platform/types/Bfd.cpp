#include "types/Bfd.h"

#include "types/EnumText.h"

namespace Bfd {

namespace {
std::string_view nameOf(OperState s) noexcept {
  switch (s) {
    case OperState::adminDown:
      return "adminDown";
    case OperState::down:
      return "down";
    case OperState::init:
      return "init";
    case OperState::up:
      return "up";
  }
  return {};
}
}  // namespace

std::string_view stringValue(OperState s) noexcept { return EnumText::orUnknown(nameOf(s)); }

std::ostream& operator<<(std::ostream& os, OperState s) { return EnumText::put(os, s, nameOf(s)); }

std::span<std::pair<std::uint8_t, std::string_view> const> operStateMembers() noexcept {
  static constexpr std::pair<std::uint8_t, std::string_view> members[] = {
      {0, "adminDown"}, {1, "down"}, {2, "init"}, {3, "up"}};
  return members;
}

std::ostream& operator<<(std::ostream& os, Peer const& p) {
  return os << "vrf=" << p.vrf() << ", intf=" << p.intf() << ", sessionId=" << p.sessionId() << ", type=" << p.type()
            << ", ip=" << p.ip() << ", srcIp=" << p.srcIp();
}

}  // namespace Bfd
