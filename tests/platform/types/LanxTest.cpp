#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "platform/types/ValueChecks.h"
#include "runtime/HashMap2018.h"
#include "types/Lanx.h"
#include "types/Vxlan.h"

namespace {

using Lanx::AddressFamily;
using Lanx::AddressParseException;
using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::Ip6Addr;
using Lanx::IpAddr;
using Lanx::IpGenAddr;
using ValueChecks::hashOf;

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(IntfId, NamesRoundTripWithTheirShortNames) {
  struct Case {
    char const* name;
    char const* shortName;
  };
  Case const cases[] = {
      {"Ethernet1", "Et1"},
      {"Ethernet1/2", "Et1/2"},
      {"Ethernet3/1/4", "Et3/1/4"},
      {"Ethernet0", "Et0"},
      {"Port-Channel2", "Po2"},
      {"Vlan10", "Vl10"},
      {"Vlan4094", "Vl4094"},
      {"Vxlan1", "Vx1"},
      {"Loopback0", "Lo0"},
      {"Management1", "Ma1"},
      {"Tunnel5", "Tu5"},
      // Names the encoding does not hold keep their text, and their kind's abbreviation.
      {"Ethernet1/1.100", "Et1/1.100"},
      {"Vlan010", "Vl010"},
      {"Vlan2000000", "Vl2000000"},
      {"Ethernet1/2/3/4", "Et1/2/3/4"},
      {"Recirc-Channel7", "Recirc-Channel7"},
      {"Vlan", "Vlan"},
      {"Vlanx1", "Vlanx1"},
  };
  for (auto const& c : cases) {
    IntfId id(c.name);
    EXPECT_EQ(id.stringValue().view(), c.name);
    EXPECT_EQ(id.shortName().view(), c.shortName) << c.name;
    EXPECT_EQ(text(id), c.name);
    EXPECT_EQ(IntfId(Brix::String(c.name)), id) << "the same name makes the same id, however it is passed";
    EXPECT_EQ(hashOf(IntfId(std::string_view(c.name))), hashOf(id));
    EXPECT_FALSE(id.isEmpty());
  }
}

TEST(IntfId, EmptyNameIsTheDefaultAndDistinctNamesDiffer) {
  EXPECT_EQ(IntfId(), IntfId(""));
  EXPECT_EQ(IntfId(), IntfId(static_cast<char const*>(nullptr)));
  EXPECT_TRUE(IntfId().isEmpty());
  EXPECT_EQ(IntfId().stringValue().view(), "");
  EXPECT_EQ(IntfId().shortName().view(), "");

  std::vector<IntfId> ids{IntfId("Ethernet1"), IntfId("Ethernet1/1"),     IntfId("Ethernet10"),
                          IntfId("Vlan1"),     IntfId("Vxlan1"),          IntfId("Port-Channel1"),
                          IntfId("Vlan01"),    IntfId("Ethernet1/1.100"), IntfId("Ethernet1/1.101"),
                          IntfId("Loopback1"), IntfId("Management1"),     IntfId("Tunnel1"),
                          IntfId("SomeName"),  IntfId("Ethernet1/0"),     IntfId()};
  for (std::size_t i = 0; i < ids.size(); ++i) {
    for (std::size_t j = 0; j < ids.size(); ++j) {
      EXPECT_EQ(ids[i] == ids[j], i == j) << ids[i] << " vs " << ids[j];
    }
  }
}

TEST(IntfId, EncodedNamesSortByKindThenNumbers) {
  EXPECT_LT(IntfId("Ethernet2"), IntfId("Ethernet10"));
  EXPECT_LT(IntfId("Ethernet1"), IntfId("Ethernet1/1"));
  EXPECT_LT(IntfId("Ethernet1/2"), IntfId("Ethernet1/10"));
  EXPECT_LT(IntfId("Ethernet1/1"), IntfId("Ethernet2"));
  EXPECT_LT(IntfId(), IntfId("Ethernet1"));
  EXPECT_LT(IntfId("Ethernet99"), IntfId("Port-Channel1"));
  EXPECT_LT(IntfId("Vlan4094"), IntfId("Vxlan1"));
}

TEST(IntfId, VlanIdOfVlanInterfaces) {
  using Lanx::VlanIntfId;
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan10")), 10u);
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan4094")), 4094u);
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan5000")), 5000u) << "beyond 4094: the caller's range check decides";
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan2000000")), 2000000u);
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan99999999999")), std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan010")), 10u);
  EXPECT_EQ(VlanIntfId::vlanId(IntfId("Vlan0")), 0u);
  for (char const* other : {"Ethernet10", "Vxlan10", "Vlan", "Vlan1/2", "Vlanx", "", "Port-Channel10"}) {
    EXPECT_EQ(VlanIntfId::vlanId(IntfId(other)), 0u) << other;
  }
}

