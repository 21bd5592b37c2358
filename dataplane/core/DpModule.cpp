#include "DpModule.h"

#include "DpWalk.h"

namespace Vexdp {

void Module::processAll( Packets packets, Context & context ) {
   context.each( packets, [ & ]( Packet & packet ) { return process( packet, context ); } );
}

bool Module::puntedBehind( GateId ogate, const Packet & packet ) const {
   constexpr unsigned kMostPassed = 8; // whoever connects the gates may have made a circle
   const auto * at = this;
   std::optional< GateId > gate = ogate;
   for ( unsigned passed = 0; gate && passed < kMostPassed; ++passed ) {
      if ( *gate >= at->ogates_.size() || at->ogates_[ *gate ].peer == nullptr ) return false;
      at = at->ogates_[ *gate ].peer;
      if ( at->punts( packet ) ) return true;
      gate = at->passGate();
   }
   return false;
}

void Module::countDrop( std::string_view reason ) {
   for ( auto & drop : drops_ )
      if ( drop.reason.data() == reason.data() ) {
         ++drop.packets;
         return;
      }
   drops_.push_back( { reason, 1 } );
}

std::uint64_t Module::deadEnds() const {
   std::uint64_t packets = 0;
   for ( const auto & drop : drops_ ) packets += drop.packets;
   return packets;
}

bool Module::resetCounters( bool out, std::optional< GateId > gate ) {
   const auto size = out ? ogates_.size() : igates_.size();
   if ( gate && *gate >= size ) return false;
   for ( std::size_t id = gate.value_or( 0 ); id < ( gate ? *gate + 1 : size ); ++id )
      ( out ? ogates_[ id ].counters : igates_[ id ] ) = {};
   return true;
}

} // namespace Vexdp
