#include "Agreement.h"

#include <fmt/format.h>

#include <map>
#include <set>
#include <string_view>

#include "Run.h"

namespace Sim {

namespace {

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

// The lines of `flat` under `prefix`, named without it.
std::map<std::string, std::string> under(Flat const& flat, std::string const& prefix) {
  std::map<std::string, std::string> out;
  for (auto it = flat.lower_bound(prefix); it != flat.end() && startsWith(it->first, prefix); ++it) {
    out.emplace(it->first.substr(prefix.size()), it->second);
  }
  return out;
}

// What `holder` holds under `held` against what the other side has under `source`: each line
// that differs is a disagreement shown on `holder`.
void compare(std::vector<Disagreement>& out, std::string const& what, std::size_t holder, Flat const& holderFlat,
             std::string const& held, Flat const& sourceFlat, std::string const& source) {
  auto const got = under(holderFlat, held);
  auto const want = under(sourceFlat, source);
  auto add = [&](std::string const& name, std::optional<std::string> found, std::optional<std::string> wanted) {
    out.push_back(Disagreement{false, what, holder, held + name, std::move(found), std::move(wanted)});
  };
  for (auto const& [name, value] : want) {
    auto it = got.find(name);
    if (it == got.end()) {
      add(name, std::nullopt, value);
    } else if (it->second != value) {
      add(name, it->second, value);
    }
  }
  for (auto const& [name, value] : got) {
    if (!want.count(name)) add(name, value, std::nullopt);
  }
}

// Each VNI's VLANs on a switch, as its VTIs map them.
std::map<std::uint32_t, std::set<std::uint32_t>> vniVlans(Switch const& s) {
  std::map<std::uint32_t, std::set<std::uint32_t>> out;
  for (auto vti = s.vtiStatusDir->vtiStatusIter(); !vti.done(); vti.advance()) {
    for (auto m = vti->value->extendedVlanToVniMapIter(); !m.done(); m.advance()) {
      if (m->value.vni() == Vxlan::VniExtOrNone()) continue;
      out[m->value.vni().value()].insert(m->key.value());
    }
  }
  return out;
}

std::string vlanList(std::set<std::uint32_t> const& vlans) {
  std::string out;
  for (auto v : vlans) out += (out.empty() ? "" : ", ") + std::to_string(v);
  return (vlans.size() == 1 ? "VLAN " : "VLANs ") + out;
}

}  // namespace

AgreementSide agreementSide(Switch const& s, Flat const& flat) {
  return AgreementSide{s.name(), &flat, vniVlans(s), s.container()->primarySm() != nullptr,
                       s.container()->secondarySm() != nullptr};
}

std::vector<Disagreement> agreementCheck(Pair const& pair) {
  Flat const a = flattenSwitch(pair.a);
  Flat const b = flattenSwitch(pair.b);
  return agreementCheck(agreementSide(pair.a, a), agreementSide(pair.b, b), pair.linkUp());
}

std::vector<Disagreement> agreementCheck(AgreementSide const& sideA, AgreementSide const& sideB, bool linkUp) {
  std::vector<Disagreement> out;
  AgreementSide const* sw[2] = {&sideA, &sideB};
  auto inPair = [](AgreementSide const* s) { return s->primary || s->secondary; };

  // The configuration: a VNI that both sides carry, on different VLANs.
  auto const& a = sideA.vniVlans;
  auto const& b = sideB.vniVlans;
  for (auto const& [vni, vlans] : a) {
    auto it = b.find(vni);
    if (it == b.end() || it->second == vlans) continue;
    Disagreement d;
    d.configuration = true;
    d.what = fmt::format("VNI {}: A maps it to {}, B to {}", vni, vlanList(vlans), vlanList(it->second));
    out.push_back(std::move(d));
  }

  if (!linkUp) return out;
  Flat const& flat0 = *sideA.flat;
  Flat const& flat1 = *sideB.flat;
  Flat const* flat[2] = {&flat0, &flat1};
  static constexpr std::string_view exchanged[][2] = {
      {"sentVxStatus", "recvVxStatus"}, {"sentP2pHostTable", "recvP2pHostTable"}, {"sentActiveArp", "recvActiveArp"},
      {"sentSde", "recvSde"},           {"sentBumStatus", "recvBumStatus"},
  };
  for (std::size_t from = 0; from < 2; ++from) {
    std::size_t const to = 1 - from;
    for (auto const& [sent, recv] : exchanged) {
      compare(out, fmt::format("{} sent {}, {} received otherwise", sw[from]->name, sent, sw[to]->name), to, *flat[to],
              std::string(recv) + ".", *flat[from], std::string(sent) + ".");
    }
    // Each side's VTEP addresses, as the other takes them in.
    if (inPair(sw[from]) && inPair(sw[to])) {
      for (char const* attr : {"vtepTypeAddr[", "vtepTypeAddr6["}) {
        compare(out, fmt::format("{}'s VTEP addresses as {} sees them", sw[from]->name, sw[to]->name), to, *flat[to],
                std::string("localVxStatus.") + attr, *flat[from], std::string("sentVxStatus.") + attr);
      }
    }
  }
  // The shared VLANs: the secondary's, as the primary takes them.
  for (std::size_t p = 0; p < 2; ++p) {
    AgreementSide const& primary = *sw[p];
    AgreementSide const& secondary = *sw[1 - p];
    if (primary.primary && secondary.secondary) {
      compare(out, fmt::format("the shared VLANs of {} as {} takes them", secondary.name, primary.name), p, *flat[p],
              "localVxStatus.sharedDynVlan[", *flat[1 - p], "sentVxStatus.sharedDynVlan[");
    }
  }
  return out;
}

void printAgreement(std::ostream& out, std::vector<Disagreement> const& found) {
  out << "\nagreement\n";
  if (found.empty()) {
    out << "  A and B agree\n";
    return;
  }
  char const* names[2] = {"A", "B"};
  for (Disagreement const& d : found) {
    if (d.configuration) {
      out << "  config  " << d.what << '\n';
      continue;
    }
    out << fmt::format("  differ  {}: {} {} holds {}, not {}\n", d.what, names[d.switchIndex], d.line,
                       d.found.value_or("nothing"), d.wanted.value_or("nothing"));
  }
}

}  // namespace Sim
