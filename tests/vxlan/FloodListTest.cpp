// Flood lists: the replica of a source directory, the BUM status made into source directory form
// and back, the choice of input road, the container's children and their end; and the
// level-triggered property of each: after any sequence of flood-set changes, the output is what
// a freshly built one makes of the final input.
#include "entities/L2Rib/SourceDirEntry.h"
#include "entities/Vxlan/BumStatus.h"
#include "support/RemoteHostSwitch.h"
#include "trace/RingLogReader.h"
#include "vxlan/ActiveArpTestSupport.h"
#include "vxlan/Harness.h"

namespace {

using namespace TestSupport;

MLAGVXLAN_TEST_RINGLOGDIR();

using ActiveArpTest::zeroMac;
Lanx::EthAddr const otherMac(0x0a00, 0, 0x0001);
L2Rib::Dest dest(std::string_view addr) { return L2Rib::canonicalVxlanDest(Lanx::IpGenAddr::parse(addr)); }
// A VXLAN destination of the same address as dest(addr) that differs from the canonical form.
L2Rib::Dest foreignDest(std::string_view addr) {
  return L2Rib::Dest(L2Rib::DestId(7), L2Rib::DestDataVxlan(::Vxlan1, 100, Lanx::IpGenAddr::parse(addr)));
}

// "vlan mac type: addr addr=false ..." per flood set, sorted; a canonical destination by its
// address, any other by its full text.
std::string text(L2Rib::SourceDirEntry const& sde) {
  std::set<std::string> lines;
  for (auto v = sde.vlanFloodSetIter(); !v.done(); v.advance()) {
    auto const& vfs = *v.currNodeNonStale().value;
    if (vfs.floodSetCount() == 0) lines.insert(std::to_string(vfs.vlanId().value()) + " -");
    for (auto f = vfs.floodSetIter(); !f.done(); f.advance()) {
      auto const& fs = *f.currNodeNonStale().value;
      std::set<std::string> dests;
      for (auto d = fs.destSetIter(); !d.done(); d.advance()) {
        auto const& [key, value] = d.currNodeNonStale();
        bool const canonical =
            key.destType() == L2Rib::destTypeVxlan() && key == L2Rib::canonicalVxlanDest(key.vxlan().vtepAddr());
        std::string t(canonical ? key.vxlan().vtepAddr().stringValue().view() : key.stringValue().view());
        dests.insert(value ? t : t + "=false");
      }
      std::ostringstream os;
      os << vfs.vlanId().value() << ' ' << fs.macAddr() << ' ' << fs.floodSetType() << ':';
      for (auto const& d : dests) os << ' ' << d;
      lines.insert(os.str());
    }
  }
  return joined(lines);
}

// "mode" then "mac/vlan type: addr addr6=false ..." per list, sorted.
std::string text(Vxlan::BumStatus const& bum) {
  std::set<std::string> lines;
  for (auto it = bum.bumVtepListIter(); !it.done(); it.advance()) {
    auto const& l = *it.currNodeNonStale().value;
    std::set<std::string> addrs;
    for (auto a = l.remoteVtepAddrIter(); !a.done(); a.advance())
      addrs.insert(str(a->key) + (a->value ? "" : "=false"));
    for (auto a = l.remoteVtepAddr6Iter(); !a.done(); a.advance())
      addrs.insert(str(a->key) + (a->value ? "" : "=false"));
    std::string line = str(l.macVlanPair().mac()) + "/" + std::to_string(l.macVlanPair().vlanId().value()) + " " +
                       str(l.bumVtepIpListType()) + ":";
    for (auto const& a : addrs) line += " " + a;
    lines.insert(line);
  }
  return "mode " + str(bum.bumReplicationMode()) + "\n" + joined(lines);
}

// The flood set of (vlan, mac) in `sde`, made if missing.
Brix::Ptr<L2Rib::FloodSet> floodSet(L2Rib::SourceDirEntry& sde, std::uint16_t vlan,
                                    Lanx::EthAddr const& mac = zeroMac) {
  return sde.vlanFloodSetIs(Bridging::VlanId(vlan))->floodSetIs(mac);
}
// The VTEP list of (mac, vlan) in `bum`, made if missing.
Brix::Ptr<Vxlan::BumVtepList> list(Vxlan::BumStatus& bum, std::uint16_t vlan, Lanx::EthAddr const& mac = zeroMac) {
  return bum.bumVtepListIs(Vxlan::MacVlanPair(mac, Bridging::VlanId(vlan)));
}

class FloodList : public ::testing::Test {
 protected:
  NoNodesLeft noNodesLeft;
  Brix::Ptr<L2Rib::SourceDirEntry> sdeIn = Brix::newNode<L2Rib::SourceDirEntry>(),
                                   sdeOut = Brix::newNode<L2Rib::SourceDirEntry>();
  Brix::Ptr<Vxlan::BumStatus> bumIn = Brix::newNode<Vxlan::BumStatus>(), bumOut = Brix::newNode<Vxlan::BumStatus>();
  Brix::Ptr<Mlag::VxlanStatus> status = Brix::newNode<Mlag::VxlanStatus>();
  Trace trace;
};

// The replica's stale removal as its traces say it; what it copies is the property's.
TEST_F(FloodList, ReplicaRemovesWhatTheInputLacksAtEachLevel) {
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.2"), false);
  floodSet(*sdeIn, 40, otherMac)->destSetIs(foreignDest("10.0.0.4"), true);
  floodSet(*sdeOut, 10, otherMac);                           // a stale MAC
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.9"), true);  // a stale destination
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.2"), true);  // false in the input
  auto sm = MlagVxlan::sourceDirEntryP2pSmFactory(sdeIn, sdeOut, "sde");
  EXPECT_EQ(text(*sdeOut),
            "10 00:00:00:00:00:00 unknown:\n40 0a:00:00:00:00:01 unknown: " + str(foreignDest("10.0.0.4")) + "\n");
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Del stale " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Del stale " + str(dest("10.0.0.9"))));
  EXPECT_THAT(lines, Contains(" (sde,10,00:00:00:00:00:00)::handleDest Del " + str(dest("10.0.0.2"))))
      << "a false destination is no stale one";
  sdeIn->vlanFloodSetIs(Bridging::VlanId(10))->floodSetDel(zeroMac);
  EXPECT_EQ(sm->vlanFloodSetInput(Bridging::VlanId(10))->floodSetInputCount(), 0u) << "its reactor lets it go";
  sm = nullptr;
  EXPECT_EQ(text(*sdeOut), "") << "what the replica copied does not outlive it";
}

