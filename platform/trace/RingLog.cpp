#include "trace/RingLog.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace RingLog {

namespace {
std::atomic<int> nextMsgId{1};
std::atomic<int> nextTypeId{1};
std::atomic<std::uint64_t> nextHandleSerial{1};
std::atomic<int> nextThreadIndex{1};
constexpr std::uint64_t maxRingKiB = std::uint64_t{1024} * 1024;  // 1 GiB

std::string sysError(char const* what, std::string const& path) {
  return fmt::format("{} {}: {}", what, path, std::strerror(errno));
}
}  // namespace

// ---- time stamps ----

namespace Stamp {
namespace {
bool detectInvariantTicks() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  unsigned a = 0, b = 0, c = 0, d = 0;
  return __get_cpuid(0x80000007, &a, &b, &c, &d) && (d & (1u << 8)) != 0;
#else
  return false;
#endif
}

// The counter's rate, measured once per process over a few milliseconds: it converts the stamps
// of a file until the file's own readings lie a second apart.
double ticksPerSecond() {
  static double const rate = [] {
    if (!invariantTicks) return 0.0;
    double t0 = Vok::System::monotonicTime(), t1 = t0;
    std::uint64_t k0 = readTicks(), k1 = k0;
    while (t1 - t0 < 0.002) t1 = Vok::System::monotonicTime(), k1 = readTicks();
    return static_cast<double>(k1 - k0) / (t1 - t0);
  }();
  return rate;
}
}  // namespace

bool const invariantTicks = detectInvariantTicks();

std::uint64_t coarseMonotonic() noexcept {
  timespec ts{};
#ifdef CLOCK_MONOTONIC_COARSE
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
#else
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
#endif
  return Format::stampOfSeconds(static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9);
}
}  // namespace Stamp

void TraceFile::readTickClock(bool atOpen) noexcept {
  if (!hdr_) return;
  auto& c = hdr_->tickClock;
  std::uint64_t k = Stamp::readTicks();
  double t = Vok::System::monotonicTime();
  if (atOpen) c.ticks0 = k, c.seconds0 = t;
  c.ticks1 = k, c.seconds1 = t;
}

// ---- RingBuf, the rare paths ----

void RingBuf::wrap() noexcept {
  std::uint64_t pad = cap_ - headOff_;
  while (head_ + pad - tail_ > cap_) evictOldest();
  hdr_->tail = tail_;
  std::atomic_signal_fence(std::memory_order_release);
  Format::RecordHeader h{0, static_cast<std::uint32_t>(pad), 0, 0};
  std::memcpy(base_ + headOff_, &h, Format::padRecordBytes);
  head_ += pad;
  headOff_ = 0;
  file_->readTickClock(false);  // the longer the readings lie apart, the finer the rate
}

void RingBuf::makeRoom(std::uint64_t size) noexcept {
  // A sixteenth of the ring, at most 4 KiB, made free ahead of the head: the statements that follow
  // find room without coming here.
  std::uint64_t const slack = std::min<std::uint64_t>(cap_ / 16, 4096);
  // The tail jumps to the first record starting at `need` or after, found through the index: the
  // i-th KiB from need's holds the positions below need + (i + 1) KiB of this lap. An entry from
  // another lap (older, or the head's own KiB when need lies ahead of the head in it) is passed.
  std::uint64_t const need = head_ + size + slack - cap_;
  std::size_t const blocks = blockFirst_.size();
  std::size_t b = static_cast<std::size_t>((need % cap_) >> blockShift);
  for (std::size_t i = 0; i < blocks; ++i, b = b + 1 == blocks ? 0 : b + 1) {
    std::uint64_t const first = blockFirst_[b];
    if (first >= need && first - need < (std::uint64_t{i} + 1) << blockShift && first <= head_) {
      tail_ = first;
      tailOff_ = first % cap_;
      break;
    }
  }
  while (tail_ < head_ && head_ + size + slack - tail_ > cap_) evictOldest();
  hdr_->tail = tail_;
  std::atomic_signal_fence(std::memory_order_release);
}

bool RingBuf::drop() noexcept {
  ++file_->hdr_->dropped;
  return false;
}

// ---- TraceFile ----

std::unique_ptr<TraceFile> TraceFile::open(std::string const& path, SizeSpec const& sizes, std::string* error) {
  std::uint64_t total = Format::headerBytes + Format::descCapacity;
  for (std::uint32_t kib : sizes.size) {
    if (kib > maxRingKiB) {
      *error = fmt::format("ring of {} KiB is larger than the limit of {} KiB", kib, maxRingKiB);
      return nullptr;
    }
    total += std::uint64_t{kib} * 1024;
  }

  // An old file is replaced, not truncated: a process that still maps it keeps its own.
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid()) {
      *error = fmt::format("cannot use {}: not a regular file of this user", path);
      return nullptr;
    }
    if (::unlink(path.c_str()) != 0) {
      *error = sysError("cannot replace", path);
      return nullptr;
    }
  }
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0) {
    *error = sysError("cannot create", path);
    return nullptr;
  }
  void* map = MAP_FAILED;
  if (::ftruncate(fd, static_cast<off_t>(total)) == 0) {
    map = ::mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  if (map == MAP_FAILED) {
    *error = sysError("cannot size or map", path);
    ::close(fd);
    ::unlink(path.c_str());
    return nullptr;
  }
  ::close(fd);

  std::unique_ptr<TraceFile> f(new TraceFile());
  f->path_ = path;
  f->map_ = map;
  f->mapBytes_ = total;
  auto* h = static_cast<Format::FileHeader*>(map);
  f->hdr_ = h;
  std::memcpy(h->magic, Format::magic, sizeof h->magic);
  h->version = Format::version;
  h->byteOrderMark = Format::byteOrderMark;
  h->levelCount = Format::levelCount;
  h->pid = static_cast<std::uint32_t>(::getpid());
  h->fileSize = total;
  h->descOffset = Format::headerBytes;
  h->descCapacity = Format::descCapacity;
  h->openTime = Vok::System::currentTime();
  h->tickClock.ticksPerSecond = Stamp::ticksPerSecond();
  f->readTickClock(true);
  std::uint64_t off = Format::headerBytes + Format::descCapacity;
  for (int level = 0; level < Format::levelCount; ++level) {
    std::uint64_t cap = std::uint64_t{sizes.size[static_cast<std::size_t>(level)]} * 1024;
    h->rings[level] = Format::RingHeader{off, cap, 0, 0};
    RingBuf& r = f->rings_[static_cast<std::size_t>(level)];
    r.base_ = static_cast<char*>(map) + off;
    r.hdr_ = &h->rings[level];
    r.file_ = f.get();
    r.cap_ = cap;
    r.maxRecord_ = (cap / 2) & ~std::uint64_t{7};
    r.blockFirst_.assign(static_cast<std::size_t>((cap + (1U << RingBuf::blockShift) - 1) >> RingBuf::blockShift), 0);
    off += cap;
  }
  return f;
}

