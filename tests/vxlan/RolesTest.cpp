// The two peer roles: construction and first run with the exchange child, the stale VRF passes,
// the shared VLAN reset and range test of the secondary, the cleanup both roles leave behind,
// a role that never finished its first run, and the roles as children of the container.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Vxlan/PrimarySm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/Trace.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/Exceptions.h"
#include "runtime/Node.h"
#include "support/RingLogDir.h"
#include "trace/TextTrace.h"
#include "types/Bridging.h"
#include "types/L3.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"
#include "vxlan/PublicationRecorder.h"

namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using TestSupport::PublicationRecorder;

// The container tests make the ring-buffer handle: this process traces into a directory of its own.
MLAGVXLAN_TEST_RINGLOGDIR();

using VlanSet = std::set<std::uint16_t>;
using Status = Mlag::VxlanStatus;

VlanSet allVlans() {
  VlanSet s;
  for (std::uint16_t v = 1; v <= 4094; ++v) s.insert(v);
  return s;
}

VlanSet vlanRange(std::uint16_t lo, std::uint16_t hi) {
  VlanSet s;
  for (std::uint32_t v = lo; v <= hi; ++v) s.insert(static_cast<std::uint16_t>(v));
  return s;
}

// The members of sharedDynVlan, whatever their value, and those that hold true.
VlanSet sharedMembers(Status const& s) {
  VlanSet out;
  for (auto it = s.sharedDynVlanIter(); !it.done(); it.advance()) out.insert(it.currNodeNonStale().key.value());
  return out;
}
VlanSet sharedTrue(Status const& s) {
  VlanSet out;
  for (auto it = s.sharedDynVlanIter(); !it.done(); it.advance()) {
    if (it.currNodeNonStale().value) out.insert(it.currNodeNonStale().key.value());
  }
  return out;
}

std::set<std::string> arpStatusVrfs(Status const& s) {
  std::set<std::string> out;
  for (auto it = s.arpStatusIter(); !it.done(); it.advance()) out.emplace(it.currNodeNonStale().key.view());
  return out;
}
std::set<std::string> arpStatusWithVlanVrfs(Status const& s) {
  std::set<std::string> out;
  for (auto it = s.arpStatusWithVlanIter(); !it.done(); it.advance()) out.emplace(it.currNodeNonStale().key.view());
  return out;
}

// The names of the attributes in which two status objects differ, leaving out `except`.
std::vector<std::string> differingAttributes(Status const& a, Status const& b, std::set<Brix::FieldId> const& except) {
  std::vector<std::string> out;
  a.vokForEachAttribute([&](std::string_view name, Brix::FieldId field, auto const& attr) {
    if (except.count(field)) return;
    b.vokVisitField(field, [&](std::string_view, Brix::FieldId, auto const& other) {
      if constexpr (std::is_same_v<std::decay_t<decltype(attr)>, std::decay_t<decltype(other)>>) {
        if (!(attr == other)) out.emplace_back(name);
      }
    });
  });
  return out;
}

Lanx::IpAddr const localVtep(10, 0, 0, 1);
Lanx::IpAddr const peerVtep(10, 0, 0, 2);
Lanx::Ip6Addr const localVtep6 = Lanx::Ip6Addr::parse("2001:db8::1");

// What a former role may have left in a status object: some shared VLANs (one of them not
// shared), BFD peers of each kind and VTEP addresses.
void fillFormerLife(Status& s) {
  s.sharedDynVlanIs(Bridging::VlanId(5), true);
  s.sharedDynVlanIs(Bridging::VlanId(6), false);
  s.bfdPeerStatusIs(VxlanController::BfdPeerStatusV2(Brix::String("vtep"), Lanx::IpAddr(192, 0, 2, 1)));
  s.mlagBfdPeerStatusIs(VxlanController::BfdPeerStatusV2(Brix::String("mlag"), Lanx::IpAddr(192, 0, 2, 2)));
  s.allVxlanBfdPeerStatusIs(Mlag::VtiVtep(::Vxlan1, Lanx::IpAddr(192, 0, 2, 3)));
  s.vtepTypeAddrIs(Vxlan::VtepType::alternateVtep, Lanx::IpAddr(198, 51, 100, 7));
  s.vtepTypeAddr6Is(Vxlan::VtepType::localVtep, Lanx::Ip6Addr::parse("2001:db8::99"));
}

// A sink that keeps the lines and lets a test look at the world when a given line goes out.
class ProbingCapture : public Vok::TraceSink {
 public:
  ProbingCapture() : previous_(&Vok::traceSink()) { Vok::traceSinkIs(this); }
  ~ProbingCapture() override { Vok::traceSinkIs(previous_); }
  ProbingCapture(ProbingCapture const&) = delete;
  ProbingCapture& operator=(ProbingCapture const&) = delete;

