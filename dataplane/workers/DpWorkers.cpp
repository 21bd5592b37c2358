#include "DpWorkers.h"

#include <algorithm>
#include <cassert>

namespace Vexdp {

namespace {

// Who is waited for may need the processor that the waiting takes.
void awaitRest( const Worker & worker ) {
   constexpr unsigned kPatientTries = 256;
   for ( unsigned tries = 1; worker.working(); ++tries )
      if ( tries % kPatientTries == 0 )
         std::this_thread::yield();
      else
         __builtin_ia32_pause();
}

} // namespace

unsigned Workers::count() const {
   return unsigned( std::ranges::count_if( all_, []( const auto & worker ) { return worker != nullptr; } ) );
}

const Worker * Workers::find( std::int64_t number ) const {
   return number < 0 || number >= std::int64_t( most() ) ? nullptr : all_[ std::size_t( number ) ].get();
}

void Workers::add( unsigned number, const Worker::Way & way ) {
   assert( !held_ );
   all_[ number ] =
        std::make_unique< Worker >( Worker::Common{ ports_, eal_, held_, busy_ }, Seat{ number, most() }, way );
}

void Workers::remove( unsigned number ) {
   hold();
   const auto gone = std::move( all_[ number ] );
   gone->lanesAre( {}, {}, false );
   portsChanged();
   letGo();
}

void Workers::hold() {
   held_ = true;
   each( awaitRest );
}

void Workers::letGo() {
   held_ = false;
   held_.notify_all();
}

void Workers::awaitAwake() const {
   each( []( const Worker & worker ) {
      while ( worker.asleepOnOthers() ) std::this_thread::yield();
   } );
}

void Workers::breathe() {
   static_assert( kMostWorkers <= 64 );
   std::uint64_t waited = 0;
   for ( unsigned number = 0; number < most(); ++number )
      if ( all_[ number ] && all_[ number ]->waiting() ) waited |= std::uint64_t( 1 ) << number;
   letGo();
   for ( unsigned number = 0; number < most(); ++number )
      while ( waited >> number & 1 && all_[ number ]->waiting() ) std::this_thread::yield();
   hold();
}

void Workers::portsChanged() {
   const auto crew = count();
   if ( crew == 0 ) return;
   std::vector< std::vector< Worker::Lane > > lanes( crew );
   std::vector< Device * > devices;
   std::size_t dealt = 0;
   for ( const bool kernel : { false, true } )
      for ( const auto & [ name, port ] : ports_.ports() ) {
         if ( port.kernel != kernel ) continue;
         devices.push_back( port.device.get() );
         for ( unsigned queue = 0; queue < port.device->queues(); ++queue )
            lanes[ dealt++ % crew ].push_back( { port.device.get(), queue, port.wire.get(), kernel } );
      }
   ports_.carry();
   std::size_t at = 0;
   each( [ & ]( Worker & worker ) {
      worker.lanesAre( std::move( lanes[ at ] ), devices, at == 0 );
      ++at;
   } );
}

void Workers::wayIs( const Worker::Way & way ) {
   each( [ & ]( Worker & worker ) { worker.wayIs( way ); } );
}

void Workers::goOn() {
   each( []( Worker & worker ) { worker.pausedIs( false ); } );
}

} // namespace Vexdp
