#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "Vxlan/SmContainer.h"
#include "Vxlan/Trace.h"
#include "support/RingLogDir.h"
#include "trace/DualLog.h"
#include "trace/RingLogReader.h"

MLAGVXLAN_TEST_RINGLOGDIR();

// A value whose text form counts its renderings, and can switch its handle off meanwhile.
struct Counted {
  std::uint32_t v;
  Vok::TraceHandle* turnOff = nullptr;
  static inline int rendered = 0;
};
template <>
struct RingLog::TypeCode<Counted> {
  static constexpr char const* code = "i";
  static constexpr std::uint32_t size(Counted const&) noexcept { return 4; }
  static void put(RingBuf* rb, Counted const& c) noexcept { rb->putRaw(c.v); }
  static void text(std::string& out, Counted const& c) {
    ++Counted::rendered;
    if (c.turnOff) c.turnOff->levelMaskIs(0);
    out += std::to_string(c.v);
  }
};

enum class Signal : std::uint8_t { off = 0, on = 1, enabled = 1, blinking = 3 };
template <>
struct RingLog::RlFormatter<Signal, true> {
  static constexpr std::array<RlMember<Signal>, 4> members() {
    return {{{Signal::blinking, "blinking"}, {Signal::off, "off"}, {Signal::on, "on"}, {Signal::enabled, "enabled"}}};
  }
  static void formatTypeStr(MsgFormatString& s) { formatEnumTypeStr(s, members()); }
};

static_assert(DualLog::placeCount("a {x} {{b}} {y}") == 2);
static_assert(DualLog::placeCount("none") == 0);
static_assert(DualLog::placeCount("open {x") == -1 && DualLog::placeCount("close }") == -1);

namespace {

using Texts = std::vector<std::string>;

void emitVlan(RingLog::TraceHandle* rl, Vok::TraceHandle const* text, std::uint16_t vlan, std::uint32_t vni) {
  DUAL_LOG(rl, text, 6, "VlanToVniMapToP2pSm::handleVlanToVniMap({vlan}) vni {vni}", vlan, vni);
}

template <int Level>
void emitAt(RingLog::TraceHandle* rl, std::uint32_t i, std::uint32_t n, std::string const& pad) {
  DUAL_LOG(rl, nullptr, Level, "record {i} of level {level} number {n} {pad}", i, std::uint8_t{Level}, n, pad);
}

Texts textsOf(RingLog::DecodedFile const& f) {
  Texts t;
  for (auto const& r : f.records) t.push_back(r.text);
  return t;
}

class TraceTest : public ::testing::Test {
 protected:
  TraceTest() { Vok::System::timeSourceIs(&time); }
  ~TraceTest() override { Vok::System::timeSourceIs(nullptr); }

  static RingLog::SizeSpec kib(std::uint32_t n) {
    RingLog::SizeSpec s;
    s.size.fill(n);
    return s;
  }
  std::unique_ptr<RingLog::TraceHandle> open(char const* name = "trace-test.rl", RingLog::SizeSpec sizes = kib(8)) {
    return std::unique_ptr<RingLog::TraceHandle>(RingLog::initialize_handle(name, &sizes, nullptr, 0, 0));
  }
  static RingLog::DecodedFile decoded(RingLog::TraceHandle const& h) { return RingLog::decodeFile(h.fileName()); }