TEST(IntfId, VxlanTunnelInterfacesAreVxlanAndANumber) {
  using Lanx::VxlanTunnelIntfId;
  for (char const* yes : {"Vxlan1", "Vxlan10", "Vxlan2000000", "Vxlan01"}) {
    EXPECT_TRUE(VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId(yes))) << yes;
  }
  for (char const* no : {"Vlan1", "Ethernet1", "", "Vxlan", "Vxlan1/1", "VxlanTunnel1", "Vxlan1.5"}) {
    EXPECT_FALSE(VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId(no))) << no;
  }
}

TEST(IntfId, Vxlan1IsTheInterfaceNamedVxlan1) {
  EXPECT_EQ(Vxlan1, IntfId("Vxlan1"));
  EXPECT_EQ(Vxlan1.stringValue().view(), "Vxlan1");
  EXPECT_EQ(Vxlan1.shortName().view(), "Vx1");
  EXPECT_NE(Vxlan1, IntfId("Vxlan10"));
  EXPECT_TRUE(Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId(Vxlan1));
}

RC_GTEST_PROP(IntfId, AnyNameRoundTrips, (std::string const& name)) {
  IntfId id(name);
  RC_ASSERT(id.stringValue().str() == name);
  RC_ASSERT(IntfId(id.stringValue()) == id);
}

RC_GTEST_PROP(IntfId, NumberedNamesRoundTrip, (std::uint32_t a, std::uint16_t b)) {
  for (std::string prefix : {"Ethernet", "Vlan", "Port-Channel"}) {
    std::string name = prefix + std::to_string(a) + "/" + std::to_string(b);
    RC_ASSERT(IntfId(name).stringValue().str() == name);
    RC_ASSERT(IntfId(prefix + std::to_string(a)).stringValue().str() == prefix + std::to_string(a));
  }
}

TEST(EthAddr, ParsesBothFormsAndPrintsColonForm) {
  EthAddr expected(0x001c, 0x73aa, 0xbb0c);
  EXPECT_EQ(EthAddr::parse("00:1c:73:aa:bb:0c"), expected);
  EXPECT_EQ(EthAddr::parse("00:1C:73:AA:BB:0C"), expected);
  EXPECT_EQ(EthAddr::parse("0:1c:73:aa:bb:c"), expected);
  EXPECT_EQ(EthAddr::parse("001c.73aa.bb0c"), expected);
  EXPECT_EQ(EthAddr::parse("1c.73aa.bb0c"), expected);
  EXPECT_EQ(expected.stringValue().view(), "00:1c:73:aa:bb:0c");
  EXPECT_EQ(text(expected), "00:1c:73:aa:bb:0c");
  EXPECT_EQ(expected.word0(), 0x001c);
  EXPECT_EQ(expected.word2(), 0xbb0c);

  EXPECT_EQ(EthAddr::parse("0.0.0"), EthAddr());
  EXPECT_TRUE(EthAddr().isZero());
  EXPECT_EQ(EthAddr().stringValue().view(), "00:00:00:00:00:00");
  EXPECT_TRUE(EthAddr::parse("ffff.ffff.ffff").isBroadcast());
  EXPECT_EQ(EthAddr::parse("ff:ff:ff:ff:ff:ff"), EthAddr::broadcast());
  EXPECT_FALSE(expected.isZero());
  EXPECT_FALSE(expected.isBroadcast());
}