  void write(Vok::TraceLine const& l) override {
    lines_.push_back({l.level, std::string(l.text)});
    if (auto it = probes_.find(lines_.back().text); it != probes_.end()) it->second();
  }
  void probeAt(std::string text, std::function<void()> probe) { probes_[std::move(text)] = std::move(probe); }

  std::vector<std::string> texts() const {
    std::vector<std::string> t;
    for (auto const& l : lines_) t.push_back(l.text);
    return t;
  }
  std::size_t count(std::string_view text) const {
    return static_cast<std::size_t>(
        std::count_if(lines_.begin(), lines_.end(), [&](auto& l) { return l.text == text; }));
  }
  // The position of the first line with `text`, or -1.
  long indexOf(std::string_view text) const {
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      if (lines_[i].text == text) return static_cast<long>(i);
    }
    return -1;
  }
  std::optional<int> levelOf(std::string_view text) const {
    for (auto const& l : lines_) {
      if (l.text == text) return l.level;
    }
    return std::nullopt;
  }
  void clear() { lines_.clear(); }

 private:
  struct Line {
    int level;
    std::string text;
  };
  Vok::TraceSink* previous_;
  std::vector<Line> lines_;
  std::map<std::string, std::function<void()>> probes_;
};

class RolesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    baseline_ = Brix::Node::liveCount();
    savedMask_ = MlagVxlan::_defaultTraceHandle()->levelMask();
    MlagVxlan::_defaultTraceHandle()->levelMaskIs(1u << 5 | 1u << 6);
    trace_.emplace();

    sent = Brix::newNode<Status>();
    recv = Brix::newNode<Status>();
    local = Brix::newNode<Status>();
    vtiDir = Brix::newNode<Vxlan::VtiStatusDir>();
    vtepDir = Brix::newNode<VxlanController::VtepStatusDirV2>();
    arpInput = Brix::newNode<Arp::InputConfig>();
    bfdPeer = Brix::newNode<Bfd::StatusPeer>();
    mlagStatus = Brix::newNode<Mlag::Status>();
    bridgingConfig = Brix::newNode<Bridging::Config>();
    flatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
    vxlan1 = vtiDir->vtiStatusIs(::Vxlan1);
    mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  }
  void TearDown() override {
    vxlan1 = nullptr;
    sent = local = nullptr;
    recv = nullptr;
    vtiDir = nullptr;
    vtepDir = nullptr;
    arpInput = nullptr;
    bfdPeer = nullptr;
    mlagStatus = nullptr;
    bridgingConfig = nullptr;
    flatDir = nullptr;
    trace_.reset();
    MlagVxlan::_defaultTraceHandle()->levelMaskIs(savedMask_);
    EXPECT_EQ(Brix::Node::liveCount(), baseline_) << "a test left nodes behind";
  }

  MlagVxlan::PrimarySm::Ptr primary() {
    return MlagVxlan::primarySmFactory(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  }
  MlagVxlan::SecondarySm::Ptr secondary() {
    return MlagVxlan::secondarySmFactory(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);
  }

  // VLAN `vlan` to VNI `vni` on Vxlan1, from a source that may go to the peer.
  void mapVlan(std::uint16_t vlan, std::uint32_t vni) {
    vxlan1->extendedVlanToVniMapIs(
        Bridging::ExtendedVlanId(vlan),
        Vxlan::VniSourcePair(::Vxlan1, Brix::String(Vxlan::stringValue(Vxlan::VniSource::controllerSource)),
                             Vxlan::VniExtOrNone(vni)));
  }
  // A mapping that names a source but no VNI: input the exchange refuses by raising.
  void mapVlanToNoVni(Vxlan::VtiStatus& vti, std::uint16_t vlan) {
    vti.extendedVlanToVniMapIs(
        Bridging::ExtendedVlanId(vlan),
        Vxlan::VniSourcePair(vti.intfId(), Brix::String(Vxlan::stringValue(Vxlan::VniSource::controllerSource)),
                             Vxlan::VniExtOrNone()));
  }
  void fillShared(Status& s, VlanSet const& vlans, bool value) {
    for (auto v : vlans) s.sharedDynVlanIs(Bridging::VlanId(v), value);
  }

  ProbingCapture& trace() { return *trace_; }

  Brix::Ptr<Status> sent, recv, local;
  Brix::Ptr<Vxlan::VtiStatusDir> vtiDir;
  Brix::Ptr<Vxlan::VtiStatus> vxlan1;
  Brix::Ptr<VxlanController::VtepStatusDirV2> vtepDir;
  Brix::Ptr<Arp::InputConfig> arpInput;
  Brix::Ptr<Bfd::StatusPeer> bfdPeer;
  Brix::Ptr<Mlag::Status> mlagStatus;
  Brix::Ptr<Bridging::Config> bridgingConfig;
  Brix::Ptr<Bridging::Flat::VlanConfigDir> flatDir;

 private:
  std::int64_t baseline_ = 0;
  std::uint32_t savedMask_ = 0;
  std::optional<ProbingCapture> trace_;
};

