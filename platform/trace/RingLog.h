// RingLog: the binary ring-buffer trace.
//
// A trace file is memory-mapped, so that the last records survive a crash of the process. It
// has one ring per level and a table that describes each statement once (source file, line,
// text, type codes); a record is the statement's message id, a sequence number, the time and
// the value bytes. The layout is in RingLogFormat.h; tools/trace decodes it.
//
// File name: every "%d" in the name becomes the process id. A relative name goes into the
// directory given to initialize_handle, else $RINGLOGDIR, else defaultDir. The file is made
// anew with mode 0644 (less what the umask takes): an old file of this user is replaced, and
// anything else at the path (a link, another user's file) is refused.
#pragma once

#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Time.h"
#include "trace/RingLogFormat.h"

namespace RingLog {

inline constexpr char const* defaultDir = "/tmp";

// Ring sizes in KiB, one per trace level, level 0 first. A record of three small values takes
// 32 to 40 bytes, so 256 KiB holds some 7000 of them. 0 gives a level no ring.
struct SizeSpec {
  std::array<std::uint32_t, Format::levelCount> size{};
};

using MultiThreading = int;

class TraceFile;

// The ring of one level. A record is written between startMsg and endMsg, its values through
// the put functions; startMsg is told the value bytes up front, so that nothing is ever
// overwritten that the record does not need.
class RingBuf {
 public:
  // False when the record is dropped (larger than half the ring, or no ring at this level).
  bool startMsg(TraceFile* file, int msgId, std::uint32_t valueBytes);
  void endMsg();

  template <class T>
  void putRaw(T const& v) noexcept {
    std::memcpy(cursor_, &v, sizeof v);
    cursor_ += sizeof v;
  }
  // Text values are mostly a few bytes. Up to 32 they are copied as two overlapping moves of a
  // fixed width: a copy of bounded length is otherwise inlined as a block move, whose start-up
  // costs more than the whole copy.
  void putBytes(void const* p, std::size_t n) noexcept {
    auto const* s = static_cast<char const*>(p);
    if (n >= 16 && n <= 32) {
      copyPair<16>(s, n);
    } else if (n >= 8 && n < 16) {
      copyPair<8>(s, n);
    } else if (n >= 4 && n < 8) {
      copyPair<4>(s, n);
    } else if (n < 4) {
      for (std::size_t i = 0; i < n; ++i) cursor_[i] = s[i];
    } else {
      std::memcpy(cursor_, p, n);
    }
    cursor_ += n;
  }

  std::uint64_t capacity() const noexcept { return cap_; }

 private:
  // The first and the last `W` bytes of `n` (W <= n <= 2W), both read before either is written.
  template <std::size_t W>
  void copyPair(char const* s, std::size_t n) noexcept {
    std::array<char, W> head{}, tail{};
    std::memcpy(head.data(), s, W);
    std::memcpy(tail.data(), s + n - W, W);
    std::memcpy(cursor_, head.data(), W);
    std::memcpy(cursor_ + n - W, tail.data(), W);
  }
  friend class TraceFile;
  void evictOldest() noexcept;
  // Evicts the oldest records until `size` bytes and some slack are free, and publishes the new
  // tail: the statements that follow then find room without touching the old records.
  void makeRoom(std::uint64_t size) noexcept;
  void wrap() noexcept;
  bool drop() noexcept;

  char* base_ = nullptr;
  Format::RingHeader* hdr_ = nullptr;
  TraceFile* file_ = nullptr;
  char* cursor_ = nullptr;
  std::uint64_t cap_ = 0;
  std::uint64_t maxRecord_ = 0;
  std::uint64_t head_ = 0;  // as in the file header, kept here so that the hot path reads no mapped page
  std::uint64_t tail_ = 0;
  std::uint64_t headOff_ = 0;  // head_ and tail_ modulo cap_, kept without a division
  std::uint64_t tailOff_ = 0;
  std::uint32_t pending_ = 0;
  // Where the first record starting in each KiB of the ring starts (a position like head_), so
  // that making room moves the tail in one step instead of reading every record it drops.
  static constexpr unsigned blockShift = 10;
  std::vector<std::uint64_t> blockFirst_;
  std::uint64_t headBlock_ = ~std::uint64_t{0};
};

// What a statement's description is built of: type codes, or the type string of an enumeration.
class MsgFormatString {
 public:
  void put(char const* s) { text_ += s; }
  void put(std::string_view s) { text_ += s; }
  std::string const& text() const noexcept { return text_; }

