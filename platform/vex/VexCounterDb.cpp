#include "VexCounterDb.h"

#include "vex/counter_table.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VexModules {

namespace {

// The bytes that the header announces; 0 when it is none.
U64 announcedSize( const vex::counters::Header & header ) {
   constexpr U32 writersMax = 1024;
   if ( header.magic != vex::counters::kMagic || header.offset < sizeof( header ) ||
        header.offset % sizeof( U64 ) != 0 || header.writers == 0 || header.writers > writersMax )
      return 0;
   return header.offset + U64( header.writers ) * header.slots * sizeof( U64 );
}

} // namespace

MirelCounterDbStatus::~MirelCounterDbStatus() { unmap(); }

void MirelCounterDbStatus::unmap() {
   if ( memory_ != nullptr ) munmap( memory_, size_ );
   memory_ = nullptr;
   base_.clear();
}

Gant::String MirelCounterDbStatus::map( const Gant::String & path ) {
   unmap();
   const auto error = [ &path ]( const char * reason ) { return "counter table " + path + ": " + reason; };
   const int fd = open( path.c_str(), O_RDONLY | O_CLOEXEC );
   if ( fd < 0 ) return error( std::strerror( errno ) );
   struct stat status {};
   vex::counters::Header header{};
   const bool hasHeader = fstat( fd, &status ) == 0 && pread( fd, &header, sizeof( header ), 0 ) == sizeof( header );
   const auto size = hasHeader ? announcedSize( header ) : 0;
   if ( size == 0 || size > static_cast< U64 >( status.st_size ) ) {
      close( fd );
      return error( "not a counter table" );
   }
   void * const memory = mmap( nullptr, size, PROT_READ, MAP_SHARED, fd, 0 );
   const int mapError = errno;
   close( fd );
   if ( memory == MAP_FAILED ) return error( std::strerror( mapError ) );
   memory_ = memory;
   size_ = size;
   counts_ = reinterpret_cast< U64 * >( static_cast< char * >( memory ) + header.offset );
   writers_ = header.writers;
   slots_ = header.slots;
   return {};
}

U64 MirelCounterDbStatus::raw( MirelCounterId id ) const {
   if ( memory_ == nullptr || id >= slots_ ) return 0;
   U64 sum = 0;
   for ( U64 writer = 0; writer < writers_; ++writer )
      sum += std::atomic_ref( counts_[ writer * slots_ + id ] ).load( std::memory_order_relaxed );
   return sum;
}

MirelCount MirelCounterDbStatus::mirelCount( MirelCounterId id ) const {
   const auto value = raw( id );
   const auto at = base_.empty() ? base_.end() : base_.find( id );
   // A data plane that did clear the count starts from 0 by itself.
   return MirelCount( at == base_.end() || value < at->second ? value : value - at->second );
}

void MirelCounterDbStatus::restarted( MirelCounterId id ) {
   if ( const auto value = raw( id ); value != 0 )
      base_[ id ] = value;
   else
      base_.erase( id );
}

} // namespace VexModules
