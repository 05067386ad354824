// Records of the VXLAN controller's status: BFD state of a VTEP and a MAC's VTEP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <utility>

#include "runtime/String.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace VxlanController {

// The BFD status of one remote VTEP, stored under its address. The two status bytes start at 3,
// not yet known; a record equal to the default counts as absent.
class BfdPeerStatusV2 {
 public:
  BfdPeerStatusV2() = default;
  BfdPeerStatusV2(Brix::String label, Lanx::IpAddr ip, std::uint8_t status = 3, std::uint8_t remoteStatus = 3)
      : label_(std::move(label)), ip_(ip), status_(status), remoteStatus_(remoteStatus) {}

  Lanx::IpAddr key() const noexcept { return ip_; }
  Brix::String const& label() const noexcept { return label_; }
  Lanx::IpAddr ip() const noexcept { return ip_; }
  std::uint8_t status() const noexcept { return status_; }
  std::uint8_t remoteStatus() const noexcept { return remoteStatus_; }
  void labelIs(Brix::String v) noexcept { label_ = std::move(v); }
  void ipIs(Lanx::IpAddr v) noexcept { ip_ = v; }
  void statusIs(std::uint8_t v) noexcept { status_ = v; }
  void remoteStatusIs(std::uint8_t v) noexcept { remoteStatus_ = v; }

  bool isEq(BfdPeerStatusV2 const& o) const noexcept { return *this == o; }
  VOK_FIELDS(label_, ip_, status_, remoteStatus_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend bool operator==(BfdPeerStatusV2 const& a, BfdPeerStatusV2 const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Brix::String label_;
  Lanx::IpAddr ip_;
  std::uint8_t status_ = 3;
  std::uint8_t remoteStatus_ = 3;
};

std::ostream& operator<<(std::ostream& os, BfdPeerStatusV2 const& s);

// The VTEP that the controller gives for a MAC, with its preference; preference 0 is invalid.
// vtepIp and seqNum are carried for the controller and take part in equality only.
class MacVtepV2 {
 public:
  constexpr MacVtepV2() noexcept = default;
  constexpr MacVtepV2(Lanx::EthAddr const& macAddr, Lanx::IpAddr vtepIp, std::uint32_t seqNum,
                      std::uint8_t preference) noexcept
      : macAddr_(macAddr), vtepIp_(vtepIp), seqNum_(seqNum), preference_(preference) {}

  constexpr Lanx::EthAddr const& macAddr() const noexcept { return macAddr_; }
  constexpr Lanx::IpAddr vtepIp() const noexcept { return vtepIp_; }
  constexpr std::uint32_t seqNum() const noexcept { return seqNum_; }
  constexpr std::uint8_t preference() const noexcept { return preference_; }
  void macAddrIs(Lanx::EthAddr const& v) noexcept { macAddr_ = v; }
  void vtepIpIs(Lanx::IpAddr v) noexcept { vtepIp_ = v; }
  void seqNumIs(std::uint32_t v) noexcept { seqNum_ = v; }
  void preferenceIs(std::uint8_t v) noexcept { preference_ = v; }

  bool isEq(MacVtepV2 const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept { return ValueHash::of(macAddr_, vtepIp_, seqNum_, preference_); }
  friend constexpr bool operator==(MacVtepV2 const&, MacVtepV2 const&) noexcept = default;

 private:
  Lanx::EthAddr macAddr_;
  Lanx::IpAddr vtepIp_;
  std::uint32_t seqNum_ = 0;
  std::uint8_t preference_ = 16;
};

std::ostream& operator<<(std::ostream& os, MacVtepV2 const& m);

}  // namespace VxlanController

VALUE_TYPES_STD_HASH(VxlanController::BfdPeerStatusV2);
VALUE_TYPES_STD_HASH(VxlanController::MacVtepV2);
