#include "DpAddress.h"

#include <fmt/format.h>

#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Vexdp {

namespace {

constexpr std::string_view kUnix = "unix:";

[[noreturn]] void fail( const std::string & address, std::string_view why ) {
   throw std::runtime_error( fmt::format( "can't listen on {}: {}", address, why ) );
}

bool isPort( std::string_view text ) {
   unsigned port = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), port );
   return error == std::errc() && end == text.data() + text.size() && port <= 65535;
}

struct HostAndPort {
   std::string host; // without the brackets of an IPv6 address
   std::string port;
};

HostAndPort split( const std::string & address ) {
   const auto colon = address.rfind( ':' );
   auto host = address.substr( 0, colon );
   if ( host.front() == '[' && host.back() == ']' ) host = host.substr( 1, host.size() - 2 );
   return { host, address.substr( colon + 1 ) };
}

class Socket {
 public:
   explicit Socket( int family ) : fd_( socket( family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) ) {}
   ~Socket() {
      if ( fd_ >= 0 ) close( fd_ );
   }
   Socket( const Socket & ) = delete;
   Socket & operator=( const Socket & ) = delete;

   bool connects( const sockaddr * address, socklen_t len ) const {
      return connect( fd_, address, len ) == 0 || errno == EAGAIN;
   }
   // 0 or the errno.
   int binds( const sockaddr * address, socklen_t len ) const {
      const int on = 1;
      setsockopt( fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof( on ) );
      return bind( fd_, address, len ) == 0 ? 0 : errno;
   }

 private:
   const int fd_;
};

void requireFreePath( const std::string & address, const std::string & path ) {
   sockaddr_un where{};
   where.sun_family = AF_UNIX;
   std::memcpy( where.sun_path, path.c_str(), path.size() + 1 );
   const auto * at = reinterpret_cast< const sockaddr * >( &where );

   struct stat status {};
   if ( lstat( path.c_str(), &status ) == 0 ) {
      if ( !S_ISSOCK( status.st_mode ) ) fail( address, "the path exists and is not a socket" );
      if ( Socket( AF_UNIX ).connects( at, sizeof( where ) ) ) fail( address, "the address is in use" );
      unlink( path.c_str() );
   }
   if ( const int error = Socket( AF_UNIX ).binds( at, sizeof( where ) ); error != 0 )
      fail( address, std::strerror( error ) );
   unlink( path.c_str() );
}

void requireFreePort( const std::string & address ) {
   const auto [ host, port ] = split( address );
   addrinfo hints{};
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = AI_PASSIVE;
   addrinfo * found = nullptr;
   if ( const int error = getaddrinfo( host.c_str(), port.c_str(), &hints, &found ); error != 0 )
      fail( address, gai_strerror( error ) );
   const std::unique_ptr< addrinfo, decltype( &freeaddrinfo ) > all( found, &freeaddrinfo );
   int lastError = 0;
   bool any = false;
   for ( const auto * at = all.get(); at != nullptr; at = at->ai_next ) {
      const int error = Socket( at->ai_family ).binds( at->ai_addr, at->ai_addrlen );
      if ( error == EADDRINUSE ) fail( address, "the address is in use" );
      if ( error == 0 ) any = true;
      lastError = error;
   }
   // A name may stand for addresses that this machine doesn't have, such as ::1 where there is no IPv6.
   if ( !any ) fail( address, std::strerror( lastError ) );
}

} // namespace

std::string badAddress( const std::string & address ) {
   if ( const auto path = socketPath( address ) ) {
      if ( path->empty() ) return "the socket has no path";
      if ( path->size() >= sizeof( sockaddr_un::sun_path ) ) return "the socket's path is too long";
      return {};
   }
   const auto colon = address.rfind( ':' );
   if ( colon == std::string::npos || colon == 0 ) return "an address is unix:PATH or HOST:PORT";
   if ( !isPort( std::string_view( address ).substr( colon + 1 ) ) ) return "the port is not a number up to 65535";
   return {};
}

std::optional< std::string > socketPath( const std::string & address ) {
   if ( !address.starts_with( kUnix ) ) return std::nullopt;
   return address.substr( kUnix.size() );
}

std::string withPort( const std::string & address, int port ) {
   return fmt::format( "{}:{}", address.substr( 0, address.rfind( ':' ) ), port );
}

void requireFree( const std::string & address ) {
   if ( const auto path = socketPath( address ) )
      requireFreePath( address, *path );
   else
      requireFreePort( address );
}

} // namespace Vexdp
