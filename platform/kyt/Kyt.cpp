#include "KytHashMix.h"
