// The runtime's hot paths beside their baselines.
//
// Notification: a scalar mutator delivering one change to one subscriber, and to a state
// machine's subscribed input, against a plain std::function call.
//   Target: at most 20 ns per delivered notification.
//
// Keyed collection: Vok::HashMap2018 against std::unordered_map and absl::flat_hash_map doing
// the same work (insert, lookup hit, lookup miss, erase, full walk) at 1k and 1M entries of
// std::uint64_t keys and values. Keys are spread (a fixed-seed generator), never 0..n.
//   Targets: lookup and insert no slower than std::unordered_map; a walk of 1M entries in at
//   most 5 ms; at most 32 bytes per entry beyond the key and the value
//   (the counter bytes_per_entry_overhead).
//
// Each map benchmark times one operation per iteration, so the time column is ns per
// operation; a walk is one operation. Insert and erase run whole rounds of n operations: a
// fresh map is made (insert) or refilled (erase) between rounds with the timer paused.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/HashMap2018.h"
#include "runtime/Node.h"
#include "runtime/Publisher.h"
#include "runtime/StateMachine.h"

namespace RuntimeBench {

// ---- notification ------------------------------------------------------------------------------

#define RUNTIME_BENCH_COUNTER_STATUS_ATTRIBUTES(A) A(scalar, counter, std::uint32_t)

class CounterStatus : public Vok::Entity {
  VOK_ENTITY(CounterStatus, "RuntimeBench::CounterStatus", RUNTIME_BENCH_COUNTER_STATUS_ATTRIBUTES)
};

// A bare subscriber: the dispatch filters the field, the handler re-reads the attribute.
class CounterReader {
 public:
  explicit CounterReader(Brix::Ptr<CounterStatus const> status) : status_(std::move(status)) {
    sub_.subscribeTo(status_, &dispatch);
  }

  std::uint64_t delivered() const noexcept { return delivered_; }

 private:
  void handleCounter() {
    benchmark::DoNotOptimize(status_->counter());
    ++delivered_;
  }
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const*,
                       void const*) noexcept {
    if (field != CounterStatus::counterField) return;
    s->ownerAs<CounterReader>()->handleCounter();
  }

  Brix::Ptr<CounterStatus const> status_;
  Brix::Subscriber sub_{this};
  std::uint64_t delivered_ = 0;
};

// The same handler behind a state machine's subscribed input, as the state machines dispatch.
class CounterSm : public Vok::StateMachine {
 public:
  explicit CounterSm(Brix::Ptr<CounterStatus const> status) : status_(this, std::move(status), &statusDispatch) {}

  char const* typeData() const override { return "RuntimeBench::CounterSm"; }
  std::uint64_t delivered() const noexcept { return delivered_; }

  void handleStatusCounter() {
    benchmark::DoNotOptimize(status_->counter());
    ++delivered_;
  }

  static void statusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field, void const*,
                             void const*) noexcept {
    if (field != CounterStatus::counterField) return;
    auto* self = subscriber->ownerAs<CounterSm>();
    if (self->zombie()) return;
    self->handleStatusCounter();
  }

 private:
  Vok::Input<CounterStatus> status_;
  std::uint64_t delivered_ = 0;
};

void checkDelivered(benchmark::State& state, std::uint64_t delivered) {
  if (delivered != static_cast<std::uint64_t>(state.iterations())) state.SkipWithError("a change was not delivered");
  state.SetItemsProcessed(static_cast<std::int64_t>(delivered));
}

// Baseline: the handler's work behind one std::function call.
void notifyBaselineStdFunction(benchmark::State& state) {
  std::uint32_t value = 0;
  std::uint64_t delivered = 0;
  std::function<void()> handler = [&value, &delivered] {
    benchmark::DoNotOptimize(value);
    ++delivered;
  };
  benchmark::DoNotOptimize(handler);  // keep the call indirect
  for (auto _ : state) {
    value ^= 1u;
    handler();
  }
  checkDelivered(state, delivered);
}

// Breakdown: the mutator alone, with nobody subscribed.
void notifyScalarNoSubscriber(benchmark::State& state) {
  auto status = Brix::newNode<CounterStatus>();
  std::uint32_t v = 0;
  for (auto _ : state) {
    v ^= 1u;  // each call changes the value
    status->counterIs(v);
  }
  state.SetItemsProcessed(state.iterations());
}

void notifyScalarToSubscriber(benchmark::State& state) {
  auto status = Brix::newNode<CounterStatus>();
  CounterReader reader(status);
  std::uint32_t v = 0;
  for (auto _ : state) {
    v ^= 1u;  // each call changes the value, so each call publishes
    status->counterIs(v);
  }
  checkDelivered(state, reader.delivered());
}

void notifyScalarToStateMachine(benchmark::State& state) {
  auto status = Brix::newNode<CounterStatus>();
  auto sm = Vok::smNew<CounterSm>(status);
  std::uint32_t v = 0;
  for (auto _ : state) {
    v ^= 1u;
    status->counterIs(v);
  }
  checkDelivered(state, sm->delivered());
}

