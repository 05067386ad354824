#include "Endpoint.h"

#include <utility>

namespace MlagVxlan::Transport {

Endpoint::Endpoint(std::string name, std::uint64_t fingerprint, Brix::Ptr<Mlag::Status> status,
                   Brix::Ptr<Mlag::ProtoStatus> protoStatus)
    : name_(std::move(name)),
      fingerprint_(fingerprint),
      status_(std::move(status)),
      protoStatus_(std::move(protoStatus)),
      writer_(rawOutput()) {}

Endpoint::~Endpoint() = default;

void Endpoint::incomingIs(std::uint8_t channel, std::unique_ptr<Incoming> in) {
  if (incoming_.size() <= channel) incoming_.resize(std::size_t{channel} + 1);
  incoming_[channel] = std::move(in);
}

void Endpoint::changeOut(ByteSpan change) {
  if (state_ == State::closed) return;
  if (!writer_.isOpen()) {
    writer_.open(FrameKind::changes);
    outputWritten();
  }
  Wire::Writer(writer_.body()).blob(change);
}

void Endpoint::seal() { writer_.close(); }

void Endpoint::wholeState() {
  writer_.open(FrameKind::changes);
  for (auto& out : outgoing_) out->snapshot();
  writer_.synced();
  outputWritten();
}

void Endpoint::opened() {
  rawOutput().clear();
  reader_.clear();
  state_ = State::awaitingHello;
  peerName_.clear();
  writer_.hello(fingerprint_, name_);
  wholeState();
}

void Endpoint::closed() {
  writer_.close();
  rawOutput().clear();
  reader_.clear();
  state_ = State::closed;
  linkShown(false);
}

void Endpoint::overflowed() {
  if (state_ == State::closed) return;
  writer_.close();
  rawOutput().clear();
  // The hello went out first of all, so the peer knows this side already; only the whole state
  // is written again.
  wholeState();
}

void Endpoint::bytesIn(ByteSpan bytes) {
  reader_.feed(bytes);
  FrameReader::Frame frame{};
  while (reader_.next(frame)) frameIn(frame);
}

void Endpoint::frameIn(FrameReader::Frame const& frame) {
  if (frame.kind == FrameKind::heartbeat) return;
  if (state_ == State::awaitingHello) {
    if (frame.kind != FrameKind::hello) throw ProtocolError("the peer sent something before its hello");
    Hello h = helloRead(frame.body);
    if (h.fingerprint != fingerprint_) {
      throw ProtocolError("the peer '" + h.name + "' was built from other entity declarations");
    }
    peerName_ = std::move(h.name);
    state_ = State::syncing;
    return;
  }
  switch (frame.kind) {
    case FrameKind::hello:
      throw ProtocolError("a second hello on one connection");
    case FrameKind::synced:
      if (state_ == State::syncing) {
        state_ = State::up;
        linkShown(true);
      }
      return;
    case FrameKind::changes: {
      Wire::Reader in(frame.body);
      while (in.left() > 0) {
        ByteSpan change = in.blob();
        std::uint8_t channel = Wire::channelOf(change);
        if (channel >= incoming_.size() || !incoming_[channel]) {
          throw ProtocolError("a change on unknown channel " + std::to_string(channel));
        }
        incoming_[channel]->apply(change);
      }
      return;
    }
    case FrameKind::heartbeat:
      return;
  }
}

// The MLAG agent's peer-link state: once the link has gone down, the state is known; a pair
// that never lost its link leaves peerLinkKnown as the agent set it.
void Endpoint::linkShown(bool up) {
  if (!up && status_->peerLinkKnown() == 0) status_->peerLinkKnownIs(1);
  auto flag = status_->peerLinkDownFlag();
  status_->peerLinkDownFlagIs(static_cast<std::uint8_t>(up ? flag & ~1u : flag | 1u));
  protoStatus_->peerMonotonicOffsetValidIs(up);
}

}  // namespace MlagVxlan::Transport
