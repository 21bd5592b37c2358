#include "HostNotify.h"

#ifdef VEXL3_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace Host {

namespace {

void notify( [[maybe_unused]] const std::string & text ) {
#ifdef VEXL3_SYSTEMD
   sd_notify( 0, text.c_str() );
#endif
}

} // namespace

void notifyReady( const std::string & status ) { notify( "READY=1\nSTATUS=" + status ); }
void notifyReloading() { notify( "RELOADING=1" ); }
void notifyStopping() { notify( "STOPPING=1" ); }
void notifyStatus( const std::string & status ) { notify( "STATUS=" + status ); }

} // namespace Host
