// The routes of one family: from the FIB to the helper. Not for public headers.
#pragma once

#include "HulAdjSm.h"
#include "HulHelper.h"
#include "HulL3Status.h"
#include "HulPending.h"
#include "HulPosted.h"
#include "HulProgress.h"
#include "HulRouteState.h"
#include "HulTableFill.h"
#include "HulVrfSm.h"
#include "MirelFib.h"

#include "GantFlat.h"

#include <deque>

namespace Hul {

// What differs between the families.
struct Ip4Routes {
   using Prefix = Kynet::Prefix;
   using Helper = HulHelper::RouteSmHelper;
   static constexpr Kynet::AddressFamily::Value af = Kynet::AddressFamily::ipv4_;
   static bool suspended( const L3Status & ) { return false; }
   static U64 sequence( const VrfL3Status & status ) { return status.sequenceProgrammed(); }
   static void sequenceIs( VrfL3Status & status, U64 sequence ) { status.sequenceProgrammedIs( sequence ); }
   static bool done( bool programmed ) { return programmed; }
   static void commit( Helper & helper ) { helper.commitRouteBatch(); }
};

struct Ip6Routes {
   using Prefix = Kynet::Ip6Prefix;
   using Helper = HulHelper::Route6SmHelper;
   static constexpr Kynet::AddressFamily::Value af = Kynet::AddressFamily::ipv6_;
   static bool suspended( const L3Status & status ) { return status.suspendIp6RouteUpdates(); }
   static U64 sequence( const VrfL3Status & status ) { return status.sequence6Programmed(); }
   static void sequenceIs( VrfL3Status & status, U64 sequence ) { status.sequence6ProgrammedIs( sequence ); }
   static bool done( HulRouteUpdateStatus status ) { return status == HulRouteUpdateStatus::routeUpdateSucceeded_; }
   static void commit( Helper & ) {}
};

//   watches  RouteTable                               routes and FECs
//            VrfDir::vrfPhase
//            AdjSm                                    adjacencies that come after a refusal
//            L3Status::suspendIp6RouteUpdates         of IPv6: what was told is taken back, and no more is told
//            Progress                                 what the data plane has answered
//   calls    updateRoute; endOfSyncOnInit, once; commitRouteBatch, in the turn after a change
//            AdjSm
//   writes   UnprogrammedTable
//            VrfL3Status::sequenceProgrammed          where the helper has not
//
// A route is told while its VRF is active and its FEC has an adjacency that the helper took; otherwise it waits. What
// has been told of each route is kept, and is the old information of its next change. A route that the helper refuses
// is forgotten by it; it is offered again, as new, when it or its FEC changes.
//
// A route that the helper took is under way until the data plane has answered its last command; then it is programmed,
// or refused. One that was refused for want of room is told again, in the order of refusal, one for each route that the
// data plane gave up.
//
// One write is told before it returns. What concerns many routes is done in turns of the loop, some thousands at a
// time:
//   sweep   every route is brought in line: at the start, when a VRF comes or leaves, after a time of silence.
//   moves   a FEC's routes are brought in line with its adjacency, when that has become another one.
//   late    a route that came or changed while Progress was full: as it is by then, once, however often it changed.
// They rest while Progress is congested.
// They survive whatever changes between the turns. A sequence is acknowledged when all changes up to it have been
// brought in line: while a sweep is under way, or a route is late, at the end of that.
template < typename F >
class RouteMachine : public Gant::StateMachine {
 public:
   using Prefix = typename F::Prefix;
   using Table = Mirel::RouteTable< Prefix >;
   struct Args {
      Gant::Ptr< const Table > table{};
      Gant::Ptr< Mirel::UnprogrammedTable > unprogrammed{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< VrfSm > vrfSm{};
      Gant::Ptr< AdjSm > adjSm{};
      Gant::Ptr< typename F::Helper > helper{};
      Gant::Ptr< const HulCommonSmData > common{};
   };
   // Looks at no route yet: the first sweep begins in the next turn.
   explicit RouteMachine( Args args );
   ~RouteMachine() override;
   void hasNotificationActiveIs( bool active ) override;

