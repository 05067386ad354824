#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <sstream>
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
using ValueChecks::expectEveryFieldCounts;
using ValueChecks::expectThrowsText;
using ValueChecks::hashOf;
using ValueChecks::with;

constexpr char const* vlanIdText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
constexpr char const* vlanIdOrNoneText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
constexpr char const* vniExtText = "Vxlan::VniExt::value < Vxlan::VniExt::min or > Vxlan::VniExt::max not allowed";

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(VlanId, RangeIsOneTo4094) {
  EXPECT_EQ(VlanId().value(), 1);
  EXPECT_EQ(VlanId(1).value(), 1);
  EXPECT_EQ(VlanId(4094).value(), 4094);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(0); }, vlanIdText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(4095); }, vlanIdText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(-1); }, vlanIdText);
  // A wide value must not wrap into the range.
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(std::uint32_t{65536 + 10}); }, vlanIdText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(std::uint16_t{65535}); }, vlanIdText);

  // Conversions from the wider types go through the same check.
  EXPECT_EQ(VlanId(VlanIdOrNone(10)), VlanId(10));
  EXPECT_EQ(VlanId(ExtendedVlanId(4094)), VlanId(4094));
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(VlanIdOrNone()); }, vlanIdText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(ExtendedVlanId(4095)); }, vlanIdText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanId(ExtendedVlanId()); }, vlanIdText);
}

TEST(VlanIdOrNone, RangeIsZeroTo4094) {
  EXPECT_EQ(VlanIdOrNone().value(), 0);
  EXPECT_TRUE(VlanIdOrNone().isNone());
  EXPECT_EQ(VlanIdOrNone(0), VlanIdOrNone());
  EXPECT_EQ(VlanIdOrNone(4094).value(), 4094);
  EXPECT_FALSE(VlanIdOrNone(4094).isNone());
  expectThrowsText<Brix::RangeException>([] { (void)VlanIdOrNone(4095); }, vlanIdOrNoneText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanIdOrNone(-1); }, vlanIdOrNoneText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanIdOrNone(std::uint32_t{70000}); }, vlanIdOrNoneText);
  expectThrowsText<Brix::RangeException>([] { (void)VlanIdOrNone(ExtendedVlanId(4095)); }, vlanIdOrNoneText);

  VlanIdOrNone fromVlan = VlanId(7);
  EXPECT_EQ(fromVlan.value(), 7);
}

TEST(ExtendedVlanId, TakesEverySixteenBitValue) {
  EXPECT_EQ(ExtendedVlanId().value(), 0);
  EXPECT_TRUE(ExtendedVlanId().isNone());
  EXPECT_EQ(ExtendedVlanId(4095).value(), 4095);
  EXPECT_EQ(ExtendedVlanId(65535).value(), 65535);
  ExtendedVlanId fromVlan = VlanId(4094);
  EXPECT_EQ(fromVlan.value(), 4094);
  EXPECT_EQ(ExtendedVlanId(4094).vlanIdOrNone(), VlanIdOrNone(4094));
  EXPECT_EQ(ExtendedVlanId().vlanIdOrNone(), VlanIdOrNone());
  expectThrowsText<Brix::RangeException>([] { (void)ExtendedVlanId(4095).vlanIdOrNone(); }, vlanIdOrNoneText);
}

TEST(VlanNumbers, OrderHashAndText) {
  EXPECT_LT(VlanId(9), VlanId(10));
  EXPECT_LT(ExtendedVlanId(4094), ExtendedVlanId(4095));
  EXPECT_EQ(hashOf(VlanId(10)), hashOf(VlanId(10)));
  EXPECT_NE(hashOf(VlanId(10)), hashOf(VlanId(11)));
  EXPECT_EQ(text(VlanId(10)), "10");
  EXPECT_EQ(text(VlanIdOrNone()), "0");
  EXPECT_EQ(text(ExtendedVlanId(5000)), "5000");
}

TEST(VniExt, AllValuesButAllOnes) {
  EXPECT_EQ(Vxlan::VniExt().value(), 0u);
  EXPECT_EQ(Vxlan::VniExt(0).value(), 0u) << "VNI 0 is a valid VNI";
  EXPECT_EQ(Vxlan::VniExt(0xfffffffeu).value(), 0xfffffffeu);
  EXPECT_EQ(Vxlan::VniExt::min, 0u);
  EXPECT_EQ(Vxlan::VniExt::max, 0xfffffffeu);
  expectThrowsText<Brix::RangeException>([] { (void)Vxlan::VniExt(0xffffffffu); }, vniExtText);
  expectThrowsText<Brix::RangeException>([] { (void)Vxlan::VniExt(-1); }, vniExtText);
  expectThrowsText<Brix::RangeException>([] { (void)Vxlan::VniExt(std::uint64_t{1} << 32); }, vniExtText);
  expectThrowsText<Brix::RangeException>([] { (void)Vxlan::VniExt(Vxlan::VniExtOrNone()); }, vniExtText);
  EXPECT_EQ(Vxlan::VniExt(Vxlan::VniExtOrNone(5000)), Vxlan::VniExt(5000));
}