 private:
  std::string text_;
};

class TraceFile {
 public:
  // Makes the file at `path` (truncating an old one of this user) and maps it. Null, with the
  // reason in `error`, when it cannot.
  static std::unique_ptr<TraceFile> open(std::string const& path, SizeSpec const& sizes, std::string* error);
  ~TraceFile();
  TraceFile(TraceFile const&) = delete;
  TraceFile& operator=(TraceFile const&) = delete;

  RingBuf* ring(int level) noexcept { return &rings_[static_cast<std::size_t>(level)]; }
  std::string const& path() const noexcept { return path_; }

  bool knows(int msgId) const noexcept {
    return static_cast<std::size_t>(msgId) < known_.size() && known_[static_cast<std::size_t>(msgId)];
  }
  bool knowsType(int typeId) const noexcept {
    return static_cast<std::size_t>(typeId) < knownTypes_.size() && knownTypes_[static_cast<std::size_t>(typeId)];
  }
  // Appends a description entry; false when the table is full.
  bool describeMessage(int msgId, char const* file, int line, std::string const& text, std::string const& codes,
                       std::string_view function = {});
  bool describeType(int typeId, char const* format, std::string const& typeString);

  std::uint64_t dropped() const noexcept { return hdr_->dropped; }
  // Records written so far, over all levels (the next record's sequence number).
  std::uint64_t written() const noexcept { return nextSeq_; }

 private:
  friend class RingBuf;
  TraceFile() = default;
  // Reads the counter and the monotonic clock together into the header's clock block: both
  // readings at open, the later one otherwise.
  void readTickClock(bool atOpen) noexcept;
  bool appendDesc(std::uint32_t kind, int id, std::uint32_t line, std::initializer_list<std::string_view> strings);
  static void mark(std::vector<std::uint8_t>& v, int id);

  std::string path_;
  void* map_ = nullptr;
  std::size_t mapBytes_ = 0;
  Format::FileHeader* hdr_ = nullptr;
  std::uint64_t nextSeq_ = 0;
  std::array<RingBuf, Format::levelCount> rings_{};
  std::vector<std::uint8_t> known_;
  std::vector<std::uint8_t> knownTypes_;
};

// A new process-wide id for an enumeration type described in trace files.
int newTypeId() noexcept;

// Describes one statement in one file, once: type codes first, then the text pieces, then
// finish(), which gives the statement its process-wide message id on its first description.
class MsgDesc {
 public:
  MsgDesc(TraceFile* file, int* msgId, char const* srcFile, int line, char const* function = "")
      : file_(file), msgId_(msgId), srcFile_(srcFile), line_(line), function_(function) {
    assert(*msgId >= 0 && "a negative message id is a programming error");
  }
  ~MsgDesc() = default;
  MsgDesc(MsgDesc const&) = delete;
  MsgDesc& operator=(MsgDesc const&) = delete;

  // A piece of text as stored: a value's place is "%s", a literal percent sign "%%".
  MsgDesc& operator<<(char const* piece) {
    text_ += piece;
    return *this;
  }
  MsgDesc& operator<<(std::string_view piece) {
    text_ += piece;
    return *this;
  }
  MsgFormatString& format() noexcept { return codes_; }
  TraceFile* file() const noexcept { return file_; }
  // One value's type code; codes are kept in the order of the values.
  void code(std::string_view c) {
    if (!codes_.text().empty()) codes_.put(" ");
    codes_.put(c);
  }
  // False when the file's table is full: the statement then writes no record to this file.
  bool finish();

 private:
  TraceFile* file_;
  int* msgId_;
  char const* srcFile_;
  int line_;
  char const* function_;
  std::string text_;
  MsgFormatString codes_;
};

class TraceHandle {
 public:
  TraceHandle(std::string path, SizeSpec const& sizes, MultiThreading mt);
  ~TraceHandle();
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;

  // The file of the calling thread in per-thread mode, each thread's file named with "-t<n>"
  // before the extension; otherwise the handle's file, null if it could not be made.
  TraceFile* mtTraceFile() { return mt_ ? threadFile() : file_.get(); }
  TraceFile* file() const noexcept { return file_.get(); }
  std::string const& fileName() const noexcept { return path_; }
  SizeSpec const& sizes() const noexcept { return sizes_; }
  // Why the file could not be made; empty when it was.
  std::string const& error() const noexcept { return error_; }

 private:
  TraceFile* threadFile();

