// A role change on one switch of a pair at scale: Vxlan1 maps 4094 VLANs to VNIs on both
// switches, and both hold full sharedDynVlan sets. Target: at most 10 ms per change, from the
// old role's ...Del and drop to the end of the new role's first run.
//
// Own change, measured apart in each direction:
//   PrimaryToSecondary: the primary's cleanup, its publishers withdrawing 2 x 4094 entries from
//   sentVxStatus, then the secondary's first run (the shared VLAN count test and range walk, the
//   exchange child with its applier).
//   SecondaryToPrimary: the secondary's cleanup, its applier withdrawing the 4094 dynamic VLANs
//   from localVxStatus, then the primary's first run publishing 2 x 4094 entries.
// Peer's reaction: the new sentVxStatus carried into the peer's recvVxStatus by difference, with
// the peer's state machines reacting: as secondary it applies (or withdraws) 4094 dynamic VLANs;
// as primary it only receives.
// Baselines: the same carry into a status object nobody watches (the transport's share of the
// reaction), and the mandated work of each change: its map work done with absl::flat_hash_map and
// its ring records appended to a plain buffer. The peer's reaction is measured against the carry
// plus the mandated work of the reaction itself (the applier's writes and its records).
//
// One iteration is one change; the way back is untimed.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "BenchSupport.h"
#include "Vxlan/SmContainer.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/Attributes.h"

namespace RoleBench {

using Status = Mlag::VxlanStatus;

constexpr std::uint16_t vlanCount = 4094;
constexpr std::uint32_t vniBase = 10000;

// The library's ring file goes to a private directory, removed at exit.
BenchSupport::TempDir benchDir(true);

// Makes `dst` equal to `src` in every scalar and keyed value collection, by difference and
// through the attributes' own mutators, so that `dst` publishes what a transport's writes would.
// Member entities (ARP tables, VXLAN BFD) are empty in this benchmark and left out.
void carry(Status const& src, Status& dst) {
  dst.vokForEachAttribute([&](std::string_view, Brix::FieldId field, auto& to) {
    using A = std::decay_t<decltype(to)>;
    src.vokVisitField(field, [&](std::string_view, Brix::FieldId, auto const& from) {
      if constexpr (std::is_same_v<A, std::decay_t<decltype(from)>>) {
        if constexpr (Vok::Attr::ScalarAttr<A>) {
          to.set(dst, field, from.get());
        } else if constexpr (Vok::Attr::ValuesAttr<A>) {
          for (auto it = to.map().begin(); !it.done(); it.advance()) {
            auto key = it.currNodeMaybeStale().key;
            if (!from.has(key)) to.del(dst, field, key);
          }
          for (auto it = from.map().begin(); !it.done(); it.advance()) {
            auto const& n = it.currNodeNonStale();
            if constexpr (requires { to.set(dst, field, n.key, n.value); }) {
              to.set(dst, field, n.key, n.value);
            } else {
              to.set(dst, field, n.value);  // a record with its key inside
            }
          }
        }
      }
    });
  });
}

// One switch: its inputs, its three status objects and its container.
struct Switch {
  Brix::Ptr<Status> sent = Brix::newNode<Status>();
  Brix::Ptr<Status> recv = Brix::newNode<Status>();
  Brix::Ptr<Status> local = Brix::newNode<Status>();
  Brix::Ptr<Vxlan::VtiStatusDir> vtiDir = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<VxlanController::VtepStatusDirV2> vtepDir = Brix::newNode<VxlanController::VtepStatusDirV2>();
  Brix::Ptr<Arp::InputConfig> arpInput = Brix::newNode<Arp::InputConfig>();
  Brix::Ptr<Bfd::StatusPeer> bfdPeer = Brix::newNode<Bfd::StatusPeer>();
  Brix::Ptr<Mlag::Status> mlagStatus = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Bridging::Config> bridgingConfig = Brix::newNode<Bridging::Config>();
  Brix::Ptr<Bridging::Flat::VlanConfigDir> flatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("vxlan");

