#include "HulNextHopRoom.h"

#include "GantAssert.h"
#include "GantTrace.h"

#include <algorithm>

namespace Hul {

static Gant::TraceHandle traceHandle( "HulNextHopRoom" );

void NextHopRoom::placesOf( const NextHopCollection & nextHops, Places & out ) {
   out.clear();
   for ( const auto & [ nextHop, multiplicity ] : nextHops ) {
      if ( multiplicity == 0 ) continue;
      if ( !!nextHop.l3Intf() ) out.push_back( { { nextHop.l3Intf(), false }, 1 } );
      const auto tunnel = nextHop.staticInterfaceTunnelIntfId();
      if ( !!tunnel ) out.push_back( { { tunnel, true }, 1 } );
   }
   std::ranges::sort( out );
   size_t kept = 0;
   for ( size_t at = 0; at < out.size(); ++at )
      if ( kept != 0 && out[ kept - 1 ].first == out[ at ].first )
         ++out[ kept - 1 ].second;
      else
         out[ kept++ ] = out[ at ];
   out.resize( kept );
}

std::optional< NextHopRoom::Table > NextHopRoom::lacking( const Places & more ) const {
   for ( const auto & [ table, places ] : more ) {
      const auto at = uses_.find( table );
      if ( ( at == uses_.end() ? 0 : at->second.used ) + places > limit( table ) ) return table;
   }
   return std::nullopt;
}

void NextHopRoom::take( const Places & places ) {
   for ( const auto & [ table, count ] : places ) {
      auto & use = uses_[ table ];
      use.used += count;
      GANT_ASSERT( use.used <= limit( table ), " interface ", table.intfId );
      if ( use.tight || U64( use.used ) * 10 < U64( limit( table ) ) * 9 ) continue;
      use.tight = true;
      GANT_TRACE( 0, text( table, use.used ) );
   }
}

void NextHopRoom::give( const Places & places ) {
   for ( const auto & [ table, count ] : places ) {
      const auto at = uses_.find( table );
      GANT_ASSERT( at != uses_.end() && at->second.used >= count, " interface ", table.intfId );
      auto & use = at->second;
      use.used -= count;
      if ( !use.waiting.empty() ) freed_.insert( table );
      if ( use.tight && U64( use.used ) * 10 < U64( limit( table ) ) * 8 ) {
         use.tight = false;
         GANT_TRACE( 0, text( table, use.used ), " again" );
      }
      if ( use.used == 0 && use.waiting.empty() ) uses_.erase( at );
   }
}

std::vector< AdjSm::NextHopUse > NextHopRoom::uses() const {
   std::vector< AdjSm::NextHopUse > out;
   out.reserve( uses_.size() );
   for ( const auto & [ table, use ] : uses_ )
      out.push_back( { table.intfId, table.resolve, use.used, limit( table ), use.waiting.size() } );
   std::ranges::sort( out, {}, []( const auto & use ) { return Table{ use.intfId, use.resolve }; } );
   return out;
}

Gant::String NextHopRoom::text( const Table & table, U32 used ) const {
   return table.intfId.stringValue() + Gant::format( ": %u of %u ", used, limit( table ) ) +
          ( table.resolve ? "resolved next hops are in use" : "next hops are in use" );
}

Gant::String NextHopRoom::reason( const Table & table ) const {
   const auto at = uses_.find( table );
   return "it does not fit on " + text( table, at == uses_.end() ? 0 : at->second.used );
}

NextHopRoom::Ticket NextHopRoom::wait( const Table & table, Number number ) {
   uses_[ table ].waiting.emplace( ++tickets_, number );
   return tickets_;
}

void NextHopRoom::unwait( const Table & table, Ticket ticket ) {
   const auto at = uses_.find( table );
   if ( at == uses_.end() ) return;
   at->second.waiting.erase( ticket );
   if ( at->second.used == 0 && at->second.waiting.empty() ) uses_.erase( at );
}

std::optional< NextHopRoom::Number > NextHopRoom::first( const Table & table ) const {
   const auto at = uses_.find( table );
   if ( at == uses_.end() || at->second.waiting.empty() ) return std::nullopt;
   return at->second.waiting.begin()->second;
}

std::optional< NextHopRoom::Table > NextHopRoom::nextFreed() {
   if ( freed_.empty() ) return std::nullopt;
   const auto table = *freed_.begin();
   freed_.erase( freed_.begin() );
   return table;
}

} // namespace Hul
