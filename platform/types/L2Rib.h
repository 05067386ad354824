// Flood-set destinations and the flood-set type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

#include "runtime/String.h"
#include "types/Lanx.h"
#include "types/ValueHash.h"

namespace L2Rib {

// The identity of a destination; all ones marks one made here rather than by a source.
class DestId {
 public:
  constexpr DestId() noexcept = default;
  constexpr explicit DestId(std::uint64_t value) noexcept : value_(value) {}
  static constexpr DestId allOnes() noexcept { return DestId(~std::uint64_t{0}); }

  constexpr std::uint64_t value() const noexcept { return value_; }
  std::size_t hash() const noexcept { return std::hash<std::uint64_t>{}(value_); }
  friend constexpr bool operator==(DestId, DestId) noexcept = default;

 private:
  std::uint64_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, DestId id);

// The kinds of destination, in the order of the alternatives of Dest.
enum class DestType : std::uint8_t {
  intf = 0,
  vxlan = 1,
  mpls = 2,
  tunnel = 3,
  none = 4,
};
std::string_view stringValue(DestType t) noexcept;
std::ostream& operator<<(std::ostream& os, DestType t);

constexpr DestType destTypeVxlan() noexcept { return DestType::vxlan; }

class DestDataIntf {
 public:
  constexpr DestDataIntf() noexcept = default;
  constexpr explicit DestDataIntf(Lanx::IntfId intf) noexcept : intf_(intf) {}
  constexpr Lanx::IntfId intf() const noexcept { return intf_; }
  VOK_FIELDS(intf_)
  std::size_t hash() const noexcept { return intf_.hash(); }
  friend constexpr bool operator==(DestDataIntf const& a, DestDataIntf const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Lanx::IntfId intf_;
};

// A VXLAN destination. Of its fields this library only reads the VTEP address; it writes the
// empty interface and a VNI of 0, which stands for the flood set's own.
class DestDataVxlan {
 public:
  constexpr DestDataVxlan() noexcept = default;
  constexpr DestDataVxlan(Lanx::IntfId intf, std::uint32_t vni, Lanx::IpGenAddr const& vtepAddr) noexcept
      : intf_(intf), vni_(vni), vtepAddr_(vtepAddr) {}
  constexpr Lanx::IntfId intf() const noexcept { return intf_; }
  constexpr std::uint32_t vni() const noexcept { return vni_; }
  constexpr Lanx::IpGenAddr const& vtepAddr() const noexcept { return vtepAddr_; }
  VOK_FIELDS(intf_, vni_, vtepAddr_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(DestDataVxlan const& a, DestDataVxlan const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  Lanx::IntfId intf_;
  std::uint32_t vni_ = 0;
  Lanx::IpGenAddr vtepAddr_;
};

class DestDataMpls {
 public:
  constexpr DestDataMpls() noexcept = default;
  constexpr DestDataMpls(std::uint32_t label, Lanx::IpGenAddr const& nexthop) noexcept
      : label_(label), nexthop_(nexthop) {}
  constexpr std::uint32_t label() const noexcept { return label_; }
  constexpr Lanx::IpGenAddr const& nexthop() const noexcept { return nexthop_; }
  VOK_FIELDS(label_, nexthop_)
  std::size_t hash() const noexcept { return ValueHash::ofFields(*this); }
  friend constexpr bool operator==(DestDataMpls const& a, DestDataMpls const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  std::uint32_t label_ = 0;
  Lanx::IpGenAddr nexthop_;
};

class DestDataTunnel {
 public:
  constexpr DestDataTunnel() noexcept = default;
  constexpr explicit DestDataTunnel(std::uint64_t tunnelId) noexcept : tunnelId_(tunnelId) {}
  constexpr std::uint64_t tunnelId() const noexcept { return tunnelId_; }
  VOK_FIELDS(tunnelId_)
  std::size_t hash() const noexcept { return std::hash<std::uint64_t>{}(tunnelId_); }
  friend constexpr bool operator==(DestDataTunnel const& a, DestDataTunnel const& b) noexcept {
    return a.vokFields() == b.vokFields();
  }

 private:
  std::uint64_t tunnelId_ = 0;
};

// A destination of a flood set: its id and the data of one kind. Reading the data of another
// kind than destType() is a programming error and throws std::bad_variant_access.
class Dest {
 public:
  Dest() = default;
  explicit Dest(DestId const& id) : id_(id) {}  // a destination of no kind
  Dest(DestId const& id, DestDataIntf const& data) : id_(id), data_(data) {}
  Dest(DestId const& id, DestDataVxlan const& data) : id_(id), data_(data) {}
  Dest(DestId const& id, DestDataMpls const& data) : id_(id), data_(data) {}
  Dest(DestId const& id, DestDataTunnel const& data) : id_(id), data_(data) {}

  DestId destId() const noexcept { return id_; }
  DestType destType() const noexcept { return static_cast<DestType>(data_.index()); }
  DestDataIntf const& intf() const { return std::get<DestDataIntf>(data_); }
  DestDataVxlan const& vxlan() const { return std::get<DestDataVxlan>(data_); }
  DestDataMpls const& mpls() const { return std::get<DestDataMpls>(data_); }
  DestDataTunnel const& tunnel() const { return std::get<DestDataTunnel>(data_); }

  // "vxlan(id=ffffffffffffffff, intf=, vni=0, vtepAddr=10.0.0.1)" and likewise for the others.
  Brix::String stringValue() const;
  std::size_t hash() const noexcept;
  friend bool operator==(Dest const&, Dest const&) = default;

 private:
  struct NoData {
    friend constexpr bool operator==(NoData, NoData) noexcept { return true; }
  };
  DestId id_;
  std::variant<DestDataIntf, DestDataVxlan, DestDataMpls, DestDataTunnel, NoData> data_{NoData{}};
};

std::ostream& operator<<(std::ostream& os, Dest const& d);

// The destination that stands for a VTEP address in a flood set: the id of all ones, and VXLAN
// data with the empty interface, VNI 0 and the address. Both directions between flood sets and
// VTEP lists make and recognise this one form.
inline Dest canonicalVxlanDest(Lanx::IpGenAddr const& vtepAddr) {
  return Dest(DestId::allOnes(), DestDataVxlan(Lanx::IntfId(), 0, vtepAddr));
}

enum class FloodSetType : std::uint8_t {
  unknown = 0,
  all = 1,  // flood to every destination
  any = 2,  // send to one destination
};
std::string_view stringValue(FloodSetType t) noexcept;
// Value and name of each member, for the ring trace's type description.
std::span<std::pair<std::uint8_t, std::string_view> const> floodSetTypeMembers() noexcept;
std::ostream& operator<<(std::ostream& os, FloodSetType t);

}  // namespace L2Rib

VALUE_TYPES_STD_HASH(L2Rib::DestId);
VALUE_TYPES_STD_HASH(L2Rib::DestDataIntf);
VALUE_TYPES_STD_HASH(L2Rib::DestDataVxlan);
VALUE_TYPES_STD_HASH(L2Rib::DestDataMpls);
VALUE_TYPES_STD_HASH(L2Rib::DestDataTunnel);
VALUE_TYPES_STD_HASH(L2Rib::Dest);
