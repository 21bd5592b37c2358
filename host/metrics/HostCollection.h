// One snapshot in the making.
#pragma once

#include "HostDaemonControl.h"
#include "HostPorts.h"
#include "HostSamples.h"
#include "StateL3.h"
#include "VexTypes.h"

#include <optional>

namespace vex::pb {
class DropsReply;
}

namespace Host {

// Reads the daemon in steps, each of which looks at a bounded number of objects. What belongs to a session is left out
// where there is none, and the rest of it from where the session was lost in the middle.
class Collection {
 public:
   static constexpr size_t objectsAtOnce = 256;

   // `drops` may be null.
   Collection( DaemonControl & daemon, std::shared_ptr< const vex::pb::DropsReply > drops ) :
        daemon_( daemon ), drops_( std::move( drops ) ) {}
   // False: that was the last step.
   bool step();
   Families take() { return samples_.take(); }

 private:
   enum class Stage { daemon, session, vrfs, ports, drops, done };

   void next() { stage_ = static_cast< Stage >( static_cast< int >( stage_ ) + 1 ); }
   void daemon();
   void process();
   void sources();
   void session();
   void routes();
   void vrfs();
   void ports();
   void drops();
   void counters();

   DaemonControl & daemon_;
   const std::shared_ptr< const vex::pb::DropsReply > drops_;
   Samples samples_;
   Stage stage_ = Stage::daemon;
   std::optional< L3::VrfName > vrf_; // the last one that was looked at
   std::optional< PortKey > port_;
   int drop_ = 0; // of drops_
   std::optional< Vex::CounterId > counter_;
};

} // namespace Host
