// Checks shared by the value-type tests.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

namespace ValueChecks {

template <class T>
std::size_t hashOf(T const& v) {
  return std::hash<T>{}(v);
}

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

// A copy of base with one change made by f.
template <class T, class F>
T with(T base, F f) {
  f(base);
  return base;
}

// Each variant differs from base in one field: it must then differ in ==, in isEq where the
// type has one, and in the hash; a copy of base must agree in all three.
template <class T, class... Variants>
void expectEveryFieldCounts(T const& base, Variants const&... variants) {
  T const copy = base;
  EXPECT_EQ(copy, base);
  EXPECT_EQ(hashOf(copy), hashOf(base));
  int field = 0;
  (
      [&](T const& v) {
        EXPECT_NE(v, base) << "variant " << field;
        EXPECT_NE(hashOf(v), hashOf(base)) << "variant " << field;
        if constexpr (requires { base.isEq(v); }) {
          EXPECT_FALSE(v.isEq(base)) << "variant " << field;
        }
        ++field;
      }(variants),
      ...);
}

// As above, each variant made from base by one of the changes.
template <class T, class... Changes>
void expectEachChangeCounts(T const& base, Changes... changes) {
  expectEveryFieldCounts(base, with(base, changes)...);
}

// f raises an E whose text is exactly `text`.
template <class E, class F>
void expectThrowsText(F f, std::string_view text) {
  try {
    f();
    ADD_FAILURE() << "nothing raised, expected \"" << text << "\"";
  } catch (E const& e) {
    EXPECT_EQ(std::string(e.what()), text);
  }
}

}  // namespace ValueChecks
