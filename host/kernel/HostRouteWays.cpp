#include "HostRouteWays.h"

#include <linux/rtnetlink.h>

namespace Host {

bool dropsPackets( U8 routeType ) {
   return routeType == RTN_BLACKHOLE || routeType == RTN_UNREACHABLE || routeType == RTN_PROHIBIT;
}

NetlinkWays waysOf( const RouterState & state, const IntfAtIndex & intfAt, const std::vector< NetlinkHop > & hops,
                    Kynet::AddressFamily af ) {
   using Mirel::RouteType;
   if ( hops.size() > Mirel::RouteTable< Kynet::Prefix >::viasMax )
      return { {}, {}, "more next hops than a route can have" };
   NetlinkWays found;
   bool dead = false;
   for ( const auto & hop : hops ) {
      dead |= hop.dead;
      if ( hop.dead ) continue;
      const auto intfId = intfAt( hop.index );
      if ( !intfId ) continue;
      const auto & intfs = state.intfBook().intfs();
      const auto intf = intfs.find( *intfId );
      if ( intf == intfs.end() ) continue;
      const auto vrfId = state.vrfBook().id( intf->second.fact.vrf );
      if ( found.vrfId && found.vrfId != vrfId ) return { {}, {}, "next hops in several VRFs" };
      found.vrfId = vrfId;
      const bool addressed = hop.gateway != Kynet::IpGenAddr();
      if ( addressed && hop.gateway.af() != af ) return { {}, {}, "a next hop of another family" };
      if ( !addressed && !Kynet::TunnelIntfId::isTunnelIntfId( *intfId ) ) {
         if ( hops.size() > 1 ) return { {}, {}, "several next hops, one of them without an address" };
         found.ways.kind = RouteType::attached();
      }
      found.ways.hops.emplace_back( addressed ? hop.gateway : Kynet::IpGenAddr(), *intfId, hop.weight, hop.onlink );
   }
   if ( found.ways.hops.empty() ) found.wrong = dead ? "next hops over devices that are down" : "another device";
   return found;
}

} // namespace Host
