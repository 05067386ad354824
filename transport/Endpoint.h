// One switch's end of the peer protocol: what it publishes for the peer goes out as encoded
// changes, what the peer publishes lands in this switch's received entities, and the state of the
// connection shows in the switch's Mlag::Status and Mlag::ProtoStatus.
//
// On a new connection each side sends its hello, then its whole state, then a synced frame. A
// side takes nothing before a hello with the same schema fingerprint as its own. Only once the
// peer's synced frame has arrived does the switch see the peer link up (bit 0 of
// peerLinkDownFlag clear) and the peer's clock offset valid; when the connection goes, both turn
// back at once. The whole state is applied by difference: what the peer no longer has is
// deleted, what it still has is written, and a write of a value already held publishes nothing,
// so a reconnection publishes only what changed while the link was down.
//
// Changes made while no connection is up are not queued: the next connection starts with the
// whole state.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Frame.h"
#include "Session.h"
#include "entities/Mlag/Status.h"
#include "runtime/Node.h"

namespace MlagVxlan::Transport {

class Endpoint : public Session {
 public:
  // What this side publishes on one channel.
  class Outgoing {
   public:
    virtual ~Outgoing() = default;
    // Appends the whole state of the channel's entity to `out`.
    virtual void snapshot(Bytes& out) = 0;
  };
  // Where the peer's changes of one channel land.
  class Incoming {
   public:
    virtual ~Incoming() = default;
    // Applies the change at the front of `in`; returns the bytes it took. Raises ProtocolError.
    virtual std::size_t apply(ByteSpan in) = 0;
  };

  Endpoint(std::string name, std::uint64_t fingerprint, Brix::Ptr<Mlag::Status> status,
           Brix::Ptr<Mlag::ProtoStatus> protoStatus);
  ~Endpoint() override;

  std::string const& name() const noexcept { return name_; }
  // The peer's whole state has arrived on the present connection.
  bool linkUp() const noexcept { return state_ == State::up; }
  std::string const& peerName() const noexcept { return peerName_; }

  void opened() override;
  void closed() override;
  void bytesIn(ByteSpan bytes) override;
  void overflowed() override;

  // Where a channel's encoder appends a change: the body of the open changes frame, or null
  // while no connection is up (the change is not encoded at all).
  Bytes* changeSink();

 protected:
  void outgoingIs(std::unique_ptr<Outgoing> out) { outgoing_.push_back(std::move(out)); }
  void incomingIs(std::uint8_t channel, std::unique_ptr<Incoming> in);

 private:
  enum class State { closed, awaitingHello, syncing, up };

  void seal() override;
  void wholeState();
  void frameIn(FrameReader::Frame const& frame);
  void linkShown(bool up);

  std::string name_;
  std::uint64_t fingerprint_;
  Brix::Ptr<Mlag::Status> status_;
  Brix::Ptr<Mlag::ProtoStatus> protoStatus_;
  std::vector<std::unique_ptr<Outgoing>> outgoing_;
  std::vector<std::unique_ptr<Incoming>> incoming_;  // by channel number
  FrameWriter writer_;
  FrameReader reader_;
  State state_ = State::closed;
  std::string peerName_;
};

}  // namespace MlagVxlan::Transport
