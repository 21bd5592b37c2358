#include "RuntimeMemory.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <fstream>
#include <malloc.h>
#include <new>
#include <unistd.h>

namespace Runtime {

namespace {

const char * nameOfProgram = "";
std::terminate_handler otherEnd = nullptr;

// With what needs no memory.
[[noreturn]] void endOfMemory() {
   for ( const char * text : { nameOfProgram, ": out of memory\n" } )
      if ( write( STDERR_FILENO, text, std::strlen( text ) ) < 0 ) break;
   _exit( 1 );
}

[[noreturn]] void endOfException() {
   if ( const auto exception = std::current_exception() ) {
      try {
         std::rethrow_exception( exception );
      } catch ( const std::bad_alloc & ) {
         endOfMemory();
      } catch ( ... ) {
      }
   }
   otherEnd();
   std::abort();
}

} // namespace

void endWithoutMemory( const char * program ) {
   nameOfProgram = program;
   std::set_new_handler( endOfMemory );
   otherEnd = std::set_terminate( endOfException );
}

std::size_t resident() {
   std::ifstream file( "/proc/self/statm" );
   std::size_t all = 0, pages = 0;
   return file >> all >> pages ? pages * std::size_t( sysconf( _SC_PAGESIZE ) ) : 0;
}

void Trimmer::look() {
   constexpr std::size_t much = 4u << 20;
   const auto kept = mallinfo2().fordblks;
   // What has been given back still counts as kept.
   if ( kept > keptBefore_ + much ) {
      malloc_trim( 0 );
      keptBefore_ = mallinfo2().fordblks;
   } else {
      keptBefore_ = std::min( keptBefore_, kept );
   }
}

} // namespace Runtime
