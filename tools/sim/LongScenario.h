// A long scenario for load: a multi-VTEP pair with many VLAN-to-VNI mappings on each side, then
// one mapping changed per step, with the peer link cut and restored and the roles swapped at
// even intervals. What the benchmark of the simulator runs, and what `mlagvxlan-sim-long`
// writes out for a run by hand.
#pragma once

#include <cstddef>
#include <string>

namespace Sim {

struct LongScenarioShape {
  std::size_t vlans = 4094;  // mappings on each side, VLANs 1 to this
  std::size_t steps = 200;   // the first one builds the pair
  std::size_t flaps = 40;    // a cut, a step, and a restore
  std::size_t swaps = 4;     // the primary and the secondary trade places
};

// Raises std::invalid_argument for a shape that does not fit (VLANs outside 1..4094, more
// events than steps).
std::string longScenarioText(LongScenarioShape const& shape);

}  // namespace Sim
