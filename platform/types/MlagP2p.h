// The host table record exchanged with the MLAG peer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <utility>

#include "runtime/String.h"
#include "runtime/Time.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace MlagP2p {

class HostEntryKey {
 public:
  constexpr HostEntryKey() noexcept = default;
  constexpr HostEntryKey(std::uint16_t vlanId, Lanx::EthAddr const& macAddr) noexcept
      : vlanId_(vlanId), macAddr_(macAddr) {}

  constexpr std::uint16_t vlanId() const noexcept { return vlanId_; }
  constexpr Lanx::EthAddr const& macAddr() const noexcept { return macAddr_; }

  VOK_FIELDS(vlanId_, macAddr_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(HostEntryKey const& a, HostEntryKey const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  std::uint16_t vlanId_ = 0;
  Lanx::EthAddr macAddr_;
};

std::ostream& operator<<(std::ostream& os, HostEntryKey const& k);

// A row of the host table sent to the peer. intf holds the encoded interface: the interface
// name, ":" and the VTEP address, and for a controller entry ":" and the preference as well.
class HostEntry {
 public:
  HostEntry() = default;
  HostEntry(Brix::String intf, Brix::Duration lastMoveTime, std::uint32_t moves, HostEntryKey const& key,
            std::uint8_t entryType)
      : intf_(std::move(intf)), lastMoveTime_(lastMoveTime), moves_(moves), key_(key), entryType_(entryType) {}

  Brix::String const& intf() const noexcept { return intf_; }
  Brix::Duration lastMoveTime() const noexcept { return lastMoveTime_; }
  std::uint32_t moves() const noexcept { return moves_; }
  HostEntryKey const& key() const noexcept { return key_; }
  std::uint8_t entryType() const noexcept { return entryType_; }
  void intfIs(Brix::String v) noexcept { intf_ = std::move(v); }
  void lastMoveTimeIs(Brix::Duration v) noexcept { lastMoveTime_ = v; }
  void movesIs(std::uint32_t v) noexcept { moves_ = v; }
  void keyIs(HostEntryKey const& v) noexcept { key_ = v; }
  void entryTypeIs(std::uint8_t v) noexcept { entryType_ = v; }

  bool isEq(HostEntry const& o) const noexcept { return *this == o; }
  VOK_FIELDS(intf_, lastMoveTime_, moves_, key_, entryType_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend bool operator==(HostEntry const& a, HostEntry const& b) noexcept { return a.vokFields() == b.vokFields(); }

 private:
  Brix::String intf_;
  Brix::Duration lastMoveTime_ = 0.0;
  std::uint32_t moves_ = 0;
  HostEntryKey key_;
  std::uint8_t entryType_ = 0;
};

std::ostream& operator<<(std::ostream& os, HostEntry const& e);

}  // namespace MlagP2p

VALUE_TYPES_STD_HASH(MlagP2p::HostEntryKey);
VALUE_TYPES_STD_HASH(MlagP2p::HostEntry);
