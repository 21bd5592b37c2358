#include "DpTestRouter.h"

#include "DpEthernet.h"
#include "DpIpv4Fragment.h"

#include <algorithm>
#include <random>

namespace {

using namespace DpTest;
using namespace Vexdp;

TEST( TcpMss, aSynIsClampedInEitherDirectionAndItsChecksumStaysRight ) {
   const struct {
      const char * what;
      const char * setting;
      const char * tcp;
      const char * left;
   } cases[] = {
        { "on its way in", "IpInput_et1 setTcpMssAdjust mss: 1200", "tcp_flags: 2", "tcp 1 > 80 mss 1200" },
        { "on its way out", "IpOutput_et2 setTcpMssAdjust mss: 1201", "tcp_flags: 18", "tcp 1 > 80 mss 1201" },
        { "below the clamp already", "IpInput_et1 setTcpMssAdjust mss: 1461", "tcp_flags: 2", "tcp 1 > 80 mss 1460" },
        { "clamp off", "IpInput_et1 setTcpMssAdjust mss: 0", "tcp_flags: 2", "tcp 1 > 80 mss 1460" },
        { "no SYN", "IpInput_et1 setTcpMssAdjust mss: 500", "tcp_flags: 16", "tcp 1 > 80" },
        { "a SYN without the option", "IpInput_et1 setTcpMssAdjust mss: 500", "tcp_flags: 2 length: 40", "tcp 1 > 80" },
        { "the checksum left alone", "IpInput_et1 setTcpMssAdjust mss: 500 do_mss_checksum: false", "tcp_flags: 2",
          "tcp 1 > 80 mss 500 BADSUM" },
   };
   for ( const auto & given : cases ) {
      Router router;
      router.set( given.setting );
      router.frame( std::string( "dst: @10.2.0.7 proto: 6 sport: 1 dport: 80 " ) + given.tcp );
      ASSERT_EQ( router.frames().size(), 1u ) << given.what;
      EXPECT_EQ( router.frames()[ 0 ].substr( router.frames()[ 0 ].rfind( "| " ) + 2 ), given.left ) << given.what;
   }
}

// What is left of options that make 24 bytes of TCP 28.
Bytes clamped( const Bytes & given ) {
   Router router;
   router.set( "IpInput_et1 setTcpMssAdjust mss: 1000" );
   auto packet = Router::described( "dst: @10.2.0.7 proto: 6 sport: 1 dport: 80 tcp_flags: 2 length: 48" );
   auto * tcp = packet.data() + 20;
   tcp[ 12 ] = 7 << 4;
   std::ranges::copy( given, tcp + 20 );
   put16( tcp + 16, 0 );
   put16( tcp + 16, std::uint16_t( ~onesSum( { tcp, 28 },
                                             pseudoHeaderSum( { ip( "10.1.0.9" ) }, { ip( "10.2.0.7" ) }, 6, 28 ) ) ) );
   router.frame( std::move( packet ) );
   EXPECT_TRUE( router.frames().at( 0 ).ends_with( "| tcp 1 > 80 mss 1000" ) ) << router.frames()[ 0 ];
   const auto & frame = router.tapped().at( 0 );
   return { frame.end() - 8, frame.end() };
}

TEST( TcpMss, findsEachOptionBehindOthersAndAtAnOddPlace ) {
   // NOP, MSS, NOP, SACK permitted; and two of MSS.
   EXPECT_EQ( clamped( { 1, 2, 4, 0x05, 0xb4, 1, 4, 2 } ), ( Bytes{ 1, 2, 4, 0x03, 0xe8, 1, 4, 2 } ) );
   EXPECT_EQ( clamped( { 2, 4, 0x05, 0xb4, 2, 4, 0x05, 0xdc } ), ( Bytes{ 2, 4, 0x03, 0xe8, 2, 4, 0x03, 0xe8 } ) );
}

TEST( IpOutput, fragmentsWhatMayBeFragmentedAndPuntsTheRest ) {
   Router router;
   const std::string request = "intfname: 'et1' src: @10.9.0.1 dst: @10.2.0.7 proto: 17 length: 4000 count: true";
   const auto steps = router.trace( request );
   EXPECT_EQ( steps[ 4 ], "IpOutput_et2: 4000 bytes in 3 fragments for the MTU of 1500 -> 1" );
   const std::string from = "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 10.9.0.1 > 10.2.0.7 ttl 63 tos 0 ";
   EXPECT_EQ( router.frames(),
              ( Lines{ from + "len 1500 frag 0+", from + "len 1500 frag 1480+", from + "len 1040 frag 2960" } ) );

   // One that isn't counted leaves no trace but its own: its fragments go nowhere.
   router.tapped().clear();
   router.trace( "intfname: 'et1' dst: @10.2.0.7 length: 4000" );
   EXPECT_EQ( router.tapped().size(), 1u );

   EXPECT_EQ( router.trace( "intfname: 'et1' dst: @10.2.0.7 length: 1500" )[ 4 ], "IpOutput_et2: 1500 bytes fit -> 1" );
   EXPECT_EQ( router.trace( "intfname: 'et1' dst: @10.2.0.7 length: 1501" )[ 4 ],
              "IpOutput_et2: 1501 bytes in 2 fragments for the MTU of 1500 -> 1" );
   router.set( "IpOutput_et2 setMtu ip_mtu: 0" );
   router.tapped().clear();
   router.frame( "dst: @10.2.0.7 length: 65535" );
   ASSERT_EQ( router.tapped().size(), 1u );

   router.set( "IpOutput_et2 setMtu ip_mtu: 1500" );
   router.tap( "IpOutput_et2:0" );
   auto whole = Router::described( "dst: @10.2.0.7 length: 1501" );
   whole.data()[ 6 ] = 0x40;
   Ipv4Header::of( whole )->checksumRenew();
   router.frame( std::move( whole ) );
   ASSERT_EQ( router.tapped( "IpOutput_et2:0" ).size(), 1u );
   // As it came, for an ICMP error to quote.
   EXPECT_EQ( decodedIpv4( router.tapped( "IpOutput_et2:0" )[ 0 ] ),
              "10.1.0.9 > 10.2.0.7 ttl 64 tos 0 len 1501 df | proto 0" );
}

// What the router gets is what came, though it would not fit, has DF, and its MSS would be clamped on the way out.
TEST( IpOutput, whatGoesToTheRouterGoesWholeAndUnchanged ) {
   constexpr const char * kPunts = "NextHop_et2 writeNH nexthopinfo { nh_index: 5 pkt_cmd: 0 }\n";
   constexpr const char * kList = R"(
      create db KyAclDb
      db createAcl acl_id: 1 acl_target: 0 rule { permit: true }
      create acl KyAcl
      acl applyAcl acl_id: 1
      disconnect IpOutput_et2:1
      connect IpOutput_et2:1 acl:0
      connect acl:1 NextHop_et2:0
   )";
   const struct {
      std::string commands;
      unsigned ttl;
   } cases[] = { { kPunts, 64 }, { "", 1 }, { std::string( kPunts ) + kList, 64 }, { kList, 1 } };
   for ( const auto & given : cases ) {
      Router router;
      router.set( "IpOutput_et2 setTcpMssAdjust mss: 1000\n" + given.commands );
      router.tap( "NextHop_et2:0" );
      auto packet = Router::described( "src: @10.9.0.1 dst: @10.2.0.7 proto: 6 tcp_flags: 2 length: 4000 ttl: " +
                                       std::to_string( given.ttl ) );
      packet.data()[ 6 ] = 0x40;
      Ipv4Header::of( packet )->checksumRenew();
      const Bytes came( packet.data(), packet.data() + packet.size() );
      router.frame( std::move( packet ) );
      EXPECT_EQ( router.tapped( "NextHop_et2:0" ), std::vector< Bytes >{ came } ) << given.commands << given.ttl;
   }
}

