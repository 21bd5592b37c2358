#include "DpModule.h"

#include "DpGraph.h"
#include "DpWalk.h"

#include <algorithm>

namespace Vexdp {

Module::Module( Identity identity ) :
     name_( std::move( identity.name ) ), mclass_( identity.mclass ), graph_( identity.graph ),
     tallies_( identity.graph.workers() ) {}

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

GateCounters & GateCounters::operator+=( const GateCounters & other ) {
   batches += other.batches;
   packets += other.packets;
   bytes += other.bytes;
   timestamp = std::max( timestamp, other.timestamp );
   return *this;
}

void Module::Tally::countDrop( std::string_view reason ) {
   for ( auto & drop : drops )
      if ( drop.reason.data() == reason.data() ) {
         ++drop.packets;
         return;
      }
   drops.push_back( { reason, 1 } );
}

void Module::growTo( bool out, GateId gate ) {
   if ( out && ogates_.size() <= gate ) ogates_.resize( gate + 1 );
   if ( !out ) igates_ = std::max< std::size_t >( igates_, gate + 1 );
   for ( unsigned worker = 0; worker < tallies_.size(); ++worker ) {
      tallies_[ worker ].out.resize( ogates_.size() );
      tallies_[ worker ].in.resize( igates_ );
   }
}

std::vector< Module::DropCount > Module::drops() const {
   std::vector< DropCount > sum;
   for ( unsigned worker = 0; worker < tallies_.size(); ++worker )
      for ( const auto & drop : tallies_[ worker ].drops ) {
         const auto at = std::ranges::find_if(
              sum, [ & ]( const auto & known ) { return known.reason.data() == drop.reason.data(); } );
         if ( at == sum.end() )
            sum.push_back( drop );
         else
            at->packets += drop.packets;
      }
   return sum;
}

std::uint64_t Module::deadEnds() const {
   std::uint64_t packets = 0;
   for ( const auto & drop : drops() ) packets += drop.packets;
   return packets;
}

GateCounters Module::counters( bool out, GateId gate ) const {
   GateCounters sum;
   for ( unsigned worker = 0; worker < tallies_.size(); ++worker )
      sum += ( out ? tallies_[ worker ].out : tallies_[ worker ].in )[ gate ];
   return sum;
}

bool Module::resetCounters( bool out, std::optional< GateId > gate ) {
   const auto size = out ? ogates_.size() : igates_;
   if ( gate && *gate >= size ) return false;
   for ( unsigned worker = 0; worker < tallies_.size(); ++worker ) {
      auto & gates = out ? tallies_[ worker ].out : tallies_[ worker ].in;
      for ( std::size_t id = gate.value_or( 0 ); id < ( gate ? *gate + 1 : size ); ++id ) gates[ id ] = {};
   }
   return true;
}

} // namespace Vexdp
