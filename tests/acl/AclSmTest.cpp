// Access lists from the user's lists and bindings to the data plane's commands.
#include "AgentRouter.h"
#include "HulAclSm.h"
#include "Rules.h"
#include "StateAclCheck.h"
#include "VexAclSm.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using Acl::ListKey;
using Acl::RangeOper;

Acl::IntfAclKey at( const char * name, Acl::AclDirection direction ) {
   return Acl::IntfAclKey( intf( name ), Acl::ip, direction );
}

class AclRouter : public testing::Test {
 protected:
   AclRouter() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      for ( const char * name : { "Ethernet1", "Ethernet2" } ) {
         engine.port( name );
         up( name );
      }
      status->initialize();
      sm->startIs( true );
      drained();
   }
   void up( const char * name ) {
      engine.vexcsd->l3IntfIs( intf( name ), Hul::VrfId( 0 ), engine.vexcsd->l2Intf( intf( name ) ), 1500 );
   }
   Lines drained() {
      while ( Gant::activityManager()->poll() != 0 ) {
      }
      return brief( engine.take() );
   }
   Gant::Ptr< Acl::AclConfig > add( const char * name, std::initializer_list< Acl::RuleConfig > rules ) {
      return config->aclConfigIs( ListKey( Acl::ip, name ), list( name, rules ) );
   }
   void bind( const char * name, const char * listName, Acl::AclDirection direction = Acl::in ) {
      bindings->aclNameIs( at( name, direction ), listName );
   }
   void unbind( const char * name, Acl::AclDirection direction = Acl::in ) {
      bindings->aclNameDel( at( name, direction ) );
   }
   Lines pending() const {
      Lines out;
      for ( const auto & [ object, reason ] : sm->pending() ) out.push_back( object + ": " + reason );
      return out;
   }
   size_t tablesAndCounters() const {
      return helper->vexAclDatas() + helper->kyAcls() + engine.counters->counterIterator().size() +
             ( Vex::KyAclDb::maxAcls() - engine.vexcsd->kyAclDb()->freeAclIds() );
   }

   Engine engine;
   Gant::Ptr< Acl::Config > config = Gant::make< Acl::Config >();
   Gant::Ptr< Acl::IntfConfig > bindings = Gant::make< Acl::IntfConfig >();
   Gant::Ptr< Gant::Dir > bindingsDir = Gant::make< Gant::Dir >();
   Gant::Ptr< Acl::StatusDp > status = Gant::make< Acl::StatusDp >();
   Gant::Ptr< Vex::AclHelper > helper = Gant::make< Vex::AclHelper >( engine.vexcsd, config, status, nullptr );
   Gant::Ptr< Hul::AclSm > sm = Gant::make< Hul::AclSm >( Hul::AclSm::Args{ .vexcsd = engine.vexcsd,
                                                                            .aclConfig = config,
                                                                            .aclIntfConfigDir = bindingsDir,
                                                                            .aclIntfConfigCli = bindings,
                                                                            .aclStatusDp = status,
                                                                            .aclHelper = helper } );
};