  explicit Switch(std::uint8_t id) {
    auto vxlan1 = vtiDir->vtiStatusIs(::Vxlan1);
    vxlan1->localVtepAddrIs(Lanx::IpAddr(10, 0, 0, id));
    Brix::String source(Vxlan::stringValue(Vxlan::VniSource::controllerSource));
    for (std::uint16_t v = 1; v <= vlanCount; ++v) {
      vxlan1->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(v),
                                     Vxlan::VniSourcePair(::Vxlan1, source, Vxlan::VniExtOrNone(vniBase + v)));
      sent->sharedDynVlanIs(Bridging::VlanId(v), true);
      local->sharedDynVlanIs(Bridging::VlanId(v), true);
    }
    bridgingConfig->vlanRangeBound1Is(1);
    bridgingConfig->vlanRangeBound2Is(vlanCount);
  }

  // The plug-in's order: the old role's Del, its result dropped, then the new role's Is.
  void becomePrimary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::primary);
    (void)container->secondarySmDel();
    (void)container->primarySmIs(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  }
  void becomeSecondary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
    (void)container->primarySmDel();
    (void)container->secondarySmIs(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);
  }
};

// A pair in steady state: `a` primary, `b` secondary, each side's sentVxStatus carried over.
struct Pair {
  Switch a{1};
  Switch b{2};
  Pair() {
    a.becomePrimary();
    b.becomeSecondary();
    exchange();
  }
  void exchange() {
    carry(*a.sent, *b.recv);
    carry(*b.sent, *a.recv);
  }
  // `b` primary and `a` secondary, each side's sentVxStatus carried over.
  void swapRoles() {
    a.becomeSecondary();
    b.becomePrimary();
    exchange();
  }
};

using BenchSupport::RecordCount;

// What the primary publishes, and whether the statements went to a ring file as in an agent.
void report(benchmark::State& state, Status const& primarySent) {
  state.counters["published"] =
      static_cast<double>(primarySent.vniToDynVlanMapCount() + primarySent.vniVtiToDynVlanMapCount());
  RingLog::TraceHandle const* ring = MlagVxlan::vxlanRlHandle();
  state.counters["ring"] = ring && ring->file() ? 1 : 0;
}

// ---- the switch's own change ----------------------------------------------------------------

void BM_RoleChange_PrimaryToSecondary(benchmark::State& state) {
  Pair pair;
  RecordCount records;
  for (auto _ : state) {
    records.resume();
    pair.a.becomeSecondary();
    records.pause();
    state.PauseTiming();
    if (pair.a.sent->vniToDynVlanMapCount() != 0) state.SkipWithError("the maps were not withdrawn");
    pair.a.becomePrimary();
    state.ResumeTiming();
  }
  report(state, *pair.a.sent);
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoleChange_PrimaryToSecondary)->Unit(benchmark::kMillisecond);

void BM_RoleChange_SecondaryToPrimary(benchmark::State& state) {
  // `b` is the primary here, so `a` as secondary applies 4094 dynamic VLANs before each change.
  Pair pair;
  pair.swapRoles();
  if (pair.a.local->vniVtiToDynVlanMapCount() != vlanCount) state.SkipWithError("the secondary applied nothing");
  RecordCount records;
  for (auto _ : state) {
    records.resume();
    pair.a.becomePrimary();
    records.pause();
    state.PauseTiming();
    if (pair.a.sent->vniVtiToDynVlanMapCount() != vlanCount) state.SkipWithError("the primary published nothing");
    pair.a.becomeSecondary();
    state.ResumeTiming();
  }
  report(state, *pair.b.sent);
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoleChange_SecondaryToPrimary)->Unit(benchmark::kMillisecond);

// ---- the peer's reaction ----------------------------------------------------------------------

// What `a` publishes in each role, kept to be carried to the peer.
struct Publications {
  Brix::Ptr<Status> asPrimary = Brix::newNode<Status>();
  Brix::Ptr<Status> asSecondary = Brix::newNode<Status>();
  explicit Publications(Switch& a) {
    a.becomePrimary();
    carry(*a.sent, *asPrimary);
    a.becomeSecondary();
    carry(*a.sent, *asSecondary);
  }
};

// `a` has become primary; the peer, secondary, receives its publication and applies it.
void BM_PeerReaction_ToNewPrimary(benchmark::State& state) {
  Pair pair;
  Publications pub(pair.a);
  carry(*pub.asSecondary, *pair.b.recv);
  RecordCount records;
  for (auto _ : state) {
    records.resume();
    carry(*pub.asPrimary, *pair.b.recv);
    records.pause();
    state.PauseTiming();
    if (pair.b.local->vniVtiToDynVlanMapCount() != vlanCount) state.SkipWithError("the peer applied nothing");
    carry(*pub.asSecondary, *pair.b.recv);
    state.ResumeTiming();
  }
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PeerReaction_ToNewPrimary)->Unit(benchmark::kMillisecond);

