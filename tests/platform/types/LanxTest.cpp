#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/types/ValueChecks.h"
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
using ValueChecks::text;

TEST(IntfId, NamesRoundTripWithTheirShortNames) {
  // The last five are names the encoding does not hold: they keep their text and abbreviation.
  std::istringstream names(
      "Ethernet1 Et1 Ethernet3/1/4 Et3/1/4 Ethernet0 Et0 Port-Channel2 Po2 Vlan4094 Vl4094 Vxlan1 Vx1 Loopback0 Lo0 "
      "Management1 Ma1 Tunnel5 Tu5 Ethernet1/1.100 Et1/1.100 Vlan010 Vl010 Ethernet1/2/3/4 Et1/2/3/4 Recirc-Channel7 "
      "Recirc-Channel7 Vlanx1 Vlanx1");
  for (std::string name, shortName; names >> name >> shortName;) {
    IntfId id(name);
    EXPECT_EQ(text(id), name);
    EXPECT_EQ(id.shortName().view(), shortName) << name;
    EXPECT_EQ(IntfId(Brix::String(name)), id) << "the same name makes the same id, however it is passed";
    EXPECT_EQ(hashOf(IntfId(std::string_view(name))), hashOf(id));
  }
  EXPECT_EQ(IntfId(), IntfId(static_cast<char const*>(nullptr)));
  EXPECT_TRUE(IntfId("").isEmpty());
}

TEST(IntfId, DistinctNamesDifferAndEncodedNamesSortByKindThenNumbers) {
  auto ids = [](std::initializer_list<char const*> names) {
    std::vector<IntfId> out;
    for (char const* n : names) out.emplace_back(n);
    return out;
  };
  auto distinct =
      ids({"Ethernet1", "Ethernet1/1", "Ethernet10", "Vlan1", "Vxlan1", "Port-Channel1", "Vlan01", "Ethernet1/1.100",
           "Ethernet1/1.101", "Loopback1", "Management1", "Tunnel1", "SomeName", "Ethernet1/0", ""});
  for (std::size_t i = 0; i < distinct.size(); ++i) {
    for (std::size_t j = 0; j < distinct.size(); ++j) EXPECT_EQ(distinct[i] == distinct[j], i == j) << distinct[i];
  }
  auto ordered = ids({"", "Ethernet1", "Ethernet1/1", "Ethernet1/2", "Ethernet1/10", "Ethernet2", "Ethernet10",
                      "Port-Channel1", "Vlan4094", "Vxlan1"});
  for (std::size_t i = 1; i < ordered.size(); ++i) EXPECT_LT(ordered[i - 1], ordered[i]) << ordered[i];
}

TEST(IntfId, VlanIdAndVxlanTunnelOfAName) {
  // Beyond 4094 the caller's range check decides.
  std::pair<char const*, std::uint32_t> const vlans[] = {
      {"Vlan10", 10},  {"Vlan5000", 5000}, {"Vlan99999999999", std::numeric_limits<std::uint32_t>::max()},
      {"Vlan010", 10}, {"Vlan0", 0},       {"Ethernet10", 0},
      {"Vxlan10", 0},  {"Vlan", 0},        {"Vlan1/2", 0},
      {"", 0}};
  for (auto [name, vlan] : vlans) EXPECT_EQ(Lanx::VlanIntfId::vlanId(IntfId(name)), vlan) << name;
  // Made from the number, the interface is the one its name makes.
  for (std::uint32_t n = 0; n <= 0xffff; ++n) {
    auto const vlan = static_cast<std::uint16_t>(n);
    ASSERT_EQ(Lanx::VlanIntfId::intfId(vlan), IntfId("Vlan" + std::to_string(n))) << n;
  }
  std::pair<char const*, bool> const tunnels[] = {
      {"Vxlan1", true}, {"Vxlan2000000", true}, {"Vxlan01", true},       {"Vlan1", false},   {"", false},
      {"Vxlan", false}, {"Vxlan1/1", false},    {"VxlanTunnel1", false}, {"Vxlan1.5", false}};
  for (auto [name, yes] : tunnels) EXPECT_EQ(Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId(name)), yes) << name;
}

