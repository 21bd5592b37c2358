#include "HostCounterTable.h"

#include "vex/counter_table.h"

#include <atomic>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Host {

using vex::counters::Header;

namespace {

const Header & headerOf( const char * map ) { return *reinterpret_cast< const Header * >( map ); }

bool isCounterTable( const char * map, size_t size ) {
   const auto & header = headerOf( map );
   return header.magic == vex::counters::kMagic &&
          header.offset + U64( header.writers ) * header.slots * sizeof( U64 ) <= size;
}

} // namespace

std::unique_ptr< CounterTable > CounterTable::open( const Gant::String & path ) {
   const int fd = path.empty() ? -1 : ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW );
   if ( fd < 0 ) return nullptr;
   struct stat status {};
   const bool whole = fstat( fd, &status ) == 0 && status.st_size >= static_cast< off_t >( sizeof( Header ) );
   const auto size = static_cast< size_t >( status.st_size );
   void * const map = whole ? mmap( nullptr, size, PROT_READ, MAP_SHARED, fd, 0 ) : MAP_FAILED;
   close( fd );
   if ( map == MAP_FAILED ) return nullptr;
   std::unique_ptr< CounterTable > table( new CounterTable( static_cast< const char * >( map ), size ) );
   return isCounterTable( table->map_, size ) ? std::move( table ) : nullptr;
}

CounterTable::~CounterTable() { munmap( const_cast< char * >( map_ ), size_ ); }

std::optional< U64 > CounterTable::value( U32 slot ) const {
   const auto & header = headerOf( map_ );
   if ( slot >= header.slots ) return std::nullopt;
   U64 sum = 0;
   auto * const counts = reinterpret_cast< U64 * >( const_cast< char * >( map_ ) + header.offset );
   for ( U64 writer = 0; writer < header.writers; ++writer )
      sum += std::atomic_ref( counts[ writer * header.slots + slot ] ).load( std::memory_order_relaxed );
   return sum;
}

} // namespace Host
