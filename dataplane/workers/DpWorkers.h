// The workers, by number from 0: which of them has which queue, and all of them at once.
//
//   what                                  whose
//   a receive queue                       one worker's, until the ports or the workers change, while all are held
//   a send queue                          one worker's where the device has as many; several's otherwise, with a lock
//   counters of gates, drops, the table   a block for each number (DpPerWorker.h), which whoever reads adds up
//   devices in the kernel: their carrier  the lowest worker's
//   everything else                       nobody's while packets flow: it is changed while all are held
//
// Queues are dealt out in turn, first those of devices, then those of devices in the kernel: as evenly as numbers go.
#pragma once

#include "DpWorker.h"

#include <atomic>
#include <memory>
#include <vector>

namespace Vexdp {

// Called by one thread at a time.
class Workers {
 public:
   // At most so many, from 1 to kMostWorkers; none at first. Both outlive it.
   Workers( PortTable & ports, const Eal & eal, unsigned most, bool busy ) :
        ports_( ports ), eal_( eal ), busy_( busy ), all_( most ) {}

   unsigned most() const { return unsigned( all_.size() ); }
   bool empty() const { return count() == 0; }
   unsigned count() const;
   // Null: there is none of the number.
   const Worker * find( std::int64_t number ) const;

   // REQUIRES: not held, number < most(), there is none of the number
   void add( unsigned number, const Worker::Way & way );
   // Its queues are dealt out to the others. REQUIRES: not held, there is one of the number
   void remove( unsigned number );

   // Each is between two turns: at once where it is asleep, else when the turn ends. In turns with letGo().
   void hold();
   void letGo();
   // In the midst of a hold: each that waits has its turn, and is held again.
   void breathe();

   // After a hold with portsChanged(): none still sleeps on a queue that it has no more, and so keeps its device open.
   void awaitAwake() const;

   // All while they are held.
   void portsChanged();
   void wayIs( const Worker::Way & way );
   void pausedIs( unsigned number, bool paused ) { all_[ number ]->pausedIs( paused ); }
   void goOn();
   // A watcher for each number, or none.
   template < typename WatcherOf >
   void watchersAre( WatcherOf && watcherOf ) {
      for ( unsigned number = 0; number < most(); ++number )
         if ( all_[ number ] ) all_[ number ]->watcherIs( watcherOf( number ) );
   }

 private:
   template < typename Do >
   void each( Do && act ) const {
      for ( const auto & worker : all_ )
         if ( worker ) act( *worker );
   }

   PortTable & ports_;
   const Eal & eal_;
   const bool busy_;
   alignas( kCacheLine ) std::atomic< bool > held_ = false;
   alignas( kCacheLine ) std::vector< std::unique_ptr< Worker > > all_; // by number
};

} // namespace Vexdp
