// The platform's free functions, each against the rule stated at its declaration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "entities/PlatformFunctions.h"

namespace {

using Bridging::EntryType;
using Bridging::VlanIdOrNone;
using Lanx::IpAddr;
using Lanx::IpGenAddr;

IpGenAddr ip(char const* text) { return IpGenAddr::parse(text); }
VlanIdOrNone const noVlan;
VlanIdOrNone const vlan10(10);

TEST(FdbStatusFromDir, FindsTheChildNamedByTheVniIfItIsAVniTable) {
  EXPECT_EQ(fdbStatusFromDir(nullptr, Vxlan::VniExt(10010)), nullptr);

  auto dir = Brix::newNode<Vok::Dir>("controller");
  auto vni10010 = dir->entityNew<VxlanController::VniFdbStatusV2>("10010");
  auto vni0 = dir->entityNew<VxlanController::VniFdbStatusV2>("0");
  dir->entityNew<Routing::L2Vpn::Config>("10020");
  Brix::Ptr<Vok::Dir const> cdir = dir;
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10010)), vni10010);
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(0)), vni0);
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10020)), nullptr) << "a child of another type";
  EXPECT_EQ(fdbStatusFromDir(cdir, Vxlan::VniExt(10030)), nullptr) << "no child of that name";
}

class ActiveArpFunctions : public ::testing::Test {
 protected:
  void SetUp() override {
    table->validSviIs(VlanIdOrNone(10), true);
    table->validSvi6Is(VlanIdOrNone(20), true);
    table->validSviIs(VlanIdOrNone(30), false);  // listed, but not valid
  }
  Brix::Ptr<Vxlan::ActiveArpIpTable> table = Brix::newNode<Vxlan::ActiveArpIpTable>();
  Brix::Ptr<Routing::L2Vpn::Config> config = Brix::newNode<Routing::L2Vpn::Config>();
};

TEST_F(ActiveArpFunctions, SelectiveInstallTakesOnlyUnicastHostsWhenOn) {
  struct Case {
    char const* addr;
    bool flag;
    bool whenOff;
    bool whenOn;
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
  auto select = [&](Case const& c) { return selectiveInstallAddr(table, ip(c.addr), c.flag, noVlan); };
  for (auto const& c : cases) EXPECT_EQ(select(c), c.whenOff) << c.addr << " flag " << c.flag << ", off";
  for (int which : {1, 2}) {
    table->arpSelectiveInstallIs(which == 1);
    table->arpSelectiveInstall2Is(which == 2);
    for (auto const& c : cases) EXPECT_EQ(select(c), c.whenOn) << c.addr << " flag " << c.flag << ", on " << which;
  }
  EXPECT_FALSE(selectiveInstallAddr(table, IpGenAddr(), false, noVlan)) << "no family";
  EXPECT_FALSE(selectiveInstallAddr(nullptr, ip("10.0.0.1"), false, noVlan));
}

TEST_F(ActiveArpFunctions, AVlanNeedsAValidSviOfTheAddressFamily) {
  auto v4 = ip("10.0.0.1");
  auto v6 = ip("2001:db8::1");
  for (bool on : {false, true}) {
    table->arpSelectiveInstallIs(on);
    EXPECT_TRUE(selectiveInstallAddr(table, v4, false, vlan10));
    EXPECT_FALSE(selectiveInstallAddr(table, v6, false, vlan10)) << "vlan 10 has an IPv4 SVI only";
    EXPECT_TRUE(selectiveInstallAddr(table, v6, false, VlanIdOrNone(20)));
    EXPECT_FALSE(selectiveInstallAddr(table, v4, false, VlanIdOrNone(20)));
    EXPECT_FALSE(selectiveInstallAddr(table, v4, false, VlanIdOrNone(30))) << "an SVI listed as not valid";
    EXPECT_FALSE(selectiveInstallAddr(table, v4, false, VlanIdOrNone(40)));
  }
}

TEST_F(ActiveArpFunctions, L2LearningNeedsASwitchOnAnAddressAndTheSviOfAGivenVlan) {
  auto v4 = ip("10.0.0.1");
  auto v6 = ip("2001:db8::1");
  EXPECT_FALSE(l2LearningInstallAddr(config, table, v4, noVlan)) << "both switches off";
  for (int which : {1, 2}) {
    config->l2LearningSwitch1Is(which == 1);
    config->l2LearningSwitch2Is(which == 2);
    EXPECT_TRUE(l2LearningInstallAddr(config, table, v4, noVlan)) << which;
    EXPECT_TRUE(l2LearningInstallAddr(config, table, ip("224.0.0.5"), noVlan)) << "no unicast test here";
    EXPECT_FALSE(l2LearningInstallAddr(config, table, ip("0.0.0.0"), noVlan));
    EXPECT_FALSE(l2LearningInstallAddr(config, table, ip("::"), noVlan));
    EXPECT_FALSE(l2LearningInstallAddr(config, table, IpGenAddr(), noVlan));
  }
  EXPECT_TRUE(l2LearningInstallAddr(config, table, v4, vlan10));
  EXPECT_FALSE(l2LearningInstallAddr(config, table, v6, vlan10));
  EXPECT_TRUE(l2LearningInstallAddr(config, table, v6, VlanIdOrNone(20)));
  EXPECT_FALSE(l2LearningInstallAddr(config, table, v4, VlanIdOrNone(20)));
  EXPECT_FALSE(l2LearningInstallAddr(config, table, v4, VlanIdOrNone(30)));
  EXPECT_TRUE(l2LearningInstallAddr(config, table, v6, noVlan)) << "without a VLAN no SVI is asked for";
  EXPECT_FALSE(l2LearningInstallAddr(nullptr, table, v4, noVlan));
  EXPECT_FALSE(l2LearningInstallAddr(config, nullptr, v4, noVlan));
}

TEST(EntryTypePredicates, TruthTableOverEveryEntryType) {
  struct Row {
    EntryType t;
    bool self, remote, controller, evpn;
  };
  Row const rows[] = {
      {EntryType::unknownEntry, false, false, false, false},
      {EntryType::learnedDynamicMac, true, false, false, false},
      {EntryType::configuredStaticMac, true, false, false, false},
      {EntryType::peerDynamicMac, false, false, false, false},
      {EntryType::peerStaticMac, false, false, false, false},
      {EntryType::learnedRemoteMac, true, true, false, false},
      {EntryType::configuredRemoteMac, true, true, false, false},
      {EntryType::receivedRemoteMac, true, true, true, false},
      {EntryType::evpnDynamicRemoteMac, true, true, true, true},
      {EntryType::evpnConfiguredRemoteMac, true, true, true, true},
      {EntryType::peerLearnedRemoteMac, false, true, false, false},
      {EntryType::peerReceivedRemoteMac, false, true, true, false},
      {EntryType::peerEvpnRemoteMac, false, true, true, true},
      {EntryType::routerMac, true, false, false, false},
  };
  static_assert(sizeof(rows) / sizeof(rows[0]) == static_cast<std::size_t>(EntryType::routerMac) + 1,
                "one row per entry type");
  for (std::size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); ++i) {
    Row const& r = rows[i];
    ASSERT_EQ(static_cast<std::size_t>(r.t), i);
    EXPECT_EQ(Bridging::isEntryTypeSelf(r.t), r.self) << r.t;
    EXPECT_EQ(Bridging::isEntryTypeRemote(r.t), r.remote) << r.t;
    EXPECT_EQ(Bridging::isEntryTypeController(r.t), r.controller) << r.t;
    EXPECT_EQ(Bridging::isEntryTypeEvpn(r.t), r.evpn) << r.t;
  }
  EXPECT_FALSE(Bridging::isEntryTypeSelf(static_cast<EntryType>(200)));
  EXPECT_FALSE(Bridging::isEntryTypeRemote(static_cast<EntryType>(200)));
}