// ---- construction ------------------------------------------------------------------------

TEST_F(RolesTest, NullOptionalInputsStillGiveEachRoleItsExchangeChild) {
  {
    auto sm = MlagVxlan::primarySmFactory(sent, recv, local, nullptr, nullptr, nullptr, bfdPeer, mlagStatus);
    EXPECT_TRUE(sm->initialized());
    EXPECT_TRUE(sm->hasNotificationActive());
    auto* child = sm->vlanToVniMapSm();
    ASSERT_NE(child, nullptr);
    EXPECT_TRUE(child->initialized());
    EXPECT_TRUE(child->hasNotificationActive());
    EXPECT_EQ(child->vtiStatusDir(), nullptr);
    EXPECT_EQ(child->sentVxStatus(), sent);
    EXPECT_EQ(child->recvVxStatus(), recv);
    EXPECT_EQ(child->localVxStatus(), local);
    EXPECT_EQ(child->mlagStatus(), mlagStatus);
  }
  EXPECT_EQ(trace().count("PrimarySm::doCleanup() return"), 1u) << "the cleanup reads none of the null inputs";

  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  {
    auto sm = MlagVxlan::secondarySmFactory(sent, recv, local, bridgingConfig, nullptr, nullptr, nullptr, mlagStatus);
    EXPECT_TRUE(sm->initialized());
    auto* child = sm->vlanToVniMapSm();
    ASSERT_NE(child, nullptr);
    EXPECT_TRUE(child->initialized());
    EXPECT_EQ(child->vtiStatusDir(), nullptr);
    EXPECT_EQ(child->sentVxStatus(), sent);
    EXPECT_EQ(child->recvVxStatus(), recv);
    EXPECT_EQ(child->localVxStatus(), local);
    EXPECT_EQ(child->mlagStatus(), mlagStatus);
  }
  EXPECT_EQ(trace().count("SecondarySm::doCleanup() return"), 1u);
}

// ---- the primary's first run ----------------------------------------------------------------

TEST_F(RolesTest, PrimaryFirstRunRemovesVrfsNoLongerConfiguredFromEachArpCollection) {
  // Configured: "default" sorts first, the others in byte order; a lookup with another order
  // would miss some of them.
  for (char const* name : {"red", "default", "Zeta", "blue-1"}) arpInput->vrfIs(L3::VrfName(name));
  for (char const* name : {"default", "red", "Zeta", "gone", "alsoGone"}) sent->arpStatusIs(L3::VrfName(name));
  sent->arpStatus(L3::VrfName("gone"))->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(10, 1, 1, 1), Lanx::EthAddr()));
  // Only in the collection with VLANs: the second pass finds it by itself.
  for (char const* name : {"blue-1", "Zeta", "onlyWithVlan"}) sent->arpStatusWithVlanIs(L3::VrfName(name));
  // localVxStatus is not this pass's business.
  local->arpStatusIs(L3::VrfName("gone"));
  local->arpStatusWithVlanIs(L3::VrfName("gone"));

  auto sm = primary();

  EXPECT_EQ(arpStatusVrfs(*sent), (std::set<std::string>{"default", "red", "Zeta"}));
  EXPECT_EQ(arpStatusWithVlanVrfs(*sent), (std::set<std::string>{"blue-1", "Zeta"}));
  EXPECT_EQ(arpStatusVrfs(*local), (std::set<std::string>{"gone"}));
  EXPECT_EQ(arpStatusWithVlanVrfs(*local), (std::set<std::string>{"gone"}));

  std::vector<std::string> dels;
  for (auto const& t : trace().texts()) {
    if (t.starts_with(" Del stale VRF")) dels.push_back(t);
  }
  ASSERT_EQ(dels.size(), 3u);
  EXPECT_THAT(dels, UnorderedElementsAre(" Del stale VRF gone from sentVxStatus arpStatus",
                                         " Del stale VRF alsoGone from sentVxStatus arpStatus",
                                         " Del stale VRF onlyWithVlan from sentVxStatus arpStatusWithVlan"));
  // The collection without VLANs is done first.
  EXPECT_EQ(dels.back(), " Del stale VRF onlyWithVlan from sentVxStatus arpStatusWithVlan");
  EXPECT_EQ(trace().levelOf(" Del stale VRF gone from sentVxStatus arpStatus"), 6);
  EXPECT_EQ(trace().levelOf("PrimarySm::handleInitialized()"), 5);

  // The exchange child makes its first run inside the primary's, before the stale VRFs go.
  long entry = trace().indexOf("PrimarySm::handleInitialized()");
  long child = trace().indexOf("VlanToVniMapSm::handleInitialized() return");
  long firstDel = trace().indexOf(" Del stale VRF gone from sentVxStatus arpStatus");
  long exit = trace().indexOf("PrimarySm::handleInitialized() return");
  EXPECT_EQ(entry, 0);
  EXPECT_LT(entry, child);
  EXPECT_LT(child, firstDel);
  EXPECT_LT(firstDel, exit);
  EXPECT_EQ(exit, static_cast<long>(trace().texts().size()) - 1);
}

