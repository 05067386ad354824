// A VRF's ARP input read by a key of either family.
#include <gtest/gtest.h>

#include "entities/Arp/InputConfig.h"

namespace {

using Lanx::EthAddr;
using Lanx::IntfId;
using Lanx::IpAddr;

IpAddr const vtep1(10, 0, 0, 1);
IpAddr const vtep2(10, 0, 0, 2);

TEST(ArpInputConfig, AfEntryReadsTheCollectionOfTheKeysFamily) {
  auto vrf = Brix::newNode<Arp::InputConfigVrf>(L3::VrfName("default"));
  IntfId vlan10("Vlan10");
  Arp::InputConfigKey v4(vlan10, vtep1);
  Arp::InputConfigKey v6(vlan10, Lanx::Ip6Addr::parse("2001:db8::1"));
  Arp::InputConfigKey v6Misfiled(vlan10, Lanx::Ip6Addr::parse("2001:db8::2"));
  Arp::InputConfigEntry e4(v4, EthAddr(0, 0, 4));
  Arp::InputConfigEntry e6(v6, EthAddr(0, 0, 6));
  vrf->ipv4Is(e4);
  vrf->ipv6Is(e6);
  vrf->ipv4Is(Arp::InputConfigEntry(v6Misfiled, EthAddr(0, 0, 7)));

  EXPECT_TRUE(vrf->afEntryHas(v4));
  EXPECT_EQ(vrf->afEntry(v4), e4);
  EXPECT_TRUE(vrf->afEntryHas(v6));
  EXPECT_EQ(vrf->afEntry(v6), e6);
  EXPECT_FALSE(vrf->afEntryHas(v6Misfiled)) << "an IPv6 key is looked up among the IPv6 entries only";
  EXPECT_EQ(vrf->afEntry(v6Misfiled), Arp::InputConfigEntry());
  EXPECT_FALSE(vrf->afEntryHas(Arp::InputConfigKey(vlan10, vtep2)));
  EXPECT_EQ(vrf->afEntry(Arp::InputConfigKey(vlan10, vtep2)), Arp::InputConfigEntry());
}

}  // namespace
