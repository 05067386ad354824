// PrimarySm::VrfConfigSm: the ARP table of one configured VRF, published to the peer in the form
// the peer takes. The two forms never stand together: the all-keys pass of either form begins by
// emptying the other for every VRF at once.
#include <cstdint>
#include <unordered_set>

#include "Vxlan/PrimarySm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

namespace {

// What the input says of a key that is not to be published: a row that is gone, or one marked so.
bool notPublished(Arp::InputConfigEntry const& entry) {
  return entry.isEq(Arp::InputConfigEntry()) || entry.stateCode() == Arp::InputConfigEntry::stateCodeNotPublished;
}

// The input key a published row with VLAN came from: the VLAN's interface and the address.
Arp::InputConfigKey inputKeyOf(Mlag::VlanIpSource const& member) {
  return Arp::InputConfigKey(Lanx::VlanIntfId::intfId(member.vlanId().value()), member.ipAddr());
}

}  // namespace

PrimarySm::VrfConfigSm::VrfConfigSm(Brix::Ptr<Arp::InputConfigVrf const> const& vrf, PrimarySm* primarySm)
    : Reactor(vrf, primarySm), name_(vrf ? vrf->name() : L3::VrfName()) {
  handleInitialized();
}

void PrimarySm::VrfConfigSm::onAttribute(Brix::FieldId field, void const* key) {
  bool const v4 = field == Arp::InputConfigVrf::ipv4Field;
  if ((!v4 && field != Arp::InputConfigVrf::ipv6Field) || zombie() || !owner()) return;
  auto const& k = *static_cast<Arp::InputConfigKey const*>(key);
  if (v4) {
    vok_handleVrf_ipv4(k);
  } else {
    vok_handleVrf_ipv6(k);
  }
}

void PrimarySm::VrfConfigSm::vok_handleVrf_ipv4(Arp::InputConfigKey const& key) {
  if (!peerArpByVlanIpCapable_) {
    handleIpv4VrfArpInput(key);
  } else {
    handleVrfArpInputForVlanIpCapablePeer(key);
  }
}

// IPv6 entries stop here while the peer takes the table by VRF.
void PrimarySm::VrfConfigSm::vok_handleVrf_ipv6(Arp::InputConfigKey const& key) {
  if (peerArpByVlanIpCapable_) handleVrfArpInputForVlanIpCapablePeer(key);
}

void PrimarySm::VrfConfigSm::handleInitialized() {
  VXLAN_TRACE(5, "PrimarySm::VrfConfigSm({vrfName})::handleInitialized()", name_);
  initialized_ = true;
  // A new nested reactor runs the all-keys pass here, and the next step runs it again.
  recvVxStatusIs(owner()->recvVxStatus());
  handlePeerArpByVlanIpCapable();
}

void PrimarySm::VrfConfigSm::handlePeerArpByVlanIpCapable() {
  if (!initialized_) return;
  peerArpByVlanIpCapable_ = recvVxStatus_->input()->peerArpByVlanIpCapable();
  VXLAN_TRACE(5, "PrimarySm::VrfConfigSm({vrfName})::handlePeerArpByVlanIpCapable() peerArpByVlanIpCapable {flag}",
              name_, peerArpByVlanIpCapable_);
  if (peerArpByVlanIpCapable_) {
    handleVrfArpInputForVlanIpCapablePeer();
  } else {
    handleIpv4VrfArpInput();
  }
}

// ---- by VRF, IPv4 only ----

