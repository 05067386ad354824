// The scenario loader on any bytes: a scenario is accepted or refused with a ScenarioError that
// names its line; nothing else may come out of it. What it accepts is not run here: one run of
// the simulator under the sanitizers takes seconds, which would starve the loader of inputs.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  try {
    (void)Sim::parseScenario(text, "fuzz.yaml");
  } catch (Sim::ScenarioError const& e) {
    if (e.message().empty()) __builtin_trap();  // a refusal always says what is wrong
  }
  return 0;
}
