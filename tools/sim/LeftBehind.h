// What the library leaves behind on purpose: lines of a switch's dump that a pair which went
// through a history holds where a pair given only the final inputs has nothing. The soak's
// convergence check and the tests excuse such a line when the fresh pair lacks it, and nothing
// else: a line that the two hold with different values is never excused.
#pragma once

#include <algorithm>
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
  // values the inputs give it (Placeholders); such an entry applies only while there is one:
  //   {vni}           a VNI that has been mapped to more than one VLAN of a VTI at once;
  //   {arpKey}        an active ARP key that both switches hold;
  //   {arpAddr}       an IPv4 address that two ARP input keys of one VRF have held at once;
  //   {goneVti}       a VTI that has left a switch's directory and is not back;
  //   {bareBumVlan}   a VLAN whose BUM list has been without an address;
  //   {afterVtiLoss}  the empty text, once a VTI has left a switch's directory while another
  //                   stayed (so the entry applies from then on).
  char const* pattern;
  char const* why;
  // Also excuses a line that the fresh pair holds with another value, or that only it holds.
  bool anyDifference = false;
  // If set, the entry applies only while the pair also differs from the fresh one in a line that
  // matches this (the left-behind state that the difference follows from), on either switch.
  char const* onlyWith = nullptr;
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
    {R"((sent|local|recv)VxStatus\.vniVtiToDynVlanMap\[\d+/{goneVti}\])",
     "The publisher of a VTI that leaves the directory stays, with what it published, until the publishers "
     "are all deleted (the pair no longer multi-VTEP, or the role's end) or the VTI comes back. The peer "
     "applies what it receives."},
    {R"((sent|recv)VxStatus\.arpStatus\[\w+\]\.(arpEntry\[{arpAddr}\]|vrfName)|localVxStatus\.arpStatusWithVlan\[\w+\]\.(arpEntry\[{arpAddr}/0/\w+\]|vrfName))",
     "Published by VRF, an ARP entry is keyed by its IPv4 address alone, so two input keys of one address "
     "(on two VLAN interfaces) share one entry: the key written last gives its MAC, and deleting either key "
     "withdraws the entry though the other stays, until that one changes. The peer's view follows.",
     true},
    {R"((sent|recv|peer)ActiveArp\.(remoteIp|localIp|localIpMac)\[{arpKey}\])",
     "An active ARP entry that both switches hold is published by the one that published it first: the other "
     "leaves out what it already receives. Which one that is follows the order the roles came in.",
     true},
    {R"((sent|recv)P2pHostTable\.hostEntry\[[^\]]+\]|mlagHostTable\.hostEntry\[[^\]]+\])",
     "The remote MAC decision only adds or replaces host entries: a MAC whose FDB record goes, or whose two "
     "tables stop agreeing on its last move time, keeps what was last told to the peer and written to the "
     "MLAG host table. Whatever removes them is outside the library."},
    {R"((sent|recv|peer)ActiveArp\.localIp\[[^\]]+\])",
     "Towards a far end that cannot learn from L2, a key's own change writes its localIp entry whenever the "
     "input's localIp holds it, but a full re-evaluation keeps only the entries whose key also has a MAC in "
     "the input's localIpMac. So whether such an entry stands follows whether the key last changed before or "
     "after the last re-evaluation (a role, a VTI, a capability or a configuration change).",
     true},
    {R"(sdeOutput\.vlanFloodSet\[{bareBumVlan}\]\.(vlanId|floodSet\[[^\]]+\]\.(macAddr|floodSetType)))",
     "On the legacy road a BUM list without addresses is history-bound twice over. Its flood set goes with the "
     "list's last address though the list stays, and comes back only with an address or a type change, where "
     "a list that arrives without addresses makes its flood set at once. And the flood set takes the list's "
     "type only from a type change or an address, so a list already there when the road started keeps the "
     "type the flood set had.",
     true},
    {R"((sent|recv|peer)ActiveArp\.((remoteIp|localIp|localIpMac)\[[^\]]+\]|arpSelectiveInstall){afterVtiLoss})",
     "Every VTI's active ARP machine writes the same table, and the loss of any one VTI empties it, also of "
     "what the others wrote: they fill it again only at their next full re-evaluation.",
     true},
    {R"((sent|recv|peer)ActiveArp\.l2LearningCapable)",
     "Ending the active ARP exchange empties its tables but leaves the capability it last published.", true},
    {R"((sent|recv|peer)ActiveArp\.(localIp|localIpMac)\[[^\]]+\])",
     "What goes to a far end depends on the capability it published: localIpMac entries to one that can learn "
     "from L2, localIp entries to one that cannot. A capability left behind (above) takes its tables with it.",
     true, R"((sent|recv|peer)ActiveArp\.l2LearningCapable)"},
};

// The values of the names in braces in the table's patterns, as the inputs give them.
using Placeholders = std::map<std::string, std::set<std::string>>;

inline constexpr char const* placeholderNames[] = {"{vni}",     "{arpKey}",      "{arpAddr}",
                                                   "{goneVti}", "{bareBumVlan}", "{afterVtiLoss}"};

// The entry that excuses a difference in `line` (`leftBehind`: the soaked pair holds it, a fresh
// one does not), `differing` being every line in which the pair differs from the fresh one;
// nullptr if none does.
inline LeftBehind const* excusedBy(std::string const& line, bool leftBehind, Placeholders const& values = {},
                                   std::vector<std::string> const& differing = {}) {
  auto placeholderOf = [](std::string const& pattern) -> char const* {
    for (char const* name : placeholderNames) {
      if (pattern.find(name) != std::string::npos) return name;
    }
    return nullptr;
  };
  // The patterns without a placeholder, compiled once.
  // The patterns without a placeholder and the causes, compiled once.
  static std::vector<std::regex> const fixed = [&] {
    std::vector<std::regex> out;
    for (LeftBehind const& e : leftBehindTable) out.emplace_back(placeholderOf(e.pattern) ? "$^" : e.pattern);
    return out;
  }();
  static std::vector<std::regex> const causes = [] {
    std::vector<std::regex> out;
    for (LeftBehind const& e : leftBehindTable) out.emplace_back(e.onlyWith ? e.onlyWith : "$^");
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
  auto withCause = [&](std::size_t i) {
    if (!leftBehindTable[i].onlyWith) return true;
    return std::any_of(differing.begin(), differing.end(),
                       [&](std::string const& d) { return std::regex_match(d, causes[i]); });
  };
  for (std::size_t i = 0; i < std::size(leftBehindTable); ++i) {
    LeftBehind const& e = leftBehindTable[i];
    if (!leftBehind && !e.anyDifference) continue;
    if (!withCause(i)) continue;
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
