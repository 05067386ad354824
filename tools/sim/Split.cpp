#include "Split.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "TraceSink.h"
#include "Vxlan/SecondarySm.h"
#include "Wire/Codec.h"

namespace Sim {

namespace {

using MlagVxlan::Transport::Bytes;
using MlagVxlan::Transport::ByteSpan;

enum Msg : std::uint8_t {
  peer = 1,           // A <-> B: due time, frames of the peer link
  round = 2,          // A -> B: deliver and fire what is due now
  roundDone = 3,      // B -> A: how much moved, when B has something due next
  time = 4,           // A -> B: virtual time moves to this
  link = 5,           // A -> B: the peer link cut or restored
  delay = 6,          // A -> B: the link's new delay
  inputs = 7,         // A -> B: apply your inputs of this step
  refusals = 8,       // B -> A: what the library refused of them
  toggle = 9,         // A -> B: the process toggle, or none
  take = 10,          // A -> B: your dump's changes
  changes = 11,       // B -> A: the changes
  quit = 12,          // A -> B: the run is over
  inPairAsk = 13,     // A -> B: do you run a role?
  inPairSaid = 14,    // B -> A: the answer
  vniVlansAsk = 15,   // A -> B: your VNIs' VLANs, as your VTIs map them
  vniVlansSaid = 16,  // B -> A: pairs of VNI and VLAN
};

// A control message's body, written and read with the wire codec's primitives.
class Out {
 public:
  Out() = default;
  Out(Out const&) = delete;  // the writer holds the buffer
  Out& operator=(Out const&) = delete;
  Out& u8(std::uint8_t v) {
    w_.u8(v);
    return *this;
  }
  Out& u64(std::uint64_t v) {
    w_.uint(v);
    return *this;
  }
  Out& f64(double v) {
    MlagVxlan::Wire::encode(w_, v);
    return *this;
  }
  Out& bytes(ByteSpan s) {
    w_.blob(s);
    return *this;
  }
  Out& str(std::string const& s) {
    w_.text(s);
    return *this;
  }
  Bytes const& body() const noexcept { return b_; }

 private:
  Bytes b_;
  MlagVxlan::Wire::Writer w_{b_};
};

class In {
 public:
  explicit In(Bytes const& b) : r_(b) {}
  std::uint8_t u8() { return r_.u8(); }
  std::uint64_t u64() { return r_.uint<std::uint64_t>(); }
  double f64() { return MlagVxlan::Wire::decode<double>(r_); }
  ByteSpan bytes() { return r_.blob(); }
  std::string str() { return std::string(r_.text()); }

