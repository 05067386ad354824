// BFD values: the operational state of a session and the key of a BFD peer.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string_view>
#include <utility>

#include "runtime/String.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace Bfd {

enum class OperState : std::uint8_t {
  adminDown = 0,
  down = 1,
  init = 2,
  up = 3,
};
std::string_view stringValue(OperState s) noexcept;
std::ostream& operator<<(std::ostream& os, OperState s);
// The type description: every member with its value, by ascending value.
std::span<std::pair<std::uint8_t, std::string_view> const> operStateMembers() noexcept;

// A BFD peer. Only intf, type and ip are read here; the others are part of the key all the same.
class Peer {
 public:
  static constexpr std::uint32_t typeVxlanTunnel = 3;

  Peer() = default;
  Peer(Brix::String vrf, Lanx::IntfId intf, std::uint64_t sessionId, std::uint32_t type, Lanx::IpGenAddr const& ip,
       Lanx::IpGenAddr const& srcIp)
      : vrf_(std::move(vrf)), intf_(intf), sessionId_(sessionId), type_(type), ip_(ip), srcIp_(srcIp) {}

  Brix::String const& vrf() const noexcept { return vrf_; }
  Lanx::IntfId intf() const noexcept { return intf_; }
  std::uint64_t sessionId() const noexcept { return sessionId_; }
  std::uint32_t type() const noexcept { return type_; }
  Lanx::IpGenAddr const& ip() const noexcept { return ip_; }
  Lanx::IpGenAddr const& srcIp() const noexcept { return srcIp_; }

  std::size_t hash() const noexcept { return ValueHash::of(vrf_, intf_, sessionId_, type_, ip_, srcIp_); }
  friend bool operator==(Peer const&, Peer const&) noexcept = default;
  friend auto operator<=>(Peer const&, Peer const&) noexcept = default;

 private:
  Brix::String vrf_;
  Lanx::IntfId intf_;
  std::uint64_t sessionId_ = 0;
  std::uint32_t type_ = 0;
  Lanx::IpGenAddr ip_;
  Lanx::IpGenAddr srcIp_;
};

std::ostream& operator<<(std::ostream& os, Peer const& p);

}  // namespace Bfd

VALUE_TYPES_STD_HASH(Bfd::Peer);
