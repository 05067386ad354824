// Flood lists at a pair's scale, with the ring trace on and the text trace off.
//
// Targets: a source directory of 4094 VLANs, each with the zero MAC's flood set of 64 VTEPs,
// replicated from nothing in at most 50 ms and within 1.5x of the mandated work; one destination
// change to its output in at most 2 us. The replication runs at 2047 and 4094 VLANs, to show how
// it scales.
//
// Baseline in the same binary:
//   MandatedWork: the same replication done by hand: the input walked level by level, each
//   output entry found by key and each input entry read again by key, as the per-key steps do,
//   the same output written to nested absl::flat_hash_maps, and the same ring records (per VLAN its entry,
//   each MAC added and its return; per flood set its entry, each destination added and its
//   return), each with its time from the same time source, appended to a plain buffer.
//   Replicate / MandatedWork is the cost of the runtime, the entities and the trace.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "BenchSupport.h"
#include "Vxlan/SdeToBumStatusSm.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/SourceDirEntryP2pSm.h"
#include "runtime/Clock.h"

namespace {

constexpr int vtepCount = 64;
// Ring records of one VLAN: its entry, its MAC and its return; its flood set's entry, one per
// destination and its return.
constexpr int recordsPerVlan = 3 + 2 + vtepCount;

BenchSupport::TempDir benchDir(true);

Lanx::EthAddr const zeroMac;
L2Rib::Dest vtepOf(int i) {
  return L2Rib::canonicalVxlanDest(
      Lanx::IpAddr(10, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)));
}

// A source directory with `vlans` VLANs, each with the zero MAC's flood set of 64 VTEPs.
Brix::Ptr<L2Rib::SourceDirEntry> sourceDir(int vlans) {
  auto sde = Brix::newNode<L2Rib::SourceDirEntry>();
  sde->sourceInitializedIs(true);
  for (int v = 1; v <= vlans; ++v) {
    auto fs = sde->vlanFloodSetIs(Bridging::VlanId(v))->floodSetIs(zeroMac);
    fs->floodSetTypeIs(L2Rib::FloodSetType::all);
    for (int d = 0; d < vtepCount; ++d) fs->destSetIs(vtepOf(d), true);
  }
  return sde;
}

struct Pair {
  Vok::ManualLoop loop{1000.0};
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("bench");  // makes the ring handle
};

void Replicate(benchmark::State& state) {
  auto const vlans = static_cast<int>(state.range(0));
  Pair p;
  auto in = sourceDir(vlans);
  auto out = Brix::newNode<L2Rib::SourceDirEntry>();
  BenchSupport::RecordCount records;
  for (auto _ : state) {
    records.resume();
    auto sm = MlagVxlan::sourceDirEntryP2pSmFactory(in, out, "vcs");
    records.pause();
    state.PauseTiming();
    if (out->vlanFloodSetCount() != static_cast<std::size_t>(vlans)) state.SkipWithError("replica incomplete");
    sm = nullptr;  // its cleanup empties the output for the next round
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlans * vtepCount);
  records.report(state, "records");
}
BENCHMARK(Replicate)->Arg(2047)->Arg(4094)->Unit(benchmark::kMillisecond);

using Record =
    BenchSupport::PlainRecord<std::array<std::byte, 48>>;  // name, VLAN, MAC and destination, as the ring packs them

using Dests = absl::flat_hash_map<L2Rib::Dest, bool>;
struct FloodSet {
  L2Rib::FloodSetType type;
  Dests dests;
};
using FloodSets = absl::flat_hash_map<Lanx::EthAddr, FloodSet>;
using Vlans = absl::flat_hash_map<std::uint16_t, FloodSets>;

void MandatedWork(benchmark::State& state) {
  auto const vlans = static_cast<int>(state.range(0));
  Pair p;
  Vlans in;
  for (int v = 1; v <= vlans; ++v) {
    auto& fs = in[static_cast<std::uint16_t>(v)][zeroMac];
    fs.type = L2Rib::FloodSetType::all;
    for (int d = 0; d < vtepCount; ++d) fs.dests[vtepOf(d)] = true;
  }
  char const name[] = "vcs";
  std::vector<Record> ring;
  ring.reserve(std::size_t(vlans) * recordsPerVlan);
  std::uint64_t seq = 0;
  auto record = [&](int msgId, std::uint16_t vlan, Lanx::EthAddr const* mac, L2Rib::Dest const* dest) {
    Record& r = ring.emplace_back(Record{msgId, ++seq, RingLog::recordStamp(), {}});
    std::byte* b = r.values.data();
    std::memcpy(b, name, 4);
    std::memcpy(b + 4, &vlan, 2);
    if (mac) std::memcpy(b + 6, mac, 6);
    if (dest) {
      auto id = dest->destId().value();
      std::memcpy(b + 12, &id, 8);
      std::memcpy(b + 20, dest->vxlan().vtepAddr().bytes().data(), 16);
    }
  };
  for (auto _ : state) {
    Vlans out;
    ring.clear();
    for (auto const& [vlan, floodSets] : in) {
      out[vlan];
      auto& outVlan = out.at(vlan);  // each level finds its output entry by key
      record(1, vlan, nullptr, nullptr);
      for (auto const& [mac, fs] : floodSets) {
        record(2, vlan, &mac, nullptr);
        if (floodSets.contains(mac)) outVlan[mac];  // the per-key step reads its input again
      }
      record(3, vlan, nullptr, nullptr);
      for (auto const& [mac, fs] : floodSets) {
        auto& outFs = outVlan.at(mac);
        record(4, vlan, &mac, nullptr);
        outFs.type = fs.type;
        for (auto const& [dest, on] : fs.dests) {
          record(5, vlan, &mac, &dest);
          auto const found = fs.dests.find(dest);
          if (found != fs.dests.end() && found->second) outFs.dests[dest] = true;
        }
        record(6, vlan, &mac, nullptr);
      }
    }
    if (out.size() != static_cast<std::size_t>(vlans)) state.SkipWithError("baseline incomplete");
    benchmark::DoNotOptimize(ring.data());
    state.PauseTiming();
    out = {};
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlans * vtepCount);
}
BENCHMARK(MandatedWork)->Arg(2047)->Arg(4094)->Unit(benchmark::kMillisecond);

// One VTEP leaves or joins one VLAN's flood set and reaches the replica; with range(0) set, the
// BUM status made of the same source follows it too.
void OneDestChangeEndToEnd(benchmark::State& state) {
  Pair p;
  auto in = sourceDir(4094);
  auto out = Brix::newNode<L2Rib::SourceDirEntry>();
  auto bum = Brix::newNode<Vxlan::BumStatus>();
  auto sm = MlagVxlan::sourceDirEntryP2pSmFactory(in, out, "vcs");
  auto narrowing = state.range(0) ? MlagVxlan::sdeToBumStatusSmFactory(in, bum) : nullptr;
  auto fs = in->vlanFloodSet(Bridging::VlanId(2000))->floodSet(zeroMac);
  auto const outFs = out->vlanFloodSet(Bridging::VlanId(2000))->floodSet(zeroMac);
  L2Rib::Dest const d = vtepOf(vtepCount);
  bool on = false;
  for (auto _ : state) {
    on = !on;
    if (on) {
      fs->destSetIs(d, true);
    } else {
      fs->destSetDel(d);
    }
  }
  if (outFs->destSetHas(d) != on) state.SkipWithError("the change did not reach the output");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OneDestChangeEndToEnd)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
