// A flat text form of any declared entity: one line per scalar and per collection member,
// "attribute: value" or "attribute[key]: value", member entities spelled out as
// "attribute[key].inner...". The report diffs two of these.
#pragma once

#include <map>
#include <sstream>
#include <string>
#include <type_traits>

#include "Mirror.h"

namespace Sim {

using Flat = std::map<std::string, std::string>;

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  if constexpr (std::is_same_v<T, bool>) {
    os << (v ? "true" : "false");
  } else {
    os << v;
  }
  return os.str();
}

template <class E>
void flatten(E const& e, std::string const& prefix, Flat& out) {
  e.vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const& attr) {
    using A = std::decay_t<decltype(attr)>;
    std::string base = prefix + std::string(name);
    if constexpr (Impl::isScalar<A>) {
      out[base] = text(attr.get());
    } else if constexpr (Impl::isMembers<A>) {
      for (auto const& k : Impl::keysOf(attr)) flatten(*attr.get(k), base + "[" + text(k) + "].", out);
    } else if constexpr (Impl::isValues<A>) {
      for (auto const& k : Impl::keysOf(attr)) out[base + "[" + text(k) + "]"] = text(attr.get(k));
    }
  });
}

template <class E>
Flat flatten(E const& e) {
  Flat out;
  flatten(e, "", out);
  return out;
}

}  // namespace Sim
