// The soak: one pair driven by random events, each a scenario step, checked at random points
// once it has settled. A settled pair must hold what a fresh pair given only the final inputs
// holds (less what LeftBehind.h excuses), and its two sides must agree (Agreement.h) unless
// their configurations differ. A failure is shrunk to the fewest steps that still fail and
// written as a scenario file whose expectations fail the same way when replayed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Agreement.h"
#include "Dump.h"
#include "LeftBehind.h"
#include "Pair.h"
#include "Scenario.h"

namespace Sim {

// Virtual time a settle lets pass: past every timer of the library and every link delay the soak
// sets.
inline constexpr double soakSettleTime = 30.0;

// The inputs of both switches as a run of steps leaves them: the last value written to each
// path, nothing of what was removed since, and the link's delay.
class InputState {
 public:
  void apply(Step const& step);
  // The steps that write these inputs into a pair that has seen nothing else, and let it
  // settle: all in one step, or (`oneByOne`, for shrinking) one write a step, the roles first.
  std::vector<Step> freshSteps(bool oneByOne = false) const;
  // The VNIs that a VTI of either switch has mapped to more than one VLAN at once, ever: which
  // VLAN is published, if any, depends on the order the mappings came and went in, and the
  // library keeps traces of it (stale VLANs in its shadow) that a much later event can bring out.
  std::set<std::string> const& conflictedVnis() const noexcept { return conflicted_; }
  // The IPv4 addresses that two keys of one VRF's ARP input have held at once, ever: the
  // published table is keyed by address alone, so the key written or deleted last decides it.
  std::set<std::string> const& sharedArpAddrs() const noexcept { return sharedArpAddrs_; }
  // The VLANs whose zero-MAC flood set a switch's source directory has held, ever, with no
  // destination: the BUM list made of it has no address.
  std::set<std::string> const& bareBumVlans() const noexcept { return bareBumVlans_; }
  // The VTIs that have left a switch's directory and are not back in it.
  std::set<std::string> goneVtis() const;
  // Whether a VTI has ever left a switch's directory while another stayed in it.
  bool vtiLostBesideOthers() const noexcept { return vtiLostBesideOthers_; }
  // The active ARP keys that both switches write into their central store.
  std::set<std::string> sharedActiveArpKeys() const;

 private:
  // path: value (as YAML text), in order. Text rather than nodes: assigning one node to another
  // writes through to every copy of it, the steps' among them.
  using Writes = std::vector<std::pair<std::string, std::string>>;
  struct Vti {
    Writes attributes;
    std::map<std::string, std::string> vlanToVni;
  };
  struct Inputs {
    std::optional<std::string> role;
    std::map<std::string, Vti> vtis;
    std::set<std::string> goneVtis;  // ever removed; goneVtis() leaves out those back since
    Writes sets;
  };
  void noteConflicts();   // after a VTI's map changes: the VNIs on two VLANs
  void noteSetHistory();  // after a write: ARP addresses on two keys, BUM lists without addresses

  std::array<Inputs, 2> inputs_;
  double delay_ = 0.0;
  std::set<std::string> conflicted_;
  std::set<std::string> sharedArpAddrs_;
  std::set<std::string> bareBumVlans_;
  bool vtiLostBesideOthers_ = false;
};

// A line of one switch's dump where the soaked pair and a fresh one differ (nullopt: absent).
struct Difference {
  std::size_t switchIndex = 0;
  std::string line;
  std::optional<std::string> soaked;
  std::optional<std::string> fresh;
};

// Test-only: changes the fresh pair's dump of a switch before the comparison.
using FreshFault = std::function<void(std::size_t switchIndex, Flat& fresh)>;

// What a settled pair shows against a fresh pair given `inputs`. `excused` counts the differences
// that LeftBehind.h excuses, by pattern.
struct CheckOutcome {
  bool settled = true;  // nothing left due
  std::vector<Difference> differences;
  std::vector<Disagreement> disagreements;  // the configurations' disagreements left out
  std::size_t configDisagreements = 0;
  std::map<std::string, std::size_t> excused;
  bool failed() const noexcept { return !settled || !differences.empty() || !disagreements.empty(); }
};
CheckOutcome soakCheck(Pair& pair, InputState const& inputs, FreshFault const& fault = {});

// The fewest items that `fails` still holds for: drops chunks, halving their size down to single
// items, keeping each drop that still fails, then single items again until none can go.
// `fails(items)` must hold to begin with.
template <class T, class Fails>
std::vector<T> shrink(std::vector<T> items, Fails&& fails) {
  // One pass of drops of `chunk` items; whether any was kept.
  auto pass = [&](std::size_t chunk) {
    bool dropped = false;
    for (std::size_t i = 0; i < items.size() && items.size() > 1;) {
      std::vector<T> candidate(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(i));
      candidate.insert(candidate.end(), items.begin() + static_cast<std::ptrdiff_t>(std::min(i + chunk, items.size())),
                       items.end());
      if (fails(std::as_const(candidate))) {
        items = std::move(candidate);
        dropped = true;
      } else {
        i += chunk;
      }
    }
    return dropped;
  };
  for (std::size_t chunk = items.size() / 2; chunk > 1; chunk /= 2) pass(chunk);
  // Single items until none can go: a drop can make an earlier item droppable.
  while (pass(1)) {
  }
  return items;
}

enum class SoakMix { all, flaps, swaps };

struct SoakOptions {
  std::size_t events = 1000;
  std::uint64_t seed = 1;
  SoakMix mix = SoakMix::all;
  std::string outPath;        // empty: soak-failure-<seed>.yaml in the current directory
  double checkChance = 0.03;  // of a check after an event, besides the one at the end
  FreshFault fault;
};

struct SoakResult {
  bool failed = false;
  std::size_t events = 0;
  std::size_t steps = 0;
  std::size_t checks = 0;
  std::string written;   // the failing scenario's file, when one was written
  bool replays = false;  // and replaying it fails as the soak did
  std::size_t shrunkSteps = 0;
  long rssAt1k = 0;  // KiB; 0 before 1000 events
  long rssEnd = 0;
  double wallSeconds = 0;
};

// Runs the soak, printing its progress and closing summary to `out`.
SoakResult runSoak(SoakOptions const& options, std::ostream& out);

}  // namespace Sim
