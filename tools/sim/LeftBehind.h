// What the library leaves behind on purpose: lines of a switch's dump that a pair which went
// through a history holds where a pair given only the final inputs has nothing. The soak's
// convergence check and the tests excuse such a line when the fresh pair lacks it, and nothing
// else: a line that the two hold with different values is never excused.
#pragma once

#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Sim {

struct LeftBehind {
  // Over a dump line's name (the entity first), whole. A name in braces stands for any of the
  // values the inputs give it (Placeholders); such an entry applies only while there is one.
  // "{vni}": a VNI that has been mapped to more than one VLAN of a VTI at once; "{arpKey}": an
  // active ARP key that both switches hold.
  char const* pattern;
  char const* why;
  // Also excuses a line that the fresh pair holds with another value, or that only it holds.
  bool anyDifference = false;
};

inline constexpr LeftBehind leftBehindTable[] = {
    {R"((sent|local|recv)VxStatus\.sharedDynVlan\[\d+\])",
     "Leaving a role refills the shared VLANs with every VLAN from 1 to 4094, the set as it stands before "
     "any VLAN is taken out, and the peer receives that set; a switch that never had a role holds none."},
    {R"((sent|local|recv)VxStatus\.vtepTypeAddr6?\[\w+\])",
     "A VTI that leaves the directory withdraws none of the VTEP addresses it published: the role's cleanup "
     "empties the sent ones, and the peer's view follows them."},
    {R"((sent|recv)VxStatus\.arpStatus(WithVlan)?\[[^\]]+\]\..+)",
     "A primary that leaves its role leaves its published ARP tables as they stand while their VRF is still "
     "configured: only the VRF's removal withdraws them, and the peer goes on receiving them."},
    {R"(localVxStatus\.arpStatusWithVlan\[[^\]]+\]\..+)",
     "The ARP entries taken from the peer follow what it published, and so keep what a peer that left its "
     "role left published."},
    {R"((sent|local|recv)VxStatus\.(vniToDynVlanMap\[{vni}\]|vniVtiToDynVlanMap\[{vni}/\w+\]))",
     "One VNI on two VLANs of a VTI is a configuration at odds with itself: the VLAN published for it is the "
     "one mapped last, and when that mapping goes the VNI is withdrawn, not handed back to the VLAN that "
     "still names it, until that VLAN's own mapping changes. So a pair that saw the mappings come and go "
     "can publish another VLAN, or none, than a pair given only where they ended.",
     true},
    {R"((sent|recv|peer)ActiveArp\.(remoteIp|localIp|localIpMac)\[{arpKey}\])",
     "An active ARP entry that both switches hold is published by the one that published it first: the other "
     "leaves out what it already receives. Which one that is follows the order the roles came in.",
     true},
    {R"((sent|recv|peer)ActiveArp\.l2LearningCapable)",
     "Ending the active ARP exchange empties its tables but leaves the capability it last published.", true},
};

// The values of the names in braces in the table's patterns, as the inputs give them.
using Placeholders = std::map<std::string, std::set<std::string>>;

inline constexpr char const* placeholderNames[] = {"{vni}", "{arpKey}"};

// The entry that excuses a difference in `line` (`leftBehind`: the soaked pair holds it, a fresh
// one does not); nullptr if none does.
inline LeftBehind const* excusedBy(std::string const& line, bool leftBehind, Placeholders const& values = {}) {
  auto placeholderOf = [](std::string const& pattern) -> char const* {
    for (char const* name : placeholderNames) {
      if (pattern.find(name) != std::string::npos) return name;
    }
    return nullptr;
  };
  // The patterns without a placeholder, compiled once.
  static std::vector<std::regex> const fixed = [&] {
    std::vector<std::regex> out;
    for (LeftBehind const& e : leftBehindTable) out.emplace_back(placeholderOf(e.pattern) ? "$^" : e.pattern);
    return out;
  }();
  auto escaped = [](std::string const& v) {
    std::string out;
    for (char c : v) {
      if (std::string_view(R"(\^$.|?*+()[]{}/)").find(c) != std::string_view::npos) out += '\\';
      out += c;
    }
    return out;
  };
  for (std::size_t i = 0; i < std::size(leftBehindTable); ++i) {
    LeftBehind const& e = leftBehindTable[i];
    if (!leftBehind && !e.anyDifference) continue;
    std::string const pattern = e.pattern;
    char const* name = placeholderOf(pattern);
    if (!name) {
      if (std::regex_match(line, fixed[i])) return &e;
      continue;
    }
    auto it = values.find(name);
    if (it == values.end()) continue;
    for (std::string const& v : it->second) {
      std::string p = pattern;
      for (std::size_t k = p.find(name); k != std::string::npos; k = p.find(name)) {
        p.replace(k, std::string_view(name).size(), escaped(v));
      }
      if (std::regex_match(line, std::regex(p))) return &e;
    }
  }
  return nullptr;
}

}  // namespace Sim
