// Finds the rules of a table that a packet may match, without looking at each.
//
// A packet's fields are 32 digits of four bits. For each digit that any rule cares about, and each value of it, there
// is a bit for each rule: set where the rule leaves the value possible. The rules that all digits of a packet leave
// possible are the candidates, and only they are compared in full: with 1,000 rules some 30 vectors of 1,000 bits are
// read instead of 1,000 rules. It takes 64 bytes a rule at most, whatever the masks and ranges are.
#pragma once

#include "DpRule.h"

#include <array>
#include <vector>

namespace Vexdp {

class RuleSearch {
 public:
   // Below, looking at each is as quick.
   static constexpr std::size_t kFewRules = 32;

   explicit RuleSearch( const std::vector< Rule > & rules );

   // The place of the first rule that matches, or the number of rules. `rules` are those that it was made of.
   std::size_t first( const std::vector< Rule > & rules, const RuleKey & key ) const;

 private:
   static constexpr std::size_t kRulesAtOnce = 256;
   // In halves that each fit a register of every processor: a compiler keeps what does not in memory.
   using Half = std::uint64_t __attribute__( ( vector_size( kRulesAtOnce / 16 ) ) );
   struct Bits {
      Half low, high;
   };
   static constexpr std::size_t kWords = sizeof( Bits ) / sizeof( std::uint64_t );
   static constexpr std::size_t kValues = 16; // of a digit

   // What the rules from `at` leave possible of the digit's values.
   static void fill( Bits * bits, const std::vector< Rule > & rules, const std::vector< std::uint32_t > & cares,
                     std::size_t at, unsigned digit );

   // Of 256 rules, a bit for each that is possible for the key.
   Bits candidates( const Bits * bits, const std::uint8_t * bytes ) const;

   std::vector< std::uint8_t > digits_; // those that any rule cares about, first what most do
   std::vector< Bits > possible_;       // by 256 rules, digit and value
};

} // namespace Vexdp
