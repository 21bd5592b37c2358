#include "Engine.h"
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
