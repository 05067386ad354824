// The secondary's shared dynamic VLANs from the VLAN configuration, by either input.
#include <array>

#include "Vxlan/SecondarySm.h"
#include "Vxlan/Trace.h"
#include "entities/PlatformFunctions.h"

namespace MlagVxlan {

namespace {

std::optional<bool> toggleForTest;

// Filled at load time and never changed.
std::array<Brix::String, 5> const shareableVlanSources = {
    Brix::String(Vxlan::stringValue(static_cast<Vxlan::VniSource>(1))),
    Brix::String(Vxlan::stringValue(static_cast<Vxlan::VniSource>(8))),
    Brix::String(Vxlan::stringValue(static_cast<Vxlan::VniSource>(16))),
    Brix::String(Vxlan::stringValue(static_cast<Vxlan::VniSource>(32))),
    Brix::String("default"),
};

}  // namespace

bool toggleBreakBridgingConfigVlanConfigVxlanEnabled() {
  // Asked once, by whichever of the three readers comes first.
  static bool const state = getToggleState("BreakBridgingConfigVlanConfigVxlan", "Vxlan.json", true) & 1;
  return toggleForTest.value_or(state);
}

void toggleBreakBridgingConfigVlanConfigVxlanForTest(std::optional<bool> state) { toggleForTest = state; }

bool SecondarySm::isShareableVlanSource(std::string_view source) noexcept {
  for (auto const& s : shareableVlanSources) {
    if (s.view() == source) return true;
  }
  return false;
}

void SecondarySm::bridgingConfigDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                         void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<SecondarySm>();
  if (field != Bridging::Config::vlanConfigField || self->zombie()) return;
  self->vok_handleBridgingConfig_vlanConfig(*static_cast<Bridging::VlanId const*>(key));
}

void SecondarySm::vlanConfigFlatDirDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                            void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<SecondarySm>();
  if (field != Bridging::Flat::VlanConfigDir::vlanConfigField || self->zombie()) return;
  self->vok_handleVlanConfigFlatDir_vlanConfig(*static_cast<Bridging::VlanId const*>(key));
}

void SecondarySm::vok_handleBridgingConfig_vlanConfig(Bridging::VlanId vlanId) {
  if (!toggleBreakBridgingConfigVlanConfigVxlanEnabled()) handleVlanConfig(vlanId);
}

void SecondarySm::vok_handleVlanConfigFlatDir_vlanConfig(Bridging::VlanId vlanId) {
  if (toggleBreakBridgingConfigVlanConfigVxlanEnabled()) handleVlanConfigFlat(vlanId);
}

VlanConfigConfigSourceSm::Ptr SecondarySm::vlanConfigConfigSourceSmIs(
    Brix::Ptr<Bridging::VlanConfig const> const& vlanConfig) {
  if (!vlanConfig) Vok::throwMutatorArgNullPointerException("MlagVxlan::SecondarySm", "vlanConfig");
  return vlanConfigConfigSourceSm_.is(vlanConfig->vlanId(), vlanConfig, this);
}

// A VLAN that goes drops its child here, whose end returns the VLAN to the set.
void SecondarySm::handleVlanConfig(Bridging::VlanId vlanId) {
  if (auto vlanConfig = bridgingConfig_->vlanConfig(vlanId)) {
    // The VLAN's entity deleted and made again while this role did not hear of it: the old
    // child ends first.
    vlanConfigConfigSourceSm_.isDroppingOther([this](Bridging::VlanId id) { (void)vlanConfigConfigSourceSmDel(id); },
                                              vlanId, vlanConfig, this);
  } else {
    (void)vlanConfigConfigSourceSmDel(vlanId);
  }
}

// Runs only at the start, when no child exists: no stale pass. A child per configured VLAN is
// about to be made, so their collection is sized once rather than grown step by step.
void SecondarySm::handleVlanConfig() {
  vlanConfigConfigSourceSm_.reserve(bridgingConfig_->vlanConfigCount());
  for (auto it = bridgingConfig_->vlanConfigIter(); !it.done(); it.advance()) {
    handleVlanConfig(it.currNodeMaybeStale().key);
  }
}

void SecondarySm::handleVlanConfigFlat(Bridging::VlanId vlanId) {
  if (!vlanConfigFlatDir_) return;
  bool found = false;
  Bridging::Flat::VlanConfigFlat const record = vlanConfigFlatDir_->vlanConfig().readOrDefault(vlanId, &found);
  bool const known = configSourceForVlanHas(vlanId);
  bool const changed = found && known && !configSourceForVlan(vlanId).isEq(record.configSource());
  VXLAN_TRACE(8, "void MlagVxlan::SecondarySm::handleVlanConfigFlat(Bridging::VlanId) {vlanId}", vlanId);
  if (found) {
    if (!changed && known) return;
    configSourceForVlanIs(vlanId, record.configSource());
    handleVlanSource(vlanId, record.configSource().stringValue());
    return;
  }
  (void)configSourceForVlanDel(vlanId);
  vlanConfigSourceSmCleanup(vlanId);
}

// Runs only at the start: no stale pass.
void SecondarySm::handleVlanConfigFlat() {
  if (!vlanConfigFlatDir_) return;
  vlanConfigFlatDir_->vlanConfig().walkUntilDamaged([this](Bridging::VlanId vlanId) { handleVlanConfigFlat(vlanId); });
}

void SecondarySm::handleVlanSource(Bridging::VlanId vlanId, Brix::String const& source) {
  if (!initialized_) return;
  if (isShareableVlanSource(source.view())) {
    VXLAN_TRACE(6, " ({vlanId})::handleVlanSource Add shared dyn vlan {vlanId}", vlanId, vlanId);
    VXLAN_TRACE(8,
                "void MlagVxlan::SecondarySm::handleVlanSource(Bridging::VlanId, const String&) Add shared dyn "
                "vlan{vlanId}",
                vlanId);
    sentVxStatus_->sharedDynVlanIs(vlanId, true);
    localVxStatus_->sharedDynVlanIs(vlanId, true);
  } else {
    VXLAN_TRACE(6, " ({vlanId})::handleVlanSource Del shared dyn vlan {vlanId}", vlanId, vlanId);
    VXLAN_TRACE(8,
                "void MlagVxlan::SecondarySm::handleVlanSource(Bridging::VlanId, const String&) Del shared dyn "
                "vlan{vlanId}",
                vlanId);
    (void)sentVxStatus_->sharedDynVlanDel(vlanId);
    (void)localVxStatus_->sharedDynVlanDel(vlanId);
  }
}

// Acts during the teardown too: `initialized` stays true there.
void SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId vlanId) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "SecondarySm::VokVlanConfig({vlanId})::vlanConfigSourceSmCleanup()", vlanId);
  VXLAN_TRACE(8, "void MlagVxlan::SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId) {vlanId}", vlanId);
  sentVxStatus_->sharedDynVlanIs(vlanId, true);
  localVxStatus_->sharedDynVlanIs(vlanId, true);
  VXLAN_TRACE(8, "void MlagVxlan::SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId) return(): {vlanId}", vlanId);
  VXLAN_TRACE(5, "SecondarySm::VokVlanConfig({vlanId})::vlanConfigSourceSmCleanup() return", vlanId);
}

}  // namespace MlagVxlan
