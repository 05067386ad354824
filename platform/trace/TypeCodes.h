// How each value type goes into a ring record: its type code and its bytes.
//
// RingLog::TypeCode<T> has, for a value type T:
//   static constexpr char const* code;              the type code (or describe(MsgDesc&) instead)
//   static std::uint32_t size(T const&) noexcept;   bytes the value takes in the record
//   static void put(RingBuf*, T const&) noexcept;   writes exactly those bytes
//   static void text(std::string&, T const&);       optional: the text form; otherwise the
//                                                   value's stringValue(), fmt or operator<<
// A type without a TypeCode cannot be traced: the statement does not compile.
//
// An enumeration held in one byte gets its formatter from RingLog::RlFormatter<E, true>, which
// lists its members; RlFormattableInfra registers the type once per file and codes its values
// "F<type id>".
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/String.h"
#include "runtime/Time.h"
#include "trace/RingLog.h"
#include "types/Bfd.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace RingLog {

template <class T>
struct TypeCode;

template <class T>
struct FixedCode {
  static constexpr std::uint32_t size(T const&) noexcept { return sizeof(T); }
  static void put(RingBuf* rb, T const& v) noexcept { rb->putRaw(v); }
};

template <>
struct TypeCode<std::uint16_t> : FixedCode<std::uint16_t> {
  static constexpr char const* code = "s";
};
template <>
struct TypeCode<std::uint32_t> : FixedCode<std::uint32_t> {
  static constexpr char const* code = "i";
};
template <>
struct TypeCode<std::uint8_t> : FixedCode<std::uint8_t> {
  static constexpr char const* code = "u";
};
template <>
struct TypeCode<Brix::Duration> : FixedCode<Brix::Duration> {
  static constexpr char const* code = "d";
};
template <>
struct TypeCode<bool> {
  static constexpr char const* code = "b";
  static constexpr std::uint32_t size(bool) noexcept { return 1; }
  static void put(RingBuf* rb, bool v) noexcept { rb->putRaw(static_cast<std::uint8_t>(v)); }
  static void text(std::string& out, bool v) { out += v ? "true" : "false"; }
};

// Text, through RingLog::put.
template <>
struct TypeCode<std::string_view> {
  static constexpr char const* code = "p";
  static std::uint32_t size(std::string_view v) noexcept { return textBytes(v.size()); }
  static void put(RingBuf* rb, std::string_view v) noexcept { RingLog::put(rb, v); }
  static void text(std::string& out, std::string_view v) { out += v; }
};
template <>
struct TypeCode<std::string> : TypeCode<std::string_view> {};
template <>
struct TypeCode<char const*> {
  static constexpr char const* code = "p";
  static std::uint32_t size(char const* v) noexcept { return textBytes(v ? std::strlen(v) : 0); }
  static void put(RingBuf* rb, char const* v) noexcept { RingLog::put(rb, v); }
  static void text(std::string& out, char const* v) { out += v ? v : ""; }
};
template <>
struct TypeCode<char*> : TypeCode<char const*> {};
template <>
struct TypeCode<Brix::String> {
  static constexpr char const* code = "p";
  static std::uint32_t size(Brix::String const& v) noexcept { return textBytes(v.size()); }
  static void put(RingBuf* rb, Brix::String const& v) noexcept { RingLog::put(rb, v.view()); }
  static void text(std::string& out, Brix::String const& v) { out += v.view(); }
};
template <std::size_t N>
struct TypeCode<Brix::BoundedString<N>> {
  static constexpr char const* code = "p";
  static std::uint32_t size(Brix::BoundedString<N> const& v) noexcept { return textBytes(v.size()); }
  static void put(RingBuf* rb, Brix::BoundedString<N> const& v) noexcept { RingLog::put(rb, v.view()); }
  static void text(std::string& out, Brix::BoundedString<N> const& v) { out += v.view(); }
};

// ---- enumerations with a formatter of their own ----

template <class T, bool = std::is_enum_v<T>>
struct RlFormatter;

template <class E>
using RlMember = std::pair<E, char const*>;

