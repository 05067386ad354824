#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/types/ValueChecks.h"
#include "runtime/Exceptions.h"
#include "types/Bridging.h"
#include "types/L3.h"
#include "types/Swix.h"
#include "types/Vxlan.h"

namespace {

using Bridging::ExtendedVlanId;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using ValueChecks::expectEachChangeCounts;
using ValueChecks::expectEveryFieldCounts;
using ValueChecks::expectThrowsText;
using ValueChecks::hashOf;
using ValueChecks::text;

constexpr char const* vlanIdText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
constexpr char const* vlanIdOrNoneText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
constexpr char const* vniExtText = "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed";

// Each number type's ends, and the values and conversions its check refuses; a wide value must
// not wrap into the range.
TEST(VlanAndVniNumbers, EndsAreKeptAndEverythingOutsideRaisesWithItsText) {
  EXPECT_EQ(VlanId().value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  EXPECT_EQ(VlanId(ExtendedVlanId(4094)), VlanId(4094));
  EXPECT_EQ(VlanIdOrNone(4094).value(), 4094);
  EXPECT_TRUE(VlanIdOrNone(0).isNone());
  EXPECT_EQ(ExtendedVlanId(65535).value(), 65535);
  EXPECT_EQ(ExtendedVlanId(4094).vlanIdOrNone(), VlanIdOrNone(4094));
  EXPECT_EQ(Vxlan::VniExt(0).value(), 0u) << "VNI 0 is a valid VNI";
  EXPECT_EQ(Vxlan::VniExt(0xfffffffeu).value(), 0xfffffffeu);
  EXPECT_EQ(Vxlan::VniExt(Vxlan::VniExtOrNone(5000)), Vxlan::VniExt(5000));
  EXPECT_EQ(Vxlan::VniExtOrNone().value(), 0xffffffffu);
  EXPECT_FALSE(Vxlan::VniExtOrNone(0).isNone());

  struct Case {
    std::function<void()> make;
    char const* text;
  };
  Case const cases[] = {
      {[] { (void)VlanId(0); }, vlanIdText},
      {[] { (void)VlanId(4095); }, vlanIdText},
      {[] { (void)VlanId(-1); }, vlanIdText},
      {[] { (void)VlanId(std::uint32_t{65536 + 10}); }, vlanIdText},
      {[] { (void)VlanId(std::uint16_t{65535}); }, vlanIdText},
      {[] { (void)VlanId(VlanIdOrNone()); }, vlanIdText},
      {[] { (void)VlanId(ExtendedVlanId(4095)); }, vlanIdText},
      {[] { (void)VlanIdOrNone(4095); }, vlanIdOrNoneText},
      {[] { (void)VlanIdOrNone(-1); }, vlanIdOrNoneText},
      {[] { (void)VlanIdOrNone(std::uint32_t{70000}); }, vlanIdOrNoneText},
      {[] { (void)VlanIdOrNone(ExtendedVlanId(4095)); }, vlanIdOrNoneText},
      {[] { (void)ExtendedVlanId(4095).vlanIdOrNone(); }, vlanIdOrNoneText},
      {[] { (void)Vxlan::VniExt(0xffffffffu); }, vniExtText},
      {[] { (void)Vxlan::VniExt(-1); }, vniExtText},
      {[] { (void)Vxlan::VniExt(std::uint64_t{1} << 32); }, vniExtText},
      {[] { (void)Vxlan::VniExt(Vxlan::VniExtOrNone()); }, vniExtText},
      {[] { (void)Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExtOrNone()); }, vniExtText},
      {[] { (void)Vxlan::VniVtiPair(Vxlan::VniExtOrNone(), Vxlan1); }, vniExtText},
  };
  for (auto const& c : cases) expectThrowsText<Brix::RangeException>(c.make, c.text);

  EXPECT_LT(VlanId(9), VlanId(10));
  EXPECT_NE(hashOf(VlanId(10)), hashOf(VlanId(11)));
  EXPECT_NE(hashOf(Vxlan::VniExtOrNone(0)), hashOf(Vxlan::VniExtOrNone()));
  EXPECT_EQ(text(ExtendedVlanId(5000)), "5000");
  EXPECT_EQ(text(Vxlan::VniExtOrNone()), "none");
}

TEST(VxlanPairs, EveryFieldCountsAndTheirTexts) {
  EXPECT_EQ(Vxlan::MacVlanPair().vlanId().value(), 1) << "VLAN 1, not 0";
  Vxlan::MacVlanPair mv(Lanx::EthAddr(0, 0, 1), VlanId(10));
  expectEveryFieldCounts(mv, Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(10)),
                         Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(11)));
  // Ordered by MAC first, then VLAN.
  EXPECT_LT(Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(20)),
            Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(1)));
  EXPECT_LT(Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(1)),
            Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(2)));

  // The VLAN of a VlanIpPair is a plain number until checked.
  EXPECT_EQ(Vxlan::VlanIpPair(5000, Lanx::IpGenAddr()).vlanId(), 5000);
  Vxlan::VlanIpPair vi(10, Lanx::IpGenAddr::parse("10.0.0.1"));
  expectEveryFieldCounts(vi, Vxlan::VlanIpPair(11, Lanx::IpGenAddr::parse("10.0.0.1")),
                         Vxlan::VlanIpPair(10, Lanx::IpGenAddr::parse("10.0.0.2")),
                         Vxlan::VlanIpPair(10, Lanx::IpGenAddr::parse("a00:1::")));

  Vxlan::VniVtiPair vv(Vxlan::VniExtOrNone(0), Lanx::IntfId("Vxlan2"));
  EXPECT_EQ(vv, Vxlan::VniVtiPair(Lanx::IntfId("Vxlan2"), Vxlan::VniExt(0)));
  expectEveryFieldCounts(vv, Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExt(0)),
                         Vxlan::VniVtiPair(Lanx::IntfId("Vxlan2"), Vxlan::VniExt(1)));

  EXPECT_TRUE(Vxlan::VniSourcePair().vni().isNone());
  Vxlan::VniSourcePair vs(Vxlan1, "static", Vxlan::VniExtOrNone(10010), 0);
  expectEachChangeCounts(
      vs, [](auto& v) { v.intfIdIs(Lanx::IntfId("Vxlan2")); }, [](auto& v) { v.sourceIs("evpn"); },
      [](auto& v) { v.vniIs(Vxlan::VniExtOrNone(10011)); }, [](auto& v) { v.flagsIs(1); });
  Bridging::HostKey hk(VlanId(10), Lanx::EthAddr(0, 0, 1));
  expectEveryFieldCounts(hk, Bridging::HostKey(VlanId(11), Lanx::EthAddr(0, 0, 1)),
                         Bridging::HostKey(VlanId(10), Lanx::EthAddr(0, 0, 2)));

  EXPECT_EQ(text(mv), "(00:00:00:00:00:01, 10)");
  EXPECT_EQ(text(vi), "(10, 10.0.0.1)");
  EXPECT_EQ(text(vv), "(Vxlan2, 0)");
  EXPECT_EQ(text(vs), "(10010, Vxlan1, static)");
}

