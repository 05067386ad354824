// What the library leaves behind on purpose: lines of a switch's dump that a pair which went
// through a history holds where a pair given only the final inputs has nothing. The soak's
// convergence check and the tests excuse such a line when the fresh pair lacks it, and nothing
// else: a line that the two hold with different values is never excused.
#pragma once

#include <regex>
#include <set>
#include <string>
#include <vector>

namespace Sim {

struct LeftBehind {
  // Over a dump line's name (the entity first), whole. "{vni}" stands for any VNI that the
  // inputs have mapped to more than one VLAN of a VTI at once; such an entry applies only then.
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
};

// The entry that excuses a difference in `line` (`leftBehind`: the soaked pair holds it, a fresh
// one does not), given the VNIs that the inputs map to more than one VLAN; nullptr if none does.
inline LeftBehind const* excusedBy(std::string const& line, bool leftBehind, std::set<std::string> const& vnis = {}) {
  static std::vector<std::regex> const fixed = [] {
    std::vector<std::regex> out;
    for (LeftBehind const& e : leftBehindTable)
      out.emplace_back(std::string(e.pattern).find("{vni}") == std::string::npos ? e.pattern : "$^");
    return out;
  }();
  for (std::size_t i = 0; i < fixed.size(); ++i) {
    LeftBehind const& e = leftBehindTable[i];
    if (!leftBehind && !e.anyDifference) continue;
    std::string const pattern = e.pattern;
    std::size_t const at = pattern.find("{vni}");
    if (at == std::string::npos) {
      if (std::regex_match(line, fixed[i])) return &e;
      continue;
    }
    for (std::string const& vni : vnis) {
      std::string p = pattern;
      for (std::size_t k = p.find("{vni}"); k != std::string::npos; k = p.find("{vni}")) p.replace(k, 5, vni);
      if (std::regex_match(line, std::regex(p))) return &e;
    }
  }
  return nullptr;
}

}  // namespace Sim