TEST_F(RolesTest, PrimaryWithoutArpInputTakesEveryPublishedVrfForStale) {
  sent->arpStatusIs(L3::VrfName("red"));
  sent->arpStatusWithVlanIs(L3::VrfName("blue"));
  auto sm = MlagVxlan::primarySmFactory(sent, recv, local, vtiDir, vtepDir, nullptr, bfdPeer, mlagStatus);
  EXPECT_EQ(sent->arpStatusCount(), 0u);
  EXPECT_EQ(sent->arpStatusWithVlanCount(), 0u);
  EXPECT_EQ(trace().count(" Del stale VRF red from sentVxStatus arpStatus"), 1u);
  EXPECT_EQ(trace().count(" Del stale VRF blue from sentVxStatus arpStatusWithVlan"), 1u);
}

// ---- the secondary's first run --------------------------------------------------------------

TEST_F(RolesTest, SecondaryResetsSharedVlansOnlyWhenTheSetIsNotFull) {
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  PublicationRecorder sentPubs(*sent);
  PublicationRecorder localPubs(*local);
  // What the first run did, seen at its return: the cleanup at the drop writes the set as well.
  struct FirstRun {
    std::size_t sentWrites = 0;
    std::size_t localWrites = 0;
    VlanSet sentTrue;
    VlanSet sentMembers;
  };
  auto firstRun = [&] {
    FirstRun r;
    sentPubs.clear();
    localPubs.clear();
    trace().clear();
    trace().probeAt("SecondarySm::handleInitialized() return", [&] {
      r.sentWrites = sentPubs.count(Status::sharedDynVlanField);
      r.localWrites = localPubs.count(Status::sharedDynVlanField);
      r.sentTrue = sharedTrue(*sent);
      r.sentMembers = sharedMembers(*sent);
    });
    (void)secondary();
    return r;
  };

  // A full set is left alone whatever its values: the member count is the whole test.
  fillShared(*sent, allVlans(), true);
  sent->sharedDynVlanIs(Bridging::VlanId(7), false);
  FirstRun full = firstRun();
  EXPECT_EQ(trace().count(" Reset shared dyn vlans"), 0u);
  EXPECT_EQ(full.sentWrites, 0u);
  EXPECT_EQ(full.sentTrue.size(), 4093u);
  EXPECT_FALSE(full.sentTrue.count(7));

  // 4093 members or none, every present one false: all 4094 VLANs are written, the existing
  // ones included, and no other.
  for (VlanSet const& before : {vlanRange(1, 4093), VlanSet{}}) {
    SCOPED_TRACE(testing::Message() << before.size() << " members");
    sent->sharedDynVlanDelAll();
    fillShared(*sent, before, false);
    local->sharedDynVlanDelAll();
    FirstRun r = firstRun();
    EXPECT_EQ(trace().count(" Reset shared dyn vlans"), 1u);
    EXPECT_EQ(trace().levelOf(" Reset shared dyn vlans"), 6);
    EXPECT_EQ(r.sentWrites, 4094u);
    EXPECT_EQ(r.sentTrue, allVlans());
    EXPECT_EQ(r.sentMembers, allVlans());
    EXPECT_EQ(r.localWrites, 0u) << "the reset is for sentVxStatus only";
  }
}

