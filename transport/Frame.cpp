#include "Frame.h"

#include "Wire/Codec.h"

namespace MlagVxlan::Transport {

void FrameWriter::open(FrameKind kind) {
  if (open_) close();
  start_ = out_.size();
  kind_ = kind;
  Wire::Writer w(out_);
  w.uint(std::uint32_t{0});  // the length, written on close
  w.u8(wireVersion);
  w.u8(static_cast<std::uint8_t>(kind));
  open_ = true;
}

void FrameWriter::close() {
  if (!open_) return;
  open_ = false;
  std::size_t body = out_.size() - start_ - frameHeaderBytes;
  if (body == 0 && kind_ == FrameKind::changes) {
    out_.resize(start_);
    return;
  }
  if (body > maxFrameBody) throw std::length_error("a frame of " + std::to_string(body) + " bytes is over the limit");
  for (std::size_t i = 0; i < 4; ++i) out_[start_ + i] = static_cast<std::byte>((body >> (8 * i)) & 0xff);
}

void FrameWriter::hello(std::uint64_t fingerprint, std::string_view name) {
  open(FrameKind::hello);
  name = name.substr(0, 255);
  Wire::Writer w(out_);
  w.uint(fingerprint);
  w.u8(static_cast<std::uint8_t>(name.size()));
  w.bytes({reinterpret_cast<std::uint8_t const*>(name.data()), name.size()});
  close();
}

void FrameWriter::heartbeat() {
  open(FrameKind::heartbeat);
  close();
}

void FrameWriter::synced() {
  open(FrameKind::synced);
  close();
}

Hello helloRead(ByteSpan body) {
  if (body.size() < 9 || body.size() != 9 + static_cast<std::size_t>(body[8])) {
    throw ProtocolError("a hello of " + std::to_string(body.size()) + " bytes is malformed");
  }
  Hello h;
  h.fingerprint = Wire::Reader(body).uint<std::uint64_t>();
  h.name.assign(reinterpret_cast<char const*>(body.data()) + 9, body.size() - 9);
  return h;
}

void FrameReader::feed(ByteSpan bytes) {
  // Taken frames are dropped from the front before the buffer grows, so it holds at most one
  // partial frame and what the last read brought.
  if (head_ > 0 && head_ >= buf_.size() / 2) {
    buf_.erase(buf_.begin(), buf_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
  buf_.insert(buf_.end(), bytes.begin(), bytes.end());
}

bool FrameReader::next(Frame& frame) {
  ByteSpan rest(buf_.data() + head_, buf_.size() - head_);
  if (rest.size() < frameHeaderBytes) return false;
  Wire::Reader header(rest);
  auto body = header.uint<std::uint32_t>();
  unsigned const version = header.u8();
  unsigned const kind = header.u8();
  if (version != wireVersion) {
    throw ProtocolError("a frame of wire version " + std::to_string(version) + ", not " + std::to_string(wireVersion));
  }
  if (kind < static_cast<unsigned>(FrameKind::hello) || kind > static_cast<unsigned>(FrameKind::synced)) {
    throw ProtocolError("a frame of unknown kind " + std::to_string(kind));
  }
  if (body > maxFrameBody) throw ProtocolError("a frame of " + std::to_string(body) + " bytes is over the limit");
  if (rest.size() < frameHeaderBytes + body) return false;
  frame.kind = static_cast<FrameKind>(kind);
  frame.body = rest.subspan(frameHeaderBytes, body);
  head_ += frameHeaderBytes + body;
  return true;
}

}  // namespace MlagVxlan::Transport
