#include "Pair.h"

#include <algorithm>

#include "TraceSink.h"

namespace Sim {

Pair::Pair() {
  for (Switch* from : {&a, &b}) {
    Switch& to = peerOf(*from);
    Link& link = linkFrom(*from);
    mirror(from->sentVxStatus, to.recvVxStatus, link);
    mirror(from->sentP2pHostTable, to.recvP2pHostTable, link);
    mirror(from->sentActiveArp, to.recvActiveArp, link);
    mirror(from->sentSde, to.recvSde, link);
    mirror(from->sentBumStatus, to.recvBumStatus, link);
  }
  // Each side starts by receiving the other's whole state.
  for (auto& m : mirrors_) m->resync();
  settle();
  // The link is up from the start, so each side knows the other's clock.
  for (Switch* s : {&a, &b}) {
    Acting acting(s->name());
    s->mlagProtoStatus->peerMonotonicOffsetValidIs(true);
  }
  settle();
}

void Pair::peerLinkDownIs(Switch& s, bool down) {
  Acting acting(s.name());
  if (s.mlagStatus->peerLinkKnown() == 0) s.mlagStatus->peerLinkKnownIs(1);
  auto flag = s.mlagStatus->peerLinkDownFlag();
  s.mlagStatus->peerLinkDownFlagIs(static_cast<std::uint8_t>(down ? flag | 1u : flag & ~1u));
  s.mlagProtoStatus->peerMonotonicOffsetValidIs(!down);
}

void Pair::linkUpIs(bool up) {
  if (up == linkUp()) return;
  aToB_.upIs(up);
  bToA_.upIs(up);
  if (!up) {
    peerLinkDownIs(a, true);
    peerLinkDownIs(b, true);
    return;
  }
  for (auto& m : mirrors_) m->resync();
  // Queued behind the resynchronisation: a side hears that the link is back once the peer's
  // whole state is in place.
  aToB_.post([this] { peerLinkDownIs(b, false); });
  bToA_.post([this] { peerLinkDownIs(a, false); });
}

Brix::Duration Pair::nextDue() const {
  return std::min({aToB_.nextDue(), bToA_.nextDue(), Vok::ActivityFacility::clock().nextTime()});
}

void Pair::settle() { advanceTo(loop_.now()); }

std::size_t Pair::deliver(Link& link, Switch& to, Brix::Duration now) {
  Acting acting(to.name());
  return link.deliverDue(now);
}

void Pair::advanceTo(Brix::Duration t) {
  for (;;) {
    Brix::Duration now = loop_.now();
    std::size_t moved = deliver(aToB_, b, now) + deliver(bToA_, a, now) + loop_.runOnce();
    if (moved > 0) continue;
    Brix::Duration next = std::min({aToB_.nextDue(), bToA_.nextDue(), Vok::ActivityFacility::clock().nextTime()});
    if (next > t) break;
    loop_.advanceTo(next);
  }
  loop_.advanceTo(t);
}

}  // namespace Sim
