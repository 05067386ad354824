#include "Soak.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <set>
#include <sstream>

#include "LeftBehind.h"
#include "Run.h"
#include "Vxlan/SmContainer.h"

namespace Sim {

namespace {

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

template <class Writes>
void writeOver(Writes& writes, std::string const& path, std::string const& value) {
  for (auto& [p, v] : writes) {
    if (p == path) {
      v = value;
      return;
    }
  }
  writes.emplace_back(path, value);
}

// Forgets every write at or below `path`.
template <class Writes>
void eraseUnder(Writes& writes, std::string const& path) {
  std::erase_if(writes, [&](auto const& w) {
    return w.first == path || startsWith(w.first, path + ".") || startsWith(w.first, path + "[");
  });
}

Step stepOf(std::string const& text) {
  double time = 0;
  return parseStep(YAML::Load(text), time);
}

}  // namespace

void InputState::apply(Step const& step) {
  if (step.delay) delay_ = *step.delay;
  for (std::size_t i = 0; i < 2; ++i) {
    if (step.inputsText[i].empty()) continue;
    YAML::Node const n = YAML::Load(step.inputsText[i]);
    Inputs& in = inputs_[i];
    if (auto role = n["role"]) in.role = role.Scalar();
    if (auto vti = n["vti"]) {
      for (auto const& kv : vti) {
        std::string const name = kv.first.Scalar();
        if (kv.second.IsNull()) {
          if (in.vtis.erase(name) != 0) {
            in.goneVtis.insert(name);
            if (!in.vtis.empty()) vtiLostBesideOthers_ = true;
          }
          continue;
        }
        Vti& v = in.vtis[name];
        for (auto const& attr : kv.second) {
          if (attr.first.Scalar() != "vlanToVni") {
            writeOver(v.attributes, attr.first.Scalar(), YAML::Dump(attr.second));
            continue;
          }
          for (auto const& m : attr.second) {
            if (m.second.IsNull()) {
              v.vlanToVni.erase(m.first.Scalar());
            } else {
              v.vlanToVni[m.first.Scalar()] = YAML::Dump(m.second);
            }
          }
          noteConflicts();
        }
      }
    }
    if (auto set = n["set"]) {
      for (auto const& kv : set) {
        if (kv.second.IsNull()) {
          eraseUnder(in.sets, kv.first.Scalar());
        } else {
          writeOver(in.sets, kv.first.Scalar(), YAML::Dump(kv.second));
        }
      }
      noteSetHistory();
    }
    if (auto del = n["delete"]) {
      if (del.IsScalar()) {
        eraseUnder(in.sets, del.Scalar());
      } else {
        for (auto const& p : del) eraseUnder(in.sets, p.Scalar());
      }
    }
  }
}

std::vector<Step> InputState::freshSteps(bool oneByOne) const {
  // Each switch's inputs as YAML maps: all of them in one, or one write each.
  std::array<std::vector<YAML::Node>, 2> parts;
  for (std::size_t i = 0; i < 2; ++i) {
    Inputs const& in = inputs_[i];
    YAML::Node all(YAML::NodeType::Map);
    auto part = [&](char const* kind, std::string const& key, YAML::Node const& value) {
      YAML::Node n = oneByOne ? YAML::Node(YAML::NodeType::Map) : all;
      n[kind][key] = value;
      if (oneByOne) parts[i].push_back(n);
    };
    if (in.role) {
      YAML::Node role(YAML::NodeType::Map);
      role["role"] = *in.role;
      if (oneByOne) parts[i].push_back(role);
      if (!oneByOne) all["role"] = *in.role;
    }
    for (auto const& [name, vti] : in.vtis) {
      YAML::Node body(YAML::NodeType::Map);
      for (auto const& [attr, value] : vti.attributes) {
        if (oneByOne) {
          YAML::Node one(YAML::NodeType::Map);
          one[attr] = YAML::Load(value);
          part("vti", name, one);
        } else {
          body[attr] = YAML::Load(value);
        }
      }
      for (auto const& [vlan, vni] : vti.vlanToVni) {
        if (oneByOne) {
          YAML::Node one(YAML::NodeType::Map);
          one["vlanToVni"][vlan] = YAML::Load(vni);
          part("vti", name, one);
        } else {
          body["vlanToVni"][vlan] = YAML::Load(vni);
        }
      }
      // A VTI with nothing written to it still has its status made.
      if (!oneByOne || (vti.attributes.empty() && vti.vlanToVni.empty())) part("vti", name, body);
    }
    for (auto const& [path, value] : in.sets) part("set", path, YAML::Load(value));
    if (!oneByOne && all.size() > 0) parts[i].push_back(all);
  }
  // One step each, the roles first (each switch's first part); or one step for all.
  std::vector<std::pair<std::size_t, YAML::Node>> order;
  for (std::size_t i = 0; i < 2; ++i) {
    if (!parts[i].empty()) order.emplace_back(i, parts[i].front());
  }
  for (std::size_t i = 0; i < 2; ++i) {
    for (std::size_t k = 1; k < parts[i].size(); ++k) order.emplace_back(i, parts[i][k]);
  }
  std::vector<YAML::Node> steps;
  for (auto const& [i, part] : order) {
    if (steps.empty() || oneByOne) steps.emplace_back(YAML::NodeType::Map);
    steps.back()[i == 0 ? "A" : "B"] = part;
  }
  if (steps.empty()) steps.emplace_back(YAML::NodeType::Map);
  steps.front()["note"] = "the inputs as they stand";
  if (delay_ != 0.0) steps.front()["delay"] = fmt::format("{}", delay_);
  steps.back()["advance"] = fmt::format("{}", soakSettleTime);
  std::vector<Step> out;
  double time = 0;
  out.reserve(steps.size());
  for (YAML::Node const& n : steps) out.push_back(parseStep(n, time));
  return out;
}

std::set<std::string> InputState::goneVtis() const {
  std::set<std::string> out;
  for (Inputs const& in : inputs_) {
    for (std::string const& name : in.goneVtis) {
      if (!in.vtis.count(name)) out.insert(name);
    }
  }
  return out;
}

std::set<std::string> InputState::sharedActiveArpKeys() const {
  // The keys of corestateActiveArp's collections that a switch writes.
  auto keys = [](Inputs const& in) {
    std::set<std::string> out;
    for (auto const& [path, value] : in.sets) {
      for (char const* coll :
           {"corestateActiveArp.remoteIp[", "corestateActiveArp.localIp[", "corestateActiveArp.localIpMac["}) {
        if (startsWith(path, coll) && path.back() == ']') {
          out.insert(path.substr(std::string_view(coll).size(), path.size() - std::string_view(coll).size() - 1));
        }
      }
    }
    return out;
  };
  std::set<std::string> const a = keys(inputs_[0]);
  std::set<std::string> out;
  for (std::string const& k : keys(inputs_[1])) {
    if (a.count(k)) out.insert(k);
  }
  return out;
}

void InputState::noteConflicts() {
  for (Inputs const& in : inputs_) {
    for (auto const& [name, vti] : in.vtis) {
      std::set<std::string> seen;
      for (auto const& [vlan, value] : vti.vlanToVni) {
        YAML::Node const n = YAML::Load(value);
        std::string const vni = n.IsMap() ? n["vni"].Scalar() : n.Scalar();
        if (!seen.insert(vni).second) conflicted_.insert(vni);
      }
    }
  }
}

void InputState::noteSetHistory() {
  // sdeInput.vlanFloodSet[VLAN].floodSet[zero MAC]...: a VLAN's BUM list, with an address or not;
  // arpInputConfig.vrf[VRF].ipv4[ADDR/INTF]: the VRF and the address.
  static std::regex const zeroMacSet(
      R"(sdeInput\.vlanFloodSet\[(\d+)\]\.floodSet\[00:00:00:00:00:00\](\.destSet\[.*)?.*)");
  static std::regex const arpKey(R"(arpInputConfig\.vrf\[([^\]]+)\]\.ipv4\[([^/\]]+)/[^\]]+\].*)");
  for (Inputs const& in : inputs_) {
    std::map<std::string, bool> addressed;
    std::set<std::pair<std::string, std::string>> seen;
    for (auto const& [path, value] : in.sets) {
      std::smatch m;
      if (std::regex_match(path, m, zeroMacSet)) {
        bool& a = addressed[m[1].str()];
        a = a || (m[2].matched && value == "true");
      } else if (std::regex_match(path, m, arpKey) && !seen.emplace(m[1].str(), m[2].str()).second) {
        sharedArpAddrs_.insert(m[2].str());
      }
    }
    for (auto const& [vlan, a] : addressed) {
      if (!a) bareBumVlans_.insert(vlan);
    }
  }
}

namespace {

// The names of what the report shows of a switch: the container's children and the entities
// that the library or the peer link writes.
std::set<std::string, std::less<>> reportedNames(Switch const& s) {
  std::set<std::string, std::less<>> out{"container"};
  s.forEachEntity([&](std::string_view name, auto const&, bool isReported) {
    if (isReported) out.emplace(name);
  });
  return out;
}

// The differences between a soaked switch's dump and a fresh one's, in the entities the report
// shows: an input entity holds what the steps wrote, members they made on the way included, and
// no library code of its own.
void differ(std::size_t sw, Flat const& soaked, Flat const& fresh, std::set<std::string, std::less<>> const& reported,
            std::vector<Difference>& out) {
  NaturalLess less;
  auto s = soaked.begin();
  auto f = fresh.begin();
  auto add = [&](std::string const& line, std::optional<std::string> got, std::optional<std::string> want) {
    if (!reported.count(std::string_view(line).substr(0, line.find('.')))) return;
    out.push_back(Difference{sw, line, std::move(got), std::move(want)});
  };
  while (s != soaked.end() || f != fresh.end()) {
    if (f == fresh.end() || (s != soaked.end() && less(s->first, f->first))) {
      add(s->first, s->second, std::nullopt);
      ++s;
    } else if (s == soaked.end() || less(f->first, s->first)) {
      add(f->first, std::nullopt, f->second);
      ++f;
    } else {
      if (s->second != f->second) add(s->first, s->second, f->second);
      ++s;
      ++f;
    }
  }
}

// Runs steps on a pair, reporting nothing; what the library refuses is left out as it is in any run.
void runQuietly(Pair& pair, std::vector<Step> const& steps) {
  Scenario sc;
  sc.file = "soak";
  sc.steps = steps;
  std::ostringstream discard;
  RunOptions options;
  options.quiet = true;
  Runner(pair, sc, discard, options).run();
}

}  // namespace

CheckOutcome soakCheck(Pair& pair, InputState const& inputs, FreshFault const& fault) {
  CheckOutcome outcome;
  outcome.settled = pair.nextDue() == Brix::never;
  Flat const soaked[2] = {flattenSwitch(pair.a), flattenSwitch(pair.b)};
  Flat fresh[2];
  {
    Pair other;
    runQuietly(other, inputs.freshSteps());
    fresh[0] = flattenSwitch(other.a);
    fresh[1] = flattenSwitch(other.b);
  }
  pair.resumeTime();
  Placeholders const values{
      {"{vni}", inputs.conflictedVnis()},
      {"{arpKey}", inputs.sharedActiveArpKeys()},
      {"{arpAddr}", inputs.sharedArpAddrs()},
      {"{goneVti}", inputs.goneVtis()},
      {"{bareBumVlan}", inputs.bareBumVlans()},
      {"{afterVtiLoss}", inputs.vtiLostBesideOthers() ? std::set<std::string>{""} : std::set<std::string>{}}};
  auto const reported = reportedNames(pair.a);
  std::vector<Difference> all;
  for (std::size_t i = 0; i < 2; ++i) {
    if (fault) fault(i, fresh[i]);
    differ(i, soaked[i], fresh[i], reported, all);
  }
  std::vector<std::string> lines;
  lines.reserve(all.size());
  for (Difference const& d : all) lines.push_back(d.line);
  for (Difference& d : all) {
    if (LeftBehind const* e = excusedBy(d.line, !d.fresh, values, lines)) {
      ++outcome.excused[e->pattern];
    } else {
      outcome.differences.push_back(std::move(d));
    }
  }
  for (Disagreement& d : agreementCheck(pair)) {
    if (d.configuration) {
      ++outcome.configDisagreements;
    } else {
      outcome.disagreements.push_back(std::move(d));
    }
  }
  return outcome;
}

namespace {

// Random events over every input the simulator knows, each as the YAML of one or more steps.
// The value domains are small so that writes collide.
class Generator {
 public:
  Generator(std::uint64_t seed, SoakMix mix) : rng_(seed), mix_(mix) {}