TEST_F(RolesTest, SecondaryKeepsOnlyTheSharedVlansInsideTheConfiguredRange) {
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  struct Case {
    std::uint16_t bound1, bound2;
    VlanSet kept;
  };
  std::vector<Case> const cases = {
      {0, 0, allVlans()},                  // no range configured
      {1, 4094, allVlans()},               // the whole range
      {100, 200, vlanRange(100, 200)},     // both ends kept
      {200, 100, vlanRange(100, 200)},     // the bounds in either order
      {1, 1, VlanSet{1}},                  // one VLAN at the low end
      {4094, 4094, VlanSet{4094}},         // one VLAN at the high end
      {0, 50, vlanRange(1, 50)},           // a zero bound is the low end
      {4000, 4095, vlanRange(4000, 4094)}  // a bound past the VLANs
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << "bounds (" << c.bound1 << "," << c.bound2 << ")");
    bridgingConfig->vlanRangeBound1Is(c.bound1);
    bridgingConfig->vlanRangeBound2Is(c.bound2);
    for (bool full : {false, true}) {
      // From an empty set (reset first) and from a full one (the walk alone).
      sent->sharedDynVlanDelAll();
      if (full) fillShared(*sent, allVlans(), true);
      trace().clear();
      VlanSet atReturn;
      trace().probeAt("SecondarySm::handleInitialized() return", [&] { atReturn = sharedMembers(*sent); });
      auto sm = secondary();
      EXPECT_EQ(atReturn, c.kept) << (full ? "from a full set" : "from an empty set");
      EXPECT_EQ(trace().count(" Del shared dyn vlans outside vlan range"), 4094 - c.kept.size());
      EXPECT_EQ(trace().count(" Reset shared dyn vlans"), full ? 0u : 1u);
      trace().probeAt("SecondarySm::handleInitialized() return", [] {});
    }
  }
}

TEST_F(RolesTest, SecondaryFirstRunRemovesOnlyVrfsThePeerPublishesInNeitherForm) {
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  recv->arpStatusIs(L3::VrfName("plain"));  // the peer publishes it without VLANs only
  recv->arpStatusWithVlanIs(L3::VrfName("withVlan"));
  for (char const* name : {"plain", "withVlan", "gone"}) {
    auto t = local->arpStatusWithVlanIs(L3::VrfName(name));
    t->arpEntryIs(Mlag::VlanIpSource(Bridging::VlanIdOrNone(10), Lanx::IpAddr(10, 0, 0, 9), Arp::ArpSource{}),
                  Lanx::EthAddr());
  }
  local->arpStatusIs(L3::VrfName("staleButNotWalked"));
  sent->arpStatusIs(L3::VrfName("gone"));  // the primary's business, not the secondary's

  auto sm = secondary();

  EXPECT_EQ(arpStatusWithVlanVrfs(*local), (std::set<std::string>{"plain", "withVlan"}));
  EXPECT_EQ(arpStatusVrfs(*local), (std::set<std::string>{"staleButNotWalked"}));
  auto plain = local->arpStatusWithVlan(L3::VrfName("plain"));
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->arpEntryCount(), 1u);
  EXPECT_EQ(arpStatusVrfs(*sent), (std::set<std::string>{"gone"}));
  EXPECT_EQ(trace().count(" Del stale VRF gone from localVxStatus"), 1u);
  EXPECT_EQ(trace().levelOf(" Del stale VRF gone from localVxStatus"), 6);
  std::size_t dels = 0;
  for (auto const& t : trace().texts()) dels += t.starts_with(" Del stale VRF");
  EXPECT_EQ(dels, 1u);
  // After the exchange child's first run.
  EXPECT_LT(trace().indexOf("VlanToVniMapSm::handleInitialized() return"),
            trace().indexOf(" Del stale VRF gone from localVxStatus"));
}

// ---- the cleanup ----------------------------------------------------------------------------

// What both roles leave behind in each status object.
void expectCleaned(Status const& s, char const* name) {
  SCOPED_TRACE(name);
  EXPECT_EQ(sharedTrue(s), allVlans());
  EXPECT_EQ(s.sharedDynVlanCount(), 4094u);
  EXPECT_EQ(s.bfdPeerStatusCount(), 0u);
  EXPECT_EQ(s.mlagBfdPeerStatusCount(), 0u);
  EXPECT_EQ(s.vtepTypeAddrCount(), 0u);
  EXPECT_EQ(s.vtepTypeAddr6Count(), 0u);
  // Emptied only through the BFD children, of which this object has none.
  EXPECT_EQ(s.allVxlanBfdPeerStatusCount(), 1u);
}

