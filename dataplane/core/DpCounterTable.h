// The counters that modules count in, by number. In a file they are what proto/vex/counter_table.h lays out, and other
// processes read them while they change.
#pragma once

#include "DpPerWorker.h"
#include "DpTypes.h"

#include <algorithm>
#include <atomic>
#include <string>

namespace Vexdp {

// Each worker writes counts of its own, one thread at a time; a counter's value is their sum.
class CounterTable {
 public:
   class Writer {
    public:
      // kNoCounter is counted nowhere.
      void add( CounterId id, std::uint64_t n = 1 );

    private:
      friend class CounterTable;
      std::uint64_t * counts_ = nullptr;
      CounterId used_ = 0; // ids at and above it were never counted
   };

   // Counts that nobody else can see. REQUIRES: writers is from 1 to kMostWorkers
   explicit CounterTable( unsigned writers = 1 );
   // Makes the file, with room for all counts, and holds it; the destructor removes it. It appears whole, out of
   // `path`.new, and replaces what a dead process left, whose readers keep what they mapped. Where there is no room for
   // it the counts stay inside until share(). Throws std::runtime_error that names the path: it can't be made, another
   // process holds it, or it is something other than a counter table.
   explicit CounterTable( const std::string & path, unsigned writers = 1 );
   ~CounterTable();
   CounterTable( const CounterTable & ) = delete;
   CounterTable & operator=( const CounterTable & ) = delete;

   // Whether the counts are in the file.
   bool shared() const { return fd_ >= 0; }
   // Makes the file, with the counts so far, if it is not there for want of room. Gives the reason while that lasts,
   // and throws as the constructor does. REQUIRES: nobody counts meanwhile
   std::string share();

   // Stays where it is.
   Writer & writer( unsigned worker ) { return writers_[ worker ]; }
   unsigned writers() const { return writers_.size(); }
   // By the first writer.
   void add( CounterId id, std::uint64_t n = 1 ) { writers_[ 0 ].add( id, n ); }
   std::uint64_t value( CounterId id ) const;
   // All counts to zero. REQUIRES: nobody counts meanwhile
   void clear();

   // Absolute; empty when there is to be no file.
   const std::string & path() const { return path_; }
   // Ids are below this.
   static constexpr CounterId slots() { return 1u << 20; }

 private:
   void mapIs( void * map );
   std::size_t size() const; // bytes of the file

   std::string path_;
   int fd_ = -1;
   void * map_ = nullptr;
   PerWorker< Writer > writers_;
};

// A plain load and store would do for one writer; the atomic store is for the readers.
inline void CounterTable::Writer::add( CounterId id, std::uint64_t n ) {
   if ( id >= slots() ) return;
   used_ = std::max( used_, id + 1 );
   std::atomic_ref< std::uint64_t > count( counts_[ id ] );
   count.store( count.load( std::memory_order_relaxed ) + n, std::memory_order_relaxed );
}

} // namespace Vexdp