TEST(LastMoveTime, ToPeerMovesOntoThePeersClock) {
  auto fdb = [](double lastMove, std::uint32_t moves) {
    return Shoal::Bridging::ShoalFdbStatus(Bridging::HostKey(), Lanx::IntfId("Vxlan1"), lastMove, moves,
                                           EntryType::learnedRemoteMac);
  };
  bool update = false;
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(100.0, 0), 5.0, false, &update), 105.0);
  EXPECT_FALSE(update) << "an entry that never moved leaves the local table alone";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(100.0, 0), -30.0, false, &update), 70.0);
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(100.0, 0), 5.0, true, &update), 100.0) << "one clock";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(2.0, 0), -5.0, false, &update), 0.0) << "never below 0";
  EXPECT_FALSE(update);
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeToPeer(fdb(100.0, 3), 5.0, false, &update), 105.0);
  EXPECT_TRUE(update);
}

TEST(LastMoveTime, FromPeerKeepsTheLatestMoveOnEitherSide) {
  using MlagP2p::HostEntry;
  auto p2p = [](double lastMove) { return HostEntry("Vxlan1:10.0.0.1", lastMove, 1, MlagP2p::HostEntryKey(), 5); };
  auto fdb = [](double lastMove) {
    return Shoal::Bridging::ShoalFdbStatus(Bridging::HostKey(), Lanx::IntfId("Vxlan1"), lastMove, 1,
                                           EntryType::learnedRemoteMac);
  };
  // This side's entry moved at 100 local, sent as 105 on the peer's clock (offset 5).
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(120.0), fdb(100.0), p2p(105.0), false, 5.0), 115.0)
      << "the peer moved it later";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(90.0), fdb(100.0), p2p(105.0), false, 5.0), 100.0)
      << "the peer's older move loses to ours";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(90.0), fdb(80.0), p2p(108.0), false, 5.0), 103.0)
      << "what we sent stands when it is later than both";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(120.0), fdb(100.0), p2p(100.0), true, 5.0), 120.0)
      << "one clock: no offset";
  EXPECT_DOUBLE_EQ(Mlag::calcLastMoveTimeFromPeer(p2p(1.0), fdb(-3.0), p2p(1.0), false, 10.0), 0.0) << "never below 0";
}

