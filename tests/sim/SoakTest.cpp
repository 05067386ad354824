// The soak's parts: scenarios written back as YAML, the shrinker, the inputs a fresh pair is
// given, the agreement check, and a failing oracle's shrunk scenario file.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Agreement.h"
#include "LeftBehind.h"
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

// Each left-behind entry on a short history that needs it: the soaked pair differs from a fresh
// one, the entry excuses the difference, and the check passes. A pattern that no longer matches
// what the library leaves, or a placeholder the inputs no longer fill, fails here.
TEST(LeftBehind, EachHistoryIsExcusedByItsEntry) {
  struct Case {
    char const* entry;  // a part of the entry's pattern
    char const* steps;
  };
  Case const cases[] = {
      {"P2pHostTable", R"(
  - B: {role: primary}
  - B: {set: {"bridgingStatus.shoalFdbStatus[00:00:5e:00:01:02/10]": {intf: Vxlan1, lastMoveTime: 28, moves: 1, entryType: learnedRemoteMac}}}
  - B: {set: {"vxlanFdbStatus.learnedHost[00:00:5e:00:01:02/10]": {vtepIp: 10.8.8.8, lastMoveTime: 28}}}
  - B: {set: {"vxlanFdbStatus.learnedHost[00:00:5e:00:01:02/10]": {vtepIp: 10.8.8.8, lastMoveTime: 22}}})"},
      {"ActiveArp\\.localIp\\[", R"(
  - A: {set: {activeArpConfig.arpSelectiveInstall: true}}
  - B: {set: {"corestateActiveArp.localIpMac[10.0.10.5/10]": 00:00:5e:00:01:02}}
  - A: {vti: {Vxlan1: {mlagVtepAddr: 10.0.0.11}}}
  - B: {role: primary, set: {activeArpConfig.arpSelectiveInstall: true}}
  - B: {vti: {Vxlan1: {vlanToVni: {30: ~}}}}
  - A: {role: primary})"},
      {"(vlanId|floodSet", R"(
  - B: {set: {sdeInput.sourceInitialized: true, "sdeInput.vlanFloodSet[10].floodSet[00:00:00:00:00:00].floodSetType": any}}
  - B: {role: primary}
  - A: {role: primary})"},
      {"{arpAddr}", R"(
  - B: {set: {"arpInputConfig.vrf[red].ipv4[10.0.10.5/Vlan20]": {ethAddr: 00:00:5e:00:01:02}}}
  - B: {set: {"arpInputConfig.vrf[red].ipv4[10.0.10.5/Vlan10]": {ethAddr: 00:00:5e:00:01:01}}}
  - B: {role: primary}
  - B: {delete: ["arpInputConfig.vrf[red].ipv4[10.0.10.5/Vlan10]"]})"},
      {"{goneVti}", R"(
  - B: {vti: {Vxlan1: {mlagVtepAddr: 10.0.0.12}, Vxlan2: {vlanToVni: {30: {vni: 10010, source: evpn}}}}}
  - B: {role: secondary}
  - B: {vti: {Vxlan2: ~}})"},
      {"{afterVtiLoss}", R"(
  - A: {role: secondary, vti: {Vxlan1: {mlagVtepAddr: 0.0.0.0}, Vxlan2: {vlanToVni: {20: 10020}}}, set: {activeArpConfig.arpSelectiveInstall: true}}
  - B: {role: secondary, vti: {Vxlan2: {vlanToVni: {20: 10020}}}, set: {activeArpConfig.arpSelectiveInstall: true}}
  - B: {set: {"corestateActiveArp.remoteIp[10.0.20.9/20]": true}}
  - A: {vti: {Vxlan1: ~}})"},
      {"(localIp|localIpMac)\\[", R"(
  - B: {role: secondary, vti: {Vxlan1: {localVtepAddr: 10.0.0.2}}, set: {activeArpConfig.arpSelectiveInstall: true, corestateActiveArp.l2LearningCapable: true}}
  - A: {role: primary, vti: {Vxlan1: {localVtepAddr: 10.0.0.1}}, set: {activeArpConfig.arpSelectiveInstall: true, "corestateActiveArp.localIpMac[10.0.10.5/10]": 00:00:5e:00:01:01}}
  - B: {set: {activeArpConfig.arpSelectiveInstall: false}})"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.entry);
    Sim::Scenario const sc = Sim::parseScenario(std::string("steps:") + c.steps + R"(
  - link: restore
    advance: 30
)",
                                                "left-behind");
    Sim::InputState in;
    for (Sim::Step const& step : sc.steps) in.apply(step);
    Sim::Pair pair;
    std::ostringstream out;
    Sim::RunOptions options;
    options.quiet = true;
    Sim::runScenario(pair, sc, out, options);
    Sim::CheckOutcome const o = Sim::soakCheck(pair, in);
    EXPECT_FALSE(o.failed()) << (o.differences.empty() ? "" : o.differences.front().line);
    std::size_t byEntry = 0;
    for (auto const& [pattern, n] : o.excused) {
      if (pattern.find(c.entry) != std::string::npos) byEntry += n;
    }
    EXPECT_GT(byEntry, 0u);
  }
}

// An entry with a placeholder or a cause applies only while the inputs give it one.
TEST(LeftBehind, PlaceholdersAndCausesNarrowAnEntry) {
  std::string const arp = "sentVxStatus.arpStatus[red].arpEntry[10.0.10.5]";
  EXPECT_NE(Sim::excusedBy(arp, false, {{"{arpAddr}", {"10.0.10.5"}}}), nullptr);
  EXPECT_EQ(Sim::excusedBy(arp, false, {{"{arpAddr}", {"10.0.10.50", "10.0.10"}}}), nullptr);
  EXPECT_EQ(Sim::excusedBy(arp, false), nullptr);
  std::string const mac = "sentActiveArp.localIpMac[10.0.10.5/10]";
  EXPECT_EQ(Sim::excusedBy(mac, false, {}, {"sentActiveArp.localIpMac[10.0.10.5/10]"}), nullptr);
  EXPECT_NE(Sim::excusedBy(mac, false, {}, {"recvActiveArp.l2LearningCapable"}), nullptr);
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
