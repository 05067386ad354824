// Runs a scenario on a pair and reports, step by step, what changed in each switch's outputs and
// which expectations were met.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Agreement.h"
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

// What a run drives: two switches, A (0) and B (1), their peer link and their time. The pair of
// one process drives its own switches; a split run drives B in a process of its own.
class PairDriver {
 public:
  virtual ~PairDriver() = default;
  virtual Brix::Duration now() const = 0;
  // Delivers what is in flight and fires timers until `t`, each at its own time.
  virtual void advanceTo(Brix::Duration t) = 0;
  void settle() { advanceTo(now()); }
  virtual void linkUpIs(bool up) = 0;
  virtual void delayIs(Brix::Duration d) = 0;
  virtual std::string const& name(std::size_t s) const = 0;
  // Applies switch `s`'s inputs of step `i`; what the library raised on, one line each, goes to
  // `refusals` as "<what the library said>", and the other inputs still apply.
  virtual void inputsRun(std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals) = 0;
  // Whether switch `s` runs a role (the process toggles cannot change then).
  virtual bool inPair(std::size_t s) = 0;
  // The process toggle BreakBridgingConfigVlanConfigVxlan, or none for the process's own, in
  // every process of the run.
  virtual void vlanConfigToggleIs(std::optional<bool> on);
  // Brings switch `s`'s dump up to date and gives the lines that changed since the last take.
  virtual std::vector<Change> take(std::size_t s) = 0;
  virtual Flat const& flat(std::size_t s) const = 0;
  // Where the two switches disagree, as of the last take.
  virtual std::vector<Disagreement> agreement() = 0;
};

// Drives a pair of this process; tracking starts when made.
class LocalDriver final : public PairDriver {
 public:
  explicit LocalDriver(Pair& pair);
  Brix::Duration now() const override { return pair_.now(); }
  void advanceTo(Brix::Duration t) override { pair_.advanceTo(t); }
  void linkUpIs(bool up) override { pair_.linkUpIs(up); }
  void delayIs(Brix::Duration d) override { pair_.delayIs(d); }
  std::string const& name(std::size_t s) const override { return sw(s).name(); }
  void inputsRun(std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals) override;
  bool inPair(std::size_t s) override;
  std::vector<Change> take(std::size_t s) override { return trackers_[s]->take(); }
  Flat const& flat(std::size_t s) const override { return trackers_[s]->flat(); }
  std::vector<Disagreement> agreement() override;

 private:
  Switch& sw(std::size_t s) const noexcept { return s == 0 ? pair_.a : pair_.b; }
  Pair& pair_;
  std::unique_ptr<SwitchTracker> trackers_[2];
};

// Applies switch `sw`'s inputs of step `i`, each refusal as one line; shared by every driver.
void switchInputsRun(Switch& sw, std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals);

// A scenario run step by step on a pair that has settled: the heading when made, then the report
// and the expectations of each step as it runs.
class Runner {
 public:
  Runner(Pair& pair, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});
  Runner(PairDriver& driver, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});
  Runner(Runner const&) = delete;
  Runner& operator=(Runner const&) = delete;

  // Runs every step not run yet, then prints the closing line.
  RunResult run();
  // Runs step `i` (any step, again if need be: a benchmark repeats one). An input that the
  // library raises on is reported as refused and counted; the step goes on with the rest.
  void stepRun(std::size_t i);
  RunResult const& result() const noexcept { return result_; }
  // The dump of switch A (0) or B (1) as of the last step run, which expectations read.
  Flat const& dump(std::size_t switchIndex) const noexcept { return driver_.flat(switchIndex); }

 private:
  void start();

  std::unique_ptr<PairDriver> own_;  // the local driver when made from a pair
  PairDriver& driver_;
  Scenario const& sc_;
  std::ostream& out_;
  RunOptions options_;
  RunResult result_;
};

RunResult runScenario(Pair& pair, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});
RunResult runScenario(PairDriver& driver, Scenario const& scenario, std::ostream& out, RunOptions const& options = {});

// The whole state of both switches as JSON.
std::string stateJson(Pair const& pair);

}  // namespace Sim
