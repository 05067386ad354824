#include "Vxlan/BumStatusToSdeSm.h"

#include "Vxlan/Trace.h"

namespace MlagVxlan {

using VokBumVtepListInput = BumStatusToSdeSm::VokBumVtepListInput;

namespace {

// A list that floods to all its VTEPs is a flood set of type all; anything else, of type any.
L2Rib::FloodSetType floodSetTypeOf(Vxlan::BumVtepIpListType t) {
  return t == Vxlan::BumVtepIpListType::all ? L2Rib::FloodSetType::all : L2Rib::FloodSetType::any;
}

// The VTEP address a destination stands for; none for a destination of another kind, which no
// list can hold.
Lanx::IpGenAddr vtepAddrOf(L2Rib::Dest const& dest) {
  return dest.destType() == L2Rib::destTypeVxlan() ? dest.vxlan().vtepAddr() : Lanx::IpGenAddr();
}

// The IPv4 and IPv6 addresses of a list are twins: one algorithm, two families.
struct Ip4 {
  using Addr = Lanx::IpAddr;
  static constexpr char fn[] = "handleRemoteVtepAddr";
  static constexpr char entry[] =
      "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleRemoteVtepAddr({addr})";
  static constexpr char exit[] =
      "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleRemoteVtepAddr({addr}) return";
  static bool present(Vxlan::BumVtepList const& l, Addr const& a) { return l.remoteVtepAddr(a); }
};

struct Ip6 {
  using Addr = Lanx::Ip6Addr;
  static constexpr char fn[] = "handleRemoteVtepAddr6";
  static constexpr char entry[] =
      "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleRemoteVtepAddr6({addr6})";
  static constexpr char exit[] =
      "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleRemoteVtepAddr6({addr6}) return";
  static bool present(Vxlan::BumVtepList const& l, Addr const& a) { return l.remoteVtepAddr6(a); }
};

}  // namespace

BumStatusToSdeSm::BumStatusToSdeSm(Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                   Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name)
    : bumStatusInput_(this, std::move(bumStatusInput), &bumStatusInputDispatch),
      sdeOutput_(std::move(sdeOutput)),
      name_(std::move(name)) {
  handleBumVtepList();
  if (bumStatusInput_) {
    for (auto it = bumStatusInput_->bumVtepListIter(); !it.done(); it.advance()) {
      bumVtepListInputIs(it.currNodeMaybeStale().value);
    }
  }
}

void BumStatusToSdeSm::BumStatusToSdeSmIs(Ptr& out, Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                          Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
  Vok::smIs(out, std::move(bumStatusInput), std::move(sdeOutput), std::move(name));
}

BumStatusToSdeSm::Ptr bumStatusToSdeSmFactory(Brix::Ptr<Vxlan::BumStatus const> bumStatusInput,
                                              Brix::Ptr<L2Rib::SourceDirEntry> sdeOutput, Brix::String name) {
  BumStatusToSdeSm::Ptr out;
  BumStatusToSdeSm::BumStatusToSdeSmIs(out, std::move(bumStatusInput), std::move(sdeOutput), std::move(name));
  return out;
}

void BumStatusToSdeSm::bumStatusInputDispatch(Brix::Publisher const*, Brix::Subscriber* subscriber, Brix::FieldId field,
                                              void const* key, void const*) noexcept {
  if (field != Vxlan::BumStatus::bumVtepListField) return;
  auto* self = subscriber->ownerAs<BumStatusToSdeSm>();
  if (self->zombie()) return;
  auto const& macVlanPair = *static_cast<Vxlan::MacVlanPair const*>(key);
  self->handleBumVtepList(macVlanPair);
  self->bumVtepListInput_.follow(macVlanPair, self->bumStatusInput_->bumVtepList(macVlanPair));
}

void BumStatusToSdeSm::handleBumVtepList() {
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::handleBumVtepList()", name_);
  for (auto v = sdeOutput_->vlanFloodSetIter(); !v.done(); v.advance()) {
    auto const& node = v.currNodeMaybeStale();
    Bridging::VlanId const vlanId = node.key;
    Brix::Ptr<L2Rib::VlanFloodSet> const vlanFloodSet = node.value;
    for (auto f = vlanFloodSet->floodSetIter(); !f.done(); f.advance()) {
      Lanx::EthAddr const mac = f.currNodeMaybeStale().key;
      if (hasList(Vxlan::MacVlanPair(mac, vlanId))) continue;
      VXLAN_TRACE(6, " Del stale flood set {mac}", mac);
      vlanFloodSet->floodSetDel(mac);
    }
    if (vlanFloodSet->floodSetCount() == 0) {
      VXLAN_TRACE(6, " Del stale vlan flood set {vlanId}", vlanId);
      sdeOutput_->vlanFloodSetDel(vlanId);
    }
  }
  if (bumStatusInput_) {
    for (auto it = bumStatusInput_->bumVtepListIter(); !it.done(); it.advance()) {
      handleBumVtepList(it.currNodeMaybeStale().key);
    }
  }
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::handleBumVtepList() return", name_);
}

void BumStatusToSdeSm::handleBumVtepList(Vxlan::MacVlanPair const& key) {
  if (hasList(key)) {
    VXLAN_TRACE(6, " ({name})::handleBumVtepList Add {macVlanPair}", name_, key);
    sdeOutput_->vlanFloodSetIs(key.vlanId())->floodSetIs(key.mac());
    return;
  }
  auto const vlanFloodSet = sdeOutput_->vlanFloodSet(key.vlanId());
  if (!vlanFloodSet) return;
  VXLAN_TRACE(6, " ({name})::handleBumVtepList Del {mac}", name_, key.mac());
  vlanFloodSet->floodSetDel(key.mac());
  if (vlanFloodSet->floodSetCount() == 0) {
    VXLAN_TRACE(6, " ({name})::handleBumVtepList Del {vlanId}", name_, key.vlanId());
    sdeOutput_->vlanFloodSetDel(key.vlanId());
  }
}

void BumStatusToSdeSm::doCleanup() {
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::doCleanup()", name_);
  if (sdeOutput_) sdeOutput_->vlanFloodSetDelAll();
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::doCleanup() return", name_);
}

// ---- one VTEP list ----

VokBumVtepListInput::VokBumVtepListInput(Brix::Ptr<Vxlan::BumVtepList const> const& bumVtepListInput,
                                         BumStatusToSdeSm* owner)
    : Reactor(bumVtepListInput, owner), macVlanPair_(bumVtepListInput->macVlanPair()) {
  handleInitialized();
}

void VokBumVtepListInput::onAttribute(Brix::FieldId field, void const* key) {
  using L = Vxlan::BumVtepList;
  if (field != L::remoteVtepAddrField && field != L::bumVtepIpListTypeField && field != L::remoteVtepAddr6Field) return;
  if (zombie() || !owner()) return;
  if (field == L::remoteVtepAddrField) {
    handleRemoteVtepAddr(*static_cast<Lanx::IpAddr const*>(key));
  } else if (field == L::remoteVtepAddr6Field) {
    handleRemoteVtepAddr6(*static_cast<Lanx::Ip6Addr const*>(key));
  } else {
    handleBumVtepIpListType();
  }
}

Brix::Ptr<L2Rib::FloodSet> VokBumVtepListInput::floodSetOutput() {
  return owner()->sdeOutput()->vlanFloodSetIs(macVlanPair_.vlanId())->floodSetIs(macVlanPair_.mac());
}

void VokBumVtepListInput::handleInitialized() {
  Brix::String const& name = owner()->name();
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleInitialized()", name,
              macVlanPair_);
  auto const floodSet = floodSetOutput();
  // A destination stays if the list has its address in either family, whatever the value: a
  // false one goes by the address's own step below.
  for (auto it = floodSet->destSetIter(); !it.done(); it.advance()) {
    L2Rib::Dest const dest = it.currNodeMaybeStale().key;
    Lanx::IpGenAddr const addr = vtepAddrOf(dest);
    if (input()->remoteVtepAddrHas(addr.v4Addr()) || input()->remoteVtepAddr6Has(addr.v6Addr())) continue;
    VXLAN_TRACE(6, " Del stale dest set {dest}", dest);
    floodSet->destSetDel(dest);
  }
  for (auto it = input()->remoteVtepAddrIter(); !it.done(); it.advance()) {
    handleRemoteVtepAddr(it.currNodeMaybeStale().key);
  }
  for (auto it = input()->remoteVtepAddr6Iter(); !it.done(); it.advance()) {
    handleRemoteVtepAddr6(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleInitialized() return", name,
              macVlanPair_);
}

void VokBumVtepListInput::handleBumVtepIpListType() {
  Brix::String const& name = owner()->name();
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleBumVtepIpListType()", name,
              macVlanPair_);
  auto const floodSet = floodSetOutput();
  Vxlan::BumVtepIpListType const listType = input()->bumVtepIpListType();
  VXLAN_TRACE(6, " BUM VTEP Ip List {bumVtepIpListType}", listType);
  floodSet->floodSetTypeIs(floodSetTypeOf(listType));
  VXLAN_TRACE(5, "BumStatusToSdeSm({name})::VokBumVtepListInput({macVlanPair})::handleBumVtepIpListType() return", name,
              macVlanPair_);
}