// ---- keyed collection --------------------------------------------------------------------------

using Key = std::uint64_t;
using Value = std::uint64_t;
constexpr double kKeyValueBytes = sizeof(Key) + sizeof(Value);

// splitmix64 over a counter is a bijection, so the keys are distinct without a check.
Key splitmix64(std::uint64_t x) noexcept {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

struct KeySet {
  std::vector<Key> inserted;  // insertion order
  std::vector<Key> probe;     // the same keys shuffled: lookup and erase order
  std::vector<Key> missing;   // keys never inserted
};

KeySet const& keySet(std::size_t n) {
  static std::map<std::size_t, KeySet> sets;
  auto [it, fresh] = sets.try_emplace(n);
  KeySet& ks = it->second;
  if (fresh) {
    constexpr std::uint64_t kSeed = 0x5EEDF00Dull << 20;
    ks.inserted.reserve(n);
    ks.missing.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
      ks.inserted.push_back(splitmix64(kSeed + 2 * i));
      ks.missing.push_back(splitmix64(kSeed + 2 * i + 1));
    }
    ks.probe = ks.inserted;
    std::shuffle(ks.probe.begin(), ks.probe.end(), std::mt19937_64(42));
    std::shuffle(ks.missing.begin(), ks.missing.end(), std::mt19937_64(43));
  }
  return ks;
}

using BenchSupport::countedBytes;
using BenchSupport::CountingAllocator;

// One adapter per map: the same operations, each map's own idiom.
struct VokHashMap {
  static constexpr char const* name = "HashMap2018";
  using Map = Vok::HashMap2018<Key, Value>;
  static void insert(Map& m, Key k, Value v) { m.newMemberG(k, v); }
  static Value const* find(Map const& m, Key k) {
    auto const* n = m.lookupNodeG(k);
    return n ? &n->value : nullptr;
  }
  static bool erase(Map& m, Key k) { return m.deleteMemberG(k); }
  static Value walk(Map const& m) {
    Value sum = 0;
    for (auto const& n : m) sum += n.value;
    return sum;
  }
  static double heapBytes(Map const& m) { return static_cast<double>(m.memoryBytes()); }
};

struct StdUnorderedMap {
  static constexpr char const* name = "std_unordered_map";
  using Map = std::unordered_map<Key, Value>;
  static void insert(Map& m, Key k, Value v) { m.try_emplace(k, v); }
  static Value const* find(Map const& m, Key k) {
    auto it = m.find(k);
    return it == m.end() ? nullptr : &it->second;
  }
  static bool erase(Map& m, Key k) { return m.erase(k) != 0; }
  static Value walk(Map const& m) {
    Value sum = 0;
    for (auto const& [k, v] : m) sum += v;
    return sum;
  }
  // Nodes and buckets of an identical map built through a counting allocator.
  static double heapBytes(Map const& m) {
    using Counted = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                       CountingAllocator<std::pair<Key const, Value>>>;
    std::size_t before = countedBytes;
    Counted c;
    for (auto const& [k, v] : m) c.try_emplace(k, v);
    return static_cast<double>(countedBytes - before);
  }
};

struct AbslFlatHashMap {
  static constexpr char const* name = "absl_flat_hash_map";
  using Map = absl::flat_hash_map<Key, Value>;
  static void insert(Map& m, Key k, Value v) { m.try_emplace(k, v); }
  static Value const* find(Map const& m, Key k) {
    auto it = m.find(k);
    return it == m.end() ? nullptr : &it->second;
  }
  static bool erase(Map& m, Key k) { return m.erase(k) != 0; }
  static Value walk(Map const& m) {
    Value sum = 0;
    for (auto const& [k, v] : m) sum += v;
    return sum;
  }
  // A slot per capacity and one control byte.
  static double heapBytes(Map const& m) {
    return static_cast<double>(m.capacity() * (sizeof(typename Map::value_type) + 1));
  }
};

template <class M>
std::unique_ptr<typename M::Map> buildMap(KeySet const& ks) {
  auto m = std::make_unique<typename M::Map>();
  for (std::size_t i = 0; i < ks.inserted.size(); ++i) M::insert(*m, ks.inserted[i], i);
  return m;
}

// Lookups and walks leave the map as it was, so each map of each size is built once.
template <class M>
typename M::Map const& sharedMap(std::size_t n) {
  static std::map<std::size_t, std::unique_ptr<typename M::Map>> maps;
  auto& m = maps[n];
  if (!m) m = buildMap<M>(keySet(n));
  return *m;
}

// Measured once per map and size: the std::unordered_map figure builds a second map.
template <class M>
void reportBytes(benchmark::State& state, typename M::Map const& m) {
  static std::map<std::size_t, double> measured;
  auto [it, fresh] = measured.try_emplace(m.size());
  if (fresh) it->second = M::heapBytes(m) / static_cast<double>(m.size());
  double perEntry = it->second;
  state.counters["bytes_per_entry"] = perEntry;
  state.counters["bytes_per_entry_overhead"] = perEntry - kKeyValueBytes;
}

