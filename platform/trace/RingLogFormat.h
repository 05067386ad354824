// The layout of a ring file, shared by the writer (RingLog.h) and the decoder (RingLogReader.h).
//
//   [FileHeader, padded to headerBytes]
//   [description table: descCapacity bytes of DescHeader entries, each 8-aligned]
//   [ring of level 0][ring of level 1] ... [ring of level 9]
//
// All numbers are in the writer's native byte order; byteOrderMark lets a reader tell.
//
// A ring holds records back to back, 8-aligned, never split at the ring's end: a record that
// does not fit before the end is preceded by a pad record (message id 0) that fills the rest.
// RingHeader::head and ::tail count bytes written since the file was opened; the records of a
// ring are those between tail and head (both taken modulo the capacity), oldest first. The
// writer moves tail past the records it is about to overwrite before it writes, and publishes
// head after, so a file left by a crash holds only whole records between the two.
//
// A record: RecordHeader, then the value bytes as the statement's type codes say:
//   p  uint16 length, then that many bytes of text (at most maxText)
//   s  2 bytes   i  4 bytes   u  1 byte   b  1 byte (0 or 1)   d  8 bytes, a double
//   E  6 bytes, three 16-bit words   I  4 bytes, address byte order   I6  16 bytes
//   IGO  1 byte family (1 IPv4, 2 IPv6), then 4, 16 or no bytes
//   MV, MVP  E then s   VIPO  s then IGO   VIS  s, IGO, u   VSP  i then p   MVT  E, I, i, u
//   F<n>  1 byte, an enumeration described by the type entry n of the table
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace RingLog::Format {

inline constexpr char magic[8] = {'M', 'L', 'V', 'X', 'R', 'L', 'O', 'G'};
inline constexpr std::uint32_t version = 3;
inline constexpr std::uint32_t byteOrderMark = 0x01020304;
inline constexpr int levelCount = 10;
inline constexpr std::size_t headerBytes = 4096;
inline constexpr std::size_t descCapacity = std::size_t{256} * 1024;
inline constexpr std::size_t maxText = 1024;                       // a longer text value is cut to this
inline constexpr std::uint64_t tickFlag = std::uint64_t{1} << 63;  // see RecordHeader::stamp

struct RingHeader {
  std::uint64_t offset;    // from the start of the file
  std::uint64_t capacity;  // bytes, a multiple of 8; 0 for a level without a ring
  std::uint64_t head;
  std::uint64_t tail;
};

// How a counter reading turns into seconds: both clocks read together at open, and again at
// each wrap of a ring and at close. While those readings are less than a second apart, the
// rate measured at open stands in for theirs.
struct TickClock {
  std::uint64_t ticks0;
  double seconds0;
  std::uint64_t ticks1;
  double seconds1;
  double ticksPerSecond;
};

struct FileHeader {
  char magic[8];
  std::uint32_t version;
  std::uint32_t byteOrderMark;
  std::uint32_t levelCount;
  std::uint32_t pid;
  std::uint64_t fileSize;
  std::uint64_t descOffset;
  std::uint64_t descCapacity;
  std::uint64_t descUsed;  // bytes of whole entries, published after each entry
  std::uint64_t nextSeq;   // the sequence number the next record gets, across all levels
  std::uint64_t dropped;   // records not written: too large, or their statement not described
  double openTime;         // the time source's time when the file was opened
  RingHeader rings[Format::levelCount];
  TickClock tickClock;
};
static_assert(sizeof(FileHeader) <= headerBytes);

inline std::uint64_t stampOfSeconds(double t) noexcept {
  return std::bit_cast<std::uint64_t>(t > 0.0 ? t : 0.0);  // never a set sign bit, nor a NaN
}

// A record's stamp in seconds; whatever the clock block holds, the result is a number or NaN.
inline double secondsOf(std::uint64_t stamp, TickClock const& c) noexcept {
  if (!(stamp & tickFlag)) return std::bit_cast<double>(stamp);
  double span = c.seconds1 - c.seconds0;
  double rate = span >= 1.0 && c.ticks1 > c.ticks0 ? static_cast<double>(c.ticks1 - c.ticks0) / span : c.ticksPerSecond;
  if (!(rate > 0.0)) return std::numeric_limits<double>::quiet_NaN();
  auto ticks = static_cast<std::int64_t>((stamp & ~tickFlag) - c.ticks0);  // before the open reads negative
  return c.seconds0 + static_cast<double>(ticks) / rate;
}

struct RecordHeader {
  std::int32_t msgId;  // 0 for a pad record, which carries only msgId and size
  std::uint32_t size;  // bytes of the whole record, a multiple of 8
  std::uint64_t seq;
  // The record's time. With tickFlag clear, the bits of a double: seconds of the time source in
  // force (a test's or the simulator's virtual time, exact) or of a coarse monotonic clock. With
  // it set, a reading of the CPU's invariant time-stamp counter in the low 63 bits, which the
  // file header's TickClock turns into seconds of the monotonic clock.
  std::uint64_t stamp;
};
inline constexpr std::uint32_t padRecordBytes = 8;

// A description entry is followed by NUL-terminated strings:
//   message:  source file, text, type codes separated by blanks, the function that holds the
//             statement. In the text each value's place is "%s" and a literal percent sign is
//             "%%". Every string is there, empty or not.
//   type:     format ("{}"), type string ("E%hhu" then "value|name:" per member).
struct DescHeader {
  std::uint32_t size;  // bytes of the entry with its strings, a multiple of 8
  std::uint32_t kind;
  std::int32_t id;
  std::uint32_t line;
};
inline constexpr std::uint32_t descMessage = 'M';
inline constexpr std::uint32_t descType = 'T';

inline constexpr std::uint64_t align8(std::uint64_t n) { return (n + 7) & ~std::uint64_t{7}; }

}  // namespace RingLog::Format
