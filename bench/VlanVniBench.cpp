// The VLAN-to-VNI exchange end to end: one switch publishes Vxlan1's map, the transport carries
// sentVxStatus to the peer's recvVxStatus, and the peer applies it as dynamic VLANs.
//
// Targets: the whole exchange of 4094 mappings from nothing (inputs filled, then the state
// machines built and the exchange run until nothing changes, transport delay 0) in at most 5 ms;
// one mapping change carried end to end in at most 2 us, with the ring trace on and the text
// trace off.
//
// Baselines in the same binary:
//   BareCopy: the map copied between two std::unordered_maps, as a lower bound.
//   MandatedWork (and MandatedWorkOneChange for one change): exactly the writes the exchange must make for the same
//   input (publisher's shadow and two published maps, the peer's two received maps, the applier's output) in
//   absl::flat_hash_map, plus as many fixed-size trace records appended to a plain buffer as the
//   library writes, counted by running it once. Exchange / MandatedWork is the overhead of the
//   runtime, the entities and the dispatch.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <stdlib.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "BenchLink.h"
#include "BenchSupport.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/VlanToVniMapSm.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/Clock.h"

namespace {

constexpr std::uint16_t vlanCount = 4094;
constexpr std::uint32_t vniBase = 10000;

// The library's ring file goes to a private directory, removed at exit.
BenchSupport::TempDir benchDir(true);

Vxlan::VniSourcePair mapping(std::uint32_t vni, Lanx::IntfId intf = Vxlan1) {
  return Vxlan::VniSourcePair(intf, Brix::String("static"), Vxlan::VniExtOrNone(vni));
}

// Two switches' worth of the exchange: A primary publishes, B secondary applies.
struct Pair {
  Vok::ManualLoop loop;
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("bench");  // makes the ring handle
  Brix::Ptr<Vxlan::VtiStatusDir> dirA = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<Vxlan::VtiStatusDir> dirB = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<Vxlan::VtiStatus> vti = dirA->vtiStatusIs(Vxlan1);
  Brix::Ptr<Mlag::VxlanStatus> sentA = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> recvA = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> localA = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> sentB = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> recvB = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> localB = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::Status> statusA = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Mlag::Status> statusB = Brix::newNode<Mlag::Status>();
  Bench::StatusLink link{sentA, recvB};
  MlagVxlan::VlanToVniMapSm::Ptr smA;
  MlagVxlan::VlanToVniMapSm::Ptr smB;

  // `perVti` mappings on each of Vxlan1 to Vxlan<vtis>, VNIs distinct across them.
  explicit Pair(std::uint16_t perVti = vlanCount, int vtis = 1) {
    statusA->mlagStateIs(Mlag::MlagState::primary);
    statusB->mlagStateIs(Mlag::MlagState::secondary);
    for (int k = 1; k <= vtis; ++k) {
      Lanx::IntfId intf(fmt::format("Vxlan{}", k));
      auto v = k == 1 ? vti : dirA->vtiStatusIs(intf);
      dirB->vtiStatusIs(intf);
      for (std::uint32_t vlan = 1; vlan <= perVti; ++vlan)
        v->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(static_cast<std::uint16_t>(vlan)),
                                  mapping(vniBase + 100000 * static_cast<std::uint32_t>(k - 1) + vlan, intf));
    }
  }
  void start() {
    smA = MlagVxlan::vlanToVniMapSmFactory(dirA, sentA, recvA, localA, statusA);
    smB = MlagVxlan::vlanToVniMapSmFactory(dirB, sentB, recvB, localB, statusB);
    settle();
  }
  void settle() { link.settle(); }
};

// The ring records the baselines append, counted by running the library once: a mapping costs
// the publisher's entry, decision, sync and return, and the applier's entry, add and return for
// each of the two received collections; a VNI change withdraws the old VNI and publishes and
// applies the new one.
std::uint64_t recordsFromNothing() {
  static std::uint64_t const n = [] {
    Pair pair;
    return BenchSupport::recordsWrittenBy([&] { pair.start(); });
  }();
  return n;
}
int recordsPerChange() {
  static int const n = [] {
    Pair pair;
    pair.start();
    return static_cast<int>(BenchSupport::recordsWrittenBy([&] {
      pair.vti->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(100), mapping(900000));
      pair.settle();
    }));
  }();
  return n;
}

void Exchange4094FromNothing(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto pair = std::make_unique<Pair>();
    state.ResumeTiming();
    pair->start();
    state.PauseTiming();
    if (pair->localB->vniVtiToDynVlanMapCount() != vlanCount) state.SkipWithError("exchange incomplete");
    pair.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
}
BENCHMARK(Exchange4094FromNothing)->Unit(benchmark::kMillisecond);

// The same exchange at growing sizes: 1k, 2k and 4k mappings on one VTI, then 4096 on each of
// two and four VTIs (8k and 16k extended VLANs). Each size should cost about twice the last.
void ExchangeScaling(benchmark::State& state) {
  auto const perVti = static_cast<std::uint16_t>(state.range(0));
  auto const vtis = static_cast<int>(state.range(1));
  std::size_t const total = std::size_t{perVti} * static_cast<std::size_t>(vtis);
  for (auto _ : state) {
    state.PauseTiming();
    auto pair = std::make_unique<Pair>(perVti, vtis);
    state.ResumeTiming();
    pair->start();
    state.PauseTiming();
    if (pair->localB->vniVtiToDynVlanMapCount() != total) state.SkipWithError("exchange incomplete");
    pair.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(total));
}
BENCHMARK(ExchangeScaling)
    ->Args({1024, 1})
    ->Args({2048, 1})
    ->Args({4096, 1})
    ->Args({4096, 2})
    ->Args({4096, 4})
    ->Unit(benchmark::kMillisecond);

