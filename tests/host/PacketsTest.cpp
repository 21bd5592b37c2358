// verify --packets: every packet goes where the state says, and a fault behind the agent's back is named.
#include "HostRuleTables.h"
#include "SessionRouter.h"
#include "vex/fib_ipv4.pb.h"
#include "vex/ip.pb.h"
#include "vex/ipsec.pb.h"
#include "vex/next_hop.pb.h"
#include "VexKyAclDb.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

class Packets : public testing::Test {
 protected:
   static void tell( SessionRouter & router ) {
      const std::pair< const char *, const char * > entries[] = {
           { "vrf", "{name: red}" },
           { "access-list", "{name: web, rules: [10 permit tcp any 50.1.0.0/16 eq 80, 20 deny ip any 50.2.0.0/16, "
                            "30 permit udp any 50.2.0.0/16, 40 permit ip any any]}" },
           { "access-list", "{name: voice, rules: [permit udp any any range 5000 6000]}" },
           { "class-map", "{name: rt, match: {access-list: voice}}" },
           { "policy-map", "{name: edge, classes: [{class: rt, set: {dscp: ef, traffic-class: 5}}]}" },
           { "interface", "{name: Ethernet1, addresses: 10.0.1.1/24, service-policy: {input: edge}}" },
           { "interface", "{name: Ethernet2, addresses: 10.0.2.1/24, access-group: {out: web}}" },
           { "interface", "{name: Ethernet3, vrf: red, addresses: 10.0.3.1/24}" },
           { "neighbor", "{interface: Ethernet2, address: 10.0.2.2, mac: '02:00:00:00:02:02'}" },
           { "neighbor", "{interface: Ethernet2, address: 10.0.2.3, mac: '02:00:00:00:02:03'}" },
           { "tunnel",
             "{name: Tunnel1, addresses: 10.255.1.1/30, source: 10.0.1.1, destination: 203.0.113.1, key: 7}" },
           { "route", "{prefix: 203.0.113.0/24, via: 10.0.2.2}" },
           { "route", "{prefix: 50.0.0.0/8, via: 10.0.2.2}" },
           { "route", "{prefix: 50.1.0.0/16, via: 10.0.2.3}" },
           { "route", "{prefix: 60.0.0.0/31, via: 10.0.2.2}" },
           { "route", "{prefix: 60.0.0.0/32, via: 10.0.2.3}" },
           { "route", "{prefix: 60.0.0.1/32, blackhole: true}" },
           { "route", "{prefix: 70.0.0.0/8, vrf: red, receive: Ethernet3}" } };
      for ( const auto & [ kind, entry ] : entries )
         ASSERT_EQ( router.change( Host::ChangeOp::add, kind, entry ).message, "" ) << entry;
   }

   // What differs of packets, as "object: expected | found".
   Lines differences() {
      router_.settle();
      answer_ = router_.ask( { { "command", "verify" }, { "packets", true } } );
      Lines lines;
      for ( const auto & row : answer_.rows )
         if ( row[ "object" ].get< std::string >().starts_with( "packet " ) )
            lines.push_back( row[ "module" ].get< std::string >() + ": " + row[ "agent" ].get< std::string >() + " | " +
                             row[ "dataPlane" ].get< std::string >() );
      return lines;
   }
   void command( const char * module, const char * action, const google::protobuf::Message & message ) {
      router_.channel()->command( 60000, module, action, message, true );
   }

   SessionRouter router_{ tell };
   Rows answer_;
};