TEST_F(FloodList, BumStatusBecomesFloodSetsAndEmptiedLevelsGo) {
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1), true);
  list(*bumIn, 10)->remoteVtepAddr6Is(Lanx::Ip6Addr::parse("2001:db8::1"), true);
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), false);
  list(*bumIn, 10, otherMac)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::any);
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.2"), true);  // false in the list: goes by its own step
  floodSet(*sdeOut, 10)->destSetIs(dest("10.0.0.9"), true);  // unknown to the list
  floodSet(*sdeOut, 20, otherMac);
  auto sm = MlagVxlan::bumStatusToSdeSmFactory(bumIn, sdeOut, "bum");
  EXPECT_EQ(text(*sdeOut), "10 00:00:00:00:00:00 all: 10.0.0.1 2001:db8::1\n10 0a:00:00:00:00:01 unknown:\n")
      << "a list without addresses is a flood set without destinations, its type not yet set";
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Del stale flood set " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Del stale vlan flood set 20"));
  EXPECT_THAT(lines, Contains(" Del stale dest set " + str(dest("10.0.0.9"))));
  EXPECT_THAT(lines, Not(Contains(" Del stale dest set " + str(dest("10.0.0.2")))));

  list(*bumIn, 10)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::any);
  EXPECT_THAT(trace.take(), Contains(" BUM VTEP Ip List any"));
  list(*bumIn, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 1), false);  // false is as absent
  list(*bumIn, 10)->remoteVtepAddr6Del(Lanx::Ip6Addr::parse("2001:db8::1"));
  EXPECT_EQ(text(*sdeOut), "10 0a:00:00:00:00:01 unknown:\n") << "the last destination takes its flood set along";
  list(*bumIn, 10, otherMac)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 3), true);
  list(*bumIn, 10, otherMac)->remoteVtepAddrDel(Lanx::IpAddr(10, 0, 0, 3));
  EXPECT_EQ(text(*sdeOut), "") << "and the last flood set its VLAN, although both lists remain";
  list(*bumIn, 10)->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::all);
  EXPECT_EQ(text(*sdeOut), "10 00:00:00:00:00:00 all:\n") << "a type change makes the flood set again";
  trace.take();
  sm->handleBumVtepList(Vxlan::MacVlanPair(otherMac, Bridging::VlanId(99)));
  EXPECT_THAT(trace.take(), IsEmpty()) << "a removal where the output has no such VLAN";
  bumIn->bumVtepListDel(Vxlan::MacVlanPair(zeroMac, Bridging::VlanId(10)));
  EXPECT_EQ(text(*sdeOut), "");
}

