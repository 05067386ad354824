// Paths into a switch's entities, as a scenario writes them and as the dump prints them:
//
//   localVxStatus.vniVtiToDynVlanMap[10010/Vxlan1]
//   vtiStatusDir.vtiStatus[Vxlan1].localVtepAddr
//
// an entity of the switch, then attributes, a collection's key in brackets. A path is checked
// and turned into an operation once, from the entity types alone (their declared attributes),
// when the scenario is read: a scenario that names no such attribute, or a key or value that
// its type does not take, fails before anything runs. No entity needs code of its own here.
#pragma once

#include <yaml-cpp/yaml.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Switch.h"

namespace Sim {

// What is wrong with a scenario, and on which line of it (1-based; 0 when no line applies).
class ScenarioError : public std::runtime_error {
 public:
  ScenarioError(int line, std::string const& message, std::string file = {});
  int line() const noexcept { return line_; }
  std::string const& message() const noexcept { return message_; }
  std::string const& file() const noexcept { return file_; }

 private:
  int line_;
  std::string message_;
  std::string file_;
};

int lineOf(YAML::Node const& node) noexcept;
[[noreturn]] void failAt(YAML::Node const& node, std::string const& message);

// A change to one switch's entities.
using SwitchOp = std::function<void(SwitchEntities&)>;

// `path: value`. A value of ~ deletes a collection's key; a map sets an entity's attributes, or
// a collection's keys, one by one. A `prefix` is put before the path as written ("prefix.path").
SwitchOp compileSet(YAML::Node const& path, YAML::Node const& value, std::string const& prefix = {});
// Deletes a collection's key or member, or, for a collection named without a key, all of it.
SwitchOp compileDelete(YAML::Node const& path);

// What an expectation looks at: a line of the dump, or the prefix of an entity or collection.
struct Probe {
  enum class Kind { value, collection, entity };
  std::string line;
  Kind kind = Kind::value;
  // An expected value in the dump's text form; raises ScenarioError if the type refuses it.
  std::function<std::string(YAML::Node const&)> canonical;
  // Whether it can be absent: a single value of an entity always has one.
  bool optional = true;
};

// Also takes "container.<child>", present while the container holds that child.
Probe compileProbe(YAML::Node const& path);

}  // namespace Sim
