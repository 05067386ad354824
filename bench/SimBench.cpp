// The pair simulator under load: a multi-VTEP pair with N VLAN-to-VNI mappings on each side (the
// long scenario of LongScenario.h), N = 2047 and 4094.
//
// Targets, at 4094 mappings per side:
//   LongScenarioQuiet: the whole scenario as `mlagvxlan-sim -q` runs it (read, pair built, 200
//   steps with 40 peer link flaps and 4 role swaps, expectations checked) in at most 3 s, with
//   the memory in use flat across the run: heapGrowthSecondHalf, from the middle of the run to
//   its end, a few kB against heapBytes' megabytes.
//   OneChangeStep: a step that changes one mapping on the primary, with its full report (the
//   rows formatted into a discarded stream) and the expectations' dump brought up to date, in at
//   most 100 us, and no heap growth from one step to the next.
//
// Baselines in the same binary:
//   OneChangeBare: the same step's library work alone (the input written, the pair settled), no
//   report: OneChangeStep / OneChangeBare is the cost of the report.
//   OneChangeFullSnapshot: the same step reported the way that does not scale, by reading both
//   switches' whole dumps after it and diffing them against the dumps before.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>

#include "BenchSupport.h"
#include "LongScenario.h"
#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "TraceSink.h"

namespace {

// The library's ring file goes to a private directory, removed at exit.
BenchSupport::TempDir benchDir(true);

// Bytes the process's heap has handed out and not taken back.
std::int64_t heapInUse() { return static_cast<std::int64_t>(::mallinfo2().uordblks); }

// A stream that drops what it is given, once formatted.
class NullBuf : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(char const*, std::streamsize n) override { return n; }
};

void LongScenarioQuiet(benchmark::State& state) {
  Sim::LongScenarioShape shape;
  shape.vlans = static_cast<std::size_t>(state.range(0));
  std::string const text = Sim::longScenarioText(shape);
  NullBuf buf;
  std::ostream out(&buf);
  // The heap at the middle of the run and at its end: the same roles hold at both, after an even
  // number of swaps spread evenly, so what differs is what the run kept and should not have.
  std::int64_t middle = 0;
  std::int64_t end = 0;
  for (auto _ : state) {
    Sim::Scenario const sc = Sim::parseScenario(text, "long.yaml");
    Sim::Pair pair;
    Sim::Runner run(pair, sc, out, Sim::RunOptions{.quiet = true});
    for (std::size_t i = 0; i < sc.steps.size(); ++i) {
      run.stepRun(i);
      if (i + 1 == sc.steps.size() / 2) middle = heapInUse();
    }
    end = heapInUse();
    if (run.result().failed != 0) state.SkipWithError("an expectation was not met");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * shape.steps));
  state.counters["heapBytes"] = static_cast<double>(end);
  state.counters["heapGrowthSecondHalf"] = static_cast<double>(end - middle);
}
BENCHMARK(LongScenarioQuiet)->Arg(2047)->Arg(4094)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);

// A pair built by the long scenario's first step, and two steps that flip one mapping of the
// primary between two VNIs.
struct OneChange {
  explicit OneChange(std::size_t vlans)
      : sc(Sim::parseScenario(Sim::longScenarioText({.vlans = vlans, .steps = 2, .flaps = 0, .swaps = 0}) +
                                  "  - A: {vti: {Vxlan1: {vlanToVni: {100: 900100}}}}\n"
                                  "  - A: {vti: {Vxlan1: {vlanToVni: {100: 100100}}}}\n",
                              "one-change.yaml")) {}
  // Whether B holds A's mapping of VLAN 100 as step `last` left it.
  bool arrived(Sim::Pair const& pair, std::size_t last) const {
    Vxlan::VniVtiPair key(Vxlan::VniExtOrNone(last == 2 ? 900100u : 100100u), Vxlan1);
    return pair.b.recvVxStatus->vniVtiToDynVlanMap(key) == Bridging::ExtendedVlanId(100);
  }
  // Runs the scenario once on `pair` (the flips leave VLAN 100 as it was), with a runner that goes
  // when it is done: its followers of the dump are not part of a baseline.
  void build(Sim::Pair& pair) { Sim::Runner(pair, sc, out).run(); }
  // Step `i`'s input to A and what follows from it, without the runner.
  void inputsRun(Sim::Pair& pair, std::size_t i) const {
    {
      Sim::Acting acting(pair.a.name());
      for (auto const& op : sc.steps[i].inputs[0]) op(pair.a);
    }
    pair.settle();
  }
  Sim::Scenario sc;
  NullBuf buf;
  std::ostream out{&buf};
};

void OneChangeStep(benchmark::State& state) {
  OneChange c(static_cast<std::size_t>(state.range(0)));
  Sim::Pair pair;
  Sim::Runner run(pair, c.sc, c.out);
  run.stepRun(0);
  run.stepRun(1);
  std::size_t step = 3;
  std::int64_t before = heapInUse();
  for (auto _ : state) {
    step = step == 2 ? 3 : 2;
    run.stepRun(step);
  }
  std::int64_t const growth = heapInUse() - before;
  if (!c.arrived(pair, step)) state.SkipWithError("the change did not arrive");
  state.SetItemsProcessed(state.iterations());
  state.counters["heapGrowthPerStep"] = static_cast<double>(growth) / static_cast<double>(state.iterations());
}
BENCHMARK(OneChangeStep)->Arg(2047)->Arg(4094)->Unit(benchmark::kMicrosecond);

void OneChangeBare(benchmark::State& state) {
  OneChange c(static_cast<std::size_t>(state.range(0)));
  Sim::Pair pair;
  c.build(pair);
  std::size_t step = 3;
  for (auto _ : state) {
    step = step == 2 ? 3 : 2;
    c.inputsRun(pair, step);
  }
  if (!c.arrived(pair, step)) state.SkipWithError("the change did not arrive");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OneChangeBare)->Arg(2047)->Arg(4094)->Unit(benchmark::kMicrosecond);

void OneChangeFullSnapshot(benchmark::State& state) {
  OneChange c(static_cast<std::size_t>(state.range(0)));
  Sim::Pair pair;
  c.build(pair);
  Sim::Flat flats[2] = {Sim::flattenSwitch(pair.a), Sim::flattenSwitch(pair.b)};
  std::size_t step = 3;
  std::size_t rows = 0;
  for (auto _ : state) {
    step = step == 2 ? 3 : 2;
    c.inputsRun(pair, step);
    for (std::size_t s = 0; s < 2; ++s) {
      Sim::Flat now = Sim::flattenSwitch(s == 0 ? pair.a : pair.b);
      rows += Sim::diffEntity(flats[s], now, "recvVxStatus").size();
      flats[s] = std::move(now);
    }
  }
  benchmark::DoNotOptimize(rows);
  if (!c.arrived(pair, step)) state.SkipWithError("the change did not arrive");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OneChangeFullSnapshot)->Arg(2047)->Arg(4094)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
