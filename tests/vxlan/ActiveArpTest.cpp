// Active ARP: the enable logic, the filtered copies of remote, local and local IP/MAC entries,
// the protections (entries the far end holds, loops, entries in use), the SVI re-evaluation, the
// loss of a VTI, and the container's two active ARP children.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Vxlan/SmContainer.h"
#include "support/RingLogDir.h"
#include "vxlan/ActiveArpTestSupport.h"
#include "vxlan/PublicationRecorder.h"
#include "vxlan/VlanVniTestSupport.h"

namespace {

using namespace ActiveArpTest;
using ::testing::Contains;
using ::testing::ElementsAre;

MLAGVXLAN_TEST_RINGLOGDIR();

template <class T>
std::string str(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

Lanx::IntfId const vx1("Vxlan1");
Lanx::IntfId const vx2("Vxlan2");
Lanx::EthAddr const macA = mac("02:00:00:00:00:0a");
Lanx::EthAddr const macB = mac("02:00:00:00:00:0b");

class ActiveArp : public VlanVniTest::LiveNodesTest {
 protected:
  void releaseAll() override { held.reset(); }
  MlagVxlan::ActiveArpP2pSm::NestedSm_VtiStatus& nested(MlagVxlan::ActiveArpP2pSm const& sm) {
    return *sm.vtiStatus(vx1);
  }

  std::optional<Copy> held{std::in_place};
  Copy& copy = *held;
  VlanVniTest::TraceOn trace;
};

// ---- the paths of localIpMac, row by row ----

enum class Filter { l2Learning, selective, anyVlanOnly, none };
enum class Rx { none, noKey, sameMac, otherMac };
enum class Out { broadcast, unchanged, inputMac, deleted, localIpTrue, localIpDeleted };

struct PathRow {
  bool capable;
  std::optional<Lanx::EthAddr> input;
  Filter filter;
  Rx rx;
  bool loopCapable;
  Out out;
  std::string trace;
};

TEST_F(ActiveArp, LocalIpMacFollowsEachRowOfThePathTable) {
  Lanx::EthAddr const sentinel = mac("02:00:00:00:00:99");
  std::vector<PathRow> const rows{
      {true, macA, Filter::l2Learning, Rx::sameMac, true, Out::broadcast,
       " Loop detection: writing broadcast MAC for {key} (was 02:00:00:00:00:0a)"},
      {true, macA, Filter::selective, Rx::sameMac, false, Out::unchanged,
       " Not adding new key to localIpMac {key} mac 02:00:00:00:00:0a as entry already in rx dest state"},
      {true, macA, Filter::l2Learning, Rx::none, true, Out::inputMac,
       " Adding new key to localIpMac {key} mac 02:00:00:00:00:0a"},
      {true, macA, Filter::selective, Rx::noKey, false, Out::inputMac,
       " Adding new key to localIpMac {key} mac 02:00:00:00:00:0a"},
      {true, macA, Filter::l2Learning, Rx::otherMac, true, Out::inputMac,
       " Adding new key to localIpMac {key} mac 02:00:00:00:00:0a"},
      {true, zeroMac, Filter::selective, Rx::none, false, Out::inputMac,
       " Adding new key to localIpMac {key} mac 00:00:00:00:00:00"},
      {true, macA, Filter::anyVlanOnly, Rx::sameMac, true, Out::unchanged,
       " Not deleting from localIpMac key {key} mac 02:00:00:00:00:99 as the input entry is still local without SVI "
       "check (L2->L3)"},
      {true, macA, Filter::none, Rx::sameMac, true, Out::deleted,
       " Del existing key from localIpMac {key} mac 02:00:00:00:00:99"},
      {true, std::nullopt, Filter::l2Learning, Rx::sameMac, true, Out::deleted,
       " Del existing key from localIpMac {key} mac 02:00:00:00:00:99"},
      {false, macA, Filter::selective, Rx::otherMac, true, Out::unchanged,
       " Not adding new key to localIp {key} mac 0.0.0 as entry already in rx dest state"},
      {false, macA, Filter::selective, Rx::noKey, true, Out::localIpTrue, " Adding new key to localIp {key} mac 0.0.0"},
      {false, macA, Filter::selective, Rx::none, false, Out::localIpTrue, " Adding new key to localIp {key} mac 0.0.0"},
      {false, zeroMac, Filter::selective, Rx::noKey, true, Out::localIpDeleted,
       " Del existing`key from localIp {key} mac 0.0.0"},
      {false, std::nullopt, Filter::selective, Rx::noKey, true, Out::localIpDeleted,
       " Del existing`key from localIp {key} mac 0.0.0"},
      {false, macA, Filter::none, Rx::sameMac, true, Out::localIpDeleted,
       " Del existing`key from localIp {key} mac 0.0.0"},
  };
  for (std::size_t i = 0; i < rows.size(); ++i) {
    PathRow const& row = rows[i];
    SCOPED_TRACE(::testing::Message() << "row " << i);
    copy = Copy();
    // Unicast passes selective install; a multicast address only L2 learning, which checks no kind.
    bool const unicast = row.filter == Filter::l2Learning || row.filter == Filter::selective;
    auto const k = key(10, unicast ? "10.0.0.5" : "224.0.0.5");
    copy.config->arpSelectiveInstallIs(row.filter != Filter::l2Learning);
    copy.l2Vpn->l2LearningSwitch1Is(row.filter == Filter::l2Learning || row.filter == Filter::anyVlanOnly);
    if (row.filter == Filter::l2Learning) copy.config->validSviIs(Bridging::VlanIdOrNone(10), true);
    copy.dest->l2LearningCapableIs(row.capable);
    copy.destVx->loopDetectionCapableIs(row.loopCapable);
    if (row.rx == Rx::sameMac) copy.rx->localIpMacIs(k, row.input.value_or(macA));
    if (row.rx == Rx::otherMac) copy.rx->localIpMacIs(k, macB);
    if (row.input) copy.in->localIpMacIs(k, *row.input);
    auto sm = copy.make(row.rx != Rx::none);
    // What stood in the output before this key's turn: a value no handler writes.
    copy.out->localIpMacIs(k, sentinel);
    copy.out->localIpIs(k, false);
    (void)trace.take();

    nested(*sm).handleLocalIpMac(k);

    std::string expectedTrace = row.trace;
    expectedTrace.replace(expectedTrace.find("{key}"), 5, str(k));
    EXPECT_THAT(trace.take(), Contains(expectedTrace));
    std::optional<Lanx::EthAddr> const macOut =
        copy.out->localIpMacHas(k) ? std::optional(copy.out->localIpMac(k)) : std::nullopt;
    std::optional<bool> const ipOut = copy.out->localIpHas(k) ? std::optional(copy.out->localIp(k)) : std::nullopt;
    switch (row.out) {
      case Out::broadcast:
        EXPECT_EQ(macOut, Lanx::EthAddr::broadcast());
        break;
      case Out::unchanged:
        EXPECT_EQ(macOut, sentinel);
        EXPECT_EQ(ipOut, false);
        break;
      case Out::inputMac:
        EXPECT_EQ(macOut, row.input);
        break;
      case Out::deleted:
        EXPECT_EQ(macOut, std::nullopt);
        break;
      case Out::localIpTrue:
        EXPECT_EQ(ipOut, true);
        break;
      case Out::localIpDeleted:
        EXPECT_EQ(ipOut, std::nullopt);
        break;
    }
    if (row.out != Out::unchanged) {
      // The other collection is not this path's.
      if (row.capable) {
        EXPECT_EQ(ipOut, false);
      } else {
        EXPECT_EQ(macOut, sentinel);
      }
    }
  }
}

// ---- the enable logic ----

TEST_F(ActiveArp, AnyOneSwitchEnablesAndTheirLossEmptiesAllButTheCapability) {
  copy.in->remoteIpIs(key(10, "10.0.0.1"), true);
  copy.in->localIpMacIs(key(10, "10.0.0.2"), macA);
  copy.in->arpSelectiveInstallIs(true);
  copy.in->l2LearningCapableIs(true);
  auto sm = copy.make();
  EXPECT_EQ(text(*copy.out), "") << "disabled: nothing written";
  EXPECT_EQ(trace.take(), std::vector<std::string>{"ActiveArpP2pSm::VokVtiStatus(Vx1)::handleInitialized()"});
  copy.in->arpSelectiveInstallIs(false);
  copy.in->arpSelectiveInstallIs(true);
  EXPECT_EQ(text(*copy.out), "") << "a handler of a disabled copy writes nothing";

  std::string const enabled = "local 10/10.0.0.2\nremote 10/10.0.0.1\nselective\ncapable\n";
  for (int which = 0; which < 3; ++which) {
    SCOPED_TRACE(which);
    copy.config->arpSelectiveInstallIs(which == 0);
    copy.l2Vpn->l2LearningSwitch1Is(which == 1);
    copy.l2Vpn->l2LearningSwitch2Is(which == 2);
    EXPECT_EQ(text(*copy.out), enabled);
    EXPECT_TRUE(nested(*sm).initialized());
  }
  copy.l2Vpn->l2LearningSwitch2Is(false);
  EXPECT_EQ(text(*copy.out), "capable\n") << "the capability the far end was told stays";
  EXPECT_FALSE(nested(*sm).initialized());

  copy.config->arpSelectiveInstall2Is(true);
  copy.config->arpSelectiveInstallIs(true);
  (void)trace.take();
  copy.config->arpSelectiveInstall2Is(false);  // counts like the first switch: a full pass again
  auto lines = trace.take();
  EXPECT_EQ(lines.front(), "ActiveArpP2pSm::VokVtiStatus(Vx1)::handleInitialized()");
  EXPECT_EQ(lines.back(), "ActiveArpP2pSm::VokVtiStatus(Vx1)::handleInitialized() return");
  // Not in localIp: deleted by the local pass, then written again by the local IP/MAC pass.
  auto const at = [&](std::string const& l) { return std::find(lines.begin(), lines.end(), l) - lines.begin(); };
  EXPECT_LT(at(" Deleting from localIp, key " + str(key(10, "10.0.0.2"))),
            at(" Adding new key to localIp " + str(key(10, "10.0.0.2")) + " mac 0.0.0"));
  sm = nullptr;
  EXPECT_EQ(text(*copy.out), "capable\n") << "the copy's end withdraws what it wrote";
}

TEST_F(ActiveArp, CapabilityFlipsRebuildTheLocalOutputs) {
  copy.config->arpSelectiveInstallIs(true);
  copy.destVx->loopDetectionCapableIs(true);
  copy.in->localIpMacIs(key(10, "10.0.0.1"), macA);
  copy.in->localIpMacIs(key(10, "10.0.0.2"), macB);
  copy.rx->localIpMacIs(key(10, "10.0.0.2"), macB);  // the far end holds it too: a loop
  copy.in->localIpIs(key(20, "10.0.0.3"), true);
  auto sm = copy.make();
  EXPECT_EQ(text(*copy.out), "local 10/10.0.0.1\n")
      << "the far end holds 10.0.0.2, and the all-keys pass keeps only what localIpMac has";

  copy.dest->l2LearningCapableIs(true);
  EXPECT_EQ(text(*copy.out),
            "local 10/10.0.0.1\nmac 10/10.0.0.1 02:00:00:00:00:0a\n"
            "mac 10/10.0.0.2 ff:ff:ff:ff:ff:ff\n")
      << "gaining capability leaves localIp as it stands, and localIpMac has the last word";

  copy.in->localIpIs(key(30, "10.0.0.4"), true);
  EXPECT_EQ(copy.out->localIpMac(key(30, "10.0.0.4")), zeroMac) << "a capable far end gets a zero MAC";
  EXPECT_FALSE(copy.out->localIpHas(key(30, "10.0.0.4")));

  copy.dest->l2LearningCapableIs(false);
  EXPECT_EQ(text(*copy.out), "local 10/10.0.0.1\n")
      << "losing it clears localIpMac, the broadcast entry too, and rebuilds localIp";
}

// ---- protections and re-evaluations ----

TEST_F(ActiveArp, AnEntryInUseStaysWhileL2LearningAcceptsItsAddress) {
  auto const k = key(10, "10.0.0.1");
  copy.l2Vpn->l2LearningSwitch1Is(true);
  copy.config->validSviIs(Bridging::VlanIdOrNone(10), true);
  copy.dest->l2LearningCapableIs(true);
  copy.in->localIpMacIs(k, macA);
  copy.in->localIpIs(k, true);
  auto sm = copy.make();
  EXPECT_EQ(copy.out->localIpMac(k), macA) << "a real MAC wins over the zero one";
  (void)trace.take();
  copy.in->localIpDel(k);
  EXPECT_EQ(copy.out->localIpMac(k), macA);
  EXPECT_THAT(trace.take(), Contains(" Not changing entry in use in localIpMac, key " + str(k)));
  copy.in->localIpIs(k, true);
  EXPECT_EQ(copy.out->localIpMac(k), macA) << "not even a wanted key overwrites it";

  // Without the SVI, L2 learning refuses the address: a wanted key gets the zero MAC, an unwanted one goes.
  copy.out->localIpIs(k, true);
  copy.config->validSviIs(Bridging::VlanIdOrNone(10), false);
  copy.config->arpSelectiveInstallIs(true);  // a full pass, with the input's MAC written last
  EXPECT_EQ(copy.out->localIpMac(k), macA);
  copy.out->localIpMacIs(k, macB);
  copy.in->localIpIs(k, false);
  copy.in->localIpIs(k, true);
  EXPECT_EQ(copy.out->localIpMac(k), zeroMac);
  copy.out->localIpMacIs(k, macB);
  copy.in->localIpDel(k);
  EXPECT_FALSE(copy.out->localIpMacHas(k));
  EXPECT_TRUE(copy.out->localIpHas(k)) << "the localIp entry itself is not this path's";
}

TEST_F(ActiveArp, AnSviChangeRedoesOnlyTheKeysOfItsVlanAndFamily) {
  // Multicast keys pass only by L2 learning, so the SVI decides for them.
  auto const m4 = key(10, "224.0.0.5"), m6 = key(10, "ff02::5"), other = key(20, "ff02::5");
  copy.l2Vpn->l2LearningSwitch1Is(true);
  copy.config->arpSelectiveInstallIs(true);
  for (auto vlan : {10, 20}) {
    copy.config->validSviIs(Bridging::VlanIdOrNone(vlan), true);
    copy.config->validSvi6Is(Bridging::VlanIdOrNone(vlan), true);
  }
  copy.dest->l2LearningCapableIs(true);
  for (auto const& k : {m4, m6, other}) copy.in->localIpMacIs(k, macB);
  auto sm = copy.make();
  (void)trace.take();

  copy.config->validSvi6Is(Bridging::VlanIdOrNone(10), false);
  EXPECT_THAT(trace.take(),
              ElementsAre("ActiveArpP2pSm::VokVtiStatus(Vx1)::handleValidSviList() vlan 10 af ipv6",
                          "ActiveArpP2pSm::VokVtiStatus(Vx1)::handleLocalIpMac(" + str(m6) + ")",
                          " Dest is l2-learning capable - update for both l2-learning and selective-install",
                          " Not deleting from localIpMac key " + str(m6) +
                              " mac 02:00:00:00:00:0b as the input entry is still local without SVI check (L2->L3)",
                          "ActiveArpP2pSm::VokVtiStatus(Vx1)::handleLocalIpMac(" + str(m6) + ") return",
                          "ActiveArpP2pSm::VokVtiStatus(Vx1)::handleValidSviList() vlan 10 af ipv6 return"));
  copy.l2Vpn->l2LearningSwitch2Is(true);  // a full pass removes what the SVI check refuses
  EXPECT_EQ(text(*copy.out), "mac 10/224.0.0.5 02:00:00:00:00:0b\nmac 20/ff02::5 02:00:00:00:00:0b\n");

  copy.dest->l2LearningCapableIs(false);
  (void)trace.take();
  copy.config->validSviIs(Bridging::VlanIdOrNone(10), false);
  EXPECT_THAT(trace.take(), ElementsAre("ActiveArpP2pSm::VokVtiStatus(Vx1)::handleValidSviList() vlan 10 af ipv4",
                                        " Dest is not l2-learning capable, return"));
}

// ---- VTIs ----

TEST_F(ActiveArp, TheLossOfOneVtiEmptiesTheOutputUntilAnotherRunsAgain) {
  copy.config->arpSelectiveInstallIs(true);
  copy.vtiDir->vtiStatusDel(vx1);
  copy.out->remoteIpIs(key(1, "10.0.0.8"), true);
  copy.in->remoteIpIs(key(10, "10.0.0.1"), true);
  auto sm = copy.make();
  EXPECT_EQ(sm->vtiStatusCount(), 0u);
  EXPECT_EQ(text(*copy.out), "remote 1/10.0.0.8\n") << "no VTI: the output is not touched";

  copy.vtiDir->vtiStatusIs(vx1);
  copy.vtiDir->vtiStatusIs(vx2);
  EXPECT_EQ(sm->vtiStatusCount(), 2u);
  EXPECT_EQ(text(*copy.out), "remote 10/10.0.0.1\n");
  copy.vtiDir->vtiStatusDel(vx2);
  EXPECT_EQ(text(*copy.out), "") << "the going VTI withdraws also what the other one wrote";
  EXPECT_THAT(trace.take(), Contains("ActiveArpP2pSm::VokVtiStatus(Vx2)::doCleanup()"));
  copy.in->remoteIpIs(key(10, "10.0.0.2"), true);
  EXPECT_EQ(text(*copy.out), "remote 10/10.0.0.2\n");
  copy.l2Vpn->l2LearningSwitch1Is(true);
  EXPECT_EQ(text(*copy.out), "remote 10/10.0.0.1\nremote 10/10.0.0.2\n");
}

// ---- the container ----

TEST_F(ActiveArp, ContainerHoldsBothDirectionsAndEndsThemBeforeTheFloodLists) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  copy.config->arpSelectiveInstallIs(true);
  copy.in->remoteIpIs(key(10, "10.0.0.1"), true);
  auto back = Brix::newNode<Vxlan::ActiveArpIpTable>();
  EXPECT_EQ(c->activeArpP2pToCorestateSmDel(), nullptr);
  auto toCore = c->activeArpP2pToCorestateSmIs(copy.vtiDir, copy.l2Vpn, copy.config, copy.in, copy.out, copy.dest,
                                               copy.rx, copy.destVx, "toCore");
  EXPECT_EQ(c->activeArpP2pToCorestateSmIs(copy.vtiDir, copy.l2Vpn, copy.config, copy.in, copy.out, copy.dest, copy.rx,
                                           copy.destVx, "toCore"),
            toCore);
  toCore = nullptr;
  c->activeArpCorestateToP2pSmIs(copy.vtiDir, copy.l2Vpn, copy.config, copy.out, back, copy.dest, copy.rx, copy.destVx,
                                 "toP2p");
  EXPECT_EQ(text(*back), "remote 10/10.0.0.1\n") << "the second copy reads what the first wrote";
  c->vcsSdeCorestateToP2pSmIs(nullptr, nullptr, "sde");

  std::vector<Brix::FieldId> ended;
  TestSupport::PublicationRecorder rec(*c, [&](auto const& p) { ended.push_back(p.field); });
  c = nullptr;
  using C = MlagVxlan::SmContainer;
  EXPECT_THAT(ended, ElementsAre(C::activeArpP2pToCorestateSmField, C::activeArpCorestateToP2pSmField,
                                 C::vcsSdeCorestateToP2pSmField));
  EXPECT_EQ(text(*copy.out), "");
  EXPECT_EQ(text(*back), "");
}

}  // namespace
