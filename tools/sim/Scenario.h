// A scenario for the simulated pair, read from YAML.
//
//   name: Two peers agree on VTEP addresses      # optional
//   description: ...                              # optional
//   delay: 0.0                                    # one-way peer-link delay, seconds (default 0)
//   steps:                                        # run in order
//     - note: A comes up as primary               # optional, shown in the report
//       at: 1.5                                   # optional: first let virtual time reach 1.5 s
//       link: cut | restore                       # optional
//       delay: 0.2                                # optional: a new one-way delay from now on
//       toggles: {BreakBridgingConfigVlanConfigVxlan: false}   # optional, out of the pair only
//       A:                                        # inputs of switch A (B likewise)
//         role: primary                           # primary, secondary, none (or any MLAG state)
//         vti:
//           Vxlan1:
//             localVtepAddr: 10.0.0.1             # any attribute of the VTI's status
//             mlagVtepAddr: 10.0.0.11
//             vlanToVni:                          # VLAN: VNI, or VLAN: {vni: .., source: ..}
//               10: 10010                         #   source "static" unless given
//               20: {vni: 10020, source: mlag}
//               30: ~                             #   ~ removes the mapping
//           Vxlan2: ~                             # ~ removes the VTI
//         set:                                    # any entity of the switch, by path
//           sentVxStatus.scheduledMlagPeerArpSync: true
//           mlagStatus: {peerLinkDownFlag: 1}
//           vxlanFdbStatus.learnedHost[00:00:5e:00:01:01/10]: {vtepIp: 10.9.9.9}   # a record
//           controllerStatus[10010].macVtepTable[00:00:5e:00:01:01]: {preference: 7}
//         delete:
//           - localVxStatus.vtepTypeAddr[localVtep]
//       advance: 1.0                              # optional: then let 1 s of virtual time pass
//       expect:                                   # checked once the step has settled
//         B:
//           localVxStatus.vniVtiToDynVlanMap[10010/Vxlan1]: 10
//           localVxStatus.vtepTypeAddr[localVtep]: absent     # or present
//           localVxStatus.vniVtiToDynVlanMap: {count: 2}
//           container.secondarySm: present
//           mlagHostTable.hostEntry[00:11:22:33:44:55/10]: {lastMoveTime: 105}  # fields of a record
//
// A step does, in this order: at, link, delay, A's inputs, B's inputs, toggles, then lets
// everything due now happen, then advance, then the report and the expectations. Within a switch's inputs the
// role comes first, so that the plug-in has replaced the role state machine before any other
// input of the step arrives; then vti, set and delete, each in the order written.
//
// Paths name an entity of the switch, then attributes, with a collection's key in brackets, as
// the report prints them; keys and values are written as the report prints them too. `vlanToVni`
// writes a VTI's extendedVlanToVniMap, and its vlanToVniMap for VLANs 1 to 4094.
//
// Whatever the library would take as a programmer's error is refused here, before it runs: a
// mapping without a VNI (VNI none stands for no mapping), a VLAN 0, an FDB row of a remote type
// off a tunnel interface. A VTI keeps one status object for as long as it is in the directory:
// writing to it never replaces it. A record is a map of some of its fields; its key comes from
// the path. `controllerStatus[VNI]` names the controller's MAC table of that VNI.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Paths.h"

namespace Sim {

struct Expectation {
  // `fields`: a record whose text has the named fields ("name=value") with these values, as the
  // report prints them; the fields not named may hold anything.
  enum class Mode { equals, absent, present, count, fields };
  int line = 0;
  std::size_t switchIndex = 0;  // 0 for A, 1 for B
  Probe probe;
  Mode mode = Mode::equals;
  std::string value;  // in the dump's text form
  std::size_t count = 0;
  std::vector<std::pair<std::string, std::string>> fields;
};

struct Step {
  int line = 0;
  std::string note;
  std::string summary;  // what the step does, in a few words
  std::optional<double> at;
  std::optional<bool> linkUp;
  std::optional<double> delay;
  // The process's toggle "BreakBridgingConfigVlanConfigVxlan", read once when an agent starts:
  // taken only while neither switch is in the pair, as if both agents started anew.
  std::optional<bool> vlanConfigToggle;
  std::array<std::vector<SwitchOp>, 2> inputs;  // A's, B's
  std::optional<double> advance;
  std::vector<Expectation> expect;
  // The inputs and expectations as written (YAML, empty when none), kept so that the step can be
  // written back out: an operation, once compiled, no longer says what it does. Text rather than
  // nodes: assigning one node to another writes through to every copy of it.
  std::array<std::string, 2> inputsText;
  std::string expectText;
};

struct Scenario {
  std::string file;
  std::string name;
  std::string description;
  double delay = 0.0;
  std::vector<Step> steps;
};

// Raises ScenarioError, naming `file`, for anything malformed.
Scenario parseScenario(std::string_view text, std::string const& file);
Scenario loadScenario(std::string const& path);

// One step from its YAML map. `time` is the virtual time the scenario has reached before it (an
// `at` must not lie before it), moved on by the step's `at` and `advance`.
Step parseStep(YAML::Node const& n, double& time);

// The scenario as YAML that parseScenario reads back into the same steps.
std::string writeScenario(Scenario const& scenario);

// The scenario run when none is given (examples/pair.yaml, built in).
std::string_view builtinScenarioText();
inline constexpr char const* builtinScenarioName = "built-in scenario (examples/pair.yaml)";

}  // namespace Sim
