// Key material. Overwritten when it is done with, and never told: of a key there is a length. From the first one on, no
// core of the process is dumped.
#pragma once

#include <openssl/crypto.h>
#include <sys/prctl.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Vexdp {

class Secret {
 public:
   explicit Secret( const std::string & bytes ) : bytes_( bytes.begin(), bytes.end() ) {
      if ( !bytes.empty() ) prctl( PR_SET_DUMPABLE, 0 );
   }
   ~Secret() { OPENSSL_cleanse( bytes_.data(), bytes_.size() ); }
   Secret( const Secret & ) = delete;
   Secret & operator=( const Secret & ) = delete;

   std::size_t size() const { return bytes_.size(); }
   std::span< const std::uint8_t > span() const { return bytes_; }
   // In a time that the bytes don't change.
   bool is( const std::string & bytes ) const {
      return bytes.size() == size() && CRYPTO_memcmp( bytes.data(), bytes_.data(), size() ) == 0;
   }

 private:
   std::vector< std::uint8_t > bytes_;
};

} // namespace Vexdp
