#include "Vxlan/RemoteHostTableSm.h"

#include <fmt/format.h>

#include <cassert>
#include <cstdio>

#include "Vxlan/Trace.h"
#include "entities/PlatformFunctions.h"

namespace MlagVxlan {

namespace {

// The both-sides test: the FDB and the VXLAN FDB agree on a Self and Remote entry. The times
// are compared as 32-bit floats, where an unordered comparison is unequal.
bool onBothSides(Shoal::Bridging::ShoalFdbStatus const& fdbEntry, Shoal::Vxlan::LearnedHost const& learned) {
  return !fdbEntry.isEq(Shoal::Bridging::ShoalFdbStatus()) && !learned.isEq(Shoal::Vxlan::LearnedHost()) &&
         Bridging::isEntryTypeSelf(fdbEntry.entryType()) && Bridging::isEntryTypeRemote(fdbEntry.entryType()) &&
         static_cast<float>(fdbEntry.lastMoveTime()) == static_cast<float>(learned.lastMoveTime());
}

// The interface as the peer gets it: full name, ":" and the VTEP address, IPv6 fully expanded.
std::string encodedIntfOf(Lanx::IntfId intf, Lanx::IpGenAddr const& vtepIp) {
  Brix::String const& name = intf.stringValue();
  Brix::String const addr =
      vtepIp.af() == Lanx::AddressFamily::ipv4 ? vtepIp.stringValue() : vtepIp.v6Addr().stringValueExpanded();
  std::string out;
  out.reserve(name.size() + 1 + addr.size() + 4);  // room for the preference of a controller entry
  out.append(name.view()).append(1, ':').append(addr.view());
  return out;
}

}  // namespace

RemoteHostTableSm::RemoteHostTableSm(
    Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
    Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
    Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir)
    : sentP2pHostTable_(std::move(sentP2pHostTable)),
      mlagHostTable_(std::move(mlagHostTable)),
      bridgingConfig_(std::move(bridgingConfig)),
      bridgingStatus_(this, std::move(bridgingStatus), &bridgingStatusDispatch),
      vxlanFdbStatus_(this, std::move(vxlanFdbStatus), &vxlanFdbStatusDispatch),
      mlagProtoStatus_(this, std::move(mlagProtoStatus), &mlagProtoStatusDispatch),
      mlagStatus_(std::move(mlagStatus)),
      controllerStatusBaseDir_(std::move(controllerStatusBaseDir)),
      vtiStatusDir_(this, std::move(vtiStatusDir), &vtiStatusDirDispatch) {
  if (vtiStatusDir_) {
    for (auto it = vtiStatusDir_->vtiStatusIter(); !it.done(); it.advance()) {
      vtiStatusIs(it.currNodeMaybeStale().value);
    }
  }
  vcsMacCheckClockIs(Brix::Ptr<Vok::Clock>(&Vok::ActivityFacility::clock()));
  // A peer clock already valid starts the first walk here.
  handlePeerOffsetValid();
}

void RemoteHostTableSm::RemoteHostTableSmIs(
    Ptr& out, Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
    Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
    Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir) {
  Vok::smIs(out, std::move(sentP2pHostTable), std::move(mlagHostTable), std::move(bridgingConfig),
            std::move(bridgingStatus), std::move(vxlanFdbStatus), std::move(mlagProtoStatus), std::move(mlagStatus),
            std::move(controllerStatusBaseDir), std::move(vtiStatusDir));
}

RemoteHostTableSm::Ptr remoteHostTableSmFactory(
    Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
    Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
    Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir) {
  RemoteHostTableSm::Ptr out;
  RemoteHostTableSm::RemoteHostTableSmIs(out, std::move(sentP2pHostTable), std::move(mlagHostTable),
                                         std::move(bridgingConfig), std::move(bridgingStatus),
                                         std::move(vxlanFdbStatus), std::move(mlagProtoStatus), std::move(mlagStatus),
                                         std::move(controllerStatusBaseDir), std::move(vtiStatusDir));
  return out;
}

// ---- dispatch ----

void RemoteHostTableSm::bridgingStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                               Brix::FieldId field, void const* key, void const*) noexcept {
  if (field != Shoal::Bridging::Status::shoalFdbStatusField) return;
  auto* self = subscriber->ownerAs<RemoteHostTableSm>();
  if (self->zombie()) return;
  self->handleShoalFdbStatus(*static_cast<Bridging::HostKey const*>(key));
}