TEST_F(RolesTest, PrimaryCleanupLeavesBothObjectsCleanAndItsChildWithdrawsTheMaps) {
  vxlan1->localVtepAddrIs(localVtep);
  vxlan1->localVtepAddr6Is(localVtep6);
  mapVlan(10, 10010);
  mapVlan(20, 10020);
  recv->vtepTypeAddrIs(Vxlan::VtepType::localVtep, peerVtep);
  fillFormerLife(*sent);
  fillFormerLife(*local);
  arpInput->vrfIs(L3::VrfName("red"));
  sent->arpStatusIs(L3::VrfName("red"));

  auto sm = primary();
  ASSERT_EQ(sent->vniToDynVlanMapCount(), 2u);
  ASSERT_EQ(sent->vniVtiToDynVlanMapCount(), 2u);
  ASSERT_EQ(sent->vtepTypeAddr(Vxlan::VtepType::localVtep), localVtep);
  ASSERT_EQ(local->vtepTypeAddr(Vxlan::VtepType::localVtep), peerVtep);

  // localVxStatus is cleaned before sentVxStatus is written.
  std::optional<std::size_t> localSharedAtFirstSentWrite;
  PublicationRecorder sentPubs(*sent, [&](PublicationRecorder::Publication const&) {
    if (!localSharedAtFirstSentWrite) localSharedAtFirstSentWrite = sharedTrue(*local).size();
  });
  std::size_t mapsAtCleanupReturn = 0;
  trace().probeAt("PrimarySm::doCleanup() return",
                  [&] { mapsAtCleanupReturn = sent->vniToDynVlanMapCount() + sent->vniVtiToDynVlanMapCount(); });
  trace().clear();
  sm = nullptr;

  expectCleaned(*sent, "sentVxStatus");
  expectCleaned(*local, "localVxStatus");
  EXPECT_EQ(localSharedAtFirstSentWrite, std::optional<std::size_t>(4094));
  EXPECT_EQ(mapsAtCleanupReturn, 4u) << "the role's own cleanup leaves the VLAN maps";
  EXPECT_EQ(sent->vniToDynVlanMapCount(), 0u) << "the publisher's teardown withdraws them";
  EXPECT_EQ(sent->vniVtiToDynVlanMapCount(), 0u);
  EXPECT_EQ(arpStatusVrfs(*sent), (std::set<std::string>{"red"}));

  long entry = trace().indexOf("PrimarySm::doCleanup()");
  long exit = trace().indexOf("PrimarySm::doCleanup() return");
  long child = trace().indexOf("VlanToVniMapToP2pSm::cleanup()");
  ASSERT_EQ(entry, 0);
  EXPECT_LT(entry, exit);
  EXPECT_LT(exit, child);
  EXPECT_EQ(trace().levelOf("PrimarySm::doCleanup()"), 5);
  EXPECT_EQ(vxlan1->publisher()->subscriberCount(), 0u);
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
  EXPECT_EQ(mlagStatus->publisher()->subscriberCount(), 0u);
}

TEST_F(RolesTest, SecondaryCleanupLeavesBothObjectsCleanAndItsChildWithdrawsTheDynamicVlans) {
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  vxlan1->localVtepAddrIs(localVtep);
  recv->vtepTypeAddrIs(Vxlan::VtepType::localVtep, peerVtep);
  recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(10010), Bridging::VlanIdOrNone(10));
  recv->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10010), ::Vxlan1), Bridging::ExtendedVlanId(10));
  recv->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(10020), ::Vxlan1), Bridging::ExtendedVlanId(20));
  fillFormerLife(*sent);
  fillFormerLife(*local);
  sent->arpStatusIs(L3::VrfName("red"));
  recv->arpStatusWithVlanIs(L3::VrfName("red"));
  local->arpStatusWithVlanIs(L3::VrfName("red"));

  auto sm = secondary();
  ASSERT_EQ(local->vniVtiToDynVlanMapCount(), 2u);
  ASSERT_EQ(sent->vtepTypeAddr(Vxlan::VtepType::localVtep), localVtep);

  std::size_t mapsAtCleanupReturn = 0;
  trace().probeAt("SecondarySm::doCleanup() return", [&] { mapsAtCleanupReturn = local->vniVtiToDynVlanMapCount(); });
  trace().clear();
  sm = nullptr;

  expectCleaned(*sent, "sentVxStatus");
  expectCleaned(*local, "localVxStatus");
  EXPECT_EQ(mapsAtCleanupReturn, 2u) << "the role's own cleanup leaves the dynamic VLANs";
  EXPECT_EQ(local->vniVtiToDynVlanMapCount(), 0u) << "the applier's teardown withdraws them";
  EXPECT_EQ(arpStatusVrfs(*sent), (std::set<std::string>{"red"}));
  EXPECT_EQ(arpStatusWithVlanVrfs(*local), (std::set<std::string>{"red"}));

  long entry = trace().indexOf("SecondarySm::doCleanup()");
  long exit = trace().indexOf("SecondarySm::doCleanup() return");
  long child = trace().indexOf("VniToDynVlanMapToCorestateSm::cleanup()");
  ASSERT_EQ(entry, 0);
  EXPECT_LT(entry, exit);
  EXPECT_LT(exit, child);
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
}

