// ARP between the peers: the primary's two publication forms and the move between them, the
// secondary's two appliers with their stale passes, roles ending, and the late notification of a
// table the peer no longer publishes; and the level-triggered property of the pair.
#include <memory>

#include "trace/DualLog.h"
#include "trace/RingLogReader.h"
#include "vxlan/Harness.h"

namespace ArpTest {
namespace {

using namespace TestSupport;
using Status = Mlag::VxlanStatus;
// VRF to rows, each row as its trace text shows it: "10.0.0.1" or "vlanId: 10, ipAddr: ...".
using Tables = std::map<std::string, std::map<std::string, std::string>>;

Arp::InputConfigKey key(std::uint32_t vlan, char const* addr) {
  return Arp::InputConfigKey(Lanx::IntfId("Vlan" + std::to_string(vlan)), Lanx::IpGenAddr::parse(addr));
}

Mlag::VlanIpSource vip(std::uint16_t vlan, char const* addr, Arp::ArpSource source) {
  return Mlag::VlanIpSource(Bridging::VlanIdOrNone(vlan), Lanx::IpGenAddr::parse(addr), source);
}
Arp::ArpEntry entry(char const* addr, std::uint16_t mac) {
  return Arp::ArpEntry(Lanx::IpGenAddr::parse(addr).v4Addr(), Lanx::EthAddr(0, 0, mac));
}

// Writes an input row in the collection of its family; stateCode 1 marks it not to be published.
void rowIs(Arp::InputConfig& in, char const* vrf, Arp::InputConfigKey const& k, std::uint16_t mac,
           std::uint8_t stateCode = 0, std::uint8_t kind = 1) {
  auto v = in.vrfIs(L3::VrfName(vrf));
  Arp::InputConfigEntry e(k, Lanx::EthAddr(0, 0, mac), kind, stateCode);
  k.addr().isV6() ? v->ipv6Is(e) : v->ipv4Is(e);
}

// Each VRF's rows, as `row` makes a (key, value) pair of each.
template <class It, class Row>
Tables tables(It v, Row row) {
  return entries<Tables>(v, [&](auto const& n) {
    return std::pair(std::string(n.key.view()), entries<Tables::mapped_type>(n.value->arpEntryIter(), row));
  });
}
Tables byVrf(Status const& s) {
  return tables(s.arpStatusIter(), [](auto const& n) {
    return std::pair(std::string(n.value.ipAddr().stringValue().view()),
                     std::string(n.value.ethAddr().stringValue().view()) + " kind " + std::to_string(n.value.kind()));
  });
}
Tables withVlan(Status const& s) {
  return tables(s.arpStatusWithVlanIter(), [](auto const& n) {
    return std::pair(std::string(n.key.toStrep().view()), std::string(n.value.stringValue().view()));
  });
}

// Makes `dst`'s members of one collection equal to `src`'s by difference, as the peer link
// does: a member the source lacks goes, a missing one is made empty and then filled row by row.
template <class Col>
void carry(Status const& src, Status& dst, Col col) {
  for (auto it = col.iter(dst); !it.done(); it.advance()) {
    auto const vrf = it.currNodeMaybeStale().key;
    if (!col.get(src, vrf)) col.del(dst, vrf);
  }
  for (auto it = col.iter(src); !it.done(); it.advance()) {
    auto const& from = *it.currNodeNonStale().value;
    auto to = col.is(dst, it.currNodeNonStale().key);
    for (auto r = to->arpEntryIter(); !r.done(); r.advance()) {
      auto const k = r.currNodeMaybeStale().key;
      if (!from.arpEntryHas(k)) to->arpEntryDel(k);
    }
    for (auto r = from.arpEntryIter(); !r.done(); r.advance()) {
      if constexpr (requires { to->arpEntryIs(r.currNodeNonStale().value); }) {
        to->arpEntryIs(r.currNodeNonStale().value);
      } else {
        to->arpEntryIs(r.currNodeNonStale().key, r.currNodeNonStale().value);
      }
    }
  }
}
struct ByVrf {
  static auto iter(Status const& s) { return s.arpStatusIter(); }
  static auto get(Status const& s, L3::VrfName const& v) { return s.arpStatus(v); }
  static auto is(Status& s, L3::VrfName const& v) { return s.arpStatusIs(v); }
  static void del(Status& s, L3::VrfName const& v) { s.arpStatusDel(v); }
};
struct WithVlan {
  static auto iter(Status const& s) { return s.arpStatusWithVlanIter(); }
  static auto get(Status const& s, L3::VrfName const& v) { return s.arpStatusWithVlan(v); }
  static auto is(Status& s, L3::VrfName const& v) { return s.arpStatusWithVlanIs(v); }
  static void del(Status& s, L3::VrfName const& v) { s.arpStatusWithVlanDel(v); }
};

// Both switches' status objects and the primary's ARP input. The flag is the one value both
// peers publish to each other; the transport carries the tables first, then the flag.
struct Pair {
  RoleInputs p{RoleInputs::noVtiDir | RoleInputs::noVtepDir},
      s{RoleInputs::noVtiDir | RoleInputs::noVtepDir | RoleInputs::noFlatDir};