  std::string path_;
  SizeSpec sizes_;
  MultiThreading mt_;
  std::uint64_t serial_;
  std::unique_ptr<TraceFile> file_;
  std::string error_;
};

// The path the file name rule gives: "%d" replaced by the process id; a relative name put in
// `dir`, else $RINGLOGDIR, else defaultDir.
std::string resolvePath(char const* file, char const* dir);

// Opens the trace file and returns the handle, which the caller owns. `dir` as for
// resolvePath; `flags` is reserved (0); with `multiThreading` 0 the handle has one file.
// A file that cannot be made leaves the handle without one: statements then write text only.
TraceHandle* initialize_handle(char const* file, SizeSpec* sizes, char const* dir, int flags,
                               MultiThreading multiThreading);

// A text value: its length in two bytes, then its bytes, cut at Format::maxText.
inline std::uint32_t textBytes(std::size_t n) noexcept {
  return 2 + static_cast<std::uint32_t>(n < Format::maxText ? n : Format::maxText);
}
inline void put(RingBuf* rb, std::string_view s) noexcept {
  auto n = static_cast<std::uint16_t>(s.size() < Format::maxText ? s.size() : Format::maxText);
  rb->putRaw(n);
  rb->putBytes(s.data(), n);
}
inline void put(RingBuf* rb, char const* s) noexcept { put(rb, std::string_view(s ? s : "")); }

// ---- the hot path, inline ----

namespace Stamp {
// Whether the CPU's time-stamp counter runs at a constant rate through sleep and frequency
// changes, so that a reading of it can stand for the monotonic clock.
extern bool const invariantTicks;
std::uint64_t coarseMonotonic() noexcept;  // a coarse monotonic clock's seconds, as a stamp
// The counter itself, 0 where there is none. Read through the builtin: <x86intrin.h> would add
// 48k lines to every source that traces.
inline std::uint64_t readTicks() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_ia32_rdtsc();
#else
  return 0;
#endif
}
}  // namespace Stamp

// A record's stamp (Format::RecordHeader::stamp): the counter while the monotonic clock is in
// force and the counter is invariant, else a coarse clock; a manual time source exactly.
inline std::uint64_t recordStamp() noexcept {
  if (!Vok::System::monotonicInForce()) [[unlikely]]
    return Format::stampOfSeconds(Vok::System::currentTime());
  if (Stamp::invariantTicks) [[likely]]  // never where there is no counter
    return Stamp::readTicks() | Format::tickFlag;
  return Stamp::coarseMonotonic();
}

inline bool RingBuf::startMsg(TraceFile* file, int msgId, std::uint32_t valueBytes) {
  std::uint64_t size = Format::align8(sizeof(Format::RecordHeader) + valueBytes);
  if (size > maxRecord_) [[unlikely]]
    return drop();
  if (cap_ - headOff_ < size) [[unlikely]]
    wrap();
  if (head_ + size - tail_ > cap_) [[unlikely]]
    makeRoom(size);
  if (std::uint64_t block = headOff_ >> blockShift; block != headBlock_) [[unlikely]] {
    headBlock_ = block;
    blockFirst_[block] = head_;
  }
  // The header's fields are stored one by one: a header built aside and copied whole would be
  // read back over the pieces just stored, which stalls.
  char* p = base_ + headOff_;
  std::int32_t const id = msgId;
  auto const recordSize = static_cast<std::uint32_t>(size);
  std::uint64_t const seq = file->nextSeq_++;
  std::uint64_t const stamp = recordStamp();
  std::memcpy(p + offsetof(Format::RecordHeader, msgId), &id, sizeof id);
  std::memcpy(p + offsetof(Format::RecordHeader, size), &recordSize, sizeof recordSize);
  std::memcpy(p + offsetof(Format::RecordHeader, seq), &seq, sizeof seq);
  std::memcpy(p + offsetof(Format::RecordHeader, stamp), &stamp, sizeof stamp);
  cursor_ = p + sizeof(Format::RecordHeader);
  pending_ = static_cast<std::uint32_t>(size);
  return true;
}

inline void RingBuf::endMsg() {
  head_ += pending_;
  headOff_ += pending_;
  if (headOff_ == cap_) headOff_ = 0;
  // Only whole records lie between tail and head, also for a reader of a crashed process.
  std::atomic_signal_fence(std::memory_order_release);
  file_->hdr_->nextSeq = file_->nextSeq_;
  hdr_->head = head_;
}

inline void RingBuf::evictOldest() noexcept {
  std::uint32_t size;
  std::memcpy(&size, base_ + tailOff_ + offsetof(Format::RecordHeader, size), sizeof size);
  assert(size >= Format::padRecordBytes && tailOff_ + size <= cap_);
  tail_ += size;
  tailOff_ += size;
  if (tailOff_ == cap_) tailOff_ = 0;
}

}  // namespace RingLog
