#include "GantTrace.h"
#include "HulL3Status.h"
#include "vex/fib_ipv4.pb.h"
#include "VexAckSm.h"
#include "VexL3Modules.h"
#include "VexL3Sm.h"
#include "VexMessage.h"

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3Modules" );

using Vex::enqueueAside;
using Vex::enqueueChange;
using Vex::newMessage;

FibIpv4::FibIpv4( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                  Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm ) :
     Module( name, Vex::VexModule::FibIpv4, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     l3Sm_( l3Sm ) {}

void FibIpv4::addRoute( Hul::VrfId vrf, U32 prefix, U32 prefixLen, FecKey fec ) {
   auto * const arg = newMessage< vex::pb::FibIpv4RouteArg >( *this );
   arg->set_vrf( vrf );
   arg->set_prefix( prefix );
   arg->set_prefix_len( prefixLen );
   arg->set_fec_id( fec );
   enqueueChange( *this, "addRoute", arg );
}

void FibIpv4::delRoute( Hul::VrfId vrf, U32 prefix, U32 prefixLen ) {
   auto * const arg = newMessage< vex::pb::FibIpv4RouteArg >( *this );
   arg->set_vrf( vrf );
   arg->set_prefix( prefix );
   arg->set_prefix_len( prefixLen );
   enqueueChange( *this, "delRoute", arg );
}

void FibIpv4::addFec( FecKey fec, const NexthopInfoColl & nexthopColl ) {
   auto * const arg = newMessage< vex::pb::FibIpv4FecArg >( *this );
   arg->set_fec_id( fec );
   for ( const auto & nexthop : nexthopColl.nhIterator() ) {
      auto & member = *arg->add_nh_info();
      const auto gate = intfIdToOutGate( nexthop.intfId() );
      GANT_TRACE( 6, "addFec: ", " fec:", fec, " nh:", nexthop.nhIndex(), " intfId: ", nexthop.intfId(),
                  " gate: ", gate );
      member.set_nh_index( nexthop.nhIndex() );
      member.set_gate( gate );
   }
   enqueueChange( *this, "addFec", arg );
}

void FibIpv4::addFecWithGate( FecKey fec, Vex::GateId gate ) {
   auto * const arg = newMessage< vex::pb::FibIpv4FecArg >( *this );
   arg->set_fec_id( fec );
   arg->add_nh_info()->set_gate( gate );
   enqueueChange( *this, "addFec", arg );
}

void FibIpv4::delFec( FecKey fec ) {
   auto * const arg = newMessage< vex::pb::FibIpv4FecArg >( *this );
   arg->set_fec_id( fec );
   enqueueChange( *this, "delFec", arg );
}

void FibIpv4::sendVrf( const char * action, Hul::VrfId vrf ) {
   auto * const arg = newMessage< vex::pb::FibIpv4VrfArg >( *this );
   arg->set_vrf( vrf );
   enqueueChange( *this, action, arg );
}

void FibIpv4::addVrf( Hul::VrfId vrf ) { sendVrf( "addVrf", vrf ); }

void FibIpv4::delVrf( Hul::VrfId vrf ) { sendVrf( "delVrf", vrf ); }

void FibIpv4::show( int cliSocket, const Gant::String & vrfName ) {
   cliSocketIs( cliSocket );
   auto * const arg = newMessage< vex::pb::FibIpv4ShowArg >( *this );
   arg->set_cli_socket( static_cast< U32 >( cliSocket ) );
   arg->set_use_grpc( useGRPC() );
   const auto vrf = l3Sm()->hulL3Status()->vrfId( L3::VrfName( vrfName ) );
   arg->set_vrf( vrf );
   int dupResult = 0;
   if ( !useGRPC() ) {
      const U64 suffix = vrf;
      ackSm()->doSetupSocketFileDescriptor( ackSocketBind( suffix ) );
      dupResult = dupSocket( suffix );
      GANT_TRACE( 3, name(), " dupSocket returned with ", dupResult );
   }
   enqueueAside( *this, "showFib", arg );
   ackSm()->activeMsgCountInc( 1 );
   GANT_TRACE( 3, name(), " show() returned ", dupResult );
}

void FibIpv4::setCounterIds( Vex::CounterId noRouteCounter, Vex::CounterId noFecCounter ) {
   auto * const arg = newMessage< vex::pb::FibIpv4CounterIdArg >( *this );
   arg->set_no_route_counter( noRouteCounter );
   arg->set_no_fec_counter( noFecCounter );
   enqueueAside( *this, "setCounterIds", arg );
}

ForUsClassifyIpv4::ForUsClassifyIpv4( const Gant::String & name, U32 maxInGate, U32 maxOutGate, U32 reservedInGate,
                                      U32 reservedOutGate, Message * initArgs,
                                      Gant::Ptr< Vex::ModuleConfigStatusPair > pair ) :
     Module( name, Vex::VexModule::ForUsClassifyIpv4, maxInGate, maxOutGate, reservedInGate, reservedOutGate, initArgs,
             std::move( pair ) ) {}

void ForUsClassifyIpv4::setCounterIds( Vex::CounterId internalErrLinearizeCounter, Vex::CounterId unknownPktCounter ) {
   auto * const arg = newMessage< vex::pb::ForUsClassifyIpv4CounterIdArg >( *this );
   arg->set_internal_err_linearize_counter( internalErrLinearizeCounter );
   arg->set_unknown_pkt_counter( unknownPktCounter );
   enqueueAside( *this, "setCounterIds", arg );
}

} // namespace VexL3Unicast
