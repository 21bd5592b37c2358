#include "DpEal.h"
#include "DpEthernet.h"
#include "DpPcapFilter.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace Vexdp;

// Ethernet or bare, of all kinds that the filters tell apart, whole or cut anywhere, with a byte here and there that is
// none of its kind's.
class RandomPackets {
 public:
   Packet next() {
      const bool framed = below( 4 ) != 0;
      const auto type = std::array{ 0x0800, 0x0800, 0x0800, 0x86dd, 0x0806, 0x8100 }[ below( 6 ) ];
      Packet packet( 40 + below( 80 ) );
      for ( std::size_t i = 0; i < packet.size(); ++i ) packet.data()[ i ] = std::uint8_t( below( 3 ) );
      const auto ip = framed ? kEthernetLen + ( type == 0x8100 ? 4 : 0 ) : 0;
      if ( framed ) put16( packet.data() + 12, std::uint16_t( type ) );
      if ( type == 0x8100 ) put16( packet.data() + 16, 0x0800 );
      packet.data()[ ip ] = std::uint8_t( type == 0x86dd ? 0x60 : 0x45 + below( 3 ) );
      packet.data()[ ip + ( type == 0x86dd ? 6 : 9 ) ] =
           std::array< std::uint8_t, 5 >{ 1, 6, 17, 47, 50 }[ below( 5 ) ];
      put16( packet.data() + ip + 6, std::uint16_t( below( 4 ) == 0 ? random_() : 0 ) );
      packet.data()[ below( std::uint32_t( packet.size() ) ) ] = std::uint8_t( random_() );
      if ( below( 4 ) == 0 ) packet.trim( below( std::uint32_t( packet.size() ) ) );
      packet.meta.ethernet = framed;
      return packet;
   }

 private:
   std::uint32_t below( std::uint32_t limit ) { return std::uint32_t( random_() % limit ); }
   std::mt19937 random_{ 7 };
};

TEST( PcapFilter, compiledCodeSaysWhatTheInterpreterSays ) {
   Eal eal( { .memory = 64, .words = {}, .buffers = 512 } );
   const auto started = eal.start();
   ASSERT_TRUE( started.ok() ) << started.refusal().reason;
   std::size_t compiled = 0;
   for ( const auto * text : { "ip",
                               "ip6",
                               "arp",
                               "tcp port 1",
                               "udp port 257 or icmp",
                               "not tcp",
                               "host 1.2.1.0",
                               "src net 0.0.0.0/6",
                               "ip[0] & 15 > 5",
                               "tcp[13] & 2 != 0",
                               "icmp[icmptype] == 1",
                               "greater 80",
                               "less 60",
                               "len % 3 == 1",
                               "ip proto 47",
                               "ip[6:2] & 0x1fff != 0",
                               "portrange 1-300",
                               "vlan and udp",
                               "ether[0] & 1 = 1",
                               "ip[2:2] - ip[0] * 4 >> 2 != 1",
                               "(tcp or udp) and dst port 1 and not src host 0.1.2.0",
                               "ip multicast" } ) {
      PcapFilter filter;
      ASSERT_TRUE( filter.textIs( text ).ok() ) << text;
      compiled += filter.compiled();
      RandomPackets packets;
      std::size_t matched = 0;
      for ( unsigned i = 0; i < 2000; ++i ) {
         const auto packet = packets.next();
         ASSERT_EQ( filter.matches( packet ), filter.matchesSlowly( packet ) ) << text << ", packet " << i;
         matched += filter.matches( packet );
      }
      EXPECT_GT( matched, 0u ) << text;
      EXPECT_LT( matched, 2000u ) << text;
   }
   EXPECT_EQ( compiled, 21u ); // all but the one of a single bit
}

} // namespace