TEST_F( Packets, goWhereTheStateSaysAndWhatNoneMeetsIsListed ) {
   EXPECT_EQ( differences(), Lines() );
   EXPECT_EQ( answer_.end[ "differences" ], 0 );
   EXPECT_EQ( answer_.end[ "compared" ][ "packets of list rules" ], 3 );
   EXPECT_EQ( answer_.end[ "compared" ][ "packets of classes" ], 1 );
   EXPECT_EQ( answer_.end[ "compared" ][ "packets of tunnels" ], 2 );
   Lines notMet;
   for ( const auto & each : answer_.end[ "notMet" ] )
      notMet.push_back( each[ "object" ].get< std::string >() + ": " + each[ "reason" ].get< std::string >() );
   EXPECT_EQ( notMet,
              ( Lines{ "route 60.0.0.0/31: longer prefixes cover it",
                       "access-list web, sequence 30, out on Ethernet2: sequence 20 matches all that it would" } ) );
   // One whose other end is on a link, where nobody knows it.
   router_.change( Host::ChangeOp::add, "tunnel",
                   "{name: Tunnel3, addresses: 10.255.3.1/30, source: 10.0.2.1, destination: 10.0.2.9}" );
   EXPECT_EQ( differences(), Lines() );
   EXPECT_EQ( answer_.end[ "compared" ][ "packets of tunnels" ], 4 );
}

TEST_F( Packets, nameARouteAndANeighborThatLeadElsewhere ) {
   const auto fecOf = [ & ]( const char * text ) {
      const auto prefix = Kynet::Prefix::fromString( text ).value();
      return router_.agent()->routeDb()->route( Hul::VrfAndIpGenPrefix( Hul::VrfId( 0 ), prefix ) )->fecKey();
   };
   vex::pb::FibIpv4RouteArg route;
   route.set_vrf( 0 );
   route.set_prefix( 50u << 24 | 1 << 16 );
   route.set_prefix_len( 16 );
   route.set_fec_id( fecOf( "50.0.0.0/8" ).value() );
   command( "fibIpv4", "addRoute", route );
   const std::string moved = ": out of Ethernet2 to 02:00:00:00:02:03 | out of Ethernet2 to 02:00:00:00:02:02";
   EXPECT_EQ( differences(),
              ( Lines{ "route 50.1.0.0/16" + moved, "access-list web, sequence 10, out on Ethernet2" + moved } ) );
   const auto & hop = router_.agent()->routeDb()->fec( fecOf( "10.0.2.2/32" ) )->info().nextHop( 0 );
   vex::pb::NextHopWriteNHArg entry;
   entry.add_nexthopinfo()->set_nh_index( hop.nhLocalIndex() );
   entry.mutable_nexthopinfo( 0 )->set_pkt_cmd( 1 );
   entry.mutable_nexthopinfo( 0 )->set_mac_da( "\2\0\0\0\0\x66", 6 );
   command( "NextHop_et2", "writeNH", entry );
   const auto lines = differences();
   EXPECT_NE( std::ranges::find( lines, "route 203.0.113.0/24: out of Ethernet2 to 02:00:00:00:02:02 | out of "
                                        "Ethernet2 to 02:00:00:00:00:66" ),
              lines.end() );
}

TEST_F( Packets, nameARuleAClassAndATunnelThatAreNotWhatTheyWere ) {
   router_.settle();
   for ( const auto & table : Host::meantTables( Host::AgentView( router_ ) ) ) {
      const bool list = table.object == "access-list web";
      if ( !list && table.object != "policy-map edge" ) continue;
      vex::pb::KyIpAclArg emptied;
      emptied.set_acl_id( table.id );
      emptied.set_acl_target( static_cast< U32 >( table.target ) );
      if ( list ) emptied.add_rule()->set_permit( true );
      command( "kyAclDb", list ? "createAcl" : "createPolicy", emptied );
   }
   vex::pb::TunnelEndArg shut;
   shut.set_ogate( 1 );
   command( "tunnelIngress", "delTunnel", shut );
   EXPECT_EQ( differences(),
              ( Lines{ "access-list web, sequence 20, out on Ethernet2: denied by an access list | out of Ethernet2 to "
                       "02:00:00:00:02:02",
                       "policy-map edge, class rt, on Ethernet1: out of Ethernet2 to 02:00:00:00:02:02, dscp ef, "
                       "traffic class 5 | out of Ethernet2 to 02:00:00:00:02:02",
                       "tunnel Tunnel1, in: out of Ethernet2 to 02:00:00:00:02:02 | to the router: next hop 2 "
                       "is to be punted" } ) );
}

