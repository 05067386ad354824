// ScheduledMlagPeerArpSyncSm: whether both peers can take part in scheduled MLAG peer ARP
// synchronisation, written to localVxStatus for this switch's agents.
//
// Only the peer's advertisement is subscribed: a change of this side's own advertisement
// counts at the peer's next change, or when the state machine is built anew.
#pragma once

#include <tuple>

#include "entities/Mlag/VxlanStatus.h"
#include "runtime/StateMachine.h"

namespace MlagVxlan {

class ScheduledMlagPeerArpSyncSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<ScheduledMlagPeerArpSyncSm>;

  ScheduledMlagPeerArpSyncSm(Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                             Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                             Brix::Ptr<Mlag::VxlanStatus> localVxStatus);

  static void ScheduledMlagPeerArpSyncSmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                           Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                           Brix::Ptr<Mlag::VxlanStatus> localVxStatus);

  char const* typeData() const override { return "MlagVxlan::ScheduledMlagPeerArpSyncSm"; }

  Brix::Ptr<Mlag::VxlanStatus const> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  auto vokArgs() const { return std::tie(sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_); }

  void vok_handleRecvVxStatus_scheduledMlagPeerArpSync();

  static void recvVxStatusDispatch(Brix::Publisher const* publisher, Brix::Subscriber* subscriber, Brix::FieldId field,
                                   void const* key, void const* value) noexcept;

 protected:
  void destructorCleanup() override;

 private:
  bool result() const;

  Brix::Ptr<Mlag::VxlanStatus const> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
};

ScheduledMlagPeerArpSyncSm::Ptr scheduledMlagPeerArpSyncSmFactory(Brix::Ptr<Mlag::VxlanStatus const> sentVxStatus,
                                                                  Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                  Brix::Ptr<Mlag::VxlanStatus> localVxStatus);

}  // namespace MlagVxlan