template <class M>
void mapInsert(benchmark::State& state, std::size_t n) {
  KeySet const& ks = keySet(n);
  auto m = std::make_unique<typename M::Map>();
  std::size_t i = 0;
  for (auto _ : state) {
    if (i == n) {
      state.PauseTiming();
      m = std::make_unique<typename M::Map>();
      i = 0;
      state.ResumeTiming();
    }
    M::insert(*m, ks.inserted[i], i);
    ++i;
  }
  if (m->size() != i) state.SkipWithError("an insert was lost");
  state.SetItemsProcessed(state.iterations());
}

template <class M>
void mapLookupHit(benchmark::State& state, std::size_t n) {
  KeySet const& ks = keySet(n);
  auto const& m = sharedMap<M>(n);
  std::size_t i = 0;
  std::size_t misses = 0;
  for (auto _ : state) {
    Value const* v = M::find(m, ks.probe[i]);
    if (v) {
      benchmark::DoNotOptimize(*v);
    } else {
      ++misses;
    }
    if (++i == n) i = 0;
  }
  if (misses) state.SkipWithError("a key present was not found");
  state.SetItemsProcessed(state.iterations());
  reportBytes<M>(state, m);
}

template <class M>
void mapLookupMiss(benchmark::State& state, std::size_t n) {
  KeySet const& ks = keySet(n);
  auto const& m = sharedMap<M>(n);
  std::size_t i = 0;
  std::size_t hits = 0;
  for (auto _ : state) {
    Value const* v = M::find(m, ks.missing[i]);
    benchmark::DoNotOptimize(v);
    hits += v != nullptr;
    if (++i == n) i = 0;
  }
  if (hits) state.SkipWithError("an absent key was found");
  state.SetItemsProcessed(state.iterations());
}

template <class M>
void mapErase(benchmark::State& state, std::size_t n) {
  KeySet const& ks = keySet(n);
  auto m = buildMap<M>(ks);
  std::size_t i = 0;
  std::size_t lost = 0;
  for (auto _ : state) {
    if (i == n) {
      state.PauseTiming();
      m = buildMap<M>(ks);
      i = 0;
      state.ResumeTiming();
    }
    lost += !M::erase(*m, ks.probe[i]);
    ++i;
  }
  if (lost || m->size() != n - i) state.SkipWithError("an erase missed its key");
  state.SetItemsProcessed(state.iterations());
}

template <class M>
void mapWalk(benchmark::State& state, std::size_t n) {
  auto const& m = sharedMap<M>(n);
  Value const expected = static_cast<Value>(n) * (n - 1) / 2;  // the values are 0..n-1
  for (auto _ : state) {
    Value sum = M::walk(m);
    benchmark::DoNotOptimize(sum);
    if (sum != expected) state.SkipWithError("the walk missed entries");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(n));
  reportBytes<M>(state, m);
}

struct Size {
  char const* label;
  std::size_t n;
  // Insert and erase run whole rounds of n; this many rounds.
  benchmark::IterationCount rounds;
};

template <class M>
void registerMapOp(std::string const& op, Size const& size) {
  std::string name = "HashMap/" + op + "/" + size.label + "/" + M::name;
  std::size_t n = size.n;
  if (op == "insert") {
    benchmark::RegisterBenchmark(name.c_str(), mapInsert<M>, n)
        ->Iterations(static_cast<benchmark::IterationCount>(n) * size.rounds);
  } else if (op == "lookupHit") {
    benchmark::RegisterBenchmark(name.c_str(), mapLookupHit<M>, n)->MinTime(0.2);
  } else if (op == "lookupMiss") {
    benchmark::RegisterBenchmark(name.c_str(), mapLookupMiss<M>, n)->MinTime(0.2);
  } else if (op == "erase") {
    benchmark::RegisterBenchmark(name.c_str(), mapErase<M>, n)
        ->Iterations(static_cast<benchmark::IterationCount>(n) * size.rounds);
  } else {
    benchmark::RegisterBenchmark(name.c_str(), mapWalk<M>, n)->MinTime(0.2)->Unit(benchmark::kMicrosecond);
  }
}

void registerAll() {
  benchmark::RegisterBenchmark("Notify/baseline_stdFunction", notifyBaselineStdFunction);
  benchmark::RegisterBenchmark("Notify/scalarNoSubscriber", notifyScalarNoSubscriber);
  benchmark::RegisterBenchmark("Notify/scalarToSubscriber", notifyScalarToSubscriber);
  benchmark::RegisterBenchmark("Notify/scalarToStateMachine", notifyScalarToStateMachine);

  // Side by side: each operation at each size for the three maps.
  Size const sizes[] = {{"1k", 1000, 2000}, {"1M", 1000000, 2}};
  for (char const* op : {"insert", "lookupHit", "lookupMiss", "erase", "walk"}) {
    for (Size const& size : sizes) {
      registerMapOp<VokHashMap>(op, size);
      registerMapOp<StdUnorderedMap>(op, size);
      registerMapOp<AbslFlatHashMap>(op, size);
    }
  }
}

}  // namespace RuntimeBench

int main(int argc, char** argv) {
  RuntimeBench::registerAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