// The type string of a one-byte enumeration: "E", "%hhu", then for each member by ascending
// value "value|name:"; a value under two names is written once, with the first of them.
// `members` is the enumeration's type description: pairs of value and name.
template <class R>
void formatEnumTypeStr(MsgFormatString& s, R const& members) {
  std::vector<std::pair<unsigned, std::string_view>> m;
  m.reserve(std::size(members));
  for (auto const& [value, name] : members) {
    m.emplace_back(static_cast<unsigned>(value), std::string_view(name));
  }
  std::stable_sort(m.begin(), m.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
  s.put("E");
  s.put("%hhu");
  for (std::size_t i = 0; i < m.size(); ++i) {
    if (i > 0 && m[i].first == m[i - 1].first) continue;
    s.put(fmt::format("{}|", m[i].first));
    s.put(fmt::format("{}:", m[i].second));
  }
}

// RlFormatter<E, true> has members(), the type description, and formatTypeStr(MsgFormatString&).
template <class T>
concept RlFormattable = requires(MsgFormatString& s) {
  RlFormatter<T, true>::members();
  RlFormatter<T, true>::formatTypeStr(s);
};

template <class T>
struct RlFormattableInfra {
  static inline int typeId = 0;

  // Registers the type in `file` once, with the format "{}", and returns the statement's code.
  static std::string initializeFormattable(TraceFile* file) {
    std::atomic_ref<int> id(typeId);
    if (id.load(std::memory_order_relaxed) == 0) {
      int expected = 0;
      id.compare_exchange_strong(expected, newTypeId());
    }
    if (!file->knowsType(id.load())) {
      MsgFormatString s;
      RlFormatter<T, true>::formatTypeStr(s);
      file->describeType(id.load(), "{}", s.text());
    }
    return fmt::format("F{}", id.load());
  }
};

template <RlFormattable T>
struct TypeCode<T> {
  static void describe(MsgDesc& d) { d.code(RlFormattableInfra<T>::initializeFormattable(d.file())); }
  static constexpr std::uint32_t size(T) noexcept { return 1; }
  static void put(RingBuf* rb, T v) noexcept { rb->putRaw(static_cast<std::uint8_t>(v)); }
  static void text(std::string& out, T v) {
    for (auto const& [value, name] : RlFormatter<T, true>::members()) {
      if (static_cast<unsigned>(value) == static_cast<unsigned>(v)) {
        out += name;
        return;
      }
    }
    out += std::to_string(static_cast<unsigned>(v));
  }
};

// ---- the platform's value types ----

template <>
struct TypeCode<Lanx::EthAddr> {
  static constexpr char const* code = "E";
  static constexpr std::uint32_t size(Lanx::EthAddr const&) noexcept { return 6; }
  static void put(RingBuf* rb, Lanx::EthAddr const& v) noexcept { rb->putRaw(v.words()); }
};
template <>
struct TypeCode<Lanx::IpAddr> {
  static constexpr char const* code = "I";
  static constexpr std::uint32_t size(Lanx::IpAddr) noexcept { return 4; }
  static void put(RingBuf* rb, Lanx::IpAddr v) noexcept { rb->putRaw(v.bytes()); }  // address order
};
template <>
struct TypeCode<Lanx::Ip6Addr> {
  static constexpr char const* code = "I6";
  static constexpr std::uint32_t size(Lanx::Ip6Addr const&) noexcept { return 16; }
  static void put(RingBuf* rb, Lanx::Ip6Addr const& v) noexcept { rb->putRaw(v.bytes()); }
};
// The family byte, then the address of an IPv4 or IPv6 family; of another family nothing.
template <>
struct TypeCode<Lanx::IpGenAddr> {
  static constexpr char const* code = "IGO";
  static constexpr std::uint32_t size(Lanx::IpGenAddr const& v) noexcept { return 1 + addrBytes(v); }
  static void put(RingBuf* rb, Lanx::IpGenAddr const& v) noexcept {
    rb->putRaw(static_cast<std::uint8_t>(v.af()));
    rb->putBytes(v.bytes().data(), addrBytes(v));
  }
  static constexpr std::uint32_t addrBytes(Lanx::IpGenAddr const& v) noexcept {
    return v.isV4() ? 4 : v.isV6() ? 16 : 0;
  }
};

// 16-bit and 32-bit numbers; their text is the number, "none" included, as the decoder gives it.
template <class T, class Raw>
struct NumberCode {
  static constexpr std::uint32_t size(T) noexcept { return sizeof(Raw); }
  static void put(RingBuf* rb, T v) noexcept { rb->putRaw(static_cast<Raw>(v.value())); }
  static void text(std::string& out, T v) { fmt::format_to(std::back_inserter(out), "{}", v.value()); }
};
template <>
struct TypeCode<Bridging::VlanId> : NumberCode<Bridging::VlanId, std::uint16_t> {
  static constexpr char const* code = "s";
};
template <>
struct TypeCode<Bridging::VlanIdOrNone> : NumberCode<Bridging::VlanIdOrNone, std::uint16_t> {
  static constexpr char const* code = "s";
};
template <>
struct TypeCode<Bridging::ExtendedVlanId> : NumberCode<Bridging::ExtendedVlanId, std::uint16_t> {
  static constexpr char const* code = "s";
};
template <>
struct TypeCode<Vxlan::VniExt> : NumberCode<Vxlan::VniExt, std::uint32_t> {
  static constexpr char const* code = "i";
};
template <>
struct TypeCode<Vxlan::VniExtOrNone> : NumberCode<Vxlan::VniExtOrNone, std::uint32_t> {
  static constexpr char const* code = "i";
};

template <>
struct TypeCode<L3::VrfName> {
  static constexpr char const* code = "p";
  static std::uint32_t size(L3::VrfName const& v) noexcept { return textBytes(v.size()); }
  static void put(RingBuf* rb, L3::VrfName const& v) noexcept { RingLog::put(rb, v.view()); }
  static void text(std::string& out, L3::VrfName const& v) { out += v.view(); }
};

// A MAC address and a VLAN, MAC first.
template <>
struct TypeCode<Bridging::HostKey> {
  static constexpr char const* code = "MV";
  static constexpr std::uint32_t size(Bridging::HostKey const&) noexcept { return 8; }
  static void put(RingBuf* rb, Bridging::HostKey const& v) noexcept {
    TypeCode<Lanx::EthAddr>::put(rb, v.addr());
    rb->putRaw(v.vlanId().value());
  }
};
template <>
struct TypeCode<Vxlan::MacVlanPair> {
  static constexpr char const* code = "MVP";
  static constexpr std::uint32_t size(Vxlan::MacVlanPair const&) noexcept { return 8; }
  static void put(RingBuf* rb, Vxlan::MacVlanPair const& v) noexcept {
    TypeCode<Lanx::EthAddr>::put(rb, v.mac());
    rb->putRaw(v.vlanId().value());
  }
};
template <>
struct TypeCode<Vxlan::VlanIpPair> {
  static constexpr char const* code = "VIPO";
  static constexpr std::uint32_t size(Vxlan::VlanIpPair const& v) noexcept {
    return 2 + TypeCode<Lanx::IpGenAddr>::size(v.ipAddr());
  }
  static void put(RingBuf* rb, Vxlan::VlanIpPair const& v) noexcept {
    rb->putRaw(v.vlanId());
    TypeCode<Lanx::IpGenAddr>::put(rb, v.ipAddr());
  }
};
// A published ARP row's key: VLAN, address, source byte. Its text is the key's own text form, made
// only for a text line or by the decoder, never on the way into the ring.
template <>
struct TypeCode<Mlag::VlanIpSource> {
  static constexpr char const* code = "VIS";
  static constexpr std::uint32_t size(Mlag::VlanIpSource const& v) noexcept {
    return 2 + TypeCode<Lanx::IpGenAddr>::size(v.ipAddr()) + 1;
  }
  static void put(RingBuf* rb, Mlag::VlanIpSource const& v) noexcept {
    rb->putRaw(v.vlanId().value());
    TypeCode<Lanx::IpGenAddr>::put(rb, v.ipAddr());
    rb->putRaw(v.arpSource().value());
  }
  static void text(std::string& out, Mlag::VlanIpSource const& v) { out += v.toStrep().view(); }
};
// Interface name, source, VNI, flags. The interface goes by its name, which is made here: the
// one value whose ring part formats.
template <>
struct TypeCode<Vxlan::VniSourcePair> {
  static constexpr char const* code = "VSP";
  static std::uint32_t size(Vxlan::VniSourcePair const& v) noexcept {
    return textBytes(v.intfId().stringValue().size()) + textBytes(v.source().size()) + 4 + 1;
  }
  static void put(RingBuf* rb, Vxlan::VniSourcePair const& v) noexcept {
    RingLog::put(rb, v.intfId().stringValue().view());
    RingLog::put(rb, v.source().view());
    rb->putRaw(v.vni().value());
    rb->putRaw(v.flags());
  }
};

// The controller's record of a MAC: MAC, VTEP address, sequence number, preference.
template <>
struct TypeCode<VxlanController::MacVtepV2> {
  static constexpr char const* code = "MVT";
  static constexpr std::uint32_t size(VxlanController::MacVtepV2 const&) noexcept { return 6 + 4 + 4 + 1; }
  static void put(RingBuf* rb, VxlanController::MacVtepV2 const& v) noexcept {
    TypeCode<Lanx::EthAddr>::put(rb, v.macAddr());
    TypeCode<Lanx::IpAddr>::put(rb, v.vtepIp());
    rb->putRaw(v.seqNum());
    rb->putRaw(v.preference());
  }
};

// A flood-set destination: id, kind, then the data of that kind. An interface goes by its name,
// which is made only when it is not the empty one: destinations made here have none.
template <>
struct TypeCode<L2Rib::Dest> {
  static constexpr char const* code = "D";
  static std::uint32_t size(L2Rib::Dest const& v) noexcept {
    std::uint32_t n = 8 + 1;
    switch (v.destType()) {
      case L2Rib::DestType::intf:
        return n + intfBytes(v.intf().intf());
      case L2Rib::DestType::vxlan:
        return n + intfBytes(v.vxlan().intf()) + 4 + TypeCode<Lanx::IpGenAddr>::size(v.vxlan().vtepAddr());
      case L2Rib::DestType::mpls:
        return n + 4 + TypeCode<Lanx::IpGenAddr>::size(v.mpls().nexthop());
      case L2Rib::DestType::tunnel:
        return n + 8;
      case L2Rib::DestType::none:
        break;
    }
    return n;
  }
  static void put(RingBuf* rb, L2Rib::Dest const& v) noexcept {
    rb->putRaw(v.destId().value());
    rb->putRaw(static_cast<std::uint8_t>(v.destType()));
    switch (v.destType()) {
      case L2Rib::DestType::intf:
        putIntf(rb, v.intf().intf());
        return;
      case L2Rib::DestType::vxlan:
        putIntf(rb, v.vxlan().intf());
        rb->putRaw(v.vxlan().vni());
        TypeCode<Lanx::IpGenAddr>::put(rb, v.vxlan().vtepAddr());
        return;
      case L2Rib::DestType::mpls:
        rb->putRaw(v.mpls().label());
        TypeCode<Lanx::IpGenAddr>::put(rb, v.mpls().nexthop());
        return;
      case L2Rib::DestType::tunnel:
        rb->putRaw(v.tunnel().tunnelId());
        return;
      case L2Rib::DestType::none:
        return;
    }
  }

 private:
  static std::uint32_t intfBytes(Lanx::IntfId intf) noexcept {
    return textBytes(intf.isEmpty() ? 0 : intf.stringValue().size());
  }
  static void putIntf(RingBuf* rb, Lanx::IntfId intf) noexcept {
    if (intf.isEmpty()) {
      RingLog::put(rb, std::string_view(""));
    } else {
      RingLog::put(rb, intf.stringValue().view());
    }
  }
};

template <>
struct RlFormatter<L2Rib::FloodSetType, true> {
  static auto members() noexcept { return L2Rib::floodSetTypeMembers(); }
  static void formatTypeStr(MsgFormatString& s) { formatEnumTypeStr(s, members()); }
};
template <>
struct RlFormatter<Vxlan::BumVtepIpListType, true> {
  static auto members() noexcept { return Vxlan::bumVtepIpListTypeMembers(); }
  static void formatTypeStr(MsgFormatString& s) { formatEnumTypeStr(s, members()); }
};
template <>
struct RlFormatter<Bfd::OperState, true> {
  static auto members() noexcept { return Bfd::operStateMembers(); }
  static void formatTypeStr(MsgFormatString& s) { formatEnumTypeStr(s, members()); }
};
template <>
struct RlFormatter<Lanx::AddressFamily, true> {
  static auto members() noexcept { return Lanx::addressFamilyMembers(); }
  static void formatTypeStr(MsgFormatString& s) { formatEnumTypeStr(s, members()); }
};

// ---- what a statement does with each value ----

template <class T>
using TypeCodeOf = TypeCode<std::decay_t<T>>;

template <class T>
void describeValue(MsgDesc& d) {
  if constexpr (requires { TypeCodeOf<T>::describe(d); }) {
    TypeCodeOf<T>::describe(d);
  } else {
    d.code(TypeCodeOf<T>::code);
  }
}

template <class T>
concept HasStringValue = requires(T const& v) {
  { v.stringValue() } -> std::convertible_to<Brix::String>;
};

template <class T>
void appendText(std::string& out, T const& v) {
  using C = TypeCodeOf<T>;
  if constexpr (requires { C::text(out, v); }) {
    C::text(out, v);
  } else if constexpr (HasStringValue<T>) {
    out += Brix::String(v.stringValue()).view();
  } else if constexpr (fmt::is_formattable<T>::value) {
    fmt::format_to(std::back_inserter(out), "{}", v);
  } else if constexpr (requires(std::ostream & os) { os << v; }) {
    std::ostringstream os;
    os << v;
    out += os.view();
  } else {
    static_assert(sizeof(T) == 0, "a traced value needs a text form");
  }
}

}  // namespace RingLog