TEST_F( Packets, nameAnAssociationThatOpensNothing ) {
   const std::string sas[] = {
        "encryption: aes, encryption-key: 0x00112233445566778899aabbccddeeff",
        "mode: transport, encryption: rfc4106(gcm(aes)), icv-bits: 96, udp: {source-port: 4500, destination-port: "
        "4501}, "
        "encryption-key: 0x00112233445566778899aabbccddeeff00112233445566770123456789abcdef01234567",
        "authentication: sha1, authentication-key: 0x000102030405060708090a0b0c0d0e0f10111213" };
   for ( size_t n = 0; n < std::size( sas ); ++n ) {
      const auto number = std::to_string( n + 2 ), peer = "203.0.113." + number;
      const bool gre = n == 1;
      for ( const auto & [ kind, entry ] :
            { std::pair( "tunnel", "{name: Tunnel" + number + ", mode: " + ( gre ? "gre-ipsec" : "ipsec" ) +
                                        ", source: 10.0.1.1, destination: " + peer + "}" ),
              std::pair( "ipsec", "{name: c" + number + ", id: " + number + ( gre ? ", type: gre" : "" ) +
                                       ", interfaces: Tunnel" + number + ", inbound: [{spi: " + number +
                                       "000, source: " + peer + ", destination: 10.0.1.1, " + sas[ n ] + "}]}" ) } )
         ASSERT_EQ( router_.change( Host::ChangeOp::add, kind, entry ).message, "" ) << entry;
   }
   EXPECT_EQ( differences(), Lines() );
   EXPECT_EQ( answer_.end[ "compared" ][ "packets of associations" ], 3 );
   vex::pb::IpsecDeleteSAArg gone;
   gone.set_vrf( 0 );
   gone.set_encap_id( 3 );
   gone.set_sa_direction( 1 );
   command( "ipsecManagementModule", "deleteIpsecSAs", gone );
   EXPECT_EQ( differences(),
              Lines{ "inbound SA 0x00000bb8 of c3, in Tunnel3: out of Ethernet2 to 02:00:00:00:02:02 | to "
                     "the router: next hop 2 is to be punted" } );
}

TEST_F( Packets, forATunnelsOwnAddressMeetNoListOfAnotherInterface ) {
   const std::pair< const char *, const char * > entries[] = {
        { "access-list", "{name: none, rules: [deny ip any any]}" },
        { "access-list", "{name: pings, rules: [permit icmp any any]}" },
        { "interface", "{name: Ethernet1, addresses: 10.0.1.1/24, access-group: {out: none}}" },
        { "interface", "{name: Ethernet3, vrf: red, addresses: 10.0.3.1/24, access-group: {out: none}}" },
        { "tunnel", "{name: Tunnel2, vrf: red, underlay: default, addresses: 10.255.2.1/30, source: 10.0.1.1, "
                    "destination: 203.0.113.2, access-group: {in: pings, out: none}}" } };
   for ( const auto & [ kind, entry ] : entries )
      ASSERT_EQ( router_.change( Host::ChangeOp::replace, kind, entry ).message, "" ) << entry;
   EXPECT_EQ( differences(), Lines() );
   const auto end = [ this ]( const char * by, const char * protocol, const char * to ) {
      const auto end = router_
                            .ask( { { "command", "trace packet" },
                                    { "interface", by },
                                    { "source", "198.18.0.1" },
                                    { "destination", to },
                                    { "protocol", protocol } } )
                            .end;
      return end[ "end" ].get< std::string >() + ": " + end[ "reason" ].get< std::string >();
   };
   EXPECT_EQ( end( "Tunnel2", "icmp", "10.255.2.1" ), "local: to the router itself" );
   EXPECT_EQ( end( "Ethernet3", "udp", "10.255.2.1" ), "local: to the router itself" );
   EXPECT_EQ( end( "Tunnel1", "udp", "10.255.1.1" ), "local: to the router itself" );
   for ( const auto & [ by, to ] : { std::pair( "Tunnel2", "10.255.2.1" ), std::pair( "Ethernet3", "10.0.3.1" ) } )
      EXPECT_EQ( end( by, "udp", to ).substr( 0, 7 ), "dropped" ) << by;
}

} // namespace
