// PrimarySm: the role state machine of the MLAG primary. From the switch's own inputs it fills
// sentVxStatus, which the transport carries to the peer; it owns the VLAN-to-VNI exchange of
// this side (VlanToVniMapSm, made at its first run) and, when the role ends, leaves both status
// objects clean for the next role.
#pragma once

#include <tuple>

#include "Vxlan/VlanToVniMapSm.h"
#include "entities/Arp/InputConfig.h"
#include "entities/Bfd/StatusPeer.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/StateMachine.h"

namespace MlagVxlan {

class PrimarySm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<PrimarySm>;

  PrimarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
            Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
            Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
            Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
            Brix::Ptr<Mlag::Status const> mlagStatus);
  static void PrimarySmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                          Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                          Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                          Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                          Brix::Ptr<Arp::InputConfig const> arpInputConfig, Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer,
                          Brix::Ptr<Mlag::Status const> mlagStatus);

  char const* typeData() const override { return "MlagVxlan::PrimarySm"; }

  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_; }
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const& vtepStatusDir() const noexcept {
    return vtepStatusDir_.ptr();
  }
  Brix::Ptr<Arp::InputConfig const> const& arpInputConfig() const noexcept { return arpInputConfig_.ptr(); }
  Brix::Ptr<Bfd::StatusPeer> const& bfdStatusPeer() const noexcept { return bfdStatusPeer_; }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const {
    return std::tie(sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, vtiStatusDir_, vtepStatusDir_.ptr(),
                    arpInputConfig_.ptr(), bfdStatusPeer_, mlagStatus_);
  }

  VlanToVniMapSm::Ptr vlanToVniMapSmIs(Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                       Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                       Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                       Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                       Brix::Ptr<Mlag::Status const> mlagStatus) {
    return vlanToVniMapSm_.is(std::move(vtiStatusDir), std::move(sentVxStatus), std::move(recvVxStatus),
                              std::move(localVxStatus), std::move(mlagStatus));
  }
  VlanToVniMapSm::Ptr vlanToVniMapSmDel() { return vlanToVniMapSm_.del(); }
  VlanToVniMapSm* vlanToVniMapSm() const noexcept { return vlanToVniMapSm_.get(); }

  void handleInitialized();
  void doCleanup();

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  // Whether the ARP input configures `vrf`; no input configures none.
  bool vrfConfigured(L3::VrfName const& vrf) const;

  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Brix::Ptr<Vxlan::VtiStatusDir const> const vtiStatusDir_;
  Vok::Input<VxlanController::VtepStatusDirV2> vtepStatusDir_;
  Vok::Input<Arp::InputConfig> arpInputConfig_;
  Brix::Ptr<Bfd::StatusPeer> const bfdStatusPeer_;
  Brix::Ptr<Mlag::Status const> const mlagStatus_;
  Vok::Child<VlanToVniMapSm> vlanToVniMapSm_{this};
  bool initialized_ = false;
};

PrimarySm::Ptr primarySmFactory(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
                                Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                                Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                                Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                                Brix::Ptr<Arp::InputConfig const> arpInputConfig,
                                Brix::Ptr<Bfd::StatusPeer> bfdStatusPeer, Brix::Ptr<Mlag::Status const> mlagStatus);

}  // namespace MlagVxlan
