// The records of the shared-memory tables: the FDB entry and the host learned behind a tunnel.
// They hold no pointers and no heap storage, so that they can live in shared memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>

#include "runtime/Time.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"
#include "types/Vxlan.h"

namespace Shoal {

namespace Bridging {

// A row of the switch's FDB. lastMoveTime is on this switch's monotonic clock; flags are the
// writer's and take part in equality only.
class ShoalFdbStatus {
 public:
  constexpr ShoalFdbStatus() noexcept = default;
  constexpr ShoalFdbStatus(::Bridging::HostKey const& key, Lanx::IntfId intf, Brix::Duration lastMoveTime,
                           std::uint32_t moves, ::Bridging::EntryType entryType, std::uint8_t flags = 0) noexcept
      : key_(key), intf_(intf), lastMoveTime_(lastMoveTime), moves_(moves), entryType_(entryType), flags_(flags) {}

  constexpr ::Bridging::HostKey const& key() const noexcept { return key_; }
  constexpr Lanx::IntfId intf() const noexcept { return intf_; }
  constexpr Brix::Duration lastMoveTime() const noexcept { return lastMoveTime_; }
  constexpr std::uint32_t moves() const noexcept { return moves_; }
  constexpr ::Bridging::EntryType entryType() const noexcept { return entryType_; }
  constexpr std::uint8_t flags() const noexcept { return flags_; }
  void keyIs(::Bridging::HostKey const& v) noexcept { key_ = v; }
  void intfIs(Lanx::IntfId v) noexcept { intf_ = v; }
  void lastMoveTimeIs(Brix::Duration v) noexcept { lastMoveTime_ = v; }
  void movesIs(std::uint32_t v) noexcept { moves_ = v; }
  void entryTypeIs(::Bridging::EntryType v) noexcept { entryType_ = v; }
  void flagsIs(std::uint8_t v) noexcept { flags_ = v; }

  bool isEq(ShoalFdbStatus const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept { return ValueHash::of(key_, intf_, lastMoveTime_, moves_, entryType_, flags_); }
  friend constexpr bool operator==(ShoalFdbStatus const&, ShoalFdbStatus const&) noexcept = default;

 private:
  ::Bridging::HostKey key_;
  Lanx::IntfId intf_;
  Brix::Duration lastMoveTime_ = 0.0;
  std::uint32_t moves_ = 0;
  ::Bridging::EntryType entryType_ = ::Bridging::EntryType::unknownEntry;
  std::uint8_t flags_ = 0;
};

std::ostream& operator<<(std::ostream& os, ShoalFdbStatus const& s);

}  // namespace Bridging

namespace Vxlan {

// A host learned behind a VXLAN tunnel, with the VTEP it sits behind. flags are the writer's and
// take part in equality only.
class LearnedHost {
 public:
  constexpr LearnedHost() noexcept = default;
  constexpr LearnedHost(Brix::Duration lastMoveTime, ::Vxlan::MacVlanPair const& key, Lanx::IpGenAddr const& vtepIp,
                        std::uint8_t flags = 0) noexcept
      : lastMoveTime_(lastMoveTime), key_(key), vtepIp_(vtepIp), flags_(flags) {}

  constexpr Brix::Duration lastMoveTime() const noexcept { return lastMoveTime_; }
  constexpr ::Vxlan::MacVlanPair const& key() const noexcept { return key_; }
  constexpr Lanx::IpGenAddr const& vtepIp() const noexcept { return vtepIp_; }
  constexpr std::uint8_t flags() const noexcept { return flags_; }
  void lastMoveTimeIs(Brix::Duration v) noexcept { lastMoveTime_ = v; }
  void keyIs(::Vxlan::MacVlanPair const& v) noexcept { key_ = v; }
  void vtepIpIs(Lanx::IpGenAddr const& v) noexcept { vtepIp_ = v; }
  void flagsIs(std::uint8_t v) noexcept { flags_ = v; }

  bool isEq(LearnedHost const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept { return ValueHash::of(lastMoveTime_, key_, vtepIp_, flags_); }
  friend constexpr bool operator==(LearnedHost const&, LearnedHost const&) noexcept = default;

 private:
  Brix::Duration lastMoveTime_ = 0.0;
  ::Vxlan::MacVlanPair key_;
  Lanx::IpGenAddr vtepIp_;
  std::uint8_t flags_ = 0;
};

std::ostream& operator<<(std::ostream& os, LearnedHost const& h);

}  // namespace Vxlan

}  // namespace Shoal

VALUE_TYPES_STD_HASH(Shoal::Bridging::ShoalFdbStatus);
VALUE_TYPES_STD_HASH(Shoal::Vxlan::LearnedHost);
