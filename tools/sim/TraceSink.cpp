#include "TraceSink.h"

namespace Sim {

namespace {
std::string_view acting = "-";
}

std::string_view actingSwitch() noexcept { return acting; }

Acting::Acting(std::string_view name) noexcept : previous_(acting) { acting = name; }
Acting::~Acting() { acting = previous_; }

SwitchTraceSink::SwitchTraceSink(std::ostream& os) : os_(os), previous_(&Vok::traceSink()) { Vok::traceSinkIs(this); }
SwitchTraceSink::~SwitchTraceSink() { Vok::traceSinkIs(previous_); }

void SwitchTraceSink::write(Vok::TraceLine const& line) {
  os_ << "    [" << acting << "] " << line.level << ' ' << (line.function ? line.function : "") << ": " << line.text
      << '\n';
}

}  // namespace Sim
