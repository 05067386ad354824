// The platform's value types in trace statements: what the decoder makes of their bytes is
// what the text trace makes of the values.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/RingLogDir.h"
#include "trace/DualLog.h"
#include "trace/RingLogReader.h"

namespace {

using Texts = std::vector<std::string>;

class TypeCodesTest : public ::testing::Test {
 protected:
  TypeCodesTest() { text.levelMaskIs(~0u); }

  Texts decodedTexts() {
    auto f = RingLog::decodeFile(rl->fileName());
    EXPECT_TRUE(f.ok()) << f.errors.front();
    Texts t;
    for (auto const& r : f.records) t.push_back(r.text);
    return t;
  }

  TestSupport::RingLogDir dir;
  std::unique_ptr<RingLog::TraceHandle> rl{RingLog::initialize_handle("types.rl", nullptr, nullptr, 0, 0)};
  Vok::TraceHandle text{"TypeCodesTest", false};
  Vok::TraceCapture capture;
};

TEST_F(TypeCodesTest, ValueTypesDecodeToTheirTextForms) {
  using namespace Lanx;
  auto mac = EthAddr(0x0011, 0x22aa, 0xbbff);
  auto v6 = Ip6Addr::parse("2001:db8::1");
  auto vni = Vxlan::VniExtOrNone(5000);
  DUAL_LOG(rl.get(), &text, 6, "mac {m} ip {i} ip6 {i6} mapped {m6}", mac, IpAddr(10, 0, 0, 1), v6,
           Ip6Addr::parse("::ffff:192.0.2.1"));
  DUAL_LOG(rl.get(), &text, 6, "gen {a} {b} {c} then {marker}", IpGenAddr(IpAddr(192, 168, 1, 2)), IpGenAddr(v6),
           IpGenAddr(static_cast<AddressFamily>(7)), std::uint32_t{0xdeadbeef});
  DUAL_LOG(rl.get(), &text, 6, "vlan {v} {n} {e} vni {x} {none} vrf {vrf}", Bridging::VlanId(4094),
           Bridging::VlanIdOrNone(), Bridging::ExtendedVlanId(4095), Vxlan::VniExt(0), Vxlan::VniExtOrNone(),
           L3::VrfName("red"));
  DUAL_LOG(rl.get(), &text, 5, "{mv} {mvp} {vipo} {vsp}", Bridging::HostKey(Bridging::VlanId(10), mac),
           Vxlan::MacVlanPair(mac, Bridging::VlanId(20)), Vxlan::VlanIpPair(30, IpGenAddr(v6)),
           Vxlan::VniSourcePair(IntfId("Vxlan1"), "evpn", vni, 2));
  DUAL_LOG(rl.get(), &text, 5, "controller {mvt}", VxlanController::MacVtepV2(mac, IpAddr(10, 0, 0, 9), 3, 7));
  DUAL_LOG(rl.get(), &text, 5, "bfd {s} {t} family {f} {g} {h}", Bfd::OperState::up, Bfd::OperState::adminDown,
           AddressFamily::inet, AddressFamily::ipv6, static_cast<AddressFamily>(9));

  Texts expected{
      "mac 00:11:22:aa:bb:ff ip 10.0.0.1 ip6 2001:db8::1 mapped ::ffff:192.0.2.1",
      "gen 192.168.1.2 2001:db8::1 unknown then 3735928559",  // the other family: its byte alone
      "vlan 4094 0 4095 vni 0 4294967295 vrf red",
      "(10, 00:11:22:aa:bb:ff) (00:11:22:aa:bb:ff, 20) (30, 2001:db8::1) (5000, Vxlan1, evpn, flags=2)",
      "controller macAddr=00:11:22:aa:bb:ff, vtepIp=10.0.0.9, seqNum=3, preference=7",
      "bfd up adminDown family ipv4 ipv6 9",
  };
  EXPECT_EQ(decodedTexts(), expected);
  EXPECT_EQ(capture.texts(), expected);
}

}  // namespace