TEST(VniExtOrNone, DefaultIsNone) {
  Vxlan::VniExtOrNone none;
  EXPECT_TRUE(none.isNone());
  EXPECT_EQ(none.value(), 0xffffffffu);
  EXPECT_FALSE(Vxlan::VniExtOrNone(0).isNone());
  Vxlan::VniExtOrNone fromVni = Vxlan::VniExt(10);
  EXPECT_EQ(fromVni.value(), 10u);
  EXPECT_EQ(text(none), "none");
  EXPECT_EQ(text(Vxlan::VniExtOrNone(0)), "0");
  EXPECT_NE(hashOf(Vxlan::VniExtOrNone(0)), hashOf(none));
}

TEST(MacVlanPair, DefaultsToVlanOneAndEveryFieldCounts) {
  Vxlan::MacVlanPair def;
  EXPECT_EQ(def.vlanId().value(), 1) << "VLAN 1, not 0";
  EXPECT_TRUE(def.mac().isZero());

  Vxlan::MacVlanPair base(Lanx::EthAddr(0, 0, 1), VlanId(10));
  expectEveryFieldCounts(base, Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(10)),
                         Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(11)));
  // Ordered by MAC first, then VLAN.
  EXPECT_LT(Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(20)),
            Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 2), VlanId(1)));
  EXPECT_LT(Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(1)),
            Vxlan::MacVlanPair(Lanx::EthAddr(0, 0, 1), VlanId(2)));
  EXPECT_EQ(text(base), "(00:00:00:00:00:01, 10)");
}

TEST(VlanIpPair, VlanIsAPlainNumberUntilChecked) {
  Vxlan::VlanIpPair def;
  EXPECT_EQ(def.vlanId(), 0);
  EXPECT_EQ(def.ipAddr(), Lanx::IpGenAddr());

  Vxlan::VlanIpPair extended(5000, Lanx::IpGenAddr::parse("10.0.0.1"));
  EXPECT_EQ(extended.vlanId(), 5000);
  expectThrowsText<Brix::RangeException>([&] { (void)VlanIdOrNone(extended.vlanId()); }, vlanIdOrNoneText);

  Vxlan::VlanIpPair base(10, Lanx::IpGenAddr::parse("10.0.0.1"));
  expectEveryFieldCounts(base, Vxlan::VlanIpPair(11, Lanx::IpGenAddr::parse("10.0.0.1")),
                         Vxlan::VlanIpPair(10, Lanx::IpGenAddr::parse("10.0.0.2")),
                         Vxlan::VlanIpPair(10, Lanx::IpGenAddr::parse("a00:1::")));
  EXPECT_EQ(text(base), "(10, 10.0.0.1)");
}

TEST(VniVtiPair, RejectsNoneAndTakesEitherOrder) {
  Lanx::IntfId vti("Vxlan2");
  expectThrowsText<Brix::RangeException>([&] { (void)Vxlan::VniVtiPair(vti, Vxlan::VniExtOrNone()); }, vniExtText);
  expectThrowsText<Brix::RangeException>([&] { (void)Vxlan::VniVtiPair(Vxlan::VniExtOrNone(), vti); }, vniExtText);

  Vxlan::VniVtiPair pair(Vxlan::VniExtOrNone(0), vti);
  EXPECT_EQ(pair, Vxlan::VniVtiPair(vti, Vxlan::VniExt(0)));
  EXPECT_EQ(pair.intfId(), vti);
  EXPECT_EQ(pair.vni().value(), 0u);
  expectEveryFieldCounts(pair, Vxlan::VniVtiPair(Vxlan1, Vxlan::VniExt(0)), Vxlan::VniVtiPair(vti, Vxlan::VniExt(1)));
  EXPECT_EQ(text(pair), "(Vxlan2, 0)");
}

