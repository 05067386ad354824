// Shared dynamic VLANs: the primary following the peer's set, and the secondary keeping its set
// from the VLAN configuration by either input, with damage in the flat table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>

#include "entities/PlatformFunctions.h"
#include "vxlan/BfdVlanTestSupport.h"
#include "vxlan/PublicationRecorder.h"

namespace {

using namespace BfdVlanTest;

using PrimarySharedVlanTest = Fixture;

TEST_F(PrimarySharedVlanTest, FirstRunMakesTheLocalSetThePeersThenFollowsItVlanByVlan) {
  // A full local set against a peer with 93 fewer, one of them present as false.
  for (std::uint16_t v = 1; v <= 4094; ++v) local->sharedDynVlanIs(Bridging::VlanId(v), true);
  VlanSet peer = vlanRange(95, 4094);
  for (auto v : peer) recv->sharedDynVlanIs(Bridging::VlanId(v), true);
  recv->sharedDynVlanIs(Bridging::VlanId(1), false);
  // A VTEP entry's reactor runs before the role's first run: its write lets the peer share VLAN 3
  // then, and that notification is dropped; the first run's walk covers it.
  vtepDir->vtepStatusV2Is(Brix::String("Vxlan1"))->bfdPeerStatusIs(Row(Brix::String("a"), Lanx::IpAddr(192, 0, 2, 1)));
  bool early = false;
  TestSupport::PublicationRecorder beforeFirstRun(*sent, [&](auto const&) {
    if (!std::exchange(early, true)) recv->sharedDynVlanIs(Bridging::VlanId(3), true);
  });
  peer.insert(3);
  auto sm = primary();
  ASSERT_TRUE(early);
  EXPECT_LT(trace.indexOf("PrimarySm::handleInitialized()"), trace.indexOf("PrimarySm::handleSharedDynVlan(3)"));
  EXPECT_EQ(shared(*local), peer);
  EXPECT_EQ(local->sharedDynVlanCount(), peer.size()) << "no key left with false";
  EXPECT_EQ(trace.count(" SharedDynVlan before 4094"), 1u);
  EXPECT_EQ(trace.count(" SharedDynVlan after 4001"), 1u);
  EXPECT_EQ(trace.starting(" Del shared dynVlan").size(), 94u) << "93 in the local walk, VLAN 1 again in the peer's";
  EXPECT_THAT(trace.starting(" Added shared dynVlan"), ::testing::IsEmpty());
  EXPECT_LT(trace.indexOf(" Processing localVxStatus"), trace.indexOf(" Del shared dynVlan 1"));
  EXPECT_LT(trace.indexOf(" Del shared dynVlan 94"), trace.indexOf(" Processing recvVxStatus"));

  enum class Do { set, del, direct };  // direct: a notification with no change behind it
  struct Step {
    std::uint16_t vlan;
    Do what;
    bool value;
    char const* line;  // the level 6 line, or none
    bool notified = true;
  };
  for (auto const& s : {Step{7, Do::set, true, " Added shared dynVlan 7"}, Step{7, Do::set, true, nullptr, false},
                        Step{7, Do::direct, true, nullptr}, Step{7, Do::set, false, " Del shared dynVlan 7"},
                        Step{100, Do::del, false, " Del shared dynVlan 100"},
                        Step{100, Do::direct, false, " Del shared dynVlan 100"}}) {
    SCOPED_TRACE(s.vlan);
    trace.clear();
    if (s.what == Do::set) recv->sharedDynVlanIs(Bridging::VlanId(s.vlan), s.value);
    if (s.what == Do::del) (void)recv->sharedDynVlanDel(Bridging::VlanId(s.vlan));
    if (s.what == Do::direct) sm->handleSharedDynVlan(Bridging::VlanId(s.vlan));
    s.value ? (void)peer.insert(s.vlan) : (void)peer.erase(s.vlan);
    EXPECT_EQ(shared(*local), peer);
    std::string const fn = "PrimarySm::handleSharedDynVlan(" + std::to_string(s.vlan) + ")";
    std::vector<std::string> expected{fn, fn + " return"};
    if (s.line) expected.insert(expected.begin() + 1, s.line);
    EXPECT_EQ(trace.texts(), s.notified ? expected : std::vector<std::string>{});
    EXPECT_EQ(trace.levelOf(s.line ? s.line : ""), s.line ? 6 : -1);
  }
  sm = nullptr;
  EXPECT_EQ(shared(*local), vlanRange(1, 4094));
}

}  // namespace

