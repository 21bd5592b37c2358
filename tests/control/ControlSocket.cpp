#include "ControlSocket.h"

#include "TestRouter.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Test {

ControlSocket::ControlSocket( const std::string & path ) : fd_( socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy( address.sun_path, path.data(), path.size() );
   EXPECT_EQ( connect( fd_, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ), 0 );
}

ControlSocket::~ControlSocket() { close( fd_ ); }

void ControlSocket::send( const std::string & text ) const {
   size_t sent = 0;
   runUntil( [ & ] {
      const auto n = ::send( fd_, text.data() + sent, text.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL );
      if ( n > 0 ) sent += static_cast< size_t >( n );
      // The daemon may have closed before it has read all.
      return sent == text.size() || ( n < 0 && errno != EAGAIN );
   } );
}

void ControlSocket::shut() const { shutdown( fd_, SHUT_WR ); }

bool ControlSocket::receive() {
   char buffer[ 65536 ];
   const auto n = recv( fd_, buffer, sizeof( buffer ), MSG_DONTWAIT );
   if ( n > 0 ) input_.append( buffer, static_cast< size_t >( n ) );
   if ( n == 0 || ( n < 0 && errno != EAGAIN ) ) end_ = true;
   return input_.find( '\n' ) != std::string::npos || end_;
}

std::optional< Host::Json > ControlSocket::line() {
   if ( input_.find( '\n' ) == std::string::npos ) runUntil( [ this ] { return receive(); } );
   const auto end = input_.find( '\n' );
   if ( end == std::string::npos ) return std::nullopt;
   auto json = Host::Json::parse( input_.substr( 0, end ) );
   input_.erase( 0, end + 1 );
   return json;
}

std::vector< Host::Json > ControlSocket::ask( const Host::Json & request ) {
   send( request.dump() + "\n" );
   return answer();
}

std::vector< Host::Json > ControlSocket::answer() {
   std::vector< Host::Json > lines;
   while ( const auto json = line() ) {
      if ( json->contains( "row" ) ) lines.push_back( json->at( "row" ) );
      if ( json->contains( "end" ) || json->contains( "error" ) ) {
         lines.push_back( *json );
         return lines;
      }
   }
   ADD_FAILURE() << "the answer broke off";
   return lines;
}

} // namespace Test