RC_GTEST_PROP(IntfId, AnyNameRoundTrips, (std::string const& name, std::uint32_t a, std::uint16_t b)) {
  RC_ASSERT(IntfId(name).stringValue().str() == name);
  for (std::string prefix : {"Ethernet", "Vlan", "Port-Channel"}) {
    for (std::string const& n : {prefix + std::to_string(a), prefix + std::to_string(a) + "/" + std::to_string(b)}) {
      RC_ASSERT(IntfId(n).stringValue().str() == n);
    }
  }
}

// Each malformed text raises, naming the type and the text.
template <class T>
void expectMalformed(char const* type, std::initializer_list<char const*> bad) {
  for (char const* b : bad) {
    ValueChecks::expectThrowsText<AddressParseException>([&] { (void)T::parse(b); },
                                                         std::string(type) + ": malformed address text \"" + b + "\"");
  }
}

TEST(EthAddr, ParsesBothFormsAndPrintsColonForm) {
  EthAddr expected(0x001c, 0x73aa, 0xbb0c);
  for (char const* t :
       {"00:1c:73:aa:bb:0c", "00:1C:73:AA:BB:0C", "0:1c:73:aa:bb:c", "001c.73aa.bb0c", "1c.73aa.bb0c"}) {
    EXPECT_EQ(EthAddr::parse(t), expected) << t;
  }
  EXPECT_EQ(text(expected), "00:1c:73:aa:bb:0c");
  EXPECT_TRUE(EthAddr::parse("0.0.0").isZero());
  EXPECT_TRUE(EthAddr::parse("ffff.ffff.ffff").isBroadcast());
  EXPECT_FALSE(expected.isZero() || expected.isBroadcast());
  EXPECT_LT(EthAddr(0, 0, 0xffff), EthAddr(0, 1, 0));
  EXPECT_LT(EthAddr(0, 0xffff, 0xffff), EthAddr(1, 0, 0));
  expectMalformed<EthAddr>("Lanx::EthAddr", {"", "00:1c:73:aa:bb", "00:1c:73:aa:bb:0c:11", "001:1c:73:aa:bb:0c",
                                             "g0:1c:73:aa:bb:0c", "00:1c:73:aa:bb:", "1.2", "12345.0.0", "1.2.3.",
                                             "1..2", "00-1c-73-aa-bb-0c", "001c.73aa.bb0c "});
}

RC_GTEST_PROP(EthAddr, TextRoundTrips, (std::uint16_t a, std::uint16_t b, std::uint16_t c)) {
  EthAddr addr(a, b, c);
  RC_ASSERT(EthAddr::parse(addr.stringValue().view()) == addr);
  RC_ASSERT(EthAddr::parse(fmt::format("{:x}.{:x}.{:x}", a, b, c)) == addr);
}

TEST(IpAddr, ParsesDottedDecimal) {
  IpAddr a = IpAddr::parse("10.0.0.1");
  EXPECT_EQ(a.value(), 0x0a000001u);
  EXPECT_EQ((a.bytes()), (std::array<std::uint8_t, 4>{10, 0, 0, 1}));
  EXPECT_EQ(text(IpAddr::parse("255.255.255.255")), "255.255.255.255");
  EXPECT_LT(IpAddr::parse("9.255.255.255"), IpAddr::parse("10.0.0.0"));
  expectMalformed<IpAddr>("Lanx::IpAddr", {"", "256.0.0.1", "1.2.3", "1.2.3.4.5", "01.2.3.4", "1..2.3", "a.b.c.d",
                                           " 1.2.3.4", "1.2.3.4 ", "1.2.3.-4", "1000.2.3.4", "::1"});
}

