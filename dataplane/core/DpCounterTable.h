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
   // `path`.new, and replaces what a dead process left, whose readers keep what they mapped. Where there is no room for
   // it the counts stay inside until share(). Throws std::runtime_error that names the path: it can't be made, another
   // process holds it, or it is something other than a counter table.
   explicit CounterTable( const std::string & path );
   ~CounterTable();
   CounterTable( const CounterTable & ) = delete;
   CounterTable & operator=( const CounterTable & ) = delete;

   // Whether the counts are in the file.
   bool shared() const { return fd_ >= 0; }
   // Makes the file, with the counts so far, if it is not there for want of room. Gives the reason while that lasts,
   // and throws as the constructor does.
   std::string share();

   // kNoCounter is counted nowhere.
   void add( CounterId id, std::uint64_t n = 1 );
   std::uint64_t value( CounterId id ) const;
   // All counts to zero.
   void clear();

   // Absolute; empty when there is to be no file.
   const std::string & path() const { return path_; }
   // Ids are below this.
   static CounterId slots();

 private:
   void mapIs( void * map );

   std::string path_;
   int fd_ = -1;
   void * map_ = nullptr;
   std::uint64_t * counts_ = nullptr;
   CounterId used_ = 0; // ids at and above it were never counted
};

} // namespace Vexdp