TEST(VxlanEnumerations, UnnamedValuesPrintAsTheirNumbers) {
  // The four sources and "default" make five distinct shareable source names.
  std::set<std::string_view> names{"default"};
  for (int v : {1, 8, 16, 32}) names.insert(Vxlan::stringValue(static_cast<Vxlan::VniSource>(v)));
  EXPECT_EQ(names.size(), 5u);
  EXPECT_FALSE(names.contains("unknown"));
  EXPECT_EQ(Vxlan::stringValue(static_cast<Vxlan::VniSource>(2)), "unknown");
  EXPECT_EQ(text(static_cast<Vxlan::VniSource>(2)), "2");
  EXPECT_EQ(text(static_cast<Bridging::EntryType>(200)), "200");
  EXPECT_EQ(Bridging::stringValue(static_cast<Bridging::EntryType>(200)), "unknown");
}

TEST(FString, HoldsUpTo129Bytes) {
  std::string b129(129, 'x');
  EXPECT_EQ(Swix::FString(b129).stringValue().str(), b129);
  expectThrowsText<Vok::IndexRangeException>([] { (void)Swix::FString(std::string(130, 'x')); },
                                             "index 129 out of range for size 130");
  expectThrowsText<Vok::IndexRangeException>([] { (void)Swix::FString(Brix::String(std::string(200, 'y'))); },
                                             "index 129 out of range for size 200");
  EXPECT_TRUE(Swix::FString().isEq(Swix::FString("")));
  EXPECT_TRUE(Swix::FString(Brix::String("default")).isEq(Swix::FString("default")));
  EXPECT_FALSE(Swix::FString("default").isEq(Swix::FString("defaul")));
  EXPECT_FALSE(Swix::FString("default").isEq(Swix::FString("default ")));
  EXPECT_EQ(hashOf(Swix::FString("abc")), hashOf(Swix::FString(Brix::String("abc"))));
  static_assert(std::is_trivially_copyable_v<Swix::FString>, "an FString lives in shared memory");
}

TEST(VrfName, DefaultSortsFirstThenByteOrderAndAtMost100Bytes) {
  std::set<L3::VrfName> vrfs{L3::VrfName("b"),       L3::VrfName("Default"),        L3::VrfName("a"),
                             L3::VrfName("default"), L3::VrfName("defaults"),       L3::VrfName("MGMT"),
                             L3::VrfName(""),        L3::VrfName(Brix::String("a"))};
  std::vector<std::string_view> order;
  order.reserve(vrfs.size());
  for (auto const& v : vrfs) order.push_back(v.view());
  EXPECT_EQ(order, (std::vector<std::string_view>{"default", "", "Default", "MGMT", "a", "b", "defaults"}));
  EXPECT_FALSE(L3::VrfName("default") < L3::VrfName("default"));
  EXPECT_THROW((void)L3::VrfName(std::string(101, 'v')), Brix::RangeException) << "a bounded string of 100";
  EXPECT_EQ(hashOf(L3::VrfName("red")), hashOf(L3::VrfName(Brix::String("red"))));
  EXPECT_NE(hashOf(L3::VrfName("red")), hashOf(L3::VrfName("blue")));
  EXPECT_TRUE(L3::VrfName("default").isDefault());
}

TEST(VlanConfigFlat, DefaultsAndEveryFieldCounts) {
  using R = Bridging::Flat::VlanConfigFlat;
  static_assert(std::is_trivially_copyable_v<R>, "a Shoal table row");
  R def;
  EXPECT_EQ(def.key(), VlanId(1));
  EXPECT_EQ(def.priority(), 256);
  EXPECT_TRUE(def.isEq(R(VlanId(1), Swix::FString("default"))));

  R base(VlanId(10), Swix::FString("static"));
  expectEachChangeCounts(
      base, [](R& v) { v.vlanIdIs(VlanId(11)); }, [](R& v) { v.stateIs(1); },
      [](R& v) { v.nameIs(Swix::FString("n")); }, [](R& v) { v.priorityIs(1); }, [](R& v) { v.timestampIs(1); },
      [](R& v) { v.flagsIs(1); }, [](R& v) { v.ownerIs(1); }, [](R& v) { v.configSourceIs(Swix::FString("evpn")); },
      [](R& v) { v.reserved1Is(1); }, [](R& v) { v.reserved2Is(1); });
}

}  // namespace
