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
// whole state. In a changes frame each change is its length (u32) and its bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Frame.h"
#include "Session.h"
#include "Wire/EntityCodec.h"
#include "entities/Mlag/Status.h"
#include "runtime/Node.h"

namespace MlagVxlan::Transport {

class Endpoint : public Session {
 public:
  // What this side publishes on one channel.
  class Outgoing {
   public:
    virtual ~Outgoing() = default;
    // Writes the whole state of the channel's entity as changes.
    virtual void snapshot() = 0;
  };
  // Where the peer's changes of one channel land.
  class Incoming {
   public:
    virtual ~Incoming() = default;
    // Applies one whole change. Raises Wire::DecodeError.
    virtual void apply(ByteSpan change) = 0;
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

  // Carries `src`'s changes on `channel`, and applies the peer's changes of the same channel to
  // `dst`. Channels are numbered from 0, each at most once.
  template <class E>
  void channelIs(std::uint8_t channel, Brix::Ptr<E const> src, Brix::Ptr<E> dst) {
    struct Out final : Outgoing {
      Out(Endpoint* ep, std::uint8_t ch, Brix::Ptr<E const> s)
          : sender(std::move(s), ch, [ep](std::span<std::byte const> c) { ep->changeOut(c); }) {}
      void snapshot() override { sender.snapshot(); }
      Wire::Sender<E> sender;
    };
    struct In final : Incoming {
      In(std::uint8_t ch, Brix::Ptr<E> d) : receiver(std::move(d), ch) {}
      void apply(ByteSpan change) override { receiver.apply(change); }
      Wire::Receiver<E> receiver;
    };
    outgoing_.push_back(std::make_unique<Out>(this, channel, std::move(src)));
    incomingIs(channel, std::make_unique<In>(channel, std::move(dst)));
  }

 private:
  void incomingIs(std::uint8_t channel, std::unique_ptr<Incoming> in);
  // Appends one encoded change to the open changes frame; dropped while no connection is up.
  void changeOut(ByteSpan change);

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