void VokBumVtepListInput::handleRemoteVtepAddr(Lanx::IpAddr addr) { handleRemoteVtepAddrOf<Ip4>(addr); }

void VokBumVtepListInput::handleRemoteVtepAddr6(Lanx::Ip6Addr const& addr6) { handleRemoteVtepAddrOf<Ip6>(addr6); }

// An address with the value true is a destination; without it (absent or false) its destination
// goes, and with the last one the flood set, and with the last flood set the VLAN.
template <class Family>
void VokBumVtepListInput::handleRemoteVtepAddrOf(typename Family::Addr const& addr) {
  Brix::String const& name = owner()->name();
  VXLAN_TRACE_FN(Family::fn, 5, Family::entry, name, macVlanPair_, addr);
  L2Rib::Dest const dest = L2Rib::canonicalVxlanDest(Lanx::IpGenAddr(addr));
  auto const& sdeOutput = owner()->sdeOutput();
  if (Family::present(*input(), addr)) {
    auto const floodSet = floodSetOutput();
    L2Rib::FloodSetType const floodSetType = floodSetTypeOf(input()->bumVtepIpListType());
    VXLAN_TRACE_FN(Family::fn, 6, " Set floods set {floodSetType}", floodSetType);
    floodSet->floodSetTypeIs(floodSetType);
    floodSet->destSetIs(dest, true);
  } else if (auto const vlanFloodSet = sdeOutput->vlanFloodSet(macVlanPair_.vlanId())) {
    if (auto const floodSet = vlanFloodSet->floodSet(macVlanPair_.mac())) {
      VXLAN_TRACE_FN(Family::fn, 6, " Del dest set {dest}", dest);
      floodSet->destSetDel(dest);
      if (floodSet->destSetCount() == 0) {
        VXLAN_TRACE_FN(Family::fn, 6, " Del flood set {mac}", macVlanPair_.mac());
        vlanFloodSet->floodSetDel(macVlanPair_.mac());
        if (vlanFloodSet->floodSetCount() == 0) {
          VXLAN_TRACE_FN(Family::fn, 6, " Del vlan flood set {vlanId}", macVlanPair_.vlanId());
          sdeOutput->vlanFloodSetDel(macVlanPair_.vlanId());
        }
      }
    }
  }
  VXLAN_TRACE_FN(Family::fn, 5, Family::exit, name, macVlanPair_, addr);
}

}  // namespace MlagVxlan