  TestSupport::RingLogDir dir;
  Vok::ManualTimeSource time{100.0};
  Vok::TraceHandle text{"TraceTest", false};
  Vok::TraceCapture capture;
};

TEST_F(TraceTest, RoundTripGivesEachMessageWithItsValuesInPlace) {
  auto rl = open();
  text.levelMaskIs(~0u);

  DUAL_LOG(rl.get(), &text, 5, "PrimarySm::doCleanup()");
  time.nowIs(100.25);
  emitVlan(rl.get(), &text, 10, 5010);
  emitVlan(rl.get(), &text, 4094, 0xFFFFFFFF);
  DUAL_LOG(rl.get(), &text, 6, "{name} up {up} u8 {u} after {t}s: {sv} {cs} {{literal}} 100% done",
           Brix::String("Vxlan1"), true, std::uint8_t{255}, Brix::Duration{1.5}, std::string_view("sv"), "cs");
  DUAL_LOG(rl.get(), &text, 6, "signal {a} then {b} then {c}", Signal::enabled, Signal::blinking,
           static_cast<Signal>(7));
  // The platform's value types: the decoder makes of their bytes what the text trace makes of them.
  using namespace Lanx;
  auto mac = EthAddr(0x0011, 0x22aa, 0xbbff);
  auto v6 = Ip6Addr::parse("2001:db8::1");
  DUAL_LOG(rl.get(), &text, 6, "mac {m} ip {i} ip6 {i6} mapped {m6}", mac, IpAddr(10, 0, 0, 1), v6,
           Ip6Addr::parse("::ffff:192.0.2.1"));
  DUAL_LOG(rl.get(), &text, 6, "gen {a} {b} {c} then {marker}", IpGenAddr(IpAddr(192, 168, 1, 2)), IpGenAddr(v6),
           IpGenAddr(static_cast<AddressFamily>(7)), std::uint32_t{0xdeadbeef});
  DUAL_LOG(rl.get(), &text, 6, "vlan {v} {n} {e} vni {x} {none} vrf {vrf}", Bridging::VlanId(4094),
           Bridging::VlanIdOrNone(), Bridging::ExtendedVlanId(4095), Vxlan::VniExt(0), Vxlan::VniExtOrNone(),
           L3::VrfName("red"));
  DUAL_LOG(rl.get(), &text, 5, "{mv} {mvp} {vipo} {vsp}", Bridging::HostKey(Bridging::VlanId(10), mac),
           Vxlan::MacVlanPair(mac, Bridging::VlanId(20)), Vxlan::VlanIpPair(30, IpGenAddr(v6)),
           Vxlan::VniSourcePair(IntfId("Vxlan1"), "evpn", Vxlan::VniExtOrNone(5000), 2));
  DUAL_LOG(rl.get(), &text, 5, "controller {mvt}", VxlanController::MacVtepV2(mac, IpAddr(10, 0, 0, 9), 3, 7));
  DUAL_LOG(rl.get(), &text, 5, "bfd {s} {t} family {f} {g} {h}", Bfd::OperState::up, Bfd::OperState::adminDown,
           AddressFamily::inet, AddressFamily::ipv6, static_cast<AddressFamily>(9));
  time.nowIs(101.0);
  DUAL_LOG(rl.get(), &text, 0, "level zero {s} {b}", std::string("str"), false);
  DUAL_LOG(rl.get(), &text, 8, "void Foo::bar(int) detail {x}", std::uint32_t{3});

  Texts expected{"PrimarySm::doCleanup()",
                 "VlanToVniMapToP2pSm::handleVlanToVniMap(10) vni 5010",
                 "VlanToVniMapToP2pSm::handleVlanToVniMap(4094) vni 4294967295",
                 "Vxlan1 up true u8 255 after 1.5s: sv cs {literal} 100% done",
                 "signal on then blinking then 7",
                 "mac 00:11:22:aa:bb:ff ip 10.0.0.1 ip6 2001:db8::1 mapped ::ffff:192.0.2.1",
                 "gen 192.168.1.2 2001:db8::1 unknown then 3735928559",  // the other family: its byte alone
                 "vlan 4094 0 4095 vni 0 4294967295 vrf red",
                 "(10, 00:11:22:aa:bb:ff) (00:11:22:aa:bb:ff, 20) (30, 2001:db8::1) (5000, Vxlan1, evpn, flags=2)",
                 "controller macAddr=00:11:22:aa:bb:ff, vtepIp=10.0.0.9, seqNum=3, preference=7",
                 "bfd up adminDown family ipv4 ipv6 9",
                 "level zero str false"};
  auto f = decoded(*rl);
  ASSERT_TRUE(f.ok()) << f.errors.front();
  EXPECT_EQ(textsOf(f), expected);
  expected.push_back("void Foo::bar(int) detail 3");  // level 8: text only
  EXPECT_EQ(capture.texts(), expected);

  EXPECT_EQ(f.records.back().level, 0);
  EXPECT_EQ(f.records[1].msgId, f.records[2].msgId);
  EXPECT_EQ(RingLog::formatRecord(f.records[1]), "100.250000 6 VlanToVniMapToP2pSm::handleVlanToVniMap(10) vni 5010");
  EXPECT_EQ(capture.lines().front().handle, "TraceTest");
}

TEST_F(TraceTest, AStatementIsDescribedAgainInAFileThatDoesNotKnowIt) {
  auto a = open("a.rl");
  emitVlan(a.get(), nullptr, 1, 2);
  auto b = open("b.rl");
  emitVlan(b.get(), nullptr, 3, 4);
  emitVlan(a.get(), nullptr, 5, 6);
  EXPECT_EQ(textsOf(decoded(*a)), (Texts{"VlanToVniMapToP2pSm::handleVlanToVniMap(1) vni 2",
                                         "VlanToVniMapToP2pSm::handleVlanToVniMap(5) vni 6"}));
  EXPECT_EQ(textsOf(decoded(*b)), (Texts{"VlanToVniMapToP2pSm::handleVlanToVniMap(3) vni 4"}));
}

// Rings of one to thirteen KiB, records from 40 bytes to over a KiB: each level keeps a run of
// its newest records without a gap, and loses at most the room making frees ahead of a record.
TEST_F(TraceTest, EachLevelKeepsItsNewestRecordsWhenItsRingWraps) {
  RingLog::SizeSpec sizes{{1, 2, 3, 5, 8, 13, 1, 2, 3, 5}};
  auto rl = open("wrap.rl", sizes);
  constexpr std::uint32_t perLevel = 900;
  auto pad = [](std::uint32_t n) { return std::string(n % 37 == 0 ? 400 : n * 7 % 41, 'x'); };
  auto check = [&](std::uint32_t written) {
    auto f = decoded(*rl);
    ASSERT_TRUE(f.ok()) << f.errors.front();
    std::vector<std::vector<std::uint32_t>> numbers(10);
    std::vector<std::uint64_t> keptBytes(10);
    std::uint32_t lastIndex = 0;
    for (auto const& r : f.records) {
      std::uint32_t index = 0, n = 0;
      int level = 0;
      ASSERT_EQ(std::sscanf(r.text.c_str(), "record %u of level %d number %u", &index, &level, &n), 3) << r.text;
      EXPECT_EQ(r.text, fmt::format("record {} of level {} number {} {}", index, r.level, n, pad(n)));
      EXPECT_TRUE(index > lastIndex || &r == &f.records.front()) << "merged order differs from written order";
      lastIndex = index;
      numbers[static_cast<std::size_t>(level)].push_back(n);
      // header, three numbers and the text's length, rounded up to 8
      keptBytes[static_cast<std::size_t>(level)] += (24 + 4 + 1 + 4 + 2 + pad(n).size() + 7) / 8 * 8;
    }
    for (int level = 0; level < 10; ++level) {
      auto const& ns = numbers[static_cast<std::size_t>(level)];
      if (level == 8) continue;  // text only
      ASSERT_FALSE(ns.empty()) << "level " << level;
      EXPECT_LT(ns.size(), written) << "level " << level << " did not wrap";
      EXPECT_EQ(ns.back(), written - 1) << "level " << level << " lost its newest record";
      for (std::size_t k = 1; k < ns.size(); ++k) EXPECT_EQ(ns[k], ns[k - 1] + 1) << "level " << level;
      // Room is made a sixteenth of the ring (at most 4 KiB) ahead of a record, up to the next
      // KiB boundary and past a record that straddles it; the rest of the ring holds history.
      std::uint64_t const cap = std::uint64_t{sizes.size[static_cast<std::size_t>(level)]} * 1024;
      EXPECT_GE(keptBytes[static_cast<std::size_t>(level)] + cap / 16 + 1024 + std::uint64_t{2} * 448, cap)
          << "level " << level;
    }
  };
  std::uint32_t i = 0;
  for (std::uint32_t n = 0; n < perLevel; ++n) {
    [&]<int... L>(std::integer_sequence<int, L...>) { (emitAt<L>(rl.get(), i++, n, pad(n)), ...); }
    (std::make_integer_sequence<int, 10>{});
    if (n >= perLevel / 2) {
      ASSERT_NO_FATAL_FAILURE(check(n + 1)) << "after " << n + 1 << " records a level";
    }
  }
}

TEST_F(TraceTest, ARecordTooLargeForItsRingIsDroppedAndTextOfAnyLengthIsKeptOrCut) {
  RingLog::SizeSpec sizes{};
  sizes.size[5] = 1;
  sizes.size[6] = 8;
  auto rl = open("large.rl", sizes);
  DUAL_LOG(rl.get(), nullptr, 5, "big {t}", std::string(600, 'x'));  // more than half of 1 KiB
  DUAL_LOG(rl.get(), nullptr, 5, "small {t}", "y");
  Texts expected{"small y"};
  for (std::size_t n = 0; n <= 40; ++n) {  // each way a short text is copied, and its edges
    std::string t;
    for (std::size_t i = 0; i < n; ++i) t += static_cast<char>('a' + (i * 7 + n) % 26);
    DUAL_LOG(rl.get(), nullptr, 6, "text {t}.", t);
    expected.push_back("text " + t + ".");
  }
  DUAL_LOG(rl.get(), nullptr, 6, "huge {t}", std::string(3000, 'z'));
  DUAL_LOG(rl.get(), nullptr, 7, "no ring at level 7 {x}", std::uint32_t{1});

  auto f = decoded(*rl);
  ASSERT_TRUE(f.ok()) << f.errors.front();
  expected.push_back("huge " + std::string(RingLog::Format::maxText, 'z'));
  EXPECT_EQ(textsOf(f), expected);
  EXPECT_EQ(f.dropped, 2u);
}

// A file that cannot be made leaves the text trace alone; a file is made writable by its owner
// only, and a link in its place is refused.
TEST_F(TraceTest, WithoutARingFileTheTextIsStillWrittenAndTheFileIsKeptPrivate) {
  text.levelIs(6, true);
  ::setenv("RINGLOGDIR", (dir.path() + "/missing").c_str(), 1);
  auto noFile = open("x.rl");
  ::setenv("RINGLOGDIR", dir.path().c_str(), 1);
  EXPECT_NE(noFile->error().find(dir.path() + "/missing/x.rl"), std::string::npos) << noFile->error();
  DUAL_LOG(noFile.get(), &text, 6, "peer {p} gone", Brix::String("10.0.0.2"));
  DUAL_LOG(noFile.get(), nullptr, 6, "peer {p} gone", Brix::String("10.0.0.3"));
  EXPECT_EQ(capture.texts(), (Texts{"peer 10.0.0.2 gone"}));

  std::string path = dir.path() + "/mode.rl";
  std::ofstream(path) << "old";
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  auto rl = open("mode.rl");
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 022, 0u);
  ASSERT_EQ(::symlink(path.c_str(), (dir.path() + "/link.rl").c_str()), 0);
  EXPECT_EQ(open("link.rl")->file(), nullptr);
}