  std::vector<std::string> next() {
    switch (mix_) {
      case SoakMix::flaps:
        return flap();
      case SoakMix::swaps:
        return swap();
      case SoakMix::all:
        break;
    }
    return any();
  }

  // Restores the link if cut and lets time pass until nothing is due.
  std::string settle() {
    std::string s = fmt::format("note: settle\nadvance: {}\n", soakSettleTime);
    if (!linkUp_) s += "link: restore\n";
    linkUp_ = true;
    return s;
  }

  // Both sides in the pair with a VTI each: where the flaps and swaps start from.
  std::vector<std::string> formPair() {
    role_ = {"primary", "secondary"};
    std::vector<std::string> out{
        "A: {role: primary, vti: {Vxlan1: {localVtepAddr: 10.0.0.1, mlagVtepAddr: 10.0.0.11}}}\n"
        "B: {role: secondary, vti: {Vxlan1: {localVtepAddr: 10.0.0.2, mlagVtepAddr: 10.0.0.11}}}\n"};
    for (int i = 0; i < 4; ++i) out.push_back(mapping());
    return out;
  }

 private:
  std::size_t pick(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_); }
  template <class T, std::size_t N>
  T const& of(T const (&items)[N]) {
    return items[pick(N)];
  }
  bool coin() { return pick(2) == 0; }
  char const* who() { return coin() ? "A" : "B"; }

