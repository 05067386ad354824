#include "Scenario.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <set>
#include <sstream>

#include "Values.h"
#include "types/Mlag.h"

namespace Sim {

namespace {

std::string listOf(std::initializer_list<char const*> names) {
  std::string out;
  for (char const* n : names) out += (out.empty() ? "" : ", ") + std::string(n);
  return out;
}

// A key written twice would silently lose one of its values.
void checkUnique(YAML::Node const& n) {
  std::set<std::string> seen;
  for (auto const& kv : n) {
    if (kv.first.IsScalar() && !seen.insert(kv.first.Scalar()).second) {
      failAt(kv.first, "'" + kv.first.Scalar() + "' is written twice in the same map");
    }
  }
}

void checkKeys(YAML::Node const& n, std::initializer_list<char const*> allowed, std::string const& what) {
  checkUnique(n);
  for (auto const& kv : n) {
    std::string const key = kv.first.IsScalar() ? kv.first.Scalar() : std::string();
    bool known = false;
    for (char const* a : allowed) known = known || key == a;
    if (!known) {
      std::string message = "unknown key '" + key + "' in ";
      message += what;
      message += " (expected " + listOf(allowed) + ")";
      failAt(kv.first, message);
    }
  }
}

void requireMap(YAML::Node const& n, YAML::Node const& at, std::string const& what) {
  if (!n.IsMap()) failAt(n.IsNull() ? at : n, what);
  checkUnique(n);
}

template <class T>
T read(YAML::Node const& n, std::string const& what) {
  T v{};
  std::string error;
  if (!readValue(n, v, error)) failAt(n, what + ": " + error);
  return v;
}

double seconds(YAML::Node const& n, std::string const& what) {
  double v = read<double>(n, what);
  if (!std::isfinite(v) || v < 0) failAt(n, what + ": expected a number of seconds, 0 or more");
  return v;
}

std::size_t switchIndex(YAML::Node const& n) {
  std::string const s = n.IsScalar() ? n.Scalar() : std::string();
  if (s == "A") return 0;
  if (s == "B") return 1;
  failAt(n, "unknown switch '" + s + "' (the pair is A and B)");
}

Mlag::MlagState roleOf(YAML::Node const& n) {
  if (n.IsScalar() && n.Scalar() == "none") return Mlag::MlagState::disabled;
  Mlag::MlagState state{};
  std::string error;
  if (!readValue(n, state, error)) failAt(n, "role: expected primary, secondary or none (" + error + ")");
  return state;
}

// A VTI by name: ~ takes it out of the directory; a map writes its status, made if absent.
void parseVti(YAML::Node const& name, YAML::Node const& body, std::vector<SwitchOp>& ops) {
  auto intf = read<Lanx::IntfId>(name, "VTI");
  if (body.IsNull()) {
    ops.push_back([intf](SwitchEntities& s) { (void)s.vtiStatusDir->vtiStatusDel(intf); });
    return;
  }
  requireMap(body, name, "a VTI is a map of its attributes, or ~ to remove it");
  ops.push_back([intf](SwitchEntities& s) { (void)s.vtiStatusDir->vtiStatusIs(intf); });
  std::string const prefix = "vtiStatusDir.vtiStatus[" + name.Scalar() + "]";
  for (auto const& kv : body) {
    if (!kv.first.IsScalar() || kv.first.Scalar() != "vlanToVni") {
      ops.push_back(compileSet(kv.first, kv.second, prefix));
      continue;
    }
    requireMap(kv.second, kv.first, "vlanToVni is a map of VLAN: VNI or VLAN: {vni: .., source: ..}");
    for (auto const& m : kv.second) {
      auto vlan = read<Bridging::ExtendedVlanId>(m.first, "vlanToVni");
      if (m.second.IsNull()) {
        ops.push_back([intf, vlan](SwitchEntities& s) {
          Brix::Ptr<Vxlan::VtiStatus> vti = s.vtiStatusDir->vtiStatus(intf);
          (void)vti->extendedVlanToVniMapDel(vlan);
          if (vlan.value() <= Bridging::VlanId::max) (void)vti->vlanToVniMapDel(Bridging::VlanId(vlan));
        });
        continue;
      }
      auto pair = read<Vxlan::VniSourcePair>(m.second, "VLAN " + m.first.Scalar());
      if (pair.intfId().isEmpty()) pair.intfIdIs(intf);
      ops.push_back([intf, vlan, pair](SwitchEntities& s) {
        Brix::Ptr<Vxlan::VtiStatus> vti = s.vtiStatusDir->vtiStatus(intf);
        vti->extendedVlanToVniMapIs(vlan, pair);
        if (vlan.value() <= Bridging::VlanId::max) vti->vlanToVniMapIs(Bridging::VlanId(vlan), pair);
      });
    }
  }
}

void parseInputs(YAML::Node const& key, YAML::Node const& n, std::vector<SwitchOp>& ops, std::string& summary) {
  std::string const who = key.Scalar();
  requireMap(n, key, "the inputs of " + who + " are a map (role, vti, set, delete)");
  checkKeys(n, {"role", "vti", "set", "delete"}, "the inputs of " + who);
  std::vector<std::string> parts;
  if (auto role = n["role"]) {
    Mlag::MlagState state = roleOf(role);
    // First of all: the plug-in reacts to it before any other input of the step.
    ops.push_back([state](SwitchEntities& s) { s.mlagStatus->mlagStateIs(state); });
    parts.push_back("role " + text(state));
  }
  if (auto vti = n["vti"]) {
    requireMap(vti, key, "vti is a map of VTI name: attributes (or ~ to remove it)");
    for (auto const& kv : vti) {
      parseVti(kv.first, kv.second, ops);
      parts.push_back((kv.second.IsNull() ? "remove vti " : "vti ") + kv.first.Scalar());
    }
  }
  if (auto set = n["set"]) {
    requireMap(set, key, "set is a map of path: value");
    for (auto const& kv : set) {
      ops.push_back(compileSet(kv.first, kv.second));
      parts.push_back(kv.first.Scalar());
    }
  }
  if (auto del = n["delete"]) {
    std::vector<YAML::Node> paths;
    if (del.IsScalar()) {
      paths.push_back(del);
    } else if (del.IsSequence()) {
      for (auto const& p : del) paths.push_back(p);
    } else {
      failAt(del.IsNull() ? key : del, "delete is a path or a list of paths");
    }
    for (auto const& p : paths) {
      ops.push_back(compileDelete(p));
      parts.push_back("delete " + (p.IsScalar() ? p.Scalar() : std::string("?")));
    }
  }
  if (parts.empty()) failAt(key, "no inputs for " + who);
  std::string s = who + ":";
  for (std::size_t i = 0; i < parts.size(); ++i) s += (i ? ", " : " ") + parts[i];
  if (!summary.empty()) summary += "; ";
  summary += s;
}

// `literal`: {value: X} takes X as a value, also where X reads "absent" or "present".
void parseExpected(YAML::Node const& v, Expectation& e, bool literal = false) {
  Probe const& p = e.probe;
  std::string const& path = p.line;
  if (!literal && v.IsScalar() && (v.Scalar() == "absent" || v.Scalar() == "present")) {
    if (p.kind == Probe::Kind::collection) failAt(v, "'" + path + "' is a collection: expect {count: N} of it");
    if (!p.optional) failAt(v, "'" + path + "' always has a value: expect the value");
    e.mode = v.Scalar() == "absent" ? Expectation::Mode::absent : Expectation::Mode::present;
    return;
  }
  if (!literal && v.IsMap() && p.kind == Probe::Kind::value && !v["count"] && !v["value"]) {
    checkUnique(v);
    for (auto const& kv : v) {
      if (!kv.first.IsScalar() || !kv.second.IsScalar()) failAt(kv.first, "a field of a record is name: value");
      e.fields.emplace_back(kv.first.Scalar(), kv.second.Scalar());
    }
    e.mode = Expectation::Mode::fields;
    return;
  }
  if (!literal && v.IsMap()) {
    checkKeys(v, {"count", "value"}, "an expectation");
    if (v.size() != 1) failAt(v, "expected one of {count: N} and {value: X}");
    if (auto c = v["count"]) {
      if (p.kind != Probe::Kind::collection) failAt(c, "'" + path + "' is not a collection: it has no count");
      e.mode = Expectation::Mode::count;
      e.count = read<std::uint64_t>(c, "count");
      return;
    }
    return parseExpected(v["value"], e, true);
  }
  if (!v.IsScalar()) failAt(v, "expected a value, absent, present or {count: N}");
  if (p.kind == Probe::Kind::entity) {
    failAt(v, "'" + path + "' is an entity: expect present or absent, or name one of its attributes");
  }
  if (p.kind == Probe::Kind::collection) {
    failAt(v, "'" + path + "' is a collection: expect {count: N}, or name one of its keys");
  }
  e.mode = Expectation::Mode::equals;
  e.value = p.canonical(v);
}

void parseExpect(YAML::Node const& key, YAML::Node const& n, std::vector<Expectation>& out) {
  requireMap(n, key, "expect is a map of switch (A, B) to a map of path: expected value");
  for (auto const& sw : n) {
    std::size_t idx = switchIndex(sw.first);
    requireMap(sw.second, sw.first, "the expectations of a switch are a map of path: expected value");
    for (auto const& kv : sw.second) {
      Expectation e;
      e.line = lineOf(kv.first);
      e.switchIndex = idx;
      e.probe = compileProbe(kv.first);
      parseExpected(kv.second, e);
      out.push_back(std::move(e));
    }
  }
}

}  // namespace

Step parseStep(YAML::Node const& n, double& time) {
  if (!n.IsMap()) failAt(n, "a step is a map (note, at, link, delay, A, B, advance, expect)");
  checkKeys(n, {"note", "at", "link", "delay", "toggles", "A", "B", "advance", "expect"}, "a step");
  Step s;
  s.line = lineOf(n);
  std::string summary;
  auto add = [&](std::string const& part) { summary += (summary.empty() ? "" : "; ") + part; };
  if (auto note = n["note"]) {
    if (!note.IsScalar()) failAt(note, "a note is text");
    s.note = note.Scalar();
  }
  if (auto at = n["at"]) {
    double t = seconds(at, "at");
    if (t < time) {
      std::ostringstream os;
      os << "at " << t << " lies before the time the scenario has already reached (" << time << " s)";
      failAt(at, os.str());
    }
    s.at = time = t;
  }
  if (auto link = n["link"]) {
    std::string const v = link.IsScalar() ? link.Scalar() : std::string();
    if (v != "cut" && v != "restore") failAt(link, "link: expected cut or restore");
    s.linkUp = v == "restore";
    add("link " + v);
  }
  if (auto delay = n["delay"]) {
    s.delay = seconds(delay, "delay");
    add("delay " + delay.Scalar() + " s");
  }
  if (auto toggles = n["toggles"]) {
    if (!toggles.IsMap()) failAt(toggles, "toggles: expected a map of toggle: true or false");
    checkKeys(toggles, {"BreakBridgingConfigVlanConfigVxlan"}, "toggles");
    bool on = false;
    std::string error;
    if (YAML::Node v = toggles["BreakBridgingConfigVlanConfigVxlan"]; !readValue(v, on, error)) {
      failAt(v, "BreakBridgingConfigVlanConfigVxlan: " + error);
    }
    s.vlanConfigToggle = on;
    add(std::string("toggle BreakBridgingConfigVlanConfigVxlan ") + (on ? "on" : "off"));
  }
  for (auto const& kv : n) {
    if (kv.first.Scalar() == "A" || kv.first.Scalar() == "B") {
      std::size_t const who = switchIndex(kv.first);
      parseInputs(kv.first, kv.second, s.inputs[who], summary);
      s.inputsText[who] = YAML::Dump(kv.second);
    }
  }
  if (auto advance = n["advance"]) {
    s.advance = seconds(advance, "advance");
    time += *s.advance;
    add("advance " + advance.Scalar() + " s");
  }
  for (auto const& kv : n) {
    if (kv.first.Scalar() == "expect") {
      parseExpect(kv.first, kv.second, s.expect);
      s.expectText = YAML::Dump(kv.second);
    }
  }
  if (!s.at && summary.empty() && s.expect.empty()) failAt(n, "a step that does nothing");
  s.summary = summary;
  return s;
}

Scenario parseScenario(std::string_view text, std::string const& file) {
  Scenario sc;
  sc.file = file;
  try {
    YAML::Node root;
    try {
      root = YAML::Load(std::string(text));
    } catch (YAML::ParserException const& e) {
      throw ScenarioError(e.mark.is_null() ? 0 : e.mark.line + 1, "not valid YAML: " + e.msg);
    }
    // An empty document has no node to point at: its first line stands for it.
    if (!root.IsMap()) throw ScenarioError(std::max(1, lineOf(root)), "a scenario is a map with a list of steps");
    checkKeys(root, {"name", "description", "delay", "steps"}, "a scenario");
    if (auto name = root["name"]) sc.name = name.IsScalar() ? name.Scalar() : "";
    if (auto d = root["description"]) sc.description = d.IsScalar() ? d.Scalar() : "";
    if (auto delay = root["delay"]) sc.delay = seconds(delay, "delay");
    YAML::Node steps = root["steps"];
    if (!steps || !steps.IsSequence() || steps.size() == 0) {
      throw ScenarioError(steps ? lineOf(steps) : lineOf(root),
                          "a scenario needs steps: a list with at least one step");
    }
    double time = 0.0;
    for (auto const& step : steps) sc.steps.push_back(parseStep(step, time));
  } catch (ScenarioError const& e) {
    throw ScenarioError(e.line(), e.message(), file);
  } catch (YAML::Exception const& e) {
    throw ScenarioError(e.mark.is_null() ? 0 : e.mark.line + 1, e.msg, file);
  }
  return sc;
}

Scenario loadScenario(std::string const& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) {
    throw ScenarioError(0, std::filesystem::exists(path, ec) ? "not a file" : "no such file", path);
  }
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in && !in.eof()) throw ScenarioError(0, std::string("cannot read: ") + std::strerror(errno), path);
  return parseScenario(text.str(), path);
}

}  // namespace Sim
