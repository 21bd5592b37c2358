#include "DpRuleSearch.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>

namespace Vexdp {

RuleSearch::RuleSearch( const std::vector< Rule > & rules ) {
   if ( rules.size() < kFewRules ) return;
   std::vector< std::uint32_t > cares( rules.size() );
   std::uint32_t any = 0;
   for ( std::size_t i = 0; i < rules.size(); ++i ) any |= cares[ i ] = rules[ i ].digits();
   for ( unsigned digit = 0; digit < RuleKey::kDigits; ++digit )
      if ( any >> digit & 1 ) digits_.push_back( std::uint8_t( digit ) );
   // What most care about leaves the fewest: often none, before the other digits are read.
   std::array< std::size_t, RuleKey::kDigits > carers{};
   for ( const auto rule : cares )
      for ( const auto digit : digits_ ) carers[ digit ] += rule >> digit & 1;
   std::ranges::stable_sort( digits_, std::greater(), [ &carers ]( auto digit ) { return carers[ digit ]; } );
   const auto blocks = ( rules.size() + kRulesAtOnce - 1 ) / kRulesAtOnce;
   possible_.assign( blocks * digits_.size() * kValues, Bits{} );
   auto * bits = possible_.data();
   for ( std::size_t at = 0; at < rules.size(); at += kRulesAtOnce )
      for ( const auto digit : digits_ ) {
         fill( bits, rules, cares, at, digit );
         bits += kValues;
      }
}

void RuleSearch::fill( Bits * bits, const std::vector< Rule > & rules, const std::vector< std::uint32_t > & cares,
                       std::size_t at, unsigned digit ) {
   const auto end = std::min( at + kRulesAtOnce, rules.size() );
   std::uint64_t always[ kWords ] = {}, of[ kValues ][ kWords ] = {};
   for ( auto i = at; i < end; ++i ) {
      const auto word = ( i - at ) / 64;
      const auto bit = std::uint64_t( 1 ) << i % 64;
      if ( !( cares[ i ] >> digit & 1 ) ) {
         always[ word ] |= bit;
         continue;
      }
      for ( auto values = rules[ i ].valuesOf( digit ); values != 0; values &= values - 1 )
         of[ std::countr_zero( values ) ][ word ] |= bit;
   }
   for ( unsigned value = 0; value < kValues; ++value ) {
      for ( std::size_t word = 0; word < kWords; ++word ) of[ value ][ word ] |= always[ word ];
      std::memcpy( &bits[ value ], of[ value ], sizeof( Bits ) );
   }
}

// Looks after every few digits whether any are left.
inline RuleSearch::Bits RuleSearch::candidates( const Bits * bits, const std::uint8_t * bytes ) const {
   constexpr std::size_t kDigitsAtOnce = 4;
   Bits left{ ~Half{}, ~Half{} };
   for ( std::size_t i = 0; i < digits_.size(); ++i, bits += kValues ) {
      const auto digit = digits_[ i ];
      const auto & possible = bits[ bytes[ digit / 2 ] >> ( digit % 2 ? 0 : 4 ) & 15 ];
      left.low &= possible.low;
      left.high &= possible.high;
      const auto any = left.low | left.high;
      if ( i % kDigitsAtOnce == kDigitsAtOnce - 1 && ( any[ 0 ] | any[ 1 ] ) == 0 ) break;
   }
   return left;
}

std::size_t RuleSearch::first( const std::vector< Rule > & rules, const RuleKey & key ) const {
   if ( digits_.empty() ) {
      std::size_t i = 0;
      while ( i < rules.size() && !rules[ i ].matches( key ) ) ++i;
      return i;
   }
   std::uint8_t bytes[ RuleKey::kDigits / 2 ];
   key.bytes( bytes );
   const auto * bits = possible_.data();
   for ( std::size_t at = 0; at < rules.size(); at += kRulesAtOnce, bits += digits_.size() * kValues ) {
      // As words: g++ 12 reads a vector by a variable subscript wrong when it looks for undefined behaviour.
      const auto left = std::bit_cast< std::array< std::uint64_t, kWords > >( candidates( bits, bytes ) );
      for ( std::size_t word = 0; word < kWords; ++word )
         for ( auto some = left[ word ]; some != 0; some &= some - 1 ) {
            const auto i = at + word * 64 + std::size_t( std::countr_zero( some ) );
            if ( rules[ i ].matches( key ) ) return i;
         }
   }
   return rules.size();
}

} // namespace Vexdp
