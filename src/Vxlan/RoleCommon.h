// What the two role state machines share.
#pragma once

#include "entities/Mlag/VxlanStatus.h"
#include "runtime/StateMachine.h"

namespace MlagVxlan {

// A role's last act on each of its two status objects: every VLAN from 1 to 4094 counts as
// shared again (VLANs 0 and 4095 are left as they are), and the BFD and VTEP address
// collections are emptied, so the next role starts from clean outputs.
void roleCleanupOf(Mlag::VxlanStatus& status);

// The nested reactor of the ARP reactors of both roles on the peer's status, whose flag
// peerArpByVlanIpCapable decides the form of the ARP tables. A change of the flag, a binding to
// another status object, and the making of the reactor run `handler` of its owner, unless the
// reactor is a zombie.
template <class Owner, void (Owner::*handler)()>
class VokPeerArpCapable : public Vok::Reactor<Owner, Mlag::VxlanStatus> {
  using Base = Vok::Reactor<Owner, Mlag::VxlanStatus>;

 public:
  VokPeerArpCapable(Brix::Ptr<Mlag::VxlanStatus const> const& status, Owner* owner) : Base(status, owner) {}

  char const* typeData() const override { return Owner::vokRecvVxStatusTypeName(); }
  void onAttribute(Brix::FieldId field, void const* /*key*/) override {
    if (field != Mlag::VxlanStatus::peerArpByVlanIpCapableField || this->zombie() || !this->owner()) return;
    (this->owner()->*handler)();
  }

  // The owner's recvVxStatusIs. The reactor's first run waits until it stands in `slot`, so
  // that a handler that binds it again finds it there and binds nothing new.
  static void bind(Vok::ReactorPtr<VokPeerArpCapable>& slot, Brix::Ptr<Mlag::VxlanStatus const> const& status) {
    bool const made = status && !slot;
    slot.is(status);
    if (made && !slot->zombie() && slot->owner()) (slot->owner()->*handler)();
  }

 protected:
  void onNotifierBound() override { (this->owner()->*handler)(); }
};

}  // namespace MlagVxlan
