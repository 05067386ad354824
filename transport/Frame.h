// Frames of the peer connection: how a byte stream between two switches is cut into messages.
//
// A frame is a 6-byte header, then its body:
//   u32 body length (little-endian; the header not counted), u8 wire version, u8 kind.
// Kinds: hello (the first frame each way: the schema fingerprint and the sender's name), heartbeat
// (no body: the connection is alive), changes (one or more encoded entity changes, back to back),
// synced (no body: everything before it on this connection is the sender's whole state).
// A frame of another version or kind, or longer than maxFrameBody, is a protocol error: the
// connection is dropped and made anew.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Wire/Codec.h"

namespace MlagVxlan::Transport {

using Wire::wireVersion;  // the codec's: one version for the whole wire form
inline constexpr std::size_t frameHeaderBytes = 6;
// Large enough for a whole-state resynchronisation of the biggest tables, small enough that a
// damaged length cannot make the reader ask for gigabytes.
inline constexpr std::uint32_t maxFrameBody = 64u << 20;

enum class FrameKind : std::uint8_t { hello = 1, heartbeat = 2, changes = 3, synced = 4 };

// What the peer sent cannot be taken: the connection must go.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Bytes = std::vector<std::byte>;
using ByteSpan = std::span<std::byte const>;

// Appends frames to a byte buffer. A frame is opened, its body appended, then closed, which
// writes its length; an empty changes frame is taken back on close.
class FrameWriter {
 public:
  explicit FrameWriter(Bytes& out) noexcept : out_(out) {}

  void open(FrameKind kind);
  bool isOpen() const noexcept { return open_; }
  FrameKind openKind() const noexcept { return kind_; }
  void close();

  Bytes& body() noexcept { return out_; }  // appends go to the open frame's body

  void hello(std::uint64_t fingerprint, std::string_view name);
  void heartbeat();
  void synced();

 private:
  Bytes& out_;
  std::size_t start_ = 0;
  FrameKind kind_ = FrameKind::changes;
  bool open_ = false;
};

struct Hello {
  std::uint64_t fingerprint = 0;
  std::string name;
};
Hello helloRead(ByteSpan body);

// Cuts a byte stream into frames as it arrives in pieces of any size.
class FrameReader {
 public:
  struct Frame {
    FrameKind kind;
    ByteSpan body;
  };

  // Takes bytes in; they stay until the frames they complete have been taken.
  void feed(ByteSpan bytes);
  // The next whole frame, or false when the bytes in hold none. The frame's body stays valid
  // until the next call of feed or next. Raises ProtocolError for a bad header.
  bool next(Frame& frame);
  std::size_t pending() const noexcept { return buf_.size() - head_; }
  void clear() noexcept {
    buf_.clear();
    head_ = 0;
  }

 private:
  Bytes buf_;
  std::size_t head_ = 0;
};

}  // namespace MlagVxlan::Transport
