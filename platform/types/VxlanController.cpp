#include "types/VxlanController.h"

namespace VxlanController {

std::ostream& operator<<(std::ostream& os, BfdPeerStatusV2 const& s) {
  return os << "label=" << s.label() << ", ip=" << s.ip() << ", status=" << unsigned{s.status()}
            << ", remoteStatus=" << unsigned{s.remoteStatus()};
}

std::ostream& operator<<(std::ostream& os, MacVtepV2 const& m) {
  return os << "macAddr=" << m.macAddr() << ", vtepIp=" << m.vtepIp() << ", seqNum=" << m.seqNum()
            << ", preference=" << unsigned{m.preference()};
}

}  // namespace VxlanController