TraceFile::~TraceFile() {
  readTickClock(false);
  if (map_) ::munmap(map_, mapBytes_);
}

void TraceFile::mark(std::vector<std::uint8_t>& v, int id) {
  auto i = static_cast<std::size_t>(id);
  if (i >= v.size()) v.resize(i + 64);
  v[i] = 1;
}

bool TraceFile::appendDesc(std::uint32_t kind, int id, std::uint32_t line,
                           std::initializer_list<std::string_view> strings) {
  std::uint64_t size = sizeof(Format::DescHeader);
  for (auto s : strings) size += s.size() + 1;
  size = Format::align8(size);
  if (hdr_->descUsed + size > hdr_->descCapacity) {
    ++hdr_->dropped;
    return false;
  }
  char* p = static_cast<char*>(map_) + hdr_->descOffset + hdr_->descUsed;
  Format::DescHeader d{static_cast<std::uint32_t>(size), kind, id, line};
  std::memcpy(p, &d, sizeof d);
  char* q = p + sizeof d;
  for (auto s : strings) {
    std::memcpy(q, s.data(), s.size());
    q += s.size();
    *q++ = '\0';
  }
  std::memset(q, 0, static_cast<std::size_t>(p + size - q));
  std::atomic_signal_fence(std::memory_order_release);
  hdr_->descUsed += size;
  return true;
}

bool TraceFile::describeMessage(int msgId, char const* file, int line, std::string const& text,
                                std::string const& codes, std::string_view function) {
  if (!appendDesc(Format::descMessage, msgId, static_cast<std::uint32_t>(line), {file, text, codes, function}))
    return false;
  mark(known_, msgId);
  return true;
}

bool TraceFile::describeType(int typeId, char const* format, std::string const& typeString) {
  if (!appendDesc(Format::descType, typeId, 0, {format, typeString})) return false;
  mark(knownTypes_, typeId);
  return true;
}

// ---- MsgDesc ----

bool MsgDesc::finish() {
  std::atomic_ref<int> id(*msgId_);
  if (id.load(std::memory_order_relaxed) == 0) {
    int expected = 0;
    id.compare_exchange_strong(expected, nextMsgId.fetch_add(1));
  }
  return file_->describeMessage(id.load(), srcFile_, line_, text_, codes_.text(), function_);
}

int newTypeId() noexcept { return nextTypeId.fetch_add(1); }

// ---- TraceHandle ----

TraceHandle::TraceHandle(std::string path, SizeSpec const& sizes, MultiThreading mt)
    : path_(std::move(path)), sizes_(sizes), mt_(mt), serial_(nextHandleSerial.fetch_add(1)) {
  if (!mt_) file_ = TraceFile::open(path_, sizes_, &error_);
}

TraceHandle::~TraceHandle() = default;

TraceFile* TraceHandle::threadFile() {
  struct Entry {
    std::uint64_t serial;
    std::unique_ptr<TraceFile> file;
  };
  thread_local std::vector<Entry> files;
  thread_local int threadIndex = nextThreadIndex.fetch_add(1);
  for (auto& e : files)
    if (e.serial == serial_) return e.file.get();
  std::string p = path_;
  auto dot = p.rfind(".rl");
  p.insert(dot != std::string::npos && dot + 3 == p.size() ? dot : p.size(), fmt::format("-t{}", threadIndex));
  std::string err;
  files.push_back(Entry{serial_, TraceFile::open(p, sizes_, &err)});  // kept even when null: no retry per statement
  return files.back().file.get();
}

std::string resolvePath(char const* file, char const* dir) {
  std::string name;
  for (char const* c = file ? file : ""; *c; ++c) {
    if (c[0] == '%' && c[1] == 'd') {
      name += std::to_string(::getpid());
      ++c;
    } else {
      name += *c;
    }
  }
  if (name.starts_with('/')) return name;
  char const* env = std::getenv("RINGLOGDIR");
  std::string d = dir && *dir ? dir : env && *env ? env : defaultDir;
  if (!d.ends_with('/')) d += '/';
  return d + name;
}

TraceHandle* initialize_handle(char const* file, SizeSpec* sizes, char const* dir, int /*flags*/,
                               MultiThreading multiThreading) {
  SizeSpec s;
  s.size.fill(8);
  return new TraceHandle(resolvePath(file, dir), sizes ? *sizes : s, multiThreading);
}

}  // namespace RingLog