TEST(EthAddr, MalformedTextRaisesAndNamesTheText) {
  for (char const* bad :
       {"", "00:1c:73:aa:bb", "00:1c:73:aa:bb:0c:11", "001:1c:73:aa:bb:0c", "g0:1c:73:aa:bb:0c",
        "00:1c:73:aa:bb:", "1.2", "12345.0.0", "1.2.3.", "1..2", "00-1c-73-aa-bb-0c", "001c.73aa.bb0c "}) {
    ValueChecks::expectThrowsText<AddressParseException>(
        [&] { (void)EthAddr::parse(bad); }, std::string("Lanx::EthAddr: malformed address text \"") + bad + "\"");
  }
}

TEST(EthAddr, OrderedByWordsInTurn) {
  EXPECT_LT(EthAddr(0, 0, 0xffff), EthAddr(0, 1, 0));
  EXPECT_LT(EthAddr(0, 0xffff, 0xffff), EthAddr(1, 0, 0));
  EXPECT_NE(hashOf(EthAddr(0, 0, 1)), hashOf(EthAddr(1, 0, 0)));
}

RC_GTEST_PROP(EthAddr, TextRoundTrips, (std::uint16_t a, std::uint16_t b, std::uint16_t c)) {
  EthAddr addr(a, b, c);
  RC_ASSERT(EthAddr::parse(addr.stringValue().view()) == addr);
  RC_ASSERT(EthAddr::parse(fmt::format("{:x}.{:x}.{:x}", a, b, c)) == addr);
}

TEST(IpAddr, ParsesDottedDecimal) {
  IpAddr a = IpAddr::parse("10.0.0.1");
  EXPECT_EQ(a.value(), 0x0a000001u);
  EXPECT_EQ(a, IpAddr(10, 0, 0, 1));
  EXPECT_EQ((a.bytes()), (std::array<std::uint8_t, 4>{10, 0, 0, 1}));
  EXPECT_EQ(a.stringValue().view(), "10.0.0.1");
  EXPECT_EQ(text(IpAddr::parse("255.255.255.255")), "255.255.255.255");
  EXPECT_TRUE(IpAddr::parse("0.0.0.0").isZero());
  EXPECT_TRUE(IpAddr().isZero());
  EXPECT_FALSE(a.isZero());
  EXPECT_LT(IpAddr::parse("9.255.255.255"), IpAddr::parse("10.0.0.0"));

  for (char const* bad : {"", "256.0.0.1", "1.2.3", "1.2.3.4.5", "01.2.3.4", "1..2.3", "a.b.c.d", " 1.2.3.4",
                          "1.2.3.4 ", "1.2.3.-4", "1000.2.3.4", "::1"}) {
    ValueChecks::expectThrowsText<AddressParseException>(
        [&] { (void)IpAddr::parse(bad); }, std::string("Lanx::IpAddr: malformed address text \"") + bad + "\"");
  }
}

RC_GTEST_PROP(IpAddr, TextRoundTrips, (std::uint32_t v)) {
  IpAddr a(v);
  RC_ASSERT(IpAddr::parse(a.stringValue().view()) == a);
}

