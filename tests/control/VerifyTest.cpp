// verify: clean after whatever the agent did, and every kind of damage is named.

#include "ControlSocket.h"
#include "HostControlServer.h"
#include "StateIpsec.h"
#include "TestRouter.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/ip.pb.h"
#include "vex/ipsec.pb.h"
#include "vex/next_hop.pb.h"
#include "vex/port.pb.h"
#include "VexL3Types.h"
#include "VexRoutingStatusSm.h"

#include <csignal>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

namespace {

using Host::Json;
using Test::via;

class Verify : public testing::Test {
 protected:
   Verify() {
      router_.vrf( "red", 1 );
      router_.intf( "Ethernet1", "10.0.1.1/24" );
      router_.intf( "Ethernet2", "10.0.2.1/24", "red" );
      router_.neighbor( "Ethernet1", "10.0.1.2", "02:00:00:00:01:02" );
      router_.tunnel( "Tunnel7", "10.0.1.1", "10.1.0.7" );
      router_.fec( 1, { via( "10.0.1.2", "Ethernet1" ) } );
      router_.fec( 2, { via( "10.0.2.2", "Ethernet2" ) } );
      router_.fec(
           3, { Mirel::Via( Mirel::RouteType::forward(), {}, Kynet::IntfId::fromString( "Tunnel7" ).value(), 1 ) } );
      router_.route( "10.1.0.0/16", 1 );
      router_.route( "10.2.0.0/16", 2, 1 );
      router_.route( "10.3.0.0/16", 3 );
      router_.settle();
      EXPECT_EQ( server_.open( directory_.path( "control" ) ), "" );
   }

   // Behind the agent's back.
   void command( const char * module, const char * action, const google::protobuf::Message & message ) {
      router_.channel()->command( 60000, module, action, message, true );
   }
   vex::pb::FibIpv4RouteArg route( U32 vrf, const char * text, U32 fec ) {
      const auto prefix = Kynet::Prefix::fromString( text ).value();
      vex::pb::FibIpv4RouteArg arg;
      arg.set_vrf( vrf );
      arg.set_prefix( prefix.address().value() );
      arg.set_prefix_len( prefix.len() );
      arg.set_fec_id( fec );
      return arg;
   }
   U32 fecOf( U32 vrf, const char * text ) {
      return router_.agent()
           ->routeDb()
           ->route( Hul::VrfAndIpGenPrefix( Hul::VrfId( vrf ), Kynet::Prefix::fromString( text ).value() ) )
           ->fecKey()
           .value();
   }
   vex::pb::FibIpv4FecArg fec( U32 id ) {
      vex::pb::FibIpv4FecArg arg;
      arg.set_fec_id( id );
      return arg;
   }

   // The differences in a line each, and the count at last.
   std::vector< std::string > verify() {
      ::Test::ControlSocket client( directory_.path( "control" ) );
      std::vector< std::string > lines;
      for ( const auto & row : client.ask( { { "command", "verify" } } ) ) {
         if ( row.contains( "difference" ) )
            lines.push_back( text( row, "difference" ) + " " + text( row, "module" ) + ", " + text( row, "object" ) +
                             ": " + text( row, "agent" ) + " | " + text( row, "dataPlane" ) );
         if ( row.contains( "end" ) ) end_ = row[ "end" ];
      }
      EXPECT_EQ( end_.value( "differences", -1 ), static_cast< int >( lines.size() ) ) << end_;
      return lines;
   }
   static std::string text( const Json & row, const char * member ) { return row.at( member ).get< std::string >(); }

