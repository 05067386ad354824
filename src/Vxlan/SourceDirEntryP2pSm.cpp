#include "Vxlan/SourceDirEntryP2pSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

using VokVlanFloodSetInput = SourceDirEntryP2pSm::VokVlanFloodSetInput;
using VokFloodSetInput = VokVlanFloodSetInput::VokFloodSetInput;

SourceDirEntryP2pSm::SourceDirEntryP2pSm(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                         Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name)
    : sdeInput_(this, std::move(sdeInput), &sdeInputDispatch),
      sdeOutput_(std::move(sdeOutput)),
      name_(std::move(name)) {
  if (sdeInput_ && sdeOutput_) {
    for (auto it = sdeInput_->vlanFloodSetIter(); !it.done(); it.advance()) {
      sdeOutput_->vlanFloodSetIs(it.currNodeMaybeStale().key);
    }
    for (auto it = sdeOutput_->vlanFloodSetIter(); !it.done(); it.advance()) {
      Bridging::VlanId const vlan = it.currNodeMaybeStale().key;
      if (!sdeInput_->vlanFloodSetHas(vlan)) sdeOutput_->vlanFloodSetDel(vlan);
    }
  }
  if (sdeInput_) {
    for (auto it = sdeInput_->vlanFloodSetIter(); !it.done(); it.advance()) {
      vlanFloodSetInputIs(it.currNodeMaybeStale().value);
    }
  }
}

void SourceDirEntryP2pSm::SourceDirEntryP2pSmIs(Ptr& out, Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
  Vok::smIs(out, std::move(sdeInput), std::move(sdeOutput), std::move(name));
}

SourceDirEntryP2pSm::Ptr sourceDirEntryP2pSmFactory(Brix::Ptr<L2Rib::SourceDirEntry const> sdeInput,
                                                    Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
  SourceDirEntryP2pSm::Ptr out;
  SourceDirEntryP2pSm::SourceDirEntryP2pSmIs(out, std::move(sdeInput), std::move(sdeOutput), std::move(name));
  return out;
}

void SourceDirEntryP2pSm::sdeInputDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                           void const* key, void const*) noexcept {
  if (field != L2Rib::SourceDirEntry::vlanFloodSetField) return;
  auto* self = subscriber->ownerAs<SourceDirEntryP2pSm>();
  if (self->zombie()) return;
  self->handleVlanFloodSetInput(*static_cast<Bridging::VlanId const*>(key));
}

void SourceDirEntryP2pSm::handleVlanFloodSetInput(Bridging::VlanId vlanId) {
  if (!sdeInput_) return;
  auto entry = sdeInput_->vlanFloodSet(vlanId);
  if (sdeOutput_) {
    if (entry) {
      sdeOutput_->vlanFloodSetIs(vlanId);
    } else {
      sdeOutput_->vlanFloodSetDel(vlanId);
    }
  }
  vlanFloodSetInput_.follow(vlanId, entry);
}

void SourceDirEntryP2pSm::doCleanup() {
  VXLAN_TRACE(5, "SourceDirEntryP2pSm({name})::doCleanup()", name_);
  if (sdeOutput_) sdeOutput_->vlanFloodSetDelAll();
  VXLAN_TRACE(5, "SourceDirEntryP2pSm({name})::doCleanup() return", name_);
}

// ---- one VLAN ----

VokVlanFloodSetInput::VokVlanFloodSetInput(Brix::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSetInput,
                                           SourceDirEntryP2pSm* owner)
    : Reactor(vlanFloodSetInput, owner), vlanId_(vlanFloodSetInput ? vlanFloodSetInput->vlanId() : Bridging::VlanId()) {
  if (!vlanFloodSetInput) return;
  handleFloodSet();
  for (auto it = vlanFloodSetInput->floodSetIter(); !it.done(); it.advance()) {
    floodSetInputIs(it.currNodeMaybeStale().value);
  }
}

void VokVlanFloodSetInput::onAttribute(Brix::FieldId field, void const* key) {
  if (field != L2Rib::VlanFloodSet::floodSetField || zombie() || !owner()) return;
  auto const& mac = *static_cast<Lanx::EthAddr const*>(key);
  handleFloodSet(mac);
  floodSetInput_.follow(mac, input()->floodSet(mac));
}

