#include "Wire/Codec.h"

#include <fmt/format.h>

namespace MlagVxlan::Wire {

std::string Reader::truncatedMessage(std::size_t n) const {
  return fmt::format("truncated: {} bytes wanted at offset {}, {} left", n, pos_, left());
}

bool Codec<bool>::decode(Reader& r) {
  auto b = r.u8();
  if (b > 1) throw DecodeError(fmt::format("a boolean of {}", b));
  return b == 1;
}

void Codec<Lanx::IpGenAddr>::encode(Writer& w, Lanx::IpGenAddr const& v) {
  w.u8(static_cast<std::uint8_t>(v.af()));
  if (v.isV4()) {
    w.bytes(v.v4Addr().bytes());
  } else if (v.isV6()) {
    w.bytes(v.bytes());
  }
}

Lanx::IpGenAddr Codec<Lanx::IpGenAddr>::decode(Reader& r) {
  auto af = static_cast<Lanx::AddressFamily>(r.u8());
  switch (af) {
    case Lanx::AddressFamily::ipv4:
      return Lanx::IpGenAddr(Codec<Lanx::IpAddr>::decode(r));
    case Lanx::AddressFamily::ipv6:
      return Lanx::IpGenAddr(Codec<Lanx::Ip6Addr>::decode(r));
    default:
      return Lanx::IpGenAddr(af);
  }
}

void Codec<L2Rib::Dest>::encode(Writer& w, L2Rib::Dest const& v) {
  Wire::encode(w, v.destId());
  Wire::encode(w, v.destType());
  switch (v.destType()) {
    case L2Rib::DestType::intf:
      Wire::encode(w, v.intf());
      break;
    case L2Rib::DestType::vxlan:
      Wire::encode(w, v.vxlan());
      break;
    case L2Rib::DestType::mpls:
      Wire::encode(w, v.mpls());
      break;
    case L2Rib::DestType::tunnel:
      Wire::encode(w, v.tunnel());
      break;
    case L2Rib::DestType::none:
      break;
  }
}

L2Rib::Dest Codec<L2Rib::Dest>::decode(Reader& r) {
  auto id = Wire::decode<L2Rib::DestId>(r);
  auto type = Wire::decode<L2Rib::DestType>(r);
  switch (type) {
    case L2Rib::DestType::intf:
      return L2Rib::Dest(id, Wire::decode<L2Rib::DestDataIntf>(r));
    case L2Rib::DestType::vxlan:
      return L2Rib::Dest(id, Wire::decode<L2Rib::DestDataVxlan>(r));
    case L2Rib::DestType::mpls:
      return L2Rib::Dest(id, Wire::decode<L2Rib::DestDataMpls>(r));
    case L2Rib::DestType::tunnel:
      return L2Rib::Dest(id, Wire::decode<L2Rib::DestDataTunnel>(r));
    case L2Rib::DestType::none:
      return L2Rib::Dest(id);
  }
  throw DecodeError(fmt::format("a destination of kind {}", static_cast<unsigned>(type)));
}

}  // namespace MlagVxlan::Wire
