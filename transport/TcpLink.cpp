#include "TcpLink.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <system_error>
#include <utility>

namespace MlagVxlan::Transport {

namespace {
template <class D>
long long ms(D d) {
  return static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
}
}  // namespace

TcpLink::TcpLink(asio::io_context& io, Session& session, TcpOptions options)
    : io_(io),
      session_(session),
      options_(std::move(options)),
      retry_(io),
      ticker_(io),
      backoff_(options_.backoffMin),
      log_([](std::string const& line) { std::cerr << line << '\n'; }) {
  session_.outputNotifyIs([this] {
    if (flushPosted_ || stopped_) return;
    flushPosted_ = true;
    // Everything the present turn of the loop writes goes out in one send.
    asio::post(io_, [this, alive = std::weak_ptr<int>(alive_)] {
      if (alive.expired()) return;
      flushPosted_ = false;
      flush();
    });
  });
}

TcpLink::~TcpLink() {
  stop();
  session_.outputNotifyIs(nullptr);
}

void TcpLink::start() {
  if (!stopped_) return;
  stopped_ = false;
  alive_ = std::make_shared<int>(0);
  if (options_.listen) {
    asio::ip::tcp::endpoint at(asio::ip::make_address(options_.host), options_.port);
    acceptor_ = std::make_unique<asio::ip::tcp::acceptor>(io_);
    acceptor_->open(at.protocol());
    acceptor_->set_option(asio::socket_base::reuse_address(true));
    acceptor_->bind(at);
    acceptor_->listen();
    port_ = acceptor_->local_endpoint().port();
    accept();
  } else {
    port_ = options_.port;
    connect();
  }
  tick();
}

void TcpLink::stop() {
  if (stopped_) return;
  stopped_ = true;
  alive_.reset();  // every handler in flight finds the link gone
  asio::error_code ignored;
  if (acceptor_) acceptor_->close(ignored);
  acceptor_.reset();
  pending_.reset();
  retry_.cancel();
  ticker_.cancel();
  if (socket_) {
    socket_->close(ignored);
    socket_.reset();
    session_.closed();
  }
  queue_.clear();
  queued_ = 0;
  writing_ = false;
  flushPosted_ = false;
}

void TcpLink::accept() {
  auto incoming = std::make_shared<Socket>(io_);
  acceptor_->async_accept(*incoming, [this, incoming, alive = std::weak_ptr<int>(alive_)](asio::error_code ec) {
    if (alive.expired()) return;
    if (!ec) {
      // A peer that connects again while the old connection looks alive has restarted: the new
      // connection replaces the old one.
      if (socket_) drop("replaced by a new connection from the peer");
      adopt(std::make_unique<Socket>(std::move(*incoming)));
    }
    accept();
  });
}

void TcpLink::connect() {
  pending_ = std::make_unique<Socket>(io_);
  asio::ip::tcp::endpoint to(asio::ip::make_address(options_.host), options_.port);
  pending_->async_connect(to, [this, alive = std::weak_ptr<int>(alive_)](asio::error_code ec) {
    if (alive.expired()) return;
    if (ec) {
      pending_.reset();
      connectLater();
      return;
    }
    adopt(std::move(pending_));
  });
}

void TcpLink::connectLater() {
  retry_.expires_after(backoff_);
  backoff_ = std::min(backoff_ * 2, options_.backoffMax);
  retry_.async_wait([this, alive = std::weak_ptr<int>(alive_)](asio::error_code ec) {
    if (alive.expired() || ec) return;
    connect();
  });
}

void TcpLink::adopt(std::unique_ptr<Socket> socket) {
  asio::error_code ignored;
  socket->set_option(asio::ip::tcp::no_delay(true), ignored);
  socket_ = std::move(socket);
  ++generation_;
  ++stats_.connections;
  backoff_ = options_.backoffMin;
  lastIn_ = lastOut_ = Clock::now();
  queue_.clear();
  queued_ = 0;
  writing_ = false;
  session_.outputTaken();
  session_.output().clear();
  session_.opened();
  lastWhole_ = session_.output().size();
  flush();
  read();
}

void TcpLink::drop(std::string const& why) {
  if (!socket_) return;
  ++stats_.drops;
  log_("peer connection dropped: " + why);
  asio::error_code ignored;
  socket_->close(ignored);
  socket_.reset();
  ++generation_;
  queue_.clear();
  queued_ = 0;
  writing_ = false;
  session_.closed();
  if (!options_.listen && !stopped_) connectLater();
}

void TcpLink::read() {
  socket_->async_read_some(asio::buffer(in_), [this, gen = generation_, alive = std::weak_ptr<int>(alive_)](
                                                  asio::error_code ec, std::size_t n) {
    if (alive.expired() || gen != generation_) return;
    if (ec) {
      drop(ec == asio::error::eof ? std::string("the peer closed it") : ec.message());
      return;
    }
    lastIn_ = Clock::now();
    stats_.bytesReceived += n;
    try {
      session_.bytesIn(ByteSpan(in_.data(), n));
    } catch (std::exception const& e) {
      drop(e.what());
      return;
    }
    read();
  });
}

void TcpLink::flush() {
  Bytes& out = session_.output();
  session_.outputTaken();
  if (out.empty()) return;
  if (!socket_) {
    out.clear();  // nobody to send to: the next connection starts with the whole state
    return;
  }
  queued_ += out.size();
  queue_.push_back(std::exchange(out, Bytes{}));
  std::size_t const inFlight = writing_ ? queue_.front().size() : 0;
  if (queued_ - inFlight > std::max(options_.writeLimit, 2 * lastWhole_)) {
    // Keep the send in progress; what waits behind it is replaced by the whole state.
    ++stats_.overflows;
    Bytes front;
    if (writing_) front = std::move(queue_.front());
    queue_.clear();
    queued_ = front.size();
    if (writing_) queue_.push_back(std::move(front));
    session_.overflowed();
    lastWhole_ = session_.output().size();
    queued_ += session_.output().size();
    queue_.push_back(std::exchange(session_.output(), Bytes{}));
    session_.outputTaken();
  }
  writeNext();
}

void TcpLink::writeNext() {
  if (writing_ || queue_.empty() || !socket_) return;
  writing_ = true;
  asio::async_write(*socket_, asio::buffer(queue_.front()),
                    [this, gen = generation_, alive = std::weak_ptr<int>(alive_)](asio::error_code ec, std::size_t n) {
                      if (alive.expired() || gen != generation_) return;
                      writing_ = false;
                      if (ec) {
                        drop(ec.message());
                        return;
                      }
                      stats_.bytesSent += n;
                      lastOut_ = Clock::now();
                      queued_ -= queue_.front().size();
                      queue_.pop_front();
                      writeNext();
                    });
}

void TcpLink::tick() {
  auto period = std::max(std::chrono::milliseconds(10), std::min(options_.heartbeat, options_.deadAfter) / 2);
  ticker_.expires_after(period);
  ticker_.async_wait([this, alive = std::weak_ptr<int>(alive_)](asio::error_code ec) {
    if (alive.expired() || ec) return;
    if (socket_) {
      auto now = Clock::now();
      if (now - lastIn_ > options_.deadAfter) {
        drop("no word from the peer for " + std::to_string(ms(now - lastIn_)) + " ms");
      } else if (now - lastOut_ > options_.heartbeat && queue_.empty()) {
        Bytes hb;
        FrameWriter(hb).heartbeat();
        queued_ += hb.size();
        queue_.push_back(std::move(hb));
        lastOut_ = now;
        writeNext();
      }
    }
    tick();
  });
}

}  // namespace MlagVxlan::Transport
