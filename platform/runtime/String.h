// Brix::String, the value string of the runtime, and the length-bounded form of it.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/Exceptions.h"

namespace Brix {

class String {
 public:
  String() = default;
  String(char const* s) : s_(s ? s : "") {}             // NOLINT(google-explicit-constructor)
  String(std::string_view s) : s_(s) {}                 // NOLINT(google-explicit-constructor)
  String(std::string s) noexcept : s_(std::move(s)) {}  // NOLINT(google-explicit-constructor)

  std::size_t size() const noexcept { return s_.size(); }
  bool empty() const noexcept { return s_.empty(); }
  char const* data() const noexcept { return s_.data(); }
  char const* c_str() const noexcept { return s_.c_str(); }
  std::string_view view() const noexcept { return s_; }
  std::string const& str() const noexcept { return s_; }

  int compare(String const& o) const noexcept { return s_.compare(o.s_); }
  bool startsWith(std::string_view p) const noexcept { return view().starts_with(p); }
  bool endsWith(std::string_view p) const noexcept { return view().ends_with(p); }

  // Returns a new string with `p` put on the left or the right.
  String addLeft(std::string_view p) const { return String(std::string(p) + s_); }
  String addRight(std::string_view p) const { return String(s_ + std::string(p)); }
  String& append(std::string_view p) {
    s_.append(p);
    return *this;
  }
  String& operator+=(std::string_view p) { return append(p); }

  friend bool operator==(String const& a, String const& b) noexcept { return a.s_ == b.s_; }
  friend auto operator<=>(String const& a, String const& b) noexcept { return a.s_ <=> b.s_; }
  friend std::ostream& operator<<(std::ostream& os, String const& s) { return os << s.s_; }

 private:
  std::string s_;
};

// A string with a maximum length in bytes; a longer value is out of range.
template <std::size_t MaxLength>
class BoundedString {
 public:
  static constexpr std::size_t maxLength() noexcept { return MaxLength; }

  BoundedString() = default;
  explicit BoundedString(std::string_view s) : s_(check(s)) {}
  explicit BoundedString(char const* s) : s_(check(s ? std::string_view(s) : std::string_view())) {}
  explicit BoundedString(std::string const& s) : s_(check(s)) {}
  explicit BoundedString(String const& s) : s_(check(s.view())) {}

  std::size_t size() const noexcept { return s_.size(); }
  bool empty() const noexcept { return s_.empty(); }
  std::string_view view() const noexcept { return s_.view(); }
  String const& string() const noexcept { return s_; }
  char const* c_str() const noexcept { return s_.c_str(); }

  friend bool operator==(BoundedString const&, BoundedString const&) = default;
  friend std::ostream& operator<<(std::ostream& os, BoundedString const& s) { return os << s.s_; }

 private:
  static String check(std::string_view s) {
    if (s.size() > MaxLength) RangeException::throwException("Vok::String::bytes > maxLength() not allowed");
    return String(s);
  }
  String s_;
};

}  // namespace Brix

template <>
struct std::hash<Brix::String> {
  std::size_t operator()(Brix::String const& s) const noexcept { return std::hash<std::string_view>{}(s.view()); }
};
template <std::size_t N>
struct std::hash<Brix::BoundedString<N>> {
  std::size_t operator()(Brix::BoundedString<N> const& s) const noexcept {
    return std::hash<std::string_view>{}(s.view());
  }
};
