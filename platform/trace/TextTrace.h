// The text trace: named handles with a mask of enabled levels, and lines written to a sink.
//
// Levels come from the environment variable MLAGVXLAN_TRACE, read when a handle is made: a
// list of levels and ranges separated by commas, such as "5,6", "0-9" or "5-6,8", or "all".
// An empty value turns every level off. A value that does not parse is reported on the sink,
// as a level 0 line of the handle, and leaves the handle at its default. Code sets the mask
// with levelMaskIs / levelIs.
//
// The sink receives each line; the default writes it to stderr as
//   "<time> <handle> <level> <function>: <text>"
// with the time of the runtime's time source in seconds. traceSinkIs replaces it, for
// instance to capture the lines in a test (TraceCapture).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/String.h"
#include "runtime/Time.h"

namespace Vok {

inline constexpr char const* traceEnvVar = "MLAGVXLAN_TRACE";
inline constexpr int traceLevelCount = 10;

// Parses a level list as MLAGVXLAN_TRACE takes it into a mask, bit n for level n. False, with
// what is wrong in `error`, when it does not parse.
bool parseLevelMask(std::string_view list, std::uint32_t& mask, std::string& error);

class TraceHandle {
 public:
  // Without MLAGVXLAN_TRACE, every level is on when `enabledByDefault` and none when not.
  TraceHandle(char const* name, bool enabledByDefault);

  bool enabled(int level) const noexcept { return (mask_ >> level) & 1u; }
  std::uint32_t levelMask() const noexcept { return mask_; }
  void levelMaskIs(std::uint32_t mask) noexcept { mask_ = mask & ((1u << traceLevelCount) - 1); }
  void levelIs(int level, bool on) noexcept { levelMaskIs(on ? mask_ | 1u << level : mask_ & ~(1u << level)); }
  std::string const& name() const noexcept { return name_; }

 private:
  std::string name_;
  std::uint32_t mask_ = 0;
};

struct TraceLine {
  std::string_view handle;
  int level;
  char const* file;
  int line;
  char const* function;
  Brix::Duration time;
  std::string_view text;
};

class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(TraceLine const& line) = 0;
};

// The sink in force; null restores stderr. The caller keeps the sink alive while it is set.
void traceSinkIs(TraceSink* sink) noexcept;
TraceSink& traceSink() noexcept;
// The line as the stderr sink writes it, without the newline.
std::string formatTraceLine(TraceLine const& line);

// Collects lines while it lives, then puts back the sink it replaced.
class TraceCapture : public TraceSink {
 public:
  struct Line {
    std::string handle;
    int level;
    std::string function;
    std::string text;
  };
  TraceCapture() : previous_(&traceSink()) { traceSinkIs(this); }
  ~TraceCapture() override { traceSinkIs(previous_); }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  void write(TraceLine const& l) override {
    lines_.push_back(Line{std::string(l.handle), l.level, l.function ? l.function : "", std::string(l.text)});
  }
  std::vector<Line> const& lines() const noexcept { return lines_; }
  std::vector<std::string> texts() const {
    std::vector<std::string> t;
    for (auto const& l : lines_) t.push_back(l.text);
    return t;
  }
  void clear() noexcept { lines_.clear(); }

 private:
  TraceSink* previous_;
  std::vector<Line> lines_;
};

class TraceStream {
 public:
  TraceStream& operator<<(char const* s) {
    text_ += s ? s : "";
    return *this;
  }
  TraceStream& operator<<(std::string_view s) {
    text_ += s;
    return *this;
  }
  TraceStream& operator<<(std::string const& s) {
    text_ += s;
    return *this;
  }
  TraceStream& operator<<(Brix::String const& s) {
    text_ += s.view();
    return *this;
  }
  TraceStream& operator<<(bool b) {
    text_ += b ? "true" : "false";
    return *this;
  }
  std::string const& text() const noexcept { return text_; }

 private:
  std::string text_;
};

// One trace line: what is streamed into it goes to the sink when it ends.
class TraceHelper {
 public:
  TraceHelper(TraceHandle const& handle, int level, char const* file, int line, char const* function)
      : handle_(handle), level_(level), file_(file), line_(line), function_(function) {}
  ~TraceHelper();
  TraceHelper(TraceHelper const&) = delete;
  TraceHelper& operator=(TraceHelper const&) = delete;

  TraceStream& stream() noexcept { return stream_; }
  template <class T>
  TraceHelper& operator<<(T const& v) {
    stream_ << v;
    return *this;
  }

 private:
  TraceHandle const& handle_;
  int level_;
  char const* file_;
  int line_;
  char const* function_;
  TraceStream stream_;
};

}  // namespace Vok