void RemoteHostTableSm::vxlanFdbStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                               Brix::FieldId field, void const* key, void const*) noexcept {
  if (field != Shoal::Vxlan::FdbStatus::learnedHostField) return;
  auto* self = subscriber->ownerAs<RemoteHostTableSm>();
  if (self->zombie()) return;
  self->handleVxlanFdbStatus(*static_cast<Vxlan::MacVlanPair const*>(key));
}

void RemoteHostTableSm::mlagProtoStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                                Brix::FieldId field, void const*, void const*) noexcept {
  if (field != Mlag::ProtoStatus::peerMonotonicOffsetValidField) return;
  auto* self = subscriber->ownerAs<RemoteHostTableSm>();
  if (self->zombie()) return;
  self->handlePeerOffsetValid();
}

// The collection follows the directory whatever the state; a status object put in place of
// another under the same interface rebinds that interface's reactor.
void RemoteHostTableSm::vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                             void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<RemoteHostTableSm>();
  if (field != Vxlan::VtiStatusDir::vtiStatusField || !self->vtiStatusDir_) return;
  auto const& intfId = *static_cast<Lanx::IntfId const*>(key);
  self->vtiStatus_.follow(intfId, self->vtiStatusDir_->vtiStatus(intfId));
}

// ---- the decision ----

void RemoteHostTableSm::handleShoalFdbStatus(Bridging::HostKey const& key) {
  if (!okToProcessEvents()) return;
  handleRemoteMacEntry(key.addr(), key.vlanId().value());
}

void RemoteHostTableSm::handleVxlanFdbStatus(Vxlan::MacVlanPair const& key) {
  if (!okToProcessEvents()) return;
  handleRemoteMacEntry(key.mac(), key.vlanId().value());
}

void RemoteHostTableSm::handleRemoteMacEntry(Lanx::EthAddr const& mac, std::uint16_t vlanId) {
  VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry({mac},{vlanId})", mac, vlanId);
  assert(peerOffsetValid() && "mlagProtoStatus()->peerMonotonicOffsetValid()");

  // The FDB is read before the VLAN is checked; a VLAN out of range has no row there.
  bool vlanInRange = vlanId >= Bridging::VlanId::min && vlanId <= Bridging::VlanId::max;
  Shoal::Bridging::ShoalFdbStatus fdbEntry;
  if (bridgingStatus_ && vlanInRange) {
    fdbEntry = bridgingStatus_->shoalFdbStatus().readOrDefault(Bridging::HostKey(Bridging::VlanId(vlanId), mac));
  }
  Bridging::VlanId const vlan(vlanId);
  Shoal::Vxlan::LearnedHost learned;
  if (vxlanFdbStatus_) learned = vxlanFdbStatus_->learnedHost().readOrDefault(Vxlan::MacVlanPair(mac, vlan));

  if (!onBothSides(fdbEntry, learned)) {
    VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return Wait for the remote entry on both peers");
    return;
  }
  if ((bridgingConfig_ && fdbEntry.key().addr() == bridgingConfig_->bridgeMacAddr()) ||
      (mlagStatus_ && fdbEntry.key().addr() == mlagStatus_->peerMacAddr())) {
    VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return ignore bridge and peer mac addr");
    return;
  }
#ifndef NDEBUG
  if (!Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId(fdbEntry.intf())) {
    fmt::print(stderr, "Not Vxlan Intf {}\n", fdbEntry.intf().stringValue().view());
  }
#endif
  assert(Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId(fdbEntry.intf()) &&
         "Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId( fdbEntry.intf() )");

  std::string encodedIntf = encodedIntfOf(fdbEntry.intf(), learned.vtepIp());
  if (Bridging::isEntryTypeController(fdbEntry.entryType())) {
    if (Bridging::isEntryTypeEvpn(fdbEntry.entryType())) {
      VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return Ignore EVPN MAC");
      return;
    }
    VxlanController::MacVtepV2 macVtep = getVcsMacEntry(fdbEntry);
    if (macVtep.isEq(VxlanController::MacVtepV2())) {
      deferredVcsMacEnq(Bridging::HostKey(vlan, mac));
      vcsMacCheckIn(vcsMacWaitTime);
      VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return Defer VCS MAC");
      return;
    }
    if (macVtep.preference() == 0) {
      VXLAN_TRACE(6, " Mac entry preference of 0 is invalid ");
      return;
    }
    fmt::format_to(std::back_inserter(encodedIntf), ":{}", unsigned{macVtep.preference()});
    VXLAN_TRACE(6, " New encoded intf {encodedIntf}, preference: {preference}", encodedIntf, macVtep.preference());
  }

  auto const& proto = *mlagProtoStatus_;
  bool updateMlag = false;
  Brix::Duration lastMoveTime =
      Mlag::calcLastMoveTimeToPeer(fdbEntry, proto.peerMonotonicOffset(), proto.peerMonotonicOffsetFlag(), &updateMlag);
  VXLAN_TRACE(6, " Last move time {lastMoveTime} moves {moves}", lastMoveTime, fdbEntry.moves());

  MlagP2p::HostEntryKey const p2pKey(vlanId, mac);
  MlagP2p::HostEntry const sentEntry(Brix::String(std::move(encodedIntf)), lastMoveTime, fdbEntry.moves(), p2pKey,
                                     Mlag::toP2pHostEntryType(fdbEntry.entryType(), proto.peerP2pVersion()));
  sentP2pHostTable_->hostEntryIs(sentEntry);

  if (!updateMlag || !recvP2pHostTable_) {
    VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return Dont update mlag");
    return;
  }
  assert(mlagHostTable_ && "mlagHostTable()");

  Mlag::HostEntryKey const mlagKey(vlanId, mac);
  MlagP2p::HostEntry const p2pEntry = recvP2pHostTable_->hostEntry(p2pKey);
  Mlag::HostEntry const mlagEntry = mlagHostTable_->hostEntry(mlagKey);
  if (p2pEntry.isEq(MlagP2p::HostEntry()) || mlagEntry.isEq(Mlag::HostEntry())) {
    VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry return No P2p or Mlag entry");
    return;
  }
  Brix::Duration peerLastMoveTime = Mlag::calcLastMoveTimeFromPeer(
      p2pEntry, fdbEntry, sentEntry, proto.peerMonotonicOffsetFlag(), proto.peerMonotonicOffset());
  VXLAN_TRACE(6, " Last move time (peer){lastMoveTime} p2p moves {p2pMoves} mlagHostEntry moves {mlagMoves}",
              peerLastMoveTime, p2pEntry.moves(), mlagEntry.moves());
  mlagHostTable_->hostEntryIs(
      Mlag::HostEntry(mlagEntry.intf(), peerLastMoveTime, mlagEntry.moves(), mlagKey, mlagEntry.entryType(), 0));
  VXLAN_TRACE(5, "RemoteHostTableSm::handleRemoteMacEntry() return");
}

