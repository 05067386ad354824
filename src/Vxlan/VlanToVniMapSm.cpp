#include "Vxlan/VlanToVniMapSm.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "Vxlan/Trace.h"

namespace MlagVxlan {

namespace {

constexpr Vxlan::VtepType kMlagVtep = static_cast<Vxlan::VtepType>(3);
constexpr Vxlan::VtepType kLocalVtep = static_cast<Vxlan::VtepType>(1);
constexpr Vxlan::VtepType kAlternateVtep = static_cast<Vxlan::VtepType>(2);

// A VTEP type goes into the trace as its number.
std::uint8_t num(Vxlan::VtepType t) { return static_cast<std::uint8_t>(t); }

// The IPv4 and IPv6 VTEP address exchanges are twins: one algorithm, two families.
struct Ip4 {
  using Addr = Lanx::IpAddr;
  // The handlers' own names, for the text trace: the statements stand in the shared template.
  static constexpr char localFn[] = "handleLocalVtepAddr";
  static constexpr char peerFn[] = "handleVtepAddr";
  static constexpr char localEntry[] = "VlanToVniMapSm::handleLocalVtepAddr()";
  static constexpr char localReturn[] = "VlanToVniMapSm::handleLocalVtepAddr() return";
  static constexpr char peerEntry[] = "VlanToVniMapSm::handleVtepAddr()";
  static constexpr char peerReturn[] = "VlanToVniMapSm::handleVtepAddr() return";
  static constexpr char keyAdd[] = " VlanToVniMapSm::handleVtepAddr Add ({type},{addr})";
  static constexpr char keyDel[] = " VlanToVniMapSm::handleVtepAddr Del {type}";

  static bool isZero(Addr const& a) { return a == Addr(); }
  // In the order the types are published: 3, 1, 2.
  static std::array<std::pair<Vxlan::VtepType, Addr>, 3> vtiAddrs(Vxlan::VtiStatus const& s) {
    return {{{kMlagVtep, s.mlagVtepAddr()}, {kLocalVtep, s.localVtepAddr()}, {kAlternateVtep, s.alternateVtepAddr()}}};
  }
  static Addr get(Mlag::VxlanStatus const& v, Vxlan::VtepType t) { return v.vtepTypeAddr(t); }
  static bool has(Mlag::VxlanStatus const& v, Vxlan::VtepType t) { return v.vtepTypeAddrHas(t); }
  static void set(Mlag::VxlanStatus& v, Vxlan::VtepType t, Addr const& a) { v.vtepTypeAddrIs(t, a); }
  static void del(Mlag::VxlanStatus& v, Vxlan::VtepType t) { v.vtepTypeAddrDel(t); }
  static void delAll(Mlag::VxlanStatus& v) { v.vtepTypeAddrDelAll(); }
  static auto iter(Mlag::VxlanStatus const& v) { return v.vtepTypeAddrIter(); }
};

struct Ip6 {
  using Addr = Lanx::Ip6Addr;
  static constexpr char localFn[] = "handleLocalVtepAddr6";
  static constexpr char peerFn[] = "handleVtepAddr6";
  static constexpr char localEntry[] = "VlanToVniMapSm::handleLocalVtepAddr6()";
  static constexpr char localReturn[] = "VlanToVniMapSm::handleLocalVtepAddr6() return";
  static constexpr char peerEntry[] = "VlanToVniMapSm::handleVtepAddr6()";
  static constexpr char peerReturn[] = "VlanToVniMapSm::handleVtepAddr6() return";
  static constexpr char keyAdd[] = " VlanToVniMapSm::handleVtepAddr6 Add ({type},{addr})";
  static constexpr char keyDel[] = " VlanToVniMapSm::handleVtepAddr6 Del {type}";

