// The report's parts: the dump's order, the folded diff, expectations on the dump, and the
// generic paths that write any entity of a switch.
#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Dump.h"
#include "LongScenario.h"
#include "Pair.h"
#include "Paths.h"
#include "Run.h"
#include "Scenario.h"

namespace {

std::vector<std::string> keys(Sim::Flat const& f) {
  std::vector<std::string> out;
  for (auto const& [k, v] : f) out.push_back(k);
  return out;
}

TEST(ReportTest, TheDumpReadsNumbersInOrder) {
  Sim::Flat f;
  for (char const* k : {"x[10]", "x[9]", "x[100]", "x[2]", "x[1].y", "w", "x[1]"}) f[k] = "v";
  EXPECT_EQ(keys(f), (std::vector<std::string>{"w", "x[1]", "x[1].y", "x[2]", "x[9]", "x[10]", "x[100]"}));
  Sim::NaturalLess less;
  EXPECT_FALSE(less("a10", "a10"));
  EXPECT_TRUE(less("a9b", "a10a"));
  EXPECT_TRUE(less("10.0.0.2", "10.0.0.10"));
  EXPECT_TRUE(less("x[1a]", "x[12]")) << "a shared prefix that ends inside a number";
  EXPECT_TRUE(less("x[09]", "x[010]"));
}

TEST(ReportTest, TheDiffFoldsRunsOfEqualChangesOnly) {
  Sim::Flat before{{"e.shared[3]", "true"}, {"e.map[7]", "1"}, {"e.addr", "1.1.1.1"}};
  Sim::Flat after{{"e.shared[1]", "true"},  {"e.shared[2]", "true"}, {"e.shared[3]", "true"}, {"e.shared[4]", "true"},
                  {"e.shared[5]", "false"}, {"e.shared[7]", "true"}, {"e.addr", "2.2.2.2"},   {"f.other", "x"}};
  std::vector<std::string> changes;
  for (auto const& c : Sim::diffEntity(before, after, "e")) {
    changes.push_back(c.kind + c.name + " " + c.before + ">" + c.after + " x" + std::to_string(c.count));
  }
  // 1 and 2 are added, 3 stands, 4 is added: a run never folds over a line that did not change;
  // 5 has another value, 7 is not next to 5.
  EXPECT_EQ(changes, (std::vector<std::string>{"~addr 1.1.1.1>2.2.2.2 x1", "-map[7] 1> x1", "+shared[1..2] >true x2",
                                               "+shared[4] >true x1", "+shared[5] >false x1", "+shared[7] >true x1"}));
  EXPECT_TRUE(Sim::diffEntity(before, before, "e").empty());
}

// The dump a run follows from notifications is the dump read afresh, after every step: of every
// example, of a long run, and of members removed and replaced under their key.
TEST(ReportTest, TheFollowedDumpIsTheDumpReadAfresh) {
  std::vector<Sim::Scenario> scenarios;
  for (auto const& f : std::filesystem::directory_iterator(MLAGVXLAN_EXAMPLES_DIR)) {
    if (f.path().extension() == ".yaml") scenarios.push_back(Sim::loadScenario(f.path().string()));
  }
  scenarios.push_back(
      Sim::parseScenario(Sim::longScenarioText({.vlans = 40, .steps = 30, .flaps = 4, .swaps = 2}), "long.yaml"));
  scenarios.push_back(Sim::parseScenario(R"(
steps:
  - A:
      vti:
        Vxlan1: {localVtepAddr: 10.0.0.1, vlanToVni: {10: 10010, 11: 10011}}
        Vxlan2: {vlanToVni: {12: 10012}}
  - A: {vti: {Vxlan2: ~}}
  - advance: 1
)",
                                         "members.yaml"));
  for (auto const& sc : scenarios) {
    Sim::Pair p;
    std::ostringstream out;
    Sim::Runner run(p, sc, out);
    for (std::size_t i = 0; i < sc.steps.size(); ++i) {
      if (sc.file == "members.yaml" && i == 2) {
        Brix::Ptr<Vxlan::VtiStatus> other = Brix::newNode<Vxlan::VtiStatus>(Vxlan1);
        other->vlanToVniMapIs(Bridging::VlanId(10),
                              Vxlan::VniSourcePair(Vxlan1, Brix::String("static"), Vxlan::VniExtOrNone(20010u)));
        p.a.vtiStatusDir->vtiStatusIs(Vxlan1, other);
      }
      run.stepRun(i);
      EXPECT_TRUE(run.dump(0) == Sim::flattenSwitch(p.a)) << sc.file << " step " << i + 1;
      EXPECT_TRUE(run.dump(1) == Sim::flattenSwitch(p.b)) << sc.file << " step " << i + 1;
    }
  }
}

