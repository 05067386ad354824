// The header a hosting agent includes: the container, its children and their factories.
#pragma once

#include "Vxlan/ScheduledMlagPeerArpSyncSm.h"
#include "Vxlan/SmContainer.h"