  static std::string set(char const* sw, std::string const& path, std::string const& value) {
    return fmt::format("{}:\n  set:\n    \"{}\": {}\n", sw, path, value);
  }
  static std::string del(char const* sw, std::string const& path) {
    return fmt::format("{}:\n  delete: [\"{}\"]\n", sw, path);
  }
  std::string setOrDelete(std::string const& path, std::string const& value) {
    return pick(4) == 0 ? del(who(), path) : set(who(), path, value);
  }

  std::string mapping() {
    static constexpr int vlans[] = {10, 20, 30};
    static constexpr int vnis[] = {10010, 10020, 10030, 0};
    static constexpr char const* sources[] = {"static", "evpn"};
    int const vlan = of(vlans);
    // The full mix lets a VNI land on two VLANs; the flaps and swaps keep each VLAN to its own VNI
    // (the two sides may still differ), so that their checks stay strict.
    int const vni =
        mix_ == SoakMix::all ? of(vnis) : (pick(4) == 0 ? 0 : 10000 + vlan + 1000 * static_cast<int>(pick(2)));
    std::string const value = vni == 0 ? "~" : fmt::format("{{vni: {}, source: {}}}", vni, of(sources));
    return fmt::format("{}:\n  vti:\n    {}:\n      vlanToVni: {{{}: {}}}\n", who(), vti(), vlan, value);
  }
  // A second VTI only in the full mix: the flaps and swaps keep to one, so that what they find
  // is about the link and the roles.
  std::string vti() { return mix_ == SoakMix::all && pick(8) == 0 ? "Vxlan2" : "Vxlan1"; }

