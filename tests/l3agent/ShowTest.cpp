#include "Engine.h"
#include "GantTrace.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/next_hop.pb.h"

#include <google/protobuf/any.pb.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace Test;

class Show : public testing::Test {
 protected:
   void SetUp() override {
      ASSERT_EQ( pipe( ends ), 0 );
      core.vrf( "blue", 5 );
      core.vrfHelper->createVrf( Hul::VrfId( 0 ) );
      core.port( "Ethernet1" );
      core.routed( "Ethernet1", 4094 );
      core.take();
   }
   void TearDown() override {
      close( ends[ 0 ] );
      close( ends[ 1 ] );
   }
   void answer( const google::protobuf::Message & message ) {
      google::protobuf::Any any;
      any.PackFrom( message );
      core.channel->responseIs( core.l3Pair->moduleConfig()->origin(), any );
   }
   Gant::String printed() {
      char text[ 4000 ];
      if ( write( ends[ 1 ], "", 1 ) != 1 ) return "";
      const auto size = read( ends[ 0 ], text, sizeof( text ) );
      return Gant::String( text, static_cast< size_t >( size - 1 ) );
   }
   vex::pb::FibIpv4ReadFibResp fibAnswer( U32 vrf ) const {
      vex::pb::FibIpv4ReadFibResp resp;
      resp.set_cmd_action( "showFib" );
      resp.set_cli_socket( static_cast< U32 >( ends[ 1 ] ) );
      resp.set_vrf( vrf );
      return resp;
   }
   vex::pb::NextHopReadNHResp nhAnswer( const char * intfName ) const {
      vex::pb::NextHopReadNHResp resp;
      resp.set_cmd_action( "showNH" );
      resp.set_cli_socket( static_cast< U32 >( ends[ 1 ] ) );
      resp.set_intf_id( 77 );
      resp.set_intfname( intfName );
      return resp;
   }

   using End = Vex::CliSm::ShowEnd;
   std::vector< std::pair< char, End > > ended; // the shows, and how; before the core, whose end drops the rest
   int ends[ 2 ];
   L3Core core;
};

TEST_F( Show, theFibAnswersInItsTextForm ) {
   auto resp = fibAnswer( 5 );
   auto & route = *resp.add_fibinfo();
   route.set_prefix( "10.0.0.0" );
   route.set_prefix_len( 8 );
   route.set_fec_id( 7 );
   for ( const int members : { 1, 2, 0 } ) {
      auto & fec = *resp.add_fecinfo();
      fec.set_fec_id( 7 + static_cast< U32 >( resp.fecinfo_size() ) );
      for ( int i = 0; i < members; ++i ) {
         auto & member = *fec.add_nh_info();
         member.set_nh_index( 3 );
         member.set_gate( static_cast< U32 >( i ) );
      }
   }
   answer( resp );
   EXPECT_EQ( printed(),
              " 'pModuleFIB5': (  '10.0.0.0/8', ( 'blue', 7 ), ), # End of pModuleFIB5\n"
              " 'pModuleFEC5': {  '8': ( 3, 0 ) , '9': ( 3, 0, 3, 1, ), '10': ( ), }, # End of pModuleFEC5\n" );
}

TEST_F( Show, aNextHopModuleAnswersInItsTextForm ) {
   auto resp = nhAnswer( "Ethernet1" );
   auto & info = *resp.add_nexthopinfo();
   info.set_nh_index( 4 );
   info.set_pkt_cmd( 1 );
   info.set_mac_da( "00:00:00:00:00:42" );
   answer( resp );
   EXPECT_EQ( printed(), " 'pModule77NH': {  '4': ( 77, 4, 1, '00:00:00:00:00:42' ),\n }, # End of pModule77NH\n" );
   answer( nhAnswer( "Ethernet1" ) );
   EXPECT_EQ( printed(), " 'pModule77NH': {  }, # End of pModule77NH\n" );
}

TEST_F( Show, onlyAnswersToShowsArePrinted ) {
   auto other = fibAnswer( 0 );
   other.set_cmd_action( "other" );
   answer( other );
   answer( vex::pb::FibIpv4VrfArg() );
   EXPECT_EQ( Gant::traceLines( 1, "VexL3Sm" ).back().text.substr( 0, 40 ),
              "VexL3Sm::handleResponse Unknown Any Msg " );
   core.l3Pair->moduleStatus()->responseQueueEnq( Gant::make< Vex::ModuleResponseEvent >( nullptr ) );
   EXPECT_EQ( printed(), "" );
}

TEST_F( Show, oneModuleShowsAtATimeAndTheNextBeginsWithItsEnd ) {
   const auto & cliSm = core.vexcsd->cliSm();
   const auto done = [ & ]( char name ) { return [ this, name ]( End end ) { ended.emplace_back( name, end ); }; };
   cliSm->pModuleQueueEnq( core.l3Modules->fibIpv4(), ends[ 1 ], "blue", done( 'a' ) );
   cliSm->pModuleQueueEnq( core.l3Modules->nextHopMod( intf( "Ethernet1" ) ), ends[ 1 ], "Ethernet1", done( 'b' ) );
   const auto fd = std::to_string( ends[ 1 ] );
   EXPECT_EQ( core.take(), Lines{ "fibIpv4 showFib cli_socket " + fd + " use_grpc true vrf 5" } );
   answer( fibAnswer( 5 ) );
   EXPECT_EQ( core.take(), Lines{ "NextHop_et1 showNH cli_socket " + fd + " use_grpc true intfname Ethernet1" } );
   answer( nhAnswer( "Ethernet1" ) );
   EXPECT_EQ( ended, ( std::vector< std::pair< char, End > >{ { 'a', End::complete }, { 'b', End::complete } } ) );

   // A module that goes drops the shows that wait. The answer to its own completes that one, though it is made anew.
   for ( const bool anew : { false, true } ) {
      ended.clear();
      cliSm->pModuleQueueEnq( core.l3Modules->nextHopMod( intf( "Ethernet1" ) ), ends[ 1 ], "Ethernet1", done( 'c' ) );
      cliSm->pModuleQueueEnq( core.l3Modules->nextHopMod( intf( "Ethernet1" ) ), ends[ 1 ], "Ethernet1", done( 'd' ) );
      core.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
      EXPECT_EQ( ended, ( std::vector< std::pair< char, End > >{ { 'd', End::dropped } } ) );
      if ( anew ) core.routed( "Ethernet1", 4094 );
      cliSm->pModuleQueueEnq( core.l3Modules->fibIpv4(), ends[ 1 ], "default", done( 'e' ) );
      printed();
      core.take();
      answer( nhAnswer( "Ethernet1" ) );
      EXPECT_EQ( printed(), " 'pModule77NH': {  }, # End of pModule77NH\n" );
      EXPECT_EQ( ended.back(), ( std::pair{ 'c', End::complete } ) );
      EXPECT_EQ( core.take(), Lines{ "fibIpv4 showFib cli_socket " + fd + " use_grpc true vrf 0" } );
      answer( fibAnswer( 0 ) );
      EXPECT_EQ( ended.back(), ( std::pair{ 'e', End::complete } ) );
      printed();
      if ( !anew ) core.routed( "Ethernet1", 4094 );
   }
}

} // namespace
