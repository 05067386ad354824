#include "Vxlan/SdeToBumStatusSm.h"

#include <cassert>

#include "Vxlan/Trace.h"

namespace MlagVxlan {

namespace {
constexpr Lanx::EthAddr zeroMac{};
}

// ---- the entry ----

SdeToBumStatusSm::SdeToBumStatusSm(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                   Brix::Ptr<Vxlan::BumStatus> bumStatusOutput)
    : sdeInput_(this, std::move(sdeInput), &sdeInputDispatch), bumStatusOutput_(std::move(bumStatusOutput)) {
  handleSourceInitialized();
}

void SdeToBumStatusSm::SdeToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                          Brix::Ptr<Vxlan::BumStatus> bumStatusOutput) {
  Vok::smIs(out, std::move(sdeInput), std::move(bumStatusOutput));
}

SdeToBumStatusSm::Ptr sdeToBumStatusSmFactory(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                              Brix::Ptr<Vxlan::BumStatus> bumStatusOutput) {
  SdeToBumStatusSm::Ptr out;
  SdeToBumStatusSm::SdeToBumStatusSmIs(out, std::move(sdeInput), std::move(bumStatusOutput));
  return out;
}

void SdeToBumStatusSm::sdeInputDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                        void const* key, void const*) noexcept {
  using E = L2Rib::SourceDirEntry;
  if (field != E::sourceInitializedField && field != E::vlanFloodSetField) return;
  auto* self = subscriber->ownerAs<SdeToBumStatusSm>();
  if (self->zombie()) return;
  if (field == E::sourceInitializedField) {
    self->handleSourceInitialized();
  } else {
    self->handleVlanFloodSet(*static_cast<Bridging::VlanId const*>(key));
  }
}

void SdeToBumStatusSm::handleSourceInitialized() {
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleSourceInitialized");
  if (sourceInitialized()) {
    bumStatusOutput_->bumReplicationModeIs(Vxlan::BumReplicationMode::headend);
    handleVlanFloodSet();
  } else {
    VXLAN_TRACE(6, " Clearing BumStatus as VCS SDE is uninitialized");
    vfsToBumStatusSmDelAll();
    bumStatusOutput_->bumReplicationModeIs(Vxlan::BumReplicationMode::none);
    bumStatusOutput_->bumVtepListDelAll();
  }
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleSourceInitialized return");
}

void SdeToBumStatusSm::handleVlanFloodSet() {
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleVlanFloodSet");
  for (auto it = bumStatusOutput_->bumVtepListIter(); !it.done(); it.advance()) {
    handleVlanFloodSet(it.currNodeMaybeStale().key.vlanId());
  }
  if (sdeInput_) {
    for (auto it = sdeInput_->vlanFloodSetIter(); !it.done(); it.advance()) {
      handleVlanFloodSet(it.currNodeMaybeStale().key);
    }
  }
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleVlanFloodSet return");
}

void SdeToBumStatusSm::handleVlanFloodSet(Bridging::VlanId vlanId) {
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleVlanFloodSet vlan {vlanId}", vlanId);
  if (!sourceInitialized()) return;
  if (auto entry = sdeInput_->vlanFloodSet(vlanId)) {
    vfsToBumStatusSmIs(std::move(entry), bumStatusOutput_);
  } else {
    (void)vfsToBumStatusSmDel(vlanId);
    bumStatusOutput_->bumVtepListDel(Vxlan::MacVlanPair(zeroMac, vlanId));
  }
  VXLAN_TRACE(5, "SdeToBumStatusSm::handleVlanFloodSet vlan {vlanId} return", vlanId);
}

void SdeToBumStatusSm::doCleanup() {
  VXLAN_TRACE(5, "SdeToBumStatusSm::doCleanup");
  if (bumStatusOutput_) {
    bumStatusOutput_->bumReplicationModeIs(Vxlan::BumReplicationMode::none);
    bumStatusOutput_->bumVtepListDelAll();
  }
  VXLAN_TRACE(5, "SdeToBumStatusSm::doCleanup return");
}

// ---- one VLAN ----

VfsToBumStatusSm::VfsToBumStatusSm(Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetIn,
                                   Brix::Ptr<Vxlan::BumStatus> bumStatusOutput)
    : vlanFloodSetIn_(this, std::move(vlanFloodSetIn), &vlanFloodSetInDispatch),
      bumStatusOutput_(std::move(bumStatusOutput)),
      vlanId_(vlanFloodSetIn_ ? vlanFloodSetIn_->vlanId() : Bridging::VlanId(1)) {
  handleFloodSet();
}

void VfsToBumStatusSm::VfsToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetIn,
                                          Brix::Ptr<Vxlan::BumStatus> bumStatusOutput) {
  Vok::smIs(out, std::move(vlanFloodSetIn), std::move(bumStatusOutput));
}

void VfsToBumStatusSm::vlanFloodSetInDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                              void const* key, void const*) noexcept {
  if (field != L2Rib::VlanFloodSet::floodSetField) return;
  auto* self = subscriber->ownerAs<VfsToBumStatusSm>();
  if (self->zombie()) return;
  self->handleFloodSet(*static_cast<Lanx::EthAddr const*>(key));
}

void VfsToBumStatusSm::handleFloodSet() {
  VXLAN_TRACE(5, "VfsToBumStatusSm::handleFloodSet vlan {vlanId}", vlanId_);
  if (vlanFloodSetIn_) {
    for (auto it = vlanFloodSetIn_->floodSetIter(); !it.done(); it.advance()) {
      handleFloodSet(it.currNodeMaybeStale().key);
    }
  }
  VXLAN_TRACE(5, "VfsToBumStatusSm::handleFloodSet vlan {vlanId} return", vlanId_);
}