// ---- a first run that did not finish -----------------------------------------------------

TEST_F(RolesTest, PrimaryRefusedByItsExchangeChildLeavesTheOutputsAsTheyWere) {
  fillFormerLife(*sent);
  fillFormerLife(*local);
  sent->arpStatusIs(L3::VrfName("notConfigured"));  // would go at the end of a finished first run
  auto sentBefore = Brix::newNode<Status>();
  auto localBefore = Brix::newNode<Status>();
  fillFormerLife(*sentBefore);
  fillFormerLife(*localBefore);
  sentBefore->arpStatusIs(L3::VrfName("notConfigured"));
  vxlan1->localVtepAddrIs(localVtep);
  mapVlanToNoVni(*vxlan1, 10);

  EXPECT_THROW(primary(), Brix::RangeException);

  EXPECT_THAT(differingAttributes(*sent, *sentBefore, {}), IsEmpty());
  EXPECT_THAT(differingAttributes(*local, *localBefore, {}), IsEmpty());
  EXPECT_EQ(trace().count("PrimarySm::handleInitialized()"), 1u);
  EXPECT_EQ(trace().indexOf("PrimarySm::handleInitialized() return"), -1);
  EXPECT_EQ(trace().indexOf("PrimarySm::doCleanup()"), -1);
  for (Vok::Entity const* e : std::initializer_list<Vok::Entity const*>{
           recv.get(), vtiDir.get(), vxlan1.get(), mlagStatus.get(), vtepDir.get(), arpInput.get(), bfdPeer.get()}) {
    EXPECT_EQ(e->publisher()->subscriberCount(), 0u) << e->typeData();
  }
}

TEST_F(RolesTest, SecondaryRefusedByItsExchangeChildKeepsWhatItsFirstStepsDidWithoutCleanup) {
  // With an MLAG VTEP address of its own the secondary publishes too, and meets the bad mapping.
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  vxlan1->mlagVtepAddrIs(Lanx::IpAddr(10, 0, 0, 100));
  mapVlanToNoVni(*vxlan1, 10);
  bridgingConfig->vlanRangeBound1Is(100);
  bridgingConfig->vlanRangeBound2Is(200);
  fillFormerLife(*sent);
  fillFormerLife(*local);
  auto localBefore = Brix::newNode<Status>();
  fillFormerLife(*localBefore);

  EXPECT_THROW(secondary(), Brix::RangeException);

  // The reset and the range test ran; a cleanup would have made the set 1 to 4094 again.
  EXPECT_EQ(sharedMembers(*sent), vlanRange(100, 200));
  EXPECT_EQ(sent->bfdPeerStatusCount(), 1u);
  EXPECT_EQ(sent->vtepTypeAddr6Count(), 1u);
  EXPECT_THAT(differingAttributes(*local, *localBefore, {}), IsEmpty());
  EXPECT_EQ(trace().indexOf("SecondarySm::doCleanup()"), -1);
  EXPECT_EQ(trace().indexOf("SecondarySm::handleInitialized() return"), -1);
  EXPECT_EQ(recv->publisher()->subscriberCount(), 0u);
  EXPECT_EQ(vxlan1->publisher()->subscriberCount(), 0u);
}

// ---- the container -----------------------------------------------------------------------

