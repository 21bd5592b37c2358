// What the service manager is told, where there is one.
#pragma once

#include <string>

namespace Host {

void notifyReady( const std::string & status );
void notifyReloading();
void notifyStopping();
void notifyStatus( const std::string & status );

} // namespace Host