// The controller's record of a VCS MAC, reached through the tunnel interface's VLAN-to-VNI map;
// the default record where any step fails.
VxlanController::MacVtepV2 RemoteHostTableSm::getVcsMacEntry(Shoal::Bridging::ShoalFdbStatus const& fdbEntry) const {
  VxlanController::MacVtepV2 macVtep;
  Brix::String const intfShortName = fdbEntry.intf().shortName();
  auto vti = vtiStatusDir_ ? vtiStatusDir_->vtiStatus(fdbEntry.intf()) : nullptr;
  if (!vti) {
    VXLAN_TRACE(5, "RemoteHostTableSm::getVcsMacEntry({intfShortName}) return  vtiStatus not found for Vxlan intf",
                intfShortName);
    return macVtep;
  }
  // The FDB key holds a VLAN already checked to be within 1 to 4094.
  Bridging::VlanId const vlanId = fdbEntry.key().vlanId();
  Vxlan::VniSourcePair const pair = vti->vlanToVniMap(vlanId);
  if (!vti->vlanToVniMapHas(vlanId) || pair.vni().isNone()) {
    VXLAN_TRACE(5,
                "RemoteHostTableSm::getVcsMacEntry({intfShortName}) return vlanToVni map not found for vlan {vlanId}",
                intfShortName, vlanId);
    return macVtep;
  }
  Vxlan::VniExt const vni(pair.vni());
  auto vniFdbStatus = fdbStatusFromDir(controllerStatusBaseDir_, vni);
  if (!vniFdbStatus) {
    VXLAN_TRACE(5, "RemoteHostTableSm::getVcsMacEntry({intfShortName}) return vniFdbStatus dir for {vni} doesn't exist",
                intfShortName, vni);
    return macVtep;
  }
  macVtep = vniFdbStatus->macVtepTable(fdbEntry.key().addr());
  VXLAN_TRACE(5, "RemoteHostTableSm::getVcsMacEntry({intfShortName}) return {macVtep}", intfShortName, macVtep);
  return macVtep;
}

}  // namespace MlagVxlan
