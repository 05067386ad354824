// The soak's parts: scenarios written back as YAML, the shrinker, the inputs a fresh pair is
// given, the agreement check, and a failing oracle's shrunk scenario file.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Agreement.h"
#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "Soak.h"
#include "support/RingLogDir.h"

namespace {

struct Ran {
  Sim::RunResult result;
  Sim::Flat a;
  Sim::Flat b;
};

Ran runOf(Sim::Scenario const& sc) {
  Sim::Pair pair;
  std::ostringstream out;
  Sim::RunOptions options;
  options.quiet = true;
  Ran r{Sim::runScenario(pair, sc, out, options), {}, {}};
  r.a = Sim::flattenSwitch(pair.a);
  r.b = Sim::flattenSwitch(pair.b);
  return r;
}

// Every example, written and read back, runs to the same expectations and the same state.
TEST(ScenarioWriter, EveryExampleRoundTrips) {
  std::size_t examples = 0;
  for (auto const& entry : std::filesystem::directory_iterator(MLAGVXLAN_EXAMPLES_DIR)) {
    if (entry.path().extension() != ".yaml") continue;
    ++examples;
    SCOPED_TRACE(entry.path().string());
    Sim::Scenario const original = Sim::loadScenario(entry.path().string());
    std::string const written = Sim::writeScenario(original);
    Sim::Scenario const back = Sim::parseScenario(written, "written");
    ASSERT_EQ(back.steps.size(), original.steps.size());
    EXPECT_EQ(Sim::writeScenario(back), written);
    Ran const before = runOf(original);
    Ran const after = runOf(back);
    EXPECT_EQ(after.result.met, before.result.met);
    EXPECT_EQ(after.result.failed, 0u);
    EXPECT_EQ(after.result.refused, before.result.refused);
    EXPECT_EQ(after.a, before.a);
    EXPECT_EQ(after.b, before.b);
  }
  EXPECT_GE(examples, 10u);
}

TEST(Shrink, KeepsTheFewestItemsThatStillFail) {
  struct Case {
    std::size_t n;
    std::set<int> needed;  // fails while all of these are in
  };
  for (Case const& c : {Case{1, {0}}, Case{10, {3, 7}}, Case{37, {0, 36}}, Case{64, {5, 6, 40}}}) {
    std::vector<int> items(c.n);
    for (std::size_t i = 0; i < c.n; ++i) items[i] = static_cast<int>(i);
    std::size_t calls = 0;
    auto fails = [&](std::vector<int> const& v) {
      ++calls;
      std::set<int> in(v.begin(), v.end());
      return std::all_of(c.needed.begin(), c.needed.end(), [&](int x) { return in.count(x) > 0; });
    };
    std::vector<int> const shrunk = Sim::shrink(items, fails);
    EXPECT_EQ(std::set<int>(shrunk.begin(), shrunk.end()), c.needed) << c.n;
    EXPECT_TRUE(std::is_sorted(shrunk.begin(), shrunk.end())) << "the order of what is kept stays";
    EXPECT_LE(calls, 4 * c.n) << c.n;
  }
}

Sim::Step stepOf(std::string const& yaml) {
  double time = 0;
  return Sim::parseStep(YAML::Load(yaml), time);
}

// A fresh pair gets the last value of each path, nothing that was removed since, and no step
// for what was overwritten.
TEST(InputState, KeepsOnlyWhereTheInputsEnded) {
  Sim::InputState in;
  for (
      char const* s : {
          "A: {role: primary, vti: {Vxlan1: {localVtepAddr: 10.0.0.1, vlanToVni: {10: 10010, 20: 10020}}}}",
          "A: {vti: {Vxlan1: {vlanToVni: {10: ~}}}}",
          "A: {vti: {Vxlan2: {localVtepAddr: 10.0.0.9}}}",
          "A: {vti: {Vxlan2: ~}}",
          R"(B: {set: {arpInputConfig.source: dynamic, "sdeInput.vlanFloodSet[10].floodSet[00:00:00:00:00:00].floodSetType": any}})",
          "B: {set: {arpInputConfig.source: static}}",
          "B: {delete: \"sdeInput.vlanFloodSet[10]\"}",
          "delay: 0.5",
      }) {
    in.apply(stepOf(s));
  }
  std::vector<Sim::Step> const all = in.freshSteps();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].delay, 0.5);
  EXPECT_EQ(YAML::Dump(YAML::Load(all[0].inputsText[0])),
            "role: primary\nvti:\n  Vxlan1:\n    localVtepAddr: 10.0.0.1\n    vlanToVni:\n      20: 10020");
  EXPECT_EQ(YAML::Dump(YAML::Load(all[0].inputsText[1])), "set:\n  arpInputConfig.source: static");
  // One write a step, the roles first, the same writes.
  std::vector<Sim::Step> const each = in.freshSteps(true);
  ASSERT_EQ(each.size(), 4u);
  EXPECT_NE(each[0].inputsText[0].find("role"), std::string::npos);
  EXPECT_TRUE(in.conflictedVnis().empty());
  in.apply(stepOf("B: {vti: {Vxlan1: {vlanToVni: {30: 10030, 40: {vni: 10030, source: evpn}}}}}"));
  in.apply(stepOf("B: {vti: {Vxlan1: {vlanToVni: {40: ~}}}}"));
  EXPECT_EQ(in.conflictedVnis(), std::set<std::string>{"10030"}) << "a conflict stays after it ends";
}

