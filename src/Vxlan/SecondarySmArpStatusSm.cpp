// SecondarySm::ArpStatusSm and SecondarySm::ArpStatusWithVlanSm: the peer's ARP table of one VRF,
// in either form, applied to localVxStatus.arpStatusWithVlan.
#include <string_view>

#include "Vxlan/SecondarySm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

// ---- what both forms share ----

template <class Self, class Table>
SecondarySm::ArpTableSm<Self, Table>::ArpTableSm(Brix::Ptr<Table const> const& table, SecondarySm* secondarySm)
    : Vok::Reactor<SecondarySm, Table>(table, secondarySm), vrfName_(table ? table->vrfName() : L3::VrfName()) {}

template <class Self, class Table>
void SecondarySm::ArpTableSm<Self, Table>::onAttribute(Brix::FieldId field, void const* key) {
  if (field != Table::arpEntryField || this->zombie() || !this->owner()) return;
  self().handleKey(*static_cast<typename Self::Key const*>(key));
}

// Also each change of the flag: it wakes this form or puts it to sleep.
template <class Self, class Table>
void SecondarySm::ArpTableSm<Self, Table>::handleInitialized() {
  if (!this->owner()) return;
  bool const capable = recv().peerArpByVlanIpCapable();
  VXLAN_TRACE_FN("handleInitialized", 5, Self::initializedText, vrfName_, capable);
  // A new nested reactor runs this whole handler once, here.
  recvVxStatusIs(this->owner()->recvVxStatus());
  initialized_ = Self::awakeWhen(capable);
  self().handleAll();
}

// The role's end leaves the table of a VRF the peer still publishes; a later role reconciles it.
template <class Self, class Table>
void SecondarySm::ArpTableSm<Self, Table>::cleanup() {
  if (!initialized_ || !this->owner()) return;
  VXLAN_TRACE_FN("cleanup", 5, Self::cleanupText, vrfName_);
  if (!Self::peerHas(recv(), vrfName_)) local().arpStatusWithVlanDel(vrfName_);
  initialized_ = false;
}

template <class Self, class Table>
template <class Stale>
void SecondarySm::ArpTableSm<Self, Table>::dropStaleRows(Mlag::VxlanArpStatusWithVlan& out, Stale stale) {
  for (auto it = out.arpEntryIter(); !it.done(); it.advance()) {
    Mlag::VlanIpSource const row = it.currNodeMaybeStale().key;
    if (!stale(row)) continue;
    VXLAN_TRACE_FN(Self::allKeysName, 6, " Del stale Arp entry {row}", Self::rowText(row));
    out.arpEntryDel(row);
  }
}

template <class Self, class Table>
void SecondarySm::ArpTableSm<Self, Table>::dropRow(Mlag::VxlanArpStatusWithVlan& out, Mlag::VlanIpSource const& key) {
  out.arpEntryDel(key);
  if (out.arpEntryCount() != 0) return;
  VXLAN_TRACE_FN(Self::allKeysName, 6, Self::delVrfText, vrfName_, vrfName_);
  local().arpStatusWithVlanDel(vrfName_);
}

template class SecondarySm::ArpTableSm<SecondarySm::ArpStatusSm, Mlag::VxlanArpStatus>;
template class SecondarySm::ArpTableSm<SecondarySm::ArpStatusWithVlanSm, Mlag::VxlanArpStatusWithVlan>;

// ---- by VRF ----

SecondarySm::ArpStatusSm::ArpStatusSm(Brix::Ptr<Mlag::VxlanArpStatus const> const& arpStatus, SecondarySm* secondarySm)
    : ArpTableSm(arpStatus, secondarySm) {
  handleInitialized();
}

void SecondarySm::ArpStatusSm::handlePeerArpEntry() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "SecondarySm::ArpStatusSm({vrfName})::handlePeerArpEntry()", vrfName());
  auto out = local().arpStatusWithVlanIs(vrfName());
  auto peer = recv().arpStatus(vrfName());
  // Only the address is compared: a row's VLAN and source play no part.
  dropStaleRows(*out,
                [&](Mlag::VlanIpSource const& row) { return !peer || !peer->arpEntryHas(row.ipAddr().v4Addr()); });
  if (!peer) return;
  for (auto it = peer->arpEntryIter(); !it.done(); it.advance()) handlePeerArpEntry(it.currNodeMaybeStale().key);
}

void SecondarySm::ArpStatusSm::handlePeerArpEntry(Lanx::IpAddr ip) {
  if (!initialized_) return;
  auto out = local().arpStatusWithVlanIs(vrfName());
  auto peer = recv().arpStatus(vrfName());
  // A row equal to the default counts as missing.
  Arp::ArpEntry const entry = peer ? peer->arpEntry(ip) : Arp::ArpEntry();
  bool const present = !entry.isEq(Arp::ArpEntry());
  std::string_view const delOrAdd = present ? "add" : "del";
  VXLAN_TRACE(6, "SecondarySm::ArpStatusSm({vrfName})::handlePeerArpEntry() {delOrAdd} ipAddr {ip}", vrfName(),
              delOrAdd, ip);
  Mlag::VlanIpSource const key{Bridging::VlanIdOrNone(), Lanx::IpGenAddr(ip), Arp::ArpSource(Arp::ArpSourceId::peer)};
  if (present) {
    out->arpEntryIs(key, entry.ethAddr());
    return;
  }
  dropRow(*out, key);
}

// ---- with VLAN ----

SecondarySm::ArpStatusWithVlanSm::ArpStatusWithVlanSm(
    Brix::Ptr<Mlag::VxlanArpStatusWithVlan const> const& arpStatusWithVlan, SecondarySm* secondarySm)
    : ArpTableSm(arpStatusWithVlan, secondarySm) {
  handleInitialized();
}

void SecondarySm::ArpStatusWithVlanSm::handlePeerArpEntryWithVlan() {
  if (!initialized_) return;
  // This trace alone spells the class so.
  VXLAN_TRACE(5, "SecondarySm::ArpStatusVlanSm({vrfName})::handlePeerArpEntryWithVlan()", vrfName());
  auto out = local().arpStatusWithVlanIs(vrfName());
  auto peer = recv().arpStatusWithVlan(vrfName());
  dropStaleRows(*out, [&](Mlag::VlanIpSource const& row) { return !peer || !peer->arpEntryHas(row); });
  if (!peer) return;
  for (auto it = peer->arpEntryIter(); !it.done(); it.advance()) {
    handlePeerArpEntryWithVlan(Mlag::VlanIpSource(it.currNodeMaybeStale().key));
  }
}

// The peer's key goes into the output as it stands, source included.
void SecondarySm::ArpStatusWithVlanSm::handlePeerArpEntryWithVlan(Mlag::VlanIpSource const& key) {
  if (!initialized_) return;
  auto out = local().arpStatusWithVlanIs(vrfName());
  auto peer = recv().arpStatusWithVlan(vrfName());
  Lanx::EthAddr const* const found = peer ? peer->arpEntryFind(key) : nullptr;
  if (found) {
    Lanx::EthAddr const ethAddr = *found;
    VXLAN_TRACE(6,
                "SecondarySm::ArpStatusWithVlanSm({vrfName})::handlePeerArpEntryWithVlan() add {key} ethAddr: "
                "{ethAddr}",
                vrfName(), key, ethAddr);
    out->arpEntryIs(key, ethAddr);
    return;
  }
  VXLAN_TRACE(6, "SecondarySm::ArpStatusWithVlanSm({vrfName})::handlePeerArpEntryWithVlan() del {key}", vrfName(), key);
  dropRow(*out, key);
}

}  // namespace MlagVxlan
