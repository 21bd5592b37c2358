// The mark of an operation that the data plane has nothing for: its signature, and that it is still to be done.
#pragma once

#include "GantTrace.h"

#define NAT_PLACEHOLDER() GANT_TRACE( 3, __PRETTY_FUNCTION__, " TODO" )