TEST(ToP2pHostEntryType, OlderPeersGetTheTypesTheyKnow) {
  for (unsigned t = 0; t <= static_cast<unsigned>(EntryType::routerMac); ++t) {
    auto type = static_cast<EntryType>(t);
    EXPECT_EQ(unsigned{Mlag::toP2pHostEntryType(type, 2)}, t) << type;
    EXPECT_EQ(unsigned{Mlag::toP2pHostEntryType(type, 7)}, t) << type;
    // Up to receivedRemoteMac as it is; the router MAC as a static MAC; later remote types as learned.
    unsigned old = t <= 7 ? t : t == 13 ? 2u : 5u;
    EXPECT_EQ(unsigned{Mlag::toP2pHostEntryType(type, 1)}, old) << type;
    EXPECT_EQ(unsigned{Mlag::toP2pHostEntryType(type, 0)}, old) << type;
  }
}

// A toggle directory of its own, named by MLAGVXLAN_TOGGLE_DIR for the test's duration.
class ToggleState : public ::testing::Test {
 protected:
  void SetUp() override {
    if (char const* old = std::getenv("MLAGVXLAN_TOGGLE_DIR")) saved_ = old;
    dir_ = std::filesystem::path(::testing::TempDir()) /
           ("toggles-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    ::setenv("MLAGVXLAN_TOGGLE_DIR", dir_.c_str(), 1);
  }
  void TearDown() override {
    if (saved_) {
      ::setenv("MLAGVXLAN_TOGGLE_DIR", saved_->c_str(), 1);
    } else {
      ::unsetenv("MLAGVXLAN_TOGGLE_DIR");
    }
    std::filesystem::remove_all(dir_);
  }
  void write(char const* text) { std::ofstream(dir_ / "Vxlan.json") << text; }
  // The answer for both defaults, with what went to standard error.
  struct Answer {
    bool withTrue, withFalse;
    std::string err;
  };
  static Answer ask() {
    ::testing::internal::CaptureStderr();
    bool t = getToggleState("BreakBridgingConfigVlanConfigVxlan", "Vxlan.json", true);
    bool f = getToggleState("BreakBridgingConfigVlanConfigVxlan", "Vxlan.json", false);
    return {t, f, ::testing::internal::GetCapturedStderr()};
  }
  std::filesystem::path dir_;
  std::optional<std::string> saved_;
};

TEST_F(ToggleState, AFileThatIsNoJsonObjectGivesTheDefaultWithAWarning) {
  struct Case {
    char const* what;
    char const* text;  // null: no file
  };
  for (Case c : {Case{"missing", nullptr}, Case{"malformed", "{\"BreakBridgingConfigVlanConfigVxlan\": tru"},
                 Case{"empty", ""}, Case{"not an object", "[true]"}}) {
    std::filesystem::remove(dir_ / "Vxlan.json");
    if (c.text) write(c.text);
    Answer a = ask();
    EXPECT_TRUE(a.withTrue) << c.what;
    EXPECT_FALSE(a.withFalse) << c.what;
    // One line for each of the two asks, each naming the file and the toggle.
    EXPECT_EQ(std::count(a.err.begin(), a.err.end(), '\n'), 2) << c.what << ": " << a.err;
    std::string first = a.err.substr(0, a.err.find('\n'));
    EXPECT_NE(first.find((dir_ / "Vxlan.json").string()), std::string::npos) << c.what << ": " << first;
    EXPECT_NE(first.find("BreakBridgingConfigVlanConfigVxlan"), std::string::npos) << c.what << ": " << first;
  }
}

TEST_F(ToggleState, TheMemberDecidesIfItIsABoolean) {
  struct Case {
    char const* text;
    std::optional<bool> value;  // none: the default
  };
  for (Case c : {Case{R"({"BreakBridgingConfigVlanConfigVxlan": true})", true},
                 Case{R"({"Other": false, "BreakBridgingConfigVlanConfigVxlan": false})", false},
                 Case{R"({"Other": false})", std::nullopt}, Case{R"({})", std::nullopt},
                 Case{R"({"BreakBridgingConfigVlanConfigVxlan": 0})", std::nullopt},
                 Case{R"({"BreakBridgingConfigVlanConfigVxlan": "false"})", std::nullopt}}) {
    write(c.text);
    Answer a = ask();
    EXPECT_EQ(a.withTrue, c.value.value_or(true)) << c.text;
    EXPECT_EQ(a.withFalse, c.value.value_or(false)) << c.text;
    EXPECT_EQ(a.err, "") << c.text;
  }
}

}  // namespace
