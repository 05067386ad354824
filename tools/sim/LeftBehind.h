// What the library leaves behind on purpose: lines of a switch's dump that a pair which went
// through a history holds where a pair given only the final inputs has nothing. The soak's
// convergence check and the tests excuse such a line when the fresh pair lacks it, and nothing
// else: a line that the two hold with different values is never excused.
#pragma once

#include <regex>
#include <string>
#include <vector>

namespace Sim {

struct LeftBehind {
  char const* pattern;  // over a dump line's name (the entity first), whole
  char const* why;
};

inline constexpr LeftBehind leftBehindTable[] = {
    {R"((sent|local|recv)VxStatus\.sharedDynVlan\[\d+\])",
     "Leaving a role refills the shared VLANs with every VLAN from 1 to 4094, the set as it stands before "
     "any VLAN is taken out, and the peer receives that set; a switch that never had a role holds none."},
};

// The entry that excuses a difference in `line`, or nullptr.
inline LeftBehind const* excusedBy(std::string const& line) {
  static std::vector<std::regex> const compiled = [] {
    std::vector<std::regex> out;
    for (LeftBehind const& e : leftBehindTable) out.emplace_back(e.pattern, std::regex::optimize);
    return out;
  }();
  for (std::size_t i = 0; i < compiled.size(); ++i) {
    if (std::regex_match(line, compiled[i])) return &leftBehindTable[i];
  }
  return nullptr;
}

}  // namespace Sim
