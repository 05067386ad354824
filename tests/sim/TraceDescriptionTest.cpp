// The ring file written by the built-in scenario describes each message of a handler once: a
// message reached from several paths of one function is one statement with one id.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

#include "Pair.h"
#include "Run.h"
#include "Scenario.h"
#include "trace/RingLogReader.h"

namespace {

TEST(TraceDescriptionTest, BuiltinScenarioDescribesEachMessageOfAFunctionOnce) {
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
