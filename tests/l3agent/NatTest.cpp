// NAT, for which the data plane has nothing: the bookkeeping that is real.
#include "HulNatSm.h"
#include "VexNatHelper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace VexL3Unicast;
using Ip::Nat::NatTarget;
using testing::ElementsAre;

class Nat : public testing::Test {
 protected:
   Nat() { helper->hwInit(); }
   AddrOnlyAclSliceRules & slice() { return *helper->aoaSlice(); }
   void addList( U32 vlan, const char * name, U32 priority ) {
      EXPECT_TRUE( helper->addAddrOnlyDenyAllAcl( vlan, name, priority, NatTarget::source() ) );
   }
   Gant::Ptr< TrapAclData > list( U32 priority, U16 vlan, const char * name ) {
      return slice().prioTrapAcl( priority )->vlanTrapAcl( vlan )->trapAcl( name );
   }
   Gant::Ptr< NatHelper > helper = NatHelperIs( nullptr );
};

TEST_F( Nat, aListGoesWithItsRules ) {
   addList( 10, "list", 5 );
   addList( 10, "stays", 5 );
   addList( 11, "list", 5 );
   const auto trapAcl = list( 5, 10, "list" );
   const auto add = [ & ]( U32 seq, U16 srcPort, U16 rule ) {
      trapAcl->aclRuleIs( TrapAclRuleKey( seq, {}, srcPort, {}, 0, false, false ), rule );
      srcPort != 0 ? slice().serviceTrapCountInc( 1 ) : slice().addrOnlyAclCountInc( 1 );
      if ( rule == noAclRule ) return;
      srcPort != 0 ? slice().serviceTrapRuleIs( rule, true ) : slice().addrOnlyAclRuleIs( rule, true );
      slice().trapAclDataIs( rule, trapAcl );
   };
   add( 1, 80, 3 );
   add( 2, 0, 4 );
   // Without an index, a rule still counts.
   add( 3, 443, noAclRule );
   EXPECT_EQ( slice().serviceTrapCount(), 2u );
   helper->delAddrOnlyAclSliceRule( 10, "list" );
   EXPECT_EQ( slice().serviceTrapCount() + slice().addrOnlyAclCount(), 0u );
   EXPECT_EQ( slice().serviceTrapRules() + slice().addrOnlyAclRules() + slice().trapAclDatas(), 0u );
   EXPECT_TRUE( list( 5, 10, "stays" ) && list( 5, 11, "list" ) );
   list( 5, 11, "list" )->aclRuleIs( TrapAclRuleKey( 1, {}, 80, {}, 0, false, false ), noAclRule );
   EXPECT_DEATH( helper->delAddrOnlyAclSliceRule( 11, "list" ), "Failed\\(aoaSlice\\(\\)->serviceTrapCount\\(\\)\\)" );
   list( 5, 10, "stays" )->addrOnlyIs( false );
   EXPECT_DEATH( helper->delAddrOnlyAclSliceRule( 10, "stays" ), "Failed\\(trapAcl->addrOnly\\(\\)\\)" );
}

TEST_F( Nat, rulesOfTheHostAreAnsweredAndTakenBack ) {
   Hul::NatSm::Args args;
   args.natStatus = Gant::make< Ip::Nat::Status >();
   args.natHwStatus = Gant::make< Ip::Nat::HwStatus >();
   args.nhMapConfig = Gant::make< Hul::NextHopMapConfig >();
   args.natHelper = helper;
   const auto sm = Gant::make< Hul::NatSm >( args );
   const Kynet::IpAndPort inside( Kynet::IpAddr( 0x0a000002 ), {} ), outside( Kynet::IpAddr( 0xc0000201 ), {} );
   const Ip::Nat::StaticKey out( {}, NatTarget::source(), inside, 0, "" ),
        in( {}, NatTarget::destination(), outside, 0, "" );
   args.natStatus->staticConnectionIs( out, Ip::Nat::StaticConnection( outside, 10, {} ) );
   EXPECT_EQ( args.natHwStatus->staticConnections(), 0u );
   sm->startIs( true );
   EXPECT_TRUE( args.natHwStatus->staticConnection( out )->accepted() );
   args.natStatus->staticConnectionIs( in, Ip::Nat::StaticConnection( inside, 10, {} ) );
   EXPECT_THAT( args.nhMapConfig->routeResolverRequestKeys(), ElementsAre( inside.ip() ) );
   const Ip::Nat::DynamicKey dynamic( 10, "list" );
   args.natStatus->dynamicRuleIs( dynamic, Ip::Nat::DynamicRule( NatTarget::source(), 5 ) );
   args.natStatus->dynamicRuleIs( dynamic, Ip::Nat::DynamicRule( NatTarget::source(), 6 ) );
   EXPECT_EQ( slice().vlanAclPriority( VlanAclKey( 10, "list" ) ), 6u );
   EXPECT_EQ( slice().addrOnlyDenyAllRefCnt(), 1u );
   sm->pollCounters();
   EXPECT_EQ( args.natHwStatus->staticConnection( in )->packets(), 0u );
   args.natStatus->staticConnectionDel( in );
   EXPECT_EQ( args.nhMapConfig->routeResolverRequests(), 0u );
   EXPECT_FALSE( args.natHwStatus->staticConnectionHas( in ) );
   sm->startIs( false );
   EXPECT_EQ( args.natHwStatus->staticConnections() + args.natHwStatus->dynamicRules(), 0u );
   EXPECT_FALSE( helper->aoaSlice() );
}

} // namespace
