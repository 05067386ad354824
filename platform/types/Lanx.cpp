#include "types/Lanx.h"

#include <fmt/format.h>

#include <limits>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "types/EnumText.h"

namespace Lanx {

namespace {
std::string_view nameOf(AddressFamily af) noexcept {
  switch (af) {
    case AddressFamily::ipunknown:
      return "ipunknown";
    case AddressFamily::ipv4:
      return "ipv4";
    case AddressFamily::ipv6:
      return "ipv6";
  }
  return {};
}
}  // namespace

std::string_view stringValue(AddressFamily af) noexcept { return EnumText::orUnknown(nameOf(af)); }

std::ostream& operator<<(std::ostream& os, AddressFamily af) { return EnumText::put(os, af, nameOf(af)); }

std::span<std::pair<std::uint8_t, std::string_view> const> addressFamilyMembers() noexcept {
  static constexpr std::pair<std::uint8_t, std::string_view> members[] = {
      {0, "ipunknown"}, {1, "ipv4"}, {1, "inet"}, {2, "ipv6"}, {2, "inet6"}};
  return members;
}

// ---------------------------------------------------------------------------------------------
// IntfId

namespace {

// Names of no known kind, numbered from 1 in the order they were first made. Never destroyed:
// an id may be turned back into its name by anything that runs at exit.
class NameTable {
 public:
  static NameTable& instance() {
    static auto* table = new NameTable;
    return *table;
  }
  // 0 when the name is new and the table already holds `limit` names.
  std::uint64_t numberOf(std::string_view name, std::size_t limit = std::numeric_limits<std::size_t>::max()) {
    std::lock_guard lock(mutex_);
    auto it = numbers_.find(std::string(name));
    if (it != numbers_.end()) return it->second;
    if (names_.size() >= limit) return 0;
    names_.emplace_back(name);
    auto n = static_cast<std::uint64_t>(names_.size());
    numbers_.emplace(names_.back(), n);
    return n;
  }
  std::string nameOf(std::uint64_t number) {
    std::lock_guard lock(mutex_);
    return number >= 1 && number <= names_.size() ? names_[number - 1] : std::string();
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> names_;
  std::unordered_map<std::string, std::uint64_t> numbers_;
};

// "Vlan" or "Vxlan" followed by digits only: the number, saturated at 32 bits.
bool prefixAndNumber(std::string_view name, std::string_view prefix, std::uint32_t* number) {
  if (!name.starts_with(prefix) || name.size() == prefix.size()) return false;
  std::uint64_t n = 0;
  for (char c : name.substr(prefix.size())) {
    if (c < '0' || c > '9') return false;
    n = std::min<std::uint64_t>(n * 10 + static_cast<std::uint64_t>(c - '0'),
                                std::numeric_limits<std::uint32_t>::max());
  }
  *number = static_cast<std::uint32_t>(n);
  return true;
}

}  // namespace

struct IntfIdCodec {
  static std::string numbers(std::uint64_t v) {
    std::string s = std::to_string(IntfId::numberOf(v, 0));
    for (int i = 1; i < IntfId::countOf(v); ++i) s += fmt::format("/{}", IntfId::numberOf(v, i));
    return s;
  }
  static std::string name(std::uint64_t v, bool shortForm) {
    auto kind = IntfId::kindOf(v);
    if (v == 0) return std::string();
    if (kind == IntfId::kindInterned) {
      std::string full = NameTable::instance().nameOf(v & ((std::uint64_t{1} << 56) - 1));
      return shortForm ? abbreviated(full) : full;
    }
    auto const& k = IntfId::kinds[kind - 1];
    return std::string(shortForm ? k.shortName : k.name) + numbers(v);
  }
  // A name of a known kind that the encoding does not hold ("Ethernet1/1.100", "Vlan010") is
  // still abbreviated like its kind.
  static std::string abbreviated(std::string const& full) {
    for (auto const& k : IntfId::kinds) {
      if (full.size() > k.name.size() && full.starts_with(k.name) && full[k.name.size()] >= '0' &&
          full[k.name.size()] <= '9') {
        return std::string(k.shortName) + full.substr(k.name.size());
      }
    }
    return full;
  }
  // The number of an encoded interface of the kind with a single number, if it is one.
  static bool single(std::uint64_t v, std::uint64_t kind, std::uint32_t* number) {
    if (IntfId::kindOf(v) != kind || IntfId::countOf(v) != 1) return false;
    *number = IntfId::numberOf(v, 0);
    return true;
  }
  static bool interned(std::uint64_t v) { return IntfId::kindOf(v) == IntfId::kindInterned; }
  static bool vlan(std::uint64_t v, std::uint32_t* number) { return single(v, IntfId::kindVlan, number); }
  static bool vxlan(std::uint64_t v, std::uint32_t* number) { return single(v, IntfId::kindVxlan, number); }
};

std::uint64_t IntfId::intern(std::string_view name) {
  return (kindInterned << 56) | NameTable::instance().numberOf(name);
}

std::optional<IntfId> IntfId::bounded(std::string_view name, std::size_t limit) {
  IntfId id;
  if (name.empty()) return id;
  for (std::size_t k = 0; k < kinds.size(); ++k) {
    if (!name.starts_with(kinds[k].name)) continue;
    if (std::uint64_t v = encodeNumbers(name.substr(kinds[k].name.size())); v != 0) {
      id.value_ = ((k + 1) << 56) | v;
      return id;
    }
    break;
  }
  std::uint64_t n = NameTable::instance().numberOf(name, limit);
  if (n == 0) return std::nullopt;
  id.value_ = (kindInterned << 56) | n;
  return id;
}

namespace {

// Trace statements print interface names all the time, so each thread keeps the names it has
// made, per form: the last one asked for, and a table of all of them (interfaces are few). The
// last one is a plain thread-local, read without the guard that a table's lazy set-up costs, and
// the table is reached only when another interface is asked for.
struct LastName {
  std::uint64_t value = 0;
  Brix::String const* name = nullptr;
};
constinit thread_local LastName lastFull, lastShort;
thread_local std::unordered_map<std::uint64_t, Brix::String> fullNames, shortNames;

[[gnu::noinline]] Brix::String const& memoName(std::uint64_t v, bool shortForm) {
  auto& names = shortForm ? shortNames : fullNames;
  auto [it, fresh] = names.try_emplace(v);
  if (fresh) it->second = IntfIdCodec::name(v, shortForm);
  (shortForm ? lastShort : lastFull) = LastName{v, &it->second};
  return it->second;
}

}  // namespace

Brix::String const& IntfId::stringValue() const {
  if (lastFull.name && lastFull.value == value_) return *lastFull.name;
  return memoName(value_, false);
}

Brix::String const& IntfId::shortName() const {
  if (lastShort.name && lastShort.value == value_) return *lastShort.name;
  return memoName(value_, true);
}

std::ostream& operator<<(std::ostream& os, IntfId const& intf) { return os << intf.stringValue(); }

std::uint32_t VlanIntfId::vlanId(IntfId const& intf) {
  std::uint32_t n = 0;
  if (IntfIdCodec::vlan(intf.value(), &n)) return n;
  // A name the encoding does not hold, such as "Vlan010" or a number beyond 20 bits.
  if (IntfIdCodec::interned(intf.value()) && prefixAndNumber(intf.stringValue().view(), "Vlan", &n)) return n;
  return 0;
}

bool VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId const& intf) {
  std::uint32_t n = 0;
  if (IntfIdCodec::vxlan(intf.value(), &n)) return true;
  return IntfIdCodec::interned(intf.value()) && prefixAndNumber(intf.stringValue().view(), "Vxlan", &n);
}

// ---------------------------------------------------------------------------------------------
// Parsing

namespace {

[[noreturn]] void malformed(std::string_view type, std::string_view text) {
  throw AddressParseException(fmt::format("Lanx::{}: malformed address text \"{}\"", type, text));
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// One to maxDigits hex digits, the whole of s.
bool parseHex(std::string_view s, std::size_t maxDigits, std::uint32_t* out) {
  if (s.empty() || s.size() > maxDigits) return false;
  std::uint32_t v = 0;
  for (char c : s) {
    int d = hexDigit(c);
    if (d < 0) return false;
    v = v << 4 | static_cast<std::uint32_t>(d);
  }
  *out = v;
  return true;
}

// Splits s at every separator; empty pieces stay, so that "1::2" or "1." are seen as malformed.
std::vector<std::string_view> split(std::string_view s, char sep) {
  std::vector<std::string_view> pieces;
  while (true) {
    auto pos = s.find(sep);
    pieces.push_back(s.substr(0, pos));
    if (pos == std::string_view::npos) return pieces;
    s.remove_prefix(pos + 1);
  }
}

bool parseIpv4(std::string_view text, std::uint32_t* out) {
  auto parts = split(text, '.');
  if (parts.size() != 4) return false;
  std::uint32_t v = 0;
  for (auto p : parts) {
    if (p.empty() || p.size() > 3 || (p.size() > 1 && p[0] == '0')) return false;
    std::uint32_t n = 0;
    for (char c : p) {
      if (c < '0' || c > '9') return false;
      n = n * 10 + static_cast<std::uint32_t>(c - '0');
    }
    if (n > 255) return false;
    v = v << 8 | n;
  }
  *out = v;
  return true;
}

// Groups separated by ':', the last one possibly a dotted IPv4 address standing for two.
bool parseGroups(std::string_view s, bool allowIpv4Tail, std::vector<std::uint16_t>* groups) {
  if (s.empty()) return true;
  auto parts = split(s, ':');
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (allowIpv4Tail && i + 1 == parts.size() && parts[i].find('.') != std::string_view::npos) {
      std::uint32_t v4 = 0;
      if (!parseIpv4(parts[i], &v4)) return false;
      groups->push_back(static_cast<std::uint16_t>(v4 >> 16));
      groups->push_back(static_cast<std::uint16_t>(v4));
      continue;
    }
    std::uint32_t g = 0;
    if (!parseHex(parts[i], 4, &g)) return false;
    groups->push_back(static_cast<std::uint16_t>(g));
  }
  return true;
}

bool parseIpv6(std::string_view text, Ip6Addr::Bytes* out) {
  auto gap = text.find("::");
  if (gap != std::string_view::npos && text.find("::", gap + 1) != std::string_view::npos) return false;
  std::vector<std::uint16_t> head, tail;
  if (gap == std::string_view::npos) {
    if (!parseGroups(text, true, &head) || head.size() != 8) return false;
  } else {
    if (!parseGroups(text.substr(0, gap), false, &head) || !parseGroups(text.substr(gap + 2), true, &tail)) {
      return false;
    }
    if (head.size() + tail.size() > 7) return false;
  }
  Ip6Addr::Bytes bytes{};
  auto put = [&bytes](std::size_t group, std::uint16_t v) {
    bytes[2 * group] = static_cast<std::uint8_t>(v >> 8);
    bytes[2 * group + 1] = static_cast<std::uint8_t>(v);
  };
  for (std::size_t i = 0; i < head.size(); ++i) put(i, head[i]);
  for (std::size_t i = 0; i < tail.size(); ++i) put(8 - tail.size() + i, tail[i]);
  *out = bytes;
  return true;
}

}  // namespace

EthAddr EthAddr::parse(std::string_view text) {
  std::array<std::uint16_t, 3> w{};
  if (text.find(':') != std::string_view::npos) {
    auto parts = split(text, ':');
    if (parts.size() != 6) malformed("EthAddr", text);
    for (std::size_t i = 0; i < 6; ++i) {
      std::uint32_t b = 0;
      if (!parseHex(parts[i], 2, &b)) malformed("EthAddr", text);
      w[i / 2] = static_cast<std::uint16_t>(w[i / 2] << 8 | b);
    }
  } else {
    auto parts = split(text, '.');
    if (parts.size() != 3) malformed("EthAddr", text);
    for (std::size_t i = 0; i < 3; ++i) {
      std::uint32_t v = 0;
      if (!parseHex(parts[i], 4, &v)) malformed("EthAddr", text);
      w[i] = static_cast<std::uint16_t>(v);
    }
  }
  return EthAddr(w[0], w[1], w[2]);
}

IpAddr IpAddr::parse(std::string_view text) {
  std::uint32_t v = 0;
  if (!parseIpv4(text, &v)) malformed("IpAddr", text);
  return IpAddr(v);
}

Ip6Addr Ip6Addr::parse(std::string_view text) {
  Bytes bytes{};
  if (!parseIpv6(text, &bytes)) malformed("Ip6Addr", text);
  return Ip6Addr(bytes);
}

IpGenAddr IpGenAddr::parse(std::string_view text) {
  if (text.find(':') != std::string_view::npos) {
    Ip6Addr::Bytes bytes{};
    if (!parseIpv6(text, &bytes)) malformed("IpGenAddr", text);
    return IpGenAddr(Ip6Addr(bytes));
  }
  std::uint32_t v = 0;
  if (!parseIpv4(text, &v)) malformed("IpGenAddr", text);
  return IpGenAddr(IpAddr(v));
}

// ---------------------------------------------------------------------------------------------
// Text forms

Brix::String EthAddr::stringValue() const {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", words_[0] >> 8, words_[0] & 0xff, words_[1] >> 8,
                     words_[1] & 0xff, words_[2] >> 8, words_[2] & 0xff);
}

