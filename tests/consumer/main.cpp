// Makes a container, brings a child up and down, and checks what the child wrote.
#include <Vxlan/VxlanMlagHostTableSm.h>

int main() {
  auto sent = Brix::newNode<Mlag::VxlanStatus>();
  auto recv = Brix::newNode<Mlag::VxlanStatus>();
  auto local = Brix::newNode<Mlag::VxlanStatus>();
  sent->scheduledMlagPeerArpSyncIs(true);
  recv->scheduledMlagPeerArpSyncIs(true);

  auto container = MlagVxlan::smContainerFactory("consumer");
  container->scheduledMlagPeerArpSyncSmIs(sent, recv, local);
  if (!local->scheduledMlagPeerArpSync()) return 1;
  (void)container->scheduledMlagPeerArpSyncSmDel();
  return local->scheduledMlagPeerArpSync() ? 2 : 0;
}