TEST(Ip6Addr, CanonicalAndExpandedText) {
  struct Case {
    char const* input;
    char const* canonical;
    char const* expanded;
  };
  Case const cases[] = {
      {"2001:db8::1", "2001:db8::1", "2001:0db8:0000:0000:0000:0000:0000:0001"},
      {"::", "::", "0000:0000:0000:0000:0000:0000:0000:0000"},
      {"::1", "::1", "0000:0000:0000:0000:0000:0000:0000:0001"},
      {"1::", "1::", "0001:0000:0000:0000:0000:0000:0000:0000"},
      {"2001:DB8:0:0:1:0:0:1", "2001:db8::1:0:0:1", "2001:0db8:0000:0000:0001:0000:0000:0001"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1", "2001:0db8:0000:0001:0001:0001:0001:0001"},
      {"1:0:0:2:0:0:0:3", "1:0:0:2::3", "0001:0000:0000:0002:0000:0000:0000:0003"},
      {"fe80::1:2:3:4:5:6", "fe80:0:1:2:3:4:5:6", "fe80:0000:0001:0002:0003:0004:0005:0006"},
      {"::ffff:10.0.0.1", "::ffff:10.0.0.1", "0000:0000:0000:0000:0000:ffff:0a00:0001"},
      {"64:ff9b::192.0.2.33", "64:ff9b::c000:221", "0064:ff9b:0000:0000:0000:0000:c000:0221"},
      {"1:2:3:4:5:6:1.2.3.4", "1:2:3:4:5:6:102:304", "0001:0002:0003:0004:0005:0006:0102:0304"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
       "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
  };
  for (auto const& c : cases) {
    Ip6Addr a = Ip6Addr::parse(c.input);
    EXPECT_EQ(a.stringValue().view(), c.canonical) << c.input;
    EXPECT_EQ(text(a), c.canonical);
    EXPECT_EQ(a.stringValueExpanded().view(), c.expanded) << c.input;
    EXPECT_EQ(Ip6Addr::parse(c.canonical), a);
    EXPECT_EQ(Ip6Addr::parse(c.expanded), a);
  }
  EXPECT_TRUE(Ip6Addr::parse("::").isZero());
  EXPECT_TRUE(Ip6Addr().isZero());
  EXPECT_FALSE(Ip6Addr::parse("::1").isZero());
  EXPECT_EQ(Ip6Addr::parse("2001:db8::1").group(1), 0x0db8);
}

TEST(Ip6Addr, MalformedTextRaises) {
  for (char const* bad : {"", ":", ":::", "1:::2", "1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2:3:4:5:6:7:8",
                          "12345::", "g::", "1:2:3:4:5:6:7:", ":1:2:3:4:5:6:7", "::1.2.3", "::1.2.3.4:5",
                          "1.2.3.4::", "10.0.0.1", "::01.2.3.4"}) {
    ValueChecks::expectThrowsText<AddressParseException>(
        [&] { (void)Ip6Addr::parse(bad); }, std::string("Lanx::Ip6Addr: malformed address text \"") + bad + "\"");
  }
}

RC_GTEST_PROP(Ip6Addr, TextRoundTrips, ()) {
  // Groups are often zero, so that runs of zeros of every length and place come up.
  auto groups = *rc::gen::container<std::vector<std::uint16_t>>(
      8, rc::gen::oneOf(rc::gen::just<std::uint16_t>(0), rc::gen::arbitrary<std::uint16_t>()));
  Ip6Addr::Bytes bytes{};
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[2 * i] = static_cast<std::uint8_t>(groups[i] >> 8);
    bytes[2 * i + 1] = static_cast<std::uint8_t>(groups[i]);
  }
  Ip6Addr a(bytes);
  RC_ASSERT(Ip6Addr::parse(a.stringValue().view()) == a);
  RC_ASSERT(Ip6Addr::parse(a.stringValueExpanded().view()) == a);
  RC_ASSERT(a.stringValueExpanded().size() == 39u);
  RC_ASSERT(a.stringValue().view().find(":::") == std::string_view::npos);
}

TEST(IpGenAddr, HoldsEitherFamily) {
  IpAddr v4 = IpAddr::parse("10.0.0.1");
  IpGenAddr g4(v4);
  EXPECT_EQ(g4.af(), AddressFamily::ipv4);
  EXPECT_EQ(static_cast<int>(g4.af()), 1);
  EXPECT_TRUE(g4.isV4());
  EXPECT_EQ(g4.v4Addr(), v4);
  EXPECT_EQ(g4.stringValue().view(), "10.0.0.1");

  Ip6Addr v6 = Ip6Addr::parse("2001:db8::1");
  IpGenAddr g6(v6);
  EXPECT_EQ(static_cast<int>(g6.af()), 2);
  EXPECT_TRUE(g6.isV6());
  EXPECT_EQ(g6.v6Addr(), v6);
  EXPECT_EQ(text(g6), "2001:db8::1");

  // Asked for the other family, each gives the zero address of that family.
  EXPECT_TRUE(g4.v6Addr().isZero());
  EXPECT_TRUE(g6.v4Addr().isZero());

  EXPECT_EQ(IpGenAddr(AddressFamily::ipv4), IpGenAddr(IpAddr()));
  EXPECT_EQ(IpGenAddr(AddressFamily::ipv6), IpGenAddr(Ip6Addr()));
  EXPECT_EQ(IpGenAddr::parse("10.0.0.1"), g4);
  EXPECT_EQ(IpGenAddr::parse("2001:db8::1"), g6);
  ValueChecks::expectThrowsText<AddressParseException>([] { (void)IpGenAddr::parse("10.0.0"); },
                                                       "Lanx::IpGenAddr: malformed address text \"10.0.0\"");
  ValueChecks::expectThrowsText<AddressParseException>([] { (void)IpGenAddr::parse("1::2::3"); },
                                                       "Lanx::IpGenAddr: malformed address text \"1::2::3\"");
}

TEST(IpGenAddr, FamilyTakesPartInEqualityHashAndOrder) {
  // 10.0.0.1 and a00:1:: hold the same 16 bytes; only the family tells them apart.
  IpGenAddr g4(IpAddr::parse("10.0.0.1"));
  IpGenAddr g6(Ip6Addr::parse("a00:1::"));
  EXPECT_EQ(g4.bytes(), g6.bytes());
  ValueChecks::expectEveryFieldCounts(g4, g6, IpGenAddr(IpAddr::parse("10.0.0.2")));

  IpGenAddr unknown;
  EXPECT_EQ(unknown.af(), AddressFamily::ipunknown);
  EXPECT_TRUE(unknown.isZero());
  EXPECT_NE(unknown, IpGenAddr(IpAddr()));
  EXPECT_NE(unknown, IpGenAddr(Ip6Addr()));
  EXPECT_EQ(unknown.stringValue().view(), "unknown");

  EXPECT_LT(IpGenAddr(IpAddr::parse("9.0.0.0")), IpGenAddr(IpAddr::parse("10.0.0.0")));
  EXPECT_LT(g4, g6) << "same bytes: the family decides";
}

TEST(AddressFamily, TextAndTypeDescription) {
  EXPECT_EQ(text(AddressFamily::ipv4), "ipv4");
  EXPECT_EQ(text(AddressFamily::inet6), "ipv6") << "an alias prints as the first name of its value";
  EXPECT_EQ(text(AddressFamily::ipunknown), "ipunknown");
  EXPECT_EQ(text(static_cast<AddressFamily>(7)), "7");
  EXPECT_EQ(Lanx::stringValue(static_cast<AddressFamily>(7)), "unknown");

  auto members = Lanx::addressFamilyMembers();
  ASSERT_FALSE(members.empty());
  for (std::size_t i = 1; i < members.size(); ++i) EXPECT_LE(members[i - 1].first, members[i].first);
  for (auto const& [value, name] : members) {
    if (name == "ipv4" || name == "inet") {
      EXPECT_EQ(value, 1);
    }
    if (name == "ipv6" || name == "inet6") {
      EXPECT_EQ(value, 2);
    }
  }
}

TEST(LanxKeys, EqualValuesMadeApartFindEachOtherInAHashMap) {
  Vok::HashMap2018<IntfId, int> intfs;
  intfs.newMemberG(IntfId("Ethernet1/1.100"), 1);
  intfs.newMemberG(IntfId("Vlan10"), 2);
  ASSERT_NE(intfs.lookupNodeG(IntfId(Brix::String("Ethernet1/1.100"))), nullptr);
  EXPECT_EQ(intfs.lookupNodeG(IntfId("Vlan10"))->value, 2);
  EXPECT_EQ(intfs.lookupNodeG(IntfId("Vlan11")), nullptr);

  Vok::HashMap2018<IpGenAddr, int> addrs;
  addrs.newMemberG(IpGenAddr::parse("10.0.0.1"), 4);
  addrs.newMemberG(IpGenAddr::parse("a00:1::"), 6);
  EXPECT_EQ(addrs.size(), 2u);
  EXPECT_EQ(addrs.lookupNodeG(IpGenAddr(IpAddr(10, 0, 0, 1)))->value, 4);
  EXPECT_EQ(addrs.lookupNodeG(IpGenAddr(Ip6Addr::parse("a00:1:0::")))->value, 6);
}

}  // namespace
