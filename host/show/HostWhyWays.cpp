#include "HostWhyWays.h"

#include "HostKeptPort.h"
#include "HostPorts.h"
#include "HostRouterState.h"
#include "HostWhyOffers.h"
#include "VexL3AgentSm.h"
#include "VexL3Modules.h"

namespace Host {

namespace {

using Mirel::RouteType;

// Tunnels within tunnels beyond this many are not followed.
constexpr int depthMost = 4;

class WaysOf {
 public:
   WaysOf( DaemonControl & daemon, U32 vrfId, Kynet::IpAddr address, int depth ) :
        daemon_( daemon ), state_( daemon.state() ), vrfId_( vrfId ), address_( address ), depth_( depth ) {}

   Json of( const HeldRoute & held ) const {
      const auto & route = held.route;
      const auto * const vias = state_.tree().fib->fec( route.fecId() );
      auto rows = Json::array();
      if ( route.routeType() == RouteType::forward_ ) {
         for ( const auto & hop : state_.routes4().fecs().ways( route.fecId() ).hops )
            rows.push_back( forward( hop, vias ) );
      } else if ( route.routeType() == RouteType::drop_ || vias == nullptr ) {
         rows.push_back( { { "lost", "a blackhole" } } );
      } else {
         for ( const auto & via : *vias ) rows.push_back( onInterface( route.routeType(), via ) );
      }
      return rows;
   }

 private:
   static Json & lose( Json & row, const std::string & why ) {
      if ( !row.contains( "lost" ) ) row[ "lost" ] = why;
      return row;
   }

   Json forward( const Hop & hop, const Mirel::Vias * vias ) const {
      Json row = Json::object();
      if ( hop.addrHas() ) row[ "address" ] = hop.addr().stringValue();
      const auto * const via = viaOf( hop, vias );
      if ( via == nullptr ) {
         if ( !!hop.intfId() ) row[ "interface" ] = hop.intfId().stringValue();
         if ( const auto by = state_.intfBook().intfOf( vrfId_, hop ); !!by )
            intf( row, by );
         else
            lose( row, state_.intfBook().unreachable( vrfId_, hop ) );
         return lose( row, "its interface is not up" );
      }
      if ( Kynet::TunnelIntfId::isTunnelIntfId( via->intfId() ) ) return tunnel( row, via->intfId() );
      intf( row, via->intfId() );
      neighbor( row, via->intfId(), via->hop() );
      return row;
   }
   static const Mirel::Via * viaOf( const Hop & hop, const Mirel::Vias * vias ) {
      if ( vias == nullptr ) return nullptr;
      const auto at = std::ranges::find_if( *vias, [ & ]( const auto & via ) {
         return via.kind() == RouteType::forward_ && ( !hop.intfId() || via.intfId() == hop.intfId() ) &&
                ( !via.hopHas() || via.hop() == hop.addr() );
      } );
      return at == vias->end() ? nullptr : &*at;
   }

   Json onInterface( RouteType kind, const Mirel::Via & via ) const {
      Json row{ { "kind", kind.stringValue() } };
      intf( row, via.intfId() );
      if ( Kynet::TunnelIntfId::isTunnelIntfId( via.intfId() ) ) row.erase( "accessList" );
      if ( kind == RouteType::attached_ )
         neighbor( row, via.intfId(), address_ );
      else if ( hasDevice( via.intfId() ) && !inKernel( via.intfId() ) )
         lose( row, via.intfId().stringValue() + " has no device in the kernel: nobody takes what is for the router" );
      return row;
   }