 private:
  MlagVxlan::Wire::Reader r_;
};

// Sends what `endpoint` wrote to the other process, due there at `due`, and empties it. True when
// something went; nothing goes while the link is cut.
bool sendOutput(ControlChannel& control, MlagVxlan::Transport::Endpoint& endpoint, bool up, Brix::Duration due) {
  Bytes& out = endpoint.output();
  endpoint.outputTaken();
  if (out.empty()) return false;
  if (up) control.send(peer, Out().f64(due).bytes(out).body());
  out.clear();
  return up;
}

// What switch B's process does: serve the control until told to quit.
int childRun(std::uint16_t port, Scenario const& sc) {
  asio::io_context io;
  asio::ip::tcp::socket socket(io);
  socket.connect({asio::ip::make_address("127.0.0.1"), port});
  socket.set_option(asio::ip::tcp::no_delay(true));
  ControlChannel control(std::move(socket));

  Vok::ManualLoop loop;
  Switch b("B");
  auto endpoint = switchEndpoint(b);
  SwitchTracker tracker(b);
  Link fromA;
  Brix::Duration linkDelay = 0.0;
  auto flush = [&] { sendOutput(control, *endpoint, fromA.up(), loop.now() + linkDelay); };
  {
    Acting acting(b.name());
    endpoint->opened();
  }
  Bytes body;
  for (;;) {
    std::uint8_t kind = control.receive(body);
    In in(body);
    switch (kind) {
      case peer: {
        double due = in.f64();
        fromA.postAt(due, in.bytes());
        break;
      }
      case round: {
        std::size_t moved = 0;
        {
          Acting acting(b.name());
          moved = fromA.deliverDue(loop.now(), *endpoint);
        }
        flush();
        moved += loop.runOnce();
        flush();
        double next = std::min(fromA.nextDue(), Vok::ActivityFacility::clock().nextTime());
        control.send(roundDone, Out().u64(moved).f64(next).body());
        break;
      }
      case time:
        loop.advanceTo(in.f64());
        break;
      case link: {
        bool up = in.u8() != 0;
        fromA.upIs(up);
        Acting acting(b.name());
        if (up) {
          endpoint->opened();
        } else {
          endpoint->closed();
        }
        break;
      }
      case delay:
        linkDelay = in.f64();
        break;
      case inputs: {
        std::vector<std::string> said;
        switchInputsRun(b, 1, sc, in.u64(), said);
        Out o;
        o.u64(said.size());
        for (auto const& s : said) o.str(s);
        control.send(refusals, o.body());
        break;
      }
      case toggle: {
        bool has = in.u8() != 0;
        bool on = in.u8() != 0;
        MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(has ? std::optional<bool>(on) : std::nullopt);
        break;
      }
      case take: {
        auto lines = tracker.take();
        if (in.u8() != 0) {  // the whole dump, not what changed
          lines.clear();
          for (auto const& [name, value] : tracker.flat()) lines.push_back(Change{'+', name, {}, value, 1});
        }
        Out o;
        o.u64(lines.size());
        for (auto const& c : lines) o.u8(static_cast<std::uint8_t>(c.kind)).str(c.name).str(c.before).str(c.after);
        control.send(changes, o.body());
        break;
      }
      case inPairAsk: {
        bool inPair = b.container()->primarySm() || b.container()->secondarySm();
        control.send(inPairSaid, Out().u8(inPair ? 1 : 0).body());
        break;
      }
      case vniVlansAsk: {
        Flat none;
        AgreementSide side = agreementSide(b, none);
        Out o;
        std::uint64_t n = 0;
        for (auto const& [vni, vlans] : side.vniVlans) n += vlans.size();
        o.u64(n);
        for (auto const& [vni, vlans] : side.vniVlans) {
          for (auto vlan : vlans) o.u64(vni).u64(vlan);
        }
        control.send(vniVlansSaid, o.body());
        break;
      }
      case quit:
        return 0;
      default:
        throw std::runtime_error("a split run's control message of unknown kind " + std::to_string(kind));
    }
  }
}

}  // namespace

void ControlChannel::send(std::uint8_t kind, Bytes const& body) {
  std::uint8_t head[5];
  auto n = static_cast<std::uint32_t>(body.size());
  for (int i = 0; i < 4; ++i) head[i] = static_cast<std::uint8_t>(n >> (8 * i));
  head[4] = kind;
  std::array<asio::const_buffer, 2> bufs{asio::buffer(head), asio::buffer(body)};
  asio::write(socket_, bufs);
}

std::uint8_t ControlChannel::receive(Bytes& body) {
  std::uint8_t head[5];
  asio::error_code ec;
  asio::read(socket_, asio::buffer(head), ec);
  if (ec) throw std::runtime_error("the process of the other switch has gone: " + ec.message());
  std::uint32_t n = 0;
  for (int i = 0; i < 4; ++i) n |= std::uint32_t{head[i]} << (8 * i);
  body.resize(n);
  asio::read(socket_, asio::buffer(body), ec);
  if (ec) throw std::runtime_error("the process of the other switch has gone: " + ec.message());
  return head[4];
}

SplitDriver::SplitDriver(Scenario const& sc, std::string const& ringDir) {
  asio::ip::tcp::acceptor acceptor(io_, {asio::ip::make_address("127.0.0.1"), 0});
  std::uint16_t const port = acceptor.local_endpoint().port();
  child_ = ::fork();
  if (child_ < 0) throw std::runtime_error("cannot start the process of switch B");
  if (child_ == 0) {
    // B's process: its own ring file, and nothing of A's.
    acceptor.close();
    std::string dir = (std::filesystem::path(ringDir) / "B").string();
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    ::setenv("RINGLOGDIR", dir.c_str(), 1);
    int code = 1;
    try {
      code = childRun(port, sc);
    } catch (std::exception const& e) {
      std::fprintf(stderr, "mlagvxlan-sim: switch B: %s\n", e.what());
    }
    std::fflush(nullptr);
    ::_exit(code);
  }
  asio::ip::tcp::socket socket(io_);
  acceptor.accept(socket);
  socket.set_option(asio::ip::tcp::no_delay(true));
  control_ = std::make_unique<ControlChannel>(std::move(socket));
  a_ = std::make_unique<Switch>("A");
  endpoint_ = switchEndpoint(*a_);
  tracker_ = std::make_unique<SwitchTracker>(*a_);
  {
    Acting acting(a_->name());
    endpoint_->opened();
  }
  settle();
  // B's dump as it stands; from here on only its changes cross.
  flatB_.clear();
  (void)takeFromB(true);
}

SplitDriver::~SplitDriver() {
  try {
    control_->send(quit, {});
  } catch (std::exception const&) {
    // B's process is gone already.
  }
  int status = 0;
  ::waitpid(child_, &status, 0);
  tracker_.reset();
  endpoint_.reset();
  a_.reset();
}

void SplitDriver::carry() {
  Brix::Duration const due = loop_.now() + delay_;
  if (sendOutput(*control_, *endpoint_, up_, due)) toB_.insert(due);
}

std::uint8_t SplitDriver::awaitReply(Bytes& body) {
  for (;;) {
    std::uint8_t kind = control_->receive(body);
    if (kind != peer) return kind;
    In in(body);
    double due = in.f64();
    fromB_.postAt(due, in.bytes());
  }
}

void SplitDriver::advanceTo(Brix::Duration t) {
  Bytes body;
  for (;;) {
    Brix::Duration now = loop_.now();
    carry();
    control_->send(Msg::round, Out().f64(now).body());
    if (awaitReply(body) != roundDone) throw std::runtime_error("switch B's process lost the round");
    In in(body);
    std::size_t moved = in.u64();
    Brix::Duration nextB = in.f64();
    toB_.erase(toB_.begin(), toB_.upper_bound(now));  // B delivered all of it in the round
    {
      Acting acting(a_->name());
      moved += fromB_.deliverDue(now, *endpoint_);
    }
    carry();
    moved += loop_.runOnce();
    carry();
    if (moved > 0) continue;
    Brix::Duration next = std::min({fromB_.nextDue(), Vok::ActivityFacility::clock().nextTime(), nextB});
    if (!toB_.empty()) next = std::min(next, *toB_.begin());
    if (next > t) break;
    loop_.advanceTo(next);
    control_->send(Msg::time, Out().f64(next).body());
  }
  loop_.advanceTo(t);
  control_->send(Msg::time, Out().f64(t).body());
}

void SplitDriver::linkUpIs(bool up) {
  if (up == up_) return;
  up_ = up;
  fromB_.upIs(up);
  if (!up) toB_.clear();
  control_->send(Msg::link, Out().u8(up ? 1 : 0).body());
  Acting acting(a_->name());
  if (up) {
    endpoint_->opened();
  } else {
    endpoint_->closed();
  }
}

void SplitDriver::delayIs(Brix::Duration d) {
  delay_ = d;
  control_->send(Msg::delay, Out().f64(d).body());
}

void SplitDriver::inputsRun(std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refused) {
  if (s == 0) {
    switchInputsRun(*a_, 0, sc, i, refused);
    return;
  }
  control_->send(Msg::inputs, Out().u64(i).body());
  Bytes body;
  if (awaitReply(body) != refusals) throw std::runtime_error("switch B's process did not take its inputs");
  In in(body);
  for (std::uint64_t n = in.u64(); n > 0; --n) refused.push_back(in.str());
}

bool SplitDriver::inPair(std::size_t s) {
  if (s == 0) return a_->container()->primarySm() || a_->container()->secondarySm();
  control_->send(inPairAsk, {});
  Bytes body;
  if (awaitReply(body) != inPairSaid) {
    throw std::runtime_error("switch B's process did not say whether it runs a role");
  }
  return In(body).u8() != 0;
}

void SplitDriver::vlanConfigToggleIs(std::optional<bool> on) {
  PairDriver::vlanConfigToggleIs(on);
  control_->send(Msg::toggle, Out().u8(on ? 1 : 0).u8(on && *on ? 1 : 0).body());
}

std::vector<Change> SplitDriver::take(std::size_t s) { return s == 0 ? tracker_->take() : takeFromB(false); }

std::vector<Change> SplitDriver::takeFromB(bool whole) {
  control_->send(Msg::take, Out().u8(whole ? 1 : 0).body());
  Bytes body;
  if (awaitReply(body) != changes) throw std::runtime_error("switch B's process did not send its changes");
  In in(body);
  std::vector<Change> out;
  for (std::uint64_t n = in.u64(); n > 0; --n) {
    Change c;
    c.kind = static_cast<char>(in.u8());
    c.name = in.str();
    c.before = in.str();
    c.after = in.str();
    if (c.kind == '-') {
      flatB_.erase(c.name);
    } else {
      flatB_[c.name] = c.after;
    }
    out.push_back(std::move(c));
  }
  return out;
}

Flat const& SplitDriver::flat(std::size_t s) const { return s == 0 ? tracker_->flat() : flatB_; }

std::vector<Disagreement> SplitDriver::agreement() {
  AgreementSide b{
      names_[1], &flatB_, {}, flatB_.count("container.primarySm") > 0, flatB_.count("container.secondarySm") > 0};
  control_->send(vniVlansAsk, {});
  Bytes body;
  if (awaitReply(body) != vniVlansSaid) throw std::runtime_error("switch B's process did not give its VNIs");
  In in(body);
  for (std::uint64_t n = in.u64(); n > 0; --n) {
    auto vni = static_cast<std::uint32_t>(in.u64());
    b.vniVlans[vni].insert(static_cast<std::uint32_t>(in.u64()));
  }
  return agreementCheck(agreementSide(*a_, tracker_->flat()), b, up_);
}

}  // namespace Sim
