#include "HostErrorStream.h"

#include "GantAsio.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <unistd.h>

namespace Host {

struct ErrorStream::Impl : std::enable_shared_from_this< Impl > {
   explicit Impl( int fd ) : stream( Gant::ioContext(), fd ) { stream.non_blocking( true ); }

   void wait() {
      stream.async_wait( stream.wait_read, [ self = shared_from_this() ]( const std::error_code & error ) {
         if ( !error && self->read() ) self->wait();
      } );
   }
   // False: there will be no more.
   bool read() {
      std::error_code error;
      while ( stream.is_open() ) {
         const auto got = stream.read_some( asio::buffer( buffer ), error );
         if ( error ) break;
         take( { buffer.data(), got } );
      }
      return error == asio::error::would_block;
   }
   void take( std::string_view text ) {
      // As its own: nobody can be told when that fails.
      [[maybe_unused]] const auto written = write( STDERR_FILENO, text.data(), text.size() );
      for ( const char c : text ) {
         if ( c != '\n' ) {
            if ( line.size() < lineMost ) line += c < ' ' ? ' ' : c;
         } else if ( !line.empty() ) {
            last = std::exchange( line, {} );
         }
      }
   }

   static constexpr size_t lineMost = 512;
   asio::posix::stream_descriptor stream;
   std::array< char, 4096 > buffer;
   std::string line; // that has no end yet
   std::string last;
};

ErrorStream::ErrorStream( int fd ) : impl_( std::make_shared< Impl >( fd ) ) { impl_->wait(); }

ErrorStream::~ErrorStream() {
   impl_->read();
   std::error_code ignored;
   impl_->stream.close( ignored );
}

std::string ErrorStream::lastLine() {
   impl_->read();
   return impl_->line.empty() ? impl_->last : impl_->line;
}

} // namespace Host
