// RemoteHostTableSm: tells the MLAG peer about the MAC addresses behind VXLAN tunnels. When
// the FDB or the VXLAN FDB changes for one MAC and VLAN, handleRemoteMacEntry decides whether
// the MAC goes to the peer, writes its entry to sentP2pHostTable, and corrects the last move
// time in mlagHostTable when the peer told the same MAC.
//
// Nothing runs until the peers' monotonic clock offset is valid; the whole-table walk at that
// moment makes up for what was missed. A controller MAC whose controller record is missing is
// deferred in a queue that the runtime clock retries in batches (RemoteHostTableSmDeferred.cpp).
#pragma once

#include <cstdint>
#include <tuple>

#include "entities/Bridging/Config.h"
#include "entities/Mlag/Status.h"
#include "entities/MlagP2p/HostTable.h"
#include "entities/Shoal/Status.h"
#include "entities/Vxlan/VtiStatus.h"
#include "runtime/Clock.h"
#include "runtime/Dir.h"
#include "runtime/RQueue.h"
#include "runtime/StateMachine.h"
#include "types/Bridging.h"
#include "types/Lanx.h"
#include "types/Shoal.h"
#include "types/Vxlan.h"
#include "types/VxlanController.h"

namespace MlagVxlan {

class RemoteHostTableSm : public Vok::StateMachine {
 public:
  using Ptr = Brix::Ptr<RemoteHostTableSm>;

  // One per VTI of the directory: a new VLAN-to-VNI mapping replays the MACs of its VLAN, for a
  // controller MAC of that VLAN may now find its controller table.
  class NestedSm_VtiStatus : public Vok::Reactor<RemoteHostTableSm, Vxlan::VtiStatus> {
   public:
    NestedSm_VtiStatus(Brix::Ptr<Vxlan::VtiStatus const> const& vtiStatus, RemoteHostTableSm* owner)
        : Reactor(vtiStatus, owner) {}
    static Lanx::IntfId keyOf(Vxlan::VtiStatus const& s) { return s.intfId(); }
    char const* typeData() const override { return "MlagVxlan::RemoteHostTableSm::NestedSm_VtiStatus"; }
    void onAttribute(Brix::FieldId field, void const* key) override;
    void handleVlanToVniMap(Bridging::VlanId vlanId);
  };

  // Runs the deferred queue when the clock reaches timeMin.
  class VokVcsMacCheckClock : public Vok::Reactor<RemoteHostTableSm, Vok::Clock, Vok::Clock::Notifiee> {
   public:
    // Installing a clock runs the queue once.
    VokVcsMacCheckClock(Brix::Ptr<Vok::Clock const> const& clock, RemoteHostTableSm* owner);
    char const* typeData() const override { return "MlagVxlan::RemoteHostTableSm::VokVcsMacCheckClock"; }
    void onAttribute(Brix::FieldId field, void const* key) override;

   protected:
    void onNotifierBound() override;
  };

  static constexpr Brix::Duration vcsMacWaitTime = 10.0;

  RemoteHostTableSm(Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
                    Brix::Ptr<Bridging::Config const> bridgingConfig,
                    Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
                    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus,
                    Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus, Brix::Ptr<Mlag::Status const> mlagStatus,
                    Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
                    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir);
  static void RemoteHostTableSmIs(
      Ptr& out, Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
      Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
      Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
      Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
      Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir);

  char const* typeData() const override { return "MlagVxlan::RemoteHostTableSm"; }

  Brix::Ptr<MlagP2p::HostTable> const& sentP2pHostTable() const noexcept { return sentP2pHostTable_; }
  Brix::Ptr<Mlag::HostTable> const& mlagHostTable() const noexcept { return mlagHostTable_; }
  Brix::Ptr<Bridging::Config const> const& bridgingConfig() const noexcept { return bridgingConfig_; }
  Brix::Ptr<Shoal::Bridging::Status const> const& bridgingStatus() const noexcept { return bridgingStatus_.ptr(); }
  Brix::Ptr<Shoal::Vxlan::FdbStatus> const& vxlanFdbStatus() const noexcept { return vxlanFdbStatus_.ptr(); }
  Brix::Ptr<Mlag::ProtoStatus const> const& mlagProtoStatus() const noexcept { return mlagProtoStatus_.ptr(); }
  Brix::Ptr<Mlag::Status const> const& mlagStatus() const noexcept { return mlagStatus_; }
  Brix::Ptr<Vok::Dir const> const& controllerStatusBaseDir() const noexcept { return controllerStatusBaseDir_; }
  Brix::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const noexcept { return vtiStatusDir_.ptr(); }
  auto vokArgs() const {
    return std::tie(sentP2pHostTable_, mlagHostTable_, bridgingConfig_, bridgingStatus_.ptr(), vxlanFdbStatus_.ptr(),
                    mlagProtoStatus_.ptr(), mlagStatus_, controllerStatusBaseDir_, vtiStatusDir_.ptr());
  }

  // What the peer sent: set by the host table's transport, which may leave it null.
  Brix::Ptr<MlagP2p::HostTable const> const& recvP2pHostTable() const noexcept { return recvP2pHostTable_; }
  void recvP2pHostTableIs(Brix::Ptr<MlagP2p::HostTable const> t) { recvP2pHostTable_ = std::move(t); }

