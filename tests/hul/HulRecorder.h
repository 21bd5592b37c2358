// The helpers of a data plane that writes down what it is told, one line a call, and checks the contract of HulHelper.h
// at every call.
#pragma once

#include "HulHelper.h"
#include "HulL3Status.h"

#include <functional>
#include <map>
#include <set>

namespace HulTest {

using Lines = std::vector< Gant::String >;

// "forward Et1 02:00:00:00:00:02 x1, unresolved Et2 x1"
Gant::String text( const Hul::NextHopCollection & via );

class Recorder {
 public:
   explicit Recorder( Gant::Ptr< Hul::L3Status > l3Status );

   Lines take() { return std::exchange( lines_, {} ); }
   // How often the contract was broken; every time is a test failure too.
   size_t breaches() const { return breaches_; }
   // What the data plane holds, in words that do not depend on how it came about.
   Lines state() const;
   size_t adjs() const { return adjs_.size(); }
   size_t routes() const { return routes_.size(); }
   Gant::String route( Hul::VrfId vrfId, const Kynet::IpGenPrefix & prefix ) const;

   // Behaviour.
   std::function< bool( const Kynet::IpGenPrefix & ) > refusesRoute = []( const auto & ) { return false; };
   bool repeats = false; // a route may be told again as it is
   std::function< bool() > refusesAdj = [] { return false; };
   std::function< bool() > wantsWalk = [] { return false; };
   bool refusesIp6 = false;
   bool silent = false; // keeps no lines
   bool over = false;   // from now on every call is a breach

   const Gant::Ptr< HulHelper::VrfHelper > vrfHelper;
   const Gant::Ptr< HulHelper::RoutingStatusSmHelper > routingStatusHelper;
   const Gant::Ptr< HulHelper::AdjSmHelper > adjHelper;
   const Gant::Ptr< HulHelper::RouteSmHelper > route4Helper;
   const Gant::Ptr< HulHelper::Route6SmHelper > route6Helper;

 private:
   class Vrfs;
   class Routing;
   class Adjs;
   class Routes;
   class Routes6;
   struct Intf {
      Hul::VrfId vrfId;
      U32 vlanId = 0;
      U32 mtu = 0;
      Hul::RoutingState state;
   };
   using RouteKey = std::pair< U32, Kynet::IpGenPrefix >;

   void line( const Gant::String & text );
   void check( bool holds, const char * what );
   void checkVia( const Hul::NextHopCollection & via );
   bool updateRoute( const Kynet::IpGenPrefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & old,
                     const Hul::RouteInfo & now, U64 sequence );
   void verifyRoute( const Kynet::IpGenPrefix & prefix, Hul::VrfId vrfId, const Hul::RouteInfo & info );

   Gant::Ptr< Hul::L3Status > l3Status_;
   Lines lines_;
   size_t breaches_ = 0;
   std::set< U32 > vrfs_;
   std::map< Kynet::IntfId, Intf > intfs_;
   std::map< U64, Hul::NextHopCollection > adjs_;
   std::map< RouteKey, Hul::RouteInfo > routes_;
   Kynet::EthAddr routerMac_;
   Kynet::EthAddr virtualMac_;
};

} // namespace HulTest
