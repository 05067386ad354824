// The scenario reader: what it accepts, and for what it refuses, the line and the words.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>

#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "Values.h"
#include "support/RingLogDir.h"
#include "trace/RingLogReader.h"

MLAGVXLAN_TEST_RINGLOGDIR();

namespace {

struct Refusal {
  std::string yaml;
  int line;
  char const* words;
};

// The error a scenario text gets, or "" if it is accepted.
std::string refusalOf(std::string const& yaml, int* line = nullptr) {
  try {
    (void)Sim::parseScenario(yaml, "case.yaml");
  } catch (Sim::ScenarioError const& e) {
    if (line) *line = e.line();
    EXPECT_EQ(e.file(), "case.yaml");
    return e.message();
  }
  return "";
}

TEST(ScenarioTest, MalformedScenariosAreRefusedWithLineAndReason) {
  std::string const set = "steps:\n  - A:\n      set:\n        ";
  std::string const flood = set + "sdeInput.vlanFloodSet[";
  std::string const map = "steps:\n  - A:\n      vti:\n        Vxlan1:\n          vlanToVni:\n            ";
  std::string const dest = flood + "10].floodSet[00:00:00:00:00:00].destSet[";
  std::string const expectA = "steps:\n  - expect:\n      A:\n        ";
  Refusal const cases[] = {
      {"steps: [\n", 2, "not valid YAML"},
      {"- 1\n- 2\n", 1, "a scenario is a map"},
      {"steps: []\n", 1, "needs steps"},
      {"stepz:\n  - A: {role: primary}\n", 1, "unknown key 'stepz'"},
      {"steps:\n  - foo: 1\n", 2, "unknown key 'foo' in a step"},
      {"steps:\n  - note: nothing\n", 2, "does nothing"},
      {"steps:\n  - A: {role: primry}\n", 2, "'primry' is not one of"},
      {"steps:\n  - A: {colour: red}\n", 2, "unknown key 'colour' in the inputs of A"},
      {"steps:\n  - link: sever\n", 2, "expected cut or restore"},
      {"steps:\n  - advance: 2\n  - at: 1\n", 3, "lies before the time"},
      {"steps:\n  - advance: -1\n", 2, "0 or more"},
      {"delay: soon\nsteps:\n  - advance: 1\n", 1, "'soon' is not a number"},
      // A mapping with VNI none would reach the library as a programmer's error.
      {map + "10: {source: static}\n", 6, "a mapping needs a vni"},
      {map + "10: none\n", 6, "'none' is not a VNI"},
      {set + "vtiStatusDir.vtiStatus[Vxlan1].extendedVlanToVniMap[10]: {vni: none}\n", 4, "'none' is not a VNI"},
      {map + "0: 10010\n", 6, "'0' is not a VLAN"},
      {"steps:\n  - A:\n      vti:\n        Vxlan1: {speed: 10}\n", 4, "has no attribute 'speed'"},
      {set + "nowhere.x: 1\n", 4, "no entity 'nowhere'"},
      {set + "localVxStatus.vtepTypeAddr[localVtep: 1.2.3.4\n", 4, "without its ']'"},
      {set + "sentVxStatus.scheduledMlagPeerArpSync[1]: true\n", 4, "not a collection"},
      // Remote MACs: the invariants the library asserts, and a record's fields.
      {set + "vxlanFdbStatus.learnedHost[00:00:5e:00:01:01/4095]: {}\n", 4, "a VLAN from 1 to 4094"},
      {set + "vxlanFdbStatus.learnedHost[00:00:5e:00:01:01/10]: {vtepIp: 10.1.1}\n", 4,
       "vtepIp: '10.1.1' is not an IP address"},
      {set + "controllerStatus[10010].macVtepTable[00:00:5e:00:01:01]: {preference: 256}\n", 4,
       "preference: '256' is not a number from 0 to 255"},
      {set + "controllerStatus.macVtepTable[00:00:5e:00:01:01]: {}\n", 4, "name one with [VNI]"},
      {set + "bridgingStatus.shoalFdbStatus[00:00:5e:00:01:01/10]: {intf: Ethernet1, entryType: learnedRemoteMac}\n", 4,
       "must be a VXLAN interface"},
      {set + "mlagHostTable.hostEntry[00:00:5e:00:01:01/10]: {vtep: 1}\n", 4, "unknown field 'vtep'"},
      {expectA + "sentP2pHostTable.hostEntry[00:00:5e:00:01:01/10]: {moves: [1]}\n", 4,
       "a field of a record is name: value"},
      // ARP rows: the VRF's name, the address's family against its table.
      {set + "arpInputConfig.vrf[" + std::string(101, 'v') + "].ipv4[10.0.0.5/Vlan10]: {}\n", 4,
       "a VRF name has 1 to 100 characters"},
      {set + "arpInputConfig.vrf[red].ipv4[2001:db8::5/Vlan10]: {}\n", 4, "an ipv4 row needs an IPv4 address"},
      {set + "arpInputConfig.vrf[red].ipv6[10.0.0.5/Vlan10]: {}\n", 4, "an ipv6 row needs an IPv6 address"},
      {set + "arpInputConfig.vrf[red].ipv4[10.0.0.5]: {}\n", 4, "not an address on an interface"},
      {"steps:\n  - expect:\n      B:\n        localVxStatus.arpStatusWithVlan[red].arpEntry[10.0.0.5/10]: present\n",
       4, "is not an address, a VLAN and a source"},
      {dest + "fibre(id=1)]: true\n", 4, "'fibre' is not a kind"},
      {dest + "intf(id=1,intf=Ethernet1)]: true\n", 4, "are VXLAN destinations"},
      {dest + "vxlan(id=g,intf=,vni=0,vtepAddr=1.2.3.4)]: true\n", 4, "hexadecimal"},
      {dest + "vxlan(id=1,vni=0,vtepAddr=1.2.3.4)]: true\n", 4, "'intf' is missing"},
      {flood + "10].floodSet[00:00:5e]: {}\n", 4, "not a MAC address"},
      {set + "bfdStatusPeer.peerStatus[10.0.0.2/Vxlan1].operState: up\n", 4, "is not of the form"},
      {set + "vlanConfigFlatDir.vlanConfig[10]: {configSource: " + std::string(130, 'c') + "}\n", 4,
       "at most 129 bytes"},
      {"steps:\n  - toggles: {BreakBridgingConfigVlanConfigVxlan: maybe}\n", 2, "is not true or false"},
      {"steps:\n  - toggles: {Other: true}\n", 2, "unknown key 'Other' in toggles"},
      {"steps:\n  - A:\n      delete: [sentVxStatus.scheduledMlagPeerArpSync]\n", 3, "set it instead"},
      {expectA + "localVxStatus.scheduledMlagPeerArpSync: absent\n", 4, "always has a value"},
      {expectA + "localVxStatus.vtepTypeAddr: 3\n", 4, "is a collection"},
      {expectA + "localVxStatus.scheduledMlagPeerArpSync: {count: 1}\n", 4, "has no count"},
      {expectA + "container.thirdSm: present\n", 4, "expected container.<child>"},
      {expectA + "sentVxStatus.sharedDynVlan: {count: 1}\n      A:\n        sentVxStatus.sharedDynVlan: {count: 2}\n",
       5, "written twice"},
  };
  for (auto const& c : cases) {
    int line = -1;
    std::string words = refusalOf(c.yaml, &line);
    EXPECT_NE(words.find(c.words), std::string::npos) << c.yaml << "\ngave: " << words;
    EXPECT_EQ(line, c.line) << c.yaml << "\ngave: " << words;
  }
  // The message names the file and the line, or that the file is missing.
  auto whatOf = [](auto load) {
    try {
      load();
    } catch (Sim::ScenarioError const& e) {
      return std::string(e.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(whatOf([] { (void)Sim::parseScenario("steps:\n  - link: sever\n", "dir/broken.yaml"); }),
            "dir/broken.yaml:2: link: expected cut or restore");
  EXPECT_EQ(whatOf([] { (void)Sim::loadScenario("/nonexistent/scenario.yaml"); }),
            "/nonexistent/scenario.yaml: no such file");
}

// A key a scenario writes as the report printed it reads back to the same key: the report and
// the reader must not drift apart.
template <class K>
void expectKeysReadBack(std::initializer_list<char const*> texts) {
  for (char const* t : texts) {
    K k{};
    std::string error;
    ASSERT_TRUE(Sim::readValue(YAML::Node(t), k, error)) << t << ": " << error;
    EXPECT_EQ(Sim::text(k), t);
  }
}

TEST(ScenarioTest, KeysReadBackAsTheReportPrintsThem) {
  expectKeysReadBack<L2Rib::Dest>({"10.0.0.1", "2001:db8::1", "vxlan(id=7,intf=Vxlan1,vni=10020,vtepAddr=10.0.0.4)",
                                   "vxlan(id=ffffffffffffffff,intf=,vni=5,vtepAddr=10.0.0.4)",
                                   "intf(id=1,intf=Ethernet1)", "mpls(id=2,label=16,nexthop=10.0.0.9)",
                                   "tunnel(id=3,tunnelId=7)", "none(id=4)"});
  expectKeysReadBack<Mlag::VlanIpSource>({"10.0.10.5/10/dynamic", "2001:db8::5/0/static"});
  expectKeysReadBack<Vxlan::VlanIpPair>({"10.0.0.5/10", "2001:db8::5/0"});
  expectKeysReadBack<Bfd::Peer>({"10.0.0.2/Vxlan1/3", "10.0.0.2/Vxlan1/3/red/7/10.0.0.1"});
  // Blanks, as the trace prints a destination, are taken too.
  L2Rib::Dest d;
  std::string error;
  ASSERT_TRUE(Sim::readValue(YAML::Node("vxlan(id=ffffffffffffffff, intf=, vni=0, vtepAddr=10.0.0.1)"), d, error));
  EXPECT_EQ(Sim::text(d), "10.0.0.1");
}

// What the library raises is reported with its step, and the run goes on.
TEST(ScenarioTest, AnInputTheLibraryRefusesIsReportedAndTheRunGoesOn) {
  Sim::Scenario sc = Sim::parseScenario(
      "steps:\n  - A: {role: primary}\n  - B: {role: secondary}\n"
      "    toggles: {BreakBridgingConfigVlanConfigVxlan: false}\n"
      "    expect: {B: {container.secondarySm: present}}\n",
      "r.yaml");
  sc.steps[0].inputs[0].push_back([](Sim::SwitchEntities&) { throw std::out_of_range("VLAN 0"); });
  sc.steps[0].inputs[0].push_back([](Sim::SwitchEntities& s) { s.mlagProtoStatus->peerMonotonicOffsetIs(7); });
  Sim::Pair pair;
  std::ostringstream report;
  Sim::RunResult r = Sim::runScenario(pair, sc, report, Sim::RunOptions{.quiet = true});
  EXPECT_EQ(r.steps, 2u);
  EXPECT_EQ(r.refused, 2u);
  EXPECT_TRUE(MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanEnabled()) << "a toggle changes out of the pair only";
  EXPECT_EQ(r.met, 1u);
  EXPECT_EQ(pair.a.mlagProtoStatus->peerMonotonicOffset(), 7.0) << "the inputs after a refused one still run";
  EXPECT_NE(report.str().find("REFUSED  A: the library refused it: VLAN 0  (r.yaml:2)"), std::string::npos)
      << report.str();
  EXPECT_NE(report.str().find("REFUSED  toggles: an agent reads them when it starts"), std::string::npos)
      << report.str();
}

TEST(ScenarioTest, AnUnmetExpectationIsReportedWithWhatWasFound) {
  Sim::Scenario sc = Sim::parseScenario(R"y(
steps:
  - A:
      role: primary
      vti: {Vxlan1: {localVtepAddr: 10.0.0.1}}
    B:
      role: secondary
      vti: {Vxlan1: {localVtepAddr: 10.0.0.2}}
    expect:
      B:
        localVxStatus.vtepTypeAddr[1]: {value: 10.0.0.9}
        localVxStatus.vtepTypeAddr[mlagVtep]: present
        localVxStatus.vtepTypeAddr: {count: 2}
        vtiStatusDir.vtiStatus[Vxlan1]: absent
        localVxStatus.vtepTypeAddr[localVtep]: absent
        localVxStatus.vtepTypeAddr[alternateVtep]: absent
  - A:
      set:
        bridgingStatus.shoalFdbStatus[00:00:5e:00:01:01/10]:
          {intf: Vxlan1, lastMoveTime: 4, moves: 1, entryType: learnedRemoteMac}
        vxlanFdbStatus.learnedHost[00:00:5e:00:01:01/10]: {vtepIp: 10.9.9.9, lastMoveTime: 4}
    expect:
      A:
        sentP2pHostTable.hostEntry[00:00:5e:00:01:01/10]: {moves: 2, lastMoveTime: 4}
      B:
        recvP2pHostTable.hostEntry[00:00:5e:00:01:01/10]:
          {intf: "Vxlan1:10.9.9.9", moves: 1, key: "(10, 00:00:5e:00:01:01)", entryType: 5}
        recvP2pHostTable.hostEntry[00:00:5e:00:01:01/1]: {key: "(10, 00:00:5e:00:01:01)"}
)y",
                                        "u.yaml");
  Sim::Pair pair;
  std::ostringstream report;
  Sim::RunResult r = Sim::runScenario(pair, sc, report, Sim::RunOptions{.quiet = true});
  EXPECT_EQ(r.met, 2u);
  EXPECT_EQ(r.failed, 7u);
  std::string const text = report.str();
  // Keys in any form their type reads, each mode with what was found; a record's fields must each
  // match, a bracketed field holds its commas, an absent record fails.
  for (char const* line : {
           "FAIL  B localVxStatus.vtepTypeAddr[localVtep]: expected 10.0.0.9, found 10.0.0.1  (u.yaml:11)",
           "FAIL  B localVxStatus.vtepTypeAddr[mlagVtep]: expected present, found absent  (u.yaml:12)",
           "FAIL  B localVxStatus.vtepTypeAddr: expected 2 keys, found 1 key  (u.yaml:13)",
           "FAIL  B vtiStatusDir.vtiStatus[Vxlan1]: expected absent, found present  (u.yaml:14)",
           "FAIL  B localVxStatus.vtepTypeAddr[localVtep]: expected absent, found 10.0.0.1  (u.yaml:15)",
           "expected moves=2, lastMoveTime=4, found intf=Vxlan1:10.9.9.9, lastMoveTime=4, moves=1",
           "expected key=(10, 00:00:5e:00:01:01), found absent",
       }) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
  }
  EXPECT_EQ(text.find("ok "), std::string::npos) << "quiet shows only what failed";
}

// The ring file the built-in scenario writes describes each message of a handler once: a
// message reached from several paths of one function is one statement with one id.
TEST(ScenarioTest, BuiltinScenarioDescribesEachMessageOfAFunctionOnce) {
  {
    Sim::Pair pair;
    std::ostringstream report;
    auto result = Sim::runScenario(pair, Sim::parseScenario(Sim::builtinScenarioText(), Sim::builtinScenarioName),
                                   report, {.quiet = true});
    ASSERT_EQ(result.failed, 0u) << report.str();
  }
  char const* dir = std::getenv("RINGLOGDIR");
  ASSERT_NE(dir, nullptr);
  auto file = RingLog::decodeFile(std::string(dir) + "/Mlag-Vxlan.rl");
  ASSERT_TRUE(file.ok()) << file.errors.front();
  ASSERT_GT(file.messages.size(), 20u) << "the scenario should reach most handlers";

  // One message is one text with values of the same types: " Del {mac}" and " Del {vlanId}"
  // are two.
  std::map<std::tuple<std::string, std::string, std::string>, std::set<std::uint32_t>> lines;
  for (auto const& m : file.messages) {
    EXPECT_FALSE(m.function.empty()) << m.text;
    lines[{m.function, m.text, m.codes}].insert(m.line);
  }
  for (auto const& [where, at] : lines) {
    EXPECT_EQ(at.size(), 1u) << std::get<0>(where) << ": \"" << std::get<1>(where) << "\" is described from "
                             << at.size() << " lines, first at " << *at.begin();
  }
}

}  // namespace