  Brix::Ptr<NestedSm_VtiStatus> vtiStatusIs(Brix::Ptr<Vxlan::VtiStatus const> const& status) {
    return vtiStatus_.is(status);
  }
  Brix::Ptr<Vxlan::VtiStatus const> vtiStatusDel(Lanx::IntfId intfId) { return vtiStatus_.del(intfId); }
  void vtiStatusDelAll() { vtiStatus_.delAll(); }
  NestedSm_VtiStatus* vtiStatus(Lanx::IntfId intfId) const { return vtiStatus_(intfId); }
  std::size_t vtiStatusCount() const noexcept { return vtiStatus_.size(); }

  void handleShoalFdbStatus(Bridging::HostKey const& key);
  void handleVxlanFdbStatus(Vxlan::MacVlanPair const& key);
  void handleVxlanFdbStatus();
  VxlanController::MacVtepV2 getVcsMacEntry(Shoal::Bridging::ShoalFdbStatus const& fdbEntry) const;
  void handleRemoteMacEntry(Lanx::EthAddr const& mac, std::uint16_t vlanId);
  void handlePeerOffsetValid();
  bool okToProcessEvents() const noexcept { return peerOffsetValid() && initialized_; }

  std::uint32_t maxCodefMacs() const noexcept { return maxCodefMacs_; }
  void maxCodefMacsIs(std::uint32_t n) noexcept { maxCodefMacs_ = n; }

  void deferredVcsMacEnq(Bridging::HostKey const& key) { deferredVcsMac_.push(key); }
  Bridging::HostKey deferredVcsMacDeq() {
    Bridging::HostKey key = deferredVcsMac_.front();
    deferredVcsMac_.pop();
    return key;
  }
  Bridging::HostKey deferredVcsMacFront() const { return deferredVcsMac_.front(); }
  Bridging::HostKey deferredVcsMacBack() const { return deferredVcsMac_.back(); }
  void deferredVcsMacDelAll() { deferredVcsMac_.clear(); }
  std::size_t deferredVcsMacCount() const noexcept { return deferredVcsMac_.size(); }

  VokVcsMacCheckClock* vcsMacCheckClock() const noexcept { return vcsMacCheckClock_.get(); }
  void vcsMacCheckClockIs(Brix::Ptr<Vok::Clock> const& clock) { vcsMacCheckClock_.is(clock); }
  void processDeferredVcsMacs();
  void doCleanup();

  bool initialized() const noexcept { return initialized_; }

  static void bridgingStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;
  static void vxlanFdbStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                     void const*) noexcept;
  static void mlagProtoStatusDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                      void const*) noexcept;
  static void vtiStatusDirDispatch(Brix::Publisher const*, Brix::Subscriber*, Brix::FieldId, void const*,
                                   void const*) noexcept;

 private:
  bool peerOffsetValid() const noexcept { return mlagProtoStatus_ && mlagProtoStatus_->peerMonotonicOffsetValid(); }
  // The next pass of the queue, `wait` seconds from now.
  void vcsMacCheckIn(Brix::Duration wait);
  // Calls f(key) for each host learned behind a tunnel, until the end or damage.
  template <class F>
  void walkLearnedHosts(F&& f) const {
    if (vxlanFdbStatus_) vxlanFdbStatus_->learnedHost().walkUntilDamaged(f);
  }

  Brix::Ptr<MlagP2p::HostTable> const sentP2pHostTable_;
  Brix::Ptr<Mlag::HostTable> const mlagHostTable_;
  Brix::Ptr<Bridging::Config const> const bridgingConfig_;
  Vok::Input<Shoal::Bridging::Status> bridgingStatus_;
  Vok::Input<Shoal::Vxlan::FdbStatus, Shoal::Vxlan::FdbStatus> vxlanFdbStatus_;
  Vok::Input<Mlag::ProtoStatus> mlagProtoStatus_;
  Brix::Ptr<Mlag::Status const> const mlagStatus_;
  Brix::Ptr<Vok::Dir const> const controllerStatusBaseDir_;
  Vok::Input<Vxlan::VtiStatusDir> vtiStatusDir_;
  Brix::Ptr<MlagP2p::HostTable const> recvP2pHostTable_;
  Vok::InputCollection<Lanx::IntfId, NestedSm_VtiStatus> vtiStatus_{this, "MlagVxlan::RemoteHostTableSm", "vtiStatus"};
  std::uint32_t maxCodefMacs_ = 100;
  Brix::RQueue<Bridging::HostKey> deferredVcsMac_;
  Vok::ReactorPtr<VokVcsMacCheckClock> vcsMacCheckClock_{this};
  bool initialized_ = false;
};

RemoteHostTableSm::Ptr remoteHostTableSmFactory(
    Brix::Ptr<MlagP2p::HostTable> sentP2pHostTable, Brix::Ptr<Mlag::HostTable> mlagHostTable,
    Brix::Ptr<Bridging::Config const> bridgingConfig, Brix::Ptr<Shoal::Bridging::Status const> bridgingStatus,
    Brix::Ptr<Shoal::Vxlan::FdbStatus> vxlanFdbStatus, Brix::Ptr<Mlag::ProtoStatus const> mlagProtoStatus,
    Brix::Ptr<Mlag::Status const> mlagStatus, Brix::Ptr<Vok::Dir const> controllerStatusBaseDir,
    Brix::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir);

}  // namespace MlagVxlan