  std::string roleIs(char const* sw, std::string const& role) {
    role_[sw[0] == 'A' ? 0 : 1] = role;
    return fmt::format("{}: {{role: {}}}\n", sw, role);
  }

  std::string advance() {
    static constexpr char const* times[] = {"0.1", "1", "5", "12"};
    return fmt::format("advance: {}\n", of(times));
  }

  std::vector<std::string> any() {
    static constexpr char const* macs[] = {"00:00:5e:00:01:01", "00:00:5e:00:01:02"};
    static constexpr char const* roles[] = {"primary", "secondary", "none"};
    switch (pick(16)) {
      case 0: {
        static constexpr char const* local[] = {"10.0.0.1", "10.0.0.2", "0.0.0.0"};
        static constexpr char const* mlag[] = {"10.0.0.11", "10.0.0.12", "0.0.0.0"};
        bool const isLocal = coin();
        return {fmt::format("{}:\n  vti:\n    {}: {{{}: {}}}\n", who(), vti(),
                            isLocal ? "localVtepAddr" : "mlagVtepAddr", isLocal ? of(local) : of(mlag))};
      }
      case 1:
      case 2:
        return {mapping()};
      case 3:
        if (pick(4) == 0) return {fmt::format("{}:\n  vti:\n    {}: ~\n", who(), vti())};
        return {roleIs(who(), of(roles))};
      case 4:
        linkUp_ = !linkUp_;
        return {linkUp_ ? "link: restore\n" : "link: cut\n"};
      case 5: {
        static constexpr char const* delays[] = {"0", "0.01", "0.2", "1"};
        return {fmt::format("delay: {}\n", of(delays))};
      }
      case 6:
        return {advance()};
      case 7: {
        // A switch leaves the pair and comes back as what it was.
        char const* sw = who();
        std::string const was = role_[sw[0] == 'A' ? 0 : 1];
        std::string back = was == "none" ? "primary" : was;
        return {roleIs(sw, "none"), advance(), roleIs(sw, back)};
      }
      case 8: {
        static constexpr char const* vteps[] = {"10.9.9.9", "10.8.8.8"};
        return {setOrDelete(fmt::format("vxlanFdbStatus.learnedHost[{}/{}]", of(macs), coin() ? 10 : 20),
                            fmt::format("{{vtepIp: {}, lastMoveTime: {}}}", of(vteps), 1 + pick(50)))};
      }
      case 9:
        return {setOrDelete(
            fmt::format("bridgingStatus.shoalFdbStatus[{}/{}]", of(macs), coin() ? 10 : 20),
            fmt::format("{{intf: Vxlan1, lastMoveTime: {}, moves: 1, entryType: learnedRemoteMac}}", 1 + pick(50)))};
      case 10:
        return {setOrDelete(fmt::format("controllerStatus[{}].macVtepTable[{}]", coin() ? 10010 : 10020, of(macs)),
                            fmt::format("{{vtepIp: 10.7.7.7, preference: {}}}", pick(8)))};
      case 11:
        if (coin()) return {set(who(), "arpInputConfig.source", coin() ? "dynamic" : "static")};
        return {setOrDelete(fmt::format("arpInputConfig.vrf[red].ipv4[10.0.10.5/Vlan{}]", coin() ? 10 : 20),
                            fmt::format("{{ethAddr: {}}}", of(macs)))};
      case 12: {
        static constexpr char const* peers[] = {"10.0.0.2", "10.9.9.9"};
        if (coin()) {
          return {set(who(), fmt::format("bfdStatusPeer.peerStatus[{}/Vxlan1/3].operState", of(peers)),
                      coin() ? "up" : "down")};
        }
        return {setOrDelete(fmt::format("vtepStatusDir.vtepStatusV2[Vxlan1].bfdPeerStatus[{}]", of(peers)),
                            fmt::format("{{status: {}}}", 1 + pick(2)))};
      }
      case 13: {
        static constexpr char const* dests[] = {"10.0.0.2", "10.0.0.3"};
        std::string const vlan = fmt::format("sdeInput.vlanFloodSet[{}]", coin() ? 10 : 20);
        switch (pick(4)) {
          case 0:
            return {set(who(), "sdeInput.sourceInitialized", coin() ? "true" : "false")};
          case 1:
            return {del(who(), vlan)};
          case 2:
            return {set(who(), vlan + ".floodSet[00:00:00:00:00:00].floodSetType", coin() ? "all" : "any")};
          default:
            return {set(who(), vlan + fmt::format(".floodSet[00:00:00:00:00:00].destSet[{}]", of(dests)), "true")};
        }
      }
      case 14: {
        switch (pick(4)) {
          case 0:
            return {set(who(), "activeArpConfig.arpSelectiveInstall", coin() ? "true" : "false")};
          case 1:
            return {setOrDelete(fmt::format("activeArpConfig.validSvi[{}]", coin() ? 10 : 20), "true")};
          case 2:
            return {set(who(), "corestateActiveArp.l2LearningCapable", coin() ? "true" : "false")};
          default:
            return {
                setOrDelete(fmt::format("corestateActiveArp.localIpMac[10.0.10.5/{}]", coin() ? 10 : 20), of(macs))};
        }
      }
      default:
        return {setOrDelete(fmt::format("corestateActiveArp.remoteIp[10.0.20.9/{}]", coin() ? 10 : 20), "true")};
    }
  }