TEST(VniSourcePair, DefaultStandsForNoMappingAndEveryFieldCounts) {
  Vxlan::VniSourcePair def;
  EXPECT_TRUE(def.intfId().isEmpty());
  EXPECT_TRUE(def.source().empty());
  EXPECT_TRUE(def.vni().isNone());
  EXPECT_EQ(def.flags(), 0);
  EXPECT_TRUE(def.isEq(Vxlan::VniSourcePair(Lanx::IntfId(), "", Vxlan::VniExtOrNone(), 0)));

  Vxlan::VniSourcePair base(Vxlan1, "static", Vxlan::VniExtOrNone(10010), 0);
  expectEveryFieldCounts(base, with(base, [](auto& v) { v.intfIdIs(Lanx::IntfId("Vxlan2")); }),
                         with(base, [](auto& v) { v.sourceIs("evpn"); }),
                         with(base, [](auto& v) { v.vniIs(Vxlan::VniExtOrNone(10011)); }),
                         with(base, [](auto& v) { v.flagsIs(1); }));
  EXPECT_EQ(text(base), "(10010, Vxlan1, static)");
}

TEST(VxlanEnumerations, ValuesAndTexts) {
  EXPECT_EQ(static_cast<int>(Vxlan::VtepType::localVtep), 1);
  EXPECT_EQ(static_cast<int>(Vxlan::VtepType::alternateVtep), 2);
  EXPECT_EQ(static_cast<int>(Vxlan::VtepType::mlagVtep), 3);
  EXPECT_EQ(text(Vxlan::VtepType::mlagVtep), "mlagVtep");

  // The four sources and "default" make five distinct shareable source names.
  std::set<std::string_view> names{"default"};
  for (int v : {1, 8, 16, 32}) {
    auto name = Vxlan::stringValue(static_cast<Vxlan::VniSource>(v));
    EXPECT_NE(name, "unknown") << v;
    EXPECT_FALSE(name.empty());
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 5u);
  EXPECT_EQ(Vxlan::stringValue(Vxlan::VniSource::staticSource), "static");
  EXPECT_EQ(Vxlan::stringValue(Vxlan::VniSource::mlagSource), "mlag");
  EXPECT_EQ(Vxlan::stringValue(static_cast<Vxlan::VniSource>(2)), "unknown");
  EXPECT_EQ(text(static_cast<Vxlan::VniSource>(2)), "2") << "an unnamed value prints as its number";

  EXPECT_EQ(static_cast<int>(Vxlan::BumVtepIpListType::all), 0);
  EXPECT_EQ(static_cast<int>(Vxlan::BumVtepIpListType::any), 1);
  EXPECT_EQ(static_cast<int>(Vxlan::BumReplicationMode::none), 0);
  EXPECT_EQ(static_cast<int>(Vxlan::BumReplicationMode::headend), 3);
  EXPECT_EQ(text(Vxlan::BumReplicationMode::headend), "headend");
  EXPECT_EQ(text(Vxlan::BumVtepIpListType::any), "any");
}

TEST(HostKey, DefaultAndEveryFieldCounts) {
  Bridging::HostKey def;
  EXPECT_EQ(def.vlanId(), VlanId(1));
  EXPECT_TRUE(def.addr().isZero());
  Bridging::HostKey base(VlanId(10), Lanx::EthAddr(0, 0, 1));
  expectEveryFieldCounts(base, Bridging::HostKey(VlanId(11), Lanx::EthAddr(0, 0, 1)),
                         Bridging::HostKey(VlanId(10), Lanx::EthAddr(0, 0, 2)));
  EXPECT_EQ(text(base), "(10, 00:00:00:00:00:01)");
}

TEST(EntryType, Texts) {
  EXPECT_EQ(Bridging::stringValue(Bridging::EntryType::learnedRemoteMac), "learnedRemoteMac");
  EXPECT_EQ(text(Bridging::EntryType::evpnDynamicRemoteMac), "evpnDynamicRemoteMac");
  EXPECT_EQ(text(static_cast<Bridging::EntryType>(200)), "200");
  EXPECT_EQ(Bridging::stringValue(static_cast<Bridging::EntryType>(200)), "unknown");
}