TEST_F(TraceTest, LevelsOffRenderNoValueButTheRingStillGetsTheRecord) {
  auto rl = open();
  Counted::rendered = 0;
  text.levelMaskIs(1u << 8);
  DUAL_LOG(rl.get(), &text, 5, "count {c}", Counted{42});
  DUAL_LOG(rl.get(), &text, 6, "count {c}", Counted{43});
  EXPECT_EQ(Counted::rendered, 0);
  text.levelIs(6, true);
  DUAL_LOG(rl.get(), &text, 6, "count {c}", Counted{44});
  // The level goes off while the values are rendered: the bit is tested again, no line.
  DUAL_LOG(rl.get(), &text, 6, "count {c}", Counted{45, &text});
  EXPECT_EQ(Counted::rendered, 2);
  EXPECT_EQ(capture.texts(), (Texts{"count 44"}));

  EXPECT_EQ(textsOf(decoded(*rl)), (Texts{"count 42", "count 43", "count 44", "count 45"}));
}

TEST_F(TraceTest, RecordsSurviveAKilledProcess) {
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    auto rl = open("killed.rl");
    for (std::uint16_t vlan = 1; vlan <= 3; ++vlan) emitVlan(rl.get(), nullptr, vlan, vlan);
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  auto f = RingLog::decodeFile(dir.path() + "/killed.rl");
  EXPECT_EQ(f.records.size(), 3u);
  EXPECT_EQ(f.records.back().text, "VlanToVniMapToP2pSm::handleVlanToVniMap(3) vni 3");
  EXPECT_EQ(f.pid, static_cast<std::uint32_t>(child));
}

