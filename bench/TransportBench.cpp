// The peer transport over loopback TCP: both switches' endpoints in this process, on one Asio
// loop, each behind its own TcpLink.
//
// Targets: the VLAN-to-VNI exchange of 4094 mappings from nothing across loopback (the pair
// connected, its inputs filled; then the state machines built and run until the peer has applied
// every mapping) in at most 20 ms. Also measured: changes carried one way per second, and the
// latency of one change end to end.
//
// Baselines in the same binary: the same bytes sent raw over a loopback socket of the same loop,
// in as many writes (RawBytesOneWay, RawOneChange).
#include <benchmark/benchmark.h>

#include <asio.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Endpoint.h"
#include "TcpLink.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/VlanToVniMapSm.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/Clock.h"

namespace {

using MlagVxlan::Transport::Endpoint;
using MlagVxlan::Transport::TcpLink;
using MlagVxlan::Transport::TcpOptions;

constexpr std::uint16_t vlanCount = 4094;
constexpr int changesPerBatch = vlanCount;  // each a real change: one key each

BenchSupport::TempDir benchDir(true);
Lanx::IntfId const vxlan1("Vxlan1");

// Runs handlers until `done`; a loop that ran out of work is made to run again.
template <class Done>
void runUntil(asio::io_context& io, Done done) {
  while (!done()) {
    if (io.stopped()) io.restart();
    io.run_one();
  }
}

// Two switches joined over loopback: A primary publishes Vxlan1's map, B secondary applies it.
struct Loopback {
  Vok::ManualLoop loop;
  MlagVxlan::SmContainer::Ptr container = MlagVxlan::smContainerFactory("bench");  // makes the ring handle
  Brix::Ptr<Vxlan::VtiStatusDir> dirA = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<Vxlan::VtiStatusDir> dirB = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<Mlag::VxlanStatus> sentA = Brix::newNode<Mlag::VxlanStatus>(), recvA = Brix::newNode<Mlag::VxlanStatus>(),
                               localA = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> sentB = Brix::newNode<Mlag::VxlanStatus>(), recvB = Brix::newNode<Mlag::VxlanStatus>(),
                               localB = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::Status> statusA = Brix::newNode<Mlag::Status>(), statusB = Brix::newNode<Mlag::Status>();
  Endpoint epA{"A", 1, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>()};
  Endpoint epB{"B", 1, Brix::newNode<Mlag::Status>(), Brix::newNode<Mlag::ProtoStatus>()};
  asio::io_context io;
  std::unique_ptr<TcpLink> server;
  std::unique_ptr<TcpLink> client;
  MlagVxlan::VlanToVniMapSm::Ptr smA;
  MlagVxlan::VlanToVniMapSm::Ptr smB;

  explicit Loopback(bool mapped) {
    statusA->mlagStateIs(Mlag::MlagState::primary);
    statusB->mlagStateIs(Mlag::MlagState::secondary);
    auto vti = dirA->vtiStatusIs(vxlan1);
    dirB->vtiStatusIs(vxlan1);
    if (mapped) {
      for (std::uint16_t vlan = 1; vlan <= vlanCount; ++vlan) {
        vti->extendedVlanToVniMapIs(
            Bridging::ExtendedVlanId(vlan),
            Vxlan::VniSourcePair(vxlan1, Brix::String("static"), Vxlan::VniExtOrNone(10000u + vlan)));
      }
    }
    epA.channelIs(0, Brix::Ptr<Mlag::VxlanStatus const>(sentA), recvA);
    epB.channelIs(0, Brix::Ptr<Mlag::VxlanStatus const>(sentB), recvB);
    TcpOptions listen;
    listen.listen = true;
    server = std::make_unique<TcpLink>(io, epA, listen);
    server->start();
    TcpOptions connect;
    connect.port = server->port();
    client = std::make_unique<TcpLink>(io, epB, connect);
    client->start();
    runUntil(io, [&] { return epA.linkUp() && epB.linkUp(); });
  }
  void start() {
    smA = MlagVxlan::vlanToVniMapSmFactory(dirA, sentA, recvA, localA, statusA);
    smB = MlagVxlan::vlanToVniMapSmFactory(dirB, sentB, recvB, localB, statusB);
  }
};

void Exchange4094OverLoopback(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto pair = std::make_unique<Loopback>(true);
    state.ResumeTiming();
    pair->start();
    runUntil(pair->io, [&] { return pair->localB->vniVtiToDynVlanMapCount() == vlanCount; });
    state.PauseTiming();
    pair.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * vlanCount);
}
BENCHMARK(Exchange4094OverLoopback)->Unit(benchmark::kMillisecond);

