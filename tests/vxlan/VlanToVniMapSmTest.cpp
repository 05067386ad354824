// The exchange core: which publishers and applier exist for a role and a VTI, the VTEP address
// exchange in both directions, the loss of the peer link, and the rebinding of a VTI.

#include "Vxlan/VlanToVniMapSm.h"
#include "vxlan/VlanVniTestSupport.h"

namespace VlanVniTest {
namespace {

using MlagVxlan::VlanToVniMapSm;

Lanx::IpAddr const addr1{10, 0, 0, 1}, addr2{10, 0, 0, 2}, addr3{10, 0, 0, 3}, addr4{10, 0, 0, 4}, none;
Lanx::Ip6Addr const addr6a = Lanx::Ip6Addr::parse("2001:db8::1"), addr6b = Lanx::Ip6Addr::parse("2001:db8::2");
auto const localType = Vxlan::VtepType::localVtep, alternateType = Vxlan::VtepType::alternateVtep,
           mlagType = Vxlan::VtepType::mlagVtep;

using Vteps = std::map<int, std::string>;  // VTEP type to address text

// The VTEP addresses of one family: vteps(s.vtepTypeAddrIter()).
template <class Iter>
Vteps vteps(Iter it) {
  return entries<Vteps>(
      it, [](auto const& n) { return std::pair(static_cast<int>(n.key), std::string(n.value.stringValue().view())); });
}
Vteps vteps(Mlag::VxlanStatus const& s) { return vteps(s.vtepTypeAddrIter()); }
Vteps vteps6(Mlag::VxlanStatus const& s) { return vteps(s.vtepTypeAddr6Iter()); }

// The texts of the lines one handler wrote.
std::vector<std::string> linesOf(std::vector<Vok::TraceCapture::Line> const& lines, std::string_view function) {
  std::vector<std::string> out;
  for (auto const& l : lines) {
    if (l.function == function) out.push_back(l.text);
  }
  return out;
}

class VlanToVniMapSmTest : public RoleTest {
 protected:
  VlanToVniMapSmTest() : RoleTest(noVtepDir | noArpInput | noFlatDir) {}
  // The roles by their state; the inputs' factories of the roles are not used here.
  static constexpr auto primary = Mlag::MlagState::primary, secondary = Mlag::MlagState::secondary;
  void fresh() {
    sm = nullptr;
    static_cast<RoleInputs&>(*this) = RoleInputs(noVtepDir | noArpInput | noFlatDir);
  }
  // Vxlan1 maps VLAN 200 to VNI 20; the peer publishes VNI 10 on VLAN 100.
  void maps(Vxlan::VtiStatus& v1) {
    v1.extendedVlanToVniMapIs(Bridging::ExtendedVlanId(200), mapping(20));
    recv->vniVtiToDynVlanMapIs(key(10), Bridging::ExtendedVlanId(100));
  }

  VlanToVniMapSm::Ptr build(Mlag::MlagState state) {
    mlagStatus->mlagStateIs(state);
    return MlagVxlan::vlanToVniMapSmFactory(vtiDir, sent, recv, local, mlagStatus);
  }
  Brix::Ptr<Vxlan::VtiStatus> vti(Lanx::IntfId intf = ::Vxlan1) { return vtiDir->vtiStatusIs(intf); }
  MlagVxlan::VniToDynVlanMapToCorestateSm* applier() const { return sm->vniToDynVlanMapToCorestateSm(); }
  std::size_t publishers() const { return sm->vlanToVniMapToP2pSmCount(); }
  // The flag first, so that no step in between reads as a loss of the link.
  void linkDown(std::uint8_t known, std::uint8_t flag) {
    mlagStatus->peerLinkDownFlagIs(flag);
    mlagStatus->peerLinkKnownIs(known);
  }