   void intf( Json & row, Kynet::IntfId intfId ) const {
      const auto name = intfId.stringValue();
      row[ "interface" ] = name;
      const auto & intfs = state_.intfBook().intfs();
      const auto at = intfs.find( intfId );
      if ( at == intfs.end() ) {
         lose( row, "interface " + name + " does not exist" );
         return;
      }
      const auto & fact = at->second.fact;
      row[ "state" ] = !fact.enabled ? "disabled" : state_.intfBook().down( fact ) ? "down" : "enabled";
      if ( !fact.enabled ) lose( row, "interface " + name + " is disabled" );
      if ( !fact.filters.aclOut.empty() ) row[ "accessList" ] = fact.filters.aclOut;
      if ( !hasDevice( intfId ) ) {
         if ( !fact.tunnel ) row[ "note" ] = "no device: described packets only";
         return;
      }
      const auto * const port = portOf( intfId, false );
      if ( port == nullptr ) return;
      row[ "port" ] = textOf( port->state() );
      row[ "packetsOut" ] = port->out().packets;
      if ( port->state() != KeptPort::State::up )
         lose( row, "the port of " + name + " is " + textOf( port->state() ) +
                         ( port->reason().empty() ? "" : ": " + port->reason() ) );
   }
   bool hasDevice( Kynet::IntfId intfId ) const {
      const auto at = state_.intfBook().intfs().find( intfId );
      return at != state_.intfBook().intfs().end() && at->second.fact.port.kind != PortKind::none_;
   }
   const KeptPort * portOf( Kynet::IntfId intfId, bool kernel ) const {
      const auto * const ports = daemon_.ports();
      return ports == nullptr ? nullptr : ports->port( { intfId, kernel, {} } );
   }
   bool inKernel( Kynet::IntfId intfId ) const {
      const auto * const port = portOf( intfId, true );
      return port != nullptr && port->wish() && !port->leftOut();
   }

   void neighbor( Json & row, Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) const {
      const auto & arp = *state_.tree().arp;
      const Arp::NeighborKey key( intfId, addr );
      row[ "neighbor" ] = arp.neighborHas( key ) ? "resolved" : "unresolved";
      if ( arp.neighborHas( key ) ) {
         row[ "mac" ] = arp.neighbor( key ).stringValue();
         return;
      }
      lose( row, "neighbour " + addr.stringValue() + " on " + intfId.stringValue() + " is not resolved" +
                      ( inKernel( intfId ) ? ": the kernel asks for it" : "" ) );
   }

   Json tunnel( Json & row, Kynet::IntfId intfId ) const {
      intf( row, intfId );
      const auto & intfs = state_.intfBook().intfs();
      const auto at = intfs.find( intfId );
      if ( at == intfs.end() || !at->second.fact.tunnel ) return row;
      const auto & ends = *at->second.fact.tunnel;
      const auto end = ends.dstAddr().stringValue();
      row[ "tunnelEnd" ] = end;
      const auto agent = daemon_.agent();
      if ( agent && !agent->l3Modules()->ip4GreTunHas( intfId ) && !agent->l3Modules()->ip4IpsecTunHas( intfId ) )
         lose( row, "the data plane has no tunnel " + intfId.stringValue() );
      const auto underlay = state_.vrfBook().id( ends.underlayVrf() );
      const auto address = ends.dstAddr();
      const auto held = underlay ? heldRoute( state_, *underlay, address ) : std::nullopt;
      if ( !held )
         return lose( row, "no route in VRF " + ends.underlayVrf().value() + " leads to the tunnel's end " + end );
      row[ "tunnelEndBy" ] = held->prefix.stringValue();
      if ( depth_ == depthMost ) return row;
      row[ "ways" ] = WaysOf( daemon_, *underlay, address, depth_ + 1 ).of( *held );
      const auto & ways = row[ "ways" ];
      if ( std::ranges::all_of( ways, []( const auto & way ) { return way.contains( "lost" ); } ) )
         lose( row, "on the way to the tunnel's end " + end + ": " +
                         ( ways.empty() ? "no way" : ways.front()[ "lost" ].template get< std::string >() ) );
      return row;
   }

   DaemonControl & daemon_;
   const RouterState & state_;
   const U32 vrfId_;
   const Kynet::IpAddr address_;
   const int depth_;
};

} // namespace

std::optional< HeldRoute > heldRoute( const RouterState & state, U32 vrfId, Kynet::IpAddr address ) {
   const auto & fib = *state.tree().fib;
   const auto ref = fib.match( vrfId, address );
   if ( !ref ) return std::nullopt;
   return HeldRoute{ ref->prefix, fib.routeAt( ref->slot ) };
}

Json waysTo( DaemonControl & daemon, U32 vrfId, Kynet::IpAddr address, const HeldRoute & held ) {
   return WaysOf( daemon, vrfId, address, 0 ).of( held );
}

} // namespace Host
