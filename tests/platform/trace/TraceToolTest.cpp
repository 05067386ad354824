// The decoder's command line, run as a user runs it.
#ifdef MLAGVXLAN_TRACE_TOOL

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "support/RingLogDir.h"
#include "trace/DualLog.h"

namespace {

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

ToolRun runTool(std::string const& args, std::string const& dir) {
  std::string errFile = dir + "/stderr.txt";
  std::string cmd = std::string(MLAGVXLAN_TRACE_TOOL) + " " + args + " 2>" + errFile;
  ToolRun r{-1, {}, {}};
  FILE* p = ::popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
  int st = ::pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  std::ifstream in(errFile);
  r.err.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return r;
}

class TraceToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Vok::System::timeSourceIs(&time);
    std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle("tool.rl", nullptr, nullptr, 0, 0));
    ASSERT_NE(rl->file(), nullptr) << rl->error();
    file = rl->fileName();
    for (std::uint16_t vlan : {10, 20}) {
      DUAL_LOG(rl.get(), nullptr, 5, "handleVlan({vlan})", vlan);
      time.nowIs(time.now() + 0.5);
      DUAL_LOG(rl.get(), nullptr, 6, "vlan {vlan} added", vlan);
    }
  }
  void TearDown() override { Vok::System::timeSourceIs(nullptr); }

  TestSupport::RingLogDir dir;
  Vok::ManualTimeSource time{7.0};
  std::string file;
};

TEST_F(TraceToolTest, PrintsTheRecordsInOrderWithFilters) {
  ToolRun all = runTool(file, dir.path());
  EXPECT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.out,
            "7.000000 5 handleVlan(10)\n"
            "7.500000 6 vlan 10 added\n"
            "7.500000 5 handleVlan(20)\n"
            "8.000000 6 vlan 20 added\n");

  ToolRun filtered = runTool("--level 6 --grep 20 --seq " + file, dir.path());
  EXPECT_EQ(filtered.status, 0) << filtered.err;
  EXPECT_EQ(filtered.out, "3 8.000000 6 vlan 20 added\n");
}

TEST_F(TraceToolTest, DamagedFileBadFlagOrBadLevelFailWithAMessage) {
  std::string bytes;
  {
    std::ifstream in(file, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::ofstream(dir.path() + "/cut.rl", std::ios::binary) << bytes.substr(0, 5000);
  struct Case {
    std::string args;
    int status;
    char const* err;
  };
  for (auto const& c :
       {Case{dir.path() + "/cut.rl", 1, "file truncated: 5000 of"}, Case{dir.path() + "/none.rl", 1, "cannot read"},
        Case{"--bogus " + file, 2, "bogus"}, Case{"--level 12 " + file, 2, "bad level '12'"}}) {
    ToolRun r = runTool(c.args, dir.path());
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    if (c.status == 2) {
      EXPECT_TRUE(r.out.empty()) << c.args;
    }
  }
}

}  // namespace

#endif
