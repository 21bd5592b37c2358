// Access lists and policies from the description to the packets, with the programs that a user has.
#include "bess/control.grpc.pb.h"
#include "DaemonProcess.h"
#include "vex/acl.pb.h"

#include <optional>

namespace {

using namespace Test;

class FilteredDaemon : public Vexl3d {
 protected:
   FilteredDaemon() {
      write( "router.yaml", R"(
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24, access-group: {in: edge}, service-policy: {input: edge}}
  - {name: Ethernet2, addresses: 10.0.2.1/24}
neighbors:
  - {interface: Ethernet2, address: 10.0.2.2, mac: 02:00:00:00:02:02}
access-lists:
  - name: edge
    rules:
      - remark the web
      - 10 permit tcp any any eq 80 443 established
      - 20 deny udp any any range 9 11 log
      - 30 permit ip any any
  - {name: voice, rules: [deny udp any any eq 5061, permit udp any any]}
class-maps:
  - {name: voice, match: {access-list: voice}}
policy-maps:
  - {name: edge, classes: [{class: voice, set: {dscp: ef, traffic-class: 5}}, {class: class-default}]}
)" );
      daemon_.emplace( VEXL3D_PROGRAM, arguments( { "--dataplane", address_ } ), runtime() );
      EXPECT_TRUE( daemon_->says( fed ) );
   }

   // "sequence packets ...", those that count.
   std::string hits( const std::string & list ) const {
      std::string all;
      for ( const auto & row : rows( { "show", "access-lists", list } ) )
         if ( row.value( "packets", 0 ) != 0 )
            all += std::to_string( row.value( "sequence", 0 ) ) + ":" + row[ "packets" ].dump() + " ";
      return all;
   }
   std::string trace( Words more ) const {
      more.insert( more.begin(), { "trace", "packet", "--in", "Et1", "--src", "10.0.1.9", "--dst", "10.0.2.2" } );
      std::string actions;
      for ( const auto & row : rows( more ) )
         if ( row[ "class" ] == "KyAcl" || row[ "class" ] == "PolicyQos" )
            actions += row[ "action" ].get< std::string >() + "\n";
      return actions;
   }
   // Differences in a line each.
   Words verify() const {
      Words lines;
      for ( const auto & row : rows( { "verify" } ) )
         lines.push_back( row[ "difference" ].get< std::string >() + " " + row[ "module" ].get< std::string >() + ", " +
                          row[ "object" ].get< std::string >() );
      return lines;
   }
   // Behind the agent's back.
   void command( const char * module, const char * cmd, const google::protobuf::Message & arg ) const {
      const auto stub =
           bess::pb::BESSControl::NewStub( grpc::CreateChannel( address_, grpc::InsecureChannelCredentials() ) );
      grpc::ClientContext context;
      bess::pb::CommandRequest request;
      request.set_name( module );
      request.set_cmd( cmd );
      request.mutable_arg()->PackFrom( arg );
      bess::pb::CommandResponse response;
      const auto status = stub->ModuleCommand( &context, request, &response );
      EXPECT_TRUE( status.ok() && response.error().code() == 0 ) << status.error_message() << response.error().errmsg();
   }

   const std::string address_ = "unix:" + path( "dataplane.sock" );
   Process dataPlane_{ VEXDP_PROGRAM, { "--listen", address_, "--counters", path( "counters" ) } };
   std::optional< Process > daemon_;
};

