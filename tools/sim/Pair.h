// A simulated MLAG pair: switches A and B and the peer link between them, on virtual time.
//
// The link carries each side's published entities into the other side's received ones through
// generic mirrors, after a one-way delay. It starts up, with each side's peer clock offset valid. Cutting it drops what
// is in flight and makes both switches' Mlag::Status show the peer link down (bit 0 of peerLinkDownFlag, peerLinkKnown
// left non-zero) and Mlag::ProtoStatus an invalid monotonic offset. Restoring it resynchronises
// whole entities by difference, as a peer protocol would, and only once that has arrived does
// each side see the link up and the offset valid again.
#pragma once

#include <memory>
#include <vector>

#include "Link.h"
#include "Mirror.h"
#include "Switch.h"
#include "runtime/Clock.h"

namespace Sim {

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
  template <class E>
  void mirror(Brix::Ptr<E> const& from, Brix::Ptr<E> const& to, Link& link) {
    mirrors_.push_back(std::make_unique<Mirror<E>>(Brix::Ptr<E const>(from), to, link));
  }
  void peerLinkDownIs(Switch& s, bool down);
  std::size_t deliver(Link& link, Switch& to, Brix::Duration now);

  Link aToB_;
  Link bToA_;
  std::vector<std::unique_ptr<MirrorBase>> mirrors_;
};

}  // namespace Sim
