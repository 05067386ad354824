// A VTI deleted and made again under the same interface id, as an agent does when an interface
// is removed and re-created: the pair survives it, and ends where a fresh pair built from the
// final inputs ends, on either role and with or without multi-VTEP.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Pair.h"
#include "runtime/Node.h"

namespace {

Lanx::IntfId const vxlan2{"Vxlan2"};

struct Case {
  char const* name;
  bool multiVtep;
  bool onPrimary;  // the VTI goes and comes back on A (primary), else on B (secondary)
  bool vxlan1;     // the VTI is Vxlan1 itself, else Vxlan2
};

void mapVlan(Sim::Switch& s, Lanx::IntfId intf, std::uint16_t vlan, std::uint32_t vni) {
  s.vtiStatusDir->vtiStatus(intf)->extendedVlanToVniMapIs(
      Bridging::ExtendedVlanId(vlan), Vxlan::VniSourcePair(intf, "static", Vxlan::VniExtOrNone(vni)));
}

// Each switch with Vxlan1 and Vxlan2; `base` spreads its VLANs apart from the peer's.
void addVti(Sim::Switch& s, Lanx::IntfId intf, std::uint16_t base, bool multiVtep, std::uint8_t host) {
  auto vti = s.vtiStatusDir->vtiStatusIs(intf);
  vti->localVtepAddrIs(Lanx::IpAddr(10, 0, 0, host));
  if (multiVtep && intf == Vxlan1) vti->mlagVtepAddrIs(Lanx::IpAddr(10, 0, 1, host));
  mapVlan(s, intf, base, 10000u + base);
}

// The VTI of the case is made with `changed` VLANs: what a re-created interface brings.
void formPair(Sim::Pair& p, Case const& c, bool changed) {
  p.a.mlagStatus->mlagStateIs(Mlag::MlagState::primary);
  p.b.mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
  for (auto* s : {&p.a, &p.b}) {
    bool mine = (s == &p.a) == c.onPrimary;
    auto host = static_cast<std::uint8_t>(s == &p.a ? 1 : 2);
    auto base = static_cast<std::uint16_t>(s == &p.a ? 0 : 100);
    for (auto intf : {Vxlan1, vxlan2}) {
      bool moved = changed && mine && (intf == Vxlan1) == c.vxlan1;
      addVti(*s, intf, static_cast<std::uint16_t>(base + (intf == Vxlan1 ? 10 : 20) + (moved ? 30 : 0)), c.multiVtep,
             host);
    }
  }
  p.settle();
}

void expectSameOutputs(Sim::Pair const& got, Sim::Pair const& fresh, std::string const& what) {
  for (auto [g, f] : {std::pair{&got.a, &fresh.a}, std::pair{&got.b, &fresh.b}}) {
    EXPECT_TRUE(*g->sentVxStatus == *f->sentVxStatus) << what << ": " << g->name() << " sentVxStatus";
    EXPECT_TRUE(*g->recvVxStatus == *f->recvVxStatus) << what << ": " << g->name() << " recvVxStatus";
    EXPECT_TRUE(*g->localVxStatus == *f->localVxStatus) << what << ": " << g->name() << " localVxStatus";
  }
}

TEST(VtiLifecycleTest, VtiDeletedAndMadeAgainEndsLikeAFreshPair) {
  std::vector<Case> const cases = {
      {"Vxlan2 on the primary", false, true, false}, {"Vxlan2 on the secondary", false, false, false},
      {"Vxlan1 on the primary", false, true, true},  {"Vxlan1 on the secondary", false, false, true},
      {"multi-VTEP Vxlan2 on A", true, true, false}, {"multi-VTEP Vxlan2 on B", true, false, false},
      {"multi-VTEP Vxlan1 on A", true, true, true},  {"multi-VTEP Vxlan1 on B", true, false, true},
  };
  auto const baseline = Brix::Node::liveCount();
  for (auto const& c : cases) {
    {
      Sim::Pair p;
      formPair(p, c, false);
      Sim::Switch& s = c.onPrimary ? p.a : p.b;
      Lanx::IntfId intf = c.vxlan1 ? Vxlan1 : vxlan2;
      auto old = s.vtiStatusDir->vtiStatus(intf);
      s.vtiStatusDir->vtiStatusDel(intf);
      p.settle();
      // Made again as a new object with another VLAN: the old one must not stay published.
      addVti(s, intf, static_cast<std::uint16_t>((c.onPrimary ? 0 : 100) + (c.vxlan1 ? 40 : 50)), c.multiVtep,
             c.onPrimary ? 1 : 2);
      p.settle();
      ASSERT_NE(s.vtiStatusDir->vtiStatus(intf), old) << c.name;

      Sim::Pair fresh;
      formPair(fresh, c, true);
      expectSameOutputs(p, fresh, c.name);
    }
    EXPECT_EQ(Brix::Node::liveCount(), baseline) << c.name << ": nodes left behind";
  }
}

}  // namespace