   // Whether routes are still to be looked at.
   bool busy() const { return !allInLine() || !moves_.empty(); }
   U32 toldRoutes() const { return toldRoutes_; }
   RouteCounts counts() const;
   RouteCounts counts( U32 vrfId ) const;
   RouteState state( U32 vrfId, const Prefix & prefix ) const;
   RouteProgress progress( U32 slot ) const;
   void verify();
   // At most `most` routes.
   void pending( Pendings & out, size_t most ) const;

 private:
   using Address = typename Table::Address;
   using Ref = typename Table::Ref;

   static constexpr U32 noFec = ~U32( 0 );
   // By slot of the table. The slot may meanwhile belong to another route, while nobody listened.
   struct Told {
      Address address;
      U32 vrfId = 0;
      U32 fec = noFec;
      AdjSm::Number adj = 0; // with `routeType`
      U32 asked = 0;         // the lower bits of the number of its last command, or of its refused one; 0: it is late
      U8 len = 0;
      U8 routeType = 0;        // 0: the helper has nothing of the route
      U8 unprogrammed : 4 = 0; // the reason of its entry there; 0: it has none
      U8 here : 1 = 0;
      U8 underWay : 1 = 0;
      U8 late : 1 = 0; // in late_
      U8 error = 0;    // what the data plane refused that command with
   };
   struct Asked {
      U32 slot : 31;
      U32 gone : 1; // the route was taken from the data plane
   };
   // Its routes stand in one of its lists. A route that leaves is not looked for: its slot stays until a walk, or the
   // list's compaction, finds it to be another FEC's.
   struct Fec {
      U64 fecId = 0;
      AdjSm::Number adj = AdjSm::none;
      U32 routes = 0;
      U32 told = 0;              // those that the helper has
      bool queued = false;       // in moves_
      std::vector< U32 > inLine; // slots of routes that are as the FEC says
      std::vector< U32 > moving; // slots of those still to be looked at
   };
   struct Vrf {
      bool active = false;
      U32 told = 0;
      U32 underWay = 0; // of the told
      U32 refused = 0;  // of the told, by the data plane
      Gant::Ptr< VrfL3Status > status;
   };
   struct What {
      U8 routeType = 0;
      AdjSm::Number adj = 0;
   };
   struct GantTable;
   struct GantVrfDir;
   struct GantAdjSm;
   struct GantL3Status;
   struct GantProgress;

   void handleRoute( const Ref & ref );
   void handleFec( U64 fecId );
   void handleVrf( VrfId vrfId );
   void handleCreated( const Gant::Ptr< L2Adjacency > & l2Adj );
   void handleSuspend();
   void handleAll();
   void handleRefused( const RefusedCommand & command );
   void reachAll();
   void postpone( U32 slot );
   void handleAcknowledged();