   ::Test::Directory directory_;
   ::Test::TestRouter router_;
   Host::ControlServer server_{ router_ };
   Json end_;
};

using Lines = std::vector< std::string >;

TEST_F( Verify, isCleanAfterAFeedAndSaysHowMuchItHasCompared ) {
   EXPECT_EQ( verify(), Lines() );
   EXPECT_EQ( end_[ "compared" ][ "routes" ], 9 );
   EXPECT_EQ( end_[ "compared" ][ "VRFs" ], 2 );
   EXPECT_EQ( end_[ "notCompared" ], Json::array() );
   // The tunnel's route resolves over Ethernet1.
   EXPECT_EQ( end_[ "compared" ][ "resolve entries" ], 1 ) << end_;
}

TEST_F( Verify, namesRoutesThatAreMissingForeignOrOnAnotherFec ) {
   const U32 one = fecOf( 0, "10.1.0.0/16" ), two = fecOf( 1, "10.2.0.0/16" );
   command( "fibIpv4", "delRoute", route( 0, "10.1.0.0/16", one ) );
   command( "fibIpv4", "addRoute", route( 0, "99.0.0.0/8", one ) );
   command( "fibIpv4", "addRoute", route( 1, "10.2.0.0/16", one ) );
   command( "fibIpv4", "delRoute", route( 1, "224.0.0.0/4", 0 ) );
   const auto fec = []( U32 id ) { return "FEC " + std::to_string( id ); };
   EXPECT_EQ( verify(), ( Lines{ "unexpected fibIpv4, route 99.0.0.0/8:  | " + fec( one ),
                                 "different fibIpv4, route 10.2.0.0/16 in VRF 1: " + fec( two ) + " | " + fec( one ),
                                 "missing fibIpv4, route 224.0.0.0/4 in VRF 1: FEC 2 | ",
                                 "missing fibIpv4, route 10.1.0.0/16: " + fec( one ) + " | " } ) );
}

TEST_F( Verify, namesAFecThatIsMissingAndARouteThatDangles ) {
   const U32 one = fecOf( 0, "10.1.0.0/16" );
   const auto name = "FEC " + std::to_string( one );
   command( "fibIpv4", "delFec", fec( one ) );
   const auto lines = verify();
   ASSERT_EQ( lines.size(), 2u );
   EXPECT_EQ( lines[ 0 ].find( "missing fibIpv4, " + name + ": gate " ), 0u ) << lines[ 0 ];
   EXPECT_EQ( lines[ 1 ], "dangling fibIpv4, route 10.1.0.0/16:  | " + name + " does not exist" );
}

TEST_F( Verify, namesAFecWithOtherMembersAndMembersThatLeadNowhere ) {
   const U32 one = fecOf( 0, "10.1.0.0/16" );
   auto arg = fec( one );
   for ( const U32 gate : { 4000u, ~0u } ) {
      arg.add_nh_info()->set_gate( gate );
      arg.mutable_nh_info()->rbegin()->set_nh_index( 1 );
   }
   command( "fibIpv4", "addFec", arg );
   const auto lines = verify();
   ASSERT_EQ( lines.size(), 3u );
   EXPECT_NE( lines[ 0 ].find( " | gate 4000 index 1, no gate index 1" ), std::string::npos ) << lines[ 0 ];
   EXPECT_NE( lines[ 1 ].find( "gate 4000 is not connected" ), std::string::npos ) << lines[ 1 ];
   EXPECT_NE( lines[ 2 ].find( "a member has no gate" ), std::string::npos ) << lines[ 2 ];
}

TEST_F( Verify, namesNextHopEntriesAndWhatRefersToAMissingOne ) {
   const auto & info = router_.agent()->routeDb()->fec( VexL3Unicast::FecKey( fecOf( 0, "10.1.0.0/16" ) ) )->info();
   const auto index = info.nextHop( 0 ).nhLocalIndex();
   vex::pb::NextHopWriteNHArg gone, foreign;
   gone.add_nexthopinfo()->set_nh_index( index );
   command( "NextHop_et1", "deleteNH", gone );
   foreign.add_nexthopinfo()->set_nh_index( 77 );
   foreign.mutable_nexthopinfo( 0 )->set_pkt_cmd( 2 );
   command( "NextHop_et1", "writeNH", foreign );
   const auto lines = verify();
   const auto has = [ & ]( const std::string & part ) {
      return std::ranges::any_of( lines, [ & ]( const auto & line ) { return line.find( part ) != line.npos; } );
   };
   EXPECT_EQ( lines.size(), 3u );
   EXPECT_TRUE( has( "unexpected NextHop_et1, next hop 77:  | drop" ) );
   EXPECT_TRUE( has( "dangling fibIpv4" ) && has( "NextHop_et1 has no entry " + std::to_string( index ) ) );
   EXPECT_TRUE( has( "missing NextHop_et1, next hop " + std::to_string( index ) + ": forward to 02:00:00:00:01:02" ) );
}

TEST_F( Verify, namesSettingsOfInterfaces ) {
   vex::pb::IpOutputArg mtu;
   mtu.set_ip_mtu( 576 );
   command( "IpOutput_et1", "setMtu", mtu );
   vex::pb::TcpMssAdjustArg mss;
   mss.set_mss( 1400 );
   command( "IpInput_et1", "setTcpMssAdjust", mss );
   vex::pb::VrfArg vrf;
   vrf.set_vrf( 5 );
   command( "EtherClassify_et2", "setVrf", vrf );
   vex::pb::EthernetConfigArg mac;
   mac.set_mac_addr( std::string( 6, '\2' ) );
   command( "NextHop_et2", "setSrcMacAddr", mac );
   EXPECT_EQ( verify(),
              ( Lines{ "different EtherClassify_et2, VRF: 1 | 5", "different IpInput_et1, TCP MSS: none | 1400 bytes",
                       "different IpOutput_et1, MTU: 1500 bytes | 576 bytes",
                       "different NextHop_et2, source MAC: 02:00:00:00:00:02 | 02:02:02:02:02:02" } ) );
}

TEST_F( Verify, namesSecurityAssociationsAndNoKeys ) {
   using namespace Ipsec::Ike;
   const auto sa = []( U32 spi ) {
      SecurityAssociation sa;
      sa.sakeyIs( SaKey( SaId( spi, Kynet::IpGenAddr( Kynet::IpAddr( 0x0a000001 ) ), 50 ), 2 ) );
      sa.saddrIs( Kynet::IpGenAddr( Kynet::IpAddr( 0x0a000002 ) ) );
      sa.cryptoAlgoIs( "aes" );
      sa.cryptoKeyIs( KeyMaterial( "SECRET-SECRET-01" ) );
      sa.cryptoKeyLenIs( 128 );
      return sa;
   };
   Connection connection;
   connection.nameIs( "site-a" );
   connection.outSaIs( sa( 4096 ) );
   SecurityAssociationQueue saq;
   saq.saqEnq( sa( 4097 ) );
   connection.inSaqIs( saq );
   router_.agent()->ipsecMounts()->connectionTable()->connectionIs(
        ConnectionKey( Kynet::NamespaceName( "default" ), EncapId( 5, EncapIdType::IpsecVti() ) ), connection );
   EXPECT_EQ( verify(), Lines() );
   EXPECT_EQ( end_[ "compared" ][ "security associations" ], 2 );
   vex::pb::IpsecUpdateSAArg update;
   ASSERT_TRUE( google::protobuf::TextFormat::ParseFromString(
        "vrf: 0 encap_id: 5 sa_direction: 1 saentries { tunnel_type: 1 sa_spi: 4098 sa_type: 0 encap_type: 0 "
        "auth_info: '' auth_info_len: 0 family: 2 proto: 50 flags: 1 src_addr: 0x0a000002 dst_addr: 0x0a000001 "
        "cipher_algorithm: 5 auth_algorithm: 1 crypto_info: 'SECRET-SECRET-02' crypto_info_len: 128 "
        "replay_window: 64 }",
        &update ) );
   command( "ipsecManagementModule", "updateIpsecSAs", update );
   const std::string words = "10.0.0.2 -> 10.0.0.1, tunnel, type 1, cipher 5 of 128 bits, authentication 1 of 0 bits, "
                             "ICV of 0 bytes, window ";
   const std::string ipsec = " ipsecManagementModule, ", five = " of IPsec connection 5";
   EXPECT_EQ( verify(), ( Lines{ "unexpected" + ipsec + "inbound SA 0x00001002" + five + ":  | " + words + "64",
                                 "missing" + ipsec + "inbound SA 0x00001001" + five + ": " + words + "0 | " } ) );
}

TEST_F( Verify, namesModulesConnectionsAndCounters ) {
   const auto channel = router_.channel();
   channel->createModule( 60000, "stray", "Trap", nullptr );
   channel->disconnectModules( 60000, "IpInput_et1", Vex::GateId( 0 ) );
   channel->connectModules( 60000, "IpInput_et1", Vex::GateId( 0 ), "stray", Vex::GateId( 0 ) );
   channel->destroyModule( 60000, "mfib6_red" );
   vex::pb::FibIpv4CounterIdArg counters;
   counters.set_no_route_counter( 900 );
   command( "fibIpv4", "setCounterIds", counters );
   const auto lines = verify();
   EXPECT_EQ( lines.front(), "unexpected stray, module:  | Trap" );
   for ( const char * part :
         { "different IpInput_et1, gate 0: to trap | to stray", "missing mfib6_red, module: McastFibIpv6",
           "different fibIpv4, counters: [0,1] | [1,900]" } )
      EXPECT_TRUE( std::ranges::any_of( lines, [ & ]( const auto & line ) { return line.find( part ) == 0; } ) )
           << part << " in " << Json( lines ).dump( 1 );
}

TEST_F( Verify, comparesAStateThatStoodStillAndNotOneThatChangedMeanwhile ) {
   // given a client that verifies, and routes that come while it does, of which none is answered before the last
   ::Test::stop( router_.status().dataPlanePid );
   ::Test::ControlSocket client( directory_.path( "control" ) );
   client.send( R"({"command":"verify"})"
                "\n" );
   for ( U32 n = 0; n < 20000; ++n ) {
      router_.fib->routeIs( 0, Kynet::Prefix( Kynet::IpAddr( 0x14000000 + ( n << 8 ) ), 24 ),
                            Mirel::Route( Mirel::RouteType::forward(), 1, 0 ) );
      if ( n % 1000 == 0 ) Gant::activityManager()->poll();
   }
   kill( router_.status().dataPlanePid, SIGCONT );
   // then the answer is that of the state after the last of them
   const auto end = client.answer().back()[ "end" ];
   EXPECT_EQ( end[ "differences" ], 0 ) << end;
   EXPECT_EQ( end[ "compared" ][ "routes" ], 20009 );
}

TEST_F( Verify, tellsWhatTheAgentItselfFinds ) {
   router_.agent()->routingStatusSm()->virtualRouterMacIs( Kynet::EthAddr( { 2, 0, 0, 0, 0, 9 } ) );
   EXPECT_EQ( verify(), Lines{ "reported agent, : void VexL3Unicast::RoutingStatusSm::handleVerify():  cached anygwmac "
                               "02:00:00:00:00:09 rs->anygwMac 00:00:00:00:00:00 | " } );
}

TEST_F( Verify, keepsNoInterfaceThatIsMadeAnewMeanwhile ) {
   ::Test::ControlSocket client( directory_.path( "control" ) );
   for ( const char * vrf : { "red", "default" } ) {
      client.send( R"({"command":"verify"})"
                   "\n" );
      while ( Gant::activityManager()->poll() != 0 ) {
      }
      router_.intfGone( "Ethernet1" );
      router_.intf( "Ethernet1", "10.0.1.1/24", vrf );
      EXPECT_EQ( client.answer().back()[ "end" ][ "differences" ], 0 );
   }
   EXPECT_EQ( router_.channel()->requestsRefused(), 0u );
}

} // namespace
