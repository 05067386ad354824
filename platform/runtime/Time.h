// Brix::Duration and the time source the whole runtime reads.
//
// Nothing in the library reads a system clock directly: Vok::System::currentTime() asks the
// installed time source. An agent leaves the default (the monotonic clock); tests and the
// simulator install a Vok::ManualTimeSource and advance it.
#pragma once

#include <limits>

namespace Brix {
// Seconds, as a 64-bit float. Positive infinity means never.
using Duration = double;
inline constexpr Duration never = std::numeric_limits<double>::infinity();
}  // namespace Brix

namespace Vok {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  virtual Brix::Duration now() const = 0;
};

class ManualTimeSource final : public TimeSource {
 public:
  explicit ManualTimeSource(Brix::Duration start = 0.0) : now_(start) {}
  Brix::Duration now() const override { return now_; }
  void nowIs(Brix::Duration t) { now_ = t; }

 private:
  Brix::Duration now_;
};

namespace System {
// The source in force; null restores the monotonic clock. The caller keeps the source alive.
void timeSourceIs(TimeSource const* source);
TimeSource const& timeSource();
Brix::Duration currentTime();
// The monotonic clock itself, whatever source is in force.
Brix::Duration monotonicTime();

namespace Impl {
inline bool monotonicInForce = true;  // kept by timeSourceIs
}
// Whether the monotonic clock is the source in force, so that a reader of cheaper clocks (the
// trace's time stamps) may stand in for it; false while a manual source is installed.
inline bool monotonicInForce() noexcept { return Impl::monotonicInForce; }
}  // namespace System

}  // namespace Vok
