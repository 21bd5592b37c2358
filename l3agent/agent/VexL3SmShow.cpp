#include "GantTrace.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/next_hop.pb.h"
#include "VexL3Sm.h"

#include <cstdio>
#include <google/protobuf/any.pb.h>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Sm" );

void VexL3Sm::handleResponse() {
   vex::pb::NextHopReadNHResp nhResp;
   vex::pb::FibIpv4ReadFibResp fibResp;
   while ( const auto event = configStatusPair()->moduleStatus()->responseQueueDeq() ) {
      const auto * const response = event->response();
      if ( response == nullptr ) continue;
      if ( response->UnpackTo( &nhResp ) ) {
         if ( nhResp.cmd_action() == "showNH" ) processShowNH( nhResp );
      } else if ( response->UnpackTo( &fibResp ) ) {
         if ( fibResp.cmd_action() == "showFib" ) processShowFibIpv4( fibResp );
      } else {
         GANT_TRACE( 0, "VexL3Sm::handleResponse ", "Unknown Any Msg ", response->type_url() );
      }
   }
}

void VexL3Sm::processShowFibIpv4( const vex::pb::FibIpv4ReadFibResp & resp ) {
   const int fd = static_cast< int >( resp.cli_socket() );
   const U32 vrf = resp.vrf();
   const auto & vrfName = hulL3Status()->vrfName( Hul::VrfId( vrf ) ).value();
   dprintf( fd, " 'pModuleFIB%d': ( ", vrf );
   for ( const auto & route : resp.fibinfo() )
      dprintf( fd, " '%s/%d', ( '%s', %d ),", route.prefix().c_str(), route.prefix_len(), vrfName.c_str(),
               route.fec_id() );
   dprintf( fd, " ), # End of pModuleFIB%d\n", vrf );
   dprintf( fd, " 'pModuleFEC%d': { ", vrf );
   for ( const auto & fec : resp.fecinfo() ) {
      if ( fec.nh_info_size() == 1 ) {
         dprintf( fd, " '%d': ( %d, %d ) ,", fec.fec_id(), fec.nh_info( 0 ).nh_index(), fec.nh_info( 0 ).gate() );
         continue;
      }
      dprintf( fd, " '%d': (", fec.fec_id() );
      for ( const auto & nh : fec.nh_info() ) dprintf( fd, " %d, %d,", nh.nh_index(), nh.gate() );
      dprintf( fd, " )," );
   }
   dprintf( fd, " }, # End of pModuleFEC%d\n", vrf );
   const auto & fib = l3Modules()->fibIpv4();
   if ( fib && fib->ackSm() ) fib->ackSm()->doNextModule();
}

void VexL3Sm::processShowNH( const vex::pb::NextHopReadNHResp & resp ) {
   const int fd = static_cast< int >( resp.cli_socket() );
   const auto id = static_cast< long long >( resp.intf_id() );
   dprintf( fd, " 'pModule%lldNH': { ", id );
   for ( const auto & nh : resp.nexthopinfo() )
      dprintf( fd, " '%d': ( %lld, %d, %d, '%s' ),\n", nh.nh_index(), id, nh.nh_index(), nh.pkt_cmd(),
               nh.mac_da().c_str() );
   dprintf( fd, " }, # End of pModule%lldNH\n", id );
   const auto intfId = Kynet::IntfId::fromString( resp.intfname() );
   if ( !intfId ) return;
   const auto & module = l3Modules()->nextHopMod( *intfId );
   if ( module && module->ackSm() )
      module->ackSm()->doNextModule();
   else
      vexcsd()->cliSm()->doNextModule( nullptr );
}

void VexL3Sm::showSoftwareSummary( U32 ) {}

} // namespace VexL3Unicast
