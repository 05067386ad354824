// Two endpoints over loopback TCP: the link comes up only after each side's whole state, goes
// down at once when the peer goes, comes back by itself, and survives what a broken or slow peer
// does to it.
#include <gtest/gtest.h>

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Endpoint.h"
#include "TcpLink.h"
#include "entities/Mlag/VxlanStatus.h"

namespace MlagVxlan::Transport {
namespace {

using namespace std::chrono_literals;

// One switch's end: what it sends and receives on channel 0.
struct Side {
  explicit Side(std::string name, std::uint64_t fingerprint = 7)
      : endpoint(std::move(name), fingerprint, status, proto) {
    endpoint.channelIs(0, Brix::Ptr<Mlag::VxlanStatus const>(sent), recv);
  }
  Brix::Ptr<Mlag::Status> status = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Mlag::ProtoStatus> proto = Brix::newNode<Mlag::ProtoStatus>();
  Brix::Ptr<Mlag::VxlanStatus> sent = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> recv = Brix::newNode<Mlag::VxlanStatus>();
  Endpoint endpoint;
  std::vector<std::string> log;

  bool shownUp() const { return (status->peerLinkDownFlag() & 1) == 0 && proto->peerMonotonicOffsetValid(); }
};

TcpOptions fast(bool listen, std::uint16_t port = 0) {
  TcpOptions o;
  o.listen = listen;
  o.port = port;
  o.heartbeat = 20ms;
  o.deadAfter = 200ms;
  o.backoffMin = 5ms;
  o.backoffMax = 40ms;
  return o;
}

bool runUntil(asio::io_context& io, std::function<bool()> const& done, std::chrono::milliseconds limit = 5s) {
  auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    io.run_for(2ms);
  }
  return true;
}

struct Pair {
  asio::io_context io;
  Side a{"A"};
  Side b{"B"};
  std::unique_ptr<TcpLink> server;
  std::unique_ptr<TcpLink> client;

