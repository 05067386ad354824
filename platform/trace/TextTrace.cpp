#include "trace/TextTrace.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace Vok {

namespace {

class StderrSink final : public TraceSink {
 public:
  void write(TraceLine const& line) override {
    std::string s = formatTraceLine(line);
    s += '\n';
    std::fwrite(s.data(), 1, s.size(), stderr);
  }
};

StderrSink stderrSink;
TraceSink* sink = &stderrSink;

std::string_view trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

bool parseLevel(std::string_view s, int& level) {
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), level);
  return ec == std::errc() && end == s.data() + s.size() && level >= 0 && level < traceLevelCount;
}

}  // namespace

bool parseLevelMask(std::string_view list, std::uint32_t& mask, std::string& error) {
  std::uint32_t m = 0;
  list = trim(list);
  if (list == "all") {
    mask = (1u << traceLevelCount) - 1;
    return true;
  }
  for (bool more = !list.empty(); more;) {
    auto comma = list.find(',');
    std::string_view item = trim(list.substr(0, comma));
    more = comma != std::string_view::npos;
    if (more) list.remove_prefix(comma + 1);
    auto dash = item.find('-');
    int lo = 0;
    int hi = 0;
    bool ok = dash == std::string_view::npos ? parseLevel(item, lo) && parseLevel(item, hi)
                                             : parseLevel(trim(item.substr(0, dash)), lo) &&
                                                   parseLevel(trim(item.substr(dash + 1)), hi) && lo <= hi;
    if (!ok) {
      error = fmt::format("bad level '{}': expected a level or a range of levels 0 to {}, as in \"5,6\" or \"0-9\"",
                          item, traceLevelCount - 1);
      return false;
    }
    for (int l = lo; l <= hi; ++l) m |= 1u << l;
  }
  mask = m;
  return true;
}

TraceHandle::TraceHandle(char const* name, bool enabledByDefault)
    : name_(name ? name : ""), mask_(enabledByDefault ? (1u << traceLevelCount) - 1 : 0) {
  char const* env = std::getenv(traceEnvVar);
  if (!env) return;
  std::uint32_t m = 0;
  std::string error;
  if (parseLevelMask(env, m, error)) {
    mask_ = m;
  } else {
    TraceHelper(*this, 0, __FILE__, __LINE__, "TraceHandle") << traceEnvVar << ": " << error;
  }
}

void traceSinkIs(TraceSink* s) noexcept { sink = s ? s : &stderrSink; }
TraceSink& traceSink() noexcept { return *sink; }

std::string formatTraceLine(TraceLine const& l) {
  return fmt::format("{:.6f} {} {} {}: {}", l.time, l.handle, l.level, l.function ? l.function : "", l.text);
}

TraceHelper::~TraceHelper() {
  try {
    sink->write(TraceLine{handle_.name(), level_, file_, line_, function_, System::currentTime(), stream_.text()});
  } catch (...) {
    // A line that cannot be written is lost; the trace never fails the caller.
  }
}

}  // namespace Vok
