// The benchmark table: rows read from their file, figures found by their whole names, and a row
// met only when every target it names holds.
#include <gtest/gtest.h>

#include "BenchTable.h"

namespace {

using BenchTable::Error;

nlohmann::json output(std::string const& name, double cpuTime, char const* unit, double counter = 0) {
  nlohmann::json b = {{"name", name}, {"run_type", "iteration"}, {"cpu_time", cpuTime}, {"time_unit", unit}};
  if (counter > 0) b["bytes_per_entry_overhead"] = counter;
  return {{"benchmarks", nlohmann::json::array({b})}};
}

TEST(BenchTableTest, RowsAreMetOnlyWhenEveryTargetHolds) {
  BenchTable::Results results;
  results.add("a_bench", output("Fast/4094", 4.0, "ms"));
  results.add("a_bench", output("Baseline/4094", 2.0, "ms"));
  results.add("b_bench", output("Map/1M/iterations:200", 1500, "ns", 17.5));
  auto targets = BenchTable::parseTargets(R"(
- {name: time and ratio, figure: a_bench/Fast/4094, baseline: a_bench/Baseline/4094, unit: ms, max: 5, ratio: 2}
- {name: ratio over, figure: a_bench/Fast/4094, baseline: a_bench/Baseline/4094, unit: ms, ratio: 1.5}
- {name: max over in another unit, figure: a_bench/Fast/4094, unit: us, max: 3999}
- {name: a counter under a name with colons, figure: "b_bench/Map/1M/iterations:200:bytes_per_entry_overhead", unit: B, max: 32}
- {name: a minimum, figure: b_bench/Map/1M/iterations:200, unit: us, min: 2}
- {name: missing, figure: a_bench/Slow, unit: ms, max: 1}
)",
                                          "t.yaml");
  auto rows = BenchTable::evaluate(targets, results);
  ASSERT_EQ(rows.size(), 6u);
  struct Want {
    bool met;
    double value;
  };
  Want const want[] = {{true, 4.0}, {false, 4.0}, {false, 4000}, {true, 17.5}, {false, 1.5}};
  for (std::size_t i = 0; i < std::size(want); ++i) {
    EXPECT_EQ(rows[i].met, want[i].met) << rows[i].target.name;
    ASSERT_TRUE(rows[i].value) << rows[i].target.name;
    EXPECT_DOUBLE_EQ(*rows[i].value, want[i].value) << rows[i].target.name;
  }
  EXPECT_DOUBLE_EQ(*rows[0].ratio, 2.0);
  EXPECT_FALSE(rows[5].met);
  EXPECT_EQ(rows[5].missing, "a_bench/Slow");

  auto json = BenchTable::tableJson(rows);
  EXPECT_EQ(json[0]["target"], "<= 5 ms, <= 2x");
  EXPECT_EQ(json[0]["baseline"], 2.0);
  EXPECT_TRUE(json[3]["ratio"].is_null());
  EXPECT_EQ(json[1]["met"], false);
  EXPECT_NE(BenchTable::tableText(rows).find("no result"), std::string::npos);
}

TEST(BenchTableTest, BadRowsAreRefusedWithTheirLine) {
  struct Case {
    char const* yaml;
    char const* words;
  };
  Case const cases[] = {
      {"- {name: x, figure: a/b, unit: ms}\n", "t.yaml:1: a row needs a target"},
      {"- {name: x, figure: a/b, unit: ms, ratio: 2}\n", "a ratio needs a baseline"},
      {"- {name: x, unit: ms, max: 1}\n", "a row needs 'figure'"},
      {"- {name: x, figure: a/b, unit: ms, max: -1}\n", "'max' must be a number above 0"},
      {"- {name: x, figure: a/b, unit: ms, max: 1, colour: red}\n", "unknown key 'colour'"},
      {"name: x\n", "expected a list of rows"},
      {"- [\n", "not valid YAML"},
  };
  for (auto const& c : cases) {
    try {
      (void)BenchTable::parseTargets(c.yaml, "t.yaml");
      ADD_FAILURE() << c.yaml << " was accepted";
    } catch (Error const& e) {
      EXPECT_NE(std::string(e.what()).find(c.words), std::string::npos) << e.what();
    }
  }
  // A time read in a unit that is not one.
  BenchTable::Results results;
  results.add("a_bench", output("Fast", 4.0, "ms"));
  EXPECT_THROW((void)results.figure("a_bench/Fast", "B"), Error);
  EXPECT_THROW(results.add("x", nlohmann::json::object()), Error);
}

}  // namespace