  VlanToVniMapSm::Ptr sm;
};

TEST_F(VlanToVniMapSmTest, ChildrenFollowTheRoleAndMultiVtep) {
  enum class Vti { absent, plain, mlag4, mlag6 };
  struct Case {
    Vti vxlan1;
    Mlag::MlagState state;
    bool applier;
    std::size_t publishers;
  };
  std::vector<Case> const cases{{Vti::absent, primary, false, 0},
                                {Vti::absent, secondary, false, 0},
                                {Vti::plain, primary, false, 2},
                                {Vti::plain, secondary, true, 0},
                                {Vti::plain, Mlag::MlagState::negotiating, true, 0},
                                {Vti::mlag4, primary, true, 2},
                                {Vti::mlag4, secondary, true, 2},
                                {Vti::mlag6, Mlag::MlagState::inactive, true, 2}};
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << "Vxlan1 " << static_cast<int>(c.vxlan1) << ", " << c.state);
    fresh();
    vti(vxlan2)->mlagVtepAddrIs(addr3);  // only Vxlan1 decides
    if (c.vxlan1 != Vti::absent) {
      auto v = vti();
      if (c.vxlan1 == Vti::mlag4) v->mlagVtepAddrIs(addr1);
      if (c.vxlan1 == Vti::mlag6) v->mlagVtepAddr6Is(addr6a);
    }
    sm = build(c.state);
    EXPECT_EQ(applier() != nullptr, c.applier);
    EXPECT_EQ(publishers(), c.publishers);
  }
  // No directory at all: nothing to publish or apply, and no address to publish.
  fresh();
  sent->vtepTypeAddrIs(localType, addr1);
  sm = MlagVxlan::vlanToVniMapSmFactory(nullptr, sent, recv, local, mlagStatus);
  EXPECT_EQ(publishers(), 0u);
  EXPECT_THAT(vteps(*sent), IsEmpty());
}

TEST_F(VlanToVniMapSmTest, MultiVtepChangesAddOrRemoveOnlyTheChildrenConcerned) {
  auto v1 = vti(), v2 = vti(vxlan2);
  maps(*v1);
  sm = build(secondary);
  auto* const firstApplier = applier();
  MapChanges localLog(*local);
  Trace trace;
  // A secondary becomes multi-VTEP, by either family: publishers for every VTI, the applier untouched.
  v1->mlagVtepAddrIs(addr3);
  EXPECT_EQ(vniVtiMap(*sent), (VniVtiMap{{{20, "Vx1"}, 200}}));
  v1->mlagVtepAddrIs(none);
  EXPECT_EQ(publishers(), 0u);
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
  v1->mlagVtepAddr6Is(addr6a);
  EXPECT_EQ(publishers(), 2u);
  auto* const publisher1 = sm->vlanToVniMapToP2pSm(::Vxlan1);
  // Another VTI's MLAG address runs the decision, which changes nothing.
  trace.take();
  MapChanges sentLog(*sent);
  v2->mlagVtepAddrIs(addr1);
  EXPECT_THAT(trace.take(), Contains("VlanToVniMapSm::handleVti()"));
  EXPECT_EQ(sm->vlanToVniMapToP2pSm(::Vxlan1), publisher1);
  EXPECT_THAT(sentLog.take(), IsEmpty());
  EXPECT_THAT(vteps(*sent), IsEmpty()) << "only Vxlan1's addresses are published";
  EXPECT_EQ(applier(), firstApplier);
  EXPECT_THAT(localLog.take(), IsEmpty());
  // A change of state alone starts nothing: a role change replaces this object.
  mlagStatus->mlagStateIs(primary);
  EXPECT_THAT(trace.take(), IsEmpty());

  // A primary leaving multi-VTEP drops the applier and keeps its publishers as they are.
  fresh();
  v1 = vti();
  v1->mlagVtepAddrIs(addr3);
  maps(*v1);
  sm = build(primary);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 100}}));
  MapChanges primarySent(*sent);
  v1->mlagVtepAddrIs(none);
  EXPECT_EQ(applier(), nullptr);
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  EXPECT_THAT(primarySent.take(), IsEmpty()) << "the publisher was not rebuilt";
}

