#include "KytAttrLog.h"
#include "QuorlEntityManager.h"
#include "StateAcl.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIpNat.h"

#include <gtest/gtest.h>

namespace {

TEST( EntityManager, anEntityIsFoundAtItsPathUnderItsTypeOnly ) {
   Quorl::EntityManager em( "router" );
   const auto config = Gant::make< Ip::Nat::Config >( "config" );
   em.entityIs( "ip/nat/config", config );
   EXPECT_EQ( em.getEntity< Ip::Nat::Config >( "ip/nat/config" ), config );
   EXPECT_EQ( em.getEntity< Gant::Entity >( "ip/nat/config" ), config );
   EXPECT_FALSE( em.getEntity< Ip::Nat::Status >( "ip/nat/config" ) );
   EXPECT_FALSE( em.getEntity< Ip::Nat::Config >( "ip/nat" ) );
   // A base is found by the type of what it is the base of.
   em.entityIs( "acl", Gant::make< Acl::StatusDp >( "acl" ) );
   EXPECT_TRUE( em.getEntity< Acl::StatusBase >( "acl" ) );
   em.entityIs( "ip/nat/config", nullptr );
   EXPECT_FALSE( em.getEntity< Gant::Entity >( "ip/nat/config" ) );
   EXPECT_EQ( em.entityIterator().size(), 1u );
}

TEST( NboAttrLog, askingForALogTwiceGivesTheSameEnd ) {
   const auto & top = Gant::NboAttrLog::top();
   const auto a = top->socketOutSm( "router" );
   EXPECT_EQ( a->name(), "router" );
   EXPECT_EQ( top->socketOutSm( "router" ), a );
   EXPECT_FALSE( top->socketOutSm( "other" ) == a );
}

TEST( State, interfaceFactsReadAsTheirTextAndBack ) {
   Ip::IntfStatus status;
   EXPECT_EQ( status.vrfName().value(), "default" );
   EXPECT_EQ( status.mtu(), 1500u );
   status.tcpMssEgressIs( 1300 );
   EXPECT_EQ( Ip::IntfStatus( status.strep() ), status );
   const Interface::TunnelIntfStatus tunnel( Interface::TunnelMode::ipsec(), Kynet::IpAddr( 1 ), Kynet::IpAddr( 2 ),
                                             L3::VrfName( "red" ), 64, 0, 7 );
   EXPECT_EQ( Interface::TunnelIntfStatus( tunnel.strep() ), tunnel );
}

} // namespace
