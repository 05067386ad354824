// Writes the seed corpus of fuzz_wire: real changes of the five exchanged entities, as their
// senders encode them, each file a snapshot or a run of changes in the fuzz target's framing;
// and with a second directory, that of fuzz_frames: an endpoint's opening exchange and changes.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "PeerEndpoint.h"
#include "Wire/EntityCodec.h"
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/Vxlan/BumStatus.h"

namespace Wire = MlagVxlan::Wire;

namespace {

std::string dir;

// Frames what the sender emits while `fill` runs, and writes it to `name`.
template <class E, class Fill>
void seed(char const* name, std::uint8_t channel, Fill fill) {
  auto e = Brix::newNode<E>();
  std::vector<std::byte> out;
  Wire::Sender<E> tx(e, channel, [&](std::span<std::byte const> c) {
    out.push_back(static_cast<std::byte>(c.size() & 0xff));
    out.push_back(static_cast<std::byte>(c.size() >> 8));
    out.insert(out.end(), c.begin(), c.end());
  });
  fill(*e);
  tx.snapshot();
  std::ofstream(dir + "/" + name, std::ios::binary)
      .write(reinterpret_cast<char const*>(out.data()), static_cast<std::streamsize>(out.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::cerr << "usage: make-wire-seed DIR [FRAMES-DIR]\n";
    return 2;
  }
  dir = argv[1];
  if (argc == 3) {
    namespace Transport = MlagVxlan::Transport;
    Transport::PeerEntities e = Transport::PeerEntities::made();
    auto sent = Brix::newNode<Mlag::VxlanStatus>();
    e.sentVxStatus = sent;
    Transport::PeerEndpoint endpoint("seed", e, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>());
    sent->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), Bridging::VlanIdOrNone(10));
    endpoint.opened();
    sent->sharedDynVlanIs(Bridging::VlanId(10), true);
    sent->arpStatusIs(L3::VrfName("red"));
    sent->vniToDynVlanMapDel(Vxlan::VniExtOrNone(10010));
    auto const& out = endpoint.output();
    std::ofstream(std::string(argv[2]) + "/session", std::ios::binary)
        .write(reinterpret_cast<char const*>(out.data()), static_cast<std::streamsize>(out.size()));
  }
  Lanx::EthAddr const mac(0x0200, 0, 1);
  Lanx::IpGenAddr const v4(Lanx::IpAddr(10, 0, 0, 1));
  Lanx::IpGenAddr const v6(Lanx::Ip6Addr::parse("2001:db8::1"));
  seed<Mlag::VxlanStatus>("vxstatus", 0, [&](Mlag::VxlanStatus& s) {
    s.vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), Bridging::VlanIdOrNone(10));
    s.sharedDynVlanIs(Bridging::VlanId(10), true);
    s.bfdPeerStatusIs(VxlanController::BfdPeerStatusV2("vtep", Lanx::IpAddr(10, 0, 0, 2), 1, 1));
    s.arpStatusIs(L3::VrfName("red"))->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 1, 0, 1), mac));
    s.vtepTypeAddrIs(Vxlan::VtepType::localVtep, Lanx::IpAddr(10, 0, 0, 1));
    s.allVxlanBfdPeerStatusIs(Mlag::VtiVtep(Vxlan1, v4))->operStateIs(Bfd::OperState::up);
    s.arpStatusWithVlanIs(L3::VrfName("default"))
        ->arpEntryIs(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), v6, Arp::ArpSourceId::dynamic), mac);
    s.vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone(10010)), Bridging::ExtendedVlanId(10));
    s.loopDetectionCapableIs(true);
  });
  seed<MlagP2p::HostTable>("hosttable", 1, [&](MlagP2p::HostTable& t) {
    t.hostEntryIs(MlagP2p::HostEntry("Vxlan1:10.0.0.3", 1.5, 2, MlagP2p::HostEntryKey(10, mac), 5));
  });
  seed<Vxlan::ActiveArpIpTable>("activearp", 2, [&](Vxlan::ActiveArpIpTable& t) {
    t.localIpMacIs(Vxlan::VlanIpPair(10, v4), mac);
    t.remoteIpIs(Vxlan::VlanIpPair(10, v6), true);
    t.validSviIs(Bridging::VlanIdOrNone(10), true);
    t.arpSelectiveInstallIs(true);
  });
  seed<L2Rib::SourceDirEntry>("sde", 3, [&](L2Rib::SourceDirEntry& s) {
    s.sourceInitializedIs(true);
    auto fs = s.vlanFloodSetIs(Bridging::VlanId(10))->floodSetIs(Lanx::EthAddr::broadcast());
    fs->floodSetTypeIs(L2Rib::FloodSetType::all);
    fs->destSetIs(L2Rib::canonicalVxlanDest(v4), true);
    fs->destSetIs(L2Rib::Dest(L2Rib::DestId(7), L2Rib::DestDataMpls(100, v6)), true);
  });
  seed<Vxlan::BumStatus>("bumstatus", 4, [&](Vxlan::BumStatus& b) {
    b.bumReplicationModeIs(Vxlan::BumReplicationMode::headend);
    auto l = b.bumVtepListIs(Vxlan::MacVlanPair(Lanx::EthAddr::broadcast(), Bridging::VlanId(10)));
    l->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), true);
    l->remoteVtepAddr6Is(v6.v6Addr(), true);
  });
  return 0;
}