TEST_F(TraceTest, PerThreadModeGivesEachThreadItsOwnFile) {
  auto sizes = kib(8);
  std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle("mt.rl", &sizes, nullptr, 0, 1));
  EXPECT_EQ(rl->file(), nullptr);
  emitVlan(rl.get(), nullptr, 1, 1);
  std::string otherPath;
  std::thread([&] {
    emitVlan(rl.get(), nullptr, 2, 2);
    otherPath = rl->mtTraceFile()->path();
  }).join();
  ASSERT_NE(rl->mtTraceFile(), nullptr);
  std::string mainPath = rl->mtTraceFile()->path();
  EXPECT_NE(mainPath, otherPath);
  EXPECT_EQ(textsOf(RingLog::decodeFile(mainPath)), (Texts{"VlanToVniMapToP2pSm::handleVlanToVniMap(1) vni 1"}));
  EXPECT_EQ(textsOf(RingLog::decodeFile(otherPath)), (Texts{"VlanToVniMapToP2pSm::handleVlanToVniMap(2) vni 2"}));
}

TEST(VxlanTrace, TheSystemsStatementWritesTextAndOnceAContainerMadeItTheRing) {
  ASSERT_EQ(MlagVxlan::vxlanRlHandle(), nullptr) << "no container in this test binary";
  Vok::TraceCapture capture;
  MlagVxlan::_defaultTraceHandle()->levelMaskIs(1u << 6);
  auto handle = [](std::uint16_t vlan) { VXLAN_TRACE_FN("handleVlan", 6, "VlanSm::handleVlan({vlan})", vlan); };
  handle(10);  // no ring handle yet: text only
  MlagVxlan::vxlanRlHandleInit();
  handle(20);
  MlagVxlan::_defaultTraceHandle()->levelMaskIs(0);
  EXPECT_EQ(textsOf(RingLog::decodeFile(MlagVxlan::vxlanRlHandle()->fileName())), (Texts{"VlanSm::handleVlan(20)"}));
  EXPECT_EQ(capture.texts(), (Texts{"VlanSm::handleVlan(10)", "VlanSm::handleVlan(20)"}));
  EXPECT_EQ(capture.lines()[0].handle + " " + capture.lines()[0].function, "VxlanMlagHostTableSm handleVlan");
}