// A packet of any size, with options, is put together again from its fragments, and from the fragments of these.
TEST( Fragments, giveThePacketBackWhateverTheSizes ) {
   // Two options of which one is to be copied, and the end of the list.
   const Bytes options = { 0x88, 4, 0xaa, 0xbb, 0x44, 4, 5, 0, 1, 0, 0, 0 };
   std::mt19937 random( 7 );
   for ( int round = 0; round < 200; ++round ) {
      const bool withOptions = round % 2 == 1;
      const auto size = std::uniform_int_distribution< std::size_t >( 100, 9000 )( random );
      const auto mtu = std::uniform_int_distribution< std::size_t >( 68, size )( random );
      auto whole = Router::described( fmt::format( "proto: 89 length: {}", size ) );
      auto * bytes = whole.data();
      for ( std::size_t i = 20; i < size; ++i ) bytes[ i ] = std::uint8_t( random() );
      if ( withOptions ) {
         bytes[ 0 ] = 0x48;
         std::ranges::copy( options, bytes + 20 );
      }
      Ipv4Header::of( whole )->checksumRenew();
      const std::size_t headerLen = withOptions ? 32 : 20;
      const Bytes payload( bytes + headerLen, bytes + size );

      std::vector< Packet > pieces;
      for ( auto & fragment : fragmented( whole, mtu ) )
         for ( auto & piece : fragmented( fragment, std::max< std::size_t >( 68, mtu / 2 ) ) )
            pieces.push_back( std::move( piece ) );

      Bytes joined( payload.size() );
      std::size_t covered = 0;
      for ( auto & piece : pieces ) {
         const auto header = *Ipv4Header::of( piece );
         const auto text = decodedIpv4( Bytes( piece.data(), piece.data() + piece.size() ) );
         ASSERT_EQ( text.find( "BAD" ), std::string::npos ) << text;
         ASSERT_LE( piece.size(), mtu );
         const bool last = &piece == &pieces.back();
         ASSERT_EQ( header.moreFragments(), !last );
         ASSERT_EQ( header.headerLen(), !withOptions ? 20u : header.fragmentOffset() == 0 ? 32u : 24u );
         ASSERT_EQ( header.fragmentOffset(), covered );
         std::copy( piece.data() + header.headerLen(), piece.data() + piece.size(), joined.begin() + long( covered ) );
         covered += piece.size() - header.headerLen();
      }
      ASSERT_EQ( joined, payload ) << size << " bytes, MTU " << mtu;
   }
}

