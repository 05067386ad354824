// The status entities at a pair's scale, beside std::unordered_map doing the same work.
//
// Value collection: Mlag::VxlanStatus::sharedDynVlan over all 4094 VLANs, set into a fresh
// entity and read back.
// Entity table: MlagP2p::HostTable::hostEntry with 256k records (encoded interfaces of 512
// VTEPs): inserted into a fresh table, read by key in a shuffled order, and walked. A read
// through the entity returns the record by value, so its baseline copies the record out too;
// the lookup alone is measured against a bare find as well.
//   Targets: reads no slower than std::unordered_map; at most 32 bytes per entry beyond the key
//   and the value (the counter bytes_per_entry_overhead, from the collection's own account of
//   its memory; the baseline's comes from a counting allocator and leaves out the allocator's
//   per-node header, which the collection, allocating in large blocks, hardly pays).
//
// One iteration is a whole round of n operations; items_per_second counts operations.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/MlagP2p/HostTable.h"
#include "runtime/HashMap2018.h"

namespace EntityBench {

using Bridging::VlanId;
using MlagP2p::HostEntry;
using MlagP2p::HostEntryKey;

constexpr std::size_t hostCount = std::size_t{256} * 1024;

using BenchSupport::CountingAllocator;

template <class K, class V>
using Baseline = std::unordered_map<K, V, std::hash<K>, std::equal_to<K>, CountingAllocator<std::pair<K const, V>>>;

// The bytes an entity's collection holds, asked of the collection itself.
template <class E>
std::size_t collectionBytes(E const& e, Brix::FieldId field) {
  std::size_t bytes = 0;
  e.vokVisitField(field, [&](auto, Brix::FieldId, auto const& attr) {
    if constexpr (requires { attr.map().memoryBytes(); }) bytes = attr.map().memoryBytes();
  });
  return bytes;
}

using HostMap = Vok::HashMap2018<HostEntryKey, HostEntry>;

// The storage of a table's hostEntry, reached through the entity's declaration.
HostMap const& hostMapOf(MlagP2p::HostTable const& t) {
  HostMap const* map = nullptr;
  t.vokVisitField(MlagP2p::HostTable::hostEntryField, [&](auto, Brix::FieldId, auto const& attr) {
    if constexpr (std::is_same_v<std::decay_t<decltype(attr.map())>, HostMap>) map = &attr.map();
  });
  return *map;
}

template <class K, class V>
void reportOverhead(benchmark::State& state, std::size_t bytes, std::size_t n) {
  state.counters["bytes_per_entry"] = static_cast<double>(bytes) / static_cast<double>(n);
  state.counters["bytes_per_entry_overhead"] =
      static_cast<double>(bytes) / static_cast<double>(n) - static_cast<double>(sizeof(K) + sizeof(V));
}

// ---- 4094 VLANs ---------------------------------------------------------------------------------

std::vector<VlanId> const& allVlans() {
  static std::vector<VlanId> const vlans = [] {
    std::vector<VlanId> v;
    for (int i = VlanId::min; i <= VlanId::max; ++i) v.emplace_back(i);
    return v;
  }();
  return vlans;
}

void BM_SharedDynVlanSet(benchmark::State& state) {
  auto const& vlans = allVlans();
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto s = Brix::newNode<Mlag::VxlanStatus>();
    for (VlanId v : vlans) s->sharedDynVlanIs(v, true);
    bytes = collectionBytes(*s, Mlag::VxlanStatus::sharedDynVlanField);
    benchmark::DoNotOptimize(s.get());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * vlans.size()));
  reportOverhead<VlanId, bool>(state, bytes, vlans.size());
}
BENCHMARK(BM_SharedDynVlanSet);

void BM_SharedDynVlanSet_UnorderedMap(benchmark::State& state) {
  auto const& vlans = allVlans();
  std::size_t bytes = 0;
  for (auto _ : state) {
    std::size_t before = BenchSupport::countedBytes;
    Baseline<VlanId, bool> m;
    for (VlanId v : vlans) m.insert_or_assign(v, true);
    bytes = BenchSupport::countedBytes - before;
    benchmark::DoNotOptimize(&m);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * vlans.size()));
  reportOverhead<VlanId, bool>(state, bytes, vlans.size());
}
BENCHMARK(BM_SharedDynVlanSet_UnorderedMap);

void BM_SharedDynVlanRead(benchmark::State& state) {
  auto const& vlans = allVlans();
  auto s = Brix::newNode<Mlag::VxlanStatus>();
  for (VlanId v : vlans) s->sharedDynVlanIs(v, v.value() % 3 != 0);
  for (auto _ : state) {
    std::size_t shared = 0;
    for (VlanId v : vlans) shared += s->sharedDynVlan(v);
    benchmark::DoNotOptimize(shared);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * vlans.size()));
}
BENCHMARK(BM_SharedDynVlanRead);

void BM_SharedDynVlanRead_UnorderedMap(benchmark::State& state) {
  auto const& vlans = allVlans();
  Baseline<VlanId, bool> m;
  for (VlanId v : vlans) m.insert_or_assign(v, v.value() % 3 != 0);
  for (auto _ : state) {
    std::size_t shared = 0;
    for (VlanId v : vlans) {
      auto it = m.find(v);
      shared += it != m.end() && it->second;
    }
    benchmark::DoNotOptimize(shared);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * vlans.size()));
}
BENCHMARK(BM_SharedDynVlanRead_UnorderedMap);

// ---- 256k host entries --------------------------------------------------------------------------

