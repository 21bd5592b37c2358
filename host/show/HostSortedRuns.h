// Very many keys in order, without a long sort: they are sorted in short runs while they are gathered, and the runs are
// merged while they are taken.
#pragma once

#include <algorithm>
#include <cstddef>
#include <queue>
#include <vector>

namespace Host {

template < typename Key >
class SortedRuns {
 public:
   static constexpr size_t runMax = 16384; // keys

   void add( const Key & key ) {
      if ( runs_.empty() || runs_.back().size() == runMax ) {
         sortLast();
         runs_.emplace_back();
      }
      runs_.back().push_back( key );
   }
   // After the last add().
   void close() {
      sortLast();
      for ( size_t run = 0; run < runs_.size(); ++run ) heads_.push( { runs_[ run ][ 0 ], run, 0 } );
   }
   // After close().
   bool empty() const { return heads_.empty(); }
   Key take() {
      auto [ key, run, at ] = heads_.top();
      heads_.pop();
      if ( at + 1 < runs_[ run ].size() ) heads_.push( { runs_[ run ][ at + 1 ], run, at + 1 } );
      return key;
   }

 private:
   struct Head {
      Key key;
      size_t run;
      size_t at;
      bool operator<( const Head & other ) const { return other.key < key; } // the least on top
   };
   void sortLast() {
      if ( !runs_.empty() ) std::sort( runs_.back().begin(), runs_.back().end() );
   }

   std::vector< std::vector< Key > > runs_;
   std::priority_queue< Head > heads_;
};

} // namespace Host
