// The inside of AdjSm. Not for public headers.
#pragma once

#include "HulAdjSm.h"

#include "GantFlat.h"
#include "HulL2AdjHelper.h"
#include "HulL2AdjRequest.h"
#include "HulNeighbors.h"
#include "HulNextHopRoom.h"
#include "HulPosted.h"
#include "HulProgress.h"
#include "HulRoutePathSm.h"
#include "HulVrfSm.h"
#include "MirelSlab.h"

namespace Hul {

// What is owed to an adjacency.
GANT_ENUM( WalkState, U8, ( idle, 0 ), // no walk is owed
           ( scheduled, 1 ),           // in the queue
           ( waiting, 2 ) )            // the helper still wants one, and nothing has changed

using Numbers = Gant::OrderedSet< AdjSm::Number >;

struct Adj {
   Gant::Ptr< L2Adjacency > l2Adj; // null: the number is free
   Kynet::AddressFamily af;
   Mirel::Vias vias;
   Ways ways;
   std::vector< VrfAndIpAddr > followed; // ends of its tunnels
   U32 routes = 0;
   U32 taken = 0;                                 // of them, those that the data plane took
   bool created = false;                          // the helper holds it; while it waits for room, without next hops
   NextHopRoom::Places places{};                  // of what the helper holds
   std::optional< NextHopRoom::Table > lacking{}; // where it waits for room
   NextHopRoom::Ticket ticket = 0;                // with `lacking`
   bool walkGranted = false; // since the last change of a fact, a walk has been granted to the helper
   WalkState walk;
   U32 asked = 0; // the lower bits of the number of its last command, or of its refused one
   bool underWay = false;
   S32 error = 0;         // what the data plane refused one of its last commands with
   bool disabled = false; // nothing goes its ways: see AdjSm::disabledIntf()
};

struct ViasKey {
   Kynet::AddressFamily af;
   const Mirel::Vias & vias;
};

// The adjacencies by their vias, which are looked at in place.
struct ViasHash {
   using is_transparent = void;
   const Mirel::Slab< Adj > & adjs;
   size_t operator()( const ViasKey & key ) const {
      Gant::Hash hash( key.af.value() );
      for ( const auto & via : key.vias ) hash << via;
      return hash.value();
   }
   size_t operator()( AdjSm::Number number ) const {
      return ( *this )( ViasKey{ adjs[ number ].af, adjs[ number ].vias } );
   }
};

struct ViasEqual {
   using is_transparent = void;
   const Mirel::Slab< Adj > & adjs;
   bool operator()( AdjSm::Number a, AdjSm::Number b ) const { return a == b; }
   bool operator()( AdjSm::Number a, const ViasKey & b ) const {
      return adjs[ a ].af == b.af && adjs[ a ].vias == b.vias;
   }
   bool operator()( const ViasKey & a, AdjSm::Number b ) const { return ( *this )( b, a ); }
};

struct AdjSm::Impl {
   Impl( AdjSm & sm, Args args );
   ~Impl();

   // What reactors call.
   void handleNeighbor( const Arp::NeighborKey & key );
   void handleIntf( Kynet::IntfId intfId );
   void handleRoutingState( Kynet::IntfId intfId );
   void handleTunnel( Kynet::IntfId tunnelIntfId );
   void handlePaths( const VrfAndIpAddr & end );
   void handleVrfs();
   void handleAll();
   void handleReview();

   template < typename Index, typename Key >
   void reviewAll( Index & index, const Key & key );
   template < typename Do >
   void each( const Numbers & numbers, const Do & act );

   Number make( Kynet::AddressFamily af, const Mirel::Vias & vias );
   void maybeDelete( Number number );
   // From the vias, and the routes of tunnels, to the ways; the indexes follow.
   void bind( Number number );
   void indexIs( Number number, bool present );
   // From the ways, and the neighbours, to the next hops. True when they are others than before.
   bool resolve( Number number );
   NextHop nextHop( const Way & way, Kynet::AddressFamily af ) const;
   const Paths & pathsOf( Kynet::IntfId tunnelIntfId, Adj & adj );
   // The first fact that a way of the adjacency still lacks; empty: none.
   Gant::String lacks( const Adj & adj ) const;
   Gant::String lacks( const Way & way, const Adj & adj ) const;

   // Brings the adjacency to the helper: because a fact of it has changed, or for a walk as well.
   void tell( Number number );
   // Notes the commands that the helper's call queues as the adjacency's.
   template < typename Call >
   auto asked( Number number, const Call & call );
   void settled( const UnderWay< Number >::Entry & entry );
   void errorIs( Adj & adj, S32 error );
   void disabledIs( Adj & adj, bool disabled );
   // Where its taken routes are counted, null when packets go by them.
   U32 * over( const Adj & adj );
   AdjSm::TakenOver & takenOver( Kynet::AddressFamily af ) {
      return takenOverBy[ af == Kynet::AddressFamily::ipv4_ ? 0 : 1 ];
   }
   void update( Number number );
   bool created( Number number ) const;
   // The first time, or after a refusal. True: the helper has it from now on.
   bool offer( Number number );
   // Makes room for what the adjacency has become: beside what the helper holds of it, and where that does not fit, in
   // its place. False: it waits, and the helper holds no next hops of it.
   bool makeRoom( Number number );
   void waitFor( Number number, const NextHopRoom::Table & table );
   void waitNoMore( Number number );
   // Those for which room may have come.
   void fill();
   size_t fillSome( const NextHopRoom::Table & table, size_t most );
   void answered( Number number, const AdjUpdateReturnType & answer );
   void schedule( Number number );
   void walk();

   AdjSm & sm;
   Args args;
   Neighbors neighbors;
   Mirel::Slab< Adj > adjs;
   absl::flat_hash_set< Number, ViasHash, ViasEqual > byVias{ 0, ViasHash{ adjs }, ViasEqual{ adjs } };
   Gant::FlatMap< U64, Number > byIndex;
   Gant::FlatMap< Arp::NeighborKey, Numbers > byNeighbor;
   Gant::FlatMap< Kynet::IntfId, Numbers > byIntf; // also tunnels
   Gant::OrderedMap< VrfAndIpAddr, Numbers > byTunnelEnd;
   Gant::OrderedSet< Kynet::IntfId > toldIntfs;

   // In a time of silence.
   bool missed = false;
   bool missedReview = false;

   NextHopCollection resolved; // keeps its memory between resolutions
   NextHopRoom room;
   NextHopRoom::Places wanted; // keeps its memory
   std::vector< std::vector< Number > > spare;

   UnderWay< Number > underWay;
   std::array< AdjSm::TakenOver, 2 > takenOverBy{}; // by family

   std::vector< Number > queue; // walks, in order
   Posted walks{ [ this ] { walk(); } };
   Posted fills{ [ this ] { fill(); } };

   struct GantArp;
   struct GantL3Status;
   struct GantIntfs;
   struct GantTunnels;
   struct GantPaths;
   struct GantVrfs;
   struct GantReview;
   struct GantProgress;
   std::unique_ptr< GantArp > arpReactor;
   std::unique_ptr< GantL3Status > l3Reactor;
   std::unique_ptr< GantIntfs > intfReactor;
   std::unique_ptr< GantTunnels > tunnelReactor;
   std::unique_ptr< GantPaths > pathReactor;
   std::unique_ptr< GantVrfs > vrfReactor;
   std::unique_ptr< GantReview > reviewReactor;
   std::unique_ptr< GantProgress > progressReactor;
};

} // namespace Hul
