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
   Gant::Ptr< NatHelper > helper = NatHelperIs( nullptr );
};

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
