// An endpoint of the installed transport opens a connection: its hello and whole state go out.
#include <transport/Endpoint.h>

int main() {
  auto status = Brix::newNode<Mlag::Status>();
  auto proto = Brix::newNode<Mlag::ProtoStatus>();
  MlagVxlan::Transport::Endpoint endpoint("consumer", 1, status, proto);
  endpoint.opened();
  return endpoint.output().size() > 2 * MlagVxlan::Transport::frameHeaderBytes ? 0 : 1;
}
