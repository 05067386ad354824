#include "Pair.h"

#include <algorithm>

#include "TraceSink.h"

namespace Sim {

std::unique_ptr<MlagVxlan::Transport::Endpoint> switchEndpoint(Switch& s) {
  MlagVxlan::Transport::PeerEntities e{s.sentVxStatus,  s.recvVxStatus,  s.sentP2pHostTable, s.recvP2pHostTable,
                                       s.sentActiveArp, s.recvActiveArp, s.sentSde,          s.recvSde,
                                       s.sentBumStatus, s.recvBumStatus};
  return std::make_unique<MlagVxlan::Transport::PeerEndpoint>(s.name(), e, s.mlagStatus, s.mlagProtoStatus);
}

Pair::Pair() : epA_(switchEndpoint(a)), epB_(switchEndpoint(b)) {
  // The link is up from the start: each side receives the other's whole state, and then knows
  // the other's clock.
  for (Switch* s : {&a, &b}) {
    Acting acting(s->name());
    endpointOf(*s).opened();
  }
  settle();
}

void Pair::linkUpIs(bool up) {
  if (up == linkUp()) return;
  aToB_.upIs(up);
  bToA_.upIs(up);
  for (Switch* s : {&a, &b}) {
    Acting acting(s->name());
    if (up) {
      endpointOf(*s).opened();
    } else {
      endpointOf(*s).closed();
    }
  }
}

Brix::Duration Pair::nextDue() const {
  return std::min({aToB_.nextDue(), bToA_.nextDue(), Vok::ActivityFacility::clock().nextTime()});
}

void Pair::settle() { advanceTo(loop_.now()); }

void Pair::carryAll() {
  aToB_.carry(*epA_);
  bToA_.carry(*epB_);
}

std::size_t Pair::deliver(Link& link, Switch& to, Brix::Duration now) {
  Acting acting(to.name());
  std::size_t n = link.deliverDue(now, endpointOf(to));
  carryAll();  // what the delivery made the far side write
  return n;
}

void Pair::advanceTo(Brix::Duration t) {
  for (;;) {
    carryAll();
    Brix::Duration now = loop_.now();
    std::size_t moved = deliver(aToB_, b, now) + deliver(bToA_, a, now) + loop_.runOnce();
    carryAll();
    if (moved > 0) continue;
    Brix::Duration next = std::min({aToB_.nextDue(), bToA_.nextDue(), Vok::ActivityFacility::clock().nextTime()});
    if (next > t) break;
    loop_.advanceTo(next);
  }
  loop_.advanceTo(t);
}

}  // namespace Sim
