#include "TraceSink.h"

namespace Sim {

// The runtime's activity tag is the switch's name, so that a timer fires for the switch that
// set it.
std::string_view actingSwitch() noexcept {
  auto const* name = static_cast<char const*>(Vok::ActivityFacility::currentActivity());
  return name ? std::string_view(name) : std::string_view("-");
}

Acting::Acting(std::string const& name) noexcept : previous_(Vok::ActivityFacility::currentActivity()) {
  Vok::ActivityFacility::currentActivityIs(name.c_str());
}
Acting::~Acting() { Vok::ActivityFacility::currentActivityIs(previous_); }

SwitchTraceSink::SwitchTraceSink(std::ostream& os) : os_(os), previous_(&Vok::traceSink()) { Vok::traceSinkIs(this); }
SwitchTraceSink::~SwitchTraceSink() { Vok::traceSinkIs(previous_); }

void SwitchTraceSink::write(Vok::TraceLine const& line) {
  os_ << "    [" << actingSwitch() << "] " << line.level << ' ' << (line.function ? line.function : "") << ": "
      << line.text << '\n';
}

}  // namespace Sim
