#include "trace/RingLogReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <unordered_map>

#include "trace/RingLogFormat.h"
#include "types/Bridging.h"
#include "types/L2Rib.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace RingLog {

namespace {

using namespace Format;

enum class Kind { p, s, i, u, b, d, E, I, I6, IGO, MV, MVP, VIPO, VIS, VSP, MVT, D, F };

struct Code {
  Kind kind;
  int typeId = 0;
};

struct Message {
  std::vector<std::string> pieces;  // one more than the values
  std::vector<Code> codes;
};

std::optional<Code> parseCode(std::string_view c) {
  static constexpr std::pair<std::string_view, Kind> table[] = {
      {"p", Kind::p},     {"s", Kind::s},     {"i", Kind::i},       {"u", Kind::u},     {"b", Kind::b},
      {"d", Kind::d},     {"E", Kind::E},     {"I", Kind::I},       {"I6", Kind::I6},   {"IGO", Kind::IGO},
      {"MV", Kind::MV},   {"MVP", Kind::MVP}, {"VIPO", Kind::VIPO}, {"VIS", Kind::VIS}, {"VSP", Kind::VSP},
      {"MVT", Kind::MVT}, {"D", Kind::D}};
  for (auto const& [name, kind] : table)
    if (c == name) return Code{kind};
  if (c.size() > 1 && c[0] == 'F' &&
      std::all_of(c.begin() + 1, c.end(), [](char ch) { return ch >= '0' && ch <= '9'; }))
    return Code{Kind::F, std::atoi(std::string(c.substr(1)).c_str())};
  return std::nullopt;
}

// The bytes of one record's values, read with bounds checks.
struct Cursor {
  char const* p;
  char const* end;
  bool ok = true;

  template <class T>
  T get() {
    T v{};
    if (end - p < static_cast<std::ptrdiff_t>(sizeof v)) {
      ok = false;
      return v;
    }
    std::memcpy(&v, p, sizeof v);
    p += sizeof v;
    return v;
  }
  std::string_view bytes(std::size_t n) {
    if (static_cast<std::size_t>(end - p) < n) {
      ok = false;
      return {};
    }
    std::string_view s(p, n);
    p += n;
    return s;
  }
};

// Values are rendered by their own types, so that the decoder's text is the text trace's.
template <class T>
void appendStreamed(std::string& out, T const& v) {
  std::ostringstream os;
  os << v;
  out += os.view();
}

Lanx::EthAddr getEth(Cursor& c) {
  auto w0 = c.get<std::uint16_t>();
  auto w1 = c.get<std::uint16_t>();
  auto w2 = c.get<std::uint16_t>();
  return Lanx::EthAddr(w0, w1, w2);
}

Lanx::IpAddr getIp(Cursor& c) {
  auto b = c.get<std::array<std::uint8_t, 4>>();
  return Lanx::IpAddr(b[0], b[1], b[2], b[3]);
}

Lanx::IpGenAddr getIgo(Cursor& c) {
  auto af = c.get<std::uint8_t>();
  if (af == 1) return Lanx::IpGenAddr(getIp(c));
  if (af == 2) return Lanx::IpGenAddr(Lanx::Ip6Addr(c.get<Lanx::Ip6Addr::Bytes>()));
  return Lanx::IpGenAddr(static_cast<Lanx::AddressFamily>(af));
}

std::string_view getText(Cursor& c) { return c.bytes(c.get<std::uint16_t>()); }

L2Rib::Dest getDest(Cursor& c) {
  L2Rib::DestId const id(c.get<std::uint64_t>());
  switch (static_cast<L2Rib::DestType>(c.get<std::uint8_t>())) {
    case L2Rib::DestType::intf:
      return L2Rib::Dest(id, L2Rib::DestDataIntf(Lanx::IntfId(getText(c))));
    case L2Rib::DestType::vxlan: {
      Lanx::IntfId const intf(getText(c));
      auto vni = c.get<std::uint32_t>();
      return L2Rib::Dest(id, L2Rib::DestDataVxlan(intf, vni, getIgo(c)));
    }
    case L2Rib::DestType::mpls: {
      auto label = c.get<std::uint32_t>();
      return L2Rib::Dest(id, L2Rib::DestDataMpls(label, getIgo(c)));
    }
    case L2Rib::DestType::tunnel:
      return L2Rib::Dest(id, L2Rib::DestDataTunnel(c.get<std::uint64_t>()));
    case L2Rib::DestType::none:
      break;
  }
  return L2Rib::Dest();
}

// A VLAN out of range can only come of damage: the parts are shown as they are.
Bridging::VlanId getVlan(Cursor& c, bool& inRange) {
  auto v = c.get<std::uint16_t>();
  inRange = v >= Bridging::VlanId::min && v <= Bridging::VlanId::max;
  return inRange ? Bridging::VlanId(v) : Bridging::VlanId();
}

class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : b_(bytes) {}

