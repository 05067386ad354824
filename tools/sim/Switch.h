// One simulated switch: the entities the library's state machines take, a container, and the
// hosting plug-in's decisions about which children exist.
#pragma once

#include <string>

#include "Vxlan/VxlanMlagHostTableSm.h"
#include "entities/Mlag/VxlanStatus.h"

namespace Sim {

class Switch {
 public:
  explicit Switch(std::string name);
  ~Switch();
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;

  std::string const& name() const noexcept { return name_; }

  Brix::Ptr<Mlag::VxlanStatus> const sentVxStatus = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> const recvVxStatus = Brix::newNode<Mlag::VxlanStatus>();
  Brix::Ptr<Mlag::VxlanStatus> const localVxStatus = Brix::newNode<Mlag::VxlanStatus>();

  MlagVxlan::SmContainer::Ptr const& container() const noexcept { return container_; }

  // The plug-in: brings up the children this switch should have now.
  void plugInRun();

 private:
  std::string name_;
  MlagVxlan::SmContainer::Ptr container_;
};

}  // namespace Sim