  static bool isZero(Addr const& a) { return a.isZero(); }
  static std::array<std::pair<Vxlan::VtepType, Addr>, 3> vtiAddrs(Vxlan::VtiStatus const& s) {
    return {
        {{kMlagVtep, s.mlagVtepAddr6()}, {kLocalVtep, s.localVtepAddr6()}, {kAlternateVtep, s.alternateVtepAddr6()}}};
  }
  static Addr get(Mlag::VxlanStatus const& v, Vxlan::VtepType t) { return v.vtepTypeAddr6(t); }
  static bool has(Mlag::VxlanStatus const& v, Vxlan::VtepType t) { return v.vtepTypeAddr6Has(t); }
  static void set(Mlag::VxlanStatus& v, Vxlan::VtepType t, Addr const& a) { v.vtepTypeAddr6Is(t, a); }
  static void del(Mlag::VxlanStatus& v, Vxlan::VtepType t) { v.vtepTypeAddr6Del(t); }
  static void delAll(Mlag::VxlanStatus& v) { v.vtepTypeAddr6DelAll(); }
  static auto iter(Mlag::VxlanStatus const& v) { return v.vtepTypeAddr6Iter(); }
};

}  // namespace

VlanToVniMapSm::VlanToVniMapSm(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                               Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                               Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                               Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Mlag::Status const> mlagStatus)
    : vtiStatusDir_(this, std::move(vtiStatusDir), &vtiStatusDirDispatch),
      sentVxStatus_(std::move(sentVxStatus)),
      recvVxStatus_(this, std::move(recvVxStatus), &recvVxStatusDispatch),
      localVxStatus_(std::move(localVxStatus)),
      mlagStatus_(this, std::move(mlagStatus), &mlagStatusDispatch) {
  if (vtiStatusDir_) {
    for (auto it = vtiStatusDir_->vtiStatusIter(); !it.done(); it.advance()) {
      vtiStatusIs(it.currNodeMaybeStale().value);
    }
  }
  handleInitialized();
}

void VlanToVniMapSm::VlanToVniMapSmIs(Ptr& out, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                      Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                      Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                      Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                      Brix::Ptr<Mlag::Status const> mlagStatus) {
  Vok::smIs(out, std::move(vtiStatusDir), std::move(sentVxStatus), std::move(recvVxStatus), std::move(localVxStatus),
            std::move(mlagStatus));
}

VlanToVniMapSm::Ptr vlanToVniMapSmFactory(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                          Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                          Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                          Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                          Brix::Ptr<Mlag::Status const> mlagStatus) {
  VlanToVniMapSm::Ptr out;
  VlanToVniMapSm::VlanToVniMapSmIs(out, std::move(vtiStatusDir), std::move(sentVxStatus), std::move(recvVxStatus),
                                   std::move(localVxStatus), std::move(mlagStatus));
  return out;
}

Mlag::MlagState VlanToVniMapSm::mlagState() const noexcept {
  return mlagStatus_ ? mlagStatus_->mlagState() : Mlag::MlagState{};
}

bool VlanToVniMapSm::peerLinkDown() const noexcept {
  return mlagStatus_->peerLinkKnown() != 0 && (mlagStatus_->peerLinkDownFlag() & 1) != 0;
}

Vxlan::VtiStatus const* VlanToVniMapSm::vxlan1() const {
  return vtiStatusDir_ ? vtiStatusDir_->vtiStatus(::Vxlan1).get() : nullptr;
}

// ---- dispatch ----

// The directory's dispatch has no zombie test of its own: the collection follows the input
// whatever the state, and only the handler waits for a live object.
void VlanToVniMapSm::vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                          void const* key, void const*) noexcept {
  auto* self = subscriber->ownerAs<VlanToVniMapSm>();
  if (field != Vxlan::VtiStatusDir::vtiStatusField || !self->vtiStatusDir_) return;
  auto const& intfId = *static_cast<Lanx::IntfId const*>(key);
  if (auto status = self->vtiStatusDir_->vtiStatus(intfId)) {
    self->vtiStatusIs(status);
  } else {
    (void)self->vtiStatusDel(intfId);
  }
  if (!self->zombie()) self->handleVti();
}

void VlanToVniMapSm::recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                          void const* key, void const*) noexcept {
  if (field != Mlag::VxlanStatus::vtepTypeAddrField && field != Mlag::VxlanStatus::vtepTypeAddr6Field) return;
  auto* self = subscriber->ownerAs<VlanToVniMapSm>();
  if (self->zombie()) return;
  auto type = *static_cast<Vxlan::VtepType const*>(key);
  if (field == Mlag::VxlanStatus::vtepTypeAddrField) {
    self->handleVtepAddr(type);
  } else {
    self->handleVtepAddr6(type);
  }
}

void VlanToVniMapSm::mlagStatusDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                        void const*, void const*) noexcept {
  if (field != Mlag::Status::peerLinkKnownField && field != Mlag::Status::peerLinkDownFlagField) return;
  auto* self = subscriber->ownerAs<VlanToVniMapSm>();
  if (self->zombie()) return;
  self->handleFailover();
}

