// The benchmark table: each row a figure of one benchmark, the figure of its mandated-work
// baseline, and the target they must meet. The rows are kept in one YAML file beside the
// benchmarks; the figures come from Google Benchmark's JSON output of each benchmark program.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace BenchTable {

// What is wrong with the targets file or a results file, with where.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A figure: "program/benchmark name" for its time, or "program/benchmark name:counter" for one
// of its counters (bytes per entry, items per second). Benchmark names hold colons of their own
// (iterations:2000000), so a figure is looked up as a whole.
struct Target {
  std::string name;
  std::string figure;
  std::optional<std::string> baseline;
  std::string unit;  // ns, us, ms, s for times; anything for a counter
  std::optional<double> max;
  std::optional<double> min;
  std::optional<double> ratio;  // figure / baseline at most this
};

std::vector<Target> parseTargets(std::string const& yamlText, std::string const& file);

// Every figure of every results file, by "program/benchmark name" (its CPU time per iteration)
// and "program/benchmark name:counter". `program` names the benchmark program of a file. A time
// asked for in a unit that is not one of time raises Error.
class Results {
 public:
  void add(std::string const& program, nlohmann::json const& output);
  std::optional<double> figure(std::string const& key, std::string const& unit) const;

 private:
  std::map<std::string, double> timesNs_;
  std::map<std::string, double> counters_;
};

struct Row {
  Target target;
  std::optional<double> value;
  std::optional<double> baseline;
  std::optional<double> ratio;
  bool met = false;
  std::string missing;  // the figure not found, if any
};

std::vector<Row> evaluate(std::vector<Target> const& targets, Results const& results);

// "<= 5 ms, <= 1.5x baseline"
std::string targetText(Target const& t);
// The table as text, one line per row, columns aligned.
std::string tableText(std::vector<Row> const& rows);
// The rows as a JSON list of {name, value, unit, baseline, ratio, target, met}.
nlohmann::json tableJson(std::vector<Row> const& rows);

}  // namespace BenchTable