void VokVlanFloodSetInput::handleFloodSet() {
  Brix::String const& name = owner()->name();
  VXLAN_TRACE(5, "SourceDirEntryP2pSm({name})::VokVlanFloodSetInput({vlanId})::handleFloodSet()", name, vlanId_);
  vlanFloodSetOutput_ = owner()->sdeOutput()->vlanFloodSet(vlanId_);
  if (vlanFloodSetOutput_) {
    for (auto it = vlanFloodSetOutput_->floodSetIter(); !it.done(); it.advance()) {
      Lanx::EthAddr const mac = it.currNodeMaybeStale().key;
      if (input()->floodSetHas(mac)) continue;
      VXLAN_TRACE(6, " Del stale {mac}", mac);
      vlanFloodSetOutput_->floodSetDel(mac);
    }
  }
  for (auto it = input()->floodSetIter(); !it.done(); it.advance()) {
    handleFloodSet(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "SourceDirEntryP2pSm({name})::VokVlanFloodSetInput({vlanId})::handleFloodSet() return", name, vlanId_);
}

void VokVlanFloodSetInput::handleFloodSet(Lanx::EthAddr const& mac) {
  Brix::String const& name = owner()->name();
  if (input()->floodSetHas(mac)) {
    VXLAN_TRACE(6, " ({name},{vlanId})::handleFloodSet Add {mac}", name, vlanId_, mac);
    vlanFloodSetOutput_->floodSetIs(mac);
  } else {
    VXLAN_TRACE(6, " ({name},{vlanId})::handleFloodSet Del {mac}", name, vlanId_, mac);
    vlanFloodSetOutput_->floodSetDel(mac);
  }
}

// ---- one MAC of a VLAN ----

VokFloodSetInput::VokFloodSetInput(Brix::Ptr<L2Rib::FloodSet const> const& floodSetInput, VokVlanFloodSetInput* owner)
    : Reactor(floodSetInput, owner), macAddr_(floodSetInput ? floodSetInput->macAddr() : Lanx::EthAddr()) {
  if (floodSetInput) handleDest();
}

void VokFloodSetInput::onAttribute(Brix::FieldId field, void const* key) {
  if (field != L2Rib::FloodSet::floodSetTypeField && field != L2Rib::FloodSet::destSetField) return;
  if (zombie() || !owner()) return;
  if (field == L2Rib::FloodSet::floodSetTypeField) {
    vok_handleFloodSetInput_floodSetType();
  } else {
    handleDest(*static_cast<L2Rib::Dest const*>(key));
  }
}

void VokFloodSetInput::handleDest() {
  Brix::String const& name = owner()->owner()->name();
  Bridging::VlanId const vlanId = owner()->vlanId();
  VXLAN_TRACE(5, "SourceDirEntryP2pSm({name})::VokVlanFloodSetInput({vlanId})::VokFloodSetInput({mac})::handleDest()",
              name, vlanId, macAddr_);
  auto const& vlanOutput = owner()->vlanFloodSetOutput();
  floodSetOutput_ = vlanOutput ? vlanOutput->floodSet(macAddr_) : nullptr;
  floodSetOutput_->floodSetTypeIs(input()->floodSetType());
  for (auto it = floodSetOutput_->destSetIter(); !it.done(); it.advance()) {
    L2Rib::Dest const dest = it.currNodeMaybeStale().key;
    if (input()->destSetHas(dest)) continue;
    VXLAN_TRACE(6, " Del stale {dest}", dest);
    floodSetOutput_->destSetDel(dest);
  }
  for (auto it = input()->destSetIter(); !it.done(); it.advance()) {
    handleDest(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(
      5, "SourceDirEntryP2pSm({name})::VokVlanFloodSetInput({vlanId})::VokFloodSetInput({mac})::handleDest() return",
      name, vlanId, macAddr_);
}

// Only true destinations reach the output, and always as true.
void VokFloodSetInput::handleDest(L2Rib::Dest const& dest) {
  Brix::String const& name = owner()->owner()->name();
  Bridging::VlanId const vlanId = owner()->vlanId();
  if (input()->destSet(dest)) {
    VXLAN_TRACE(6, " ({name},{vlanId},{mac})::handleDest Add {dest}", name, vlanId, macAddr_, dest);
    floodSetOutput_->destSetIs(dest, true);
  } else {
    VXLAN_TRACE(6, " ({name},{vlanId},{mac})::handleDest Del {dest}", name, vlanId, macAddr_, dest);
    floodSetOutput_->destSetDel(dest);
  }
}

void VokFloodSetInput::vok_handleFloodSetInput_floodSetType() {
  if (floodSetOutput_) floodSetOutput_->floodSetTypeIs(input() ? input()->floodSetType() : L2Rib::FloodSetType{});
}

}  // namespace MlagVxlan