TEST_F( FilteredDaemon, countsPerRuleAndNamesTheRuleThatDecides ) {
   EXPECT_EQ( trace( { "--proto", "6", "--dport", "443", "--tcp-flags", "16", "--count" } ),
              "access-list edge, sequence 10 (rule 4 of 7), permitted\n"
              "policy-map edge, class class-default (rule 2 of 2)\n" );
   EXPECT_EQ( trace( { "--proto", "6", "--dport", "80", "--tcp-flags", "4", "--count" } ),
              "access-list edge, sequence 10 (rule 1 of 7), permitted\n"
              "policy-map edge, class class-default (rule 2 of 2)\n" );
   EXPECT_EQ( trace( { "--proto", "17", "--dport", "10", "--count" } ),
              "access-list edge, sequence 20 (rule 5 of 7), denied\n" );
   EXPECT_EQ(
        trace( { "--proto", "17", "--dport", "5060", "--count" } ),
        "access-list edge, sequence 30 (rule 6 of 7), permitted\n"
        "policy-map edge, class voice, access-list voice, sequence 20 (rule 1 of 2), DSCP 46, traffic class 5\n" );
   trace( { "--proto", "17", "--dport", "5060" } );
   // The subrules of a rule count together; what was not to count has not.
   EXPECT_EQ( hits( "edge" ), "10:2 20:1 30:1 " );
   const auto classes = rows( { "show", "policy-map", "interface", "Et1" } );
   ASSERT_EQ( classes.size(), 2u );
   EXPECT_EQ( classes[ 0 ][ "packets" ], 1 );
   EXPECT_EQ( classes[ 1 ][ "packets" ], 2 );
   EXPECT_NE( classes[ 0 ][ "notes" ].dump().find( "what sequence 10 denies is of the class where sequence 20" ),
              std::string::npos );
   // A rule keeps its count in the list's next version, under whatever number; one that goes does not.
   vexctl( { "access-list", "replace", "edge", "5 permit icmp any any", "15 permit ip any any" } );
   EXPECT_EQ( hits( "edge" ), "15:1 " );
   EXPECT_EQ( verify(), Words{} );
   EXPECT_EQ( vexctl( { "show", "policy-map", "interface", "Et2" } )[ "error" ][ "code" ], "notFound" );
   EXPECT_EQ( vexctl( { "show", "access-lists", "none" } )[ "error" ][ "code" ], "notFound" );
}

TEST_F( FilteredDaemon, showsWhatIsForTheRouterItself ) {
   vexctl( { "trace", "packet", "--in", "Et2", "--src", "10.0.2.9", "--dst", "10.0.2.1", "--proto", "6", "--dport",
             "179", "--count" } );
   std::string counted;
   for ( const auto & row : rows( { "show", "control-plane" } ) )
      if ( row[ "packets" ] != 0 ) counted += row.dump();
   EXPECT_EQ( counted, R"({"destinationPort":179,"packets":1,"protocol":"tcp","trafficClass":6})" );
}

TEST_F( FilteredDaemon, verifyComparesTablesRuleByRuleAndWhoPointsAtThem ) {
   EXPECT_EQ( verify(), Words{} );
   EXPECT_EQ( vexctl( { "verify" } )[ "notCompared" ].dump().find( "Acl" ), std::string::npos );
   vex::pb::KyIpAclArg table;
   table.set_acl_id( 100 );
   table.set_acl_target( 0 );
   table.add_rule()->set_permit( true );
   command( "kyAclDb", "createAcl", table );
   vex::pb::KyApplyAclArg apply;
   apply.set_acl_id( 100 );
   command( "aclipEt1in", "applyAcl", apply );
   EXPECT_EQ( verify(), ( Words{ "unexpected kyAclDb, access list 100", "different aclipEt1in, binding" } ) );
   vex::pb::KyIpAclArg gone;
   gone.set_acl_id( 100 );
   command( "kyAclDb", "destroyAcl", gone );
   EXPECT_EQ( verify(), Words{ "missing aclipEt1in, binding" } );
   for ( const auto & [ target, id ] : { std::pair( 1, 2 ), { 2, 0 } } ) {
      gone.set_acl_id( std::uint32_t( id ) );
      gone.set_acl_target( std::uint32_t( target ) );
      command( "kyAclDb", "destroyPolicy", gone );
   }
   table.set_acl_id( 1 );
   command( "kyAclDb", "createAcl", table );
   EXPECT_EQ( verify(), ( Words{ "different kyAclDb, access-list edge, rule 1, sequence 10",
                                 "missing kyAclDb, access-list edge, rule 2, sequence 10",
                                 "missing kyAclDb, access-list edge, rule 3, sequence 10",
                                 "missing kyAclDb, access-list edge, rule 4, sequence 10",
                                 "missing kyAclDb, access-list edge, rule 5, sequence 20",
                                 "missing kyAclDb, access-list edge, rule 6, sequence 30",
                                 "missing kyAclDb, access-list edge, rule 7, the deny that ends it",
                                 "missing PQos_Rx_et1, binding", "missing aclipEt1in, binding",
                                 "missing kyAclDb, policy-map edge", "missing kyAclDb, control-plane policy" } ) );
}

} // namespace