// What the narrowing leaves out, as its traces say; the rest is the property's.
TEST_F(FloodList, SourceDirectoryNarrowsToTheZeroMacsIpv4Addresses) {
  sdeIn->sourceInitializedIs(true);
  auto zero = floodSet(*sdeIn, 10);
  zero->floodSetTypeIs(L2Rib::FloodSetType::any);
  zero->destSetIs(dest("10.0.0.1"), true);
  zero->destSetIs(foreignDest("10.0.0.2"), false);  // present whatever its value and its other fields
  zero->destSetIs(dest("2001:db8::1"), true);
  floodSet(*sdeIn, 10, otherMac)->destSetIs(dest("10.0.0.5"), true);
  floodSet(*sdeIn, 20, otherMac);
  list(*bumOut, 10)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 9), true);  // stale
  list(*bumOut, 30, otherMac);                                           // never written here
  auto sm = MlagVxlan::sdeToBumStatusSmFactory(sdeIn, bumOut);
  std::string const built = "mode headend\n00:00:00:00:00:00/10 any: 10.0.0.1 10.0.0.2\n0a:00:00:00:00:01/30 all:\n";
  EXPECT_EQ(text(*bumOut), built);
  auto lines = trace.take();
  EXPECT_THAT(lines, Contains(" Skip non-zero MAC " + str(otherMac)));
  EXPECT_THAT(lines, Contains(" Skipping non IPv4 address 2001:db8::1"));
  EXPECT_THAT(lines, Contains(" Deleting addr 10.0.0.9"));
  zero->floodSetTypeIs(L2Rib::FloodSetType::unknown);
  EXPECT_EQ(text(*bumOut), built) << "a type other than all and any leaves the list's type";
  // A VLAN made again in place is a new input object: its child follows the new one.
  sdeIn->vlanFloodSetIs(Bridging::VlanId(20), Brix::newNode<L2Rib::VlanFloodSet>(Bridging::VlanId(20)));
  floodSet(*sdeIn, 20)->destSetIs(dest("10.0.0.7"), true);
  EXPECT_EQ(text(*bumOut),
            "mode headend\n00:00:00:00:00:00/10 any: 10.0.0.1 10.0.0.2\n00:00:00:00:00:00/20 all: "
            "10.0.0.7\n0a:00:00:00:00:01/30 all:\n");
  sdeIn->sourceInitializedIs(false);
  EXPECT_EQ(text(*bumOut), "mode none\n");
  EXPECT_THAT(trace.take(), Contains(" Clearing BumStatus as VCS SDE is uninitialized"));
  sdeIn->vlanFloodSetIs(Bridging::VlanId(50));
  EXPECT_THAT(trace.take(), ElementsAre("SdeToBumStatusSm::handleVlanFloodSet vlan 50"));
  sdeIn->sourceInitializedIs(true);
  sm = nullptr;
  EXPECT_EQ(text(*bumOut), "mode none\n");
}

