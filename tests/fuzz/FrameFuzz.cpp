// An agent's endpoint on any bytes from its peer, as a connection hands them over: frames are
// taken, or refused with ProtocolError or Wire::DecodeError, which drops the connection; never
// anything else. The seed corpus is a real opening exchange (hello, whole state, synced) and
// changes after it.
#include <cstddef>
#include <cstdint>

#include "PeerEndpoint.h"

namespace Transport = MlagVxlan::Transport;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Transport::PeerEntities const e = Transport::PeerEntities::made();
  Transport::PeerEndpoint endpoint("fuzz", e, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>());
  endpoint.opened();
  try {
    // In two pieces, as a stream may cut anywhere.
    std::size_t const half = size / 2;
    endpoint.bytesIn({reinterpret_cast<std::byte const*>(data), half});
    endpoint.bytesIn({reinterpret_cast<std::byte const*>(data) + half, size - half});
  } catch (Transport::ProtocolError const&) {
  } catch (MlagVxlan::Wire::DecodeError const&) {
  }
  endpoint.closed();
  return 0;
}
