// A JSON dump of any declared entity, for tools and tests; nothing the installed library needs.
//
// Attributes appear in declared order, the key attribute included. A scalar is a JSON boolean
// or number where its type is one (a byte is a number, never a character), and otherwise the
// value's text form. A collection, a Shoal table included, is an object keyed by the text form of
// each key, in walk order; its values follow the scalar rule and its member entities nest. The
// objects keep insertion order, so two dumps of equal entities built alike are equal as text.
#pragma once

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "runtime/Attributes.h"
#include "runtime/Node.h"

namespace Vok {

using EntityJson = nlohmann::ordered_json;

// The text form of a value, as the trace prints it; only a VNI none reads "none" here, where the
// trace, whose ring holds the bare number, prints 4294967295.
template <class T>
std::string jsonText(T const& v) {
  if constexpr (std::is_same_v<T, bool>) {
    return v ? "true" : "false";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(v);  // promotes a byte: 7, not '\a'
  } else if constexpr (std::is_floating_point_v<T>) {
    return fmt::format("{}", v);  // shortest exact form, as the trace and its decoder print a time
  } else {
    std::ostringstream os;
    os << v;
    return os.str();
  }
}

template <class T>
EntityJson jsonValue(T const& v) {
  if constexpr (std::is_same_v<T, bool> || std::is_integral_v<T>) {
    return EntityJson(v);
  } else if constexpr (std::is_floating_point_v<T>) {
    // JSON has no infinity (Brix::never); its text keeps it from turning into null.
    return std::isfinite(v) ? EntityJson(v) : EntityJson(jsonText(v));
  } else {
    return EntityJson(jsonText(v));
  }
}

template <class E>
requires requires { E::vokTypeName; }
EntityJson toJson(E const& e);

namespace JsonImpl {

template <class>
inline constexpr bool unhandledKind = false;

template <class M>
EntityJson member(Brix::Ptr<M> const& m) {
  return m ? toJson(*m) : EntityJson(nullptr);
}

template <class A>
EntityJson attribute(A const& attr) {
  if constexpr (Attr::KeyAttr<A> || Attr::ScalarAttr<A>) {
    return jsonValue(attr.get());
  } else if constexpr (Attr::MembersAttr<A>) {
    EntityJson out = EntityJson::object();
    if constexpr (requires { attr.map().iterator(); }) {
      for (auto const& [k, m] : attr.map().map()) out[jsonText(k)] = member(m);
    } else {
      for (auto it = attr.map().begin(); !it.done(); it.advance()) out[jsonText(it->key)] = member(it->value);
    }
    return out;
  } else if constexpr (Attr::ValuesAttr<A>) {
    // Straight from the storage: a dump is no reader of a Shoal table and must not trip its
    // corruption hooks.
    EntityJson out = EntityJson::object();
    for (auto it = attr.map().begin(); !it.done(); it.advance()) out[jsonText(it->key)] = jsonValue(it->value);
    return out;
  } else {
    static_assert(unhandledKind<A>, "an attribute kind the JSON dump does not know");
  }
}

}  // namespace JsonImpl

template <class E>
requires requires { E::vokTypeName; }
EntityJson toJson(E const& e) {
  EntityJson out = EntityJson::object();
  e.vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const& attr) {
    out[std::string(name)] = JsonImpl::attribute(attr);
  });
  return out;
}

}  // namespace Vok
