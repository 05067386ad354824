#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"

namespace MlagVxlan {

ScheduledMlagPeerArpSyncSm::ScheduledMlagPeerArpSyncSm(Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                                       Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                       Brix::Ptr<Mlag::VxlanStatus> localVxStatus)
    : sentVxStatus_(std::move(sentVxStatus)),
      recvVxStatus_(this, std::move(recvVxStatus), &recvVxStatusDispatch),
      localVxStatus_(std::move(localVxStatus)) {
  // Nothing here can run too early, so there is no initialized guard: the first run is the
  // handler itself.
  vok_handleRecvVxStatus_scheduledMlagPeerArpSync();
}

void ScheduledMlagPeerArpSyncSm::ScheduledMlagPeerArpSyncSmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                                              Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                              Brix::Ptr<Mlag::VxlanStatus> localVxStatus) {
  Vok::smIs(out, std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus));
}

ScheduledMlagPeerArpSyncSm::Ptr scheduledMlagPeerArpSyncSmFactory(Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                                                  Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                  Brix::Ptr<Mlag::VxlanStatus> localVxStatus) {
  ScheduledMlagPeerArpSyncSm::Ptr out;
  ScheduledMlagPeerArpSyncSm::ScheduledMlagPeerArpSyncSmIs(out, std::move(sentVxStatus), std::move(recvVxStatus),
                                                           std::move(localVxStatus));
  return out;
}

// True only while both sides advertise; the peer's advertisement is not read when ours is off.
bool ScheduledMlagPeerArpSyncSm::result() const {
  return sentVxStatus_ && sentVxStatus_->scheduledMlagPeerArpSync() && recvVxStatus_ &&
         recvVxStatus_->scheduledMlagPeerArpSync();
}

void ScheduledMlagPeerArpSyncSm::vok_handleRecvVxStatus_scheduledMlagPeerArpSync() {
  if (!localVxStatus_) return;
  localVxStatus_->scheduledMlagPeerArpSyncIs(result());
}

void ScheduledMlagPeerArpSyncSm::recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber,
                                                      Brix::FieldId field, void const*, void const*) noexcept {
  if (field != Mlag::VxlanStatus::scheduledMlagPeerArpSyncField) return;
  auto* self = subscriber->ownerAs<ScheduledMlagPeerArpSyncSm>();
  if (self->zombie()) return;
  self->vok_handleRecvVxStatus_scheduledMlagPeerArpSync();
}

// An absent state machine reads as no capability.
void ScheduledMlagPeerArpSyncSm::destructorCleanup() {
  if (localVxStatus_) localVxStatus_->scheduledMlagPeerArpSyncIs(false);
}

}  // namespace MlagVxlan