TEST_F(VlanToVniMapSmTest, Vxlan1ComingAndGoing) {
  auto v2 = vti(vxlan2);
  recv->vniVtiToDynVlanMapIs(key(10), Bridging::ExtendedVlanId(100));
  sm = build(secondary);
  EXPECT_EQ(applier(), nullptr);
  // It comes with an address already set: the applier starts, the address waits for a change.
  auto v1 = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1);
  v1->localVtepAddrIs(addr1);
  vtiDir->vtiStatusIs(::Vxlan1, v1);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 100}}));
  EXPECT_THAT(vteps(*sent), IsEmpty());
  v1->alternateVtepAddrIs(addr2);
  Vteps const both{{1, "10.0.0.1"}, {2, "10.0.0.2"}};
  EXPECT_EQ(vteps(*sent), both);

  // It goes: the applier goes and withdraws its requests; the addresses stay until the next run.
  vtiDir->vtiStatusDel(::Vxlan1);
  EXPECT_EQ(applier(), nullptr);
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  v1->localVtepAddrIs(addr3);  // no longer heard
  EXPECT_EQ(vteps(*sent), both);
  // Another VTI's address runs the handlers, which find no Vxlan1.
  Trace trace;
  v2->localVtepAddr6Is(addr6a);
  v2->localVtepAddrIs(addr1);
  EXPECT_THAT(vteps(*sent), IsEmpty());
  EXPECT_THAT(linesOf(trace.takeLines(), "handleLocalVtepAddr"),
              ElementsAre("VlanToVniMapSm::handleLocalVtepAddr()", " DelAll"));

  // On a primary a publisher whose VTI left stays while others are wanted; all go with Vxlan1.
  fresh();
  vti(vxlan2);
  vti()->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(200), mapping(20));
  sm = build(primary);
  vtiDir->vtiStatusDel(vxlan2);
  EXPECT_EQ(publishers(), 2u);
  vtiDir->vtiStatusDel(::Vxlan1);
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
}

// What a loss does to the addresses the examples show; here what counts as a loss, and what
// passes while it lasts.
TEST_F(VlanToVniMapSmTest, PeerLinkLossIsAKnownLinkWithBitZeroAndDropsThePeersUpdatesSilently) {
  maps(*vti());
  recv->vtepTypeAddrIs(localType, addr1);
  recv->vtepTypeAddr6Is(localType, addr6a);
  sm = build(secondary);
  // A flag without a known link, or a known link without bit 0, is not a loss: updates still pass.
  linkDown(0, 1);
  recv->vtepTypeAddrIs(alternateType, addr2);
  linkDown(1, 2);
  EXPECT_FALSE(sm->peerLinkDown());
  EXPECT_EQ(vteps(*local), (Vteps{{1, "10.0.0.1"}, {2, "10.0.0.2"}}));
  linkDown(1, 3);
  EXPECT_EQ(vniVtiMap(*local), (VniVtiMap{{{10, "Vx1"}, 100}})) << "the VLAN maps stay";
  Trace trace;
  recv->vtepTypeAddrDel(localType);
  recv->vtepTypeAddrIs(mlagType, addr1);
  EXPECT_THAT(vteps(*local), IsEmpty());
  EXPECT_THAT(trace.take(), IsEmpty());
  // The link returns: what the peer holds now, over an entry that is not the peer's any more.
  local->vtepTypeAddrIs(localType, addr2);
  linkDown(1, 0);
  EXPECT_EQ(vteps(*local), (Vteps{{2, "10.0.0.2"}, {3, "10.0.0.1"}}));
  trace.take();
  recv->vtepTypeAddr6Del(localType);
  recv->vtepTypeAddrIs(localType, addr3);
  EXPECT_THAT(trace.take(), ElementsAre(" VlanToVniMapSm::handleVtepAddr6 Del 1",
                                        " VlanToVniMapSm::handleVtepAddr Add (1,10.0.0.3)"));
}

TEST_F(VlanToVniMapSmTest, LocalVtepAddressesArePublishedByTypeAndRetiredByAddress) {
  auto v1 = vti();
  v1->localVtepAddrIs(addr1);
  v1->alternateVtepAddrIs(addr2);
  v1->mlagVtepAddrIs(addr3);
  sent->vtepTypeAddr6Is(localType, addr6b);  // left by a former life
  Trace trace;
  sm = build(primary);
  EXPECT_THAT(linesOf(trace.takeLines(), "handleLocalVtepAddr"),
              ElementsAre("VlanToVniMapSm::handleLocalVtepAddr()", " Add (3,10.0.0.3)", " Add (1,10.0.0.1)",
                          " Add (2,10.0.0.2)", "VlanToVniMapSm::handleLocalVtepAddr() return"));
  EXPECT_THAT(vteps6(*sent), IsEmpty());

  // Two types share an address; one falls to 0 and its entry stays, for the address is still in use.
  v1->localVtepAddrIs(Lanx::IpAddr(10, 0, 0, 9));
  v1->alternateVtepAddrIs(addr3);
  v1->alternateVtepAddrIs(none);
  EXPECT_EQ(vteps(*sent), (Vteps{{1, "10.0.0.9"}, {2, "10.0.0.3"}, {3, "10.0.0.3"}}));
  // Until the other address moves too.
  v1->mlagVtepAddrIs(addr1);
  EXPECT_EQ(vteps(*sent), (Vteps{{1, "10.0.0.9"}, {3, "10.0.0.1"}}));

  // The IPv6 side lives on its own.
  trace.take();
  v1->localVtepAddr6Is(addr6a);
  EXPECT_EQ(vteps6(*sent), (Vteps{{1, "2001:db8::1"}}));
  EXPECT_THAT(linesOf(trace.takeLines(), "handleLocalVtepAddr"), IsEmpty());
  // All IPv4 addresses 0: every IPv4 entry goes, the IPv6 one stays.
  v1->localVtepAddrIs(none);
  v1->mlagVtepAddrIs(none);
  EXPECT_THAT(vteps(*sent), IsEmpty());
  EXPECT_EQ(vteps6(*sent), (Vteps{{1, "2001:db8::1"}}));
}

