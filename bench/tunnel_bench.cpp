// ESP on one core: 1,400 bytes of AES-128-GCM sealed and opened where they lie. To be held against
// `openssl speed -evp aes-128-gcm -bytes 1400`.

#include "DpEsp.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

namespace {

using namespace Vexdp;

constexpr std::size_t kLength = 1400;

struct Sa {
   Sa() {
      entry.set_sa_spi( 257 );
      entry.set_flags( 1 );
      entry.set_src_addr( 0xc0000201 );
      entry.set_dst_addr( 0xc0000202 );
      entry.set_proto( kProtoEsp );
      entry.set_cipher_algorithm( std::uint32_t( IpsecCipher::aesGcm ) );
      entry.set_auth_algorithm( std::uint32_t( IpsecAuth::none ) );
      entry.set_crypto_info( "Cipher-Key-Of-16Salt" );
      entry.set_crypto_info_len( 160 );
      entry.set_icv_len( 16 );
      entry.set_encap_type( 0 );
   }
   IpsecSa::Entry entry;
   SaHistory history;
   OuterIds ids;
};

Packet plain() {
   Packet packet( kLength );
   writeIpv4Header( packet.data(), { .totalLen = kLength, .ttl = 64, .proto = kProtoUdp, .src = { 1 }, .dst = { 2 } } );
   return packet;
}

void seal( benchmark::State & state ) {
   Sa of;
   IpsecSa sa( of.entry, 1, SaDirection::outbound, of.history, of.ids );
   const auto header = plain();
   auto packet = plain();
   for ( auto _ : state ) {
      if ( espSeal( sa, packet, true ) != nullptr ) state.SkipWithError( "not sealed" );
      packet.pull( packet.size() - kLength - sa.icvLen() - 2 );
      packet.trim( kLength );
      std::copy_n( header.data(), Ipv4Header::kMinLen, packet.data() );
   }
   state.SetBytesProcessed( std::int64_t( state.iterations() * kLength ) );
}
BENCHMARK( seal );

void open( benchmark::State & state ) {
   Sa of;
   IpsecSa out( of.entry, 1, SaDirection::outbound, of.history, of.ids );
   IpsecSa in( of.entry, 1, SaDirection::inbound, of.history, of.ids );
   auto sealed = plain();
   if ( espSeal( out, sealed, true ) != nullptr ) state.SkipWithError( "not sealed" );
   auto packet = sealed;
   const auto front = sealed.size() - kLength - in.icvLen() - 2;
   for ( auto _ : state ) {
      std::copy_n( sealed.data(), sealed.size(), packet.data() );
      if ( espOpen( in, packet, true ) != nullptr ) state.SkipWithError( "not opened" );
      packet.append( in.icvLen() + 2 );
      packet.prepend( front );
   }
   state.SetBytesProcessed( std::int64_t( state.iterations() * kLength ) );
}
BENCHMARK( open );

} // namespace

BENCHMARK_MAIN();
