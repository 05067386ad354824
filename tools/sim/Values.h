// Values read from a scenario's YAML: one readValue overload per value type that a scenario
// can write, each with a message that says what was expected. A type without an overload
// cannot be written yet; expectations on it compare its text form as written.
#pragma once

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Dump.h"
#include "runtime/String.h"
#include "runtime/Time.h"
#include "types/Arp.h"
#include "types/Bfd.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/MlagP2p.h"
#include "types/Shoal.h"
#include "types/Swix.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace Sim {

namespace ValuesImpl {

inline bool scalar(YAML::Node const& n, std::string& s, std::string& error) {
  if (!n.IsScalar()) {
    error = "expected a single value here";
    return false;
  }
  s = n.Scalar();
  return true;
}

// A decimal number within [lo, hi].
inline bool number(std::string_view s, std::uint64_t lo, std::uint64_t hi, std::uint64_t& out) {
  if (s.empty()) return false;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && end == s.data() + s.size() && out >= lo && out <= hi;
}

template <class T, class Parse>
bool address(YAML::Node const& n, T& out, std::string& error, char const* what, Parse parse) {
  std::string s;
  if (!scalar(n, s, error)) return false;
  try {
    out = parse(s);
    return true;
  } catch (Lanx::AddressParseException const&) {
    error = "'" + s + "' is not " + what;
    return false;
  }
}

}  // namespace ValuesImpl

inline bool readValue(YAML::Node const& n, bool& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s == "true" || s == "yes" || s == "on") {
    out = true;
  } else if (s == "false" || s == "no" || s == "off") {
    out = false;
  } else {
    error = "'" + s + "' is not true or false";
    return false;
  }
  return true;
}

template <class T>
requires(std::is_integral_v<T> && !std::is_same_v<T, bool> &&
         std::is_unsigned_v<T>) bool readValue(YAML::Node const& n, T& out, std::string& error) {
  std::string s;
  std::uint64_t v = 0;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (!ValuesImpl::number(s, 0, std::numeric_limits<T>::max(), v)) {
    error = "'" + s + "' is not a number from 0 to " + std::to_string(std::numeric_limits<T>::max());
    return false;
  }
  out = static_cast<T>(v);
  return true;
}

// Seconds.
inline bool readValue(YAML::Node const& n, double& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s == "never") {
    out = Brix::never;
    return true;
  }
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  if (ec != std::errc() || end != s.data() + s.size()) {
    error = "'" + s + "' is not a number";
    return false;
  }
  return true;
}

// An enumeration by its member's name or by number.
template <class E>
requires(std::is_enum_v<E>&& requires(std::ostream& os, E e) { os << e; }) bool readValue(YAML::Node const& n, E& out,
                                                                                          std::string& error) {
  using U = std::underlying_type_t<E>;
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  std::string names;
  constexpr unsigned last = std::min<unsigned>(255, std::numeric_limits<U>::max());
  for (unsigned i = 0; i <= last; ++i) {
    std::string name = text(static_cast<E>(i));
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) continue;  // no member of this value
    if (name == s) {
      out = static_cast<E>(i);
      return true;
    }
    names += (names.empty() ? "" : ", ") + name;
  }
  std::uint64_t v = 0;
  if (ValuesImpl::number(s, 0, std::numeric_limits<U>::max(), v)) {
    out = static_cast<E>(v);
    return true;
  }
  error = "'" + s + "' is not one of " + names + ", nor a number";
  return false;
}

inline bool readValue(YAML::Node const& n, Brix::String& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  out = Brix::String(s);
  return true;
}

inline bool readValue(YAML::Node const& n, L3::VrfName& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s.empty() || s.size() > L3::VrfName::maxLength()) {
    error = "a VRF name has 1 to " + std::to_string(L3::VrfName::maxLength()) + " characters";
    return false;
  }
  out = L3::VrfName(s);
  return true;
}

inline bool readValue(YAML::Node const& n, Lanx::IntfId& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s.empty()) {
    error = "an interface needs a name, such as Vxlan1";
    return false;
  }
  out = Lanx::IntfId(s);
  return true;
}

bool readValue(YAML::Node const& n, Swix::FString& out, std::string& error);

