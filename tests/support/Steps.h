// The loop, and the steps of a random test whose end is compared with what it should be.
#pragma once

#include "GantActivity.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Test {

// Runs the loop until it is so. A test in which that never comes fails here.
template < typename IsSo >
void runUntil( const IsSo & isSo ) {
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 60 );
   while ( !isSo() ) {
      if ( std::chrono::steady_clock::now() > end ) throw std::runtime_error( "what was waited for has not come" );
      if ( Gant::activityManager()->poll() == 0 ) std::this_thread::yield();
   }
}

// What one of the two has and the other has not, a line each; empty: they are the same lines in some order.
inline std::string differences( const char * what, const std::vector< std::string > & found,
                                const std::vector< std::string > & expected ) {
   std::string text;
   const auto add = [ & ]( const char * verb, const auto & these, const auto & those ) {
      for ( const auto & line : these )
         if ( std::ranges::count( these, line ) > std::ranges::count( those, line ) )
            text += std::string( what ) + verb + line + "\n";
   };
   add( " has ", found, expected );
   add( " lacks ", expected, found );
   return text;
}

// The shortest part of the steps of which `failure` still says something, as far as leaving out one run of them after
// the other leads.
template < typename Steps, typename Failure >
Steps shrunk( Steps steps, const Failure & failure ) {
   for ( size_t length = steps.size() / 2; length != 0; length /= 2 )
      for ( size_t from = 0; from + length <= steps.size(); ) {
         Steps shorter = steps;
         const auto begin = shorter.begin() + static_cast< std::ptrdiff_t >( from );
         shorter.erase( begin, begin + static_cast< std::ptrdiff_t >( length ) );
         if ( failure( shorter ).empty() )
            ++from;
         else
            steps = std::move( shorter );
      }
   return steps;
}

} // namespace Test
