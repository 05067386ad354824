// The hosting plug-in of a simulated switch: which of the container's children exist, decided
// in one place from the switch's Mlag::Status.
//
// - The role state machine follows mlagState: primarySm while it is primary (3), secondarySm
//   while it is secondary (4), neither otherwise. On a change the old role's ...Del comes first
//   and its result is dropped at once, so that its cleanup has run before the new role's ...Is
//   makes its first run: each role empties the outputs it shares with the other.
// - Every other child exists while the switch is in a pair, that is while it is primary or
//   secondary. Whether the peer link is up does not decide it.
//
// Running it again with nothing changed builds nothing: a child's ...Is with the arguments it
// already has returns it as it is.
#pragma once

#include <string_view>
#include <vector>

#include "Vxlan/SmContainer.h"

namespace Sim {

struct SwitchEntities;

void plugInRun(MlagVxlan::SmContainer& container, SwitchEntities const& entities);

// The names of the container's child attributes, in declared order.
std::vector<std::string_view> const& containerChildNames();
// The children the container holds now, by attribute name, with each one's class.
std::vector<std::pair<std::string_view, std::string_view>> containerChildren(MlagVxlan::SmContainer const& container);

}  // namespace Sim
