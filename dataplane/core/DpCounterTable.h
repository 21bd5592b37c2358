// The counters that modules count in, by number. In a file they are what proto/vex/counter_table.h lays out, and other
// processes read them while they change.
#pragma once

#include "DpTypes.h"

#include <memory>
#include <string>

namespace Vexdp {

// Written by one thread at a time.
class CounterTable {
 public:
   // Counts that nobody else can see.
   CounterTable();
   // Makes the file, with room for all counts, and holds it; the destructor removes it. It appears whole, out of
   // `path`.new, and replaces what a dead process left, whose readers keep what they mapped. Throws std::runtime_error
   // that names the path: it can't be made, another process holds it, or it is something other than a counter table.
   explicit CounterTable( const std::string & path );
   ~CounterTable();
   CounterTable( const CounterTable & ) = delete;
   CounterTable & operator=( const CounterTable & ) = delete;

   // kNoCounter is counted nowhere.
   void add( CounterId id, std::uint64_t n = 1 );
   std::uint64_t value( CounterId id ) const;
   // All counts to zero.
   void clear();

   // Absolute; empty when there is no file.
   const std::string & path() const { return path_; }
   // Ids are below this.
   static CounterId slots();

 private:
   std::string path_;
   int fd_ = -1;
   void * map_ = nullptr;
   std::uint64_t * counts_ = nullptr;
   CounterId used_ = 0; // ids at and above it were never counted
};

} // namespace Vexdp