namespace {

// The VLAN configuration by one input, the one the toggle picks.
class VlanConfigFixture : public Fixture {
 protected:
  explicit VlanConfigFixture(bool flat) : flat(flat) {
    MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(flat);
  }
  ~VlanConfigFixture() override { MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanForTest(std::nullopt); }
  // Configures `vlan` by `source` in the live input (or in the other one).
  void configure(std::uint16_t vlan, char const* source, bool live = true) {
    Bridging::VlanId id(vlan);
    if (flat != live) return (void)bridgingConfig->vlanConfigIs(id)->configSourceIs(Brix::String(source));
    auto r = flatDir->vlanConfig().readOrDefault(id);
    r.vlanIdIs(id);
    r.configSourceIs(Swix::FString(source));
    flatDir->vlanConfigIs(id, r);
  }
  void unconfigure(std::uint16_t vlan) {
    flat ? (void)flatDir->vlanConfigDel(Bridging::VlanId(vlan))
         : (void)bridgingConfig->vlanConfigDel(Bridging::VlanId(vlan));
  }
  // Every VLAN but those of `out`.
  static VlanSet allBut(VlanSet const& out) {
    VlanSet s = vlanRange(1, 4094);
    for (auto v : out) s.erase(v);
    return s;
  }
  bool const flat;
};

class SecondaryVlanConfigTest : public VlanConfigFixture, public ::testing::WithParamInterface<bool> {
 protected:
  SecondaryVlanConfigTest() : VlanConfigFixture(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(ByInput, SecondaryVlanConfigTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "FlatTable" : "Entities"; });

class FlatVlanConfigTest : public VlanConfigFixture {
 protected:
  FlatVlanConfigTest() : VlanConfigFixture(true) {}
};

TEST_P(SecondaryVlanConfigTest, AVlanLeavesBothSetsWhileASourceOutsideTheListConfiguresIt) {
  for (char const* s : {"static", "controller", "evpn", "mlag", "default"}) {
    EXPECT_TRUE(MlagVxlan::SecondarySm::isShareableVlanSource(s)) << s;
  }
  for (char const* s : {"", "cli", "Default", "unknown", "default "}) {
    EXPECT_FALSE(MlagVxlan::SecondarySm::isShareableVlanSource(s)) << s;
  }
  configure(10, "default");
  configure(20, "cli");
  configure(30, "evpn");
  configure(40, "cli", false);  // the other input: never read
  auto sm = secondary();
  EXPECT_EQ(shared(*sent), allBut({20}));
  EXPECT_EQ(shared(*local), (VlanSet{10, 30})) << "localVxStatus gets only what the configuration says";
  EXPECT_EQ(sm->vlanConfigConfigSourceSmCount(), flat ? 0u : 3u);
  EXPECT_EQ(trace.levelOf(" (20)::handleVlanSource Del shared dyn vlan 20"), 6);
  EXPECT_EQ(trace.levelOf("void MlagVxlan::SecondarySm::handleVlanSource(Bridging::VlanId, const String&) Add "
                          "shared dyn vlan10"),
            8);

  struct Step {
    std::function<void()> change;
    VlanSet notShared;
  };
  for (auto const& s : {Step{[&] { configure(20, "default"); }, {}}, Step{[&] { configure(10, "cli"); }, {10}},
                        Step{[&] { unconfigure(10); }, {}}, Step{[&] { configure(50, "cli"); }, {50}},
                        Step{[&] { configure(60, "cli", false), unconfigure(40); }, {50}}}) {
    s.change();
    EXPECT_EQ(shared(*sent), allBut(s.notShared));
    for (std::uint16_t v : {10, 20}) EXPECT_EQ(shared(*local).count(v), 1u - s.notShared.count(v)) << v;
  }
  // A VLAN that goes comes back with the three kinds of trace, whatever its last source.
  EXPECT_EQ(trace.levelOf("SecondarySm::VokVlanConfig(10)::vlanConfigSourceSmCleanup()"), 5);
  EXPECT_EQ(trace.count("void MlagVxlan::SecondarySm::vlanConfigSourceSmCleanup(Bridging::VlanId) return(): 10"), 1u);

  // The role's end fills both sets, and the children's ends write their VLANs once more.
  trace.clear();
  sm = nullptr;
  EXPECT_EQ(shared(*sent), vlanRange(1, 4094));
  EXPECT_EQ(shared(*local), vlanRange(1, 4094));
  EXPECT_EQ(trace.count("SecondarySm::VokVlanConfig(50)::vlanConfigSourceSmCleanup()"), flat ? 0u : 1u);
}

TEST_F(FlatVlanConfigTest, OnlyAChangedSourceIsWrittenAndAVlanInNeitherPlaceIsSharedAgain) {
  configure(10, "cli");
  auto sm = secondary();
  EXPECT_EQ(sm->configSourceForVlan(Bridging::VlanId(10)).view(), "cli");
  TestSupport::PublicationRecorder pubs(*sent);
  // Another field of the row changes: one level 8 line, no write.
  auto r = flatDir->vlanConfig().readOrDefault(Bridging::VlanId(10));
  r.priorityIs(7);
  trace.clear();
  flatDir->vlanConfigIs(Bridging::VlanId(10), r);
  EXPECT_EQ(trace.texts(),
            std::vector<std::string>{"void MlagVxlan::SecondarySm::handleVlanConfigFlat(Bridging::VlanId) 10"});
  EXPECT_EQ(pubs.count(Status::sharedDynVlanField), 0u);
  // A VLAN in neither the table nor the bookkeeping: shared again all the same.
  (void)sent->sharedDynVlanDel(Bridging::VlanId(99));
  sm->handleVlanConfigFlat(Bridging::VlanId(99));
  EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(99)));
  unconfigure(10);
  EXPECT_FALSE(sm->configSourceForVlanHas(Bridging::VlanId(10)));
  EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(10)));
}