inline bool readValue(YAML::Node const& n, Lanx::IpAddr& out, std::string& error) {
  return ValuesImpl::address(n, out, error, "an IPv4 address",
                             [](std::string_view s) { return Lanx::IpAddr::parse(s); });
}
inline bool readValue(YAML::Node const& n, Lanx::Ip6Addr& out, std::string& error) {
  return ValuesImpl::address(n, out, error, "an IPv6 address",
                             [](std::string_view s) { return Lanx::Ip6Addr::parse(s); });
}
inline bool readValue(YAML::Node const& n, Lanx::IpGenAddr& out, std::string& error) {
  return ValuesImpl::address(n, out, error, "an IP address",
                             [](std::string_view s) { return Lanx::IpGenAddr::parse(s); });
}
inline bool readValue(YAML::Node const& n, Lanx::EthAddr& out, std::string& error) {
  return ValuesImpl::address(n, out, error, "a MAC address",
                             [](std::string_view s) { return Lanx::EthAddr::parse(s); });
}

inline bool readValue(YAML::Node const& n, Bridging::VlanId& out, std::string& error) {
  std::string s;
  std::uint64_t v = 0;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (!ValuesImpl::number(s, Bridging::VlanId::min, Bridging::VlanId::max, v)) {
    error = "'" + s + "' is not a VLAN from 1 to 4094";
    return false;
  }
  out = Bridging::VlanId(v);
  return true;
}

inline bool readValue(YAML::Node const& n, Bridging::VlanIdOrNone& out, std::string& error) {
  std::string s;
  std::uint64_t v = 0;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s == "none") {
    out = Bridging::VlanIdOrNone();
    return true;
  }
  if (!ValuesImpl::number(s, 0, Bridging::VlanIdOrNone::max, v)) {
    error = "'" + s + "' is not a VLAN from 1 to 4094, nor none";
    return false;
  }
  out = Bridging::VlanIdOrNone(v);
  return true;
}

// VLAN 0 means no VLAN, which a scenario says by deleting.
inline bool readValue(YAML::Node const& n, Bridging::ExtendedVlanId& out, std::string& error) {
  std::string s;
  std::uint64_t v = 0;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (!ValuesImpl::number(s, 1, 0xffff, v)) {
    error = "'" + s + "' is not a VLAN from 1 to 65535 (extended VLANs lie above 4094)";
    return false;
  }
  out = Bridging::ExtendedVlanId(static_cast<std::uint16_t>(v));
  return true;
}

inline bool readValue(YAML::Node const& n, Vxlan::VniExt& out, std::string& error) {
  std::string s;
  std::uint64_t v = 0;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (!ValuesImpl::number(s, Vxlan::VniExt::min, Vxlan::VniExt::max, v)) {
    error = "'" + s + "' is not a VNI from 0 to 4294967294";
    return false;
  }
  out = Vxlan::VniExt(v);
  return true;
}

inline bool readValue(YAML::Node const& n, Vxlan::VniExtOrNone& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s == "none") {
    out = Vxlan::VniExtOrNone();
    return true;
  }
  Vxlan::VniExt v;
  if (!readValue(n, v, error)) {
    error += ", nor none";
    return false;
  }
  out = v;
  return true;
}

// "10010/Vxlan1": the VNI, then the VTI.
inline bool readValue(YAML::Node const& n, Vxlan::VniVtiPair& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  auto slash = s.find('/');
  std::uint64_t vni = 0;
  if (slash == std::string::npos || slash + 1 == s.size() ||
      !ValuesImpl::number(std::string_view(s).substr(0, slash), Vxlan::VniExt::min, Vxlan::VniExt::max, vni)) {
    error = "'" + s + "' is not a VNI and a VTI, such as 10010/Vxlan1";
    return false;
  }
  out = Vxlan::VniVtiPair(Vxlan::VniExt(vni), Lanx::IntfId(s.substr(slash + 1)));
  return true;
}

// A VLAN's mapping: a VNI alone (source "static"), or {vni: 10010, source: static, intf: Vxlan1,
// flags: 0}. A mapping always has a VNI: VNI none stands only for no mapping, which the
// library cannot take as a mapping.
inline bool readValue(YAML::Node const& n, Vxlan::VniSourcePair& out, std::string& error) {
  Vxlan::VniExt vni;
  Brix::String source = "static";
  Lanx::IntfId intf;
  std::uint8_t flags = 0;
  if (n.IsScalar()) {
    if (!readValue(n, vni, error)) return false;
  } else if (n.IsMap()) {
    if (!n["vni"]) {
      error = "a mapping needs a vni (VNI none is no mapping: delete the VLAN with ~ instead)";
      return false;
    }
    for (auto const& kv : n) {
      std::string key = kv.first.Scalar();
      bool ok = key == "vni"      ? readValue(kv.second, vni, error)
                : key == "source" ? readValue(kv.second, source, error)
                : key == "intf"   ? readValue(kv.second, intf, error)
                : key == "flags"
                    ? readValue(kv.second, flags, error)
                    : (error = "unknown field '" + key + "' of a mapping (vni, source, intf, flags)", false);
      if (!ok) return false;
    }
  } else {
    error = "expected a VNI or a mapping such as {vni: 10010, source: static}";
    return false;
  }
  out = Vxlan::VniSourcePair(intf, source, vni, flags);
  return true;
}

