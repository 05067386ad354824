// The system's trace statement:
//
//   VXLAN_TRACE(5, "PrimarySm::doCleanup()");
//   VXLAN_TRACE(6, "BfdPeerStatusSm({peer})::handleInitialized() return", peer);
//
// It writes to the library's ring-buffer handle (none until a container has made it) and to
// the text handle "VxlanMlagHostTableSm", whose lines carry the name of the enclosing function;
// VXLAN_TRACE_FN names the handler explicitly, for a statement in a lambda or a helper.
#pragma once

#include "trace/DualLog.h"

namespace MlagVxlan {

RingLog::TraceHandle* vxlanRlHandle() noexcept;

[[gnu::always_inline]] inline Vok::TraceHandle* _defaultTraceHandle() {
  static Vok::TraceHandle handle("VxlanMlagHostTableSm", false);
  return &handle;
}

}  // namespace MlagVxlan

#define VXLAN_TRACE_FN(function, level, ...)                                                                      \
  DUAL_LOG_AT("VxlanMlagHostTableSm", function, ::MlagVxlan::vxlanRlHandle(), ::MlagVxlan::_defaultTraceHandle(), \
              level, __VA_ARGS__)
#define VXLAN_TRACE(level, ...) VXLAN_TRACE_FN(__func__, level, __VA_ARGS__)