  DecodedFile run() {
    if (!readHeader()) return std::move(out_);
    readDescriptions();
    for (int level = 0; level < levelCount; ++level) readRing(level);
    std::sort(out_.records.begin(), out_.records.end(), [](auto const& a, auto const& b) { return a.seq < b.seq; });
    for (std::size_t k = 1; k < out_.records.size(); ++k) {
      if (out_.records[k].seq == out_.records[k - 1].seq) {
        error("sequence number {} stands in two records", out_.records[k].seq);
        break;
      }
    }
    return std::move(out_);
  }

 private:
  template <class... T>
  void error(fmt::format_string<T...> f, T&&... args) {
    out_.errors.push_back(fmt::format(f, std::forward<T>(args)...));
  }

  bool readHeader() {
    if (b_.size() < sizeof(FileHeader)) {
      error("file of {} bytes is too short for a ring file header of {} bytes", b_.size(), sizeof(FileHeader));
      return false;
    }
    std::memcpy(&h_, b_.data(), sizeof h_);
    if (std::memcmp(h_.magic, magic, sizeof magic) != 0) {
      error("not a ring file: bad magic");
      return false;
    }
    if (h_.byteOrderMark != byteOrderMark) {
      error("written in another byte order");
      return false;
    }
    if (h_.version != version || h_.levelCount != static_cast<std::uint32_t>(levelCount)) {
      error("unsupported version {} with {} levels", h_.version, h_.levelCount);
      return false;
    }
    out_.pid = h_.pid;
    out_.dropped = h_.dropped;
    if (b_.size() < h_.fileSize) error("file truncated: {} of {} bytes", b_.size(), h_.fileSize);
    return true;
  }

  // The bytes [off, off + n) if the file has them.
  char const* at(std::uint64_t off, std::uint64_t n) const {
    return off <= b_.size() && n <= b_.size() - off ? b_.data() + off : nullptr;
  }

  void readDescriptions() {
    if (h_.descUsed > h_.descCapacity || h_.descOffset < sizeof(FileHeader) ||
        h_.descOffset + h_.descCapacity > h_.fileSize) {
      error("description table out of bounds (offset {}, {} of {} bytes used)", h_.descOffset, h_.descUsed,
            h_.descCapacity);
      return;
    }
    for (std::uint64_t off = 0; off < h_.descUsed;) {
      std::uint64_t pos = h_.descOffset + off;
      DescHeader d{};
      char const* p = at(pos, sizeof d);
      if (!p) return error("description at byte {} lies beyond the end of the file", pos);
      std::memcpy(&d, p, sizeof d);
      if (d.size < sizeof d || d.size % 8 || d.size > h_.descUsed - off || !at(pos, d.size))
        return error("description at byte {} has a bad size {}", pos, d.size);
      // A kind has a fixed number of strings, empty ones included; zero padding follows them.
      std::size_t const wanted = d.kind == descMessage ? 4 : 2;
      std::vector<std::string_view> strings;
      for (char const *s = p + sizeof d, *end = p + d.size; s < end && strings.size() < wanted;) {
        auto n = strnlen(s, static_cast<std::size_t>(end - s));
        if (s + n == end) break;  // not terminated inside the entry
        strings.emplace_back(s, n);
        s += n + 1;
      }
      if (d.kind == descMessage && strings.size() == wanted) {
        addMessage(d, strings[1], strings[2], strings[3]);
      } else if (d.kind == descType && strings.size() == wanted) {
        addType(d, strings[1]);
      } else {
        return error("description at byte {} is damaged", pos);
      }
      off += d.size;
    }
  }

