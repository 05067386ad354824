// VlanToVniMapSm: keeps the VTEP addresses and the VLAN-to-VNI knowledge of the two peers in
// step. It decides, from the MLAG state and whether Vxlan1 has an MLAG VTEP address of its own
// (multi-VTEP), which of its children exist: the publishers (one VlanToVniMapToP2pSm per VTI),
// the applier (VniToDynVlanMapToCorestateSm), or both. It hosts the VTEP address exchange, and
// withdraws the peer's addresses when the peer link goes down.
#pragma once

#include <tuple>

#include "Vxlan/VlanToVniMapToP2pSm.h"
#include "Vxlan/VniToDynVlanMapToCorestateSm.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/StateMachine.h"
#include "types/Lanx.h"
#include "types/Mlag.h"
#include "types/Vxlan.h"

namespace MlagVxlan {

class VlanToVniMapSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<VlanToVniMapSm>;

  // One per VTI of the directory: reacts to the VTI's VTEP addresses.
  class NestedSm_VtiStatus : public Vok::Reactor<VlanToVniMapSm, Vxlan::VtiStatus> {
   public:
    NestedSm_VtiStatus(Brix::Ptr<Vxlan::VtiStatus const> const& vtiStatus, VlanToVniMapSm* owner)
        : Reactor(vtiStatus, owner) {}
    static Lanx::IntfId keyOf(Vxlan::VtiStatus const& s) { return s.intfId(); }
    char const* typeData() const override { return "MlagVxlan::VlanToVniMapSm::NestedSm_VtiStatus"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

   protected:
    // Rebound to another status object under the same interface.
    void onNotifierBound() override;

   private:
    bool alive() const noexcept { return owner() && !zombie(); }
  };

  VlanToVniMapSm(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                 Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                 Brix::Ptr<Mlag::Status const> mlagStatus);
  static void VlanToVniMapSmIs(Ptr& out, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                               Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                               Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                               Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Mlag::Status const> mlagStatus);

  char const* typeData() const override { return "MlagVxlan::VlanToVniMapSm"; }

  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_.ptr(); }
  Mlag::MlagState mlagState() const noexcept;
  bool peerLinkDown() const noexcept;
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const {
    return std::tie(vtiStatusDir_.ptr(), sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, mlagStatus_.ptr());
  }

  void handleFailover();
  void handleVti();
  void handleLocalVtepAddr();
  void handleLocalVtepAddr6();
  void handleVtepAddr();
  void handleVtepAddr(Vxlan::VtepType type);
  void handleVtepAddr6();
  void handleVtepAddr6(Vxlan::VtepType type);
  void cleanup();
  void handleInitialized();

  Brix::Ptr<NestedSm_VtiStatus> vtiStatusIs(Brix::Ptr<Vxlan::VtiStatus const> const& status) {
    return vtiStatus_.is(status);
  }
  Brix::Ptr<Vxlan::VtiStatus const> vtiStatusDel(Lanx::IntfId intfId) { return vtiStatus_.del(intfId); }
  void vtiStatusDelAll() { vtiStatus_.delAll(); }
  NestedSm_VtiStatus* vtiStatus(Lanx::IntfId intfId) const { return vtiStatus_(intfId); }

  VlanToVniMapToP2pSm::Ptr vlanToVniMapToP2pSmIs(Lanx::IntfId intfId, Brix::Ptr<Vxlan::VtiStatus const> status,
                                                 Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Mlag::MlagState mlagState) {
    return vlanToVniMapToP2pSm_.is(intfId, std::move(status), std::move(sentVxStatus), mlagState);
  }
  VlanToVniMapToP2pSm::Ptr vlanToVniMapToP2pSmDel(Lanx::IntfId intfId) { return vlanToVniMapToP2pSm_.del(intfId); }
  void vlanToVniMapToP2pSmDelAll() { vlanToVniMapToP2pSm_.delAll(); }
  VlanToVniMapToP2pSm* vlanToVniMapToP2pSm(Lanx::IntfId intfId) const { return vlanToVniMapToP2pSm_(intfId); }
  std::size_t vlanToVniMapToP2pSmCount() const noexcept { return vlanToVniMapToP2pSm_.size(); }

  VniToDynVlanMapToCorestateSm::Ptr vniToDynVlanMapToCorestateSmIs(Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                                                   Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                                                   Mlag::MlagState mlagState) {
    return vniToDynVlanMapToCorestateSm_.is(std::move(recvVxStatus), std::move(localVxStatus), mlagState);
  }
  VniToDynVlanMapToCorestateSm::Ptr vniToDynVlanMapToCorestateSmDel() { return vniToDynVlanMapToCorestateSm_.del(); }
  VniToDynVlanMapToCorestateSm* vniToDynVlanMapToCorestateSm() const { return vniToDynVlanMapToCorestateSm_.get(); }

  static void vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;
  static void recvVxStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;
  static void mlagStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                 void const*) noexcept;

 private:
  template <class Family>
  void handleLocalVtepAddrOf();
  template <class Family>
  void handleVtepAddrOf();
  template <class Family>
  void handleVtepAddrOf(Vxlan::VtepType type);

  Vxlan::VtiStatus const* vxlan1() const;

  Vok::Input<Vxlan::VtiStatusDir> vtiStatusDir_;
  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Vok::Input<Mlag::Status> mlagStatus_;
  Vok::InputCollection<Lanx::IntfId, NestedSm_VtiStatus> vtiStatus_{this, "MlagVxlan::VlanToVniMapSm", "vtiStatus"};
  Vok::ChildCollection<Lanx::IntfId, VlanToVniMapToP2pSm> vlanToVniMapToP2pSm_{this, "MlagVxlan::VlanToVniMapSm",
                                                                               "vlanToVniMapToP2pSm"};
  Vok::Child<VniToDynVlanMapToCorestateSm> vniToDynVlanMapToCorestateSm_{this};
  bool initialized_ = false;
};

VlanToVniMapSm::Ptr vlanToVniMapSmFactory(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                          Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                          Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                          Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                          Brix::Ptr<Mlag::Status const> mlagStatus);

}  // namespace MlagVxlan
