#include "BenchScenario.h"

#include "DpPrefixes.h"
#include "HulHelper.h"
#include "VexAdjHelper.h"
#include "VexRoute4Helper.h"

#include <numeric>

namespace Bench {

namespace {

// Apart from the numbers that the layer gives.
U64 adjIndex( U32 adjacency ) { return ( U64( 1 ) << 40 ) + adjacency; }

U32 adjacencyAt( std::size_t position ) { return U32( position % adjacencies ); }

// A lone change takes a route anywhere in the table.
std::size_t loneAt( std::size_t index, std::size_t routes ) { return index * 7919 % routes; }

} // namespace

std::size_t Sizes::operations( Phase phase ) const {
   switch ( phase ) {
   case Phase::adjacencies: return adjacencyChanges;
   case Phase::loneAdjacency:
   case Phase::loneRoute: return loneChanges;
   case Phase::move: return 1;
   default: return routes;
   }
}

Order::Order( std::size_t routes, bool sorted ) : sorted_( sorted ) {
   auto prefixes = DpBench::backbonePrefixes( routes );
   if ( sorted ) std::ranges::sort( prefixes );
   prefixes_.reserve( routes );
   for ( const auto & prefix : prefixes ) prefixes_.emplace_back( Kynet::IpAddr( prefix.addr.value ), prefix.len );
   if ( sorted ) return;
   shuffled_.resize( routes );
   std::iota( shuffled_.begin(), shuffled_.end(), 0 );
   std::ranges::shuffle( shuffled_, std::mt19937( 7 ) );
}

std::size_t Order::at( Phase phase, std::size_t index ) const {
   if ( phase == Phase::loneRoute ) return loneAt( index, prefixes_.size() );
   if ( sorted_ || phase == Phase::add ) return index;
   return shuffled_[ phase == Phase::del ? prefixes_.size() - 1 - index : index ];
}

HelperDoer::HelperDoer( const Order & order, const Gant::Ptr< Vex::Channel > & channel ) :
     order_( order ), router_( state_, channel ), adjacencyOf_( order.prefixes().size() ) {
   runUntilSettled( *channel );
   for ( U32 n = 0; n <= commonAdjacency; ++n ) {
      const auto adjacency = Gant::make< Hul::L2Adjacency >( Hul::L2AdjKey( adjIndex( n ) ) );
      adjacency->viaIs( nextHopsOf( n, false ) );
      router_.agent->adjHelper()->createAdj( adjacency );
      adjacencies_.push_back( { adjacency, nextHopsOf( n, true ) } );
   }
   runUntilSettled( *channel );
}

HelperDoer::~HelperDoer() = default;

void HelperDoer::route( std::size_t position, U64 from, U64 to ) {
   const auto info = []( U64 adj ) { return adj == 0 ? Hul::RouteInfo() : Hul::RouteInfo( 1, adj ); };
   router_.agent->route4Helper()->updateRoute( order_.prefixes()[ position ], Hul::VrfId( 0 ), info( from ), info( to ),
                                               ++sequence_ );
}

void HelperDoer::change( U32 n ) {
   adjacencies_[ n ].adjacency->viaSwap( adjacencies_[ n ].spare );
   router_.agent->adjHelper()->updateAdj( adjacencies_[ n ].adjacency );
}

void HelperDoer::step( Phase phase, std::size_t begin, std::size_t end ) {
   for ( auto index = begin; index < end; ++index ) {
      if ( phase == Phase::adjacencies || phase == Phase::loneAdjacency ) {
         change( adjacencyAt( index ) );
         continue;
      }
      if ( phase == Phase::move ) {
         change( commonAdjacency );
         continue;
      }
      const auto position = order_.at( phase, index );
      const auto from = phase == Phase::add ? 0 : adjIndex( adjacencyOf_[ position ] );
      auto & to = adjacencyOf_[ position ];
      if ( phase == Phase::add )
         to = U8( adjacencyAt( position ) );
      else
         to = U8( phase == Phase::loneRoute ? adjacencyAt( to + 1 ) : commonAdjacency );
      route( position, from, phase == Phase::del ? 0 : adjIndex( to ) );
   }
}

FedDoer::FedDoer( const Order & order, const Gant::Ptr< Vex::Channel > & channel ) :
     order_( order ), adjacencyOf_( order.prefixes().size() ), other_( commonAdjacency + 1 ) {
   for ( U32 n = 0; n <= commonAdjacency; ++n ) state_.fib->fecIs( n, viasOf( n, false ) );
   router_.emplace( state_, channel );
   runUntilSettled( *channel );
}

void FedDoer::restart( const Gant::Ptr< Vex::Channel > & channel ) {
   router_.reset();
   router_.emplace( state_, channel );
   runUntilSettled( *channel );
}

void FedDoer::change( U32 n ) {
   other_[ n ] = !other_[ n ];
   state_.fib->fecIs( n, viasOf( n, other_[ n ] ) );
}

void FedDoer::route( std::size_t position, U32 adjacency ) {
   adjacencyOf_[ position ] = U8( adjacency );
   state_.fib->routeIs( 0, order_.prefixes()[ position ], Mirel::Route( Mirel::RouteType::forward(), adjacency, 0 ) );
}

void FedDoer::step( Phase phase, std::size_t begin, std::size_t end ) {
   for ( auto index = begin; index < end; ++index ) {
      const auto position = [ & ] { return order_.at( phase, index ); };
      switch ( phase ) {
      case Phase::add: route( position(), adjacencyAt( position() ) ); break;
      case Phase::adjacencies:
      case Phase::loneAdjacency: change( adjacencyAt( index ) ); break;
      case Phase::loneRoute: route( position(), adjacencyAt( adjacencyOf_[ position() ] + 1u ) ); break;
      case Phase::change: route( position(), commonAdjacency ); break;
      case Phase::move: change( commonAdjacency ); break;
      case Phase::del: state_.fib->routeDel( 0, order_.prefixes()[ position() ] ); break;
      }
   }
}

Recording::Recording( const Order & order, const Sizes & sizes ) {
   HelperDoer doer( order, kept_ );
   preparation_ = kept_->kept();
   for ( const auto phase : allPhases ) {
      auto & begins = begins_[ phase ];
      for ( std::size_t index = 0; index < sizes.operations( phase ); ++index ) {
         begins.push_back( U32( kept_->kept() ) );
         doer.step( phase, index, index + 1 );
      }
      begins.push_back( U32( kept_->kept() ) );
   }
}

void Recording::repeat( std::size_t begin, std::size_t end, Vex::Channel & channel,
                        Vex::Channel::OriginId origin ) const {
   for ( auto index = begin; index < end; ++index ) kept_->repeat( index, channel, origin );
}

void Recording::repeat( Phase phase, std::size_t begin, std::size_t end, Vex::Channel & channel,
                        Vex::Channel::OriginId origin ) const {
   const auto & begins = begins_.at( phase );
   repeat( begins[ begin ], begins[ end ], channel, origin );
}

void Recording::repeatPreparation( Vex::Channel & channel, Vex::Channel::OriginId origin ) const {
   repeat( 0, preparation_, channel, origin );
}

FloorDoer::FloorDoer( const Recording & recording, const Gant::Ptr< Vex::Channel > & channel ) :
     recording_( recording ), channel_( channel ), origin_( channel->originAdd( this ) ) {
   recording_.repeatPreparation( *channel_, origin_ );
   runUntilSettled( *channel_ );
}

FloorDoer::~FloorDoer() { channel_->originDel( origin_ ); }

void FloorDoer::step( Phase phase, std::size_t begin, std::size_t end ) {
   recording_.repeat( phase, begin, end, *channel_, origin_ );
}

void runPhase( Doer & doer, Phase phase, std::size_t operations ) {
   // An adjacency's change is about nine requests.
   const std::size_t slice = phase == Phase::adjacencies ? 512 : 4096;
   std::size_t done = 0;
   runUntilSettled( doer.channel(), [ & ] {
      const auto end = std::min( operations, done + slice );
      doer.step( phase, std::exchange( done, end ), end );
      return done < operations;
   } );
}

} // namespace Bench
