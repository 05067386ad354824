#include "Switch.h"

#include "TraceSink.h"

namespace Sim {

Switch::Switch(std::string name) : name_(std::move(name)) {
  // The MLAG agent knows its peer link from the start; the link decides whether it is down.
  mlagStatus->peerLinkKnownIs(1);
  mlagProtoStatus->peerMonotonicOffsetValidIs(true);
  container_ = MlagVxlan::smContainerFactory(name_);
  // Subscribed before any child exists, so a change of role reaches the plug-in before it
  // reaches any state machine.
  mlagStatusSub_.subscribeTo(mlagStatus->publisher(), &Switch::mlagStatusDispatch);
  plugInRun();
}

// The children go before the entities they hold uses of, so each cleanup still finds them.
Switch::~Switch() {
  mlagStatusSub_.unsubscribe();
  Acting acting(name_);
  container_ = nullptr;
}

void Switch::plugInRun() {
  Acting acting(name_);
  Sim::plugInRun(*container_, *this);
}

void Switch::mlagStatusDispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId, void const*,
                                void const*) noexcept {
  s->ownerAs<Switch>()->plugInRun();
}

}  // namespace Sim