// `a` has become secondary; the peer, now primary, receives the withdrawal of the maps.
void BM_PeerReaction_ToNewSecondary(benchmark::State& state) {
  Pair pair;
  Publications pub(pair.a);
  pair.b.becomePrimary();
  carry(*pub.asPrimary, *pair.b.recv);
  RecordCount records;
  for (auto _ : state) {
    records.resume();
    carry(*pub.asSecondary, *pair.b.recv);
    records.pause();
    state.PauseTiming();
    carry(*pub.asPrimary, *pair.b.recv);
    state.ResumeTiming();
  }
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PeerReaction_ToNewSecondary)->Unit(benchmark::kMillisecond);

// The same carries into a status object that nobody watches: the transport alone.
void carryUnwatched(benchmark::State& state, bool publish) {
  Pair pair;
  Publications pub(pair.a);
  Status const& to = publish ? *pub.asPrimary : *pub.asSecondary;
  Status const& back = publish ? *pub.asSecondary : *pub.asPrimary;
  auto unwatched = Brix::newNode<Status>();
  carry(back, *unwatched);
  for (auto _ : state) {
    carry(to, *unwatched);
    state.PauseTiming();
    carry(back, *unwatched);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations());
}
void BM_Baseline_CarryUnwatched_ToNewPrimary(benchmark::State& state) { carryUnwatched(state, true); }
void BM_Baseline_CarryUnwatched_ToNewSecondary(benchmark::State& state) { carryUnwatched(state, false); }
BENCHMARK(BM_Baseline_CarryUnwatched_ToNewPrimary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Baseline_CarryUnwatched_ToNewSecondary)->Unit(benchmark::kMillisecond);

// ---- the map work of a change, in absl::flat_hash_map --------------------------------------

struct BareMaps {
  absl::flat_hash_map<std::uint32_t, std::uint16_t> vniToVlan;
  absl::flat_hash_map<std::uint64_t, std::uint16_t> vniVtiToVlan;
  absl::flat_hash_map<std::uint16_t, bool> sharedSent, sharedLocal;
  // The applier's dynamic VLANs are keyed by VNI and VTI only; the publisher writes both maps.
  bool vniKeyed = true;
  void publish() {
    for (std::uint16_t v = 1; v <= vlanCount; ++v) {
      if (vniKeyed) vniToVlan[vniBase + v] = v;
      vniVtiToVlan[std::uint64_t{vniBase + v} << 32 | 1] = v;
    }
  }
  // Key by key, as a withdrawal must be: each entry's going is a write the peer is told of.
  void withdraw() {
    for (std::uint16_t v = 1; v <= vlanCount; ++v) {
      if (vniKeyed) vniToVlan.erase(vniBase + v);
      vniVtiToVlan.erase(std::uint64_t{vniBase + v} << 32 | 1);
    }
  }
  void cleanup() {
    for (std::uint16_t v = 1; v <= vlanCount; ++v) sharedLocal[v] = true;
    for (std::uint16_t v = 1; v <= vlanCount; ++v) sharedSent[v] = true;
  }
};

// The ring records a change writes, as its figure counts them (records_per_change): counted by
// making the change once on a pair of its own, so that a baseline follows the library's
// statements.
std::size_t recordsOf(auto&& change) { return static_cast<std::size_t>(BenchSupport::recordsWrittenBy(change)); }
std::size_t recordsPrimaryToSecondary() {
  Pair pair;
  return recordsOf([&] { pair.a.becomeSecondary(); });
}
std::size_t recordsSecondaryToPrimary() {
  Pair pair;
  pair.swapRoles();
  return recordsOf([&] { pair.a.becomePrimary(); });
}
std::size_t recordsPeerReactionToNewPrimary() {
  Pair pair;
  Publications pub(pair.a);
  carry(*pub.asSecondary, *pair.b.recv);
  return recordsOf([&] { carry(*pub.asPrimary, *pair.b.recv); });
}