#ifndef NDEBUG
TEST_F(FloodList, ANonVxlanDestinationIsAProgrammingError) {
  sdeIn->sourceInitializedIs(true);
  auto sm = MlagVxlan::sdeToBumStatusSmFactory(sdeIn, bumOut);
  L2Rib::Dest const intf(L2Rib::DestId(1), L2Rib::DestDataIntf(::Vxlan1));
  EXPECT_DEATH(floodSet(*sdeIn, 10)->destSetIs(intf, true), "dest.destType\\(\\) == L2Rib::destTypeVxlan\\(\\)");
}
#endif

TEST_F(FloodList, SelectorFlagFlipsEmptyAndRefillTheOutputFromTheOtherRoad) {
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), true);
  list(*bumIn, 20)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 2), true);
  std::string const bySde = "10 00:00:00:00:00:00 unknown: 10.0.0.1\n11 -\n",
                    byBum = "20 00:00:00:00:00:00 all: 10.0.0.2\n";
  auto sel = MlagVxlan::floodListInputSelectorSmFactory(status, bumIn, sdeIn, sdeOut, "sel");
  EXPECT_EQ(text(*sdeOut), byBum);
  sdeIn->vlanFloodSetIs(Bridging::VlanId(11));
  EXPECT_EQ(text(*sdeOut), byBum) << "on the legacy road the source directory input does nothing";
  for (bool flag : {true, false, true}) {
    trace.take();
    status->sdeFloodListCapableIs(flag);
    EXPECT_EQ(text(*sdeOut), flag ? bySde : byBum);
    EXPECT_EQ(bool(sel->sdeInputSm()), flag);
    EXPECT_NE(bool(sel->legacyBumStatusInputSm()), flag);
    // The old road's output is gone before the new road's first run.
    auto lines = trace.take();
    auto const at = [&](std::string const& l) { return std::find(lines.begin(), lines.end(), l) - lines.begin(); };
    EXPECT_LT(at(flag ? "BumStatusToSdeSm(sel)::doCleanup()" : "SourceDirEntryP2pSm(sel)::doCleanup()"),
              at(flag ? "SourceDirEntryP2pSm(sel)::VokVlanFloodSetInput(10)::handleFloodSet()"
                      : "BumStatusToSdeSm(sel)::handleBumVtepList()"));
  }
  list(*bumIn, 21)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 3), true);
  EXPECT_EQ(text(*sdeOut), bySde) << "on the source directory road the BUM status does nothing";
  auto* child = sel->sdeInputSm().get();
  TestSupport::PublicationRecorder outputChanges(*sdeOut);
  sel->selectInputSource();
  EXPECT_EQ(sel->sdeInputSm().get(), child) << "an unchanged flag keeps the child";
  EXPECT_THAT(outputChanges.publications(), IsEmpty());
  sel = nullptr;
  EXPECT_EQ(text(*sdeOut), "");
}