// handleVti may tear this reactor down: it holds itself meanwhile and goes on only if alive.
void VlanToVniMapSm::NestedSm_VtiStatus::onAttribute(Brix::FieldId field, void const*) {
  using S = Vxlan::VtiStatus;
  bool v4 = field == S::localVtepAddrField || field == S::alternateVtepAddrField;
  bool v6 = field == S::localVtepAddr6Field || field == S::alternateVtepAddr6Field;
  bool mlag4 = field == S::mlagVtepAddrField;
  bool mlag6 = field == S::mlagVtepAddr6Field;
  if (!(v4 || v6 || mlag4 || mlag6) || zombie() || !owner()) return;
  Brix::Ptr<NestedSm_VtiStatus> hold(this);
  if (mlag4 || mlag6) {
    owner()->handleVti();
    if (!alive()) return;
  }
  if (v4 || mlag4) {
    owner()->handleLocalVtepAddr();
  } else {
    owner()->handleLocalVtepAddr6();
  }
}

void VlanToVniMapSm::NestedSm_VtiStatus::onNotifierBound() {
  Brix::Ptr<NestedSm_VtiStatus> hold(this);
  owner()->handleVti();
  if (alive()) owner()->handleLocalVtepAddr();
  if (alive()) owner()->handleLocalVtepAddr6();
}

// ---- the exchange core ----

void VlanToVniMapSm::handleVti() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapSm::handleVti()");
  bool isPrimary = mlagStatus_ && mlagState() == Mlag::MlagState::primary;
  bool wantPublishers = false;
  bool wantApplier = false;
  if (auto const* vti = vxlan1()) {
    if (vti->mlagVtepAddr() != Lanx::IpAddr() || !vti->mlagVtepAddr6().isZero()) {
      VXLAN_TRACE(6, " Multi-VTEP MLAG");
      wantPublishers = wantApplier = true;
    } else {
      wantPublishers = isPrimary;
      wantApplier = !isPrimary;
    }
  }
  if (wantApplier) {
    VXLAN_TRACE(6, " Create vniToDynVlanMapToCorestateSm");
    vniToDynVlanMapToCorestateSmIs(recvVxStatus_.ptr(), localVxStatus_, mlagState());
  } else {
    // Detached, silenced, then dropped: its cleanup withdraws the dynamic VLANs it applied.
    (void)vniToDynVlanMapToCorestateSmDel();
  }
  if (wantPublishers) {
    VXLAN_TRACE(6, " Create vlanToVniMapToP2pSm");
    // A VTI deleted and made again is another status object under the same id (and a state
    // changed before the role is replaced, another mlagState): the old publisher goes first.
    // Its cleanup withdraws the whole published map, so once every old one is gone, the
    // publishers that stay publish theirs again and the new ones make their first run.
    bool replaced = false;
    for (auto it = vtiStatusDir_->vtiStatusIter(); !it.done(); it.advance()) {
      auto const& node = it.currNodeMaybeStale();
      if (vlanToVniMapToP2pSm_.hasOtherArgs(node.key, node.value, sentVxStatus_, mlagState())) {
        (void)vlanToVniMapToP2pSmDel(node.key);
        replaced = true;
      }
    }
    for (auto it = vtiStatusDir_->vtiStatusIter(); !it.done(); it.advance()) {
      auto const& node = it.currNodeMaybeStale();
      if (auto* kept = vlanToVniMapToP2pSm(node.key); kept && replaced) {
        kept->handleVlanToVniMap();
      } else {
        vlanToVniMapToP2pSmIs(node.key, node.value, sentVxStatus_, mlagState());
      }
    }
  } else {
    vlanToVniMapToP2pSmDelAll();
  }
  VXLAN_TRACE(5, "VlanToVniMapSm::handleVti() return");
}

void VlanToVniMapSm::handleFailover() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapSm::handleFailover()");
  if (peerLinkDown()) {
    // The peer is gone: what it told is withdrawn.
    localVxStatus_->vtepTypeAddrDelAll();
    localVxStatus_->vtepTypeAddr6DelAll();
  } else {
    handleVtepAddr();
    handleVtepAddr6();
  }
  VXLAN_TRACE(5, "VlanToVniMapSm::handleFailover() return");
}

void VlanToVniMapSm::handleInitialized() {
  VXLAN_TRACE(5, "VlanToVniMapSm::handleInitialized()");
  initialized_ = true;
  handleVti();
  handleLocalVtepAddr();
  handleVtepAddr();
  handleLocalVtepAddr6();
  handleVtepAddr6();
  VXLAN_TRACE(5, "VlanToVniMapSm::handleInitialized() return");
}

