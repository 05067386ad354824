// Runs a scenario on a pair and reports, step by step, what changed in each switch's outputs and
// which expectations were met.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Dump.h"
#include "Pair.h"
#include "Scenario.h"
#include "Tracker.h"

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
  std::size_t refused = 0;  // inputs that the library raised on; the run went on without them
};

// Every entity of the switch, each line prefixed by the entity's name, and the container's
// children as "container.<child>: <class>".
Flat flattenSwitch(Switch const& s);

// Whether the expectation holds in `flat`; `found` says what was there, in words.
bool expectationMet(Flat const& flat, Expectation const& e, std::string& found);

// What changed in one entity of a switch (the lines of `before` and `after` that start with
// `entity` and a dot), consecutive numeric keys with the same change folded.
std::vector<Change> diffEntity(Flat const& before, Flat const& after, std::string const& entity);

// A scenario run step by step on a pair that has settled: the heading when made, then the report
// and the expectations of each step as it runs.
class Runner {
 public:
  Runner(Pair& pair, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});
  Runner(Runner const&) = delete;
  Runner& operator=(Runner const&) = delete;

  // Runs every step not run yet, then prints the closing line.
  RunResult run();
  // Runs step `i` (any step, again if need be: a benchmark repeats one). An input that the
  // library raises on is reported as refused and counted; the step goes on with the rest.
  void stepRun(std::size_t i);
  RunResult const& result() const noexcept { return result_; }
  // The dump of switch A (0) or B (1) as of the last step run, which expectations read.
  Flat const& dump(std::size_t switchIndex) const noexcept { return trackers_[switchIndex]->flat(); }

 private:
  Pair& pair_;
  Scenario const& sc_;
  std::ostream& out_;
  RunOptions options_;
  std::unique_ptr<SwitchTracker> trackers_[2];  // made once the pair has settled
  RunResult result_;
};

RunResult runScenario(Pair& pair, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});

// The whole state of both switches as JSON.
std::string stateJson(Pair const& pair);

}  // namespace Sim
