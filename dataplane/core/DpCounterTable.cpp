#include "DpCounterTable.h"

#include "vex/counter_table.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace Vexdp {

using namespace vex::counters;

namespace {

constexpr std::size_t kSize = kOffset + std::size_t( kSlots ) * sizeof( std::uint64_t );

[[noreturn]] void fail( const std::string & path, const std::string & why ) {
   throw std::runtime_error( fmt::format( "counter file {}: {}", path, why ) );
}

bool isCounterTable( int fd ) {
   struct stat status {};
   if ( fstat( fd, &status ) != 0 || !S_ISREG( status.st_mode ) ) return false;
   if ( status.st_size == 0 ) return true;
   Header header{};
   return pread( fd, &header, sizeof( header ), 0 ) == ssize_t( sizeof( header ) ) && header.magic == kMagic;
}

// Removes a table that nobody holds any more.
void removeLeftOver( const std::string & path ) {
   const int fd = open( path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK );
   if ( fd < 0 && errno == ENOENT ) return;
   if ( fd < 0 ) fail( path, std::strerror( errno ) );
   const bool table = isCounterTable( fd );
   const bool held = table && flock( fd, LOCK_EX | LOCK_NB ) != 0;
   if ( table && !held ) unlink( path.c_str() );
   close( fd );
   if ( !table ) fail( path, "exists and is not a counter table" );
   if ( held ) fail( path, "in use by another process" );
}

int makeFile( const std::string & path ) {
   removeLeftOver( path );
   const int fd = open( path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644 );
   if ( fd < 0 ) fail( path, std::strerror( errno ) );
   if ( flock( fd, LOCK_EX | LOCK_NB ) == 0 && ftruncate( fd, kSize ) == 0 ) return fd;
   const std::string why = std::strerror( errno );
   unlink( path.c_str() );
   close( fd );
   fail( path, why );
}

void * mapped( int fd ) {
   const int flags = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE : MAP_SHARED;
   void * map = mmap( nullptr, kSize, PROT_READ | PROT_WRITE, flags, fd, 0 );
   return map == MAP_FAILED ? nullptr : map;
}

} // namespace

CounterTable::CounterTable() : map_( mapped( -1 ) ) {
   if ( map_ == nullptr ) throw std::bad_alloc();
   counts_ = reinterpret_cast< std::uint64_t * >( static_cast< char * >( map_ ) + kOffset );
}

CounterTable::CounterTable( const std::string & path ) :
     path_( std::filesystem::absolute( path ) ), fd_( makeFile( path_ ) ), map_( mapped( fd_ ) ) {
   if ( map_ == nullptr ) {
      const std::string why = std::strerror( errno );
      unlink( path_.c_str() );
      close( fd_ );
      fail( path_, why );
   }
   counts_ = reinterpret_cast< std::uint64_t * >( static_cast< char * >( map_ ) + kOffset );
   new ( map_ ) Header{ kMagic, 1, kSlots, kOffset };
}

CounterTable::~CounterTable() {
   munmap( map_, kSize );
   if ( fd_ < 0 ) return;
   unlink( path_.c_str() );
   close( fd_ );
}

// A plain load and store would do for one writer; the atomic store is for the readers.
void CounterTable::add( CounterId id, std::uint64_t n ) {
   if ( id >= kSlots ) return;
   used_ = std::max( used_, id + 1 );
   std::atomic_ref< std::uint64_t > count( counts_[ id ] );
   count.store( count.load( std::memory_order_relaxed ) + n, std::memory_order_relaxed );
}

std::uint64_t CounterTable::value( CounterId id ) const {
   if ( id >= kSlots ) return 0;
   return std::atomic_ref< std::uint64_t >( counts_[ id ] ).load( std::memory_order_relaxed );
}

void CounterTable::clear() {
   for ( CounterId id = 0; id < used_; ++id )
      std::atomic_ref< std::uint64_t >( counts_[ id ] ).store( 0, std::memory_order_relaxed );
   used_ = 0;
}

CounterId CounterTable::slots() { return kSlots; }

} // namespace Vexdp
