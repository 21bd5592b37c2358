#include "VexTransportChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <grpcpp/create_channel.h>
#include <grpcpp/create_channel_posix.h>
#include <grpcpp/security/credentials.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vex {

namespace {

Gant::String contents( const Gant::String & path ) {
   std::ostringstream text;
   text << std::ifstream( path ).rdbuf();
   return text.str();
}

std::shared_ptr< grpc::ChannelCredentials > credentials( const TlsFiles & tls ) {
   if ( tls.none() ) return grpc::InsecureChannelCredentials();
   return grpc::SslCredentials( { contents( tls.authority ), contents( tls.key ), contents( tls.certificate ) } );
}

// The path of "unix:/path"; empty: the address is another one.
std::string_view pathOf( std::string_view address ) {
   if ( !address.starts_with( "unix:/" ) ) return {};
   auto path = address.substr( std::strlen( "unix:" ) );
   if ( path.starts_with( "///" ) ) path.remove_prefix( 2 );
   return path.starts_with( "//" ) ? std::string_view() : path;
}

// A socket on its way to the address; -1: nobody listens there.
int socketTo( const sockaddr * where, socklen_t size ) {
   const int fd = socket( where->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( fd < 0 || connect( fd, where, size ) == 0 ) return fd;
   // One on this machine is refused by now; how another one's ends gRPC sees.
   int error = errno;
   socklen_t length = sizeof( error );
   if ( error == EINPROGRESS && getsockopt( fd, SOL_SOCKET, SO_ERROR, &error, &length ) == 0 && error == 0 ) return fd;
   close( fd );
   return -1;
}

int unixSocketTo( std::string_view path ) {
   sockaddr_un where{};
   where.sun_family = AF_UNIX;
   if ( path.size() >= sizeof( where.sun_path ) ) return -1;
   path.copy( where.sun_path, path.size() );
   return socketTo( reinterpret_cast< const sockaddr * >( &where ), sizeof( where ) );
}

// To "host:port", where the host is an address or this one; -1 too where it is a name, which takes time to look up.
int tcpSocketTo( const Gant::String & address ) {
   const auto colon = address.rfind( ':' );
   if ( colon == address.npos ) return -1;
   auto host = address.substr( 0, colon );
   if ( host == "localhost" ) host = "127.0.0.1"; // RFC 6761, section 6.3
   if ( host.starts_with( '[' ) && host.ends_with( ']' ) ) host = host.substr( 1, host.size() - 2 );
   addrinfo hints{}, *found = nullptr;
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
   if ( getaddrinfo( host.c_str(), address.substr( colon + 1 ).c_str(), &hints, &found ) != 0 ) return -1;
   const int fd = socketTo( found->ai_addr, found->ai_addrlen );
   freeaddrinfo( found );
   const int on = 1;
   if ( fd >= 0 ) setsockopt( fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof( on ) );
   return fd;
}

// gRPC makes connections by TLS itself.
int socketTo( const Peer & peer ) {
   if ( const auto path = pathOf( peer.address ); !path.empty() ) return unixSocketTo( path );
   return peer.tls.none() && !peer.address.starts_with( "unix:" ) ? tcpSocketTo( peer.address ) : -1;
}

} // namespace

std::shared_ptr< grpc::Channel > transportChannel( const Peer & peer, double silenceMost ) {
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetMaxSendMessageSize( -1 );
   // A new session must not inherit the connection, or the back-off, of the one that was lost.
   arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
   arguments.SetInt( GRPC_ARG_ENABLE_HTTP_PROXY, 0 );
   // gRPC 1.51 forgets a connection of its own making, and never closes it, when the peer's first words come as the
   // channel is let go. One that is made here goes with its channel.
   if ( const int fd = socketTo( peer ); fd >= 0 ) {
      arguments.SetString( GRPC_ARG_DEFAULT_AUTHORITY, "localhost" );
      return grpc::CreateCustomInsecureChannelFromFd( peer.address, fd, arguments );
   }
   // Otherwise gRPC gives up what hears nothing before the session is given up (Liveness). Each of these is a bound of
   // the time in which it does.
   const auto most = silenceMost > 0 ? std::min( 2000, int( 600 * silenceMost ) ) : 2000; // milliseconds
   for ( const char * bound : { GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS,
                                GRPC_ARG_MAX_RECONNECT_BACKOFF_MS } )
      arguments.SetInt( bound, most );
   return grpc::CreateCustomChannel( peer.address, credentials( peer.tls ), arguments );
}

} // namespace Vex
