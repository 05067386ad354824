// The fixture of the BFD and shared-VLAN tests: the inputs and outputs of both roles, a trace
// capture with lookups by text, and readable snapshots of the collections these tests compare.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Vxlan/PrimarySm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/Trace.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/VxlanController/VtepStatus.h"

namespace BfdVlanTest {

using Status = Mlag::VxlanStatus;
using Row = VxlanController::BfdPeerStatusV2;
using VlanSet = std::set<std::uint16_t>;
// Key to value, both as their text forms.
using Snapshot = std::map<std::string, std::string>;

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

template <class Iter>
Snapshot rowsOf(Iter it) {
  Snapshot out;
  for (; !it.done(); it.advance()) out[text(it.currNodeNonStale().key)] = text(it.currNodeNonStale().value);
  return out;
}
inline Snapshot rows(Status const& s, bool mlag) {
  return mlag ? rowsOf(s.mlagBfdPeerStatusIter()) : rowsOf(s.bfdPeerStatusIter());
}
inline Snapshot rows(VxlanController::VtepStatusV2 const& e) { return rowsOf(e.bfdPeerStatusIter()); }
inline Snapshot vxlanBfd(Status const& s) {
  Snapshot out;
  for (auto it = s.allVxlanBfdPeerStatusIter(); !it.done(); it.advance()) {
    out[text(it.currNodeNonStale().key)] = text(it.currNodeNonStale().value->operState());
  }
  return out;
}
inline VlanSet shared(Status const& s) {
  VlanSet out;
  for (auto it = s.sharedDynVlanIter(); !it.done(); it.advance()) {
    if (it.currNodeNonStale().value) out.insert(it.currNodeNonStale().key.value());
  }
  return out;
}
inline VlanSet vlanRange(std::uint16_t lo, std::uint16_t hi) {
  VlanSet s;
  for (std::uint32_t v = lo; v <= hi; ++v) s.insert(static_cast<std::uint16_t>(v));
  return s;
}

class Capture : public Vok::TraceCapture {
 public:
  std::size_t count(std::string_view t) const {
    return static_cast<std::size_t>(
        std::count_if(lines().begin(), lines().end(), [&](auto& l) { return l.text == t; }));
  }
  long indexOf(std::string_view t) const {
    auto it = std::find_if(lines().begin(), lines().end(), [&](auto& l) { return l.text == t; });
    return it == lines().end() ? -1 : static_cast<long>(it - lines().begin());
  }
  int levelOf(std::string_view t) const { return indexOf(t) < 0 ? -1 : lines()[std::size_t(indexOf(t))].level; }
  // The lines that begin with `prefix`, in order.
  std::vector<std::string> starting(std::string_view prefix) const {
    std::vector<std::string> out;
    for (auto const& l : lines()) {
      if (l.text.starts_with(prefix)) out.push_back(l.text);
    }
    return out;
  }
};

struct NoNodesLeft {
  std::int64_t baseline = Brix::Node::liveCount();
  ~NoNodesLeft() { EXPECT_EQ(Brix::Node::liveCount(), baseline) << "a test left nodes behind"; }
};

class Fixture : public ::testing::Test {
 protected:
  Fixture() { MlagVxlan::_defaultTraceHandle()->levelMaskIs(1u << 5 | 1u << 6 | 1u << 8); }
  ~Fixture() override { MlagVxlan::_defaultTraceHandle()->levelMaskIs(0); }

  MlagVxlan::PrimarySm::Ptr primary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::primary);
    return MlagVxlan::primarySmFactory(sent, recv, local, nullptr, vtepDir, nullptr, bfdPeer, mlagStatus);
  }
  MlagVxlan::SecondarySm::Ptr secondary() {
    mlagStatus->mlagStateIs(Mlag::MlagState::secondary);
    return MlagVxlan::secondarySmFactory(sent, recv, local, bridgingConfig, flatDir, nullptr, vtepDir, mlagStatus);
  }

  NoNodesLeft noNodesLeft;
  Capture trace;
  Brix::Ptr<Status> sent = Brix::newNode<Status>(), recv = Brix::newNode<Status>(), local = Brix::newNode<Status>();
  Brix::Ptr<VxlanController::VtepStatusDirV2> vtepDir = Brix::newNode<VxlanController::VtepStatusDirV2>();
  Brix::Ptr<Bfd::StatusPeer> bfdPeer = Brix::newNode<Bfd::StatusPeer>();
  Brix::Ptr<Mlag::Status> mlagStatus = Brix::newNode<Mlag::Status>();
  Brix::Ptr<Bridging::Config> bridgingConfig = Brix::newNode<Bridging::Config>();
  Brix::Ptr<Bridging::Flat::VlanConfigDir> flatDir = Brix::newNode<Bridging::Flat::VlanConfigDir>();
};

}  // namespace BfdVlanTest