// A batch of changes written at once, then carried until the peer holds the last of them.
void ChangesOneWay(benchmark::State& state) {
  Loopback pair(false);
  bool on = false;
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    on = !on;
    auto const before = pair.server->stats().bytesSent;
    for (int i = 0; i < changesPerBatch; ++i) {
      pair.sentA->sharedDynVlanIs(Bridging::VlanId(static_cast<std::uint16_t>(1 + i % vlanCount)), on);
    }
    Bridging::VlanId const last(static_cast<std::uint16_t>(1 + (changesPerBatch - 1) % vlanCount));
    runUntil(pair.io, [&] { return pair.recvB->sharedDynVlan(last) == on; });
    bytes += pair.server->stats().bytesSent - before;
  }
  state.SetItemsProcessed(state.iterations() * changesPerBatch);
  state.counters["bytes_per_change"] =
      static_cast<double>(bytes) / static_cast<double>(state.iterations() * changesPerBatch);
}
BENCHMARK(ChangesOneWay)->Unit(benchmark::kMicrosecond);

// One change, from the write in A's entity to B's received entity.
void OneChangeEndToEnd(benchmark::State& state) {
  Loopback pair(false);
  bool on = false;
  for (auto _ : state) {
    on = !on;
    pair.sentA->sharedDynVlanIs(Bridging::VlanId(7), on);
    runUntil(pair.io, [&] { return pair.recvB->sharedDynVlan(Bridging::VlanId(7)) == on; });
  }
}
BENCHMARK(OneChangeEndToEnd)->Unit(benchmark::kMicrosecond);

// Two connected loopback sockets on one loop, for the raw baselines.
struct RawPair {
  asio::io_context io;
  asio::ip::tcp::socket tx{io};
  asio::ip::tcp::socket rx{io};
  RawPair() {
    asio::ip::tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
    tx.connect(acceptor.local_endpoint());
    acceptor.accept(rx);
    tx.set_option(asio::ip::tcp::no_delay(true));
    rx.set_option(asio::ip::tcp::no_delay(true));
  }
  // Sends `out` in one write and reads it all on the other end.
  void carry(std::vector<char> const& out, std::vector<char>& in) {
    bool done = false;
    asio::async_write(tx, asio::buffer(out), [](asio::error_code, std::size_t) {});
    asio::async_read(rx, asio::buffer(in), [&](asio::error_code, std::size_t) { done = true; });
    runUntil(io, [&] { return done; });
  }
};

// The bytes a batch of ChangesOneWay takes on the wire, raw: 11 bytes a change, as ChangesOneWay's
// bytes_per_change counter gives it.
void RawBytesOneWay(benchmark::State& state) {
  RawPair raw;
  std::vector<char> out(static_cast<std::size_t>(state.range(0)) * changesPerBatch, 'x');
  std::vector<char> in(out.size());
  for (auto _ : state) raw.carry(out, in);
  state.SetItemsProcessed(state.iterations() * changesPerBatch);
}
BENCHMARK(RawBytesOneWay)->Arg(11)->Unit(benchmark::kMicrosecond);

// One change's frame, raw: the frame header and the change.
void RawOneChange(benchmark::State& state) {
  RawPair raw;
  std::vector<char> out(static_cast<std::size_t>(state.range(0)), 'x');
  std::vector<char> in(out.size());
  for (auto _ : state) raw.carry(out, in);
}
BENCHMARK(RawOneChange)->Arg(17)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
