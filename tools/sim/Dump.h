// A flat text form of any declared entity: one line per scalar and per collection member,
// "attribute: value" or "attribute[key]: value", member entities spelled out as
// "attribute[key].inner...". The report diffs two of these and the scenario's expectations
// are checked against them, so every entity of either switch can be looked at without code of
// its own.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>

#include "entities/EntityJson.h"
#include "runtime/Attributes.h"
#include "types/Arp.h"
#include "types/Bfd.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/Mlag.h"
#include "types/MlagP2p.h"
#include "types/Vxlan.h"

namespace Sim {

// Digit runs compare as numbers, so that "sharedDynVlan[2]" comes before "sharedDynVlan[10]"
// and a run of VLANs reads in order.
struct NaturalLess {
  bool operator()(std::string_view a, std::string_view b) const noexcept;
  using is_transparent = void;
};

using Flat = std::map<std::string, std::string, NaturalLess>;

// A value's text form, the JSON dump's; the keys that a path holds have forms of their own,
// without blanks or brackets.
template <class T>
std::string text(T const& v) {
  if constexpr (std::is_same_v<T, Vxlan::VniVtiPair>) {
    // The VNI first, as the handlers name it: "10010/Vxlan1".
    return std::to_string(v.vni().value()) + "/" + text(v.intfId());
  } else if constexpr (std::is_same_v<T, Bridging::HostKey>) {
    // A MAC in its VLAN, whatever order the key type keeps them in: "00:11:22:33:44:55/10".
    return text(v.addr()) + "/" + std::to_string(v.vlanId().value());
  } else if constexpr (std::is_same_v<T, Vxlan::MacVlanPair>) {
    return text(v.mac()) + "/" + std::to_string(v.vlanId().value());
  } else if constexpr (std::is_same_v<T, Mlag::HostEntryKey> || std::is_same_v<T, MlagP2p::HostEntryKey>) {
    return text(v.macAddr()) + "/" + std::to_string(v.vlanId());
  } else if constexpr (std::is_same_v<T, Arp::InputConfigKey>) {
    // An address on its interface: "10.0.0.5/Vlan10".
    return text(v.addr()) + "/" + text(v.intfId());
  } else if constexpr (std::is_same_v<T, Mlag::VlanIpSource>) {
    // An address, its VLAN and its source: "10.0.0.5/10/dynamic".
    return text(v.ipAddr()) + "/" + text(v.vlanId()) + "/" + text(v.arpSource());
  } else if constexpr (std::is_same_v<T, Vxlan::VlanIpPair>) {
    return text(v.ipAddr()) + "/" + std::to_string(v.vlanId());
  } else if constexpr (std::is_same_v<T, Mlag::VtiVtep>) {
    return text(v.intfId()) + "/" + text(v.vtep());
  } else if constexpr (std::is_same_v<T, Bfd::Peer>) {
    std::string s = text(v.ip()) + "/" + text(v.intf()) + "/" + std::to_string(v.type());
    if (!v.vrf().empty() || v.sessionId() != 0 || v.srcIp() != Lanx::IpGenAddr()) {
      s += "/" + std::string(v.vrf().view()) + "/" + std::to_string(v.sessionId()) + "/" + text(v.srcIp());
    }
    return s;
  } else if constexpr (std::is_same_v<T, L2Rib::Dest>) {
    // The one form the flood-list conversions make is its address; any other its fields.
    if (v.destType() == L2Rib::DestType::vxlan && v == L2Rib::canonicalVxlanDest(v.vxlan().vtepAddr())) {
      return text(v.vxlan().vtepAddr());
    }
    std::string s(v.stringValue().view());
    std::erase(s, ' ');
    return s;
  } else {
    return Vok::jsonText(v);
  }
}

namespace DumpImpl {

// Every (key, value) of a collection attribute straight from its storage: a dump is no reader of
// a Shoal table and must not trip its corruption hooks.
template <class A, class F>
void forEachEntry(A const& attr, F&& f) {
  if constexpr (requires { attr.map().iterator(); }) {
    for (auto const& [k, v] : attr.map().map()) f(k, v);
  } else {
    for (auto it = attr.map().begin(); !it.done(); it.advance()) f(it->key, it->value);
  }
}

}  // namespace DumpImpl

// Calls f(line, value) for every line of `e`'s dump, each line starting with `prefix`.
template <class E, class F>
void forEachLine(E const& e, std::string const& prefix, F&& f) {
  e.vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const& attr) {
    using A = std::decay_t<decltype(attr)>;
    std::string base = prefix + std::string(name);
    if constexpr (Vok::Attr::KeyAttr<A> || Vok::Attr::ScalarAttr<A>) {
      // A member's own key among them: it also makes a member with nothing else set visible.
      f(std::move(base), text(attr.get()));
    } else if constexpr (Vok::Attr::MembersAttr<A>) {
      DumpImpl::forEachEntry(attr, [&](auto const& k, auto const& m) {
        if (m) forEachLine(*m, base + "[" + text(k) + "].", f);
      });
    } else if constexpr (Vok::Attr::ValuesAttr<A>) {
      DumpImpl::forEachEntry(attr, [&](auto const& k, auto const& v) { f(base + "[" + text(k) + "]", text(v)); });
    }
  });
}

template <class E>
void flatten(E const& e, std::string const& prefix, Flat& out) {
  // A collection's lines mostly come in their order (VLANs written 1 to 4094): each then goes in
  // just after the one before, for two comparisons rather than a search of the map.
  auto next = out.end();
  forEachLine(e, prefix, [&](std::string line, std::string value) {
    next = std::next(out.insert_or_assign(next, std::move(line), std::move(value)));
  });
}

template <class E>
Flat flatten(E const& e) {
  Flat out;
  flatten(e, "", out);
  return out;
}

inline bool NaturalLess::operator()(std::string_view a, std::string_view b) const noexcept {
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  char const* const pa = a.data();
  char const* const pb = b.data();
  // The keys of a dump share long prefixes ("localVxStatus.sharedDynVlan["): the common one is
  // passed in one plain scan, back to the start of a digit run it may end in, as that run must
  // compare as a number. A dump's map makes this comparison some twenty times per line.
  std::size_t const common = std::min(a.size(), b.size());
  std::size_t p = 0;
  while (p < common && pa[p] == pb[p]) ++p;
  while (p > 0 && isDigit(pa[p - 1])) --p;
  std::size_t i = p;
  std::size_t j = p;
  while (i < a.size() && j < b.size()) {
    if (isDigit(pa[i]) && isDigit(pb[j])) {
      std::size_t ei = i;
      std::size_t ej = j;
      while (ei < a.size() && isDigit(pa[ei])) ++ei;
      while (ej < b.size() && isDigit(pb[ej])) ++ej;
      std::size_t si = i;
      std::size_t sj = j;
      while (si + 1 < ei && pa[si] == '0') ++si;
      while (sj + 1 < ej && pb[sj] == '0') ++sj;
      std::string_view na = a.substr(si, ei - si);
      std::string_view nb = b.substr(sj, ej - sj);
      if (na.size() != nb.size()) return na.size() < nb.size();
      if (na != nb) return na < nb;
      i = ei;
      j = ej;
      continue;
    }
    if (pa[i] != pb[j]) return pa[i] < pb[j];
    ++i;
    ++j;
  }
  if ((a.size() - i) != (b.size() - j)) return (a.size() - i) < (b.size() - j);
  return a < b;  // equal up to leading zeros: plain order keeps the ordering strict
}

}  // namespace Sim