// "00:11:22:33:44:55/10": a MAC and its VLAN, in that order whatever the key type's own order.
template <class K>
requires(std::is_same_v<K, Bridging::HostKey> || std::is_same_v<K, Vxlan::MacVlanPair> ||
         std::is_same_v<K, Mlag::HostEntryKey> ||
         std::is_same_v<K, MlagP2p::HostEntryKey>) bool readValue(YAML::Node const& n, K& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  auto slash = s.rfind('/');
  std::uint64_t vlan = 0;
  if (slash == std::string::npos ||
      !ValuesImpl::number(std::string_view(s).substr(slash + 1), Bridging::VlanId::min, Bridging::VlanId::max, vlan)) {
    error = "'" + s + "' is not a MAC and a VLAN from 1 to 4094, such as 00:11:22:33:44:55/10";
    return false;
  }
  Lanx::EthAddr mac;
  if (!readValue(YAML::Node(s.substr(0, slash)), mac, error)) return false;
  auto const v = static_cast<std::uint16_t>(vlan);
  if constexpr (std::is_same_v<K, Bridging::HostKey>) {
    out = K(Bridging::VlanId(v), mac);
  } else if constexpr (std::is_same_v<K, Vxlan::MacVlanPair>) {
    out = K(mac, Bridging::VlanId(v));
  } else {
    out = K(v, mac);
  }
  return true;
}

// "10.0.0.5/Vlan10": an address on a VLAN interface, the key of an ARP input row.
inline bool readValue(YAML::Node const& n, Arp::InputConfigKey& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  auto slash = s.find('/');
  if (slash == std::string::npos || slash + 1 == s.size()) {
    error = "'" + s + "' is not an address on an interface, such as 10.0.0.5/Vlan10";
    return false;
  }
  Lanx::IpGenAddr addr;
  if (!readValue(YAML::Node(s.substr(0, slash)), addr, error)) return false;
  out = Arp::InputConfigKey(Lanx::IntfId(s.substr(slash + 1)), addr);
  return true;
}

inline bool readValue(YAML::Node const& n, Arp::ArpSource& out, std::string& error) {
  Arp::ArpSourceId id{};
  if (!readValue(n, id, error)) return false;
  out = Arp::ArpSource(id);
  return true;
}

// "10.0.0.5/10/dynamic": an address, its VLAN (none for the by-VRF form) and its source, the
// key of an applied ARP entry.
inline bool readValue(YAML::Node const& n, Mlag::VlanIpSource& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  auto first = s.find('/');
  auto second = first == std::string::npos ? first : s.find('/', first + 1);
  if (second == std::string::npos) {
    error = "'" + s + "' is not an address, a VLAN and a source, such as 10.0.0.5/10/dynamic";
    return false;
  }
  Lanx::IpGenAddr addr;
  Bridging::VlanIdOrNone vlan;
  Arp::ArpSource source;
  if (!readValue(YAML::Node(s.substr(0, first)), addr, error) ||
      !readValue(YAML::Node(s.substr(first + 1, second - first - 1)), vlan, error) ||
      !readValue(YAML::Node(s.substr(second + 1)), source, error)) {
    return false;
  }
  out = Mlag::VlanIpSource(vlan, addr, source);
  return true;
}

// A key's own check against the collection it is written to: an ARP row's address must be of
// the family of its table (ipv4 or ipv6). Other keys go anywhere their type goes.
template <class K>
bool keyFitsCollection(std::string_view, K const&, std::string&) {
  return true;
}
// A flood set holds VXLAN destinations only: converting one of another kind to a VTEP list is a
// programmer's error in the library, so a scenario may not write one.
inline bool keyFitsCollection(std::string_view collection, L2Rib::Dest const& dest, std::string& error) {
  if (collection != "destSet" || dest.destType() == L2Rib::DestType::vxlan) return true;
  error = "a flood set's destinations are VXLAN destinations, not " + text(dest.destType());
  return false;
}
inline bool keyFitsCollection(std::string_view collection, Arp::InputConfigKey const& key, std::string& error) {
  bool const v6 = key.addr().af() == Lanx::AddressFamily::ipv6;
  if ((collection == "ipv4" && !v6 && key.addr().af() == Lanx::AddressFamily::ipv4) || (collection == "ipv6" && v6)) {
    return true;
  }
  error = "an " + std::string(collection) + " row needs an " + (collection == "ipv6" ? "IPv6" : "IPv4") + " address";
  return false;
}

