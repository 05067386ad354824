// SecondarySm: the role state machine of the MLAG secondary. It applies what the primary
// publishes in recvVxStatus to localVxStatus, tells the primary through sentVxStatus which VLANs
// the pair may use as shared dynamic VLANs, owns the VLAN-to-VNI exchange of this side, and,
// when the role ends, leaves both status objects clean for the next role.
#pragma once

#include <cstdint>
#include <tuple>

#include "Vxlan/VlanToVniMapSm.h"
#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/Mlag/VxlanStatus.h"
#include "entities/Vxlan/VtiStatus.h"
#include "entities/VxlanController/VtepStatus.h"
#include "runtime/StateMachine.h"

namespace MlagVxlan {

class SecondarySm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<SecondarySm>;

  SecondarySm(Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
              Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
              Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
              Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
              Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
              Brix::Ptr<Mlag::Status const> mlagStatus);
  static void SecondarySmIs(Ptr& out, Brix::Ptr<Mlag::VxlanStatus> sentVxStatus,
                            Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus, Brix::Ptr<Mlag::VxlanStatus> localVxStatus,
                            Brix::Ptr<Bridging::Config const> bridgingConfig,
                            Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir,
                            Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
                            Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir,
                            Brix::Ptr<Mlag::Status const> mlagStatus);

  char const* typeData() const override { return "MlagVxlan::SecondarySm"; }

  Brix::Ptr<Mlag::VxlanStatus> const& sentVxStatus() const noexcept { return sentVxStatus_; }
  Brix::Ptr<Mlag::VxlanStatus const> const& recvVxStatus() const noexcept { return recvVxStatus_.ptr(); }
  Brix::Ptr<Mlag::VxlanStatus> const& localVxStatus() const noexcept { return localVxStatus_; }
  Brix::Ptr<Bridging::Config const> const& bridgingConfig() const noexcept { return bridgingConfig_.ptr(); }
  Brix::Ptr<Bridging::Flat::VlanConfigDir const> const& vlanConfigFlatDir() const noexcept {
    return vlanConfigFlatDir_.ptr();
  }
  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_; }
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const& vtepStatusDir() const noexcept { return vtepStatusDir_; }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_; }
  bool initialized() const noexcept { return initialized_; }
  auto vokArgs() const {
    return std::tie(sentVxStatus_, recvVxStatus_.ptr(), localVxStatus_, bridgingConfig_.ptr(), vlanConfigFlatDir_.ptr(),
                    vtiStatusDir_, vtepStatusDir_, mlagStatus_);
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

  // The VLAN range that may be offered for dynamic use, from the bridging configuration's two
  // bounds, taken in either order: a VLAN outside [min, max] is not offered. Both bounds 0 means
  // that no range is configured, and every VLAN may be offered.
  static bool outsideVlanRange(Bridging::VlanId vlan, std::uint16_t bound1, std::uint16_t bound2) noexcept;

 protected:
  void destructorCleanup() override { doCleanup(); }

 private:
  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus_;
  Vok::Input<Mlag::VxlanStatus> recvVxStatus_;
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus_;
  Vok::Input<Bridging::Config> bridgingConfig_;
  Vok::Input<Bridging::Flat::VlanConfigDir> vlanConfigFlatDir_;
  Brix::Ptr<Vxlan::VtiStatusDir const> const vtiStatusDir_;
  Brix::Ptr<VxlanController::VtepStatusDirV2 const> const vtepStatusDir_;
  Brix::Ptr<Mlag::Status const> const mlagStatus_;
  Vok::Child<VlanToVniMapSm> vlanToVniMapSm_{this};
  bool initialized_ = false;
};

SecondarySm::Ptr secondarySmFactory(
    Brix::Ptr<Mlag::VxlanStatus> sentVxStatus, Brix::Ptr<Mlag::VxlanStatus const> recvVxStatus,
    Brix::Ptr<Mlag::VxlanStatus> localVxStatus, Brix::Ptr<Bridging::Config const> bridgingConfig,
    Brix::Ptr<Bridging::Flat::VlanConfigDir const> vlanConfigFlatDir, Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir,
    Brix::Ptr<VxlanController::VtepStatusDirV2 const> vtepStatusDir, Brix::Ptr<Mlag::Status const> mlagStatus);

}  // namespace MlagVxlan
