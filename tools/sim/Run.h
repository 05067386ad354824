// Runs a scenario on a pair and reports, step by step, what changed in each switch's outputs and
// which expectations were met.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "Dump.h"
#include "Pair.h"
#include "Scenario.h"

namespace Sim {

struct RunOptions {
  bool quiet = false;                // only failed expectations and the closing line
  std::ostream* progress = nullptr;  // a progress line per step, for long scenarios
  std::size_t progressFrom = 20;     // steps a scenario needs to count as long
};

struct RunResult {
  std::size_t steps = 0;
  std::size_t met = 0;
  std::size_t failed = 0;
};

// Every entity of the switch, each line prefixed by the entity's name, and the container's
// children as "container.<child>: <class>".
Flat flattenSwitch(Switch const& s);

// Whether the expectation holds in `flat`; `found` says what was there, in words.
bool expectationMet(Flat const& flat, Expectation const& e, std::string& found);

// One row of a diff; `count` keys in a row are folded into one, named "x[first..last]".
struct Change {
  char kind = '+';  // + added, - removed, ~ changed
  std::string name;
  std::string before;
  std::string after;
  std::size_t count = 1;
};

// What changed in one entity of a switch (the lines of `before` and `after` that start with
// `entity` and a dot), consecutive numeric keys with the same change folded.
std::vector<Change> diffEntity(Flat const& before, Flat const& after, std::string const& entity);

// Raises ScenarioError for a step that the library refuses.
RunResult runScenario(Pair& pair, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});

// The whole state of both switches as JSON.
std::string stateJson(Pair const& pair);

}  // namespace Sim
