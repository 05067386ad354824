// A simulated MLAG pair: switches A and B and the peer link between them, on virtual time.
//
// Each switch has the transport's endpoint, as an agent would: the link carries the frames each
// endpoint writes to the other after a one-way delay. It starts up, with each side's peer clock
// offset valid. Cutting it drops what is in flight and makes both switches' Mlag::Status show the
// peer link down (bit 0 of peerLinkDownFlag, peerLinkKnown left non-zero) and Mlag::ProtoStatus
// an invalid monotonic offset. Restoring it is a new connection: each side sends its whole state,
// which the other applies by difference, and only once that has arrived does each side see the
// link up and the offset valid again.
#pragma once

#include <memory>
#include <vector>

#include "Link.h"
#include "PeerEndpoint.h"
#include "Switch.h"
#include "runtime/Clock.h"

namespace Sim {

// The endpoint of a switch: its published entities out, the peer's in.
std::unique_ptr<MlagVxlan::Transport::Endpoint> switchEndpoint(Switch& s);

class Pair {
  Vok::ManualLoop loop_;  // first in, last out: every switch lives on virtual time

 public:
  Pair();
  Pair(Pair const&) = delete;
  Pair& operator=(Pair const&) = delete;

  Switch a{"A"};
  Switch b{"B"};

  Switch& peerOf(Switch const& s) noexcept { return &s == &a ? b : a; }
  // The direction that carries what `s` publishes.
  Link& linkFrom(Switch const& s) noexcept { return &s == &a ? aToB_ : bToA_; }
  MlagVxlan::Transport::Endpoint& endpointOf(Switch const& s) noexcept { return &s == &a ? *epA_ : *epB_; }

  void delayIs(Brix::Duration d) noexcept {
    aToB_.delayIs(d);
    bToA_.delayIs(d);
  }
  Brix::Duration delay() const noexcept { return aToB_.delay(); }

  void linkUpIs(bool up);
  bool linkUp() const noexcept { return aToB_.up(); }

  // Delivers what is in flight and fires timers until `t`, each at its own time.
  void advanceTo(Brix::Duration t);
  void advanceBy(Brix::Duration d) { advanceTo(now() + d); }
  // Delivers and fires until nothing more is due at the present time.
  void settle();
  Brix::Duration now() const { return loop_.now(); }
  // When the next delivery or timer is due; Brix::never when nothing is.
  Brix::Duration nextDue() const;
  // Virtual time is the process's: a second pair made and gone (the soak's fresh one) leaves
  // this one to take it back.
  void resumeTime() { loop_.resume(); }

 private:
  void carryAll();
  std::size_t deliver(Link& link, Switch& to, Brix::Duration now);

  std::unique_ptr<MlagVxlan::Transport::Endpoint> epA_;
  std::unique_ptr<MlagVxlan::Transport::Endpoint> epB_;
  Link aToB_;
  Link bToA_;
};

}  // namespace Sim
