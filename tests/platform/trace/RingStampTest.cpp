// Record time stamps: exact under a manual time source, the CPU's counter (or a coarse clock)
// under the monotonic clock, and the decoder's conversion of counter readings into seconds.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <vector>

#include "support/RingLogDir.h"
#include "trace/DualLog.h"
#include "trace/RingLogReader.h"

namespace {

using RingLog::Format::secondsOf;
using RingLog::Format::stampOfSeconds;
using RingLog::Format::TickClock;
using RingLog::Format::tickFlag;

TEST(RingStamp, SecondsOfEveryKindOfStamp) {
  // Opened at 100 s with counter 1000; read again at 102 s with counter 5000 (2000 ticks/s);
  // the rate measured at open says 1000 ticks/s.
  TickClock apart{1000, 100.0, 5000, 102.0, 1000.0};
  TickClock close = apart;
  close.ticks1 = 1100, close.seconds1 = 100.5;  // half a second: the measured rate stands
  TickClock broken{1000, 100.0, 1000, 100.0, 0.0};
  struct Case {
    char const* what;
    std::uint64_t stamp;
    TickClock clock;
    double seconds;
  };
  Case const cases[] = {
      {"virtual time", stampOfSeconds(12.375), broken, 12.375},
      {"negative time reads zero", stampOfSeconds(-3.0), broken, 0.0},
      {"NaN reads zero", stampOfSeconds(std::nan("")), broken, 0.0},
      {"readings a second apart", tickFlag | 3000, apart, 101.0},
      {"readings too close", tickFlag | 3000, close, 102.0},
      {"before the open", tickFlag | 0, apart, 99.5},
  };
  for (auto const& c : cases) EXPECT_DOUBLE_EQ(secondsOf(c.stamp, c.clock), c.seconds) << c.what;
  EXPECT_TRUE(std::isnan(secondsOf(tickFlag | 3000, broken))) << "no rate: no number, and no fault";
}

double steadyNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Written {
  std::vector<double> times;
  double before, after;
};

Written writeThree(Vok::TimeSource const* source) {
  TestSupport::RingLogDir dir;
  Vok::System::timeSourceIs(source);
  RingLog::SizeSpec sizes;
  sizes.size.fill(4);
  Written w;
  w.before = steadyNow();
  {
    std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle("stamp.rl", &sizes, nullptr, 0, 0));
    for (std::uint32_t i = 0; i < 3; ++i) DUAL_LOG(rl.get(), nullptr, 6, "step {i}", i);
  }
  w.after = steadyNow();
  Vok::System::timeSourceIs(nullptr);
  auto f = RingLog::decodeFile(dir.path() + "/stamp.rl");
  EXPECT_TRUE(f.ok());
  for (auto const& r : f.records) w.times.push_back(r.time);
  return w;
}

TEST(RingStamp, ManualTimeIsExactAndTheMonotonicClockFallsBetweenItsReadings) {
  Vok::ManualTimeSource manual(7.125);
  EXPECT_EQ(writeThree(&manual).times, (std::vector<double>{7.125, 7.125, 7.125}));
  EXPECT_TRUE(Vok::System::monotonicInForce()) << "restored";

  auto w = writeThree(nullptr);
  ASSERT_EQ(w.times.size(), 3u);
  // A coarse clock may lag by a tick of the kernel's timer; the counter is within microseconds.
  constexpr double slack = 0.02;
  for (std::size_t i = 0; i < w.times.size(); ++i) {
    EXPECT_GE(w.times[i], w.before - slack) << i;
    EXPECT_LE(w.times[i], w.after + slack) << i;
    if (i > 0) {
      EXPECT_GE(w.times[i], w.times[i - 1]) << i;
    }
  }
}

}  // namespace
