// RemoteHostTableSm, the paths that run handleRemoteMacEntry again without a change of the MAC's
// own entry: the deferred queue on the runtime clock, the walk when the peer clock turns valid,
// and the replay of a VLAN when its VLAN-to-VNI mapping arrives.
#include <algorithm>

#include "Vxlan/RemoteHostTableSm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

// ---- reactors ----

RemoteHostTableSm::VokVcsMacCheckClock::VokVcsMacCheckClock(Brix::Ptr<Vok::Clock const> const& clock,
                                                            RemoteHostTableSm* owner)
    : Reactor(clock, owner) {
  owner->processDeferredVcsMacs();
}

void RemoteHostTableSm::VokVcsMacCheckClock::onAttribute(Brix::FieldId field, void const*) {
  if (field != Vok::Clock::timeMinField || zombie() || !owner()) return;
  owner()->processDeferredVcsMacs();
}

void RemoteHostTableSm::VokVcsMacCheckClock::onNotifierBound() { owner()->processDeferredVcsMacs(); }

void RemoteHostTableSm::NestedSm_VtiStatus::onAttribute(Brix::FieldId field, void const* key) {
  if (field != Vxlan::VtiStatus::vlanToVniMapField || zombie() || !owner()) return;
  handleVlanToVniMap(*static_cast<Bridging::VlanId const*>(key));
}

// A mapping that arrives, or changes VNI, replays the learned hosts of its VLAN; a removal does
// nothing to what has been sent. There is no index by VLAN: the walk filters.
void RemoteHostTableSm::NestedSm_VtiStatus::handleVlanToVniMap(Bridging::VlanId vlanId) {
  RemoteHostTableSm* sm = owner();
  if (!sm || !sm->okToProcessEvents()) return;
  auto const intfId = input()->intfId().shortName();  // as every other handler names a VTI
  VXLAN_TRACE(5, "RemoteHostTableSm::VokVtiStatus({intfId})::handleVlanToVniMap({vlanId})", intfId, vlanId);
  Vxlan::VniSourcePair const vniSourcePair = input()->vlanToVniMap(vlanId);
  if (!vniSourcePair.isEq(Vxlan::VniSourcePair())) {
    VXLAN_TRACE(6, " Vlan to vni mapping added {vniSourcePair}", vniSourcePair);
    sm->walkLearnedHosts([sm, vlanId](Vxlan::MacVlanPair const& key) {
      if (key.vlanId() == vlanId) sm->handleRemoteMacEntry(key.mac(), vlanId.value());
    });
  }
  VXLAN_TRACE(5, "RemoteHostTableSm::VokVtiStatus({intfId})::handleVlanToVniMap return ", intfId);
}

// ---- the life: peer clock valid and invalid ----

void RemoteHostTableSm::handlePeerOffsetValid() {
  VXLAN_TRACE(5, "RemoteHostTableSm::handlePeerOffsetValid");
  if (!peerOffsetValid()) {
    doCleanup();
    return;
  }
  initialized_ = true;
  handleVxlanFdbStatus();
  VXLAN_TRACE(5, "RemoteHostTableSm::handlePeerOffsetValid return");
}

// Makes up for every table event missed while the peer clock was invalid. The learned hosts
// suffice: a MAC that only the FDB holds would wait at the both-sides test anyway.
void RemoteHostTableSm::handleVxlanFdbStatus() {
  if (!okToProcessEvents()) return;
  VXLAN_TRACE(5, "RemoteHostTableSm::handleVxlanFdbStatus");
  walkLearnedHosts([this](Vxlan::MacVlanPair const& key) { handleRemoteMacEntry(key.mac(), key.vlanId().value()); });
  VXLAN_TRACE(5, "RemoteHostTableSm::handleVxlanFdbStatus return");
}

// The deferred keys are lost with the peer clock; the walk at its return brings them back.
void RemoteHostTableSm::doCleanup() {
  VXLAN_TRACE(5, "RemoteHostTableSm::doCleanup");
  initialized_ = false;
  deferredVcsMacDelAll();
  if (vcsMacCheckClock_) vcsMacCheckClock_->timeMinIs(Brix::never);
  VXLAN_TRACE(5, "RemoteHostTableSm::doCleanup return");
}

// ---- the deferred queue ----

void RemoteHostTableSm::vcsMacCheckIn(Brix::Duration wait) {
  if (vcsMacCheckClock_) vcsMacCheckClock_->timeMinIs(Vok::System::currentTime() + wait);
}

// One batch of at most maxCodefMacs keys, in queue order. A key deferred again goes to the back,
// behind those not yet tried. With progress the next batch comes at the next clock event, without
// it after the wait. No guard of its own: the queue is empty whenever the peer clock is invalid.
void RemoteHostTableSm::processDeferredVcsMacs() {
  auto const count = static_cast<std::uint32_t>(deferredVcsMac_.size());
  VXLAN_TRACE(5, "RemoteHostTableSm::processDeferredVcsMacs {count}", count);
  std::uint32_t const limit = std::min(count, maxCodefMacs_);
  for (std::uint32_t i = 0; i < limit; ++i) {
    Bridging::HostKey const key = deferredVcsMacDeq();
    handleRemoteMacEntry(key.addr(), key.vlanId().value());
  }
  auto const remaining = static_cast<std::uint32_t>(deferredVcsMac_.size());
  if (remaining == 0) {
    // nothing waits: the clock is left as it is
  } else if (remaining == count) {
    VXLAN_TRACE(6, " No mac accepted, defer processing");
    vcsMacCheckIn(vcsMacWaitTime);
  } else {
    vcsMacCheckIn(0.0);
  }
  VXLAN_TRACE(5, "RemoteHostTableSm::processDeferredVcsMacs return. ");
}

}  // namespace MlagVxlan
