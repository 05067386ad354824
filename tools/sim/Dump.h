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
  } else if constexpr (std::is_integral_v<T> && sizeof(T) == 1) {
    os << static_cast<unsigned>(v);  // a byte is a number here, not a character
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
    if constexpr (Vok::Attr::ScalarAttr<A>) {
      out[base] = text(attr.get());
    } else if constexpr (Vok::Attr::MembersAttr<A>) {
      for (auto const& k : Vok::Attr::keysOf(attr)) flatten(*attr.get(k), base + "[" + text(k) + "].", out);
    } else if constexpr (Vok::Attr::ValuesAttr<A>) {
      for (auto const& k : Vok::Attr::keysOf(attr)) out[base + "[" + text(k) + "]"] = text(attr.get(k));
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
