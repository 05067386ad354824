// The cost of a trace statement, beside its baselines.
//
// Ring: a level 6 statement with three values (16-bit, 32-bit, short text) into the ring, its
// text level off, on virtual time as in tests and the simulator, and on the monotonic clock as
// in an agent. Target: at most 25 ns per statement on virtual time.
// Baseline: the same message formatted to text with fmt, what a text-only trace would pay.
//
// Text off: the extra cost of a statement whose text level is off and that has no ring handle,
// through the system's own statement (the handle lookups included). Target: at most 2 ns over
// the empty loop.
//
// Decode: a ring file of some 500k records read back as text lines.
// Target: at least 1M records per second (the items_per_second counter).
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "Vxlan/Trace.h"
#include "trace/DualLog.h"
#include "trace/RingLogReader.h"

namespace TraceBench {

// A private directory for the benchmark's ring files, removed at exit.
BenchSupport::TempDir benchDir;

std::unique_ptr<RingLog::TraceHandle> openRing(char const* name, std::uint32_t kibAt5And6) {
  RingLog::SizeSpec sizes{{32, 8, 8, 8, 8, kibAt5And6, kibAt5And6, 8, 8, 8}};
  return std::unique_ptr<RingLog::TraceHandle>(RingLog::initialize_handle(name, &sizes, benchDir.path.c_str(), 0, 0));
}

void statement(RingLog::TraceHandle* rl, Vok::TraceHandle const* text, std::uint16_t vlan, std::uint32_t vni,
               Brix::String const& source) {
  DUAL_LOG(rl, text, 6, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan}) vni {vni} source {source}", vlan, vni, source);
}

void ringStatement(benchmark::State& state, bool virtualTime) {
  Vok::ManualTimeSource time(1.0);
  if (virtualTime) Vok::System::timeSourceIs(&time);
  auto rl = openRing("bench-ring.rl", 256);
  if (!rl->file()) {
    state.SkipWithError(rl->error().c_str());
    return;
  }
  Vok::TraceHandle text("TraceBench", false);
  Brix::String source("static");
  std::uint32_t n = 0;
  for (auto _ : state) {
    statement(rl.get(), &text, static_cast<std::uint16_t>(n & 0xfff), n, source);
    ++n;
  }
  state.SetItemsProcessed(state.iterations());
  Vok::System::timeSourceIs(nullptr);
}
void BM_RingStatementLevel6ThreeValues_VirtualTime(benchmark::State& state) { ringStatement(state, true); }
void BM_RingStatementLevel6ThreeValues_MonotonicClock(benchmark::State& state) { ringStatement(state, false); }
BENCHMARK(BM_RingStatementLevel6ThreeValues_VirtualTime);
BENCHMARK(BM_RingStatementLevel6ThreeValues_MonotonicClock);

void BM_Baseline_FormatSameMessageAsText(benchmark::State& state) {
  Brix::String source("static");
  std::string out;
  std::uint32_t n = 0;
  for (auto _ : state) {
    out.clear();
    fmt::format_to(std::back_inserter(out), "VlanToVniMapToP2pSm::handleVlanToVniMap({}) vni {} source {}", n & 0xfff,
                   n, source.view());
    benchmark::DoNotOptimize(out.data());
    ++n;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_FormatSameMessageAsText);

// Without a container there is no ring handle: what remains is the text level test.
void BM_VxlanTraceTextOffNoRing(benchmark::State& state) {
  MlagVxlan::_defaultTraceHandle()->levelMaskIs(0);
  std::uint32_t n = 0;
  for (auto _ : state) {
    VXLAN_TRACE(6, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan}) vni {vni}", static_cast<std::uint16_t>(n), n);
    benchmark::DoNotOptimize(++n);
  }
}
void BM_Baseline_EmptyLoop(benchmark::State& state) {
  std::uint32_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(++n);
}
BENCHMARK(BM_VxlanTraceTextOffNoRing);
BENCHMARK(BM_Baseline_EmptyLoop);

void BM_DecodeRingFile(benchmark::State& state) {
  Vok::ManualTimeSource time(1.0);
  Vok::System::timeSourceIs(&time);
  auto rl = openRing("bench-decode.rl", 12 * 1024);
  Brix::String source("evpn");
  for (std::uint32_t n = 0; n < 600'000; ++n) {
    statement(rl.get(), nullptr, static_cast<std::uint16_t>(n & 0xfff), n, source);
    DUAL_LOG(rl.get(), nullptr, 5, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan})", static_cast<std::uint16_t>(n));
  }
  Vok::System::timeSourceIs(nullptr);
  std::ifstream in(rl->fileName(), std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t records = 0;
  for (auto _ : state) {
    auto f = RingLog::decode(bytes);
    records += f.records.size();
    benchmark::DoNotOptimize(f.records.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(records));
  state.counters["records_per_file"] = static_cast<double>(records) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_DecodeRingFile)->Unit(benchmark::kMillisecond);

}  // namespace TraceBench

BENCHMARK_MAIN();