std::ostream& operator<<(std::ostream& os, EthAddr const& addr) { return os << addr.stringValue(); }

// Written digit by digit: the remote-MAC walk makes one of these per MAC.
Brix::String IpAddr::stringValue() const {
  auto b = bytes();
  char text[16];
  char* p = text;
  for (std::size_t i = 0; i < 4; ++i) {
    unsigned v = b[i];
    if (v >= 100) *p++ = static_cast<char>('0' + v / 100);
    if (v >= 10) *p++ = static_cast<char>('0' + v / 10 % 10);
    *p++ = static_cast<char>('0' + v % 10);
    if (i < 3) *p++ = '.';
  }
  return Brix::String(std::string_view(text, static_cast<std::size_t>(p - text)));
}

std::ostream& operator<<(std::ostream& os, IpAddr const& addr) { return os << addr.stringValue(); }

Brix::String Ip6Addr::stringValue() const {
  // ::ffff:a.b.c.d keeps the embedded IPv4 address readable.
  bool mapped = group(5) == 0xffff;
  for (std::size_t i = 0; i < 5; ++i) mapped = mapped && group(i) == 0;
  if (mapped) return fmt::format("::ffff:{}.{}.{}.{}", bytes_[12], bytes_[13], bytes_[14], bytes_[15]);

  std::size_t bestStart = 8, bestLen = 0;
  for (std::size_t i = 0; i < 8;) {
    if (group(i) != 0) {
      ++i;
      continue;
    }
    std::size_t j = i;
    while (j < 8 && group(j) == 0) ++j;
    if (j - i > bestLen) {
      bestStart = i;
      bestLen = j - i;
    }
    i = j;
  }
  if (bestLen < 2) bestStart = 8;

  std::string s;
  for (std::size_t i = 0; i < 8; ++i) {
    if (i == bestStart) {
      s += "::";
      i += bestLen - 1;
      continue;
    }
    if (!s.empty() && s.back() != ':') s += ':';
    s += fmt::format("{:x}", group(i));
  }
  return s;
}

Brix::String Ip6Addr::stringValueExpanded() const {
  std::string s;
  for (std::size_t i = 0; i < 8; ++i) {
    if (i != 0) s += ':';
    s += fmt::format("{:04x}", group(i));
  }
  return s;
}

std::ostream& operator<<(std::ostream& os, Ip6Addr const& addr) { return os << addr.stringValue(); }

Brix::String IpGenAddr::stringValue() const {
  if (isV4()) return v4Addr().stringValue();
  if (isV6()) return v6Addr().stringValue();
  return "unknown";
}

std::ostream& operator<<(std::ostream& os, IpGenAddr const& addr) { return os << addr.stringValue(); }

}  // namespace Lanx