void PrimarySm::VrfConfigSm::handleIpv4VrfArpInput() {
  if (!initialized_) return;
  Mlag::VxlanStatus& sentVxStatus = *owner()->sentVxStatus();
  auto sent = sentVxStatus.arpStatusIs(name_);
  auto const sentCount = static_cast<std::uint32_t>(sent->arpEntryCount());
  auto const inputCount = static_cast<std::uint32_t>(input()->ipv4Count());
  VXLAN_TRACE(5,
              "PrimarySm::VrfConfigSm({vrfName})::handleIpv4VrfArpInput() number of arp entries in sentVxStatus: "
              "{sentCount} input: {inputCount}",
              name_, sentCount, inputCount);
  sentVxStatus.arpStatusWithVlanDelAll();
  // Every input key enters the set, published or not: a row marked not to be published was
  // withdrawn by the one-key form and is no business of the pruning below.
  std::unordered_set<Lanx::IpAddr> inputAddrs;
  if (auto in = owner()->arpInputConfig()->vrf(name_)) {
    inputAddrs.reserve(in->ipv4Count());
    for (auto it = in->ipv4Iter(); !it.done(); it.advance()) {
      Arp::InputConfigKey const key = it.currNodeMaybeStale().key;
      handleIpv4VrfArpInput(key);
      inputAddrs.insert(key.addr().v4Addr());
    }
  }
  // The one-key form may have dropped the table and made a new one meanwhile: what follows
  // works on the table that stands now, so that a new one is never taken for an old one.
  sent = sentVxStatus.arpStatus(name_);
  if (sent) {
    for (auto it = sent->arpEntryIter(); !it.done(); it.advance()) {
      Lanx::IpAddr const ip = it.currNodeMaybeStale().key;
      if (!inputAddrs.contains(ip)) sent->arpEntryDel(ip);
    }
  }
  if (!sent || sent->arpEntryCount() == 0) delIpv4VrfFromSent();
}

void PrimarySm::VrfConfigSm::handleIpv4VrfArpInput(Arp::InputConfigKey const& key) {
  if (!initialized_) return;
  Lanx::IpAddr const ip = key.addr().v4Addr();
  VXLAN_TRACE(5, "PrimarySm::VrfConfigSm({vrfName})::handleIpv4VrfArpInput() ipAddr {ip}", name_, ip);
  Arp::InputConfigEntry const entry = input()->ipv4(key);
  VXLAN_TRACE(8,
              "void MlagVxlan::PrimarySm::VrfConfigSm::handleIpv4VrfArpInput(const Arp::InputConfigKey&) input "
              "entry is: {entry}",
              entry);
  auto sent = owner()->sentVxStatus()->arpStatusIs(name_);
  if (notPublished(entry)) {
    VXLAN_TRACE(6, " Del ARP entry from sentArpStatus ipAddr {ip}", ip);
    sent->arpEntryDel(ip);
    if (sent->arpEntryCount() == 0) delIpv4VrfFromSent();
    return;
  }
  VXLAN_TRACE(6, " Add ARP entry to sentArpStatus ipAddr {ip}", ip);
  sent->arpEntryIs(Arp::ArpEntry(ip, entry.ethAddr(), entry.kind()));
}

void PrimarySm::VrfConfigSm::delIpv4VrfFromSent() {
  VXLAN_TRACE_FN("handleIpv4VrfArpInput", 6,
                 "PrimarySm::VrfConfigSm({vrfName})::handleIpv4VrfArpInput del VRF from sentVxStatus", name_);
  owner()->sentVxStatus()->arpStatusDel(name_);
}

// ---- with VLAN, IPv4 and IPv6 ----

