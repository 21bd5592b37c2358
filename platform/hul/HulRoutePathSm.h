// Follows the routes of chosen addresses.
#pragma once

#include "HulTypes.h"
#include "HulWays.h"

#include <memory>

namespace Hul {

//   watches  Mirel::Fib::RouteStatus      routes and FECs
//
// An address is followed from `follow` to as many `unfollow`. What it is reached by is the route with the longest
// prefix that holds it; a via with a hop and no interface leads on to the route of that hop, up to depthMax times. A
// route whose ways all lead elsewhere than to a neighbour (the router itself, a drop, a tunnel) reaches nothing.
class RoutePathSm : public Gant::StateMachine {
 public:
   static constexpr U32 depthMax = 8;
   static constexpr size_t lookUpsMax = 256; // of one address

   class Notifiee : public Gant::NotifieeOf< RoutePathSm > {
    public:
      using NotifieeOf::NotifieeOf;
      // The paths of a followed address are others than before.
      virtual void onPaths( const VrfAndIpAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )

   explicit RoutePathSm( Gant::Ptr< const Mirel::Fib::RouteStatus > routeStatus );
   ~RoutePathSm() override;

   void follow( const VrfAndIpAddr & address );
   void unfollow( const VrfAndIpAddr & address );
   // Empty for an address that is not followed.
   const Paths & paths( const VrfAndIpAddr & address ) const;

 private:
   struct Target {
      U32 followers = 0;
      Paths paths;
      std::vector< VrfAndIpAddr > lookedUp; // the address, and the hops that it led to
      std::vector< U64 > fecs;
   };
   using Targets = Gant::OrderedSet< VrfAndIpAddr >;
   struct GantRouteStatus;

   void handleRoute( const Mirel::RouteRef< Kynet::Prefix > & route );
   void handleFec( U64 fecId );
   void reviewAll();
   void review( const VrfAndIpAddr & address );
   // The paths of the address, and of one via of its route.
   void find( const VrfAndIpAddr & address, U32 depth, Target & target, Paths & out ) const;
   void findBy( const Mirel::Via & via, const VrfAndIpAddr & address, U32 depth, Target & target, Paths & out ) const;
   void indexIs( const VrfAndIpAddr & address, const Target & target, bool present );

   Gant::Ptr< const Mirel::Fib::RouteStatus > routeStatus_;
   Gant::OrderedMap< VrfAndIpAddr, Target > targets_;
   Gant::OrderedMap< VrfAndIpAddr, Targets > byLookedUp_;
   Gant::HashMap< U64, Targets > byFec_;
   std::unique_ptr< GantRouteStatus > reactor_;
};

} // namespace Hul
