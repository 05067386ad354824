#include "BenchTable.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace BenchTable {

namespace {

double nsPer(std::string const& unit) {
  if (unit == "ns") return 1;
  if (unit == "us") return 1e3;
  if (unit == "ms") return 1e6;
  if (unit == "s") return 1e9;
  return 0;  // not a time
}

[[noreturn]] void failAt(std::string const& file, YAML::Node const& n, std::string const& what) {
  throw Error(fmt::format("{}:{}: {}", file, n.Mark().is_null() ? 1 : n.Mark().line + 1, what));
}

std::optional<double> number(std::string const& file, YAML::Node const& row, char const* key) {
  YAML::Node n = row[key];
  if (!n) return std::nullopt;
  try {
    double v = n.as<double>();
    if (v > 0) return v;
  } catch (YAML::Exception const&) {
  }
  failAt(file, n, fmt::format("'{}' must be a number above 0", key));
}

}  // namespace

std::vector<Target> parseTargets(std::string const& yamlText, std::string const& file) {
  YAML::Node doc;
  try {
    doc = YAML::Load(yamlText);
  } catch (YAML::Exception const& e) {
    throw Error(fmt::format("{}:{}: not valid YAML: {}", file, e.mark.line + 1, e.msg));
  }
  if (!doc.IsSequence()) failAt(file, doc, "expected a list of rows");
  std::vector<Target> out;
  for (auto const& row : doc) {
    if (!row.IsMap()) failAt(file, row, "a row is a map");
    for (auto const& kv : row) {
      static constexpr char const* known[] = {"name", "figure", "baseline", "unit", "max", "min", "ratio"};
      std::string const key = kv.first.as<std::string>();
      if (std::find(std::begin(known), std::end(known), key) == std::end(known))
        failAt(file, kv.first, "unknown key '" + key + "'");
    }
    Target t;
    for (auto [key, into] : {std::pair{"name", &t.name}, std::pair{"figure", &t.figure}, std::pair{"unit", &t.unit}}) {
      if (!row[key] || !row[key].IsScalar() || row[key].Scalar().empty())
        failAt(file, row, fmt::format("a row needs '{}'", key));
      *into = row[key].Scalar();
    }
    if (row["baseline"]) t.baseline = row["baseline"].as<std::string>();
    t.max = number(file, row, "max");
    t.min = number(file, row, "min");
    t.ratio = number(file, row, "ratio");
    if (t.ratio && !t.baseline) failAt(file, row, "a ratio needs a baseline");
    if (!t.max && !t.min && !t.ratio) failAt(file, row, "a row needs a target: max, min or ratio");
    out.push_back(std::move(t));
  }
  return out;
}

void Results::add(std::string const& program, nlohmann::json const& output) {
  if (!output.contains("benchmarks") || !output["benchmarks"].is_array())
    throw Error(program + ": not the JSON output of a benchmark program");
  for (auto const& b : output["benchmarks"]) {
    if (b.value("run_type", "iteration") != "iteration" || b.contains("error_occurred")) continue;
    std::string const key = program + "/" + b.value("name", "");
    if (timesNs_.contains(key)) continue;  // the first repetition stands
    timesNs_[key] = b.value("cpu_time", 0.0) * nsPer(b.value("time_unit", "ns"));
    for (auto const& [name, v] : b.items()) {
      if (v.is_number() && name != "cpu_time" && name != "real_time" && name != "iterations")
        counters_[fmt::format("{}:{}", key, name)] = v.get<double>();
    }
  }
}

std::optional<double> Results::figure(std::string const& key, std::string const& unit) const {
  if (auto it = timesNs_.find(key); it != timesNs_.end()) {
    if (nsPer(unit) == 0) throw Error("'" + key + "' is a time: its unit is ns, us, ms or s, not '" + unit + "'");
    return it->second / nsPer(unit);
  }
  if (auto it = counters_.find(key); it != counters_.end()) return it->second;
  return std::nullopt;
}

std::vector<Row> evaluate(std::vector<Target> const& targets, Results const& results) {
  std::vector<Row> rows;
  for (auto const& t : targets) {
    Row r;
    r.target = t;
    r.value = results.figure(t.figure, t.unit);
    if (t.baseline) r.baseline = results.figure(*t.baseline, t.unit);
    if (!r.value) r.missing = t.figure;
    if (t.baseline && !r.baseline) r.missing = *t.baseline;
    if (r.value && r.baseline && *r.baseline > 0) r.ratio = *r.value / *r.baseline;
    r.met = r.missing.empty() && (!t.max || *r.value <= *t.max) && (!t.min || *r.value >= *t.min) &&
            (!t.ratio || (r.ratio && *r.ratio <= *t.ratio));
    rows.push_back(std::move(r));
  }
  return rows;
}

std::string targetText(Target const& t) {
  std::vector<std::string> parts;
  if (t.max) parts.push_back(fmt::format("<= {:g} {}", *t.max, t.unit));
  if (t.min) parts.push_back(fmt::format(">= {:g} {}", *t.min, t.unit));
  if (t.ratio) parts.push_back(fmt::format("<= {:g}x", *t.ratio));
  return fmt::format("{}", fmt::join(parts, ", "));
}

namespace {
std::string figureText(std::optional<double> v, std::string const& unit) {
  if (!v) return "-";
  return fmt::format("{:.4g} {}", *v, unit);
}
}  // namespace

std::string tableText(std::vector<Row> const& rows) {
  std::vector<std::array<std::string, 6>> cells = {{"benchmark", "figure", "baseline", "ratio", "target", "met"}};
  for (auto const& r : rows) {
    cells.push_back({r.target.name, r.missing.empty() ? figureText(r.value, r.target.unit) : "no result",
                     figureText(r.baseline, r.target.unit), r.ratio ? fmt::format("{:.2f}x", *r.ratio) : "-",
                     targetText(r.target), r.met ? "yes" : "NO"});
  }
  std::array<std::size_t, 6> width{};
  for (auto const& line : cells)
    for (std::size_t i = 0; i < line.size(); ++i) width[i] = std::max(width[i], line[i].size());
  std::string out;
  for (auto const& line : cells) {
    for (std::size_t i = 0; i < line.size(); ++i)
      out += fmt::format("{:<{}}{}", line[i], i + 1 < line.size() ? width[i] : 0, i + 1 < line.size() ? "  " : "\n");
  }
  return out;
}

nlohmann::json tableJson(std::vector<Row> const& rows) {
  nlohmann::json out = nlohmann::json::array();
  auto orNull = [](std::optional<double> v) { return v ? nlohmann::json(*v) : nlohmann::json(); };
  for (auto const& r : rows) {
    out.push_back({{"name", r.target.name},
                   {"value", orNull(r.value)},
                   {"unit", r.target.unit},
                   {"baseline", orNull(r.baseline)},
                   {"ratio", orNull(r.ratio)},
                   {"target", targetText(r.target)},
                   {"met", r.met}});
  }
  return out;
}

}  // namespace BenchTable
