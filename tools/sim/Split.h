// A split run: switch A in this process, switch B in a process of its own, the two joined over
// loopback TCP. The peer link's frames are the transport endpoints' own; what crosses besides
// them is the run's control: B's inputs, its time, and its dump for the report.
//
// Both processes keep virtual time in step. Each turn of a settle is a round: A sends what its
// endpoint wrote, B delivers what is due to it and fires its timers, then A does the same with
// what B sent back; rounds go on while anything moves, and time moves to the next thing due on
// either side. A run gives the same report as one in a single process.
#pragma once

#include <sys/types.h>

#include <asio.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Link.h"
#include "Pair.h"
#include "Run.h"

namespace Sim {

// Length-prefixed messages of the run's control over a connected socket, read and written in
// full: a message is u32 length, u8 kind, then its body.
class ControlChannel {
 public:
  explicit ControlChannel(asio::ip::tcp::socket socket) : socket_(std::move(socket)) {}
  void send(std::uint8_t kind, MlagVxlan::Transport::Bytes const& body);
  // Raises std::runtime_error when the other process has gone.
  std::uint8_t receive(MlagVxlan::Transport::Bytes& body);

 private:
  asio::ip::tcp::socket socket_;
};

class SplitDriver final : public PairDriver {
 public:
  // Starts B's process (a fork of this one, which runs the same scenario) and connects to it.
  // `ringDir` is where B's ring file goes. Raises std::runtime_error when that fails.
  SplitDriver(Scenario const& scenario, std::string const& ringDir);
  ~SplitDriver() override;

  Brix::Duration now() const override { return loop_.now(); }
  void advanceTo(Brix::Duration t) override;
  void linkUpIs(bool up) override;
  void delayIs(Brix::Duration d) override;
  std::string const& name(std::size_t s) const override { return names_[s]; }
  void inputsRun(std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals) override;
  bool inPair(std::size_t s) override;
  void vlanConfigToggleIs(std::optional<bool> on) override;
  std::vector<Change> take(std::size_t s) override;
  Flat const& flat(std::size_t s) const override;
  std::vector<Disagreement> agreement() override;

 private:
  void carry();
  std::uint8_t awaitReply(MlagVxlan::Transport::Bytes& body);
  std::vector<Change> takeFromB(bool whole);

  Vok::ManualLoop loop_;  // first in, last out
  std::string names_[2] = {"A", "B"};
  pid_t child_ = -1;
  asio::io_context io_;
  std::unique_ptr<ControlChannel> control_;
  std::unique_ptr<Switch> a_;
  std::unique_ptr<MlagVxlan::Transport::Endpoint> endpoint_;
  std::unique_ptr<SwitchTracker> tracker_;
  Link fromB_;                         // what B sent, due here
  std::multiset<Brix::Duration> toB_;  // due times of what went to B and is not delivered yet
  Brix::Duration delay_ = 0.0;
  bool up_ = true;
  Flat flatB_;
};

}  // namespace Sim
