#include "trace/RingLog.h"

namespace RingLog {

TraceHandle* initialize_handle(char const* file, SizeSpec* sizes, char const* /*dir*/, int /*flags*/,
                               MultiThreading /*multiThreading*/) {
  return new TraceHandle(file ? file : "", sizes ? *sizes : SizeSpec{});
}

}  // namespace RingLog
