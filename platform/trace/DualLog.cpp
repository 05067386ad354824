#include "trace/DualLog.h"

namespace DualLog {

std::string descriptionText(char const* message) {
  std::string out;
  for (char const* s = message; *s; ++s) {
    if ((s[0] == '{' && s[1] == '{') || (s[0] == '}' && s[1] == '}')) {
      out += *s++;
    } else if (*s == '{') {
      while (*s && *s != '}') ++s;
      out += "%s";
      if (!*s) break;
    } else if (*s == '%') {
      out += "%%";
    } else {
      out += *s;
    }
  }
  return out;
}

void RingLogConverter::literal() {
  for (; *rest_; ++rest_) {
    if ((rest_[0] == '{' && rest_[1] == '{') || (rest_[0] == '}' && rest_[1] == '}')) {
      out_ += *rest_++;
    } else if (*rest_ == '{') {
      while (*rest_ && *rest_ != '}') ++rest_;
      if (*rest_) ++rest_;
      return;
    } else {
      out_ += *rest_;
    }
  }
}

}  // namespace DualLog