// Sets or clears an environment variable for the life of the guard.
struct EnvGuard {
  EnvGuard(char const* n, char const* v) : name(n) {
    if (char const* was = std::getenv(n)) old = was;
    v ? ::setenv(n, v, 1) : ::unsetenv(n);
  }
  ~EnvGuard() { old ? ::setenv(name, old->c_str(), 1) : ::unsetenv(name); }
  char const* name;
  std::optional<std::string> old;
};

TEST(RingLogFileName, PidAndDirectoryFollowTheRule) {
  std::string pid = std::to_string(::getpid());
  {
    TestSupport::RingLogDir dir;
    EXPECT_EQ(RingLog::resolvePath("Mlag-Vxlan-%d.rl", nullptr), dir.path() + "/Mlag-Vxlan-" + pid + ".rl");
    EXPECT_EQ(MlagVxlan::vxlanRlFileName(), "Mlag-Vxlan.rl");
    EXPECT_EQ(RingLog::resolvePath("/abs/%d-%d.rl", nullptr), "/abs/" + pid + "-" + pid + ".rl");
  }
  EnvGuard unset("RINGLOGDIR", nullptr);
  EXPECT_EQ(MlagVxlan::vxlanRlFileName(), "Mlag-Vxlan-%d.rl");
  EXPECT_EQ(RingLog::resolvePath("Mlag-Vxlan-%d.rl", nullptr),
            std::string(RingLog::defaultDir) + "/Mlag-Vxlan-" + pid + ".rl");
}