TEST_F(VlanToVniMapSmTest, RebindingAVtiToANewObjectRunsTheDecisionAndBothAddressHandlers) {
  auto oldVti = vti();
  oldVti->localVtepAddrIs(addr1);
  sm = build(secondary);
  oldVti->alternateVtepAddrIs(addr2);
  auto* const reactor = sm->vtiStatus(::Vxlan1);
  auto newVti = Brix::newNode<Vxlan::VtiStatus>(::Vxlan1);
  newVti->localVtepAddrIs(addr4);
  newVti->mlagVtepAddrIs(addr3);
  newVti->localVtepAddr6Is(addr6a);
  newVti->extendedVlanToVniMapIs(Bridging::ExtendedVlanId(200), mapping(20));
  Trace trace;
  vtiDir->vtiStatusIs(::Vxlan1, newVti);

  EXPECT_EQ(sm->vtiStatus(::Vxlan1), reactor) << "rebound, not rebuilt";
  std::vector<std::string> entered;
  for (auto const& t : trace.take()) {
    if (t.starts_with("VlanToVniMapSm::") && !t.ends_with(" return")) entered.push_back(t);
  }
  EXPECT_THAT(entered, ElementsAre("VlanToVniMapSm::handleVti()", "VlanToVniMapSm::handleLocalVtepAddr()",
                                   "VlanToVniMapSm::handleLocalVtepAddr6()", "VlanToVniMapSm::handleVti()"));
  EXPECT_EQ(vteps(*sent), (Vteps{{1, "10.0.0.4"}, {3, "10.0.0.3"}}));
  // The new object is multi-VTEP: its map is published, from the new object.
  EXPECT_EQ(vniVtiMap(*sent), (VniVtiMap{{{20, "Vx1"}, 200}}));
  // The old object is no longer heard.
  oldVti->localVtepAddrIs(addr3);
  EXPECT_EQ(vteps(*sent).at(1), "10.0.0.4");
}

TEST_F(VlanToVniMapSmTest, CleanupAndDestructionWithdrawTheVlanMapsButNotTheVtepAddresses) {
  auto v1 = vti();
  v1->mlagVtepAddrIs(addr3);
  maps(*v1);
  recv->vtepTypeAddrIs(localType, addr1);
  sm = build(secondary);
  // The inspection tools' cleanup: the children go, the reactors and the guard stay.
  sm->cleanup();
  EXPECT_EQ(publishers(), 0u);
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  v1->localVtepAddrIs(addr1);
  EXPECT_EQ(vteps(*sent), (Vteps{{1, "10.0.0.1"}, {3, "10.0.0.3"}}));

  v1->mlagVtepAddrIs(addr2);  // the decision brings the children back
  ASSERT_EQ(vniVtiMap(*local).size(), 1u);
  sm = nullptr;
  EXPECT_THAT(vniVtiMap(*sent), IsEmpty());
  EXPECT_THAT(vniMap(*sent), IsEmpty());
  EXPECT_THAT(vniVtiMap(*local), IsEmpty());
  EXPECT_EQ(vteps(*sent), (Vteps{{1, "10.0.0.1"}, {3, "10.0.0.2"}}));
  EXPECT_EQ(vteps(*local), (Vteps{{1, "10.0.0.1"}}));
}

}  // namespace
}  // namespace VlanVniTest
