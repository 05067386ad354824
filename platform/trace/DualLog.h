// DualLog: one trace statement, written to the ring file and, for a level that is on, as text.
//
//   DUAL_LOG(rlHandle, textHandle, 6, "BfdPeerStatusSm({peer})::handleInitialized() return", peer);
//
// The message is a literal with "{name}" at each value's place, in the order of the values
// ("{{" and "}}" are literal braces); a count that does not match fails to compile. Each
// statement owns one static int, its message id.
//
// The ring part comes first and has no level test: when the handle and its file exist, the
// statement is described in the file once and its values are written as their type codes say
// (TypeCodes.h). Then, only when the level's bit is set in the text handle, the values are
// rendered, the bit is tested again, and the line goes out. Level 8 is text only. A null ring
// handle or a handle without a file drops the ring part, silently.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "trace/RingLog.h"
#include "trace/TextTrace.h"
#include "trace/TypeCodes.h"

namespace DualLog {

// The number of "{name}" places of a message; -1 when a brace is unmatched.
consteval int placeCount(char const* s) {
  int n = 0;
  for (; *s; ++s) {
    if ((s[0] == '{' && s[1] == '{') || (s[0] == '}' && s[1] == '}')) {
      ++s;
    } else if (*s == '}') {
      return -1;
    } else if (*s == '{') {
      ++s;
      while (*s && *s != '}' && *s != '{') ++s;
      if (*s != '}') return -1;
      ++n;
    }
  }
  return n;
}

template <class... A>
struct Message {
  template <std::size_t N>
  consteval Message(char const (&s)[N]) : text(s) {  // NOLINT(google-explicit-constructor)
    if (placeCount(s) != static_cast<int>(sizeof...(A))) throw "the message's {places} do not match its values";
  }
  char const* text;
};

// The message as a description stores it: "%s" at each place, a literal '%' as "%%".
std::string descriptionText(char const* message);

// Renders the values into the message, one after the other in the order of its places.
class RingLogConverter {
 public:
  explicit RingLogConverter(char const* message) : rest_(message) {}
  template <class T>
  RingLogConverter& operator<<(T const& v) {
    literal();
    RingLog::appendText(out_, v);
    return *this;
  }
  std::string const& finish() {
    literal();
    return out_;
  }

 private:
  void literal();  // copies the text up to the next place and steps over the place
  char const* rest_;
  std::string out_;
};

template <class... A>
[[gnu::noinline]] bool describe(RingLog::TraceFile* f, int& msgId, char const* unit, int line, char const* function,
                                char const* message) {
  RingLog::MsgDesc d(f, &msgId, unit, line, function);
  (RingLog::describeValue<A>(d), ...);
  d << descriptionText(message);
  return d.finish();
}

template <class... A>
[[gnu::noinline, gnu::cold]] void textPart(Vok::TraceHandle const& h, int level, char const* file, int line,
                                           char const* function, char const* message, A const&... values) {
  RingLogConverter conv(message);
  ((conv << values), ...);
  std::string const& text = conv.finish();
  if (!h.enabled(level)) return;  // tested again: rendering may have turned it off
  Vok::TraceHelper(h, level, file, line, function) << std::string_view(text);
}

template <int Level, class... A>
inline void ringPart(RingLog::TraceFile* f, int& msgId, char const* unit, int line, char const* function,
                     char const* message, A const&... values) {
  if (!f->knows(msgId)) [[unlikely]] {
    if (!describe<A...>(f, msgId, unit, line, function, message)) return;
  }
  RingLog::RingBuf* rb = f->ring(Level);
  if (!rb->startMsg(f, msgId, (0u + ... + RingLog::TypeCodeOf<A>::size(values)))) return;
  (RingLog::TypeCodeOf<A>::put(rb, values), ...);
  rb->endMsg();
}

// `unit` names the source in the ring description, `file` and `function` go with the text line.
template <int Level, class... A>
inline void statement(RingLog::TraceHandle* rl, Vok::TraceHandle const* text, int& msgId, char const* unit,
                      char const* file, int line, char const* function, Message<std::type_identity_t<A>...> message,
                      A const&... values) {
  static_assert(Level >= 0 && Level < Vok::traceLevelCount, "trace levels are 0 to 9");
  if constexpr (Level != 8) {
    if (rl) {
      if (RingLog::TraceFile* f = rl->mtTraceFile())
        ringPart<Level>(f, msgId, unit, line, function, message.text, values...);
    }
  }
  if (text && text->enabled(Level)) [[unlikely]]
    textPart(*text, Level, file, line, function, message.text, values...);
}

}  // namespace DualLog

#define DUAL_LOG_AT(unit, function, rlHandle, textHandle, level, ...)                                              \
  do {                                                                                                             \
    static int dualLogMsgId_ = 0;                                                                                  \
    ::DualLog::statement<(level)>((rlHandle), (textHandle), dualLogMsgId_, (unit), __FILE__, __LINE__, (function), \
                                  __VA_ARGS__);                                                                    \
  } while (0)

#define DUAL_LOG(rlHandle, textHandle, level, ...) \
  DUAL_LOG_AT(__FILE__, __func__, rlHandle, textHandle, level, __VA_ARGS__)
