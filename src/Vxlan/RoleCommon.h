// What the two role state machines share.
#pragma once

#include "entities/Mlag/VxlanStatus.h"

namespace MlagVxlan {

// A role's last act on each of its two status objects: every VLAN from 1 to 4094 counts as
// shared again (VLANs 0 and 4095 are left as they are), and the BFD and VTEP address
// collections are emptied, so the next role starts from clean outputs.
void roleCleanupOf(Mlag::VxlanStatus& status);

}  // namespace MlagVxlan
