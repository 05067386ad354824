// mlagvxlan-benchtable: the benchmark table from the JSON output of the benchmark programs.
//
//   mlagvxlan-benchtable --targets bench/targets.yaml [--json FILE] [--no-check] RESULTS.json...
//
// Each results file is named after its program (arp_bench.json). Prints the table; the exit
// code is 0 when every row is met (or, with --no-check, when every row has its figures), 1 when
// one is not, 2 for a bad file or flag.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "BenchTable.h"

namespace {

std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw BenchTable::Error(path + ": cannot be read");
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"The benchmark table: each figure beside its baseline and its target"};
  std::string targetsPath;
  std::string jsonPath;
  bool noCheck = false;
  std::vector<std::string> results;
  app.add_option("--targets", targetsPath, "the rows: a YAML list of targets")->required();
  app.add_option("--json", jsonPath, "also write the rows as JSON to this file");
  app.add_flag("--no-check", noCheck, "require every figure, but no target (a short pass)");
  app.add_option("results", results, "Google Benchmark JSON files, one per program, named after it")->required();
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  try {
    auto targets = BenchTable::parseTargets(readFile(targetsPath), targetsPath);
    BenchTable::Results figures;
    for (auto const& path : results) {
      nlohmann::json output;
      try {
        output = nlohmann::json::parse(readFile(path));
      } catch (nlohmann::json::parse_error const& e) {
        throw BenchTable::Error(path + ": not valid JSON: " + e.what());
      }
      figures.add(std::filesystem::path(path).stem().string(), output);
    }
    auto rows = BenchTable::evaluate(targets, figures);
    std::cout << BenchTable::tableText(rows);
    if (!jsonPath.empty()) {
      std::ofstream out(jsonPath);
      out << BenchTable::tableJson(rows).dump(2) << "\n";
      if (!out) throw BenchTable::Error(jsonPath + ": cannot be written");
    }
    std::size_t missing = 0;
    std::size_t unmet = 0;
    for (auto const& r : rows) {
      if (!r.missing.empty()) {
        std::cerr << "no result for " << r.missing << " (row '" << r.target.name << "')\n";
        ++missing;
      }
      unmet += r.met ? 0 : 1;
    }
    if (missing > 0) return 2;
    if (noCheck) return 0;
    std::cout << (rows.size() - unmet) << " of " << rows.size() << " rows met\n";
    return unmet == 0 ? 0 : 1;
  } catch (BenchTable::Error const& e) {
    std::cerr << "mlagvxlan-benchtable: " << e.what() << "\n";
    return 2;
  }
}