  // The link goes down and comes back, now and then with a change in between.
  std::vector<std::string> flap() {
    std::vector<std::string> out{"link: cut\n" + advance()};
    if (pick(4) == 0) out.push_back(mapping());
    out.push_back("link: restore\n" + advance());
    return out;
  }

  // The roles change places, at once or one side after the other.
  std::vector<std::string> swap() {
    std::string const a = role_[0] == "primary" ? "secondary" : "primary";
    std::string const b = a == "primary" ? "secondary" : "primary";
    if (coin()) return {roleIs("A", a) + roleIs("B", b)};
    if (coin()) return {roleIs("A", a), advance(), roleIs("B", b)};
    return {roleIs("B", b), roleIs("A", a)};
  }

  std::mt19937_64 rng_;
  SoakMix mix_;
  bool linkUp_ = true;
  std::array<std::string, 2> role_{"none", "none"};
};

long residentKiB() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

// What failed, a line each, the first few of them.
std::string describe(CheckOutcome const& o) {
  constexpr std::size_t shown = 12;
  std::string out;
  std::size_t lines = 0;
  char const* names[2] = {"A", "B"};
  if (!o.settled) out += "  the pair does not settle: something is still due\n";
  for (Difference const& d : o.differences) {
    if (++lines > shown) continue;
    out += fmt::format("  {} {}: {} here, {} in a fresh pair\n", names[d.switchIndex], d.line,
                       d.soaked.value_or("absent"), d.fresh.value_or("absent"));
  }
  for (Disagreement const& d : o.disagreements) {
    if (++lines > shown) continue;
    out += fmt::format("  {}: {} {} holds {}, not {}\n", d.what, names[d.switchIndex], d.line,
                       d.found.value_or("nothing"), d.wanted.value_or("nothing"));
  }
  if (lines > shown) out += fmt::format("  ... and {} more\n", lines - shown);
  return out;
}

// The lines a failure is about, each with the switch that shows it.
std::set<std::string> failingLines(CheckOutcome const& o) {
  std::set<std::string> out;
  if (!o.settled) out.insert("(settle)");
  for (Difference const& d : o.differences) out.insert(std::to_string(d.switchIndex) + d.line);
  for (Disagreement const& d : o.disagreements) out.insert(std::to_string(d.switchIndex) + d.line);
  return out;
}

// Runs steps and a settle on a pair of its own, then checks it.
CheckOutcome replay(std::vector<Step> const& steps, FreshFault const& fault) {
  std::vector<Step> all = steps;
  all.push_back(stepOf(fmt::format("link: restore\nadvance: {}\n", soakSettleTime)));
  Pair pair;
  runQuietly(pair, all);
  InputState inputs;
  for (Step const& s : all) inputs.apply(s);
  return soakCheck(pair, inputs, fault);
}

// The settle that ends a failing scenario, with an expectation for each line that fails: what
// the line holds in a fresh pair, or on the other side. Lines that no expectation can name
// (none so far) are left to the description.
Step failingSettle(CheckOutcome const& o) {
  YAML::Node expect(YAML::NodeType::Map);
  auto add = [&](std::size_t sw, std::string const& line, std::optional<std::string> const& want) {
    YAML::Node value;
    if (want) {
      value["value"] = *want;
    } else {
      value = "absent";
    }
    YAML::Node one(YAML::NodeType::Map);
    one[sw == 0 ? "A" : "B"][line] = value;
    try {
      double time = 0;
      YAML::Node probe(YAML::NodeType::Map);
      probe["expect"] = one;
      (void)parseStep(YAML::Load(YAML::Dump(probe)), time);
      expect[sw == 0 ? "A" : "B"][line] = value;
    } catch (ScenarioError const&) {
    }
  };
  for (Difference const& d : o.differences) add(d.switchIndex, d.line, d.fresh);
  for (Disagreement const& d : o.disagreements) add(d.switchIndex, d.line, d.wanted);
  YAML::Node n(YAML::NodeType::Map);
  n["note"] = "settle: a fresh pair given the same inputs holds what is expected here";
  n["link"] = "restore";
  n["advance"] = fmt::format("{}", soakSettleTime);
  if (expect.size() > 0) n["expect"] = expect;
  return stepOf(YAML::Dump(n));
}

}  // namespace