TEST_F(RolesTest, ContainerBuildsARoleOnceForTheSameArgumentsAndReplacesItForOthers) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  PublicationRecorder pubs(*c);

  auto first = c->primarySmIs(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  auto again = c->primarySmIs(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  EXPECT_EQ(first, again);
  EXPECT_EQ(c->primarySm(), first);
  EXPECT_EQ(pubs.count(MlagVxlan::SmContainer::primarySmField), 1u);
  EXPECT_EQ(trace().count("PrimarySm::handleInitialized()"), 1u);
  again = nullptr;

  // Another ARP input: a new object, whose first run comes before the former one's cleanup.
  auto otherArp = Brix::newNode<Arp::InputConfig>();
  trace().clear();
  std::optional<long> cleanupLinesAtPublication;
  PublicationRecorder probe(*c, [&](PublicationRecorder::Publication const&) {
    cleanupLinesAtPublication = trace().indexOf("PrimarySm::doCleanup()");
  });
  auto* former = first.get();
  first = nullptr;  // the container's is the last use
  auto second = c->primarySmIs(sent, recv, local, vtiDir, vtepDir, otherArp, bfdPeer, mlagStatus);
  EXPECT_NE(second.get(), former);
  EXPECT_EQ(c->primarySm(), second);
  EXPECT_EQ(second->arpInputConfig(), otherArp);
  ASSERT_EQ(pubs.count(MlagVxlan::SmContainer::primarySmField), 2u);
  EXPECT_EQ(pubs.publications().back().value, former);
  EXPECT_EQ(cleanupLinesAtPublication, std::optional<long>(-1)) << "published before the former one ends";
  long newRun = trace().indexOf("PrimarySm::handleInitialized() return");
  long oldCleanup = trace().indexOf("PrimarySm::doCleanup()");
  ASSERT_NE(newRun, -1);
  ASSERT_NE(oldCleanup, -1);
  EXPECT_LT(newRun, oldCleanup);
  EXPECT_EQ(trace().count("PrimarySm::doCleanup()"), 1u);

  // A replacement refused by its constructor leaves the present role in place, unpublished.
  auto badDir = Brix::newNode<Vxlan::VtiStatusDir>();
  mapVlanToNoVni(*badDir->vtiStatusIs(::Vxlan1), 10);
  trace().clear();
  EXPECT_THROW(c->primarySmIs(sent, recv, local, badDir, vtepDir, otherArp, bfdPeer, mlagStatus), Brix::RangeException);
  EXPECT_EQ(c->primarySm(), second);
  EXPECT_EQ(pubs.count(MlagVxlan::SmContainer::primarySmField), 2u);
  EXPECT_EQ(trace().indexOf("PrimarySm::doCleanup()"), -1);
  second = nullptr;
  badDir = nullptr;
  otherArp = nullptr;

  // The same for the secondary.
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  (void)c->primarySmDel();
  auto s1 = c->secondarySmIs(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);
  EXPECT_EQ(c->secondarySmIs(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus), s1);
  EXPECT_EQ(pubs.count(MlagVxlan::SmContainer::secondarySmField), 1u);
}

// A role swap on one switch: primarySmDel and its drop, then secondarySmIs. It ends where a
// secondary built afresh on fresh outputs would, except for what the cleanup leaves by design.
TEST_F(RolesTest, RoleSwapEndsWhereAFreshSecondaryWould) {
  vxlan1->localVtepAddrIs(localVtep);
  vxlan1->localVtepAddr6Is(localVtep6);
  for (std::uint16_t v = 1; v <= 50; ++v) mapVlan(v, 10000u + v);
  recv->vtepTypeAddrIs(Vxlan::VtepType::localVtep, peerVtep);
  fillFormerLife(*sent);
  fillFormerLife(*local);
  // No BFD child exists to take these out, on either side of the comparison.
  local->allVxlanBfdPeerStatusDelAll();
  sent->allVxlanBfdPeerStatusDelAll();
  bridgingConfig->vlanRangeBound1Is(10);
  bridgingConfig->vlanRangeBound2Is(4000);

  auto c = MlagVxlan::smContainerFactory("vxlan");
  (void)c->primarySmIs(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  ASSERT_EQ(sent->vniVtiToDynVlanMapCount(), 50u);

  // The peer takes over as primary and publishes what it maps.
  mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  (void)c->primarySmDel();
  recv->vniToDynVlanMapIs(Vxlan::VniExtOrNone(20001), Bridging::VlanIdOrNone(301));
  recv->vniVtiToDynVlanMapIs(Vxlan::VniVtiPair(Vxlan::VniExtOrNone(20001), ::Vxlan1), Bridging::ExtendedVlanId(301));
  auto sm = c->secondarySmIs(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);
  ASSERT_EQ(local->vniVtiToDynVlanMapCount(), 1u);

  auto freshSent = Brix::newNode<Status>();
  auto freshLocal = Brix::newNode<Status>();
  auto fresh =
      MlagVxlan::secondarySmFactory(freshSent, recv, freshLocal, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);

  // What a role's cleanup leaves by design: every VLAN shared again, in both objects.
  std::set<Brix::FieldId> const leftByCleanup = {Status::sharedDynVlanField};
  EXPECT_THAT(differingAttributes(*sent, *freshSent, leftByCleanup), IsEmpty());
  EXPECT_THAT(differingAttributes(*local, *freshLocal, leftByCleanup), IsEmpty());
  // And what becomes of the exempted attribute on each side.
  EXPECT_EQ(sharedMembers(*sent), vlanRange(10, 4000));
  EXPECT_EQ(sharedMembers(*freshSent), vlanRange(10, 4000));
  EXPECT_EQ(sharedTrue(*local), allVlans());
  EXPECT_THAT(sharedMembers(*freshLocal), IsEmpty());

  fresh = nullptr;
  sm = nullptr;
  c = nullptr;
}

}  // namespace
