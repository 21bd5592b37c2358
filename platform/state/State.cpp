#include "StateBridging.h"
#include "StateL3.h"
