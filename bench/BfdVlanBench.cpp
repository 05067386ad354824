// BFD state and shared dynamic VLANs between the roles, with the ring trace on and the text
// trace off.
//
// Targets: a secondary's first run over 4094 configured VLANs, by either input of the VLAN
// configuration, in at most 10 ms; 512 VTEP BFD peers' state published by the primary and
// applied by the secondary in at most 5 ms; each within 1.5x of its mandated work. Both run at
// half and full size, to show how they scale.
//
// Baselines in the same binary:
//   FirstRunMandatedWork: what the first run must do for the same input, in absl::flat_hash_map:
//   the range walk over the 4094 shared VLANs, per configured VLAN the read of its source (and,
//   for the flat table, the write of the last source seen, for the entities the child's object and
//   its place among its entity's subscribers), the
//   two deletions from the shared sets, and the same ring records (flat: the read, the decision
//   at levels 6 and 8; entities: the child's entry and return besides the decision), each with
//   its time from the same time source, appended to a plain buffer.
//   BfdMandatedWork: per peer the input's write through its held entry, the primary's write of the published state and
//   the secondary's copy, each found by key, and the same ring records (the primary's entry, state
//   and return, the secondary's entry and state).
//   FirstRun / FirstRunMandatedWork and BfdEndToEnd / BfdMandatedWork are the cost of the
//   runtime, the entities and the dispatch.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "BenchSupport.h"
#include "Vxlan/PrimarySm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/SmContainer.h"
#include "runtime/Clock.h"

namespace {

BenchSupport::TempDir benchDir(true);

struct Setting {
  Vok::ManualLoop loop{1000.0};
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("bench");  // makes the ring handle
};

using Record = BenchSupport::PlainRecord<std::array<std::byte, 32>>;

struct Ring {
  std::vector<Record> records;
  std::uint64_t seq = 0;
  template <class V>
  void put(int msgId, V const& v) {
    Record& r = records.emplace_back(Record{msgId, ++seq, RingLog::recordStamp(), {}});
    static_assert(sizeof(V) <= sizeof(r.values));
    std::memcpy(r.values.data(), &v, sizeof(V));
  }
};

char const* const source = "cli";  // not shareable: every configured VLAN leaves both sets

// ---- the secondary's first run ----

void FirstRun(benchmark::State& state) {
  auto const vlans = static_cast<int>(state.range(0));
  bool const flat = state.range(1) != 0;
  Setting s;
  MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(flat);
  auto sent = Brix::newNode<Mlag::VxlanStatus>(), recv = Brix::newNode<Mlag::VxlanStatus>(),
       local = Brix::newNode<Mlag::VxlanStatus>();
  auto config = Brix::newNode<Bridging::Config>();
  auto flatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
  auto mlagStatus = Brix::newNode<Mlag::Status>();
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  for (int v = 1; v <= vlans; ++v) {
    Bridging::VlanId id(static_cast<std::uint16_t>(v));
    if (flat) {
      flatDir->vlanConfigIs(id, Bridging::Flat::VlanConfigFlat(id, Swix::FString(source)));
    } else {
      config->vlanConfigIs(id)->configSourceIs(Brix::String(source));
    }
  }
  for (std::uint16_t v = 1; v <= 4094; ++v) sent->sharedDynVlanIs(Bridging::VlanId(v), true);
  for (auto _ : state) {
    auto sm = MlagVxlan::secondarySmFactory(sent, recv, local, config, flatDir, nullptr, nullptr, mlagStatus);
    state.PauseTiming();
    if (sent->sharedDynVlanCount() != std::size_t(4094 - vlans)) state.SkipWithError("first run incomplete");
    sm = nullptr;  // its cleanup fills both sets again for the next round
    state.ResumeTiming();
  }
  MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(std::nullopt);
  state.SetItemsProcessed(state.iterations() * vlans);
}
BENCHMARK(FirstRun)->ArgsProduct({{2047, 4094}, {0, 1}})->ArgNames({"vlans", "flat"})->Unit(benchmark::kMillisecond);

void FirstRunMandatedWork(benchmark::State& state) {
  auto const vlans = static_cast<int>(state.range(0));
  bool const flat = state.range(1) != 0;
  Setting s;
  absl::flat_hash_map<std::uint16_t, Swix::FString> input;
  for (int v = 1; v <= vlans; ++v) input[static_cast<std::uint16_t>(v)] = Swix::FString(source);
  absl::flat_hash_map<std::uint16_t, bool> full;
  for (std::uint16_t v = 1; v <= 4094; ++v) full[v] = true;
  absl::flat_hash_map<std::uint16_t, bool> sent = full, local = full;
  absl::flat_hash_map<std::uint16_t, Swix::FString> lastSource;
  // A child per VLAN is mandated for the entities: its object, and its place among the
  // subscribers of its VLAN's entity.
  struct Child {
    Swix::FString const* source;
    bool initialized;
  };
  absl::flat_hash_map<std::uint16_t, std::unique_ptr<Child>> children;
  absl::flat_hash_map<std::uint16_t, std::vector<Child*>> subscribers;
  for (auto const& [vlan, src] : input) subscribers[vlan].reserve(1);
  Ring ring;
  ring.records.reserve(std::size_t(vlans) * 4);
  for (auto _ : state) {
    ring.records.clear();
    std::size_t outside = 0;
    for (auto const& [vlan, on] : sent) outside += vlan < 1 || vlan > 4094;  // the range test
    benchmark::DoNotOptimize(outside);
    for (auto const& [vlan, configured] : input) {
      auto const found = input.find(vlan);
      if (flat) {
        ring.put(1, vlan);
        lastSource[vlan] = found->second;
      } else {
        auto& child = children[vlan] = std::make_unique<Child>(Child{&found->second, true});
        subscribers[vlan].push_back(child.get());
        ring.put(1, vlan);
      }
      bool const shareable = found->second.view() == "default";
      ring.put(2, vlan);
      ring.put(3, vlan);
      if (!shareable) {
        sent.erase(vlan);
        local.erase(vlan);
      }
      if (!flat) ring.put(4, vlan);
    }
    if (sent.size() != std::size_t(4094 - vlans)) state.SkipWithError("baseline incomplete");
    benchmark::DoNotOptimize(ring.records.data());
    state.PauseTiming();
    sent = full;
    local = full;
    lastSource.clear();
    children.clear();
    for (auto& [vlan, subs] : subscribers) subs.clear();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlans);
}
BENCHMARK(FirstRunMandatedWork)
    ->ArgsProduct({{2047, 4094}, {0, 1}})
    ->ArgNames({"vlans", "flat"})
    ->Unit(benchmark::kMillisecond);

// ---- BFD state end to end ----

Bfd::Peer peerOf(int i) {
  return Bfd::Peer(
      Brix::String("default"), ::Vxlan1, 1, Bfd::Peer::typeVxlanTunnel,
      Lanx::IpGenAddr(Lanx::IpAddr(10, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i))),
      Lanx::IpGenAddr(Lanx::IpAddr(10, 0, 0, 1)));
}