// A change's records appended as fixed-size records to a plain buffer.
class PlainRecords {
 public:
  explicit PlainRecords(std::size_t perChange) : ring_(perChange) {}
  void append() {
    for (std::size_t i = 0; i < ring_.size(); ++i)
      ring_[i] = Record{static_cast<int>(i), ++seq_, RingLog::recordStamp(), {1, 2}};
    benchmark::DoNotOptimize(ring_.data());
  }
  // Shown beside the figure's own count.
  void report(benchmark::State& state) const {
    state.counters["records_per_change"] = static_cast<double>(ring_.size());
  }

 private:
  using Record = BenchSupport::PlainRecord<std::array<std::uint32_t, 2>>;
  std::vector<Record> ring_;
  std::uint64_t seq_ = 0;
};

// The primary's teardown (cleanup, maps withdrawn) and the secondary's walk of the shared set.
void BM_Baseline_PrimaryToSecondary_UnorderedMap(benchmark::State& state) {
  BareMaps m;
  PlainRecords records(recordsPrimaryToSecondary());
  m.cleanup();
  m.publish();
  for (auto _ : state) {
    records.append();
    m.cleanup();
    m.withdraw();
    std::size_t outside = 0;
    for (auto const& [vlan, shared] : m.sharedSent) outside += vlan < 1 || vlan > vlanCount;
    benchmark::DoNotOptimize(outside);
    state.PauseTiming();
    m.publish();
    state.ResumeTiming();
  }
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_PrimaryToSecondary_UnorderedMap)->Unit(benchmark::kMillisecond);

// The secondary's teardown (cleanup, dynamic VLANs withdrawn) and the primary's first run: its
// walks of the local and the received shared set (each VLAN read in the received set and written
// in the local one), and its publication with the publisher's shadow of what it published.
void BM_Baseline_SecondaryToPrimary_UnorderedMap(benchmark::State& state) {
  BareMaps applied;
  applied.vniKeyed = false;
  BareMaps published;
  absl::flat_hash_map<std::uint16_t, std::uint32_t> shadow;
  absl::flat_hash_map<std::uint16_t, bool> received;  // the peer's shared set
  for (std::uint16_t v = 1; v <= vlanCount; ++v) received[v] = true;
  PlainRecords records(recordsSecondaryToPrimary());
  for (auto _ : state) {
    state.PauseTiming();
    applied.publish();
    published.withdraw();
    shadow = {};  // a new publisher's is empty
    state.ResumeTiming();
    records.append();
    applied.cleanup();
    applied.withdraw();
    for (int walk = 0; walk < 2; ++walk) {
      for (std::uint16_t v = 1; v <= vlanCount; ++v) applied.sharedLocal[v] = received.contains(v);
    }
    published.publish();
    for (std::uint16_t v = 1; v <= vlanCount; ++v) shadow[v] = vniBase + v;
    benchmark::DoNotOptimize(shadow);
  }
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_SecondaryToPrimary_UnorderedMap)->Unit(benchmark::kMillisecond);

// The peer, secondary, told of a new primary: the carry into a status object nobody watches
// (the transport's share, as the library does it), then what the reaction must do: for each
// received mapping, read it in both received maps and write the dynamic VLAN it gives, and
// append the reaction's records (records_per_change of the figure).
void BM_Baseline_PeerReaction_ToNewPrimary(benchmark::State& state) {
  Pair pair;
  Publications pub(pair.a);
  auto unwatched = Brix::newNode<Status>();
  carry(*pub.asSecondary, *unwatched);
  BareMaps received;
  received.publish();
  absl::flat_hash_map<std::uint64_t, std::uint16_t> applied;
  PlainRecords records(recordsPeerReactionToNewPrimary());
  for (auto _ : state) {
    carry(*pub.asPrimary, *unwatched);
    records.append();
    for (auto const& [key, vlan] : received.vniVtiToVlan) {
      auto const byVni = received.vniToVlan.find(static_cast<std::uint32_t>(key >> 32));
      applied[key] = byVni == received.vniToVlan.end() ? vlan : byVni->second;
    }
    benchmark::DoNotOptimize(applied);
    state.PauseTiming();
    carry(*pub.asSecondary, *unwatched);
    applied.clear();
    state.ResumeTiming();
  }
  records.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_PeerReaction_ToNewPrimary)->Unit(benchmark::kMillisecond);

}  // namespace RoleBench

BENCHMARK_MAIN();