   // One route, from the table to the helper. `sequence` 0: none to acknowledge. `retry`: also one that was refused.
   void review( U32 slot, U64 sequence, bool retry );
   bool same( const Told & told, U32 slot ) const;
   // Its adjacency does.
   bool waitsForRoom( const Told & told ) const;
   void adopt( U32 slot );
   // What the helper should have of the route: nothing while something is missing, which `missing` then says.
   What wanted( const Told & told, Mirel::RouteType routeType, Gant::String * missing = nullptr ) const;
   // `again`: also what it has been told already.
   void tell( U32 slot, const What & what, U64 sequence, bool again = false );
   void toldIs( Told & told, const What & what );
   // `before` is the number of the last command before those of the route.
   void askedIs( Told & told, U64 before, U32 slot );
   void unask( Told & told );
   // Of all routes, and of those of its VRF.
   void underWayInc( const Told & told, int by ) {
      underWayRoutes_ += static_cast< U32 >( by );
      vrf( told.vrfId ).underWay += static_cast< U32 >( by );
   }
   void refusedInc( const Told & told, int by ) {
      refusedRoutes_ += static_cast< U32 >( by );
      vrf( told.vrfId ).refused += static_cast< U32 >( by );
   }
   void answered( const typename UnderWay< Asked >::Entry & entry );
   // Memory, when the table has shrunk.
   void giveBack();
   // Whether another change came after it was told, which waits.
   static bool overtaken( const Told & told ) { return told.underWay && told.asked == 0; }
   // Whether the data plane has the route as it was told last.
   static bool taken( const Told & told ) { return told.routeType != 0 && !told.underWay && told.error == 0; }
   RouteProgress progressOf( const Told & told ) const;
   RouteState stateOf( const Told & told, U32 slot ) const;
   bool noRoom( const Told & told ) const;
   size_t tellAgain( size_t routes );
   Gant::String reasonOf( const Told & told, U32 slot ) const;
   void forget( U32 slot, U64 sequence );
   void unprogrammedIs( Told & told, U8 reason );
   void acknowledge( const Vrf & vrf, U64 sequence );
   void acknowledgeAll();
   bool allInLine() const { return !sweeping_ && late_.empty(); }
   RouteInfo info( const What & what ) const;

   // A FEC has a number while it has an adjacency, or routes that name it.
   U32 fecNumber( U64 fecId );
   void fecMaybeDelete( U32 fec );
   // Makes the route one of the FEC's. Whoever calls it tells the route next.
   void join( U32 slot, U64 fecId );
   void leave( Told & told );
   void list( Fec & fec, U32 number, U32 slot );
   // Has all routes of the FEC looked at, in turns.
   void move( U32 fec );

   const Vrf & vrf( U32 vrfId ) const;
   Vrf & vrf( U32 vrfId );
   void sweep();
   void turn();
   size_t tellLate( size_t routes );
   size_t moveSome( size_t routes );
   size_t sweepSome( size_t slots );
   void swept();

   Args args_;
   bool suspended_ = false;
   bool missed_ = false; // something, in a time of silence
   Mirel::ChunkArray< Told > told_;
   Mirel::Slab< Fec > fecs_;
   Gant::FlatMap< U64, U32 > fecById_;
   Gant::HashMap< U32, Vrf > vrfs_;
   std::pair< U32, Vrf * > lastVrf_{ 0, nullptr };
   U32 toldRoutes_ = 0;
   UnderWay< Asked > underWay_;
   U32 underWayRoutes_ = 0;
   U32 refusedRoutes_ = 0;
   std::deque< U32 > waiting_; // slots of routes that had no room, some of which do not wait any more
   U32 noRoomRoutes_ = 0;
   U32 room_ = 0; // for so many of them
   TableFill fill_{ Kynet::AddressFamily( F::af ) };

   std::deque< U32 > late_;  // slots, each once
   std::deque< U32 > moves_; // FECs with routes in `moving`
   bool sweeping_ = false;
   bool sweptOnce_ = false;
   U32 sweepAt_ = 0;
   U32 sweepLeft_ = 0; // slots
   bool uncommitted_ = false;
   Posted turns_{ [ this ] { turn(); } };

   std::unique_ptr< GantTable > tableReactor_;
   std::unique_ptr< GantVrfDir > vrfReactor_;
   std::unique_ptr< GantAdjSm > adjReactor_;
   std::unique_ptr< GantL3Status > l3Reactor_;
   std::unique_ptr< GantProgress > progressReactor_;
};

using RouteSm = RouteMachine< Ip4Routes >;
using Route6Sm = RouteMachine< Ip6Routes >;

extern template class RouteMachine< Ip4Routes >;
extern template class RouteMachine< Ip6Routes >;

} // namespace Hul
