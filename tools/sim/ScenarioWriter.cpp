// A scenario written back as YAML, in the form Scenario.h describes: the soak writes the steps it
// made up this way, so that a failing run can be replayed as a plain scenario file.
#include <fmt/format.h>

#include "Scenario.h"

namespace Sim {

namespace {

// The shortest text that reads back as the same double.
std::string number(double v) { return fmt::format("{}", v); }

void writeStep(YAML::Emitter& out, Step const& s) {
  out << YAML::BeginMap;
  if (!s.note.empty()) out << YAML::Key << "note" << YAML::Value << s.note;
  if (s.at) out << YAML::Key << "at" << YAML::Value << number(*s.at);
  if (s.linkUp) out << YAML::Key << "link" << YAML::Value << (*s.linkUp ? "restore" : "cut");
  if (s.delay) out << YAML::Key << "delay" << YAML::Value << number(*s.delay);
  if (s.vlanConfigToggle) {
    out << YAML::Key << "toggles" << YAML::Value << YAML::BeginMap << YAML::Key << "BreakBridgingConfigVlanConfigVxlan"
        << YAML::Value << *s.vlanConfigToggle << YAML::EndMap;
  }
  for (std::size_t i = 0; i < 2; ++i) {
    if (!s.inputsText[i].empty()) {
      out << YAML::Key << (i == 0 ? "A" : "B") << YAML::Value << YAML::Load(s.inputsText[i]);
    }
  }
  if (s.advance) out << YAML::Key << "advance" << YAML::Value << number(*s.advance);
  if (!s.expectText.empty()) out << YAML::Key << "expect" << YAML::Value << YAML::Load(s.expectText);
  // A step that only waits for its `at` or only checks still needs one key to be a step.
  if (!s.at && !s.linkUp && !s.delay && !s.vlanConfigToggle && s.inputsText[0].empty() && s.inputsText[1].empty() &&
      !s.advance && s.expectText.empty()) {
    out << YAML::Key << "advance" << YAML::Value << "0";
  }
  out << YAML::EndMap;
}

}  // namespace

std::string writeScenario(Scenario const& sc) {
  YAML::Emitter out;
  out << YAML::BeginMap;
  if (!sc.name.empty()) out << YAML::Key << "name" << YAML::Value << sc.name;
  if (!sc.description.empty()) out << YAML::Key << "description" << YAML::Value << YAML::Literal << sc.description;
  if (sc.delay != 0.0) out << YAML::Key << "delay" << YAML::Value << number(sc.delay);
  out << YAML::Key << "steps" << YAML::Value << YAML::BeginSeq;
  for (Step const& s : sc.steps) writeStep(out, s);
  out << YAML::EndSeq << YAML::EndMap;
  return std::string(out.c_str()) + "\n";
}

}  // namespace Sim