  MlagVxlan::PrimarySm::Ptr primary() { return p.primary(); }
  MlagVxlan::SecondarySm::Ptr secondary() { return s.secondary(); }
  void flagIs(bool capable) {
    p.recv->peerArpByVlanIpCapableIs(capable);
    p.sent->peerArpByVlanIpCapableIs(capable);
  }
  void carry() {
    ArpTest::carry(*p.sent, *s.recv, ByVrf());
    ArpTest::carry(*p.sent, *s.recv, WithVlan());
    s.recv->peerArpByVlanIpCapableIs(p.sent->peerArpByVlanIpCapable());
  }
};

using Rows = std::map<std::string, std::string>;

std::string const mac1 = "00:00:00:00:00:01", mac2 = "00:00:00:00:00:02", mac3 = "00:00:00:00:00:03";

class ArpTest : public ::testing::Test {
 protected:
  long count(std::string const& text) const { return static_cast<long>(trace.count(text)); }
  bool traced(std::string const& text) const { return count(text) > 0; }
  NoNodesLeft noNodesLeft;
  Pair pair;
  Trace trace;
};

// Each form carries what the input publishes, the by-VRF one IPv4 only; the other form stays
// empty for every VRF. The last row of a VRF takes the VRF along, in either form.
TEST_F(ArpTest, PrimaryPublishesTheFormThePeerTakesAndEmptiesTheOtherForEveryVrf) {
  MlagVxlan::_defaultTraceHandle()->levelMaskIs(1u << 5 | 1u << 6 | 1u << 8);
  pair.p.arpInput->sourceIs(Arp::ArpSourceId::evpn);
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.1"), 1, 0, 3);
  rowIs(*pair.p.arpInput, "red", key(20, "2001:db8::1"), 2);
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.9"), 3, Arp::InputConfigEntry::stateCodeNotPublished);
  rowIs(*pair.p.arpInput, "blue", key(30, "10.0.0.3"), 3);
  Tables const v4{{"blue", {{"10.0.0.3", mac3 + " kind 1"}}}, {"red", {{"10.0.0.1", mac1 + " kind 3"}}}};
  Tables const both{{"blue", {{"vlanId: 30, ipAddr: 10.0.0.3, arpSource: evpn", mac3}}},
                    {"red",
                     {{"vlanId: 10, ipAddr: 10.0.0.1, arpSource: evpn", mac1},
                      {"vlanId: 20, ipAddr: 2001:db8::1, arpSource: evpn", mac2}}}};
  auto sm = pair.primary();
  EXPECT_EQ(byVrf(*pair.p.sent), v4);
  // A new reactor runs the pass twice: once as its nested reactor is made, once itself.
  EXPECT_EQ(count("PrimarySm::VrfConfigSm(red)::handlePeerArpByVlanIpCapable() peerArpByVlanIpCapable false"), 2);
  EXPECT_EQ(count("void MlagVxlan::PrimarySm::VrfConfigSm::handleIpv4VrfArpInput(const Arp::InputConfigKey&) "
                  "input entry is: key=(Vlan10, 10.0.0.1), ethAddr=00:00:00:00:00:01, kind=3, stateCode=0, "
                  "metric=65535, generation=0"),
            2);
  trace.clear();
  rowIs(*pair.p.arpInput, "red", key(20, "2001:db8::2"), 2);  // ignored by VRF: no write, no trace
  EXPECT_EQ(byVrf(*pair.p.sent), v4);
  EXPECT_TRUE(trace.texts().empty());
  pair.p.arpInput->vrf(L3::VrfName("red"))->ipv6Del(key(20, "2001:db8::2"));
  for (bool capable : {true, false, true}) {
    pair.flagIs(capable);
    EXPECT_EQ(byVrf(*pair.p.sent), capable ? Tables{} : v4);
    EXPECT_EQ(withVlan(*pair.p.sent), capable ? both : Tables{});
  }
  EXPECT_EQ(count(" Add ARP entry to sentArpStatusWithVlan  vlanId: 20, ipAddr: 2001:db8::1, arpSource: evpn"), 2);
  EXPECT_EQ(count("void MlagVxlan::PrimarySm::VrfConfigSm::handleVrfArpInputForVlanIpCapablePeer(const "
                  "Arp::InputConfigKey&) input entry is: key=(Vlan30, 10.0.0.3), ethAddr=00:00:00:00:00:03, kind=1, "
                  "stateCode=0, metric=65535, generation=0"),
            2);
  for (bool capable : {true, false}) {
    pair.flagIs(capable);
    pair.p.arpInput->vrf(L3::VrfName("blue"))->ipv4Del(key(30, "10.0.0.3"));
    EXPECT_EQ(count(std::string("PrimarySm::VrfConfigSm(blue)::") +
                    (capable ? "handleVrfArpInputForVlanIpCapablePeer" : "handleIpv4VrfArpInput") +
                    " del VRF from sentVxStatus"),
              1);
    rowIs(*pair.p.arpInput, "blue", key(30, "10.0.0.3"), 3);
  }
}

// A row whose input key the pass finds again stays whatever its source; one whose interface has
// gone goes whatever its source. A row withdrawn early in the pass by VRF, when the table had
// only it, does not take the table the pass fills afterwards with it.
TEST_F(ArpTest, PrimaryAllKeysPassesPruneWhatTheInputLacks) {
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.1"), 1);
  auto left = pair.p.sent->arpStatusWithVlanIs(L3::VrfName("red"));
  for (std::uint16_t vlan : {10, 20}) {
    left->arpEntryIs(
        Mlag::VlanIpSource(Bridging::VlanIdOrNone(vlan), Lanx::IpAddr(10, 0, 0, 1), Arp::ArpSourceId::evpn),
        Lanx::EthAddr(0, 0, 9));
  }
  pair.flagIs(true);
  auto sm = pair.primary();
  EXPECT_EQ(withVlan(*pair.p.sent), (Tables{{"red",
                                             {{"vlanId: 10, ipAddr: 10.0.0.1, arpSource: evpn", "00:00:00:00:00:09"},
                                              {"vlanId: 10, ipAddr: 10.0.0.1, arpSource: unknown", mac1}}}}));
  sm = nullptr;
  pair.flagIs(false);
  pair.p.arpInput->vrfDel(L3::VrfName("red"));
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.7"), 7, Arp::InputConfigEntry::stateCodeNotPublished);
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.1"), 1);
  pair.p.sent->arpStatusIs(L3::VrfName("red"))->arpEntryIs(entry("10.0.0.7", 0));
  sm = pair.primary();
  EXPECT_EQ(byVrf(*pair.p.sent), (Tables{{"red", {{"10.0.0.1", mac1 + " kind 1"}}}}));
  // An interface number above 4094 raises before anything is written.
  pair.flagIs(true);
  pair.p.sent->arpStatusWithVlanDelAll();
  try {
    sm->vokVrf(L3::VrfName("red"))->handleVrfArpInputForVlanIpCapablePeer(key(4095, "10.0.0.1"));
    ADD_FAILURE() << "VLAN 4095 was taken";
  } catch (Brix::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Bridging::VlanIdOrNone::value > 4094 not allowed");
  }
  EXPECT_EQ(withVlan(*pair.p.sent)["red"].size(), 0u);
}

// A role that ends leaves what its VRFs still hold, in both roles.
TEST_F(ArpTest, ARoleEndingKeepsVrfsStillThere) {
  rowIs(*pair.p.arpInput, "red", key(10, "10.0.0.1"), 1);
  auto p = pair.primary();
  auto s = pair.secondary();
  pair.carry();
  Tables const sent = byVrf(*pair.p.sent), local = withVlan(*pair.s.local);
  EXPECT_EQ(local, (Tables{{"red", {{"vlanId: 0, ipAddr: 10.0.0.1, arpSource: peer", mac1}}}}));
  p = nullptr;
  s = nullptr;
  EXPECT_EQ(byVrf(*pair.p.sent), sent);
  EXPECT_EQ(withVlan(*pair.s.local), local);
}

// The flag wakes one applier per VRF. The stale pass by VRF compares addresses only, so a row
// that came with VLAN 10 stays beside the one by VRF; an IPv6 row has no IPv4 address to keep it.
TEST_F(ArpTest, SecondaryAppliesTheAwakeFormAndItsStalePass) {
  pair.s.recv->arpStatusIs(L3::VrfName("red"))->arpEntryIs(entry("10.0.0.1", 1));
  auto wv = pair.s.recv->arpStatusWithVlanIs(L3::VrfName("red"));
  auto const k10 = vip(10, "10.0.0.1", Arp::ArpSourceId::dynamic);
  wv->arpEntryIs(k10, Lanx::EthAddr(0, 0, 2));
  wv->arpEntryIs(vip(20, "2001:db8::1", Arp::ArpSourceId::evpn), Lanx::EthAddr(0, 0, 3));
  Rows const byVrfRow{{"vlanId: 0, ipAddr: 10.0.0.1, arpSource: peer", mac1}};
  Rows const vlanRows{{"vlanId: 10, ipAddr: 10.0.0.1, arpSource: dynamic", mac2},
                      {"vlanId: 20, ipAddr: 2001:db8::1, arpSource: evpn", mac3}};
  auto s = pair.secondary();
  EXPECT_EQ(withVlan(*pair.s.local)["red"], byVrfRow);
  wv->arpEntryDel(k10);
  wv->arpEntryIs(k10, Lanx::EthAddr(0, 0, 2));
  EXPECT_EQ(withVlan(*pair.s.local)["red"], byVrfRow) << "the sleeping form writes nothing";
  pair.s.recv->peerArpByVlanIpCapableIs(true);
  EXPECT_EQ(withVlan(*pair.s.local)["red"], vlanRows);
  EXPECT_TRUE(traced(" Del stale Arp entry vlanId: 0, ipAddr: 10.0.0.1, arpSource: peer"));
  pair.s.recv->peerArpByVlanIpCapableIs(false);
  Rows kept = byVrfRow;
  kept.insert(*vlanRows.begin());
  EXPECT_EQ(withVlan(*pair.s.local)["red"], kept);
  EXPECT_TRUE(traced(" Del stale Arp entry 0.0.0.0"));
}

// One-key forms: a row equal to the default counts as missing; a deletion by VRF touches only
// the key it makes (VLAN 0, source 100); the last row takes the VRF out of localVxStatus.
TEST_F(ArpTest, SecondaryOneKeyFormsAndTheLastRow) {
  auto table = pair.s.recv->arpStatusIs(L3::VrfName("red"));
  auto s = pair.secondary();
  table->arpEntryIs(entry("10.0.0.1", 1));
  pair.s.local->arpStatusWithVlan(L3::VrfName("red"))
      ->arpEntryIs(vip(10, "10.0.0.1", Arp::ArpSourceId::evpn), Lanx::EthAddr(0, 0, 4));
  table->arpEntryIs(entry("10.0.0.1", 2));
  EXPECT_TRUE(traced("SecondarySm::ArpStatusSm(red)::handlePeerArpEntry() add ipAddr 10.0.0.1"));
  table->arpEntryIs(Arp::ArpEntry(Lanx::IpAddr(), {}));  // the default: a deletion of 0.0.0.0
  EXPECT_TRUE(traced("SecondarySm::ArpStatusSm(red)::handlePeerArpEntry() del ipAddr 0.0.0.0"));
  table->arpEntryDel(Lanx::IpAddr(10, 0, 0, 1));
  EXPECT_EQ(withVlan(*pair.s.local)["red"],
            (Rows{{"vlanId: 10, ipAddr: 10.0.0.1, arpSource: evpn", "00:00:00:00:00:04"}}));
  pair.s.recv->arpStatusDel(L3::VrfName("red"));
  EXPECT_EQ(withVlan(*pair.s.local), Tables{});
  pair.s.recv->peerArpByVlanIpCapableIs(true);
  auto wv = pair.s.recv->arpStatusWithVlanIs(L3::VrfName("blue"));
  wv->arpEntryIs(vip(7, "10.0.0.7", Arp::ArpSourceId::dynamic), Lanx::EthAddr(0, 0, 7));
  wv->arpEntryDel(vip(7, "10.0.0.7", Arp::ArpSourceId::dynamic));
  EXPECT_EQ(withVlan(*pair.s.local), Tables{});
  EXPECT_TRUE(traced("SecondarySm::ArpStatusWithVlanSm(blue)::handlePeerArpEntryWithVlan() del VRF blue"));
}

// A writer served before the secondary changes the old table of a VRF that has just left: the
// applier reads no peer table, so the row goes and nothing is added; the VRF then goes.
TEST_F(ArpTest, SecondaryLateNotificationAfterTheVrfLeftReadsAnEmptyTable) {
  auto table = pair.s.recv->arpStatusIs(L3::VrfName("red"));
  table->arpEntryIs(entry("10.0.0.1", 1));
  table->arpEntryIs(entry("10.0.0.2", 2));
  Tables atLate;
  TestSupport::PublicationRecorder writer(*pair.s.recv, [&](TestSupport::PublicationRecorder::Publication const& p) {
    if (p.field != Status::arpStatusField) return;
    table->arpEntryDel(Lanx::IpAddr(10, 0, 0, 1));
    table->arpEntryIs(entry("10.0.0.3", 3));
    atLate = withVlan(*pair.s.local);
  });
  auto s = pair.secondary();
  pair.s.recv->arpStatusDel(L3::VrfName("red"));
  EXPECT_EQ(atLate, (Tables{{"red", {{"vlanId: 0, ipAddr: 10.0.0.2, arpSource: peer", mac2}}}}));
  EXPECT_TRUE(traced("SecondarySm::ArpStatusSm(red)::handlePeerArpEntry() del ipAddr 10.0.0.3"));
  EXPECT_EQ(withVlan(*pair.s.local), Tables{});
}

// A row's key goes into the ring as its bytes; the decoder gives the text the text trace gives.
TEST(ArpTraceTest, ARowKeyDecodesToItsTextForm) {
  TestSupport::RingLogDir dir;
  std::unique_ptr<RingLog::TraceHandle> rl{RingLog::initialize_handle("arp.rl", nullptr, nullptr, 0, 0)};
  Vok::TraceHandle text{"ArpTraceTest", false};
  text.levelMaskIs(1u << 6);
  Vok::TraceCapture capture;
  for (auto const& k :
       {vip(4094, "2001:db8::1", Arp::ArpSourceId::evpn), vip(0, "10.0.0.1", Arp::ArpSource(std::uint8_t{7}))}) {
    DUAL_LOG(rl.get(), &text, 6, " add {key}", k);
  }
  std::vector<std::string> const expected{" add vlanId: 4094, ipAddr: 2001:db8::1, arpSource: evpn",
                                          " add vlanId: 0, ipAddr: 10.0.0.1, arpSource: unknown"};
  EXPECT_EQ(capture.texts(), expected);
  std::vector<std::string> decoded;
  for (auto const& r : RingLog::decodeFile(rl->fileName()).records) decoded.push_back(r.text);
  EXPECT_EQ(decoded, expected);
}

// ---- the property ----
//
// After any sequence of ARP input changes and flips of the flag, carried to the secondary after
// each step, both roles' outputs are what fresh roles make of the final input. The input keeps
// one source, VLAN interfaces only and each IPv4 address on one VLAN (the form by VRF keys a row
// by its address alone), and the transport carries the tables before the flag: the quirks outside
// that (rows kept by address after a flip, a sleeping applier's VRF left behind) are tested by
// example.

void change(Pair& pair) {
  auto const vrf = *rc::gen::element("red", "blue");
  int const what = *rc::gen::inRange(0, 8);
  if (what == 0) return pair.flagIs(!pair.p.recv->peerArpByVlanIpCapable());
  if (what == 1) return (void)pair.p.arpInput->vrfDel(L3::VrfName(vrf));
  auto const addr = *rc::gen::element("10.0.0.1", "10.0.0.2", "2001:db8::1");
  std::string_view const a = addr;
  auto const k = key(a == "10.0.0.1" ? 10u : a == "10.0.0.2" ? 20u : *rc::gen::element(10u, 20u), addr);
  if (*rc::gen::inRange(0, 4) == 0) {
    if (auto v = pair.p.arpInput->vrf(L3::VrfName(vrf))) {
      v->ipv4Del(k);
      v->ipv6Del(k);
    }
    return;
  }
  auto const mac = *rc::gen::element<std::uint16_t>(1, 2);
  auto const stateCode = *rc::gen::element<std::uint8_t>(0, 0, Arp::InputConfigEntry::stateCodeNotPublished);
  rowIs(*pair.p.arpInput, vrf, k, mac, stateCode, *rc::gen::element<std::uint8_t>(1, 2));
}

RC_GTEST_PROP(ArpProperty, BothRolesEndWhereFreshRolesStart, ()) {
  leavesNoNodes([&] {
    Pair pair;
    pair.flagIs(*rc::gen::arbitrary<bool>());
    for (int n = *rc::gen::inRange(0, 5); n > 0; --n) change(pair);
    auto primary = pair.primary();
    pair.carry();
    auto secondary = pair.secondary();
    for (int n = *rc::gen::inRange(0, 30); n > 0; --n) {
      change(pair);
      pair.carry();
    }

    Pair fresh;
    fresh.p.arpInput = pair.p.arpInput;
    fresh.flagIs(pair.p.recv->peerArpByVlanIpCapable());
    auto freshPrimary = fresh.primary();
    fresh.carry();
    auto freshSecondary = fresh.secondary();
    RC_ASSERT(byVrf(*pair.p.sent) == byVrf(*fresh.p.sent));
    RC_ASSERT(withVlan(*pair.p.sent) == withVlan(*fresh.p.sent));
    RC_ASSERT(withVlan(*pair.s.local) == withVlan(*fresh.s.local));
  });
}

}  // namespace
}  // namespace ArpTest