SoakResult runSoak(SoakOptions const& options, std::ostream& out) {
  auto const started = std::chrono::steady_clock::now();
  std::int64_t const nodesBefore = Brix::Node::liveCount();
  SoakResult result;
  std::string const outPath =
      options.outPath.empty() ? fmt::format("soak-failure-{}.yaml", options.seed) : options.outPath;
  std::map<std::string, std::size_t> excused;
  std::size_t configChecks = 0;
  std::size_t refused = 0;
  {
    Pair pair;
    Generator gen(options.seed, options.mix);
    std::mt19937_64 when(options.seed ^ 0x5eedULL);
    InputState inputs;        // all the inputs so far
    InputState checked;       // as of the last check that passed
    std::vector<Step> since;  // the steps since then
    Scenario current;
    current.file = fmt::format("soak seed {}", options.seed);
    std::ostringstream discard;
    RunOptions quiet;
    quiet.quiet = true;
    Runner runner(pair, current, discard, quiet);
    auto run = [&](std::string const& text) {
      current.steps.assign(1, stepOf(text));
      runner.stepRun(0);
      inputs.apply(current.steps[0]);
      since.push_back(std::move(current.steps[0]));
      ++result.steps;
    };
    // A check: the settle, then the pair against a fresh one. False when it failed.
    auto check = [&](std::size_t event) {
      run(gen.settle());
      ++result.checks;
      CheckOutcome o = soakCheck(pair, inputs, options.fault);
      for (auto const& [pattern, n] : o.excused) excused[pattern] += n;
      configChecks += o.configDisagreements > 0;
      if (!o.failed()) {
        checked = inputs;
        since.clear();
        return true;
      }
      out << fmt::format("soak: seed {}: check after event {} (step {}) failed:\n{}", options.seed, event, result.steps,
                         describe(o));
      // The steps from the last good check, led by its inputs written at once; shrunk when
      // that still fails as this did.
      std::vector<Step> steps = checked.freshSteps(true);
      steps.insert(steps.end(), since.begin(), since.end());
      steps.pop_back();  // the settle: a replay ends with one of its own
      std::set<std::string> const lines = failingLines(o);
      auto fails = [&](std::vector<Step> const& candidate) {
        std::set<std::string> now = failingLines(replay(candidate, options.fault));
        return std::any_of(lines.begin(), lines.end(), [&](std::string const& l) { return now.count(l) > 0; });
      };
      bool const reproduced = fails(steps);
      if (reproduced) steps = shrink(std::move(steps), fails);
      CheckOutcome const last = reproduced ? replay(steps, options.fault) : o;
      steps.push_back(failingSettle(last));
      Scenario sc;
      sc.name = fmt::format("Soak failure, seed {}", options.seed);
      sc.description = fmt::format(
          "mlagvxlan-sim --soak {} --seed {}: the check after event {} failed{}.\n{}", options.events, options.seed,
          event, reproduced ? ", shrunk to these steps" : " (not reproduced from the last check)", describe(last));
      sc.steps = steps;
      std::ofstream file(outPath, std::ios::trunc);
      file << writeScenario(sc);
      file.close();
      result.written = outPath;
      result.shrunkSteps = steps.size();
      // The file must fail as the soak did when replayed.
      Scenario back = parseScenario(writeScenario(sc), outPath);
      std::ostringstream sink;
      {
        Pair again;
        RunResult r = runScenario(again, back, sink, quiet);
        result.replays = r.failed > 0;
      }
      pair.resumeTime();
      out << fmt::format("soak: {} steps written to {}{}\n", steps.size(), outPath,
                         result.replays ? "" : " (its expectations hold when replayed: see its description)");
      result.failed = true;
      return false;
    };
    if (options.mix != SoakMix::all) {
      for (std::string const& s : gen.formPair()) run(s);
    }
    for (std::size_t e = 1; e <= options.events; ++e) {
      for (std::string const& s : gen.next()) run(s);
      ++result.events;
      if (e == 1000) result.rssAt1k = residentKiB();
      bool const last = e == options.events;
      if ((last || std::uniform_real_distribution<double>(0, 1)(when) < options.checkChance) && !check(e)) break;
    }
    refused = runner.result().refused;
  }
  result.rssEnd = residentKiB();
  std::int64_t const nodesAfter = Brix::Node::liveCount();
  result.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  out << fmt::format("soak: seed {}, {} events in {} steps, {} checks, {:.2f} s\n", options.seed, result.events,
                     result.steps, result.checks, result.wallSeconds);
  for (auto const& [pattern, n] : excused) out << fmt::format("  excused {} times: {}\n", n, pattern);
  if (configChecks > 0) out << fmt::format("  {} checks found the two configurations disagreeing\n", configChecks);
  if (refused > 0) out << fmt::format("  {} inputs refused by the library\n", refused);
  out << fmt::format("  resident set: {} KiB after event 1000, {} KiB after event {}\n",
                     result.rssAt1k ? std::to_string(result.rssAt1k) : std::string("-"), result.rssEnd, result.events);
  if (char const* dir = std::getenv("RINGLOGDIR")) {
    std::error_code ec;
    auto const size = std::filesystem::file_size(std::filesystem::path(dir) / "Mlag-Vxlan.rl", ec);
    std::uint64_t configured = 0;
    for (auto kib : MlagVxlan::vxlanRlSizeSpec().size) configured += kib;
    if (!ec) out << fmt::format("  ring file: {} KiB, configured {} KiB of rings\n", size / 1024, configured);
  }
  if (nodesAfter != nodesBefore) {
    out << fmt::format("soak: {} live nodes after the pair is gone, {} before\n", nodesAfter, nodesBefore);
    result.failed = true;
  } else {
    out << fmt::format("  live nodes back to {} after the pair is gone\n", nodesBefore);
  }
  out << (result.failed ? "soak FAILED\n" : "soak passed\n");
  return result;
}

}  // namespace Sim