  void addMessage(DescHeader const& d, std::string_view text, std::string_view codes, std::string_view function) {
    out_.messages.push_back({d.id, d.line, std::string(function), std::string(text), std::string(codes)});
    Message m;
    m.pieces.emplace_back();
    for (std::size_t k = 0; k < text.size(); ++k) {
      if (text[k] == '%' && k + 1 < text.size() && text[k + 1] == 's') {
        m.pieces.emplace_back();
        ++k;
      } else {
        if (text[k] == '%' && k + 1 < text.size() && text[k + 1] == '%') ++k;
        m.pieces.back() += text[k];
      }
    }
    while (!codes.empty()) {
      auto sp = codes.find(' ');
      auto c = parseCode(codes.substr(0, sp));
      if (!c) return error("message {}: unknown type code '{}'", d.id, codes.substr(0, sp));
      m.codes.push_back(*c);
      codes = sp == std::string_view::npos ? std::string_view() : codes.substr(sp + 1);
    }
    if (m.codes.size() + 1 != m.pieces.size())
      return error("message {}: {} places but {} type codes", d.id, m.pieces.size() - 1, m.codes.size());
    messages_[d.id] = std::move(m);
  }

  // "E%hhu" then "value|name:" per member.
  void addType(DescHeader const& d, std::string_view s) {
    if (!s.starts_with("E%hhu")) return error("type {}: unsupported type string '{}'", d.id, s);
    auto& members = types_[d.id];
    for (s.remove_prefix(5); !s.empty();) {
      auto bar = s.find('|');
      auto colon = s.find(':', bar);
      if (bar == std::string_view::npos || colon == std::string_view::npos)
        return error("type {}: damaged member list", d.id);
      members[static_cast<unsigned>(std::atoi(std::string(s.substr(0, bar)).c_str()))] =
          std::string(s.substr(bar + 1, colon - bar - 1));
      s.remove_prefix(colon + 1);
    }
  }

  void readRing(int level) {
    RingHeader const& r = h_.rings[level];
    if (r.capacity == 0) return;
    if (r.capacity % 8 || r.offset + r.capacity > h_.fileSize || r.tail > r.head || r.head - r.tail > r.capacity ||
        r.tail % 8)
      return error("level {}: ring header damaged", level);
    std::uint64_t prevSeq = 0;
    for (std::uint64_t pos = r.tail; pos < r.head;) {
      std::uint64_t off = pos % r.capacity;
      std::uint64_t filePos = r.offset + off;
      char const* p = at(filePos, padRecordBytes);
      if (!p) return error("level {}: record at byte {} lies beyond the end of the file", level, filePos);
      RecordHeader rh{};
      std::memcpy(&rh, p, padRecordBytes);
      if (rh.size < padRecordBytes || rh.size % 8 || off + rh.size > r.capacity || rh.size > r.head - pos ||
          (rh.msgId != 0 && rh.size < sizeof rh))
        return error("level {}: record at byte {} has a bad size {}", level, filePos, rh.size);
      if (!at(filePos, rh.size)) return error("level {}: record at byte {} is cut off", level, filePos);
      pos += rh.size;
      if (rh.msgId == 0) continue;
      std::memcpy(&rh, p, sizeof rh);
      auto m = messages_.find(rh.msgId);
      if (m == messages_.end())
        return error("level {}: record at byte {} has message id {}, which is not described", level, filePos, rh.msgId);
      if (rh.seq >= h_.nextSeq || (prevSeq && rh.seq <= prevSeq))
        return error("level {}: record at byte {} has sequence number {} out of order", level, filePos, rh.seq);
      prevSeq = rh.seq;
      DecodedRecord rec{rh.seq, secondsOf(rh.stamp, h_.tickClock), level, rh.msgId, {}};
      Cursor c{p + sizeof rh, p + rh.size};
      if (!render(m->second, c, rec.text))
        return error("level {}: record at byte {}: values do not fit message {}", level, filePos, rh.msgId);
      out_.records.push_back(std::move(rec));
    }
  }

