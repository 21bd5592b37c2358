// Unary requests: the first byte is the procedure, the others the request. The data plane has the modules of an
// interface.
#include "DpControlService.h"
#include "DpEngineService.h"
#include "FuzzEngine.h"

#include "vex/fib_ipv4.pb.h"
#include "vex/ip.pb.h"
#include "vex/port.pb.h"

namespace {

void create( Vexdp::Engine & engine, const char * name, const char * mclass, const google::protobuf::Message & arg ) {
   bess::pb::CreateModuleRequest request;
   request.set_name( name );
   request.set_mclass( mclass );
   request.mutable_arg()->PackFrom( arg );
   bess::pb::CreateModuleResponse response;
   engine.apply( request, response );
}

void connect( Vexdp::Engine & engine, const char * from, unsigned gate, const char * to ) {
   bess::pb::ConnectModulesRequest request;
   request.set_m1( from );
   request.set_ogate( gate );
   request.set_m2( to );
   bess::pb::EmptyResponse response;
   engine.apply( request, response );
}

template < typename Request, typename Response, typename Call >
void call( const std::uint8_t * data, std::size_t size, const Call & call ) {
   Request request;
   Response response;
   if ( request.ParseFromArray( data, static_cast< int >( size ) ) ) call( request, response );
}

} // namespace

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   if ( size == 0 ) return 0;
   Fuzz::Plane plane;
   Vexdp::ControlService control( plane.engine );
   Vexdp::EngineService engine( plane.engine );
   vex::pb::FibIpv4Arg fib;
   fib.set_max_rules( 16 );
   create( plane.engine, "fib", "FibIpv4", fib );
   vex::pb::PortArg port;
   port.set_intfname( "et1" );
   port.set_intf_id( 1 );
   create( plane.engine, "rx", "PortRx", port );
   create( plane.engine, "in", "IpInput", vex::pb::IpInputArg() );
   connect( plane.engine, "rx", 0, "in" );
   connect( plane.engine, "in", 1, "fib" );

   using namespace bess::pb;
   const auto procedure = data[ 0 ] % 8;
   ++data;
   --size;
   switch ( procedure ) {
   case 0:
      call< CreateModuleRequest, CreateModuleResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.CreateModule( nullptr, &request, &response );
      } );
      break;
   case 1:
      call< DestroyModuleRequest, EmptyResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.DestroyModule( nullptr, &request, &response );
      } );
      break;
   case 2:
      call< ConnectModulesRequest, EmptyResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.ConnectModules( nullptr, &request, &response );
      } );
      break;
   case 3:
      call< DisconnectModulesRequest, EmptyResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.DisconnectModules( nullptr, &request, &response );
      } );
      break;
   case 4:
      call< CommandRequest, CommandResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.ModuleCommand( nullptr, &request, &response );
      } );
      break;
   case 5:
      call< vex::pb::LookupRequest, vex::pb::LookupReply >(
           data, size, [ & ]( auto & request, auto & response ) { engine.Lookup( nullptr, &request, &response ); } );
      break;
   case 6:
      call< vex::pb::TracePacketRequest, vex::pb::TracePacketReply >(
           data, size,
           [ & ]( auto & request, auto & response ) { engine.TracePacket( nullptr, &request, &response ); } );
      break;
   default:
      call< GetModuleInfoRequest, GetModuleInfoResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.GetModuleInfo( nullptr, &request, &response );
      } );
      call< GetMclassInfoRequest, GetMclassInfoResponse >( data, size, [ & ]( auto & request, auto & response ) {
         control.GetMclassInfo( nullptr, &request, &response );
      } );
   }
   return 0;
}
