// The MLAG agent's state, its protocol's state, and the local host table. Read only here.
#pragma once

#include <cstdint>

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/Time.h"
#include "types/Lanx.h"
#include "types/Mlag.h"

namespace Mlag {

#define MLAG_STATUS_ATTRIBUTES(A)           \
  A(scalar, mlagState, Mlag::MlagState)     \
  A(scalar, peerLinkKnown, std::uint8_t)    \
  A(scalar, peerLinkDownFlag, std::uint8_t) \
  A(scalar, peerMacAddr, Lanx::EthAddr)

class Status : public Vok::Entity {
  VOK_ENTITY(Status, "Mlag::Status", MLAG_STATUS_ATTRIBUTES)
};

#define MLAG_PROTO_STATUS_ATTRIBUTES(A)          \
  A(scalar, peerMonotonicOffset, Brix::Duration) \
  A(scalar, peerP2pVersion, std::uint32_t)       \
  A(scalar, peerMonotonicOffsetValid, bool)      \
  A(scalar, peerMonotonicOffsetFlag, bool)

class ProtoStatus : public Vok::Entity {
  VOK_ENTITY(ProtoStatus, "Mlag::ProtoStatus", MLAG_PROTO_STATUS_ATTRIBUTES)
};

#define MLAG_HOST_TABLE_ATTRIBUTES(A) A(records, hostEntry, Mlag::HostEntryKey, Mlag::HostEntry)

class HostTable : public Vok::Entity {
  VOK_ENTITY(HostTable, "Mlag::HostTable", MLAG_HOST_TABLE_ATTRIBUTES)
};

}  // namespace Mlag