TEST(TextTrace, LevelListsParseOrSayWhatIsWrong) {
  struct Case {
    char const* list;
    bool ok;
    std::uint32_t mask;
  };
  for (auto [list, ok, mask] :
       {Case{"5,6", true, 0x60}, Case{"0-9", true, 0x3ff}, Case{" 5 - 6 , 8", true, 0x160}, Case{"all", true, 0x3ff},
        Case{"", true, 0}, Case{"10", false, 0}, Case{"6-5", false, 0}, Case{"5,", false, 0}, Case{"x", false, 0}}) {
    std::uint32_t m = 0xdead;
    std::string error;
    EXPECT_EQ(Vok::parseLevelMask(list, m, error), ok) << list;
    EXPECT_TRUE(ok ? m == mask : error.find("bad level") != std::string::npos) << list << ": " << m << " " << error;
  }

  // A handle takes its levels from the environment, all by default if it asks so, and says what is
  // wrong with a bad list.
  Vok::TraceCapture capture;
  for (auto [env, all, mask] : {std::tuple{"5-6,8", false, 0x160u}, std::tuple{(char const*)nullptr, true, 0x3ffu},
                                std::tuple{"five", false, 0u}}) {
    EnvGuard guard(Vok::traceEnvVar, env);
    EXPECT_EQ(Vok::TraceHandle("A", all).levelMask(), mask) << (env ? env : "unset");
  }
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].text.rfind("MLAGVXLAN_TRACE: bad level 'five'", 0), 0u) << capture.lines()[0].text;
  EXPECT_EQ(Vok::formatTraceLine(Vok::TraceLine{"H", 6, "f.cpp", 1, "handleX", 2.5, "text"}),
            "2.500000 H 6 handleX: text");
}

// ---- the decoder on damaged files ----------------------------------------------------

using RingLog::Format::FileHeader;
using RingLog::Format::RecordHeader;

template <int Level>
void emit(RingLog::TraceHandle* rl, std::uint32_t n) {
  DUAL_LOG(rl, nullptr, Level, "level {level} record {n} of {name}", std::uint8_t{Level}, n, Brix::String("Vxlan1"));
}

int countAt(RingLog::DecodedFile const& f, int level) {
  int n = 0;
  for (auto const& r : f.records) n += r.level == level;
  return n;
}

bool anyErrorHas(RingLog::DecodedFile const& f, std::string const& what) {
  for (auto const& e : f.errors)
    if (e.find(what) != std::string::npos) return true;
  return false;
}

// A file with ten records at each of levels 0, 5 and 6, read back as bytes.
class DamagedFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RingLog::SizeSpec sizes{};
    sizes.size[0] = 1;
    sizes.size[5] = 8;
    sizes.size[6] = 8;
    std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle("damaged.rl", &sizes, nullptr, 0, 0));
    ASSERT_NE(rl->file(), nullptr) << rl->error();
    for (std::uint32_t n = 0; n < 10; ++n) {
      emit<0>(rl.get(), n);
      emit<5>(rl.get(), n);
      emit<6>(rl.get(), n);
    }
    std::ifstream in(rl->fileName(), std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::memcpy(&header, bytes.data(), sizeof header);
    auto f = RingLog::decode(bytes);
    ASSERT_TRUE(f.ok()) << f.errors.front();
    ASSERT_EQ(f.records.size(), 30u);
  }

  // The file offset of record `k` (0 first) of a level's ring, which has not wrapped.
  std::size_t recordAt(int level, int k) const {
    std::size_t off = header.rings[level].offset;
    for (int i = 0; i < k; ++i) {
      RecordHeader r{};
      std::memcpy(&r, bytes.data() + off, sizeof r);
      off += r.size;
    }
    return off;
  }

  TestSupport::RingLogDir dir;
  std::string bytes;
  FileHeader header{};
};