TEST(Agreement, ConfigurationsAndExchangesThatDiffer) {
  Sim::Pair pair;
  std::ostringstream out;
  Sim::Scenario const sc = Sim::parseScenario(R"(
steps:
  - A: {role: primary, vti: {Vxlan1: {localVtepAddr: 10.0.0.1, vlanToVni: {10: 10010}}}}
    B: {role: secondary, vti: {Vxlan1: {localVtepAddr: 10.0.0.2, vlanToVni: {20: 10010}}}}
)",
                                              "agreement");
  Sim::runScenario(pair, sc, out);
  EXPECT_NE(out.str().find("agreement\n  config  VNI 10010: A maps it to VLAN 10, B to VLAN 20\n"), std::string::npos)
      << out.str();
  auto found = Sim::agreementCheck(pair);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_TRUE(found[0].configuration);

  // What B holds as received no longer matches what A sent; with the link down nothing crosses.
  pair.b.recvVxStatus->vtepTypeAddrIs(Vxlan::VtepType::localVtep, Lanx::IpAddr::parse("10.0.0.7"));
  found = Sim::agreementCheck(pair);
  std::set<std::string> lines;
  for (auto const& d : found) {
    if (d.configuration) continue;
    EXPECT_EQ(d.switchIndex, 1u);
    EXPECT_EQ(d.found, "10.0.0.7");
    EXPECT_EQ(d.wanted, "10.0.0.1");
    lines.insert(d.line);
  }
  // B takes the address it received as A's.
  EXPECT_EQ(lines,
            (std::set<std::string>{"recvVxStatus.vtepTypeAddr[localVtep]", "localVxStatus.vtepTypeAddr[localVtep]"}));
  pair.linkUpIs(false);
  pair.settle();
  EXPECT_EQ(Sim::agreementCheck(pair).size(), 1u);
}

// A fault in the fresh pair's dump makes the oracle fail: the soak writes the fewest steps that
// still fail, and the file, replayed as any scenario, fails on its expectations.
TEST(Soak, AFailingOracleLeavesAShrunkScenarioThatFails) {
  TestSupport::RingLogDir dir;
  Sim::SoakOptions options;
  options.events = 40;
  options.seed = 3;
  options.mix = Sim::SoakMix::flaps;
  options.outPath = (std::filesystem::path(dir.path()) / "failure.yaml").string();
  options.fault = [](std::size_t sw, Sim::Flat& fresh) {
    auto it = fresh.find("sentVxStatus.vtepTypeAddr[localVtep]");
    if (sw == 0 && it != fresh.end()) it->second = "10.0.0.99";
  };
  std::ostringstream out;
  Sim::SoakResult const r = Sim::runSoak(options, out);
  ASSERT_TRUE(r.failed) << out.str();
  EXPECT_EQ(r.written, options.outPath);
  EXPECT_TRUE(r.replays) << out.str();
  // The step that forms the pair (A's role and VTEP address among it), then the settle that
  // expects the doctored address: the flaps and the mappings are all dropped.
  EXPECT_EQ(r.shrunkSteps, 2u) << out.str();

  Sim::Scenario const sc = Sim::loadScenario(options.outPath);
  ASSERT_EQ(sc.steps.size(), 2u);
  Ran const ran = runOf(sc);
  EXPECT_EQ(ran.result.failed, 1u);
  EXPECT_EQ(ran.a.at("sentVxStatus.vtepTypeAddr[localVtep]"), "10.0.0.1");
}

}  // namespace
