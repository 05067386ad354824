// ARP values: the source of an entry, the published entry, and the input configuration rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace Arp {

// Who made an ARP entry, in one byte. A raw value without a name is carried as it is.
class ArpSource {
 public:
  enum class ArpSourceId : std::uint8_t {
    unknown = 0,
    dynamic = 1,       // resolved on the wire
    staticConfig = 2,  // configured
    evpn = 3,          // learned through EVPN
    vxlan = 4,         // learned behind a VXLAN tunnel
    peer = 100,        // applied from the MLAG peer's table by VRF, which carries no source
  };

  constexpr ArpSource() noexcept = default;
  constexpr ArpSource(ArpSourceId id) noexcept : id_(id) {}  // NOLINT(google-explicit-constructor)
  constexpr explicit ArpSource(std::uint8_t raw) noexcept : id_(static_cast<ArpSourceId>(raw)) {}

  constexpr ArpSourceId id() const noexcept { return id_; }
  constexpr std::uint8_t value() const noexcept { return static_cast<std::uint8_t>(id_); }
  std::size_t hash() const noexcept { return std::hash<std::uint8_t>{}(value()); }

  friend constexpr bool operator==(ArpSource, ArpSource) noexcept = default;

 private:
  ArpSourceId id_ = ArpSourceId::unknown;
};

using ArpSourceId = ArpSource::ArpSourceId;

// "unknown", "dynamic", "static", "evpn", "vxlan", "peer"; "unknown" also for a value without a
// name.
std::string_view stringValue(ArpSourceId id) noexcept;
std::ostream& operator<<(std::ostream& os, ArpSourceId id);
std::ostream& operator<<(std::ostream& os, ArpSource source);

// A published IPv4 ARP entry, stored under its own address.
class ArpEntry {
 public:
  constexpr ArpEntry() noexcept = default;
  constexpr ArpEntry(Lanx::IpAddr ipAddr, Lanx::EthAddr const& ethAddr, std::uint8_t kind = 1) noexcept
      : ipAddr_(ipAddr), ethAddr_(ethAddr), kind_(kind) {}

  constexpr Lanx::IpAddr key() const noexcept { return ipAddr_; }
  constexpr Lanx::IpAddr ipAddr() const noexcept { return ipAddr_; }
  constexpr Lanx::EthAddr const& ethAddr() const noexcept { return ethAddr_; }
  constexpr std::uint8_t kind() const noexcept { return kind_; }
  void ipAddrIs(Lanx::IpAddr v) noexcept { ipAddr_ = v; }
  void ethAddrIs(Lanx::EthAddr const& v) noexcept { ethAddr_ = v; }
  void kindIs(std::uint8_t v) noexcept { kind_ = v; }

  bool isEq(ArpEntry const& o) const noexcept { return *this == o; }
  VOK_FIELDS(ipAddr_, ethAddr_, kind_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(ArpEntry const& a, ArpEntry const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Lanx::IpAddr ipAddr_;
  Lanx::EthAddr ethAddr_;
  std::uint8_t kind_ = 1;
};

std::ostream& operator<<(std::ostream& os, ArpEntry const& e);

// An address on a VLAN interface.
class InputConfigKey {
 public:
  constexpr InputConfigKey() noexcept = default;
  constexpr InputConfigKey(Lanx::IntfId intfId, Lanx::IpGenAddr const& addr) noexcept : intfId_(intfId), addr_(addr) {}

  constexpr Lanx::IntfId intfId() const noexcept { return intfId_; }
  constexpr Lanx::IpGenAddr const& addr() const noexcept { return addr_; }

  std::size_t hash() const noexcept { return ValueHash::of(intfId_, addr_); }
  friend constexpr bool operator==(InputConfigKey const&, InputConfigKey const&) noexcept = default;

 private:
  Lanx::IntfId intfId_;
  Lanx::IpGenAddr addr_;
};

std::ostream& operator<<(std::ostream& os, InputConfigKey const& k);

// One row of the ARP input configuration. stateCode 1 means the row is not to be published;
// metric and generation are carried for the writers and take part in equality only.
class InputConfigEntry {
 public:
  static constexpr std::uint8_t stateCodeNotPublished = 1;

  constexpr InputConfigEntry() noexcept = default;
  constexpr InputConfigEntry(InputConfigKey const& key, Lanx::EthAddr const& ethAddr, std::uint8_t kind = 0,
                             std::uint8_t stateCode = 0) noexcept
      : key_(key), ethAddr_(ethAddr), kind_(kind), stateCode_(stateCode) {}

  constexpr InputConfigKey const& key() const noexcept { return key_; }
  constexpr Lanx::EthAddr const& ethAddr() const noexcept { return ethAddr_; }
  constexpr std::uint8_t kind() const noexcept { return kind_; }
  constexpr std::uint8_t stateCode() const noexcept { return stateCode_; }
  constexpr std::uint32_t metric() const noexcept { return metric_; }
  constexpr std::uint32_t generation() const noexcept { return generation_; }
  void keyIs(InputConfigKey const& v) noexcept { key_ = v; }
  void ethAddrIs(Lanx::EthAddr const& v) noexcept { ethAddr_ = v; }
  void kindIs(std::uint8_t v) noexcept { kind_ = v; }
  void stateCodeIs(std::uint8_t v) noexcept { stateCode_ = v; }
  void metricIs(std::uint32_t v) noexcept { metric_ = v; }
  void generationIs(std::uint32_t v) noexcept { generation_ = v; }

  bool isEq(InputConfigEntry const& o) const noexcept { return *this == o; }
  std::size_t hash() const noexcept { return ValueHash::of(key_, ethAddr_, kind_, stateCode_, metric_, generation_); }
  friend constexpr bool operator==(InputConfigEntry const&, InputConfigEntry const&) noexcept = default;

 private:
  InputConfigKey key_;
  Lanx::EthAddr ethAddr_;
  std::uint8_t kind_ = 0;
  std::uint8_t stateCode_ = 0;
  std::uint32_t metric_ = 0xffff;
  std::uint32_t generation_ = 0;
};

std::ostream& operator<<(std::ostream& os, InputConfigEntry const& e);

}  // namespace Arp

VALUE_TYPES_STD_HASH(Arp::ArpSource);
VALUE_TYPES_STD_HASH(Arp::ArpEntry);
VALUE_TYPES_STD_HASH(Arp::InputConfigKey);
VALUE_TYPES_STD_HASH(Arp::InputConfigEntry);