// Each damage is reported, and the decoder still gives the records it can trust: per level,
// the records before the damage.
TEST_F(DamagedFileTest, DamageIsReportedAndEndsOnlyWhatItTouches) {
  auto seq = [this](std::size_t at) {
    RecordHeader r{};
    std::memcpy(&r, bytes.data() + at, sizeof r);
    return static_cast<std::uint32_t>(r.seq);
  };
  auto patch = [this](std::size_t at, std::uint32_t v) {
    std::string b = bytes;
    std::memcpy(b.data() + at, &v, sizeof v);
    return b;
  };
  std::string badMagic = bytes;
  badMagic[0] = 'X';
  struct Case {
    char const* what;
    std::string file;
    std::string error;
    std::array<int, 3> counts;  // at levels 0, 5 and 6; -1: not looked at
  };
  for (auto const& c : std::vector<Case>{
           {"truncated", bytes.substr(0, recordAt(6, 4) + 20), "file truncated", {10, 10, 4}},
           {"header cut", bytes.substr(0, sizeof(FileHeader) - 1), "", {0, 0, 0}},
           {"record size",
            patch(recordAt(5, 3) + offsetof(RecordHeader, size), 12),
            "level 5: record at byte",
            {10, 3, 10}},
           {"undescribed", patch(recordAt(6, 0), 999), "message id 999, which is not described", {10, 10, 0}},
           {"repeated sequence number",
            patch(recordAt(5, 3) + offsetof(RecordHeader, seq), seq(recordAt(5, 2))),
            "out of order",
            {10, 3, 10}},
           {"magic", badMagic, "not a ring file", {0, 0, 0}},
           {"description", patch(header.descOffset, 3), "has a bad size 3", {-1, -1, -1}},
       }) {
    auto f = RingLog::decode(c.file);
    EXPECT_TRUE(anyErrorHas(f, c.error)) << c.what << ": " << (f.ok() ? "no error" : f.errors.front());
    EXPECT_FALSE(f.ok()) << c.what;
    for (int i = 0; i < 3; ++i) {
      if (c.counts[i] >= 0) {
        EXPECT_EQ(countAt(f, std::array{0, 5, 6}[i]), c.counts[i]) << c.what << " level " << i;
      }
    }
  }
  std::string lastOfLevel6;
  for (auto const& r : RingLog::decode(bytes.substr(0, recordAt(6, 4) + 20)).records) {
    if (r.level == 6) lastOfLevel6 = r.text;
  }
  EXPECT_EQ(lastOfLevel6, "level 6 record 3 of Vxlan1");
  EXPECT_TRUE(anyErrorHas(RingLog::decodeFile(dir.path() + "/none.rl"), "cannot read"));
}

// Whatever bytes are damaged, the decoder reads only inside the file and gives sound records.
TEST_F(DamagedFileTest, RandomDamageNeverReadsOutsideTheFile) {
  std::mt19937 rng(20240611);
  std::size_t ringsEnd = header.rings[6].offset + header.rings[6].capacity;
  std::uniform_int_distribution<std::size_t> region(0, 2);
  for (int round = 0; round < 400; ++round) {
    std::string b = bytes;
    for (int k = 0; k < 4; ++k) {
      std::size_t lo = 0, hi = sizeof(FileHeader);
      if (auto r = region(rng); r == 1) {
        lo = header.descOffset, hi = header.descOffset + header.descUsed;
      } else if (r == 2) {
        lo = header.rings[0].offset, hi = ringsEnd;
      }
      b[std::uniform_int_distribution<std::size_t>(lo, hi - 1)(rng)] = static_cast<char>(rng());
    }
    if (round % 4 == 0) b.resize(std::uniform_int_distribution<std::size_t>(0, b.size())(rng));
    auto f = RingLog::decode(b);
    for (std::size_t k = 0; k < f.records.size(); ++k) {
      ASSERT_TRUE(f.records[k].level >= 0 && f.records[k].level < 10);
      if (k) {
        ASSERT_LT(f.records[k - 1].seq, f.records[k].seq);
      }
    }
  }
}

}  // namespace
