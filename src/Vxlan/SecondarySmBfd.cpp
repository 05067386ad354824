// The secondary's copy of the primary's BFD state: two row collections and the collection of
// per-VTEP entities, each with a child that watches its entity.
#include "Vxlan/SecondarySm.h"
#include "Vxlan/Trace.h"

namespace MlagVxlan {

namespace {

using Status = Mlag::VxlanStatus;
using Row = VxlanController::BfdPeerStatusV2;

// What tells the two row collections apart: their mutators and the words of their traces.
struct VtepBfdRows {
  static constexpr char name[] = "handleVtepBfdStatus";
  static constexpr char entryText[] = "SecondarySm::handleVtepBfdStatus()";
  static constexpr char exitText[] = "SecondarySm::handleVtepBfdStatus() return";
  static constexpr char addText[] = " SecondarySm::handleVtepBfdStatus Add BFD peer status {ip}";
  static constexpr char delText[] = " SecondarySm::handleVtepBfdStatus Del BFD peer status {ip}";
  static Row row(Status const& s, Lanx::IpAddr ip) { return s.bfdPeerStatus(ip); }
  static auto iter(Status const& s) { return s.bfdPeerStatusIter(); }
  static void add(Status& s, Row const& r) { s.bfdPeerStatusIs(r); }
  static void del(Status& s, Lanx::IpAddr ip) { s.bfdPeerStatusDel(ip); }
  static void delAll(Status& s) { s.bfdPeerStatusDelAll(); }
};

struct MlagBfdRows {
  static constexpr char name[] = "handleMlagBfdPeerStatus";
  static constexpr char entryText[] = "SecondarySm::handleMlagBfdPeerStatus()";
  static constexpr char exitText[] = "SecondarySm::handleMlagBfdPeerStatus() reuturn";
  static constexpr char addText[] = " SecondarySm::handleMlagBfdPeerStatus Add MLAG BFD peer status {ip}";
  static constexpr char delText[] = " SecondarySm::handleMlagBfdPeerStatus Del MLAG BFD peer status {ip}";
  static Row row(Status const& s, Lanx::IpAddr ip) { return s.mlagBfdPeerStatus(ip); }
  static auto iter(Status const& s) { return s.mlagBfdPeerStatusIter(); }
  static void add(Status& s, Row const& r) { s.mlagBfdPeerStatusIs(r); }
  static void del(Status& s, Lanx::IpAddr ip) { s.mlagBfdPeerStatusDel(ip); }
  static void delAll(Status& s) { s.mlagBfdPeerStatusDelAll(); }
};

}  // namespace

// A row equal to the default counts as missing.
template <class Rows>
void SecondarySm::handleBfdRow(Lanx::IpAddr ip) {
  if (!initialized_) return;
  Row const status = Rows::row(*recvVxStatus_, ip);
  if (!status.isEq(Row{})) {
    VXLAN_TRACE_FN(Rows::name, 6, Rows::addText, ip);
    Rows::add(*localVxStatus_, status);
  } else {
    VXLAN_TRACE_FN(Rows::name, 6, Rows::delText, ip);
    Rows::del(*localVxStatus_, ip);
  }
}

// Rebuilds rather than reconciles: the output is emptied whole, then each of the peer's rows
// is copied.
template <class Rows>
void SecondarySm::handleBfdRows() {
  if (!initialized_) return;
  VXLAN_TRACE_FN(Rows::name, 5, Rows::entryText);
  Rows::delAll(*localVxStatus_);
  for (auto it = Rows::iter(*recvVxStatus_); !it.done(); it.advance()) {
    handleBfdRow<Rows>(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE_FN(Rows::name, 5, Rows::exitText);
}

void SecondarySm::handleVtepBfdStatus() { handleBfdRows<VtepBfdRows>(); }
void SecondarySm::handleVtepBfdStatus(Lanx::IpAddr ip) { handleBfdRow<VtepBfdRows>(ip); }
void SecondarySm::handleMlagBfdPeerStatus() { handleBfdRows<MlagBfdRows>(); }
void SecondarySm::handleMlagBfdPeerStatus(Lanx::IpAddr ip) { handleBfdRow<MlagBfdRows>(ip); }

void SecondarySm::dropVxlanBfdStatusSm(Mlag::VtiVtep const& vtiVtep) {
  if (auto child = vxlanBfdStatusSmDel(vtiVtep)) child->doCleanup();
}

void SecondarySm::handleVxlanBfdPeerStatus(Mlag::VtiVtep const& vtiVtep) {
  if (!initialized_) return;
  VXLAN_TRACE(5, "SecondarySm::handleVxlanBfdPeerStatus({vtiVtep.vtep})", vtiVtep.vtep());
  if (auto entity = recvVxStatus_->allVxlanBfdPeerStatus(vtiVtep)) {
    // The peer's entity deleted and made again under the key while this role did not hear of
    // it: the old child withdraws its key before the new one publishes it.
    vxlanBfdStatusSm_.isDroppingOther([this](Mlag::VtiVtep const& k) { dropVxlanBfdStatusSm(k); }, vtiVtep, entity,
                                      localVxStatus_);
  } else {
    dropVxlanBfdStatusSm(vtiVtep);
  }
  VXLAN_TRACE(5, "SecondarySm::handleVxlanBfdPeerStatus({vtiVtep.vtep}) return", vtiVtep.vtep());
}

// Reconciles the children only: a key of localVxStatus that no child stands for stays.
void SecondarySm::handleVxlanBfdPeerStatus() {
  if (!initialized_) return;
  VXLAN_TRACE(5, "SecondarySm::handleVxlanBfdPeerStatus()");
  for (auto it = vxlanBfdStatusSm_.map().begin(); !it.done(); it.advance()) {
    Mlag::VtiVtep const key = it.currNodeMaybeStale().key;
    if (!recvVxStatus_->allVxlanBfdPeerStatusHas(key)) dropVxlanBfdStatusSm(key);
  }
  for (auto it = recvVxStatus_->allVxlanBfdPeerStatusIter(); !it.done(); it.advance()) {
    handleVxlanBfdPeerStatus(it.currNodeMaybeStale().key);
  }
  VXLAN_TRACE(5, "SecondarySm::handleVxlanBfdPeerStatus() return");
}

}  // namespace MlagVxlan
