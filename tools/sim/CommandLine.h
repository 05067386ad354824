// What the simulator's programs share of their command lines.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace Sim {

// Parses the command line into `app`'s options: nothing to go on, or the code to exit with (0
// after the help, 2 for a bad option, with its message printed).
inline std::optional<int> commandLineParse(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e);
  } catch (CLI::ParseError const& e) {
    app.exit(e);
    return 2;
  }
  return std::nullopt;
}

}  // namespace Sim