// Records as the remote host table writes them: a MAC per entry spread over the VLANs, each
// behind one of 512 VTEPs.
std::vector<HostEntry> const& hostRecords() {
  static std::vector<HostEntry> const records = [] {
    std::vector<HostEntry> r;
    r.reserve(hostCount);
    for (std::size_t i = 0; i < hostCount; ++i) {
      HostEntryKey key(static_cast<std::uint16_t>(1 + i % 4094),
                       Lanx::EthAddr(0x001c, static_cast<std::uint16_t>(0x7300 + (i >> 16)),
                                     static_cast<std::uint16_t>(i & 0xffff)));
      std::size_t vtep = i % 512;
      std::string intf = "Vxlan1:10.0." + std::to_string(vtep / 256) + "." + std::to_string(1 + vtep % 256);
      r.emplace_back(intf, 1000.0 + static_cast<double>(i), static_cast<std::uint32_t>(i % 7), key, 5);
    }
    return r;
  }();
  return records;
}

// The keys in a fixed shuffled order, so that reads do not follow the insertion order.
std::vector<HostEntryKey> const& shuffledKeys() {
  static std::vector<HostEntryKey> const keys = [] {
    std::vector<HostEntryKey> k;
    for (auto const& r : hostRecords()) k.push_back(r.key());
    std::shuffle(k.begin(), k.end(), std::mt19937_64(42));
    return k;
  }();
  return keys;
}

Brix::Ptr<MlagP2p::HostTable> const& filledTable() {
  static Brix::Ptr<MlagP2p::HostTable> const table = [] {
    auto t = Brix::newNode<MlagP2p::HostTable>();
    for (auto const& r : hostRecords()) t->hostEntryIs(r);
    return t;
  }();
  return table;
}

Baseline<HostEntryKey, HostEntry> const& filledBaseline() {
  static Baseline<HostEntryKey, HostEntry> const* const m = [] {
    auto* b = new Baseline<HostEntryKey, HostEntry>;
    for (auto const& r : hostRecords()) b->insert_or_assign(r.key(), r);
    return b;
  }();
  return *m;
}

void BM_HostTableInsert(benchmark::State& state) {
  auto const& records = hostRecords();
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto t = Brix::newNode<MlagP2p::HostTable>();
    for (auto const& r : records) t->hostEntryIs(r);
    bytes = collectionBytes(*t, MlagP2p::HostTable::hostEntryField);
    benchmark::DoNotOptimize(t.get());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * records.size()));
  reportOverhead<HostEntryKey, HostEntry>(state, bytes, records.size());
}
BENCHMARK(BM_HostTableInsert)->Unit(benchmark::kMillisecond);

void BM_HostTableInsert_UnorderedMap(benchmark::State& state) {
  auto const& records = hostRecords();
  std::size_t bytes = 0;
  for (auto _ : state) {
    std::size_t before = BenchSupport::countedBytes;
    Baseline<HostEntryKey, HostEntry> m;
    for (auto const& r : records) m.insert_or_assign(r.key(), r);
    bytes = BenchSupport::countedBytes - before;
    benchmark::DoNotOptimize(&m);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * records.size()));
  reportOverhead<HostEntryKey, HostEntry>(state, bytes, records.size());
}
BENCHMARK(BM_HostTableInsert_UnorderedMap)->Unit(benchmark::kMillisecond);

// A read as a state machine makes it: the record by value, the default if absent.
void BM_HostTableRead(benchmark::State& state) {
  auto const& t = filledTable();
  auto const& keys = shuffledKeys();
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& k : keys) moves += t->hostEntry(k).moves();
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_HostTableRead)->Unit(benchmark::kMillisecond);

void BM_HostTableRead_UnorderedMap(benchmark::State& state) {
  auto const& m = filledBaseline();
  auto const& keys = shuffledKeys();
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& k : keys) {
      auto it = m.find(k);
      HostEntry e = it != m.end() ? it->second : HostEntry();
      moves += e.moves();
    }
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_HostTableRead_UnorderedMap)->Unit(benchmark::kMillisecond);

// The lookup alone, without the copy of the record.
void BM_HostTableLookup(benchmark::State& state) {
  auto const& t = filledTable();
  auto const& keys = shuffledKeys();
  HostMap const& map = hostMapOf(*t);
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& k : keys) {
      auto const* n = map.lookupNodeG(k);
      moves += n ? n->value.moves() : 0;
    }
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
  reportOverhead<HostEntryKey, HostEntry>(state, map.memoryBytes(), map.size());
}
BENCHMARK(BM_HostTableLookup)->Unit(benchmark::kMillisecond);

void BM_HostTableLookup_UnorderedMap(benchmark::State& state) {
  auto const& m = filledBaseline();
  auto const& keys = shuffledKeys();
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& k : keys) {
      auto it = m.find(k);
      moves += it != m.end() ? it->second.moves() : 0;
    }
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_HostTableLookup_UnorderedMap)->Unit(benchmark::kMillisecond);

void BM_HostTableWalk(benchmark::State& state) {
  auto const& t = filledTable();
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& n : t->hostEntryIter()) moves += n.value.moves();
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * t->hostEntryCount()));
}
BENCHMARK(BM_HostTableWalk)->Unit(benchmark::kMillisecond);

void BM_HostTableWalk_UnorderedMap(benchmark::State& state) {
  auto const& m = filledBaseline();
  for (auto _ : state) {
    std::uint64_t moves = 0;
    for (auto const& [k, v] : m) moves += v.moves();
    benchmark::DoNotOptimize(moves);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * m.size()));
}
BENCHMARK(BM_HostTableWalk_UnorderedMap)->Unit(benchmark::kMillisecond);

}  // namespace EntityBench

BENCHMARK_MAIN();
