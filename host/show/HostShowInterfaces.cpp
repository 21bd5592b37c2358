// show interfaces, neighbors, tunnels, vrfs.

#include "HostShowPorts.h"
#include "HostShows.h"
#include "HulL3Status.h"
#include "HulSeqStatus.h"
#include "MirelFib.h"
#include "StateArp.h"
#include "StateInterface.h"
#include "StateIp.h"

namespace Host {

namespace {

using Vex::EncapType;

std::vector< Kynet::IntfId > intfs( const AgentView & session ) {
   std::set< Kynet::IntfId > all;
   const auto & routing = session.routing();
   for ( const auto & [ intfId, status ] : routing.allIntfStatusDir()->intfStatusIterator() ) all.insert( intfId );
   for ( const auto & [ intfId, status ] : routing.ipStatus()->intfStatusIterator() ) all.insert( intfId );
   for ( const auto & [ intfId, intf ] : session.vexcsd()->l2IntfIterator() ) all.insert( intfId );
   return { all.begin(), all.end() };
}

Json addressesOf( const AgentView & session, Kynet::IntfId intfId ) {
   auto addresses = Json::array();
   for ( const auto & address : session.routing().ipStatus()->intfAddrIterator() )
      if ( address.intfId() == intfId ) addresses.push_back( address.prefix().stringValue() );
   return addresses;
}

void mss( Json & row, U16 ingress, U16 egress ) {
   row[ "mssIngress" ] = ingress;
   row[ "mssEgress" ] = egress;
}

void intfRow( const AgentView & session, Kynet::IntfId intfId, Output & out ) {
   const auto & routing = session.routing();
   const auto vexcsd = session.vexcsd();
   Json row{ { "interface", intfId.stringValue() } };
   const bool there = routing.allIntfStatusDir()->intfStatusHas( intfId );
   const auto & status = routing.allIntfStatusDir()->intfStatus( intfId );
   row[ "state" ] = !there ? "absent" : !status.adminUp() ? "disabled" : status.operUp() ? "up" : "down";
   if ( const auto & l2Intf = vexcsd->l2Intf( intfId ) ) {
      row[ "kind" ] = l2Intf->encapType().stringValue();
      row[ "mac" ] = textOrNone( l2Intf->macAddr() );
   }
   const bool routed = routing.ipStatus()->intfStatusHas( intfId );
   row[ "routed" ] = vexcsd->l3IntfHas( intfId );
   if ( routed ) {
      const auto & ip = routing.ipStatus()->intfStatus( intfId );
      row[ "vrf" ] = ip.vrfName().value();
      row[ "addresses" ] = addressesOf( session, intfId );
      row[ "mtu" ] = ip.mtu();
      mss( row, ip.tcpMssIngress(), ip.tcpMssEgress() );
   }
   const auto gate = session.l3Modules()->fibIpv4()->intfIdToOutGate( intfId );
   if ( !!gate ) row[ "fibGate" ] = gate.value();
   portFacts( session, intfId, row );
   out.row( row );
}

std::unique_ptr< Answer > interfaces( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto name = asked.question.text( "interface" );
   const auto row = [ session ]( const Kynet::IntfId & intfId, Output & out ) { intfRow( session, intfId, out ); };
   if ( name.empty() ) return perKey< Kynet::IntfId >( [ session ] { return intfs( session ); }, row );
   const auto all = intfs( session );
   const auto wanted = intfOf( name );
   if ( std::ranges::find( all, wanted ) == all.end() )
      throw CommandError( ErrorCode::notFound, "there is no interface " + wanted.stringValue() );
   return perKey< Kynet::IntfId >( [ wanted ] { return std::vector{ wanted }; }, row );
}

void tunnelRow( const AgentView & session, Kynet::IntfId intfId, Output & out ) {
   const auto & dir = *session.routing().allIntfStatusDir()->tunnelIntfStatusDir();
   if ( !dir.intfStatusHas( intfId ) ) return;
   const auto & tunnel = dir.intfStatus( intfId );
   Json row{ { "tunnel", intfId.stringValue() },
             { "mode", tunnel.mode().stringValue() },
             { "source", tunnel.srcAddr().stringValue() },
             { "destination", tunnel.dstAddr().stringValue() },
             { "underlayVrf", tunnel.underlayVrf().value() },
             { "ttl", tunnel.ttl() },
             { "tos", tunnel.tos() },
             { "key", tunnel.key() } };
   if ( session.routing().ipStatus()->intfStatusHas( intfId ) ) {
      const auto & ip = session.routing().ipStatus()->intfStatus( intfId );
      row[ "vrf" ] = ip.vrfName().value();
      row[ "mtu" ] = ip.mtu();
      mss( row, ip.tcpMssIngress(), ip.tcpMssEgress() );
   }
   const auto modules = session.l3Modules();
   row[ "built" ] = modules->ip4GreTunHas( intfId ) || modules->ip4IpsecTunHas( intfId );
   // Entry 0 is reserved and always there.
   if ( const auto & resolve = modules->nhResolve( intfId ) ) row[ "resolveEntries" ] = resolve->nhrEntrys() - 1;
   out.row( row );
}

std::unique_ptr< Answer > tunnels( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto name = asked.question.text( "tunnel" );
   const auto wanted = name.empty() ? Kynet::IntfId() : intfOf( name );
   const auto keys = [ session, wanted ] {
      const auto & dir = session.routing().allIntfStatusDir()->tunnelIntfStatusDir();
      auto keys = dir ? Gant::keysOf( dir->intfStatusIterator() ) : std::vector< Kynet::IntfId >();
      if ( !!wanted ) std::erase_if( keys, [ & ]( const auto & key ) { return key != wanted; } );
      return keys;
   };
   if ( !!wanted && keys().empty() )
      throw CommandError( ErrorCode::notFound, "there is no tunnel " + wanted.stringValue() );
   return perKey< Kynet::IntfId >(
        keys, [ session ]( const Kynet::IntfId & intfId, Output & out ) { tunnelRow( session, intfId, out ); } );
}

// Those that were told. What is not known yet and wanted is in show pending.
std::unique_ptr< Answer > neighbors( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto name = asked.question.text( "interface" );
   const auto wanted = name.empty() ? Kynet::IntfId() : intfOf( name );
   if ( !!wanted && !session.vexcsd()->l2IntfHas( wanted ) )
      throw CommandError( ErrorCode::notFound, "there is no interface " + wanted.stringValue() );
   return perKey< Arp::NeighborKey >(
        [ session, wanted ] {
           auto keys = Gant::keysOf( session.routing().arpMirel()->neighborIterator() );
           if ( !!wanted ) std::erase_if( keys, [ & ]( const auto & key ) { return key.intfId() != wanted; } );
           std::sort( keys.begin(), keys.end() );
           return keys;
        },
        [ session ]( const Arp::NeighborKey & key, Output & out ) {
           const auto & arp = *session.routing().arpMirel();
           if ( !arp.neighborHas( key ) ) return;
           Json row{ { "interface", key.intfId().stringValue() },
                     { "address", key.addr().stringValue() },
                     { "mac", textOrNone( arp.neighbor( key ) ) } };
           if ( const auto & ip = session.routing().ipStatus(); ip->intfStatusHas( key.intfId() ) )
              row[ "vrf" ] = ip->intfStatus( key.intfId() ).vrfName().value();
           out.row( row );
        } );
}

std::unique_ptr< Answer > vrfs( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto agent = session.agent();
      for ( const auto & [ name, vrf ] : agent->vrfMounts()->allVrfStatusLocal()->vrfStatusIterator() ) {
         const auto & fib = *session.routing().routeStatus();
         Json row{ { "vrf", name.value() },
                   { "id", vrf.vrfId() },
                   { "active", vrf.active() },
                   { "routes", fib.routes( vrf.vrfId() ) },
                   { "routes6", session.routing().route6Status()->routes( vrf.vrfId() ) },
                   { "sequence", fib.sequence( vrf.vrfId() ) } };
         const auto entry = agent->vrfSeqStatusDir()->entity( name.value() );
         if ( const auto * const status = dynamic_cast< const Hul::VrfSeqStatus * >( entry.get() ) )
            row[ "sequenceProgrammed" ] = status->sequenceProgrammed();
         out.row( row );
      }
   } );
}

} // namespace

Commands interfaceShows() {
   return { { "show interfaces", { { "interface" } }, interfaces },
            { "show neighbors", { { "interface" } }, neighbors },
            { "show tunnels", { { "tunnel" } }, tunnels },
            { "show vrfs", {}, vrfs } };
}

} // namespace Host
