#include "DpCounterTable.h"

#include "DpDescriptor.h"

#include "vex/counter_table.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Vexdp {

using namespace vex::counters;

namespace {

static_assert( CounterTable::slots() == kSlots );

constexpr std::size_t sizeFor( unsigned writers ) {
   return kOffset + std::size_t( writers ) * kSlots * sizeof( std::uint64_t );
}

[[noreturn]] void fail( const std::string & path, const std::string & why ) {
   throw std::runtime_error( fmt::format( "counter file {}: {}", path, why ) );
}

struct NoRoom : std::runtime_error {
   using std::runtime_error::runtime_error;
};

bool isForWantOfRoom( int error ) { return error == ENOSPC || error == EDQUOT || error == EFBIG; }

class File : public Descriptor {
 public:
   File( const std::string & path, int flags ) :
        Descriptor( open( path.c_str(), flags | O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644 ) ) {}

   bool lock() const { return flock( fd(), LOCK_EX | LOCK_NB ) == 0; }
   // Whether that is still its name.
   bool isAt( const std::string & path ) const {
      struct stat mine {
      }, there{};
      return fstat( fd(), &mine ) == 0 && lstat( path.c_str(), &there ) == 0 && mine.st_dev == there.st_dev &&
             mine.st_ino == there.st_ino;
   }
};

// A table, or what is left of one whose maker died before its header was there.
bool isCounterTable( int fd ) {
   struct stat status {};
   if ( fstat( fd, &status ) != 0 || !S_ISREG( status.st_mode ) ) return false;
   std::array< char, sizeof( Header ) > bytes{};
   const auto length = pread( fd, bytes.data(), bytes.size(), 0 );
   if ( length == ssize_t( bytes.size() ) && std::memcmp( bytes.data(), &kMagic, sizeof( kMagic ) ) == 0 ) return true;
   return length >= 0 && std::size_t( status.st_size ) <= sizeFor( kMostWorkers ) &&
          bytes == std::array< char, sizeof( Header ) >{};
}

// REQUIRES: nobody else makes the file meanwhile
void removeLeftOver( const std::string & path ) {
   const File file( path, 0 );
   if ( !file && errno == ENOENT ) return;
   if ( !file ) fail( path, std::strerror( errno ) );
   if ( !isCounterTable( file.fd() ) ) fail( path, "exists and is not a counter table" );
   if ( !file.lock() ) fail( path, "in use by another process" );
   unlink( path.c_str() );
}

// The file that becomes the table, held. Whoever holds it is the only one that makes the table; what a dead process
// left of one is taken over.
File heldDraft( const std::string & path, const std::string & draft ) {
   for ( ;; ) {
      File file( draft, O_CREAT );
      if ( !file && isForWantOfRoom( errno ) ) throw NoRoom( std::strerror( errno ) );
      if ( !file ) fail( path, std::strerror( errno ) );
      if ( !isCounterTable( file.fd() ) ) fail( draft, "exists and is not a counter table" );
      if ( !file.lock() ) fail( path, "in use by another process" );
      // Another process may have made it the table, and died, between the opening and the lock.
      if ( file.isAt( draft ) ) return file;
   }
}

// Its pages are there afterwards: a store to a page that the file system has no room for ends the process.
int written( int fd, unsigned writers ) {
   const Header header{ kMagic, writers, kSlots, kOffset };
   if ( ftruncate( fd, 0 ) != 0 ) return errno;
   if ( const int error = posix_fallocate( fd, 0, off_t( sizeFor( writers ) ) ) ) return error;
   return pwrite( fd, &header, sizeof( header ), 0 ) == ssize_t( sizeof( header ) ) ? 0 : errno;
}

// The file appears whole: it is written aside and renamed, so that a process that is killed on the way leaves nothing
// that another one stumbles over.
int makeFile( const std::string & path, unsigned writers ) {
   const auto draft = path + ".new";
   auto file = heldDraft( path, draft );
   try {
      // Before the pages are reserved: it may be what takes the room.
      removeLeftOver( path );
      const int error = written( file.fd(), writers );
      if ( isForWantOfRoom( error ) ) throw NoRoom( std::strerror( error ) );
      if ( error != 0 ) fail( path, std::strerror( error ) );
      if ( rename( draft.c_str(), path.c_str() ) != 0 ) fail( path, std::strerror( errno ) );
   } catch ( ... ) {
      unlink( draft.c_str() );
      throw;
   }
   return file.release();
}

void * mapped( int fd, std::size_t size ) {
   const int flags = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE : MAP_SHARED;
   void * map = mmap( nullptr, size, PROT_READ | PROT_WRITE, flags, fd, 0 );
   return map == MAP_FAILED ? nullptr : map;
}

} // namespace

CounterTable::CounterTable( unsigned writers ) : writers_( writers ) { mapIs( mapped( -1, size() ) ); }

CounterTable::CounterTable( const std::string & path, unsigned writers ) : CounterTable( writers ) {
   path_ = std::filesystem::absolute( path );
   share();
}

void CounterTable::mapIs( void * map ) {
   if ( map == nullptr ) throw std::bad_alloc();
   map_ = map;
   auto * const counts = reinterpret_cast< std::uint64_t * >( static_cast< char * >( map_ ) + kOffset );
   for ( unsigned worker = 0; worker < writers(); ++worker )
      writers_[ worker ].counts_ = counts + std::size_t( worker ) * kSlots;
}

std::size_t CounterTable::size() const { return sizeFor( writers() ); }

std::string CounterTable::share() {
   if ( path_.empty() || shared() ) return {};
   int fd = -1;
   try {
      fd = makeFile( path_, writers() );
   } catch ( const NoRoom & error ) {
      return fmt::format( "counter file {}: {}", path_, error.what() );
   }
   void * const map = mapped( fd, size() );
   if ( map == nullptr ) {
      const std::string why = std::strerror( errno );
      unlink( path_.c_str() );
      close( fd );
      fail( path_, why );
   }
   auto * const before = map_;
   std::vector< const std::uint64_t * > counts;
   for ( unsigned worker = 0; worker < writers(); ++worker ) counts.push_back( writers_[ worker ].counts_ );
   mapIs( map );
   for ( unsigned worker = 0; worker < writers(); ++worker )
      std::copy_n( counts[ worker ], writers_[ worker ].used_, writers_[ worker ].counts_ );
   munmap( before, size() );
   fd_ = fd;
   return {};
}

CounterTable::~CounterTable() {
   munmap( map_, size() );
   if ( fd_ < 0 ) return;
   unlink( path_.c_str() );
   close( fd_ );
}

std::uint64_t CounterTable::value( CounterId id ) const {
   if ( id >= kSlots ) return 0;
   std::uint64_t sum = 0;
   for ( unsigned worker = 0; worker < writers(); ++worker )
      sum += std::atomic_ref< std::uint64_t >( writers_[ worker ].counts_[ id ] ).load( std::memory_order_relaxed );
   return sum;
}

void CounterTable::clear() {
   for ( unsigned worker = 0; worker < writers(); ++worker ) {
      auto & writer = writers_[ worker ];
      for ( CounterId id = 0; id < writer.used_; ++id )
         std::atomic_ref< std::uint64_t >( writer.counts_[ id ] ).store( 0, std::memory_order_relaxed );
      writer.used_ = 0;
   }
}

} // namespace Vexdp
