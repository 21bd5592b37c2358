// Hashing of values: a seeded mixer into which fields go in a stated order.
#pragma once

#include "GantTypes.h"

#include <functional>
#include <string_view>
#include <type_traits>

namespace Gant {

__extension__ typedef unsigned __int128 U128;

template < typename T >
size_t hashOf( const T & value );

class Hash {
 public:
   explicit constexpr Hash( U64 seed = 0 ) : state_( seed ^ 0x9e3779b97f4a7c15u ) {}

   constexpr Hash & word( U64 w ) {
      const auto product = static_cast< U128 >( state_ ^ w ) * 0xd6e8feb86659fd93u;
      state_ = static_cast< U64 >( product ) ^ static_cast< U64 >( product >> 64 );
      return *this;
   }
   template < typename T >
   Hash & mix( const T & value ) {
      return word( hashOf( value ) );
   }
   template < typename T >
   Hash & operator<<( const T & value ) {
      return mix( value );
   }
   constexpr size_t value() const { return state_ ^ ( state_ >> 29 ); }

 private:
   U64 state_;
};

template < typename T >
size_t hashOf( const T & value ) {
   if constexpr ( requires { value.hash(); } ) {
      return value.hash();
   } else if constexpr ( std::is_integral_v< T > || std::is_enum_v< T > ) {
      return Hash().word( static_cast< U64 >( value ) ).value();
   } else if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
      return std::hash< std::string_view >()( value );
   } else {
      return std::hash< T >()( value );
   }
}

struct Hasher {
   template < typename T >
   size_t operator()( const T & value ) const {
      return hashOf( value );
   }
};

} // namespace Gant
