// The adjacencies: which there are, what they resolve to, and who has to hear of a neighbour's change.
#pragma once

#include "HulPending.h"
#include "HulRouteState.h"
#include "HulTypes.h"

#include <memory>

namespace Arp::Table {
class Status;
}
namespace Interface {
class AllIntfStatusDir;
}
namespace Mirel {
class Via;
using Vias = std::vector< Via >;
} // namespace Mirel

namespace Hul {

class AdjReviewEvent;
class HulCommonSmData;
class L2AdjHelper;
class L3Status;
class RoutePathSm;
class VrfSm;

// What one interface of the data plane can hold.
struct NextHopLimits {
   U32 nextHops = 16383;      // indexes of its own table of next hops
   U32 tunnelNextHops = 1023; // of a tunnel interface: entries of its resolve table
   friend bool operator==( const NextHopLimits &, const NextHopLimits & ) = default;
};

//   watches  Arp::Table::Status::neighbor
//            L3Status::intfRoutingState               the interfaces that the helper knows
//            AllIntfStatusDir::intfStatus             up or down
//            TunnelIntfStatusDir::intfStatus          where a tunnel ends
//            RoutePathSm                              by which neighbours that end is reached
//            VrfDir::vrfPhase                         the tunnels' underlay
//            AdjReviewEvent                           somebody wants all of them looked at
//            Progress                                 what the data plane has answered
//   calls    L2AdjHelper::create, update, del
//
// FECs of one family with equal vias share an adjacency, in whatever VRFs their routes are. An adjacency lives while a
// FEC uses it or a route that has been told names it. It is updated exactly when its resolved next hops change, when an
// interface that they name has come anew, and when a walk of its prefixes was asked for; the cost of a neighbour's
// change depends on the adjacencies that use the neighbour, and on nothing else.
//
// Resolution of a via:
//   forward to a hop   the hop's MAC, while it is known and the interface is usable: told to the helper, routing the
//                      family, and up. Otherwise unresolved, on the interface as given.
//   forward, tunnel    by each neighbour that the route of the tunnel's end leads to, as above; a drop while there is
//                      no such route, or the neighbour's interface is not usable; unresolved while the tunnel itself
//                      is not usable.
//   the other kinds    as they say; a drop that names a hop or an interface is the lack of it.
// Next hops that come out equal become one, and their multiplicities add up.
//
// Room. Each next hop takes a place in its interface's table, and the data plane has no word for a full one. So places
// are counted before the helper is called, those of an update beside those that it replaces; where there are none for
// both, the helper is told first that the adjacency has no next hops. One that does not fit waits: the helper has none
// of its next hops, no route may name it, and it is pending until it changes or places come, the longest wait first.
//
// Walks. A walk is an update in a later turn of the loop, one however often it was asked for. An update that asks for a
// walk gets one; when that one asks again, nothing has changed in between, so the adjacency then waits, and is listed
// as pending, until a fact of it changes or someone schedules a walk.
class AdjSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< L2AdjHelper > hulL2AdjHelper{};
      Gant::Ptr< const Arp::Table::Status > neighborTable{};
      Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir{};
      Gant::Ptr< RoutePathSm > routePathSm{};
      Gant::Ptr< VrfSm > vrfSm{};
      Gant::Ptr< const AdjReviewEvent > adjReviewEvent{};
      Gant::Ptr< const HulCommonSmData > common{};
   };

   class Notifiee : public Gant::NotifieeOf< AdjSm > {
    public:
      using NotifieeOf::NotifieeOf;
      // Whether routes may name the adjacency has changed, after `use`.
      virtual void onCreated( const Gant::Ptr< L2Adjacency > & ) {}
   };
   GANT_NOTIFIER( Notifiee )

   explicit AdjSm( Args args );
   ~AdjSm() override;
   void hasNotificationActiveIs( bool active ) override;

   // Has the adjacency of the entry updated in a later turn. An entry whose adjacency is gone is ignored.
   void schedulePrefixWalk( const Gant::Ptr< AdjEntry > & adjEntry );

   // For the route machines. A number names an adjacency while a FEC or a route uses it.
   using Number = U32;
   static constexpr Number none = ~Number( 0 );
   // The adjacency with these vias, or `none`.
   Number find( Kynet::AddressFamily af, const Mirel::Vias & vias ) const;
   // The same, made where there is none, and used by the FEC from now on.
   Number use( Kynet::AddressFamily af, U64 fecId, const Mirel::Vias & vias );
   void unuse( Number number, U64 fecId );
   // Gives the adjacency other vias. REQUIRES: no adjacency has these.
   void viasIs( Number number, const Mirel::Vias & vias );
   const Mirel::Vias & vias( Number number ) const;
   size_t fecs( Number number ) const;
   // Routes that have been told with it.
   void routesInc( Number number );
   void routesDec( Number number );
   U32 routes( Number number ) const;
   // Of those, the ones that the data plane took.
   void takenInc( Number number );
   void takenDec( Number number );
   // Taken routes over adjacencies by which no packet goes.
   struct TakenOver {
      U32 refused = 0;  // by the data plane
      U32 disabled = 0; // of the others
   };
   const TakenOver & takenOver( Kynet::AddressFamily af ) const;
   // False: the helper refused it, or it waits for room, and no route may name it.
   bool created( Number number ) const;
   bool waitsForRoom( Number number ) const;
   // Where; empty: it does not wait for room.
   Gant::String lacksRoom( Number number ) const;
   // REQUIRES: there is no adjacency yet.
   void nextHopLimitsIs( const NextHopLimits & limits );
   // Whether the data plane refused one of the last commands of the adjacency, and with what.
   bool refused( Number number ) const;
   Gant::String refusal( Number number ) const;
   // Nothing goes its ways, though it is programmed, where all of them lead out of interfaces that are not up. The
   // first of these, and why in words; none, and empty: something can go.
   Kynet::IntfId disabledIntf( Number number ) const;
   Gant::String disabled( Number number ) const;
   // The refusal, and what is under way, of the one with the index.
   RouteState state( U64 adjIndex ) const;
   U64 adjIndex( Number number ) const;

   size_t adjs() const;
   // A table of next hops of which something is in use.
   struct NextHopUse {
      Kynet::IntfId intfId;
      bool resolve = false; // the resolve table of a tunnel interface
      U32 used = 0;
      U32 limit = 0;
      size_t waiting = 0; // adjacencies that wait for room in it
   };
   // By interface.
   std::vector< NextHopUse > nextHopUses() const;
   void verify();
   void pending( Pendings & out ) const;

 private:
   struct Impl;
   std::unique_ptr< Impl > impl_;
};

} // namespace Hul