namespace ValuesImpl {

// One field of a record: its name in a scenario and the record's mutator, whose argument type
// says how the field is read.
template <class R>
struct Field {
  char const* name;
  std::function<bool(YAML::Node const&, R&, std::string&)> read;
};

template <class R, class T>
Field<R> field(char const* name, void (R::*set)(T) noexcept) {
  return {name, [set](YAML::Node const& n, R& r, std::string& error) {
            std::decay_t<T> v{};
            if (!readValue(n, v, error)) return false;
            (r.*set)(std::move(v));
            return true;
          }};
}

// A record from a map of some of its fields; those left out keep the record's defaults. The key
// of a record that holds one comes from the collection's key, not from here.
template <class R>
bool record(YAML::Node const& n, R& out, std::string& error, std::initializer_list<Field<R>> fields) {
  std::string names;
  for (auto const& f : fields) names += (names.empty() ? "" : ", ") + std::string(f.name);
  if (!n.IsMap()) {
    error = "expected a map of its fields (" + names + ")";
    return false;
  }
  R r{};
  for (auto const& kv : n) {
    std::string const key = kv.first.IsScalar() ? kv.first.Scalar() : std::string();
    auto f = std::find_if(fields.begin(), fields.end(), [&](Field<R> const& x) { return key == x.name; });
    if (f == fields.end()) {
      error = fmt::format("unknown field '{}' (expected {})", key, names);
      return false;
    }
    if (!f->read(kv.second, r, error)) {
      error.insert(0, key + ": ");
      return false;
    }
  }
  out = r;
  return true;
}

}  // namespace ValuesImpl

// A row of the FDB. A row of a type that stands behind a tunnel on this switch is always on a
// VXLAN tunnel interface: the library takes anything else as a broken invariant, so a scenario
// cannot write it.
bool readValue(YAML::Node const& n, Shoal::Bridging::ShoalFdbStatus& out, std::string& error);
bool readValue(YAML::Node const& n, Shoal::Vxlan::LearnedHost& out, std::string& error);
bool readValue(YAML::Node const& n, Mlag::HostEntry& out, std::string& error);
bool readValue(YAML::Node const& n, MlagP2p::HostEntry& out, std::string& error);
bool readValue(YAML::Node const& n, VxlanController::MacVtepV2& out, std::string& error);
bool readValue(YAML::Node const& n, Arp::InputConfigEntry& out, std::string& error);
bool readValue(YAML::Node const& n, Arp::ArpEntry& out, std::string& error);
// A flood set's destination as the report prints it: an address alone for the one form the
// conversions between flood sets and VTEP lists make (10.0.0.1), else its kind and fields,
// blanks optional: vxlan(id=1,intf=Vxlan1,vni=5,vtepAddr=10.0.0.1), intf(id=1,intf=Ethernet1),
// mpls(id=1,label=16,nexthop=10.0.0.1), tunnel(id=1,tunnelId=7), none(id=1); ids in hex.
bool readValue(YAML::Node const& n, L2Rib::Dest& out, std::string& error);
// "10.0.0.5/10": an address and its VLAN (0 for none), the key of an active ARP table's rows.
bool readValue(YAML::Node const& n, Vxlan::VlanIpPair& out, std::string& error);
// "Vxlan1/10.0.0.2": a VTI and a VTEP behind it.
bool readValue(YAML::Node const& n, Mlag::VtiVtep& out, std::string& error);
// "10.0.0.2/Vxlan1/3": a BFD peer's address, interface and type (3: a VXLAN tunnel), then, when
// any is set, its VRF, session id and source address: "10.0.0.2/Vxlan1/3/red/7/10.0.0.1".
bool readValue(YAML::Node const& n, Bfd::Peer& out, std::string& error);
bool readValue(YAML::Node const& n, VxlanController::BfdPeerStatusV2& out, std::string& error);
bool readValue(YAML::Node const& n, Bridging::Flat::VlanConfigFlat& out, std::string& error);

template <class T>
concept Readable = requires(YAML::Node const& n, T& v, std::string& e) {
  { readValue(n, v, e) } -> std::same_as<bool>;
};

}  // namespace Sim
