// The platform's free functions, each against the rule stated at its declaration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "entities/PlatformFunctions.h"

namespace {

using Bridging::EntryType;
using Bridging::VlanIdOrNone;
using Lanx::IpGenAddr;

IpGenAddr ip(char const* text) { return IpGenAddr::parse(text); }
VlanIdOrNone const noVlan;

TEST(FdbStatusFromDir, FindsTheChildNamedByTheVniIfItIsAVniTable) {
  EXPECT_EQ(fdbStatusFromDir(nullptr, Vxlan::VniExt(10010)), nullptr);
  auto dir = Brix::newNode<Vok::Dir>("controller");
  auto vni10010 = dir->entityNew<VxlanController::VniFdbStatusV2>("10010");
  dir->entityNew<Routing::L2Vpn::Config>("10020");  // a child of another type
  Brix::Ptr<Vok::Dir const> cdir = dir;
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10010)), vni10010);
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10020)), nullptr);
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10030)), nullptr);
}

// VLAN 10 has a valid IPv4 SVI, 20 an IPv6 one, 30 one listed as not valid, 40 none.
struct ActiveArpFunctions : ::testing::Test {
  ActiveArpFunctions() {
    table->validSviIs(VlanIdOrNone(10), true);
    table->validSvi6Is(VlanIdOrNone(20), true);
    table->validSviIs(VlanIdOrNone(30), false);
  }
  Brix::Ptr<Vxlan::ActiveArpIpTable> table = Brix::newNode<Vxlan::ActiveArpIpTable>();
  Brix::Ptr<Routing::L2Vpn::Config> config = Brix::newNode<Routing::L2Vpn::Config>();
};

TEST_F(ActiveArpFunctions, SelectiveInstallTakesOnlyUnicastHostsWhenOn) {
  struct Case {
    char const* addr;
    bool flag, whenOff, whenOn;
  };
  Case const cases[] = {
      {"10.0.0.1", false, true, true},         {"0.0.0.0", false, false, false},
      {"224.0.0.5", false, true, false},       {"239.1.1.1", false, true, false},
      {"255.255.255.255", false, true, false}, {"127.0.0.1", false, true, false},
      {"2001:db8::1", false, true, true},      {"::", false, false, false},
      {"ff02::1", false, true, false},         {"::1", false, true, false},
      {"fe80::1", false, true, false},         {"fe80::1", true, true, true},
      {"febf::1", false, true, false},         {"fec0::1", false, true, true},
  };
  for (int which : {0, 1, 2}) {
    table->arpSelectiveInstallIs(which == 1);
    table->arpSelectiveInstall2Is(which == 2);
    for (auto const& c : cases) {
      EXPECT_EQ(selectiveInstallAddr(table, ip(c.addr), c.flag, noVlan), which ? c.whenOn : c.whenOff)
          << c.addr << " flag " << c.flag << ", switch " << which;
    }
  }
  EXPECT_FALSE(selectiveInstallAddr(table, IpGenAddr(), false, noVlan)) << "no family";
  EXPECT_FALSE(selectiveInstallAddr(nullptr, ip("10.0.0.1"), false, noVlan));
}

TEST_F(ActiveArpFunctions, L2LearningNeedsASwitchAnAddressAndForAVlanAValidSviOfTheFamily) {
  auto v4 = ip("10.0.0.1");
  EXPECT_FALSE(l2LearningInstallAddr(config, table, v4, noVlan)) << "both switches off";
  for (int which : {1, 2}) {
    config->l2LearningSwitch1Is(which == 1);
    config->l2LearningSwitch2Is(which == 2);
    // No unicast test here, and without a VLAN no SVI is asked for.
    for (char const* a : {"10.0.0.1", "224.0.0.5", "2001:db8::1"})
      EXPECT_TRUE(l2LearningInstallAddr(config, table, ip(a), noVlan));
    for (auto none : {ip("0.0.0.0"), ip("::"), IpGenAddr()})
      EXPECT_FALSE(l2LearningInstallAddr(config, table, none, noVlan));
  }
  EXPECT_FALSE(l2LearningInstallAddr(nullptr, table, v4, noVlan));
  EXPECT_FALSE(l2LearningInstallAddr(config, nullptr, v4, noVlan));
  struct Case {
    char const* addr;
    std::uint16_t vlan;
    bool ok;
  };
  for (auto c : {Case{"10.0.0.1", 10, true}, Case{"2001:db8::1", 10, false}, Case{"2001:db8::1", 20, true},
                 Case{"10.0.0.1", 20, false}, Case{"10.0.0.1", 30, false}, Case{"10.0.0.1", 40, false}}) {
    EXPECT_EQ(l2LearningInstallAddr(config, table, ip(c.addr), VlanIdOrNone(c.vlan)), c.ok) << c.addr << " " << c.vlan;
    for (bool on : {false, true}) {
      table->arpSelectiveInstallIs(on);
      EXPECT_EQ(selectiveInstallAddr(table, ip(c.addr), false, VlanIdOrNone(c.vlan)), c.ok) << c.addr << " " << c.vlan;
    }
  }
}