RC_GTEST_PROP(IpAddr, TextRoundTrips, (std::uint32_t v)) {
  RC_ASSERT(IpAddr::parse(IpAddr(v).stringValue().view()) == IpAddr(v));
}

TEST(Ip6Addr, CanonicalAndExpandedText) {
  std::istringstream forms(
      "2001:db8::1 2001:db8::1 :: :: 1:: 1:: 2001:DB8:0:0:1:0:0:1 2001:db8::1:0:0:1 2001:db8:0:1:1:1:1:1 "
      "2001:db8:0:1:1:1:1:1 1:0:0:2:0:0:0:3 1:0:0:2::3 fe80::1:2:3:4:5:6 fe80:0:1:2:3:4:5:6 ::ffff:10.0.0.1 "
      "::ffff:10.0.0.1 64:ff9b::192.0.2.33 64:ff9b::c000:221 1:2:3:4:5:6:1.2.3.4 1:2:3:4:5:6:102:304");
  // Each input, then its canonical text.
  for (std::string in, canonical; forms >> in >> canonical;) EXPECT_EQ(text(Ip6Addr::parse(in)), canonical) << in;
  EXPECT_EQ(Ip6Addr::parse("2001:db8::1").stringValueExpanded().view(), "2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(Ip6Addr::parse("2001:db8::1").group(1), 0x0db8);
  expectMalformed<Ip6Addr>("Lanx::Ip6Addr", {"", ":", ":::", "1:::2", "1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9",
                                             "1::2:3:4:5:6:7:8", "12345::", "g::", "1:2:3:4:5:6:7:", ":1:2:3:4:5:6:7",
                                             "::1.2.3", "::1.2.3.4:5", "1.2.3.4::", "10.0.0.1", "::01.2.3.4"});
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

TEST(IpGenAddr, HoldsEitherFamilyAndTheFamilyCounts) {
  IpGenAddr g4 = IpGenAddr::parse("10.0.0.1");
  IpGenAddr g6 = IpGenAddr::parse("a00:1::");
  EXPECT_EQ(g4.v4Addr(), IpAddr(10, 0, 0, 1));
  EXPECT_EQ(g6.v6Addr(), Ip6Addr::parse("a00:1::"));
  EXPECT_EQ(static_cast<int>(g6.af()), 2);
  EXPECT_EQ(text(g6), "a00:1::");
  // Asked for the other family, each gives the zero address of that family.
  EXPECT_TRUE(g4.v6Addr().isZero() && g6.v4Addr().isZero());
  EXPECT_EQ(IpGenAddr(AddressFamily::ipv6), IpGenAddr(Ip6Addr()));
  expectMalformed<IpGenAddr>("Lanx::IpGenAddr", {"10.0.0", "1::2::3"});

  // 10.0.0.1 and a00:1:: hold the same 16 bytes; only the family tells them apart.
  EXPECT_EQ(g4.bytes(), g6.bytes());
  ValueChecks::expectEveryFieldCounts(g4, g6, IpGenAddr(IpAddr::parse("10.0.0.2")));
  EXPECT_LT(g4, g6) << "same bytes: the family decides";
  IpGenAddr unknown;
  EXPECT_TRUE(unknown.isZero());
  EXPECT_NE(unknown, IpGenAddr(IpAddr()));
  EXPECT_NE(unknown, IpGenAddr(Ip6Addr()));
  EXPECT_EQ(unknown.stringValue().view(), "unknown");
}

TEST(AddressFamily, AnAliasPrintsAsTheFirstNameOfItsValue) {
  EXPECT_EQ(text(AddressFamily::inet6), "ipv6");
  EXPECT_EQ(text(static_cast<AddressFamily>(7)), "7");
  EXPECT_EQ(Lanx::stringValue(static_cast<AddressFamily>(7)), "unknown");
  auto members = Lanx::addressFamilyMembers();
  for (std::size_t i = 1; i < members.size(); ++i) EXPECT_LE(members[i - 1].first, members[i].first);
}

}  // namespace
