// One switch's sentVxStatus carried into the other's recvVxStatus as the simulated pair carries
// it: through each side's transport endpoint and the simulator's link, with no delay. The
// endpoints keep link states of their own, which no state machine of a benchmark reads.
#pragma once

#include "Endpoint.h"
#include "Link.h"
#include "entities/Mlag/VxlanStatus.h"
#include "runtime/Time.h"

namespace Bench {

class StatusLink {
 public:
  StatusLink(Brix::Ptr<Mlag::VxlanStatus> const& sent, Brix::Ptr<Mlag::VxlanStatus> const& recv) {
    from_.channelIs(0, Brix::Ptr<Mlag::VxlanStatus const>(sent), Brix::newNode<Mlag::VxlanStatus>());
    to_.channelIs(0, Brix::Ptr<Mlag::VxlanStatus const>(Brix::newNode<Mlag::VxlanStatus>()), recv);
    from_.opened();
    to_.opened();
    settle();
  }
  // Carries everything, both ways, until nothing is in flight.
  void settle() {
    for (;;) {
      there_.carry(from_);
      back_.carry(to_);
      if (there_.idle() && back_.idle()) return;
      Brix::Duration now = Vok::System::currentTime();
      there_.deliverDue(now, to_);
      back_.deliverDue(now, from_);
    }
  }

 private:
  using Endpoint = MlagVxlan::Transport::Endpoint;
  Endpoint from_{"from", 1, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>()};
  Endpoint to_{"to", 1, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>()};
  Sim::Link there_;
  Sim::Link back_;
};

}  // namespace Bench