TEST(EntryTypes, PredicatesAndTheTypesOlderPeersGet) {
  // Per entry type in order, from unknownEntry to routerMac: Self, Remote, Controller, Evpn.
  char const* const rows[] = {"----", "S---", "S---", "----", "----", "SR--", "SR--",
                              "SRC-", "SRCE", "SRCE", "-R--", "-RC-", "-RCE", "S---"};
  static_assert(std::size(rows) == static_cast<std::size_t>(EntryType::routerMac) + 1, "one row per entry type");
  for (unsigned t = 0; t < std::size(rows); ++t) {
    auto type = static_cast<EntryType>(t);
    std::string got{Bridging::isEntryTypeSelf(type) ? 'S' : '-', Bridging::isEntryTypeRemote(type) ? 'R' : '-',
                    Bridging::isEntryTypeController(type) ? 'C' : '-', Bridging::isEntryTypeEvpn(type) ? 'E' : '-'};
    EXPECT_EQ(got, rows[t]) << type;
    // Up to receivedRemoteMac as it is; the router MAC as a static MAC; later remote types as learned.
    unsigned old = t <= 7 ? t : t == 13 ? 2u : 5u;
    for (std::uint32_t version : {0u, 1u, 2u, 7u}) {
      EXPECT_EQ(unsigned{Mlag::toP2pHostEntryType(type, version)}, version >= 2 ? t : old) << type << " v" << version;
    }
  }
  auto odd = static_cast<EntryType>(200);
  EXPECT_FALSE(Bridging::isEntryTypeSelf(odd) || Bridging::isEntryTypeRemote(odd));
}

TEST(LastMoveTime, MovesBetweenTheClocksAndKeepsTheLatestMove) {
  auto fdb = [](double lastMove, std::uint32_t moves) {
    return Shoal::Bridging::ShoalFdbStatus(Bridging::HostKey(), Lanx::IntfId("Vxlan1"), lastMove, moves,
                                           EntryType::learnedRemoteMac);
  };
  struct ToPeer {
    double lastMove;
    std::uint32_t moves;
    double offset;
    bool oneClock;
    double sent;
  };
  // An entry that never moved leaves the local table alone; one clock takes no offset; never below 0.
  for (auto c : {ToPeer{100, 0, 5, false, 105}, ToPeer{100, 0, -30, false, 70}, ToPeer{100, 0, 5, true, 100},
                 ToPeer{2, 0, -5, false, 0}, ToPeer{100, 3, 5, false, 105}}) {
    bool update = false;
    EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(c.lastMove, c.moves), c.offset, c.oneClock, &update), c.sent);
    EXPECT_EQ(update, c.moves > 0) << c.lastMove;
  }
  auto p2p = [](double t) { return MlagP2p::HostEntry("Vxlan1:10.0.0.1", t, 1, MlagP2p::HostEntryKey(), 5); };
  struct FromPeer {
    double peer, ours, sent;
    bool oneClock;
    double offset, result;
  };
  // This side's entry moved at 100 local, sent as 105 on the peer's clock (offset 5); the peer
  // sends on our clock: its later move wins as it stands, its older one loses, what we sent
  // stands (brought back) when later than both.
  for (auto c : {FromPeer{120, 100, 105, false, 5, 120}, FromPeer{90, 100, 105, false, 5, 100},
                 FromPeer{90, 80, 108, false, 5, 103}, FromPeer{120, 100, 100, true, 5, 120},
                 FromPeer{-1, -3, 1, false, 10, 0}}) {
    EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(c.peer), fdb(c.ours, 1), p2p(c.sent), c.oneClock, c.offset),
                     c.result)
        << c.peer << " " << c.ours << " " << c.sent;
  }
}

// A toggle directory of its own, named by MLAGVXLAN_TOGGLE_DIR for the test's duration.
TEST(ToggleState, TheMemberDecidesIfItIsABooleanElseTheDefaultWithAWarningForABadFile) {
  std::optional<std::string> saved;
  if (char const* old = std::getenv("MLAGVXLAN_TOGGLE_DIR")) saved = old;
  auto dir = std::filesystem::path(::testing::TempDir()) / "toggles";
  std::filesystem::create_directories(dir);
  ::setenv("MLAGVXLAN_TOGGLE_DIR", dir.c_str(), 1);
  auto const file = dir / "Vxlan.json";
  char const* const name = "BreakBridgingConfigVlanConfigVxlan";
  struct Case {
    char const* text;           // null: no file
    std::optional<bool> value;  // none: the default
    bool warns;
  };
  for (Case c :
       {Case{nullptr, {}, true}, Case{"{\"BreakBridgingConfigVlanConfigVxlan\": tru", {}, true}, Case{"", {}, true},
        Case{"[true]", {}, true}, Case{R"({"BreakBridgingConfigVlanConfigVxlan": true})", true, false},
        Case{R"({"Other": false, "BreakBridgingConfigVlanConfigVxlan": false})", false, false},
        Case{R"({"Other": false})", {}, false}, Case{R"({"BreakBridgingConfigVlanConfigVxlan": 0})", {}, false},
        Case{R"({"BreakBridgingConfigVlanConfigVxlan": "false"})", {}, false}}) {
    std::string const what = c.text ? c.text : "no file";
    std::filesystem::remove(file);
    if (c.text) std::ofstream(file) << c.text;
    ::testing::internal::CaptureStderr();
    for (bool def : {true, false}) EXPECT_EQ(getToggleState(name, "Vxlan.json", def), c.value.value_or(def)) << what;
    std::string err = ::testing::internal::GetCapturedStderr();
    // One line for each ask, naming the file and the toggle.
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), c.warns ? 2 : 0) << what << ": " << err;
    EXPECT_EQ(c.warns, err.find(file.string()) != std::string::npos && err.find(name) != std::string::npos) << err;
  }
  saved ? ::setenv("MLAGVXLAN_TOGGLE_DIR", saved->c_str(), 1) : ::unsetenv("MLAGVXLAN_TOGGLE_DIR");
  std::filesystem::remove_all(dir);
}

}  // namespace