// Nobody can tell where a broken option ends: all behind it goes as its flag says, and as it was.
TEST( Fragments, carryABrokenOptionAsItWasOrNotAtAll ) {
   const std::pair< Bytes, Bytes > cases[] = {
        { { 0x88, 4, 0xaa, 0xbb, 0x89, 60, 7, 8 }, { 0x88, 4, 0xaa, 0xbb, 0x89, 60, 7, 8 } },
        { { 0x88, 4, 0xaa, 0xbb, 0x89, 1, 7, 8 }, { 0x88, 4, 0xaa, 0xbb, 0x89, 1, 7, 8 } },
        { { 0x88, 4, 0xaa, 0xbb, 0x44, 60, 7, 8 }, { 0x88, 4, 0xaa, 0xbb } },
        { { 1, 1, 1, 1, 1, 1, 1, 0x83 }, { 0x83, 0, 0, 0 } } };
   for ( const auto & [ options, later ] : cases ) {
      auto whole = Router::described( "proto: 89 length: 500" );
      whole.data()[ 0 ] = 0x47;
      std::ranges::copy( options, whole.data() + 20 );
      Ipv4Header::of( whole )->checksumRenew();
      const auto pieces = fragmented( whole, 300 );
      ASSERT_EQ( pieces.size(), 2u );
      EXPECT_EQ( Bytes( pieces[ 0 ].data() + 20, pieces[ 0 ].data() + 28 ), options );
      EXPECT_EQ( Bytes( pieces[ 1 ].data() + 20, pieces[ 1 ].data() + ( pieces[ 1 ].data()[ 0 ] & 15 ) * 4 ), later );
   }
}

} // namespace