  bool render(Message const& m, Cursor& c, std::string& out) {
    out += m.pieces[0];
    for (std::size_t k = 0; k < m.codes.size(); ++k) {
      renderValue(m.codes[k], c, out);
      out += m.pieces[k + 1];
    }
    return c.ok;
  }

  void renderValue(Code code, Cursor& c, std::string& out) {
    auto to = std::back_inserter(out);
    bool inRange = true;
    switch (code.kind) {
      case Kind::p:
        out += getText(c);
        return;
      case Kind::s:
        fmt::format_to(to, "{}", c.get<std::uint16_t>());
        return;
      case Kind::i:
        fmt::format_to(to, "{}", c.get<std::uint32_t>());
        return;
      case Kind::u:
        fmt::format_to(to, "{}", c.get<std::uint8_t>());
        return;
      case Kind::b:
        out += c.get<std::uint8_t>() ? "true" : "false";
        return;
      case Kind::d:
        fmt::format_to(to, "{}", c.get<double>());
        return;
      case Kind::E:
        out += getEth(c).stringValue().view();
        return;
      case Kind::I:
        out += getIp(c).stringValue().view();
        return;
      case Kind::I6:
        out += Lanx::Ip6Addr(c.get<Lanx::Ip6Addr::Bytes>()).stringValue().view();
        return;
      case Kind::IGO:
        out += getIgo(c).stringValue().view();
        return;
      case Kind::MV: {
        auto mac = getEth(c);
        auto vlan = getVlan(c, inRange);
        return inRange ? appendStreamed(out, Bridging::HostKey(vlan, mac)) : appendStreamed(out, mac);
      }
      case Kind::MVP: {
        auto mac = getEth(c);
        auto vlan = getVlan(c, inRange);
        return inRange ? appendStreamed(out, Vxlan::MacVlanPair(mac, vlan)) : appendStreamed(out, mac);
      }
      case Kind::VIPO: {
        auto vlan = c.get<std::uint16_t>();
        return appendStreamed(out, Vxlan::VlanIpPair(vlan, getIgo(c)));
      }
      case Kind::VIS: {
        auto vlan = c.get<std::uint16_t>();
        auto addr = getIgo(c);
        auto source = Arp::ArpSource(c.get<std::uint8_t>());
        // A VLAN beyond the range (a damaged record) leaves the address alone.
        if (vlan > Bridging::VlanIdOrNone::max) {
          out += addr.stringValue().view();
          return;
        }
        out += Mlag::VlanIpSource(Bridging::VlanIdOrNone(vlan), addr, source).toStrep().view();
        return;
      }
      case Kind::VSP: {
        auto intf = getText(c);
        auto source = getText(c);
        auto vni = c.get<std::uint32_t>();
        auto flags = c.get<std::uint8_t>();
        return appendStreamed(
            out, Vxlan::VniSourcePair(Lanx::IntfId(intf), Brix::String(source), Vxlan::VniExtOrNone(vni), flags));
      }
      case Kind::MVT: {
        auto mac = getEth(c);
        auto vtep = getIp(c);
        auto seqNum = c.get<std::uint32_t>();
        auto preference = c.get<std::uint8_t>();
        return appendStreamed(out, VxlanController::MacVtepV2(mac, vtep, seqNum, preference));
      }
      case Kind::D:
        out += getDest(c).stringValue().view();
        return;
      case Kind::F: {
        auto v = c.get<std::uint8_t>();
        auto t = types_.find(code.typeId);
        auto n = t == types_.end() ? nullptr : &t->second;
        if (n && n->count(v)) {
          out += n->at(v);
        } else {
          fmt::format_to(to, "{}", v);
        }
        return;
      }
    }
  }

  std::string_view b_;
  FileHeader h_{};
  DecodedFile out_;
  std::unordered_map<int, Message> messages_;
  std::unordered_map<int, std::unordered_map<unsigned, std::string>> types_;
};

}  // namespace

DecodedFile decode(std::string_view bytes) { return Decoder(bytes).run(); }

DecodedFile decodeFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    DecodedFile f;
    f.errors.push_back(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    return f;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return decode(bytes);
}

std::string formatRecord(DecodedRecord const& r) { return fmt::format("{:.6f} {} {}", r.time, r.level, r.text); }

}  // namespace RingLog