// Every peer's state flips, and reaches the secondary's output: the primary's sentVxStatus is
// the secondary's recvVxStatus, a transport without delay.
void BfdEndToEnd(benchmark::State& state) {
  auto const peers = static_cast<int>(state.range(0));
  Setting s;
  auto sent = Brix::newNode<Mlag::VxlanStatus>(), recv = Brix::newNode<Mlag::VxlanStatus>(),
       local = Brix::newNode<Mlag::VxlanStatus>(), peerSent = Brix::newNode<Mlag::VxlanStatus>(),
       peerLocal = Brix::newNode<Mlag::VxlanStatus>();
  auto bfd = Brix::newNode<Bfd::StatusPeer>();
  auto mlagStatus = Brix::newNode<Mlag::Status>();
  mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  std::vector<Brix::Ptr<Bfd::PeerStatus>> entries;
  entries.reserve(std::size_t(peers));
  for (int i = 0; i < peers; ++i) entries.push_back(bfd->peerStatusIs(peerOf(i)));
  auto primary = MlagVxlan::primarySmFactory(sent, recv, local, nullptr, nullptr, nullptr, bfd, mlagStatus);
  auto peerStatus = Brix::newNode<Mlag::Status>();
  peerStatus->mlagStateIs(Mlag::MlagState::secondary);
  auto secondary = MlagVxlan::secondarySmFactory(peerSent, sent, peerLocal, Brix::newNode<Bridging::Config>(), nullptr,
                                                 nullptr, nullptr, peerStatus);
  bool up = false;
  for (auto _ : state) {
    up = !up;
    for (auto const& e : entries) e->operStateIs(up ? Bfd::OperState::up : Bfd::OperState::down);
  }
  auto const last = peerLocal->allVxlanBfdPeerStatus(Mlag::VtiVtep(::Vxlan1, peerOf(peers - 1).ip()));
  if (!last || (last->operState() == Bfd::OperState::up) != up) state.SkipWithError("the state did not arrive");
  state.SetItemsProcessed(state.iterations() * peers);
}
BENCHMARK(BfdEndToEnd)->Arg(256)->Arg(512)->Unit(benchmark::kMicrosecond);

void BfdMandatedWork(benchmark::State& state) {
  auto const peers = static_cast<int>(state.range(0));
  Setting s;
  absl::flat_hash_map<Bfd::Peer, Bfd::OperState> input;
  absl::flat_hash_map<Mlag::VtiVtep, Bfd::OperState> published, applied;
  std::vector<Bfd::Peer> order;
  std::vector<Bfd::OperState*> held;  // the input's entries, held as the BFD agent holds its own
  order.reserve(std::size_t(peers));
  held.reserve(std::size_t(peers));
  for (int i = 0; i < peers; ++i) {
    order.push_back(peerOf(i));
    input[order.back()] = Bfd::OperState::down;
    published[Mlag::VtiVtep(::Vxlan1, order.back().ip())] = Bfd::OperState::down;
    applied[Mlag::VtiVtep(::Vxlan1, order.back().ip())] = Bfd::OperState::down;
  }
  for (auto const& p : order) held.push_back(&input[p]);
  Ring ring;
  ring.records.reserve(std::size_t(peers) * 5);
  bool up = false;
  for (auto _ : state) {
    up = !up;
    ring.records.clear();
    auto const st = up ? Bfd::OperState::up : Bfd::OperState::down;
    for (std::size_t i = 0; i < order.size(); ++i) {
      auto const& p = order[i];
      *held[i] = st;
      Mlag::VtiVtep const key(p.intf(), p.ip());
      ring.put(1, key);
      ring.put(2, key);
      published[key] = *held[i];
      ring.put(3, key);
      ring.put(4, key);
      ring.put(5, key);
      applied[key] = published.find(key)->second;
    }
    benchmark::DoNotOptimize(ring.records.data());
  }
  if ((applied.begin()->second == Bfd::OperState::up) != up) state.SkipWithError("baseline incomplete");
  state.SetItemsProcessed(state.iterations() * peers);
}
BENCHMARK(BfdMandatedWork)->Arg(256)->Arg(512)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
