// mlagvxlan-sim-long: writes a long scenario for mlagvxlan-sim to standard output.
#include <CLI/CLI.hpp>
#include <iostream>
#include <stdexcept>

#include "CommandLine.h"
#include "LongScenario.h"

int main(int argc, char** argv) {
  CLI::App app{
      "Writes a long scenario for mlagvxlan-sim: a multi-VTEP pair with a VLAN-to-VNI mapping for each "
      "VLAN on each side, then one mapping changed per step, with peer link flaps and role swaps."};
  Sim::LongScenarioShape shape;
  app.add_option("--vlans", shape.vlans, "Mappings on each side (VLANs 1 to this)")->capture_default_str();
  app.add_option("--steps", shape.steps, "Steps, the first of which builds the pair")->capture_default_str();
  app.add_option("--flaps", shape.flaps, "Peer link cuts, each restored two steps later")->capture_default_str();
  app.add_option("--swaps", shape.swaps, "Role swaps")->capture_default_str();
  if (auto exitCode = Sim::commandLineParse(app, argc, argv)) return *exitCode;
  try {
    std::cout << Sim::longScenarioText(shape);
  } catch (std::invalid_argument const& e) {
    std::cerr << "mlagvxlan-sim-long: " << e.what() << '\n';
    return 2;
  }
  return 0;
}
