// RingLog: the ring-buffer trace facility.
//
// This first form keeps the handle's identity (the file name as given and the sizes of the
// rings) so that the container's set-up can be exercised; the memory-mapped ring file comes in
// behind the same interface.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace RingLog {

// One size per trace level, level 0 first.
struct SizeSpec {
  std::array<std::uint32_t, 10> size{};
};

using MultiThreading = int;

class TraceHandle {
 public:
  TraceHandle(std::string file, SizeSpec const& sizes) : file_(std::move(file)), sizes_(sizes) {}
  std::string const& fileName() const noexcept { return file_; }
  SizeSpec const& sizes() const noexcept { return sizes_; }

 private:
  std::string file_;
  SizeSpec sizes_;
};

// Opens the trace file `file` with rings of `sizes` and returns the handle. A "%d" in the name
// is resolved by the facility. Without per-thread files when `multiThreading` is 0.
TraceHandle* initialize_handle(char const* file, SizeSpec* sizes, char const* dir, int flags,
                               MultiThreading multiThreading);

}  // namespace RingLog