  void start() {
    server = std::make_unique<TcpLink>(io, a.endpoint, fast(true));
    server->logIs([this](std::string const& l) { a.log.push_back(l); });
    server->start();
    client = std::make_unique<TcpLink>(io, b.endpoint, fast(false, server->port()));
    client->logIs([this](std::string const& l) { b.log.push_back(l); });
    client->start();
  }
  bool bothUp() {
    return runUntil(io, [&] { return a.endpoint.linkUp() && b.endpoint.linkUp(); });
  }
};

TEST(TcpLinkTest, ComesUpGoesDownWithThePeerAndComesBackByItself) {
  Pair p;
  for (std::uint16_t v = 1; v <= 100; ++v) p.a.sent->sharedDynVlanIs(Bridging::VlanId(v), true);
  p.start();
  ASSERT_TRUE(p.bothUp());
  EXPECT_TRUE(*p.b.recv == *p.a.sent);
  EXPECT_TRUE(p.a.shownUp());
  EXPECT_TRUE(p.b.shownUp());
  EXPECT_EQ(p.a.endpoint.peerName(), "B");

  // The listening side goes away: the other sees the link down at once, then keeps trying.
  auto port = p.server->port();
  p.server->stop();
  EXPECT_FALSE(p.a.shownUp());
  ASSERT_TRUE(runUntil(p.io, [&] { return !p.b.endpoint.linkUp(); }));
  EXPECT_FALSE(p.b.shownUp());
  EXPECT_EQ(p.b.status->peerLinkKnown(), 1);
  p.io.run_for(100ms);  // a few refused connects

  // Meanwhile A's table changes: the peer learns it by difference when the link is back.
  for (std::uint16_t v = 1; v <= 50; ++v) p.a.sent->sharedDynVlanDel(Bridging::VlanId(v));
  p.a.sent->sharedDynVlanIs(Bridging::VlanId(4000), true);
  p.server = std::make_unique<TcpLink>(p.io, p.a.endpoint, fast(true, port));
  p.server->start();
  ASSERT_TRUE(p.bothUp());
  EXPECT_TRUE(p.b.shownUp());
  EXPECT_TRUE(*p.b.recv == *p.a.sent);
  EXPECT_EQ(p.b.recv->sharedDynVlanCount(), 51u);
  EXPECT_GE(p.client->stats().connections, 2u);

  // Heartbeats keep an idle connection alive well past the silence limit.
  auto drops = p.client->stats().drops;
  p.io.run_for(500ms);
  EXPECT_TRUE(p.a.endpoint.linkUp() && p.b.endpoint.linkUp());
  EXPECT_EQ(p.client->stats().drops, drops);
}

TEST(TcpLinkTest, APeerOfOtherDeclarationsIsRefused) {
  asio::io_context io;
  Side a{"A", 1};
  Side b{"B", 2};
  TcpLink server(io, a.endpoint, fast(true));
  server.logIs([&](std::string const& l) { a.log.push_back(l); });
  server.start();
  TcpLink client(io, b.endpoint, fast(false, server.port()));
  client.logIs([&](std::string const& l) { b.log.push_back(l); });
  client.start();
  ASSERT_TRUE(runUntil(io, [&] { return !a.log.empty(); }));
  EXPECT_EQ(a.log.front(), "peer connection dropped: the peer 'B' was built from other entity declarations");
  EXPECT_FALSE(a.endpoint.linkUp() || b.endpoint.linkUp());
}

// A raw socket on the other end: whatever it sends that is not a frame drops the connection with
// one line, and the listening side takes the next connection as if nothing happened.
TEST(TcpLinkTest, BadBytesDropTheConnectionWithOneLine) {
  struct Case {
    std::vector<unsigned char> bytes;
    std::string line;
  };
  std::vector<Case> cases = {
      {{1, 0, 0, 0, 9, 1, 0}, "peer connection dropped: a frame of wire version 9, not 1"},
      {{0, 0, 0, 0, 1, 77}, "peer connection dropped: a frame of unknown kind 77"},
      {{0, 0, 0, 0xff, 1, 3}, "peer connection dropped: a frame of 4278190080 bytes is over the limit"},
      {{0, 0, 0, 0, 1, 3}, "peer connection dropped: the peer sent something before its hello"},
      {{3, 0, 0, 0, 1, 1, 1, 2, 3}, "peer connection dropped: a hello of 3 bytes is malformed"},
  };
  // After a proper hello: a change cut short, and a change whose VLAN is out of range.
  auto after = [](Bytes const& tail) {
    Bytes b;
    FrameWriter w(b);
    w.hello(7, "X");
    w.open(FrameKind::changes);
    w.body().insert(w.body().end(), tail.begin(), tail.end());
    w.close();
    return std::vector<unsigned char>(reinterpret_cast<unsigned char const*>(b.data()),
                                      reinterpret_cast<unsigned char const*>(b.data()) + b.size());
  };
  cases.push_back({after({std::byte{10}, std::byte{0}, std::byte{0}, std::byte{0}, std::byte{0}}),
                   "peer connection dropped: truncated: 10 bytes wanted at offset 4, 1 left"});
  Bytes vlanChange;  // sharedDynVlan[0xabc] set, its VLAN then made 0
  {
    auto src = Brix::newNode<Mlag::VxlanStatus>();
    Wire::Sender<Mlag::VxlanStatus> tx(src, 0, [&](std::span<std::byte const> c) {
      for (int i = 0; i < 4; ++i) vlanChange.push_back(static_cast<std::byte>((c.size() >> (8 * i)) & 0xff));
      vlanChange.insert(vlanChange.end(), c.begin(), c.end());
    });
    src->sharedDynVlanIs(Bridging::VlanId(0xabc), true);
    std::byte const vlanBytes[] = {std::byte{0xbc}, std::byte{0x0a}};
    auto at = std::search(vlanChange.begin(), vlanChange.end(), std::begin(vlanBytes), std::end(vlanBytes));
    ASSERT_NE(at, vlanChange.end());
    at[0] = at[1] = std::byte{0};
  }
  std::string vlanZero;
  try {
    (void)Bridging::VlanId(0);
  } catch (std::exception const& e) {
    vlanZero = e.what();
  }
  cases.push_back({after(vlanChange), "peer connection dropped: " + vlanZero});
  asio::io_context io;
  Side a{"A"};
  TcpLink server(io, a.endpoint, fast(true));
  server.logIs([&](std::string const& l) { a.log.push_back(l); });
  server.start();
  for (auto const& c : cases) {
    a.log.clear();
    asio::ip::tcp::socket raw(io);
    raw.connect({asio::ip::make_address("127.0.0.1"), server.port()});
    asio::write(raw, asio::buffer(c.bytes));
    ASSERT_TRUE(runUntil(io, [&] { return !a.log.empty(); })) << c.line;
    EXPECT_EQ(a.log, std::vector<std::string>{c.line});
  }
  EXPECT_EQ(a.recv->sharedDynVlanCount(), 0u);
  // The same listener still brings a proper peer up.
  Side b{"B"};
  TcpLink client(io, b.endpoint, fast(false, server.port()));
  client.start();
  EXPECT_TRUE(runUntil(io, [&] { return a.endpoint.linkUp() && b.endpoint.linkUp(); }));
}

// A peer that connects and never reads: what the writer queues stays bounded however much it
// writes, because queued changes give way to the whole state.
TEST(TcpLinkTest, ASlowReaderDoesNotGrowTheWritersQueue) {
  asio::io_context io;
  Side a{"A"};
  TcpOptions o = fast(true);
  o.deadAfter = 60s;  // the silent reader is slow, not gone
  o.writeLimit = 64 << 10;
  TcpLink server(io, a.endpoint, o);
  server.start();
  asio::ip::tcp::socket raw(io);
  raw.connect({asio::ip::make_address("127.0.0.1"), server.port()});
  raw.set_option(asio::socket_base::receive_buffer_size(4096));
  ASSERT_TRUE(runUntil(io, [&] { return server.connected(); }));
  // Writes until the kernel's buffers are full and the queue has given way a few times.
  std::size_t most = 0;
  for (std::uint32_t i = 0; i < 4000000 && server.stats().overflows < 3; ++i) {
    a.sent->vniToDynVlanMapIs(Vxlan::VniExtOrNone(1 + i % 64), Bridging::VlanIdOrNone(1 + i % 4000));
    if (i % 16 == 0) io.poll();
    most = std::max(most, server.queuedBytes());
  }
  EXPECT_GT(server.stats().overflows, 0u);
  EXPECT_LE(most, 3 * o.writeLimit);
}

}  // namespace
}  // namespace MlagVxlan::Transport
