// The peer connection over TCP, for an agent built on Asio: one side listens, the other
// connects. It carries a Session's frames, sends a heartbeat when it has had nothing else to send
// for a while, drops a connection that stays silent or sends what the session cannot take, and
// connects again with a growing delay.
//
// A slow reader cannot make the writer's memory grow without bound: when the bytes queued behind
// the send in progress pass `writeLimit` (or twice the last whole state, if that is larger), the
// queue is dropped and the session writes its whole state again, which the peer applies by
// difference.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "Frame.h"
#include "Session.h"

namespace MlagVxlan::Transport {

struct TcpOptions {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;  // 0 when listening: any free port (see TcpLink::port())
  bool listen = false;
  std::chrono::milliseconds heartbeat{500};    // idle time before a heartbeat goes out
  std::chrono::milliseconds deadAfter{2000};   // silence after which the peer is taken for gone
  std::chrono::milliseconds backoffMin{50};    // first wait before connecting again, doubled
  std::chrono::milliseconds backoffMax{2000};  // up to this
  std::size_t writeLimit = std::size_t{4} << 20;
};

struct TcpStats {
  std::uint64_t connections = 0;  // connections that came up
  std::uint64_t drops = 0;        // connections dropped on an error or silence
  std::uint64_t overflows = 0;    // queues dropped for a slow reader
  std::uint64_t bytesSent = 0;
  std::uint64_t bytesReceived = 0;
};

class TcpLink {
 public:
  TcpLink(asio::io_context& io, Session& session, TcpOptions options);
  ~TcpLink();
  TcpLink(TcpLink const&) = delete;
  TcpLink& operator=(TcpLink const&) = delete;

  // Binds (listening side) or starts connecting. Raises std::system_error if the port is taken.
  void start();
  // Closes everything; the session hears closed() if it was connected.
  void stop();

  std::uint16_t port() const noexcept { return port_; }
  bool connected() const noexcept { return socket_ != nullptr; }
  std::size_t queuedBytes() const noexcept { return queued_; }
  TcpStats const& stats() const noexcept { return stats_; }
  // Where one-line messages go (a connection up, dropped and why); standard error by default.
  void logIs(std::function<void(std::string const&)> log) { log_ = std::move(log); }

 private:
  using Socket = asio::ip::tcp::socket;
  using Clock = std::chrono::steady_clock;

  void accept();
  void connect();
  void connectLater();
  void adopt(std::unique_ptr<Socket> socket);
  void drop(std::string const& why);
  void read();
  void flush();
  void writeNext();
  void tick();

  asio::io_context& io_;
  Session& session_;
  TcpOptions options_;
  std::unique_ptr<asio::ip::tcp::acceptor> acceptor_;
  std::unique_ptr<Socket> socket_;
  std::unique_ptr<Socket> pending_;  // a connect in progress
  asio::steady_timer retry_;
  asio::steady_timer ticker_;
  std::chrono::milliseconds backoff_;
  std::deque<Bytes> queue_;    // the front one is being written
  std::size_t queued_ = 0;     // bytes in the queue
  std::size_t lastWhole_ = 0;  // bytes of the last whole state written
  bool writing_ = false;
  bool flushPosted_ = false;
  bool stopped_ = true;
  Clock::time_point lastIn_;
  Clock::time_point lastOut_;
  std::uint16_t port_ = 0;
  std::array<std::byte, 65536> in_{};
  TcpStats stats_;
  std::function<void(std::string const&)> log_;
  // Handlers in flight hold this; stop() resets it, so a late handler knows the link is gone.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::uint64_t generation_ = 0;  // of the connection a handler was started for
};

}  // namespace MlagVxlan::Transport
