// A simulated MLAG pair: switches A and B and the peer link between them, on virtual time.
#pragma once

#include "Link.h"
#include "Mirror.h"
#include "Switch.h"
#include "runtime/Clock.h"

namespace Sim {

class Pair {
  Vok::ManualLoop loop_;  // first in, last out: every switch lives on virtual time

 public:
  Pair();

  Switch a{"A"};
  Switch b{"B"};

  Link& linkTo(Switch const& s) noexcept { return &s == &b ? aToB_ : bToA_; }
  void delayIs(Brix::Duration d) noexcept {
    aToB_.delayIs(d);
    bToA_.delayIs(d);
  }

  // Cutting drops what is in flight; restoring resynchronises each side's view of the other.
  void linkUpIs(bool up);
  bool linkUp() const noexcept { return aToB_.up(); }

  // Delivers what is in flight and fires timers until `t`, each at its own time.
  void advanceTo(Brix::Duration t);
  // Delivers and fires until nothing more is due at the present time.
  void settle();
  Brix::Duration now() const { return loop_.now(); }

 private:
  Link aToB_;
  Link bToA_;
  Mirror<Mlag::VxlanStatus> sentAToRecvB_{a.sentVxStatus, b.recvVxStatus, aToB_};
  Mirror<Mlag::VxlanStatus> sentBToRecvA_{b.sentVxStatus, a.recvVxStatus, bToA_};
};

}  // namespace Sim