// The container ends its children in their order: remote MACs, active ARP, flood lists, ARP sync. Each child
// reads the arguments it was given.
TEST_F(FloodList, ContainerEndsItsChildrenInTheirOrder) {
  auto c = MlagVxlan::smContainerFactory("vxlan");
  TestSupport::RemoteHostSwitch const h;
  auto remote = [&] {
    return c->remoteHostTableSmIs(h.sent, h.mlagHost, h.config, h.fdb, h.vxfdb, h.proto, h.mlag, h.ctrl, h.vtiDir);
  };
  EXPECT_EQ(remote(), remote()) << "the same arguments give the same object";
  ActiveArpTest::Copy arp;
  arp.config->arpSelectiveInstallIs(true);
  arp.in->remoteIpIs(ActiveArpTest::key(10, "10.0.0.1"), true);
  auto back = Brix::newNode<Vxlan::ActiveArpIpTable>();
  c->activeArpP2pToCorestateSmIs(arp.vtiDir, arp.l2Vpn, arp.config, arp.in, arp.out, arp.dest, arp.rx, arp.destVx,
                                 "toCore");
  c->activeArpCorestateToP2pSmIs(arp.vtiDir, arp.l2Vpn, arp.config, arp.out, back, arp.dest, arp.rx, arp.destVx,
                                 "toP2p");
  EXPECT_EQ(ActiveArpTest::text(*back), "remote 10/10.0.0.1\n") << "the second copy reads what the first wrote";
  sdeIn->sourceInitializedIs(true);
  floodSet(*sdeIn, 10)->destSetIs(dest("10.0.0.1"), true);
  auto copy = Brix::newNode<L2Rib::SourceDirEntry>();
  c->vcsSdeCorestateToP2pSmIs(sdeIn, copy, "p2p");
  c->vcsSdeCorestateToBumStatusP2pSmIs(sdeIn, bumOut);
  c->floodListInputSelectorSmIs(status, bumIn, sdeIn, sdeOut, "sel");
  c->scheduledMlagPeerArpSyncSmIs(status, status, Brix::newNode<Mlag::VxlanStatus>());
  EXPECT_EQ(text(*copy), "10 00:00:00:00:00:00 unknown: 10.0.0.1\n");
  EXPECT_EQ(text(*bumOut), "mode headend\n00:00:00:00:00:00/10 all: 10.0.0.1\n");
  // The ring file holds the destinations as their text.
  auto decoded = RingLog::decodeFile(MlagVxlan::vxlanRlHandle()->fileName());
  EXPECT_TRUE(decoded.ok());
  std::vector<std::string> texts;
  for (auto const& r : decoded.records) texts.push_back(r.text);
  EXPECT_THAT(texts, Contains(" (p2p,10,00:00:00:00:00:00)::handleDest Add " + str(dest("10.0.0.1"))));

  std::vector<Brix::FieldId> ended;
  TestSupport::PublicationRecorder rec(*c, [&](auto const& p) { ended.push_back(p.field); });
  c = nullptr;
  using C = MlagVxlan::SmContainer;
  EXPECT_THAT(ended, ElementsAre(C::remoteHostTableSmField, C::activeArpP2pToCorestateSmField,
                                 C::activeArpCorestateToP2pSmField, C::vcsSdeCorestateToP2pSmField,
                                 C::vcsSdeCorestateToBumStatusP2pSmField, C::floodListInputSelectorSmField,
                                 C::scheduledMlagPeerArpSyncSmField));
  EXPECT_EQ(text(*copy), "");
  EXPECT_EQ(text(*bumOut), "mode none\n");
  EXPECT_EQ(ActiveArpTest::text(*arp.out), "");
  EXPECT_EQ(ActiveArpTest::text(*back), "");
  EXPECT_EQ(h.proto->publisher()->subscriberCount(), 0u);
}

// ---- properties ----

// One change of a source directory entry: a VLAN, a MAC's flood set, its type or a destination
// made or removed, or the initialized flag. Destinations are canonical: the narrowing to BUM
// status reads only their addresses, so two destinations of one address are left out.
void changeSde(L2Rib::SourceDirEntry& sde, std::vector<L2Rib::FloodSetType> const& types) {
  Bridging::VlanId const vlan(*rc::gen::element<std::uint16_t>(1, 2, 4094));
  Lanx::EthAddr const mac = *rc::gen::element(zeroMac, otherMac);
  int const what = *rc::gen::inRange(0, 8);
  if (what == 0) return (void)sde.vlanFloodSetDel(vlan);
  if (what == 1) return (void)sde.vlanFloodSetIs(vlan)->floodSetDel(mac);
  if (what == 2) return sde.vlanFloodSetIs(vlan)->floodSetIs(mac)->floodSetTypeIs(*rc::gen::elementOf(types));
  if (what == 3) return sde.sourceInitializedIs(!sde.sourceInitialized());
  auto const d = dest(*rc::gen::element<std::string>("10.0.0.1", "10.0.0.2", "10.0.0.3", "2001:db8::1"));
  auto const fs = sde.vlanFloodSetIs(vlan)->floodSetIs(mac);
  if (*rc::gen::inRange(0, 3) == 0) return (void)fs->destSetDel(d);
  fs->destSetIs(d, *rc::gen::arbitrary<bool>());
}

std::vector<L2Rib::FloodSetType> const allTypes{L2Rib::FloodSetType::unknown, L2Rib::FloodSetType::all,
                                                L2Rib::FloodSetType::any};
