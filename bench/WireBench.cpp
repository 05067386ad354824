// The wire codec: the VLAN-to-VNI map of 4094 rows, and one change of it, encoded by a sender and
// decoded and applied by a receiver into a peer's copy, as the in-process link carries them.
//
// Baseline in the same binary: a raw memcpy of the same bytes, the least any transport pays to
// move them.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "Wire/EntityCodec.h"
#include "entities/Mlag/VxlanStatus.h"

namespace {

namespace Wire = MlagVxlan::Wire;
using Status = Mlag::VxlanStatus;

constexpr std::uint16_t vlanCount = 4094;
constexpr std::uint32_t vniBase = 10000;

Brix::Ptr<Status> filledSource() {
  auto src = Brix::newNode<Status>();
  for (std::uint16_t v = 1; v <= vlanCount; ++v) {
    src->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone(vniBase + v)), Bridging::ExtendedVlanId(v));
  }
  return src;
}

// Every change of a snapshot of `src`, concatenated.
std::vector<std::byte> snapshotBytes(Brix::Ptr<Status> const& src, std::size_t* changes = nullptr) {
  std::vector<std::byte> all;
  std::size_t n = 0;
  Wire::Sender<Status> tx(src, 0, [&](std::span<std::byte const> c) {
    all.insert(all.end(), c.begin(), c.end());
    ++n;
  });
  tx.snapshot();
  if (changes) *changes = n;
  return all;
}

// A snapshot of 4094 rows into a fresh peer copy.
void Snapshot4094(benchmark::State& state) {
  auto src = filledSource();
  std::size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto dst = Brix::newNode<Status>();
    {
      Wire::Receiver<Status> rx(dst, 0);
      Wire::Sender<Status> tx(src, 0, [&](std::span<std::byte const> c) {
        bytes += c.size();
        rx.apply(c);
      });
      state.ResumeTiming();
      tx.snapshot();
      state.PauseTiming();
    }
    if (dst->vniVtiToDynVlanMapCount() != vlanCount) state.SkipWithError("snapshot incomplete");
    dst = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
  state.counters["bytes_per_row"] = static_cast<double>(bytes) / static_cast<double>(state.iterations() * vlanCount);
}
BENCHMARK(Snapshot4094)->Unit(benchmark::kMicrosecond);

void Snapshot4094Memcpy(benchmark::State& state) {
  auto const bytes = snapshotBytes(filledSource());
  std::vector<std::byte> dst(bytes.size());
  for (auto _ : state) {
    std::memcpy(dst.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(Snapshot4094Memcpy)->Unit(benchmark::kMicrosecond);

// One row's VLAN changed back and forth, carried to an equal peer copy.
void OneChange(benchmark::State& state) {
  auto src = filledSource();
  auto dst = Brix::newNode<Status>();
  Wire::Receiver<Status> rx(dst, 0);
  std::size_t bytes = 0;
  Wire::Sender<Status> tx(src, 0, [&](std::span<std::byte const> c) {
    bytes += c.size();
    rx.apply(c);
  });
  tx.snapshot();
  Vxlan::VniVtiPair const key(Vxlan1, Vxlan::VniExtOrNone(vniBase + 100));
  bytes = 0;
  std::uint16_t vlan = 100;
  for (auto _ : state) {
    vlan = vlan == 100 ? 4000 : 100;
    src->vniVtiToDynVlanMapIs(key, Bridging::ExtendedVlanId(vlan));
  }
  if (dst->vniVtiToDynVlanMap(key) != Bridging::ExtendedVlanId(vlan)) state.SkipWithError("change did not arrive");
  state.SetItemsProcessed(state.iterations());
  state.counters["bytes_per_change"] = static_cast<double>(bytes) / static_cast<double>(state.iterations());
}
BENCHMARK(OneChange);

void OneChangeMemcpy(benchmark::State& state) {
  auto src = filledSource();
  std::vector<std::byte> change;
  Wire::Sender<Status> tx(src, 0, [&](std::span<std::byte const> c) { change.assign(c.begin(), c.end()); });
  src->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone(vniBase + 100)), Bridging::ExtendedVlanId(7));
  std::vector<std::byte> dst(change.size());
  for (auto _ : state) {
    std::memcpy(dst.data(), change.data(), change.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OneChangeMemcpy);

}  // namespace

BENCHMARK_MAIN();
