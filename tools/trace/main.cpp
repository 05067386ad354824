// mlagvxlan-trace: prints the records of a ring file as text lines, merged in the order they
// were written, optionally filtered by level and by text.
//
// Exit status: 0 for a sound file, 1 for a file that cannot be read or is damaged (what can be
// read is still printed, and stderr says what is wrong), 2 for a bad command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "trace/RingLogReader.h"
#include "trace/TextTrace.h"

int main(int argc, char** argv) {
  CLI::App app{"Prints a ring-buffer trace file as text: one line per record, \"<time> <level> <message>\"."};
  std::string file;
  std::string levels = "all";
  std::string grep;
  bool seq = false;
  app.add_option("file", file, "the ring file, such as Mlag-Vxlan.rl")->required();
  app.add_option("-l,--level", levels, "levels to print, as in \"5,6\" or \"0-9\" (default: all)");
  app.add_option("-g,--grep", grep, "print only records whose message contains this text");
  app.add_flag("-s,--seq", seq, "begin each line with the record's sequence number");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }

  std::uint32_t mask = 0;
  std::string error;
  if (!Vok::parseLevelMask(levels, mask, error)) {
    fmt::print(stderr, "mlagvxlan-trace: --level: {}\n", error);
    return 2;
  }

  RingLog::DecodedFile f = RingLog::decodeFile(file);
  std::string out;
  for (auto const& r : f.records) {
    if (!((mask >> r.level) & 1u) || (!grep.empty() && r.text.find(grep) == std::string::npos)) continue;
    if (seq) fmt::format_to(std::back_inserter(out), "{} ", r.seq);
    out += RingLog::formatRecord(r);
    out += '\n';
    if (out.size() > (1u << 16)) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fflush(stdout);

  if (f.dropped) fmt::print(stderr, "mlagvxlan-trace: {}: the writer dropped {} records\n", file, f.dropped);
  for (auto const& e : f.errors) fmt::print(stderr, "mlagvxlan-trace: {}: {}\n", file, e);
  return f.ok() ? 0 : 1;
}
