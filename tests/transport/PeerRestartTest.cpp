// Two switches over loopback TCP, each with its endpoint and TcpLink, fed the inputs of every
// step of the built-in scenario; at one step, switch B's agent is killed, A takes that step's
// inputs alone, and a new B reads its inputs anew and reconnects. Once things settle, A holds
// what it holds in a pair that never broke, and so does B while it is in the pair.
#include <gtest/gtest.h>

#include <array>
#include <asio.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "TcpLink.h"
#include "TraceSink.h"

namespace Sim {
namespace {

using namespace std::chrono_literals;
using MlagVxlan::Transport::TcpLink;
using MlagVxlan::Transport::TcpOptions;

// One agent: a switch, its endpoint and its connection.
struct Agent {
  Agent(std::string name, asio::io_context& io, TcpOptions const& options)
      : sw(std::make_unique<Switch>(std::move(name))), endpoint(switchEndpoint(*sw)) {
    link = std::make_unique<TcpLink>(io, *endpoint, options);
    link->logIs([](std::string const&) {});
    link->start();
  }
  ~Agent() {
    link.reset();  // before what it carries for
    endpoint.reset();
  }
  std::unique_ptr<Switch> sw;
  std::unique_ptr<MlagVxlan::Transport::Endpoint> endpoint;
  std::unique_ptr<TcpLink> link;
};

TcpOptions options(bool listen, std::uint16_t port) {
  TcpOptions o;
  o.listen = listen;
  o.port = port;
  o.backoffMin = 5ms;
  o.backoffMax = 20ms;
  return o;
}

// Runs sockets and timers until nothing has moved for a while.
void settle(asio::io_context& io, Vok::ManualLoop& loop) {
  int quiet = 0;
  while (quiet < 30) {
    if (io.stopped()) io.restart();
    std::size_t n = io.poll() + loop.runOnce();
    if (n == 0) {
      ++quiet;
      io.run_for(1ms);
    } else {
      quiet = 0;
    }
  }
}

void inputsRun(Switch& s, std::size_t side, Scenario const& sc, std::size_t step) {
  std::vector<std::string> refused;
  switchInputsRun(s, side, sc, step, refused);
}

// The run of the built-in scenario with B's agent killed at `killAt`: both switches' dumps.
std::array<Flat, 2> runKillingB(Scenario const& sc, std::size_t killAt) {
  Vok::ManualLoop loop;
  asio::io_context io;
  auto a = std::make_unique<Agent>("A", io, options(true, 0));
  std::uint16_t const port = a->link->port();
  auto b = std::make_unique<Agent>("B", io, options(false, port));
  for (std::size_t i = 0; i < sc.steps.size(); ++i) {
    if (i == killAt) {
      b.reset();
      settle(io, loop);
      EXPECT_FALSE(a->endpoint->linkUp());
      inputsRun(*a->sw, 0, sc, i);
      settle(io, loop);
      b = std::make_unique<Agent>("B", io, options(false, port));
      for (std::size_t j = 0; j <= i; ++j) inputsRun(*b->sw, 1, sc, j);
    } else {
      inputsRun(*a->sw, 0, sc, i);
      inputsRun(*b->sw, 1, sc, i);
    }
    settle(io, loop);
  }
  EXPECT_TRUE(a->endpoint->linkUp() && b->endpoint->linkUp());
  return {flattenSwitch(*a->sw), flattenSwitch(*b->sw)};
}

TEST(PeerRestartTest, ARestartedPeerResynchronisesToThePairThatNeverBroke) {
  Scenario sc = parseScenario(builtinScenarioText(), builtinScenarioName);
  std::size_t const steps = sc.steps.size();
  std::array<Flat, 2> expected;
  {
    Pair never;
    for (std::size_t i = 0; i < steps; ++i) {
      inputsRun(never.a, 0, sc, i);
      inputsRun(never.b, 1, sc, i);
      never.settle();
    }
    expected = {flattenSwitch(never.a), flattenSwitch(never.b)};
  }
  // Killed midway, in the pair: everything as if nothing broke.
  auto mid = runKillingB(sc, steps / 2);
  EXPECT_EQ(mid[0], expected[0]);
  EXPECT_EQ(mid[1], expected[1]);
  // Killed at the last step, as B leaves the pair: A's table of B loses, by difference, what the
  // new B no longer publishes. The new B itself never was in the pair, so it lacks what the old
  // one kept from that time, and is not compared.
  auto last = runKillingB(sc, steps - 1);
  EXPECT_EQ(last[0], expected[0]);
}

}  // namespace
}  // namespace Sim