void VfsToBumStatusSm::handleFloodSet(Lanx::EthAddr const& mac) {
  VXLAN_TRACE(5, "VfsToBumStatusSm::handleFloodSet vlan {vlanId} macAddr {mac}", vlanId_, mac);
  if (!mac.isZero()) {
    VXLAN_TRACE(6, " Skip non-zero MAC {mac}", mac);
    return;
  }
  Vxlan::MacVlanPair const key(mac, vlanId_);
  if (auto floodSet = vlanFloodSetIn_ ? vlanFloodSetIn_->floodSet(mac) : nullptr) {
    fsToBumStatusSmIs(std::move(floodSet), bumStatusOutput_->bumVtepListIs(key));
  } else {
    (void)fsToBumStatusSmDel(mac);
    bumStatusOutput_->bumVtepListDel(key);
  }
  VXLAN_TRACE(5, "VfsToBumStatusSm::handleFloodSet vlan {vlanId} macAddr {mac} return", vlanId_, mac);
}

// ---- the zero MAC's flood set ----

FsToBumStatusSm::FsToBumStatusSm(Brix::Ptr<L2Rib::FloodSet const> floodSetIn,
                                 Brix::Ptr<Vxlan::BumVtepList> bumVtepListOut)
    : floodSetIn_(this, std::move(floodSetIn), &floodSetInDispatch),
      bumVtepListOut_(std::move(bumVtepListOut)),
      macAddr_(floodSetIn_ ? floodSetIn_->macAddr() : Lanx::EthAddr()),
      vlanId_(bumVtepListOut_ ? bumVtepListOut_->macVlanPair().vlanId() : Bridging::VlanId(1)) {
  handleInitialized();
}

void FsToBumStatusSm::FsToBumStatusSmIs(Ptr& out, Brix::Ptr<L2Rib::FloodSet const> floodSetIn,
                                        Brix::Ptr<Vxlan::BumVtepList> bumVtepListOut) {
  Vok::smIs(out, std::move(floodSetIn), std::move(bumVtepListOut));
}

void FsToBumStatusSm::floodSetInDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                         void const* key, void const*) noexcept {
  using F = L2Rib::FloodSet;
  if (field != F::floodSetTypeField && field != F::destSetField) return;
  auto* self = subscriber->ownerAs<FsToBumStatusSm>();
  if (self->zombie()) return;
  if (field == F::floodSetTypeField) {
    self->handleFloodSetType();
  } else {
    self->handleDestSet(*static_cast<L2Rib::Dest const*>(key));
  }
}

void FsToBumStatusSm::handleInitialized() {
  VXLAN_TRACE(5, "FsToBumStatusSm::handleInitialized vlan {vlanId} macAddr {mac}", vlanId_, macAddr_);
  handleFloodSetType();
  // The list's addresses go through the same step as the input's destinations, in the form
  // this side would have written them: an address whose destination the input lacks goes.
  for (auto it = bumVtepListOut_->remoteVtepAddrIter(); !it.done(); it.advance()) {
    handleDestSet(L2Rib::canonicalVxlanDest(it.currNodeMaybeStale().key));
  }
  for (auto it = floodSetIn_->destSetIter(); !it.done(); it.advance()) {
    handleDestSet(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "FsToBumStatusSm::handleInitialized vlan {vlanId} macAddr {mac} return", vlanId_, macAddr_);
}

void FsToBumStatusSm::handleFloodSetType() {
  VXLAN_TRACE(5, "FsToBumStatusSm::handleFloodSetType vlan {vlanId} macAddr {mac}", vlanId_, macAddr_);
  switch (floodSetIn_->floodSetType()) {
    case L2Rib::FloodSetType::all:
      bumVtepListOut_->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::all);
      break;
    case L2Rib::FloodSetType::any:
      bumVtepListOut_->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::any);
      break;
    default:
      break;  // the list keeps its type
  }
  VXLAN_TRACE(5, "FsToBumStatusSm::handleFloodSetType vlan {vlanId} macAddr {mac} return", vlanId_, macAddr_);
}

// Only the VTEP address of a destination crosses; whether it is true or false does not matter.
void FsToBumStatusSm::handleDestSet(L2Rib::Dest const& dest) {
  VXLAN_TRACE(5, "FsToBumStatusSm::handleDestSet vlan {vlanId} macAddr {mac}", vlanId_, macAddr_);
  assert(dest.destType() == L2Rib::destTypeVxlan() && "dest.destType() == L2Rib::destTypeVxlan()");
  Lanx::IpGenAddr const& addr = dest.vxlan().vtepAddr();
  if (!addr.isV4()) {
    VXLAN_TRACE(6, " Skipping non IPv4 address {addr}", addr);
    return;
  }
  Lanx::IpAddr const v4 = addr.v4Addr();
  if (floodSetIn_->destSetHas(dest)) {
    VXLAN_TRACE(6, " Adding addr {addr}", v4);
    bumVtepListOut_->remoteVtepAddrIs(v4, true);
  } else {
    VXLAN_TRACE(6, " Deleting addr {addr}", v4);
    bumVtepListOut_->remoteVtepAddrDel(v4);
  }
  VXLAN_TRACE(5, "FsToBumStatusSm::handleDestSet vlan {vlanId} macAddr {mac} return", vlanId_, macAddr_);
}

}  // namespace MlagVxlan