TEST(ReportTest, PathsWriteAndDeleteAnyEntityOfASwitch) {
  Sim::Pair p;
  YAML::Node doc = YAML::Load(R"(
mlagStatus: {peerMacAddr: "00:00:00:00:00:07", mlagState: secondary}
vtiStatusDir.vtiStatus[Vxlan2].extendedVlanToVniMap: {5000: 15000, 7: {vni: 10007, source: evpn}}
localVxStatus.vniVtiToDynVlanMap[10010/Vxlan1]: 10
localVxStatus.sharedDynVlan: {1: true, 2: true}
)");
  for (auto const& kv : doc) Sim::compileSet(kv.first, kv.second)(p.a);
  EXPECT_EQ(p.a.mlagStatus->peerMacAddr(), Lanx::EthAddr(0, 0, 7));
  EXPECT_TRUE(p.a.container()->secondarySm()) << "a generic write of the state reaches the plug-in too";
  auto vti2 = p.a.vtiStatusDir->vtiStatus(Lanx::IntfId("Vxlan2"));
  ASSERT_TRUE(vti2);
  EXPECT_EQ(vti2->extendedVlanToVniMap(Bridging::ExtendedVlanId(5000)).vni(), Vxlan::VniExtOrNone(15000));
  EXPECT_EQ(vti2->extendedVlanToVniMap(Bridging::ExtendedVlanId(7)).source(), Brix::String("evpn"));
  EXPECT_EQ(p.a.localVxStatus->vniVtiToDynVlanMap(Vxlan::VniVtiPair(Vxlan::VniExt(10010u), Vxlan1)),
            Bridging::ExtendedVlanId(10));

  // Writing a member again keeps the one object: a VTI is never replaced under its key.
  Sim::compileSet(YAML::Node("vtiStatusDir.vtiStatus[Vxlan2].localVtepAddr"), YAML::Node("10.0.0.2"))(p.a);
  EXPECT_EQ(p.a.vtiStatusDir->vtiStatus(Lanx::IntfId("Vxlan2")).get(), vti2.get());

  Sim::compileDelete(YAML::Node("vtiStatusDir.vtiStatus[Vxlan2].extendedVlanToVniMap[7]"))(p.a);
  EXPECT_EQ(vti2->extendedVlanToVniMapCount(), 1u);
  Sim::compileSet(YAML::Node("localVxStatus.sharedDynVlan[2]"), YAML::Node())(p.a);  // ~ deletes
  EXPECT_EQ(p.a.localVxStatus->sharedDynVlanCount(), 1u);
  Sim::compileDelete(YAML::Node("localVxStatus.sharedDynVlan"))(p.a);
  EXPECT_EQ(p.a.localVxStatus->sharedDynVlanCount(), 0u);
  Sim::compileDelete(YAML::Node("vtiStatusDir.vtiStatus[Vxlan2]"))(p.a);
  EXPECT_FALSE(p.a.vtiStatusDir->vtiStatusHas(Lanx::IntfId("Vxlan2")));
  // Deleting below a member that is not there does nothing.
  Sim::compileDelete(YAML::Node("vtiStatusDir.vtiStatus[Vxlan2].extendedVlanToVniMap[7]"))(p.a);
  EXPECT_FALSE(p.a.vtiStatusDir->vtiStatusHas(Lanx::IntfId("Vxlan2")));
}

TEST(ReportTest, TheReportShowsWhatChangedAndTheJsonHoldsEverything) {
  Sim::Scenario sc = Sim::parseScenario(R"(
steps:
  - A: {role: primary}
    B: {role: secondary}
  - A:
      vti: {Vxlan1: {localVtepAddr: 10.0.0.1}}
)",
                                        "r.yaml");
  Sim::Pair p;
  std::ostringstream out;
  (void)Sim::runScenario(p, sc, out);
  std::string const text = out.str();
  EXPECT_NE(text.find("[1/2] t=0.000  A: role primary; B: role secondary"), std::string::npos) << text;
  EXPECT_NE(text.find("    + sharedDynVlan[1..4094]  true  (4094 keys)"), std::string::npos) << text;
  EXPECT_NE(text.find("  B localVxStatus\n    + vtepTypeAddr[localVtep]  10.0.0.1\n"), std::string::npos) << text;
  // Inputs that the step itself wrote are not repeated as changes.
  EXPECT_EQ(text.find("vtiStatusDir"), std::string::npos) << text;

  auto json = nlohmann::json::parse(Sim::stateJson(p));
  EXPECT_EQ(json["B"]["localVxStatus"]["vtepTypeAddr"]["localVtep"], "10.0.0.1");
  EXPECT_EQ(json["A"]["container"], nlohmann::json::array({"remoteHostTableSm", "primarySm",
                                                           "activeArpP2pToCorestateSm", "activeArpCorestateToP2pSm",
                                                           "vcsSdeCorestateToP2pSm", "vcsSdeCorestateToBumStatusP2pSm",
                                                           "floodListInputSelectorSm", "scheduledMlagPeerArpSyncSm"}));
  EXPECT_EQ(json["A"]["vtiStatusDir"]["vtiStatus"]["Vxlan1"]["localVtepAddr"], "10.0.0.1");
  EXPECT_EQ(json["B"]["sentVxStatus"]["sharedDynVlan"].size(), 4094u);

  // Quiet, a long scenario gets one progress line per step and a report of the closing line only.
  Sim::Pair q;
  std::ostringstream quiet;
  std::ostringstream progress;
  (void)Sim::runScenario(q, sc, quiet, Sim::RunOptions{.quiet = true, .progress = &progress, .progressFrom = 2});
  EXPECT_EQ(quiet.str(), "\n2 steps run, 0 expectations met, 0 not met\n");
  EXPECT_NE(progress.str().find("\r[1/2] t=0.000"), std::string::npos);
  EXPECT_NE(progress.str().find("\r[2/2] t=0.000"), std::string::npos);
}

}  // namespace
