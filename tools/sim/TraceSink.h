// Which switch the simulator is acting for, and a text-trace sink that names it on each line.
// Both switches run in one process and share the library's trace handles, so the line itself
// cannot tell them apart; the simulator knows whose input, delivery or plug-in is running.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "runtime/Clock.h"
#include "trace/TextTrace.h"

namespace Sim {

// The switch acted for now, "-" outside any action. A timer of the shared clock acts for the
// switch whose state machine set it.
std::string_view actingSwitch() noexcept;

// Marks the switch acted for while it lives; nests. `name` must outlive every timer set meanwhile
// (a switch's own name does).
class Acting {
 public:
  explicit Acting(std::string const& name) noexcept;
  ~Acting();
  Acting(Acting const&) = delete;
  Acting& operator=(Acting const&) = delete;

 private:
  void const* previous_;
};

// Writes "    [A] 6 Function:  text" for each line, and puts back the sink it replaced when it
// ends.
class SwitchTraceSink final : public Vok::TraceSink {
 public:
  explicit SwitchTraceSink(std::ostream& os);
  ~SwitchTraceSink() override;
  SwitchTraceSink(SwitchTraceSink const&) = delete;
  SwitchTraceSink& operator=(SwitchTraceSink const&) = delete;

  void write(Vok::TraceLine const& line) override;

 private:
  std::ostream& os_;
  Vok::TraceSink* previous_;
};

}  // namespace Sim
