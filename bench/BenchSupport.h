// What the benchmark programs share: a private directory for ring files, an allocator that
// counts what a standard container asks for, for the memory-per-entry figures of the baselines,
// the count of heap allocations (CountingNew.cpp), for allocations per change, and the ring
// records: those the library wrote, and the plain record a baseline appends in their place.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdlib.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "Vxlan/Trace.h"

namespace BenchSupport {

// A temporary directory removed at exit. With `asRingLogDir`, the library's ring file goes there
// (RINGLOGDIR is set before the first container makes the handle).
struct TempDir {
  explicit TempDir(bool asRingLogDir = false) {
    std::string tmpl = (std::filesystem::temp_directory_path() / "mlagvxlan-bench-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) return;
    path = tmpl;
    if (asRingLogDir) ::setenv("RINGLOGDIR", path.c_str(), 1);
  }
  ~TempDir() {
    std::error_code ec;
    if (!path.empty()) std::filesystem::remove_all(path, ec);
  }
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;
  std::string path;
};

// A ring record as a baseline writes it: a fixed-size header and the values' bytes. Its stamp is
// read by RingLog::recordStamp(), as the library's: a record without its time is not the same work.
template <class Values>
struct PlainRecord {
  int msgId;
  std::uint64_t seq;
  std::uint64_t stamp;
  Values values;
};

// An end-to-end benchmark tears everything down between rounds and builds it again; malloc would
// give the freed memory back to the system and the next round would fault it in again, which a
// long-lived agent does not see. Every program keeps what it freed, for the figures and the
// baselines alike.
inline int const keepFreedMemory = ::mallopt(M_TRIM_THRESHOLD, 256 << 20) + ::mallopt(M_MMAP_THRESHOLD, 256 << 20);

// Ring records the library's statements have written so far; 0 without a ring file.
inline std::uint64_t ringRecordsWritten() {
  RingLog::TraceHandle const* ring = MlagVxlan::vxlanRlHandle();
  return ring && ring->file() ? ring->file()->written() : 0;
}

// The ring records `work` writes: a baseline appends as many as the library's run of it does.
template <class Work>
std::uint64_t recordsWrittenBy(Work&& work) {
  std::uint64_t const before = ringRecordsWritten();
  work();
  return ringRecordsWritten() - before;
}

// Counts the ring records of the timed part of each iteration, reported as `records_per_change`
// (or another name): resume() where the timing resumes, pause() where it pauses.
class RecordCount {
 public:
  void resume() { from_ = ringRecordsWritten(); }
  void pause() { total_ += ringRecordsWritten() - from_; }
  void report(benchmark::State& state, char const* name = "records_per_change") const {
    state.counters[name] = static_cast<double>(total_) / static_cast<double>(state.iterations());
  }

 private:
  std::uint64_t from_ = 0, total_ = 0;
};

// Heap allocations made by the program so far: every operator new counts one.
inline std::atomic<std::size_t> allocationCount{0};

// Bytes requested through CountingAllocator and not yet returned (malloc's own headers unseen).
inline std::size_t countedBytes = 0;

template <class T>
struct CountingAllocator {
  using value_type = T;
  CountingAllocator() = default;
  template <class U>
  CountingAllocator(CountingAllocator<U> const&) noexcept {}  // NOLINT(google-explicit-constructor)
  T* allocate(std::size_t n) {
    countedBytes += n * sizeof(T);
    return std::allocator<T>{}.allocate(n);
  }
  void deallocate(T* p, std::size_t n) noexcept {
    countedBytes -= n * sizeof(T);
    std::allocator<T>{}.deallocate(p, n);
  }
  template <class U>
  bool operator==(CountingAllocator<U> const&) const noexcept {
    return true;
  }
};

}  // namespace BenchSupport
