#include "Pair.h"

#include <algorithm>

namespace Sim {

Pair::Pair() {
  // Each side starts by receiving the other's whole advertisement.
  sentAToRecvB_.resync();
  sentBToRecvA_.resync();
  settle();
}

void Pair::linkUpIs(bool up) {
  if (up == linkUp()) return;
  aToB_.upIs(up);
  bToA_.upIs(up);
  if (up) {
    sentAToRecvB_.resync();
    sentBToRecvA_.resync();
  }
}

void Pair::settle() { advanceTo(loop_.now()); }

void Pair::advanceTo(Brix::Duration t) {
  for (;;) {
    Brix::Duration now = loop_.now();
    std::size_t moved = aToB_.deliverDue(now) + bToA_.deliverDue(now) + loop_.runOnce();
    if (moved > 0) continue;
    Brix::Duration next = std::min({aToB_.nextDue(), bToA_.nextDue(), Vok::ActivityFacility::clock().nextTime()});
    if (next > t) break;
    loop_.advanceTo(next);
  }
  loop_.advanceTo(t);
}

}  // namespace Sim
