// What the state machine suites share: the text trace switched on and captured, the guard that
// every node a test made is gone, the inputs and outputs of one switch's role, and readable
// forms of values and of the shared VLAN set.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Vxlan/PrimarySm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/Trace.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/Node.h"
#include "support/RingLogDir.h"
#include "trace/TextTrace.h"
#include "vxlan/PublicationRecorder.h"

namespace TestSupport {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

// A value's text as operator<< writes it.
template <class T>
std::string str(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

// Sorted lines joined, each ended by a newline.
inline std::string joined(std::set<std::string> const& lines) {
  std::string out;
  for (auto const& l : lines) out += l + "\n";
  return out;
}

// A collection as a sorted map of the (key, value) pairs `entry` makes of its nodes.
template <class Map, class It, class Entry>
Map entries(It it, Entry entry) {
  Map out;
  for (; !it.done(); it.advance()) out.insert(entry(it.currNodeNonStale()));
  return out;
}

using VlanSet = std::set<std::uint16_t>;
inline VlanSet vlanRange(std::uint16_t lo, std::uint16_t hi) {
  VlanSet s;
  for (std::uint32_t v = lo; v <= hi; ++v) s.insert(static_cast<std::uint16_t>(v));
  return s;
}
// The members of sharedDynVlan, or only those that hold true.
inline VlanSet shared(Mlag::VxlanStatus const& s, bool onlyTrue = false) {
  VlanSet out;
  for (auto it = s.sharedDynVlanIter(); !it.done(); it.advance()) {
    if (!onlyTrue || it.currNodeNonStale().value) out.insert(it.currNodeNonStale().key.value());
  }
  return out;
}

// The system's text trace on at `mask` and captured for the life of the object. A probe runs
// when a line of its text goes out, so a test sees the world at that moment.
class Trace : public Vok::TraceCapture {
 public:
  explicit Trace(std::uint32_t mask = 1u << 5 | 1u << 6) { MlagVxlan::_defaultTraceHandle()->levelMaskIs(mask); }
  ~Trace() override { MlagVxlan::_defaultTraceHandle()->levelMaskIs(0); }
  Trace(Trace const&) = delete;
  Trace& operator=(Trace const&) = delete;

  void write(Vok::TraceLine const& l) override {
    TraceCapture::write(l);
    if (auto it = probes.find(lines().back().text); it != probes.end()) it->second();
  }
  // The lines equal to `t`, or beginning with it.
  std::size_t count(std::string_view t, bool prefix = false) const {
    return static_cast<std::size_t>(std::count_if(
        lines().begin(), lines().end(), [&](auto& l) { return prefix ? l.text.starts_with(t) : l.text == t; }));
  }
  // The position of the first line with `t`, or -1.
  long indexOf(std::string_view t) const {
    auto it = std::find_if(lines().begin(), lines().end(), [&](auto& l) { return l.text == t; });
    return it == lines().end() ? -1 : static_cast<long>(it - lines().begin());
  }
  int levelOf(std::string_view t) const { return indexOf(t) < 0 ? -1 : lines()[std::size_t(indexOf(t))].level; }
  // Each line present, in the order given.
  void expectInOrder(std::vector<std::string> const& ls) const {
    long last = -1;
    for (auto const& l : ls) EXPECT_GT(indexOf(l), last) << l, last = std::max(last, indexOf(l));
  }
  // The lines so far, then none.
  std::vector<std::string> take() {
    auto t = texts();
    clear();
    return t;
  }
  std::vector<Line> takeLines() {
    auto l = lines();
    clear();
    return l;
  }
  // The lines so far as "level|text", then none.
  std::vector<std::string> leveled() {
    std::vector<std::string> out;
    for (auto const& l : takeLines()) out.push_back(std::to_string(l.level) + "|" + l.text);
    return out;
  }

  std::map<std::string, std::function<void()>> probes;
};

// Declared first, checked last: every node the test made is gone once the fixture's members are.
struct NoNodesLeft {
  std::int64_t baseline = Brix::Node::liveCount();
  ~NoNodesLeft() { EXPECT_EQ(Brix::Node::liveCount(), baseline) << "a test left nodes behind"; }
};

// Runs one case of a property and fails it if the case left nodes behind.
template <class Body>
void leavesNoNodes(Body body) {
  auto const baseline = Brix::Node::liveCount();
  body();
  RC_ASSERT(Brix::Node::liveCount() == baseline);
}

// One switch's role: its three status objects and every input either role reads, but for the
// optional ones a suite leaves null.
struct RoleInputs {
  enum Without : unsigned { withAll = 0, noVtiDir = 1, noVtepDir = 2, noArpInput = 4, noFlatDir = 8 };
  explicit RoleInputs(unsigned without = withAll) {
    if (without & noVtiDir) vtiDir = nullptr;
    if (without & noVtepDir) vtepDir = nullptr;
    if (without & noArpInput) arpInput = nullptr;
    if (without & noFlatDir) flatDir = nullptr;
  }
  MlagVxlan::PrimarySm::Ptr primary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::primary);
    return MlagVxlan::primarySmFactory(sent, recv, local, vtiDir, vtepDir, arpInput, bfdPeer, mlagStatus);
  }
  MlagVxlan::SecondarySm::Ptr secondary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
    return MlagVxlan::secondarySmFactory(sent, recv, local, bridgingConfig, flatDir, vtiDir, vtepDir, mlagStatus);
  }

  Brix::Ptr<Mlag::VxlanStatus> sent = Brix::newNode<Mlag::VxlanStatus>(), recv = Brix::newNode<Mlag::VxlanStatus>(),
                               local = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Vxlan::VtiStatusDir> vtiDir = Brix::newNode<Vxlan::VtiStatusDir>();
  Brix::Ptr<VxlanController::VtepStatusDirV2> vtepDir = Brix::newNode<VxlanController::VtepStatusDirV2>();
  Brix::Ptr<Arp::InputConfig> arpInput = Brix::newNode<Arp::InputConfig>();
  Brix::Ptr<Bfd::StatusPeer> bfdPeer = Brix::newNode<Bfd::StatusPeer>();
  Brix::Ptr<Mlag::Status> mlagStatus = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Bridging::Config> bridgingConfig = Brix::newNode<Bridging::Config>();
  Brix::Ptr<Bridging::Flat::VlanConfigDir> flatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
};

// A fixture of one switch's role. The guard comes first, so it checks once the inputs are gone.
class RoleTest : private NoNodesLeft, public ::testing::Test, protected RoleInputs {
 protected:
  explicit RoleTest(unsigned without) : RoleInputs(without) {}
};

}  // namespace TestSupport