// Damage at each read of the flat table, counted from the start of the first run: the walk's
// steps and the reads by key alternate, so an odd access ends the walk there and an even one
// makes that VLAN read as absent, hence shared; the last is the step that finds the end. Nothing
// escapes and each damage is reported once.
TEST_F(FlatVlanConfigTest, DamageAtEachReadOfTheFlatTableIsReportedAndTakesTheDefault) {
  std::vector<std::uint16_t> const vlans = {10, 20, 30, 40};
  for (auto v : vlans) configure(v, "cli");
  auto const& table = flatDir->vlanConfig();
  for (std::uint32_t n = 1; n <= 2 * vlans.size() + 1; ++n) {
    SCOPED_TRACE(n);
    sent->sharedDynVlanDelAll();
    auto reportsBefore = table.corruptionReports();
    table.damageIs(Shoal::ShoalMapBase::DamageAt::nth, n, "torn row");
    MlagVxlan::SecondarySm::Ptr sm;
    ASSERT_NO_THROW(sm = secondary());
    VlanSet notShared;
    for (std::size_t i = 0; i < vlans.size(); ++i) {
      std::uint32_t const step = std::uint32_t(2 * i + 1), read = step + 1;
      if (n == step) break;
      if (n != read) notShared.insert(vlans[i]);
    }
    EXPECT_EQ(shared(*sent), allBut(notShared));
    EXPECT_EQ(table.corruptionReports() - reportsBefore, 1u);
    // A notification's read by key, damaged: the VLAN reads as gone.
    table.damageIs(Shoal::ShoalMapBase::DamageAt::every);
    sm->vok_handleVlanConfigFlatDir_vlanConfig(Bridging::VlanId(40));
    EXPECT_TRUE(sent->sharedDynVlan(Bridging::VlanId(40)));
    EXPECT_EQ(table.lastCorruption().view(), "Shoal table damaged");
    table.damageIs(Shoal::ShoalMapBase::DamageAt::nothing);
    sm = nullptr;
  }
}

TEST(VlanConfigToggle, IsAskedOncePerProcess) {
  bool const first = MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanEnabled();
  auto dir = std::filesystem::temp_directory_path() / ("toggle-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "Vxlan.json") << "{\"BreakBridgingConfigVlanConfigVxlan\": " << (first ? "false" : "true") << "}";
  ::setenv("MLAGVXLAN_TOGGLE_DIR", dir.c_str(), 1);
  EXPECT_EQ(MlagVxlan::toggleBreakBridgingConfigVlanConfigVxlanEnabled(), first);
  EXPECT_NE(getToggleState("BreakBridgingConfigVlanConfigVxlan", "Vxlan.json", true), first) << "the file is read";
  ::unsetenv("MLAGVXLAN_TOGGLE_DIR");
  std::filesystem::remove_all(dir);
}

}  // namespace
