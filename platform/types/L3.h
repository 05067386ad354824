// L3::VrfName, the name of a VRF.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/String.h"
#include "types/ValueHash.h"

namespace L3 {

// A name of at most 100 bytes; a longer one raises Brix::RangeException. Names sort with
// "default" first and all others in byte order after it.
class VrfName {
 public:
  static constexpr std::size_t maxLength() noexcept { return 100; }
  static constexpr std::string_view defaultName() noexcept { return "default"; }

  VrfName() : hash_(hashOf({})) {}
  explicit VrfName(std::string_view name) : name_(name), hash_(hashOf(name_.view())) {}
  explicit VrfName(char const* name) : VrfName(std::string_view(name ? name : "")) {}
  explicit VrfName(std::string const& name) : VrfName(std::string_view(name)) {}
  explicit VrfName(Brix::String const& name) : VrfName(name.view()) {}

  Brix::String const& stringValue() const noexcept { return name_.string(); }
  std::string_view view() const noexcept { return name_.view(); }
  char const* c_str() const noexcept { return name_.c_str(); }
  std::size_t size() const noexcept { return name_.size(); }
  bool empty() const noexcept { return name_.empty(); }
  bool isDefault() const noexcept { return view() == defaultName(); }
  int compare(VrfName const& o) const noexcept { return stringValue().compare(o.stringValue()); }

  // Made once with the name: every ARP row of a VRF looks its table up by this name.
  std::size_t hash() const noexcept { return hash_; }

  // Names are short and compared on every lookup of a VRF's table: the bytes are compared in
  // line, eight at a time, rather than through a call to memcmp.
  friend bool operator==(VrfName const& a, VrfName const& b) noexcept {
    return a.hash_ == b.hash_ && sameBytes(a.view(), b.view());
  }
  friend std::strong_ordering operator<=>(VrfName const& a, VrfName const& b) noexcept {
    bool aDefault = a.isDefault(), bDefault = b.isDefault();
    if (aDefault || bDefault) return bDefault <=> aDefault;
    return a.compare(b) <=> 0;
  }

 private:
  static std::size_t hashOf(std::string_view name) noexcept { return std::hash<std::string_view>{}(name); }
  static bool sameBytes(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    std::size_t i = 0;
    for (; i + 8 <= a.size(); i += 8) {
      std::uint64_t x = 0, y = 0;
      std::memcpy(&x, a.data() + i, 8);
      std::memcpy(&y, b.data() + i, 8);
      if (x != y) return false;
    }
    for (; i < a.size(); ++i) {
      if (a[i] != b[i]) return false;
    }
    return true;
  }

  Brix::BoundedString<100> name_;
  std::size_t hash_;
};

std::ostream& operator<<(std::ostream& os, VrfName const& name);

}  // namespace L3

VALUE_TYPES_STD_HASH(L3::VrfName);
