// What a connection carries bytes for: one side's end of the peer protocol, with no knowledge of
// sockets. A carrier (a TCP connection, or the simulator's in-process link) calls opened() when a
// connection is up, feeds it what arrives, takes what it writes, and calls closed() when the
// connection is gone.
#pragma once

#include <functional>
#include <utility>

#include "Frame.h"

namespace MlagVxlan::Transport {

class Session {
 public:
  virtual ~Session() = default;

  // A new connection: the session writes its hello and its whole state.
  virtual void opened() = 0;
  // The connection is gone, with what was in flight either way.
  virtual void closed() = 0;
  // Bytes from the peer, in order, in pieces of any size. Raises ProtocolError for what cannot be
  // taken; the carrier then drops the connection.
  virtual void bytesIn(ByteSpan bytes) = 0;
  // The carrier dropped output it could not send in time (a slow reader): the session writes
  // its whole state again, which makes the peer equal by difference.
  virtual void overflowed() = 0;

  // Whole frames waiting to be sent; the carrier takes them with std::exchange or swap, then
  // calls outputTaken().
  Bytes& output() {
    seal();
    return out_;
  }
  // Called once when output turns non-empty, so that a carrier can batch what one turn of its
  // loop writes into one send.
  void outputNotifyIs(std::function<void()> f) { outputNotify_ = std::move(f); }

 protected:
  // Closes a frame left open for more changes, so that output() holds whole frames only.
  virtual void seal() {}
  Bytes& rawOutput() noexcept { return out_; }
  void outputWritten() {
    if (!notified_ && outputNotify_) {
      notified_ = true;
      outputNotify_();
    }
  }

 public:
  // The carrier took the output: the next write notifies again.
  void outputTaken() noexcept { notified_ = false; }

 private:
  Bytes out_;
  std::function<void()> outputNotify_;
  bool notified_ = false;
};

}  // namespace MlagVxlan::Transport