// Open to inspection tools; nothing in the library calls it.
void VlanToVniMapSm::cleanup() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "VlanToVniMapSm::cleanup()");
  (void)vniToDynVlanMapToCorestateSmDel();
  vlanToVniMapToP2pSmDelAll();
  VXLAN_TRACE(5, "VlanToVniMapSm::cleanup() return");
}

// ---- the VTEP address exchange ----

// Publishes Vxlan1's addresses by type. A stale entry is found by its address, not its type:
// a type whose address fell to 0 stays while another type holds the same address.
template <class F>
void VlanToVniMapSm::handleLocalVtepAddrOf() {
  if (!initialized_) return;
  VXLAN_TRACE_FN(F::localFn, 5, F::localEntry);
  auto const* vti = vxlan1();
  if (!vti) {
    VXLAN_TRACE_FN(F::localFn, 6, " DelAll");
    F::delAll(*sentVxStatus_);
    return;
  }
  std::array<typename F::Addr, 3> found{};
  std::size_t n = 0;
  for (auto const& [type, addr] : F::vtiAddrs(*vti)) {
    if (F::isZero(addr)) continue;
    VXLAN_TRACE_FN(F::localFn, 6, " Add ({type},{addr})", num(type), addr);
    F::set(*sentVxStatus_, type, addr);
    found[n++] = addr;
  }
  for (auto it = F::iter(*sentVxStatus_); !it.done(); it.advance()) {
    auto const& node = it.currNodeMaybeStale();
    if (std::find(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(n), node.value) !=
        found.begin() + static_cast<std::ptrdiff_t>(n)) {
      continue;
    }
    Vxlan::VtepType type = node.key;
    VXLAN_TRACE_FN(F::localFn, 6, " Del {type}", num(type));
    F::del(*sentVxStatus_, type);
  }
  VXLAN_TRACE_FN(F::localFn, 5, F::localReturn);
}

// Copies the peer's addresses to localVxStatus; the stale test goes by type.
template <class F>
void VlanToVniMapSm::handleVtepAddrOf() {
  if (!initialized_ || peerLinkDown()) return;
  VXLAN_TRACE_FN(F::peerFn, 5, F::peerEntry);
  if (recvVxStatus_) {
    for (auto it = F::iter(*recvVxStatus_); !it.done(); it.advance()) {
      auto const& node = it.currNodeMaybeStale();
      VXLAN_TRACE_FN(F::peerFn, 6, " Add ({type},{addr})", num(node.key), node.value);
      F::set(*localVxStatus_, node.key, node.value);
    }
  }
  for (auto it = F::iter(*localVxStatus_); !it.done(); it.advance()) {
    Vxlan::VtepType type = it.currNodeMaybeStale().key;
    if (recvVxStatus_ && F::has(*recvVxStatus_, type)) continue;
    VXLAN_TRACE_FN(F::peerFn, 6, " Del {type}", num(type));
    F::del(*localVxStatus_, type);
  }
  VXLAN_TRACE_FN(F::peerFn, 5, F::peerReturn);
}

template <class F>
void VlanToVniMapSm::handleVtepAddrOf(Vxlan::VtepType type) {
  if (!initialized_ || peerLinkDown()) return;
  if (recvVxStatus_ && F::has(*recvVxStatus_, type)) {
    auto addr = F::get(*recvVxStatus_, type);
    VXLAN_TRACE_FN(F::peerFn, 6, F::keyAdd, num(type), addr);
    F::set(*localVxStatus_, type, addr);
  } else {
    VXLAN_TRACE_FN(F::peerFn, 6, F::keyDel, num(type));
    F::del(*localVxStatus_, type);
  }
}

void VlanToVniMapSm::handleLocalVtepAddr() { handleLocalVtepAddrOf<Ip4>(); }
void VlanToVniMapSm::handleLocalVtepAddr6() { handleLocalVtepAddrOf<Ip6>(); }
void VlanToVniMapSm::handleVtepAddr() { handleVtepAddrOf<Ip4>(); }
void VlanToVniMapSm::handleVtepAddr6() { handleVtepAddrOf<Ip6>(); }
void VlanToVniMapSm::handleVtepAddr(Vxlan::VtepType type) { handleVtepAddrOf<Ip4>(type); }
void VlanToVniMapSm::handleVtepAddr6(Vxlan::VtepType type) { handleVtepAddrOf<Ip6>(type); }

}  // namespace MlagVxlan
