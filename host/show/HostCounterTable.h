// The data plane's counter table, mapped for reading.
#pragma once

#include "GantTypes.h"

#include <memory>
#include <optional>

namespace Host {

class CounterTable {
 public:
   // Null when the file is not there, or is no counter table.
   static std::unique_ptr< CounterTable > open( const Gant::String & path );
   ~CounterTable();
   CounterTable( const CounterTable & ) = delete;
   CounterTable & operator=( const CounterTable & ) = delete;

   // The sum over the writers; nothing for a slot that the table does not have.
   std::optional< U64 > value( U32 slot ) const;

 private:
   CounterTable( const char * map, size_t size ) : map_( map ), size_( size ) {}
   const char * const map_;
   const size_t size_;
};

} // namespace Host