void PrimarySm::VrfConfigSm::handleVrfArpInputForVlanIpCapablePeer() {
  if (!initialized_) return;
  Mlag::VxlanStatus& sentVxStatus = *owner()->sentVxStatus();
  auto sent = sentVxStatus.arpStatusWithVlan(name_);
  auto const sentCount = static_cast<std::uint32_t>(sent ? sent->arpEntryCount() : 0);
  auto const inputCount = static_cast<std::uint32_t>(input()->ipv4Count() + input()->ipv6Count());
  VXLAN_TRACE(5,
              "PrimarySm::VrfConfigSm({vrfName})::handleVrfArpInputForVlanIpCapablePeer() number of arp and nd "
              "entries in sentVxStatus: {sentCount} input: {inputCount}",
              name_, sentCount, inputCount);
  sentVxStatus.arpStatusDelAll();
  auto in = owner()->arpInputConfig()->vrf(name_);
  // A published row whose interface and address the input no longer has goes, whatever its
  // source.
  if (sent) {
    for (auto it = sent->arpEntryIter(); !it.done(); it.advance()) {
      Mlag::VlanIpSource const member = it.currNodeMaybeStale().key;
      if (!in || !in->afEntryHas(inputKeyOf(member))) sent->arpEntryDel(member);
    }
  }
  if (in) {
    for (auto it = in->ipv4Iter(); !it.done(); it.advance()) {
      handleVrfArpInputForVlanIpCapablePeer(Arp::InputConfigKey(it.currNodeMaybeStale().key));
    }
    for (auto it = in->ipv6Iter(); !it.done(); it.advance()) {
      handleVrfArpInputForVlanIpCapablePeer(Arp::InputConfigKey(it.currNodeMaybeStale().key));
    }
  }
  sent = sentVxStatus.arpStatusWithVlan(name_);
  if (sent && sent->arpEntryCount() == 0) delVlanIpVrfFromSent();
}

void PrimarySm::VrfConfigSm::handleVrfArpInputForVlanIpCapablePeer(Arp::InputConfigKey const& key) {
  if (!initialized_) return;
  // Raises for an interface number above 4094 before anything is written.
  Bridging::VlanIdOrNone const vlanId(Lanx::VlanIntfId::vlanId(key.intfId()));
  Lanx::IpGenAddr const& ipAddr = key.addr();
  VXLAN_TRACE(5,
              "PrimarySm::VrfConfigSm({vrfName})::handleVrfArpInputForVlanIpCapablePeer() ipAddr {ipAddr} vlanId "
              "{vlanId}",
              name_, ipAddr, vlanId);
  Arp::InputConfigEntry const entry = input()->afEntry(key);
  VXLAN_TRACE(8,
              "void MlagVxlan::PrimarySm::VrfConfigSm::handleVrfArpInputForVlanIpCapablePeer(const "
              "Arp::InputConfigKey&) input entry is: {entry}",
              entry);
  Mlag::VxlanStatus& sentVxStatus = *owner()->sentVxStatus();
  auto sent = sentVxStatus.arpStatusWithVlan(name_);
  Mlag::VlanIpSource const member(vlanId, ipAddr, owner()->arpInputConfig()->source());
  // The row's key is traced as itself: its text form is toStrep(), made only for a text line.
  if (notPublished(entry)) {
    if (!sent) return;
    VXLAN_TRACE(6, " Del ARP entry to sentArpStatusWithVlan  {member}", member);
    sent->arpEntryDel(member);
    if (sent->arpEntryCount() == 0) delVlanIpVrfFromSent();
    return;
  }
  VXLAN_TRACE(6, " Add ARP entry to sentArpStatusWithVlan  {member}", member);
  if (!sent) sent = sentVxStatus.arpStatusWithVlanIs(name_);
  sent->arpEntryIs(member, entry.ethAddr());
}

void PrimarySm::VrfConfigSm::delVlanIpVrfFromSent() {
  VXLAN_TRACE_FN("handleVrfArpInputForVlanIpCapablePeer", 6,
                 "PrimarySm::VrfConfigSm({vrfName})::handleVrfArpInputForVlanIpCapablePeer del VRF from sentVxStatus",
                 name_);
  owner()->sentVxStatus()->arpStatusWithVlanDel(name_);
}

// ---- the end ----

// A VRF that is still configured keeps what was published: only the VRF's leaving withdraws it.
// The owner is gone only when its own construction failed, and then there is nothing to reach.
void PrimarySm::VrfConfigSm::cleanup() {
  if (!initialized_ || !owner()) return;
  VXLAN_TRACE(5, "PrimarySm::VrfConfigSm({vrfName})::cleanup()", name_);
  if (!owner()->arpInputConfig()->vrfHas(name_)) {
    owner()->sentVxStatus()->arpStatusDel(name_);
    owner()->sentVxStatus()->arpStatusWithVlanDel(name_);
  }
  initialized_ = false;
}

}  // namespace MlagVxlan
