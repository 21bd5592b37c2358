#include "Engine.h"
#include "GantException.h"
#include "vex/ip.pb.h"
#include "VexL3Counters.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;
using namespace VexL3Unicast;

// Proxies of which each sends its commands.
class Modules : public testing::Test {
 protected:
   Modules() { engine.take(); }
   Lines sent() {
      auto all = engine.take();
      std::erase_if( all, []( const Gant::String & line ) { return line.starts_with( "create" ); } );
      return all;
   }
   template < typename Mod >
   Gant::Ptr< Mod > proxy() {
      return Gant::make< Mod >( "m", 8192, 8192, nullptr, engine.l3Pair, intf( "Ethernet1" ) );
   }
   template < typename Mod >
   Gant::Ptr< Mod > proxyOfSm() {
      return Gant::make< Mod >( "m", 8192, 8192, nullptr, engine.l3Pair, nullptr, intf( "Ethernet1" ) );
   }
   Engine engine;
};

// The state machine's tests see the other commands.
TEST_F( Modules, membersAreInOrderOfTheirGatesAndOptionsAreSaidAsTheyAre ) {
   const auto fib = Gant::make< FibIpv4 >( "fib", 8192, 8192, nullptr, engine.l3Pair, nullptr );
   fib->intfIdToOutGateIs( intf( "Ethernet1" ), Vex::GateId( 4 ) );
   NexthopInfoColl members;
   members.newNh( NexthopInfo( intf( "Ethernet2" ), 7 ) );
   members.newNh( NexthopInfo( intf( "Ethernet1" ), 3 ) );
   fib->addFec( FecKey( 9 ), members );
   const auto output = proxy< IpOutputMod >();
   output->setHwOffload( true );
   const auto gre = proxyOfSm< Ip4GreTun >();
   gre->setIp4TunTos( 0 );
   gre->setIp4TunTos( 200 );
   gre->setIp4TunTtl( true );
   const auto nextHop = proxyOfSm< NextHopMod >();
   nextHop->setSrcMacAddr( Kynet::EthAddr() );
   EXPECT_EQ( sent(), lines( R"(
      fib addFec fec_id 9 nh_info {gate 4 nh_index 3} nh_info {gate 4294967295 nh_index 7}
      m setHwOffload ip_hdr_cksum_offload true
      m setIp4TunTos tun_tos false
      m setIp4TunTos tun_tos true
      m setIp4TunTtl ttl_from_inner_header true
   )" ) );
}

TEST_F( Modules, resolveIndexesComeLowestFirstAndExhaustionIsTheReservedOne ) {
   const auto resolve = proxyOfSm< NhResolve >();
   for ( U32 index = 1; index < NhResolve::entriesMax; ++index ) resolve->freeNhrIndex( index );
   for ( U32 index = 1; index < NhResolve::entriesMax; ++index ) ASSERT_EQ( resolve->allocNhrIndex(), index );
   EXPECT_EQ( resolve->allocNhrIndex(), 0u );
   EXPECT_EQ( resolve->allocNhrIndex(), 0u );
   resolve->freeNhrIndex( 700 );
   resolve->freeNhrIndex( 41 );
   EXPECT_EQ( resolve->allocNhrIndex(), 41u );
   EXPECT_EQ( resolve->allocNhrIndex(), 700u );
}

TEST_F( Modules, askingAgainKeepsTheProxyAndTakesTheMessage ) {
   const auto modules = Gant::make< L3Modules >();
   const auto arg = []( U32 mtu ) {
      auto * const message = new vex::pb::IpOutputArg;
      message->set_ip_mtu( mtu );
      return message;
   };
   const auto first =
        modules->ipOutputModIs( "IpOutput_et1", 8192, 2, arg( 1500 ), engine.l3Pair, intf( "Ethernet1" ) );
   engine.take();
   const auto again =
        modules->ipOutputModIs( "IpOutput_et1", 8192, 2, arg( 9000 ), engine.l3Pair, intf( "Ethernet1" ) );
   EXPECT_EQ( again, first );
   EXPECT_EQ( engine.take(), Lines{} );
   EXPECT_EQ( static_cast< const vex::pb::IpOutputArg * >( first->initArgs() )->ip_mtu(), 9000u );
   EXPECT_EQ( modules->ipOutputModDel( intf( "Ethernet1" ) ), first );
   EXPECT_FALSE( modules->ipOutputModHas( intf( "Ethernet1" ) ) );
}

TEST_F( Modules, askingAgainWithOtherValuesIsANameInUse ) {
   const auto modules = Gant::make< L3Modules >();
   const auto otherPair = engine.global->moduleConfigStatusPairIs( "other" );
   auto * const sm = reinterpret_cast< VexL3Sm * >( 0x10 );
   const auto ask = [ & ]( const char * name, U32 in, U32 out, const auto & pair, VexL3Sm * l3Sm ) -> Gant::String {
      try {
         modules->nhResolveIs( name, in, out, nullptr, pair, l3Sm, intf( "Tunnel1" ) );
      } catch ( const Gant::NameInUseException & e ) {
         return e.what();
      }
      return "";
   };
   EXPECT_EQ( ask( "n", 1, 8192, engine.l3Pair, nullptr ), "" );
   const Gant::String begin = "Reinstantiating the pointer interface where constructor parameter attribute ";
   EXPECT_EQ( ask( "x", 1, 8192, engine.l3Pair, nullptr ),
              begin + "_name has a different value of x than the current value of n not allowed" );
   for ( const auto & [ error, attribute ] : { std::pair( ask( "n", 2, 8192, engine.l3Pair, nullptr ), "_maxInGate " ),
                                               { ask( "n", 1, 8191, engine.l3Pair, nullptr ), "_maxOutGate " },
                                               { ask( "n", 1, 8192, otherPair, nullptr ), "_modulePair " },
                                               { ask( "n", 1, 8192, engine.l3Pair, sm ), "_l3Sm " } } )
      EXPECT_TRUE( error.starts_with( begin + attribute ) ) << error;
   EXPECT_EQ( ask( "n", 1, 8192, engine.l3Pair, nullptr ), "" );
}

TEST_F( Modules, countersAreNamedByTheirModuleAndGivenBack ) {
   const auto a = Gant::make< IpInputMod >( "a", 1, 2, nullptr, engine.l3Pair, intf( "Ethernet1" ) );
   const auto b = Gant::make< IpInputMod >( "b", 1, 2, nullptr, engine.l3Pair, intf( "Ethernet2" ) );
   addIpInputCounters( a, engine.vexcsd );
   addIpInputCounters( b, engine.vexcsd );
   EXPECT_EQ( sent(), lines( "a setCounterIds bad_ip_checksum_counter 0 bad_ip_len_counter 1\n"
                             "b setCounterIds bad_ip_checksum_counter 2 bad_ip_len_counter 3" ) );
   Lines names;
   for ( const auto & [ id, counter ] : engine.counters->counterIterator() ) names.push_back( counter.name );
   EXPECT_EQ( names, lines( "a-Bad_Checksum_Pkts\n a-Bad_Len_Pkts\n b-Bad_Checksum_Pkts\n b-Bad_Len_Pkts" ) );
   freeModuleCounters( a, engine.vexcsd );
   freeModuleCounters( a, engine.vexcsd );
   EXPECT_EQ( engine.counters->counterIterator().size(), 2u );
   addIpInputCounters( a, engine.vexcsd );
   EXPECT_EQ( sent(), lines( "a setCounterIds bad_ip_checksum_counter 0 bad_ip_len_counter 1" ) );
   freeModuleCounters( a, engine.vexcsd );
   freeModuleCounters( b, engine.vexcsd );
}

} // namespace
