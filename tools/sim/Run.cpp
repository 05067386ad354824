#include "Run.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>

#include "Agreement.h"
#include "TraceSink.h"
#include "entities/EntityJson.h"

namespace Sim {

Flat flattenSwitch(Switch const& s) {
  Flat out;
  s.forEachEntity([&](std::string_view name, auto const& ptr, bool) { flatten(*ptr, std::string(name) + ".", out); });
  for (auto const& [child, cls] : containerChildren(*s.container())) out["container." + std::string(child)] = cls;
  return out;
}

SwitchTracker::SwitchTracker(Switch const& s)
    : switch_(s), children_(containerChildren(*s.container())), flat_(flattenSwitch(s)) {
  s.forEachEntity([&](std::string_view name, auto const& ptr, bool) {
    using E = typename std::decay_t<decltype(ptr)>::element_type;
    watches_.push_back(std::make_unique<Watch<E>>(Brix::Ptr<E const>(ptr), std::string(name) + ".", touched_));
  });
}

// The container publishes nothing of its children's comings and goings; there are few of them,
// and their lines are touched only when the list differs from the last one read.
void SwitchTracker::containerRead() {
  auto present = containerChildren(*switch_.container());
  if (present == children_) return;
  for (std::string_view child : containerChildNames()) {
    std::string line = "container." + std::string(child);
    auto it = std::find_if(present.begin(), present.end(), [&](auto const& p) { return p.first == child; });
    if (it != present.end()) {
      touched_.lineIs(std::move(line), std::string(it->second));
    } else {
      touched_.lineGone(std::move(line));
    }
  }
  children_ = std::move(present);
}

std::vector<Change> SwitchTracker::take() {
  containerRead();
  std::vector<Change> out;
  for (auto& [line, value] : touched_.lines()) {
    auto it = flat_.find(line);
    if (!value) {
      if (it == flat_.end()) continue;
      out.push_back(Change{'-', line, std::move(it->second), {}, 1});
      flat_.erase(it);
    } else if (it == flat_.end()) {
      out.push_back(Change{'+', line, {}, *value, 1});
      flat_.emplace(line, std::move(*value));
    } else if (it->second != *value) {
      out.push_back(Change{'~', line, it->second, *value, 1});
      it->second = std::move(*value);
    }
  }
  // Not clear(): that wipes every bucket the largest step ever needed, at every step.
  touched_.lines() = {};
  NaturalLess less;
  std::sort(out.begin(), out.end(), [&](Change const& a, Change const& b) { return less(a.name, b.name); });
  return out;
}

namespace {

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

struct Found {
  bool present = false;
  std::string value;
  std::size_t count = 0;
};

Found look(Flat const& flat, Probe const& p) {
  Found f;
  switch (p.kind) {
    case Probe::Kind::value: {
      auto it = flat.find(p.line);
      if (it != flat.end()) f = Found{true, it->second, 0};
      break;
    }
    case Probe::Kind::entity: {
      // The lines under a prefix that ends in a separator stand together in the dump's order.
      std::string const dot = p.line + ".";
      std::string const bracket = p.line + "[";
      auto under = [&](std::string const& head) {
        auto it = flat.lower_bound(head);
        return it != flat.end() && startsWith(it->first, head);
      };
      f.present = flat.count(p.line) > 0 || under(dot) || under(bracket);
      break;
    }
    case Probe::Kind::collection: {
      std::string const bracket = p.line + "[";
      std::set<std::string_view> keys;
      for (auto it = flat.lower_bound(bracket); it != flat.end() && startsWith(it->first, bracket); ++it) {
        std::string const& k = it->first;
        std::size_t close = k.find(']', bracket.size());
        if (close != std::string::npos) keys.insert(std::string_view(k).substr(bracket.size(), close - bracket.size()));
      }
      f.count = keys.size();
      f.present = f.count > 0;
      break;
    }
  }
  return f;
}

// "name[123]" as ("name[", 123); false for any other form.
bool numericKey(std::string const& name, std::string& head, unsigned long& n) {
  if (name.empty() || name.back() != ']') return false;
  std::size_t open = name.rfind('[');
  if (open == std::string::npos || open + 2 > name.size() - 1) return false;
  std::string_view digits = std::string_view(name).substr(open + 1, name.size() - open - 2);
  if (digits.size() > 9 || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  head = name.substr(0, open + 1);
  n = std::stoul(std::string(digits));
  return true;
}

std::vector<Change> fold(std::vector<Change> const& in) {
  std::vector<Change> out;
  std::string lastHead;
  unsigned long first = 0;
  unsigned long last = 0;
  bool open = false;
  for (auto const& c : in) {
    std::string head;
    unsigned long n = 0;
    bool numeric = numericKey(c.name, head, n);
    if (open && numeric && head == lastHead && n == last + 1 && out.back().kind == c.kind &&
        out.back().before == c.before && out.back().after == c.after) {
      last = n;
      ++out.back().count;
      out.back().name = head + std::to_string(first) + ".." + std::to_string(last) + "]";
      continue;
    }
    out.push_back(c);
    open = numeric;
    lastHead = head;
    first = last = n;
  }
  return out;
}

// Whole-line changes, in the dump's order, by entity name, each row named without its entity
// and runs folded.
std::map<std::string, std::vector<Change>> byEntity(std::vector<Change> lines) {
  std::map<std::string, std::vector<Change>> raw;
  for (Change& c : lines) {
    std::size_t const dot = c.name.find('.');
    std::string entity = c.name.substr(0, dot);
    if (dot != std::string::npos) c.name.erase(0, dot + 1);
    raw[std::move(entity)].push_back(std::move(c));
  }
  for (auto& [entity, changes] : raw) changes = fold(changes);
  return raw;
}

// One pass over both dumps: the changes of every entity, by entity name.
std::map<std::string, std::vector<Change>> diffAll(Flat const& before, Flat const& after) {
  std::vector<Change> lines;
  NaturalLess less;
  auto b = before.begin();
  auto a = after.begin();
  while (b != before.end() || a != after.end()) {
    if (a == after.end() || (b != before.end() && less(b->first, a->first))) {
      lines.push_back(Change{'-', b->first, b->second, {}, 1});
      ++b;
    } else if (b == before.end() || less(a->first, b->first)) {
      lines.push_back(Change{'+', a->first, {}, a->second, 1});
      ++a;
    } else {
      if (a->second != b->second) lines.push_back(Change{'~', a->first, b->second, a->second, 1});
      ++a;
      ++b;
    }
  }
  return byEntity(std::move(lines));
}

constexpr std::size_t rowLimit = 40;

void printChanges(std::ostream& out, std::string const& title, std::vector<Change> const& changes) {
  out << "  " << title << '\n';
  std::size_t width = 0;
  for (std::size_t i = 0; i < changes.size() && i < rowLimit; ++i) width = std::max(width, changes[i].name.size());
  width = std::min<std::size_t>(width, 56);
  for (std::size_t i = 0; i < changes.size() && i < rowLimit; ++i) {
    Change const& c = changes[i];
    std::string value = c.kind == '+' ? c.after : c.kind == '-' ? c.before : c.before + " -> " + c.after;
    out << fmt::format("    {} {:<{}}  {}", c.kind, c.name, width, value);
    if (c.count > 1) out << fmt::format("  ({} keys)", c.count);
    out << '\n';
  }
  if (changes.size() > rowLimit) out << "    ... and " << changes.size() - rowLimit << " more\n";
}

std::string expected(Expectation const& e) {
  switch (e.mode) {
    case Expectation::Mode::equals:
      return e.value;
    case Expectation::Mode::absent:
      return "absent";
    case Expectation::Mode::present:
      return "present";
    case Expectation::Mode::count:
      return std::to_string(e.count) + (e.count == 1 ? " key" : " keys");
    case Expectation::Mode::fields: {
      std::string out;
      for (auto const& [name, value] : e.fields) out += fmt::format("{}{}={}", out.empty() ? "" : ", ", name, value);
      return out;
    }
  }
  return {};
}

// The value of field `name` in a record's text "a=1, key=(10, 00:11:22:33:44:55), b=x": the
// items are split at the commas outside brackets.
std::optional<std::string> fieldOf(std::string_view record, std::string_view name) {
  int depth = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= record.size(); ++i) {
    char const c = i < record.size() ? record[i] : ',';
    if (c == '(' || c == '[') ++depth;
    if (c == ')' || c == ']') --depth;
    if (c != ',' || depth > 0) continue;
    std::string_view item = record.substr(start, i - start);
    while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
    if (item.size() > name.size() && item.substr(0, name.size()) == name && item[name.size()] == '=') {
      return std::string(item.substr(name.size() + 1));
    }
    start = i + 1;
  }
  return std::nullopt;
}

// The step's time: where it starts, once its `at` is reached, and where it ends if it advances.
std::string stepTitle(Scenario const& sc, std::size_t i, Brix::Duration now) {
  Step const& s = sc.steps[i];
  std::string what = s.note.empty() ? s.summary : s.summary.empty() ? s.note : s.note + "  (" + s.summary + ")";
  if (what.empty()) what = "check";
  Brix::Duration const start = s.at ? *s.at : now;
  std::string const time =
      s.advance ? fmt::format("{:.3f}-{:.3f}", start, start + *s.advance) : fmt::format("{:.3f}", start);
  return fmt::format("[{}/{}] t={}  {}", i + 1, sc.steps.size(), time, what);
}

}  // namespace

bool expectationMet(Flat const& flat, Expectation const& e, std::string& found) {
  Found f = look(flat, e.probe);
  switch (e.mode) {
    case Expectation::Mode::equals:
      found = f.present ? f.value : "absent";
      return f.present && f.value == e.value;
    case Expectation::Mode::absent:
      found = f.present ? (e.probe.kind == Probe::Kind::value ? f.value : "present") : "absent";
      return !f.present;
    case Expectation::Mode::present:
      found = f.present ? "present" : "absent";
      return f.present;
    case Expectation::Mode::count:
      found = std::to_string(f.count) + (f.count == 1 ? " key" : " keys");
      return f.count == e.count;
    case Expectation::Mode::fields:
      found = f.present ? f.value : "absent";
      return f.present && std::all_of(e.fields.begin(), e.fields.end(),
                                      [&](auto const& nv) { return fieldOf(f.value, nv.first) == nv.second; });
  }
  return false;
}

std::vector<Change> diffEntity(Flat const& before, Flat const& after, std::string const& entity) {
  auto all = diffAll(before, after);
  auto it = all.find(entity);
  return it == all.end() ? std::vector<Change>{} : it->second;
}

void PairDriver::vlanConfigToggleIs(std::optional<bool> on) {
  MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(on);
}

LocalDriver::LocalDriver(Pair& pair) : pair_(pair) {
  trackers_[0] = std::make_unique<SwitchTracker>(pair.a);
  trackers_[1] = std::make_unique<SwitchTracker>(pair.b);
}

void switchInputsRun(Switch& sw, std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals) {
  Acting acting(sw.name());
  for (auto const& op : sc.steps[i].inputs[s]) {
    try {
      op(sw);
    } catch (std::exception const& e) {
      refusals.emplace_back(e.what());
    }
  }
}

void LocalDriver::inputsRun(std::size_t s, Scenario const& sc, std::size_t i, std::vector<std::string>& refusals) {
  switchInputsRun(sw(s), s, sc, i, refusals);
}

std::vector<Disagreement> LocalDriver::agreement() {
  return agreementCheck(agreementSide(pair_.a, flat(0)), agreementSide(pair_.b, flat(1)), pair_.linkUp());
}

bool LocalDriver::inPair(std::size_t s) { return sw(s).container()->primarySm() || sw(s).container()->secondarySm(); }

Runner::Runner(Pair& pair, Scenario const& sc, std::ostream& out, RunOptions const& options)
    : own_(std::make_unique<LocalDriver>(pair)), driver_(*own_), sc_(sc), out_(out), options_(options) {
  start();
}

Runner::Runner(PairDriver& driver, Scenario const& sc, std::ostream& out, RunOptions const& options)
    : driver_(driver), sc_(sc), out_(out), options_(options) {
  start();
}

void Runner::start() {
  // Each run starts from the process's own toggles, whatever an earlier run in it chose.
  driver_.vlanConfigToggleIs(std::nullopt);
  driver_.delayIs(sc_.delay);
  driver_.settle();
  // The report starts from the settled pair.
  (void)driver_.take(0);
  (void)driver_.take(1);
  if (!options_.quiet) {
    if (!sc_.name.empty()) out_ << sc_.name << '\n';
    if (!sc_.description.empty()) out_ << sc_.description << '\n';
    out_ << fmt::format("{} steps, peer link delay {} s\n", sc_.steps.size(), sc_.delay);
  }
}

void Runner::stepRun(std::size_t i) {
  Step const& step = sc_.steps[i];
  std::string const title = stepTitle(sc_, i, driver_.now());
  bool const showProgress = options_.progress && sc_.steps.size() >= options_.progressFrom;
  if (showProgress) *options_.progress << '\r' << title.substr(0, 100) << std::flush;
  if (!options_.quiet) out_ << '\n' << title << '\n';
  // What the library raises is its refusal of that input: reported with the step, and the run
  // goes on with the next input, as an agent goes on with its next event.
  std::vector<std::string> refusals;
  auto refused = [&](std::string const& who, std::string const& what) {
    refusals.push_back(fmt::format("  REFUSED  {}the library refused it: {}  ({}:{})", who, what, sc_.file, step.line));
  };
  auto guarded = [&](auto&& f) {
    try {
      f();
    } catch (std::exception const& e) {
      refused("", e.what());
    }
  };
  if (step.at) guarded([&] { driver_.advanceTo(*step.at); });
  if (step.linkUp) guarded([&] { driver_.linkUpIs(*step.linkUp); });
  if (step.delay) driver_.delayIs(*step.delay);
  for (std::size_t s = 0; s < 2; ++s) {
    std::vector<std::string> said;
    driver_.inputsRun(s, sc_, i, said);
    for (std::string const& what : said) refused(driver_.name(s) + ": ", what);
  }
  // A toggle is read when an agent starts: it changes only while neither switch is in the pair.
  if (step.vlanConfigToggle) {
    if (driver_.inPair(0) || driver_.inPair(1)) {
      refusals.push_back(
          fmt::format("  REFUSED  toggles: an agent reads them when it starts; take both switches "
                      "out of the pair first  ({}:{})",
                      sc_.file, step.line));
    } else {
      driver_.vlanConfigToggleIs(*step.vlanConfigToggle);
    }
  }
  guarded([&] { driver_.settle(); });
  if (step.advance) guarded([&] { driver_.advanceTo(driver_.now() + *step.advance); });

  std::vector<Change> lines[2] = {driver_.take(0), driver_.take(1)};
  if (!options_.quiet) {
    bool any = false;
    for (std::size_t s = 0; s < 2; ++s) {
      auto changes = byEntity(std::move(lines[s]));
      auto show = [&](std::string const& entity) {
        auto it = changes.find(entity);
        if (it == changes.end() || it->second.empty()) return;
        printChanges(out_, driver_.name(s) + " " + entity, it->second);
        any = true;
      };
      show("container");
      SwitchEntities::forEachEntityName([&](std::string_view name, bool reported) {
        if (reported) show(std::string(name));
      });
    }
    if (!any) out_ << "  (no change)\n";
  }

  bool headerShown = !options_.quiet;
  for (std::string const& r : refusals) {
    if (!headerShown) {
      out_ << title << '\n';
      headerShown = true;
    }
    out_ << r << '\n';
  }
  result_.refused += refusals.size();
  for (Expectation const& e : step.expect) {
    std::string found;
    bool ok = expectationMet(driver_.flat(e.switchIndex), e, found);
    std::string const& who = driver_.name(e.switchIndex);
    if (ok) {
      ++result_.met;
      if (!options_.quiet) out_ << fmt::format("  ok    {} {}: {}\n", who, e.probe.line, expected(e));
      continue;
    }
    ++result_.failed;
    if (!headerShown) {
      out_ << title << '\n';
      headerShown = true;
    }
    out_ << fmt::format("  FAIL  {} {}: expected {}, found {}  ({}:{})\n", who, e.probe.line, expected(e), found,
                        sc_.file, e.line);
  }
  ++result_.steps;
}

RunResult Runner::run() {
  for (std::size_t i = result_.steps; i < sc_.steps.size(); ++i) stepRun(i);
  if (options_.progress && sc_.steps.size() >= options_.progressFrom) *options_.progress << '\n';
  if (!options_.quiet) printAgreement(out_, driver_.agreement());
  out_ << fmt::format("\n{} steps run, {} expectations met, {} not met", result_.steps, result_.met, result_.failed);
  if (result_.refused > 0) out_ << fmt::format(", {} inputs refused by the library", result_.refused);
  out_ << '\n';
  return result_;
}

RunResult runScenario(Pair& pair, Scenario const& sc, std::ostream& out, RunOptions const& options) {
  return Runner(pair, sc, out, options).run();
}

RunResult runScenario(PairDriver& driver, Scenario const& sc, std::ostream& out, RunOptions const& options) {
  return Runner(driver, sc, out, options).run();
}

std::string stateJson(Pair const& pair) {
  Vok::EntityJson root = Vok::EntityJson::object();
  root["time"] = pair.now();
  for (Switch const* s : {&pair.a, &pair.b}) {
    Vok::EntityJson sw = Vok::EntityJson::object();
    Vok::EntityJson children = Vok::EntityJson::array();
    for (auto const& [child, cls] : containerChildren(*s->container())) children.push_back(std::string(child));
    sw["container"] = children;
    s->forEachEntity([&](std::string_view name, auto const& ptr, bool) { sw[std::string(name)] = Vok::toJson(*ptr); });
    // The controller's tables, by VNI, as a scenario names them.
    Vok::EntityJson dir = Vok::EntityJson::object();
    for (auto it = s->controllerStatusBaseDir->entities().begin(); !it.done(); it.advance()) {
      auto const* table = dynamic_cast<VxlanController::VniFdbStatusV2 const*>(it->value.get());
      dir[std::string(it->key.view())] = table ? Vok::toJson(*table) : Vok::EntityJson(it->value->typeData());
    }
    sw["controllerStatus"] = dir;
    root[s->name()] = sw;
  }
  return root.dump(2) + "\n";
}

}  // namespace Sim
