// The free functions that the neighbouring agents' libraries provide, as this platform layer
// defines them. Each one's rule is stated at its declaration; the state machines rely only on
// what they are called with and where their results go.
#pragma once

#include <cstdint>
#include <string_view>

#include "entities/Mlag/Status.h"
#include "entities/Routing/L2VpnConfig.h"
#include "entities/Vxlan/ActiveArpIpTable.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/Dir.h"
#include "runtime/Time.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/MlagP2p.h"
#include "types/Shoal.h"
#include "types/Vxlan.h"

// The controller's MAC table of one VNI: the child of `dir` named by the VNI's decimal text
// (for instance "10010"), if it is a VxlanController::VniFdbStatusV2; null otherwise.
Brix::Ptr<VxlanController::VniFdbStatusV2 const> fdbStatusFromDir(Brix::Ptr<Vok::Dir const> const& dir,
                                                                  Vxlan::VniExt vni);

// Whether `addr` is to be installed under selective install by `table`.
// - No table: false.
// - Selective install off (neither arpSelectiveInstall nor arpSelectiveInstall2): every address
//   of IPv4 or IPv6 that is not zero.
// - On: only unicast host addresses: not zero, not multicast, not the IPv4 broadcast, not
//   loopback, and not IPv6 link-local unless `flag` asks for link-local addresses too.
// - A VLAN given (not none) must also have a valid SVI for the address's family in the table.
bool selectiveInstallAddr(Brix::Ptr<Vxlan::ActiveArpIpTable const> const& table, Lanx::IpGenAddr const& addr, bool flag,
                          Bridging::VlanIdOrNone const& vlan);

// Whether `addr` is to be learned by L2 learning: false without both `config` and `table`;
// otherwise L2 learning must be on (l2LearningSwitch1 or l2LearningSwitch2), the address an
// IPv4 or IPv6 address that is not zero, and, with a VLAN given (not none), that VLAN must have
// a valid SVI for the address's family (`validSvi` for IPv4, `validSvi6` for IPv6). With none
// the SVI check is skipped.
bool l2LearningInstallAddr(Brix::Ptr<Routing::L2Vpn::Config const> const& config,
                           Brix::Ptr<Vxlan::ActiveArpIpTable const> const& table, Lanx::IpGenAddr const& addr,
                           Bridging::VlanIdOrNone const& vlan);

namespace Bridging {
// The FDB entry types, as the remote-MAC exchange sees them:
// - Self: the entry belongs to this switch (learned, configured, told by its controller or
//   EVPN, or its router MAC), not one that the peer learned and synchronised here.
// - Remote: the entry lies behind a VXLAN tunnel; its interface is a tunnel interface.
// - Controller: the entry came from the VXLAN controller, EVPN included.
// - Evpn: the entry came through EVPN.
bool isEntryTypeSelf(EntryType t) noexcept;
bool isEntryTypeRemote(EntryType t) noexcept;
bool isEntryTypeController(EntryType t) noexcept;
bool isEntryTypeEvpn(EntryType t) noexcept;
}  // namespace Bridging

namespace Mlag {

// The peer's monotonic clock runs `peerMonotonicOffset` seconds ahead of this switch's. With
// `peerMonotonicOffsetFlag` set the two clocks are taken as one (the offset has already been
// applied by the protocol), and times cross unchanged.

// The last move time to publish to the peer: the FDB entry's local time on the peer's clock,
// never below 0. `updateMlag` is set when the entry has moved at least once (moves > 0): then
// the local MLAG host table holds a last move time that the peer's view must correct.
Brix::Duration calcLastMoveTimeToPeer(Shoal::Bridging::ShoalFdbStatus const& fdbEntry,
                                      Brix::Duration const& peerMonotonicOffset, bool peerMonotonicOffsetFlag,
                                      bool* updateMlag);

// The last move time for the local MLAG host table: the latest of the peer's last move
// (`p2pEntry`, which the peer sent already on this switch's clock), of what this side is telling
// the peer (`sentEntry`, on the peer's clock, brought back) and of the local FDB entry's, so that
// a MAC that moved on either side keeps its latest move, never below 0.
Brix::Duration calcLastMoveTimeFromPeer(MlagP2p::HostEntry const& p2pEntry,
                                        Shoal::Bridging::ShoalFdbStatus const& fdbEntry,
                                        MlagP2p::HostEntry const& sentEntry, bool peerMonotonicOffsetFlag,
                                        Brix::Duration const& peerMonotonicOffset);

// The one-byte entry type of a peer-to-peer host entry. Peers of protocol version 2 and later
// take the FDB entry type as it is; older peers know only the types up to receivedRemoteMac, so
// every later remote type is sent as learnedRemoteMac and the router MAC as configuredStaticMac.
std::uint8_t toP2pHostEntryType(Bridging::EntryType t, unsigned peerP2pVersion) noexcept;

}  // namespace Mlag

// A feature toggle: the boolean `name` of the JSON object in the file `file`, looked up in the
// directory named by the environment variable MLAGVXLAN_TOGGLE_DIR (default "/etc/mlagvxlan").
// A missing or malformed file (not a JSON object) gives `defaultValue` with a one-line warning on
// standard error; a missing or non-boolean member gives `defaultValue` silently.
bool getToggleState(char const* name, char const* file, bool defaultValue);
// The same from the file's text: `malformed` (if given) tells whether the text is not a JSON
// object, the case getToggleState warns of.
bool toggleStateFromJson(std::string_view json, char const* name, bool defaultValue, bool* malformed = nullptr);