// A type the BUM status cannot say leaves the list as it was: a documented difference from a
// fresh start, left out here.
std::vector<L2Rib::FloodSetType> const bumTypes{L2Rib::FloodSetType::all, L2Rib::FloodSetType::any};

// What a former life left in an output, for the first run to prune. The BUM status gets lists
// of VLAN 3 only, which no input has: the narrowing never writes lists of other MACs, so it
// leaves them alone, and it keeps a list whose VLAN the input has without a zero-MAC flood set.
void dirty(L2Rib::SourceDirEntry& out) {
  for (int n = *rc::gen::inRange(0, 6); n > 0; --n) changeSde(out, allTypes);
  out.sourceInitializedIs(false);  // the replica does not copy the flag
}
void dirty(Vxlan::BumStatus& out) {
  if (*rc::gen::arbitrary<bool>()) list(out, 3)->remoteVtepAddrIs(Lanx::IpAddr(10, 0, 0, 9), true);
}

// Builds `make(input, output)` on a few changes and a dirty output, runs more, and compares with
// a fresh one on a clean output.
template <class Output, class Make>
void checkAgainstFresh(std::vector<L2Rib::FloodSetType> const& types, Make make) {
  leavesNoNodes([&] {
    auto in = Brix::newNode<L2Rib::SourceDirEntry>();
    auto out = Brix::newNode<Output>();
    dirty(*out);
    for (int n = *rc::gen::inRange(0, 10); n > 0; --n) changeSde(*in, types);
    auto sm = make(in, out);
    for (int n = *rc::gen::inRange(0, 60); n > 0; --n) changeSde(*in, types);
    auto freshOut = Brix::newNode<Output>();
    auto freshSm = make(in, freshOut);
    RC_ASSERT(text(*out) == text(*freshOut));
    RC_ASSERT(*out == *freshOut);
  });
}

RC_GTEST_PROP(FloodListProperty, TheReplicaEndsWhereAFreshOneStarts, ()) {
  checkAgainstFresh<L2Rib::SourceDirEntry>(
      allTypes, [](auto const& in, auto const& out) { return MlagVxlan::sourceDirEntryP2pSmFactory(in, out, "p"); });
}

RC_GTEST_PROP(FloodListProperty, TheBumStatusEndsWhereAFreshOneStarts, ()) {
  checkAgainstFresh<Vxlan::BumStatus>(
      bumTypes, [](auto const& in, auto const& out) { return MlagVxlan::sdeToBumStatusSmFactory(in, out); });
}

// The selector's road flips among the changes; the BUM status input is the narrowed form of the
// source directory input, so both roads have something to say. It ends on the source directory
// road: the legacy road keeps a list's flood set only while the list has addresses, which a
// fresh start does not do, by design.
RC_GTEST_PROP(FloodListProperty, TheSelectorsOutputEndsWhereAFreshOneStarts, ()) {
  leavesNoNodes([&] {
    auto sde = Brix::newNode<L2Rib::SourceDirEntry>();
    auto bum = Brix::newNode<Vxlan::BumStatus>();
    auto status = Brix::newNode<Mlag::VxlanStatus>();
    auto narrowing = MlagVxlan::sdeToBumStatusSmFactory(sde, bum);
    auto out = Brix::newNode<L2Rib::SourceDirEntry>();
    auto sel = MlagVxlan::floodListInputSelectorSmFactory(status, bum, sde, out, "s");
    for (int n = *rc::gen::inRange(0, 60); n > 0; --n) {
      if (*rc::gen::inRange(0, 6) == 0) {
        status->sdeFloodListCapableIs(!status->sdeFloodListCapable());
      } else {
        changeSde(*sde, bumTypes);
      }
    }
    status->sdeFloodListCapableIs(true);
    auto freshOut = Brix::newNode<L2Rib::SourceDirEntry>();
    auto freshSel = MlagVxlan::floodListInputSelectorSmFactory(status, bum, sde, freshOut, "f");
    RC_ASSERT(text(*out) == text(*freshOut));
    RC_ASSERT(*out == *freshOut);
  });
}

}  // namespace