void OneMappingChangeEndToEnd(benchmark::State& state) {
  Pair pair;
  pair.start();
  std::uint32_t flip = 0;
  Bridging::ExtendedVlanId vlan(100);
  std::uint64_t const recordsBefore = BenchSupport::ringRecordsWritten();
  std::size_t const allocationsBefore = BenchSupport::allocationCount.load();
  for (auto _ : state) {
    flip ^= 1;
    pair.vti->extendedVlanToVniMapIs(vlan, mapping(flip ? 900000 : vniBase + 100));
    pair.settle();
  }
  auto allocations = static_cast<double>(BenchSupport::allocationCount.load() - allocationsBefore);
  Vxlan::VniVtiPair key(Vxlan::VniExtOrNone(flip ? 900000 : vniBase + 100), Vxlan1);
  if (pair.localB->vniVtiToDynVlanMap(key) != vlan) state.SkipWithError("change did not arrive");
  state.SetItemsProcessed(state.iterations());
  state.counters["allocs_per_change"] = allocations / static_cast<double>(state.iterations());
  state.counters["records_per_change"] =
      static_cast<double>(BenchSupport::ringRecordsWritten() - recordsBefore) / static_cast<double>(state.iterations());
}
BENCHMARK(OneMappingChangeEndToEnd);

void BareCopy(benchmark::State& state) {
  std::unordered_map<std::uint16_t, std::uint32_t> in;
  for (std::uint16_t v = 1; v <= vlanCount; ++v) in[v] = vniBase + v;
  for (auto _ : state) {
    std::unordered_map<std::uint16_t, std::uint32_t> out;
    for (auto const& [v, vni] : in) out[v] = vni;
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
}
BENCHMARK(BareCopy)->Unit(benchmark::kMillisecond);

using Record = BenchSupport::PlainRecord<std::array<std::uint32_t, 2>>;

void MandatedWork(benchmark::State& state) {
  std::unordered_map<std::uint16_t, std::uint32_t> in;
  for (std::uint16_t v = 1; v <= vlanCount; ++v) in[v] = vniBase + v;
  std::vector<Record> ring;
  std::uint64_t const records = recordsFromNothing();
  auto const perMapping = static_cast<int>(records / vlanCount);
  auto const firstRuns = static_cast<int>(records % vlanCount);  // the state machines' first runs
  ring.reserve(records);
  std::uint64_t seq = 0;
  for (auto _ : state) {
    absl::flat_hash_map<std::uint16_t, std::uint32_t> shadow;
    absl::flat_hash_map<std::uint64_t, std::uint16_t> sentVniVti, recvVniVti, localVniVti;
    absl::flat_hash_map<std::uint32_t, std::uint16_t> sentVni, recvVni;
    ring.clear();
    for (auto const& [v, vni] : in) {
      std::uint64_t key = (std::uint64_t{1} << 32) | vni;
      shadow[v] = vni;
      sentVniVti[key] = v;
      sentVni[vni] = v;
      recvVniVti[key] = v;
      recvVni[vni] = v;
      localVniVti[key] = recvVniVti[key] ? recvVniVti[key] : recvVni[vni];
      for (int r = 0; r < perMapping; ++r) ring.push_back(Record{r, ++seq, RingLog::recordStamp(), {v, vni}});
    }
    for (int r = 0; r < firstRuns; ++r) ring.push_back(Record{r, ++seq, RingLog::recordStamp(), {0, 0}});
    benchmark::DoNotOptimize(localVniVti);
    benchmark::DoNotOptimize(ring.data());
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
  state.counters["records"] = static_cast<double>(records);
}
BENCHMARK(MandatedWork)->Unit(benchmark::kMillisecond);

// The mandated work of one mapping changing its VNI, as OneMappingChangeEndToEnd makes it: in
// every map the old VNI's entry goes and the new one's comes, and the records of both sides.
void MandatedWorkOneChange(benchmark::State& state) {
  absl::flat_hash_map<std::uint16_t, std::uint32_t> shadow;
  absl::flat_hash_map<std::uint64_t, std::uint16_t> sentVniVti, recvVniVti, localVniVti;
  absl::flat_hash_map<std::uint32_t, std::uint16_t> sentVni, recvVni;
  for (std::uint16_t v = 1; v <= vlanCount; ++v) {
    std::uint32_t vni = vniBase + v;
    std::uint64_t key = (std::uint64_t{1} << 32) | vni;
    shadow[v] = vni, sentVniVti[key] = v, recvVniVti[key] = v, localVniVti[key] = v;
    sentVni[vni] = v, recvVni[vni] = v;
  }
  int const perChange = recordsPerChange();
  std::vector<Record> ring(std::size_t{1} << 16);
  std::uint64_t seq = 0;
  std::uint32_t flip = 0;
  std::uint16_t const v = 100;
  for (auto _ : state) {
    flip ^= 1;
    std::uint32_t vni = flip ? 900000 : vniBase + v, old = flip ? vniBase + v : 900000;
    std::uint64_t key = (std::uint64_t{1} << 32) | vni, oldKey = (std::uint64_t{1} << 32) | old;
    shadow[v] = vni;
    for (auto* m : {&sentVniVti, &recvVniVti, &localVniVti}) m->erase(oldKey), (*m)[key] = v;
    for (auto* m : {&sentVni, &recvVni}) m->erase(old), (*m)[vni] = v;
    for (int r = 0; r < perChange; ++r) ring[++seq & 0xffff] = Record{r, seq, RingLog::recordStamp(), {v, vni}};
    benchmark::DoNotOptimize(localVniVti);
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["records_per_change"] = perChange;
}
BENCHMARK(MandatedWorkOneChange);

}  // namespace

BENCHMARK_MAIN();