TEST_F( AclRouter, aListGoesOutOnceItIsAppliedAndItsInterfacesPointAtIt ) {
   add( "web",
        { tcp().dport( RangeOper::eq_, { 80, 443 } ), RuleOf( Acl::deny ).from( "10.0.0.0", 0xff000000 ).log() } );
   EXPECT_EQ( drained(), Lines{} );
   bind( "Ethernet1", "web" );
   bind( "Ethernet2", "web", Acl::out );
   EXPECT_EQ( drained(), lines( R"(
      create aclipEt1in KyAcl ingress true intf_id Ethernet1
      connect aclipEt1in:0 -> trap:0
      EtherClassify_et1 setEtherTypeGate ether_type 2048 ogate 1
      connect EtherClassify_et1:1 -> aclipEt1in:0
      create aclipEt2out KyAcl ingress false intf_id Ethernet2
      connect aclipEt2out:0 -> trap:0
      connect aclipEt2out:1 -> PortTx_et2:0
      kyAclDb createAcl acl_id 0 acl_target 0 rule {proto 6 dst_port_lower 80 dst_port_upper 80 permit true counter_id 0} rule {proto 6 dst_port_lower 443 dst_port_upper 443 permit true counter_id 0} rule {src_ip 10.0.0.0 src_ip_mask 255.0.0.0 permit false log true counter_id 1} rule {permit false counter_id 2}
      aclipEt1in applyAcl acl_id 0 ipv4 true
      aclipEt2out applyAcl acl_id 0 ipv4 true
   )" ) );
   EXPECT_EQ( status->appliedName( at( "Ethernet1", Acl::in ) ), "web" );
   EXPECT_EQ( status->programmedVersion( ListKey( Acl::ip, "web" ) ),
              config->aclConfig( ListKey( Acl::ip, "web" ) )->version() );
   // One more interface costs its module and one command.
   bind( "Ethernet2", "web" );
   EXPECT_EQ( drained(), lines( R"(
      create aclipEt2in KyAcl ingress true intf_id Ethernet2
      connect aclipEt2in:0 -> trap:0
      EtherClassify_et2 setEtherTypeGate ether_type 2048 ogate 1
      connect EtherClassify_et2:1 -> aclipEt2in:0
      aclipEt2in applyAcl acl_id 0 ipv4 true
   )" ) );
}

TEST_F( AclRouter, aChangeSwapsTheTableAndRulesThatStayKeepTheirCounters ) {
   const auto web = add( "web", { tcp(), udp() } );
   add( "other", { RuleOf() } );
   bind( "Ethernet1", "web" );
   bind( "Ethernet2", "other" );
   drained();
   // Between the changes of one turn nothing goes out; the second rule moves up and keeps its counter.
   web->entriesIs( entries( { udp() } ) );
   web->entriesIs( entries( { udp(), tcp( Acl::deny ) } ) );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createAcl acl_id 1 acl_target 0 rule {proto 17 permit true counter_id 3} rule {proto 6 permit false counter_id 5} rule {permit false counter_id 4}
      aclipEt1in applyAcl acl_id 1 ipv4 true
   )" ) );
   // The same list again is no change.
   web->entriesIs( entries( { udp(), tcp( Acl::deny ) } ) );
   EXPECT_EQ( drained(), Lines{} );
   EXPECT_EQ( engine.counters->counterIterator().size(), 5u );
}

TEST_F( AclRouter, anInterfaceThatChangesItsListKeepsItsModule ) {
   add( "a", { tcp() } );
   add( "b", { udp() } );
   bind( "Ethernet1", "a" );
   drained();
   bind( "Ethernet1", "b" );
   EXPECT_EQ( drained(), lines( R"(
      kyAclDb createAcl acl_id 1 acl_target 0 rule {proto 17 permit true counter_id 2} rule {permit false counter_id 3}
      aclipEt1in applyAcl acl_id 1 ipv4 true
      kyAclDb destroyAcl acl_id 0 acl_target 0
   )" ) );
   EXPECT_EQ( helper->kyAcls(), 1u );
   // Both lists stay in use and one of them changes: nobody is pointed back.
   bind( "Ethernet2", "b" );
   drained();
   bind( "Ethernet2", "a" );
   config->aclConfig( ListKey( Acl::ip, "b" ) )->entriesIs( entries( { udp().log() } ) );
   const auto out = drained();
   EXPECT_EQ( Lines( out.end() - 2, out.end() ), lines( R"(
      aclipEt1in applyAcl acl_id 1 ipv4 true
      aclipEt2in applyAcl acl_id 2 ipv4 true
   )" ) );
   EXPECT_EQ( out.size(), 4u );
}

TEST_F( AclRouter, whatIsUnboundIsTakenAwayFromItsEdgeAndNothingIsLeft ) {
   const auto before = tablesAndCounters();
   add( "web", { tcp(), udp() } );
   bind( "Ethernet1", "web" );
   bind( "Ethernet1", "web", Acl::out );
   bind( "Ethernet2", "web" );
   drained();
   unbind( "Ethernet1" );
   EXPECT_EQ( drained(), lines( R"(
      disconnect aclipEt1in:0
      disconnect EtherClassify_et1:1
      destroy aclipEt1in
   )" ) );
   // The list goes while it is applied: its interfaces are without one.
   config->aclConfigDel( ListKey( Acl::ip, "web" ) );
   EXPECT_EQ( drained(), lines( R"(
      disconnect aclipEt1out:0
      disconnect aclipEt1out:1
      destroy aclipEt1out
      disconnect aclipEt2in:0
      disconnect EtherClassify_et2:1
      destroy aclipEt2in
      kyAclDb destroyAcl acl_id 0 acl_target 0
   )" ) );
   EXPECT_EQ( tablesAndCounters(), before );
   EXPECT_EQ( pending().size(), 2u );
   // Back again, it is applied again.
   add( "web", { tcp() } );
   EXPECT_EQ( drained().back(), "aclipEt2in applyAcl acl_id 1 ipv4 true" );
   EXPECT_EQ( pending(), Lines{} );
}

TEST_F( AclRouter, anInterfaceThatIsLostAndReturnsFindsItsListsInPlace ) {
   add( "web", { tcp() } );
   bind( "Ethernet1", "web" );
   bind( "Ethernet1", "web", Acl::out );
   drained();
   engine.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
   EXPECT_EQ( drained(), lines( R"(
      EtherClassify_et1 clearEtherTypeGate ether_type 2048
      disconnect EtherClassify_et1:1
      disconnect aclipEt1out:1
   )" ) );
   up( "Ethernet1" );
   EXPECT_EQ( drained(), lines( R"(
      EtherClassify_et1 setEtherTypeGate ether_type 2048 ogate 2
      connect EtherClassify_et1:2 -> aclipEt1in:0
      connect aclipEt1out:1 -> PortTx_et1:0
   )" ) );
   const auto & l3Intf = engine.vexcsd->l3Intf( intf( "Ethernet1" ) );
   EXPECT_EQ( l3Intf->ingressChains().at( Vex::etherTypeIpv4 ).links().front().priority, 200u );
   EXPECT_EQ( l3Intf->egressChains().at( Vex::etherTypeIpv4 ).links().front().priority, 100u );
   // Gone for good, it takes its modules along once it is unbound.
   engine.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
   drained();
   unbind( "Ethernet1" );
   unbind( "Ethernet1", Acl::out );
   EXPECT_EQ( drained(), lines( R"(
      destroy aclipEt1in
      destroy aclipEt1out
      kyAclDb destroyAcl acl_id 0 acl_target 0
   )" ) );
}

class FullAclRouter : public AclRouter {
 protected:
   // The lists l1000, l1001 ..., each with its interface, take all the room that there is.
   FullAclRouter() {
      for ( U16 i = 0; i < Vex::KyAclDb::maxAcls(); ++i ) {
         add( nameOf( i ).c_str(), { RuleOf() } );
         bind( i, nameOf( i ) );
      }
      drained();
   }
   ~FullAclRouter() override {
      for ( const auto & key : bindings->aclNameKeys() ) bindings->aclNameDel( key );
      drained();
      EXPECT_EQ( tablesAndCounters(), 0u );
   }
   static Gant::String nameOf( U16 i ) { return "l" + std::to_string( 1000 + i ); }
   static Acl::IntfAclKey at( U16 i ) {
      return Acl::IntfAclKey( Kynet::IntfId( Kynet::IntfType::ethernet(), U16( 10 + i ) ), Acl::ip, Acl::in );
   }
   void bind( U16 i, const Gant::String & list ) { bindings->aclNameIs( at( i ), list ); }
   // Each interface has the list that it wants, in the version that is configured.
   void expectAllInForce() {
      EXPECT_EQ( pending(), Lines{} );
      for ( const auto & key : bindings->aclNameKeys() ) {
         const ListKey applied( Acl::ip, status->appliedName( key ) );
         EXPECT_EQ( applied.name(), bindings->aclName( key ) );
         EXPECT_EQ( status->programmedVersion( applied ), config->aclConfig( applied )->version() );
      }
   }
};

TEST_F( FullAclRouter, theListForWhichThereIsNoRoomWaitsAndTheOthersStay ) {
   add( "new", { RuleOf() } );
   bind( 200, "new" );
   bind( 201, "l1000" );
   drained();
   // An interface that would go over to it keeps the list that it has, with what changes in that list.
   bind( 0, "new" );
   config->aclConfig( ListKey( Acl::ip, "l1000" ) )->entriesIs( entries( { udp() } ) );
   EXPECT_EQ( drained().size(), 3u );
   EXPECT_EQ( status->appliedName( at( 0 ) ), "l1000" );
   EXPECT_EQ( status->programmedVersion( ListKey( Acl::ip, "l1000" ) ),
              config->aclConfig( ListKey( Acl::ip, "l1000" ) )->version() );
   EXPECT_EQ( pending(), ( Lines{ "access-list new: the data plane has no room for another list",
                                  "interface Ethernet10, access-list new in: the list is not programmed",
                                  "interface Ethernet210, access-list new in: the list is not programmed" } ) );
   // Room for it comes.
   bindings->aclNameDel( at( 1 ) );
   drained();
   expectAllInForce();
}

TEST_F( FullAclRouter, listsAreExchangedThoughNoRoomIsFree ) {
   for ( const char * name : { "newA", "newB", "newC" } ) add( name, { udp() } );
   bind( 0, "newA" );
   const auto out = drained();
   EXPECT_EQ( out[ 0 ], "kyAclDb destroyAcl acl_id 0 acl_target 0" );
   EXPECT_TRUE( out[ 1 ].starts_with( "kyAclDb createAcl acl_id 0" ) ) << out[ 1 ];
   EXPECT_EQ( out[ 2 ], "aclipEt10in applyAcl acl_id 0 ipv4 true" );
   EXPECT_EQ( out.size(), 3u );
   expectAllInForce();
   // Neither of two lists goes before the interfaces of both have.
   bind( 201, "l1001" );
   bind( 202, "l1002" );
   drained();
   for ( U16 i : { 1, 2 } ) {
      bind( i, "newB" );
      bind( 200 + i, "newC" );
   }
   drained();
   expectAllInForce();
}

TEST_F( AclRouter, aListThatIsWrongIsNamedAndWhatWasProgrammedStays ) {
   const auto web = add( "web", { tcp() } );
   add( "bad", { tcp().dport( RangeOper::range_, { 9, 5 } ) } );
   bind( "Ethernet1", "web" );
   bind( "Ethernet2", "bad" );
   bind( "Ethernet2", "none", Acl::out );
   EXPECT_EQ( drained().size(), 6u );
   EXPECT_EQ( pending(), ( Lines{ "access-list bad, sequence 10: destination port range 9 5: the range is upside "
                                  "down",
                                  "interface Ethernet2, access-list bad in: the list is not programmed",
                                  "interface Ethernet2, access-list none out: there is no such access-list" } ) );
   web->entriesIs( entries( { RuleOf().sport( RangeOper::eq_, { 1 } ) } ) );
   bind( "Ethernet1", "none" );
   EXPECT_EQ( drained(), Lines{} );
   EXPECT_EQ( status->appliedName( at( "Ethernet1", Acl::in ) ), "web" );
   EXPECT_EQ( helper->kyAcls(), 1u );
   config->aclConfig( ListKey( Acl::ip, "bad" ) )
        ->entriesIs( entries( { tcp().dport( RangeOper::range_, { 5, 9 } ) } ) );
   EXPECT_EQ( drained().back(), "aclipEt2in applyAcl acl_id 1 ipv4 true" );
}

TEST_F( AclRouter, whatItMissedWhileItWasSilentIsBroughtInLine ) {
   add( "a", { tcp() } );
   bind( "Ethernet1", "a" );
   drained();
   sm->hasNotificationActiveIs( false );
   unbind( "Ethernet1" );
   add( "b", { udp() } );
   bind( "Ethernet2", "b" );
   EXPECT_EQ( drained(), Lines{} );
   sm->hasNotificationActiveIs( true );
   drained();
   EXPECT_FALSE( status->appliedNameHas( at( "Ethernet1", Acl::in ) ) );
   EXPECT_EQ( status->appliedName( at( "Ethernet2", Acl::in ) ), "b" );
}

TEST( AclAgent, interfacesComeUpBehindTheirLists ) {
   RouterState state;
   state.vrf( "default", 0 );
   state.intf( "Ethernet1" );
   const auto cli = Gant::make< Acl::Input::Config >();
   cli->aclConfigIs( ListKey( Acl::ip, "web" ), list( "web", { tcp() } ) );
   const auto bindings = Gant::make< Acl::IntfConfig >();
   bindings->aclNameIs( at( "Ethernet1", Acl::in ), "web" );
   state.em->entityIs( "acl/config/cli", cli );
   state.em->entityIs( "acl/intf/config/cli", bindings );
   state.aclConfig = Gant::make< Acl::Config >();
   RouterAgent router( state );
   router.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( router.enginePair ) );
   router.port( "Ethernet1" );
   router.take();
   router.start();
   const auto all = router.drained();
   const auto position = [ & ]( const Gant::String & begin ) {
      return std::ranges::find_if( all, [ & ]( const auto & line ) { return line.starts_with( begin ); } ) -
             all.begin();
   };
   const auto end = static_cast< long >( all.size() );
   EXPECT_LT( position( "aclipEt1in applyAcl" ), position( "create IpInput_et1" ) );
   EXPECT_LT( position( "connect EtherClassify_et1:1 -> aclipEt1in" ), end );
   EXPECT_LT( position( "connect IpInput_et1:1 -> aclipEt1in:0" ), position( "connect aclipEt1in:1 -> fibIpv4:0" ) );
   EXPECT_LT( position( "connect aclipEt1in:1 -> fibIpv4:0" ), end );
   // A second phase one makes them again once the former ones have gone.
   router.agent->initializedIs( false );
   const auto again = router.drained();
   const auto at = [ & ]( const char * line ) { return std::ranges::find( again, line ) - again.begin(); };
   EXPECT_LT( at( "destroy aclipEt1in" ), at( "aclipEt1in applyAcl acl_id 1 ipv4 true" ) );
   EXPECT_LT( at( "aclipEt1in applyAcl acl_id 1 ipv4 true" ), long( again.size() ) );
   EXPECT_EQ( router.vexcsd->kyAclDb()->freeAclIds(), Vex::KyAclDb::maxAcls() - 1 );
}

TEST( AclCheck, namesListSequenceAndReason ) {
   using Rules = std::initializer_list< Acl::RuleConfig >;
   const auto problems = []( Rules rules ) {
      Lines out;
      for ( const auto & problem : Acl::validate( ListKey( Acl::ip, "l" ), entries( rules ) ) )
         out.push_back( ( problem.severity == Acl::Problem::Severity::error ? "error " : "note " ) + problem.object +
                        ": " + problem.text );
      return out;
   };
   const Acl::RangeSpec::Values holes = { 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31, 33 };
   struct {
      Acl::RuleConfig rule;
      const char * problem;
   } const cases[] = {
        { udp().sport( RangeOper::range_, { 2, 1 } ), "error source port range 2 1: the range is upside down" },
        { udp().sport( RangeOper::eq_, {} ), "error source port eq: wrong number of values" },
        { udp().dport( RangeOper::gt_, { 65535 } ), "error destination port gt 65535: no number matches" },
        { RuleOf().proto( 89 ).dport( RangeOper::eq_, { 1 } ), "error protocol 89 has no ports" },
        { udp().flags( Acl::tcpSyn ), "error flags are those of TCP only" },
        { RuleOf().icmp( 8 ).proto( 17 ), "error an ICMP type or code needs protocol icmp" },
        { RuleOf().icmp( 256 ), "error ICMP type 256 is above 255" },
        { RuleOf().icmp( Acl::icmpAny, 0 ), "error an ICMP code needs a type" },
        { tcp().fragments().dport( RangeOper::eq_, { 1 } ),
          "error fragments have neither ports, nor flags, nor an ICMP type" },
        { RuleOf().dscp( 64 ), "error DSCP 64 is above 63" },
        { RuleOf().len( RangeOper::lt_, { 0 } ), "error length lt 0: no number matches" },
        { tcp().sport( RangeOper::eq_, holes ).dport( RangeOper::eq_, holes ).flags( 0x3f ),
          "error it takes 1734 records, the most is 1024" },
        { RuleOf().fragments(), "note fragments: the rule is accepted, and this data plane does not apply it" },
        { RuleOf().ttl( RangeOper::lt_, 5 ), "note ttl lt 5: this data plane matches any TTL" },
   };
   for ( const auto & c : cases ) {
      const Gant::String text = c.problem;
      const auto space = text.find( ' ' );
      EXPECT_EQ( problems( { RuleOf(), c.rule } ).front(),
                 text.substr( 0, space ) + " access-list l, sequence 20: " + text.substr( space + 1 ) );
   }
   EXPECT_EQ( problems( { tcp().dport( RangeOper::eq_, { 80 } ).flags( 16 ).ttl( RangeOper::eq_, 1 ),
                          RuleOf().icmp( 8, 0 ) } ),
              Lines{} );
   EXPECT_TRUE( Acl::hasError( Acl::validate( ListKey( Acl::ipv6, "l" ), {} ) ) );
}

} // namespace
