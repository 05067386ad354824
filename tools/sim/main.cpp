// mlagvxlan-sim: runs a scenario on a simulated MLAG pair and reports what the two switches
// agree on, step by step. Without a scenario file it runs the built-in one.
//
// Exit codes: 0 every expectation met; 1 an expectation not met or an input the library refused
// (the run goes on past it); 2 a malformed scenario or a bad option.
#include <fmt/format.h>
#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "Soak.h"
#include "Split.h"
#include "TraceSink.h"
#include "Vxlan/Trace.h"

namespace {

constexpr int exitUnmet = 1;
constexpr int exitBadInput = 2;

// Where the ring file goes when the user keeps none: a private directory, removed at exit.
class TempRingDir {
 public:
  TempRingDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "mlagvxlan-sim-XXXXXX").string();
    if (::mkdtemp(tmpl.data())) path_ = tmpl;
  }
  ~TempRingDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  TempRingDir(TempRingDir const&) = delete;
  TempRingDir& operator=(TempRingDir const&) = delete;
  std::string const& path() const noexcept { return path_; }

 private:
  std::string path_;
};

int fail(std::string const& message) {
  std::cerr << "mlagvxlan-sim: " << message << '\n';
  return exitBadInput;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Runs a scenario on a simulated MLAG pair of VXLAN switches, A and B, on virtual time, and reports after each "
      "step what changed in each switch's outputs and which expectations were met. Without a scenario "
      "file it runs the built-in one.\n\nExit codes: 0 all expectations met, 1 some not met or an input refused by the "
      "library, "
      "2 bad scenario or option."};
  std::string scenarioPath;
  std::string jsonPath;
  std::string traceDir;
  std::string traceLevels;
  bool quiet = false;
  bool showBuiltin = false;
  bool split = false;
  std::size_t soakEvents = 0;
  std::uint64_t seed = 1;
  std::string soakOut;
  Sim::SoakMix mix = Sim::SoakMix::all;
  app.add_option("scenario", scenarioPath, "A scenario file (YAML); see examples/README.md");
  app.add_option("--json", jsonPath, "Write the whole final state of both switches to this file, as JSON");
  app.add_option("--trace-dir", traceDir,
                 "Keep the library's ring-buffer trace file (Mlag-Vxlan.rl) in this directory");
  app.add_option("--trace", traceLevels, "Print the text trace at these levels, as in \"5,6\" or \"0-9\" or \"all\"");
  app.add_flag("-q,--quiet", quiet, "Print only unmet expectations and the closing line");
  app.add_flag("--show-builtin", showBuiltin, "Print the built-in scenario and exit");
  app.add_flag("--split", split,
               "Run switch B in a process of its own, the peer link over loopback TCP; the report is the same")
      ->excludes("--json");
  auto* soak = app.add_option("--soak", soakEvents,
                              "Drive a pair with this many random events instead of a scenario, checking it "
                              "against a fresh pair and for agreement between its sides as it goes")
                   ->check(CLI::PositiveNumber);
  app.add_option("--seed", seed, "The soak's random seed (default 1)")->needs(soak);
  app.add_option("--soak-out", soakOut, "Where the soak writes a failing scenario (default soak-failure-SEED.yaml)")
      ->needs(soak);
  app.add_option("--soak-mix", mix,
                 "The soak's events: all (every input), flaps (the link) or swaps (the roles); default all")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, Sim::SoakMix>{
              {"all", Sim::SoakMix::all}, {"flaps", Sim::SoakMix::flaps}, {"swaps", Sim::SoakMix::swaps}},
          CLI::ignore_case))
      ->needs(soak);
  soak->excludes(app.get_option("scenario"));
  soak->excludes(app.get_option("--split"));
  if (auto exitCode = Sim::commandLineParse(app, argc, argv)) return *exitCode;

  if (showBuiltin) {
    std::cout << Sim::builtinScenarioText();
    return 0;
  }

  std::optional<std::uint32_t> traceMask;
  if (!traceLevels.empty()) {
    std::uint32_t mask = 0;
    std::string error;
    if (!Vok::parseLevelMask(traceLevels, mask, error)) return fail("--trace: " + error);
    traceMask = mask;
  }
  if (!traceDir.empty()) {
    std::error_code ec;
    if (!std::filesystem::is_directory(traceDir, ec)) return fail("--trace-dir: '" + traceDir + "' is not a directory");
  }
  std::unique_ptr<std::ofstream> json;
  if (!jsonPath.empty()) {
    json = std::make_unique<std::ofstream>(jsonPath, std::ios::trunc);
    if (!*json) return fail("--json: cannot write '" + jsonPath + "': " + std::strerror(errno));
  }

  if (soakEvents > 0) {
    std::optional<TempRingDir> soakDir;
    if (traceDir.empty()) soakDir.emplace();
    if (soakDir && soakDir->path().empty()) {
      return fail(std::string("cannot make a temporary directory: ") + std::strerror(errno));
    }
    ::setenv("RINGLOGDIR", traceDir.empty() ? soakDir->path().c_str() : traceDir.c_str(), 1);
    Sim::SoakOptions options;
    options.events = soakEvents;
    options.seed = seed;
    options.mix = mix;
    options.outPath = soakOut;
    return Sim::runSoak(options, std::cout).failed ? exitUnmet : 0;
  }

  Sim::Scenario scenario;
  try {
    scenario = scenarioPath.empty() ? Sim::parseScenario(Sim::builtinScenarioText(), Sim::builtinScenarioName)
                                    : Sim::loadScenario(scenarioPath);
  } catch (Sim::ScenarioError const& e) {
    return fail(e.what());
  }

  // The ring file is opened by the first container, so its directory is set before the pair.
  std::optional<TempRingDir> tempDir;
  if (traceDir.empty()) {
    tempDir.emplace();
    if (tempDir->path().empty()) return fail(std::string("cannot make a temporary directory: ") + std::strerror(errno));
  }
  ::setenv("RINGLOGDIR", traceDir.empty() ? tempDir->path().c_str() : traceDir.c_str(), 1);

  // Text-trace lines, from --trace or from MLAGVXLAN_TRACE, go into the report with their switch.
  Sim::SwitchTraceSink sink(std::cout);
  if (traceMask) MlagVxlan::_defaultTraceHandle()->levelMaskIs(*traceMask);

  Sim::RunResult result;
  if (split) {
    try {
      Sim::RunOptions options;
      options.quiet = quiet;
      if (quiet && ::isatty(STDERR_FILENO)) options.progress = &std::cerr;
      Sim::SplitDriver driver(scenario, traceDir.empty() ? tempDir->path() : traceDir);
      result = Sim::runScenario(driver, scenario, std::cout, options);
    } catch (std::exception const& e) {
      std::cout.flush();
      return fail(e.what());
    }
    return result.failed > 0 || result.refused > 0 ? exitUnmet : 0;
  }
  try {
    Sim::Pair pair;
    Sim::RunOptions options;
    options.quiet = quiet;
    if (quiet && ::isatty(STDERR_FILENO)) options.progress = &std::cerr;
    result = Sim::runScenario(pair, scenario, std::cout, options);
    if (json) {
      *json << Sim::stateJson(pair);
      json->close();
      if (!*json) return fail("--json: cannot write '" + jsonPath + "'");
    }
  } catch (Sim::ScenarioError const& e) {
    std::cout.flush();
    return fail(e.what());
  }
  if (!traceDir.empty() && !quiet) {
    std::cout << "ring-buffer trace: " << (std::filesystem::path(traceDir) / "Mlag-Vxlan.rl").string() << '\n';
  }
  return result.failed > 0 || result.refused > 0 ? exitUnmet : 0;
}
