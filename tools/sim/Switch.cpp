#include "Switch.h"

namespace Sim {

Switch::Switch(std::string name) : name_(std::move(name)), container_(MlagVxlan::smContainerFactory(name_)) {
  plugInRun();
}

// The children go before the entities they hold uses of, so each cleanup still finds them.
Switch::~Switch() { container_ = nullptr; }

void Switch::plugInRun() { container_->scheduledMlagPeerArpSyncSmIs(sentVxStatus, recvVxStatus, localVxStatus); }

}  // namespace Sim
