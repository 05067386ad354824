// mlagvxlan-sim: runs a simulated MLAG pair and shows what the two switches agree on.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Dump.h"
#include "Pair.h"

namespace {

struct Step {
  std::string what;
  std::function<void(Sim::Pair&)> act;
  std::string note;
};

void printLocal(Sim::Pair& pair) {
  for (Sim::Switch* s : {&pair.a, &pair.b}) {
    auto flat = Sim::flatten(*s->localVxStatus);
    fmt::print("    {} localVxStatus.scheduledMlagPeerArpSync: {}\n", s->name(), flat["scheduledMlagPeerArpSync"]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Runs a simulated MLAG pair of VXLAN switches and reports what the two agree on."};
  CLI11_PARSE(app, argc, argv);

  Sim::Pair pair;
  std::vector<Step> steps = {
      {"pair up, neither side advertises scheduled peer ARP sync", [](Sim::Pair&) {}, ""},
      {"A advertises", [](Sim::Pair& p) { p.a.sentVxStatus->scheduledMlagPeerArpSyncIs(true); },
       "B re-reads on A's change, but B itself does not advertise"},
      {"B advertises", [](Sim::Pair& p) { p.b.sentVxStatus->scheduledMlagPeerArpSyncIs(true); },
       "A re-reads on B's change; B's own change alone starts nothing on B"},
      {"both agents rebuild the capability child",
       [](Sim::Pair& p) {
         (void)p.a.container()->scheduledMlagPeerArpSyncSmDel();
         p.a.plugInRun();
         (void)p.b.container()->scheduledMlagPeerArpSyncSmDel();
         p.b.plugInRun();
       },
       "a new child reads both advertisements afresh"},
      {"B withdraws", [](Sim::Pair& p) { p.b.sentVxStatus->scheduledMlagPeerArpSyncIs(false); },
       "A re-reads on B's change; B keeps its result until A's advertisement changes"},
  };

  int n = 0;
  for (auto const& step : steps) {
    step.act(pair);
    pair.settle();
    fmt::print("step {}: {}\n", ++n, step.what);
    printLocal(pair);
    if (!step.note.empty()) fmt::print("    ({})\n", step.note);
  }
  return 0;
}
