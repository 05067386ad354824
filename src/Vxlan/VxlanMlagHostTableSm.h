// The header a hosting agent includes: the container, its children and their factories.
#pragma once

#include "Vxlan/ActiveArpP2pSm.h"
#include "Vxlan/BfdPeerStatusSm.h"
#include "Vxlan/BumStatusToSdeSm.h"
#include "Vxlan/FloodListInputSelectorSm.h"
#include "Vxlan/PrimarySm.h"
#include "Vxlan/RemoteHostTableSm.h"
#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"
#include "Vxlan/SdeToBumStatusSm.h"
#include "Vxlan/SecondarySm.h"
#include "Vxlan/SmContainer.h"
#include "Vxlan/SourceDirEntryP2pSm.h"
#include "Vxlan/VlanConfigConfigSourceSm.h"
#include "Vxlan/VlanToVniMapSm.h"
#include "Vxlan/VlanToVniMapToP2pSm.h"
#include "Vxlan/VniToDynVlanMapToCorestateSm.h"
#include "Vxlan/VxlanBfdStatusSm.h"