TEST(FString, HoldsUpTo129Bytes) {
  std::string b129(129, 'x');
  Swix::FString s(b129);
  EXPECT_EQ(s.length(), 129u);
  EXPECT_EQ(s.stringValue().str(), b129);
  expectThrowsText<Vok::IndexRangeException>([] { (void)Swix::FString(std::string(130, 'x')); },
                                             "index 129 out of range for size 130");
  expectThrowsText<Vok::IndexRangeException>([] { (void)Swix::FString(Brix::String(std::string(200, 'y'))); },
                                             "index 129 out of range for size 200");

  Swix::FString def;
  EXPECT_TRUE(def.empty());
  EXPECT_TRUE(def.isEq(Swix::FString("")));
  EXPECT_TRUE(Swix::FString(Brix::String("default")).isEq(Swix::FString("default")));
  EXPECT_FALSE(Swix::FString("default").isEq(Swix::FString("defaul")));
  EXPECT_FALSE(Swix::FString("default").isEq(Swix::FString("default ")));
  EXPECT_EQ(hashOf(Swix::FString("abc")), hashOf(Swix::FString(Brix::String("abc"))));
  EXPECT_EQ(text(Swix::FString("static")), "static");
  static_assert(std::is_trivially_copyable_v<Swix::FString>, "an FString lives in shared memory");
}

TEST(VrfName, DefaultSortsFirstThenByteOrder) {
  L3::VrfName def("default"), a("a"), b("b"), a2(Brix::String("a"));
  EXPECT_LT(def, a);
  EXPECT_LT(a, b);
  EXPECT_FALSE(a < a2);
  EXPECT_FALSE(a2 < a);
  EXPECT_EQ(a, a2);
  EXPECT_FALSE(def < def);
  EXPECT_FALSE(a < def);
  EXPECT_FALSE(b < def);
  EXPECT_LT(def, L3::VrfName(""));
  EXPECT_LT(L3::VrfName(""), a);

  std::set<L3::VrfName> vrfs{L3::VrfName("b"),       L3::VrfName("Default"),  L3::VrfName("a"),
                             L3::VrfName("default"), L3::VrfName("defaults"), L3::VrfName("MGMT")};
  std::vector<std::string_view> order;
  for (auto const& v : vrfs) order.push_back(v.view());
  EXPECT_EQ(order, (std::vector<std::string_view>{"default", "Default", "MGMT", "a", "b", "defaults"}));
}

TEST(VrfName, AtMost100Bytes) {
  L3::VrfName longest(std::string(100, 'v'));
  EXPECT_EQ(longest.size(), 100u);
  expectThrowsText<Brix::RangeException>([] { (void)L3::VrfName(std::string(101, 'v')); },
                                         "Vok::String::bytes > maxLength() not allowed");
  EXPECT_EQ(L3::VrfName().view(), "");
  EXPECT_EQ(hashOf(L3::VrfName("red")), hashOf(L3::VrfName(Brix::String("red"))));
  EXPECT_NE(hashOf(L3::VrfName("red")), hashOf(L3::VrfName("blue")));
  EXPECT_EQ(text(L3::VrfName("red")), "red");
  EXPECT_TRUE(L3::VrfName("default").isDefault());
}

TEST(VlanConfigFlat, DefaultsAndEveryFieldCounts) {
  Bridging::Flat::VlanConfigFlat def;
  EXPECT_EQ(def.vlanId(), VlanId(1));
  EXPECT_EQ(def.key(), VlanId(1));
  EXPECT_EQ(def.configSource().view(), "default");
  EXPECT_TRUE(def.name().empty());
  EXPECT_EQ(def.priority(), 256);
  EXPECT_TRUE(def.isEq(Bridging::Flat::VlanConfigFlat(VlanId(1), Swix::FString("default"))));
  static_assert(std::is_trivially_copyable_v<Bridging::Flat::VlanConfigFlat>, "a Shoal table row");

  Bridging::Flat::VlanConfigFlat base(VlanId(10), Swix::FString("static"));
  using R = Bridging::Flat::VlanConfigFlat;
  expectEveryFieldCounts(base, with(base, [](R& v) { v.vlanIdIs(VlanId(11)); }), with(base, [](R& v) { v.stateIs(1); }),
                         with(base, [](R& v) { v.nameIs(Swix::FString("n")); }),
                         with(base, [](R& v) { v.priorityIs(1); }), with(base, [](R& v) { v.timestampIs(1); }),
                         with(base, [](R& v) { v.flagsIs(1); }), with(base, [](R& v) { v.ownerIs(1); }),
                         with(base, [](R& v) { v.configSourceIs(Swix::FString("evpn")); }),
                         with(base, [](R& v) { v.reserved1Is(1); }), with(base, [](R& v) { v.reserved2Is(1); }));
  EXPECT_EQ(text(base),
            "vlanId=10, state=0, name=, priority=256, timestamp=0, flags=0, owner=0, configSource=static, "
            "reserved1=0, reserved2=0");
}

}  // namespace
