// Headers without a source of their own, compiled once on their own.
#include "HulFilteredVrfLists.h"
#include "HulIntfStatusSm.h"
#include "HulMonitoredNexthopSm.h"
#include "HulNexthopGroup.h"
#include "HulPrivateVlanLib.h"
#include "HulTunnelSm.h"
#include "HulTunnelTypes.h"
