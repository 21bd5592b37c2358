#include "VexCommonData.h"

namespace Vex {

NatSharedData::~NatSharedData() = default;

L2L3SharedData::~L2L3SharedData() = default;

AclSharedData::~AclSharedData() = default;

} // namespace Vex
