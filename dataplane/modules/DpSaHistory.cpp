#include "DpSaHistory.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>

namespace Vexdp {

namespace {

void randomBytes( void * at, std::size_t size ) {
   if ( RAND_bytes( static_cast< unsigned char * >( at ), int( size ) ) != 1 )
      throw std::runtime_error( "the crypto library has no random numbers" );
}

} // namespace

std::uint32_t SaUse::nextSequence( bool advance, bool shared ) {
   auto last = sequence.load( std::memory_order_relaxed );
   do {
      if ( last == std::numeric_limits< std::uint32_t >::max() ) return 0;
   } while ( advance && shared && !sequence.compare_exchange_weak( last, last + 1, std::memory_order_relaxed ) );
   if ( advance && !shared ) sequence.store( last + 1, std::memory_order_relaxed );
   return last + 1;
}

SaHistory::SaHistory() { randomBytes( key_.data(), key_.size() ); }

SaHistory::Code SaHistory::codeOf( SaDirection direction,
                                   const vex::pb::IpsecUpdateSAArg::IpsecSAEntry & entry ) const {
   std::vector< std::uint8_t > bytes;
   for ( const std::uint32_t word : { std::uint32_t( direction ), entry.sa_spi(), entry.dst_addr(),
                                      entry.cipher_algorithm(), entry.auth_algorithm(), entry.crypto_info_len() } )
      for ( unsigned shift = 0; shift < 32; shift += 8 ) bytes.push_back( std::uint8_t( word >> shift ) );
   // In one piece: what grows leaves copies behind.
   bytes.reserve( bytes.size() + entry.crypto_info().size() + entry.auth_info().size() );
   bytes.insert( bytes.end(), entry.crypto_info().begin(), entry.crypto_info().end() );
   bytes.insert( bytes.end(), entry.auth_info().begin(), entry.auth_info().end() );
   Code code{};
   HMAC( EVP_sha256(), key_.data(), int( key_.size() ), bytes.data(), bytes.size(), code.data(), nullptr );
   OPENSSL_cleanse( bytes.data(), bytes.size() );
   return code;
}

std::shared_ptr< SaUse > SaHistory::of( SaDirection direction, const vex::pb::IpsecUpdateSAArg::IpsecSAEntry & entry ) {
   const auto code = codeOf( direction, entry );
   auto & use = uses_[ code ];
   if ( use ) return use;
   use = std::make_shared< SaUse >();
   randomBytes( &use->ivStart, sizeof use->ivStart );
   oldest_.push_back( code );
   auto made = use;
   if ( oldest_.size() > most_ ) forgetOldest();
   return made;
}

void SaHistory::forgetOldest() {
   const auto isFree = []( const auto & entry ) { return entry.second.use_count() == 1; };
   auto free = std::size_t( std::ranges::count_if( uses_, isFree ) );
   std::erase_if( oldest_, [ & ]( const Code & code ) {
      const auto use = uses_.find( code );
      if ( free <= kMost || !isFree( *use ) ) return false;
      --free;
      uses_.erase( use );
      return true;
   } );
   most_ = oldest_.size() + kMost;
}

} // namespace Vexdp
