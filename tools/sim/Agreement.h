// Where the two switches of a settled pair disagree on what an MLAG pair must agree on: which
// VLAN a VNI is carried on, each side's VTEP addresses as the other sees them, the shared VLANs,
// and every table that crosses the peer link (what one side sent against what the other holds
// as received). The exchanged tables are compared only while the link is up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Pair.h"
#include "Tracker.h"

namespace Sim {

struct Disagreement {
  // The two sides were configured differently: the pair shows it, but no exchange can fix it.
  bool configuration = false;
  std::string what;  // in words
  // Where it shows: a line of one switch's dump, and what it holds against what it should hold
  // to agree with the other side (nullopt: absent). Empty `line` for a configuration one.
  std::size_t switchIndex = 0;
  std::string line;
  std::optional<std::string> found;
  std::optional<std::string> wanted;
};

// What the check reads of one switch: its dump, its VNIs' VLANs as its VTIs map them, and its role.
struct AgreementSide {
  std::string name;
  Flat const* flat = nullptr;
  std::map<std::uint32_t, std::set<std::uint32_t>> vniVlans;
  bool primary = false;
  bool secondary = false;
};
AgreementSide agreementSide(Switch const& s, Flat const& flat);

std::vector<Disagreement> agreementCheck(AgreementSide const& a, AgreementSide const& b, bool linkUp);
std::vector<Disagreement> agreementCheck(Pair const& pair);

// The report's "agreement" section.
void printAgreement(std::ostream& out, std::vector<Disagreement> const& found);

}  // namespace Sim
