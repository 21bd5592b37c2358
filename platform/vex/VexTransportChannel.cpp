#include "VexTransportChannel.h"

#include <cstring>
#include <fstream>
#include <grpcpp/create_channel.h>
#include <grpcpp/create_channel_posix.h>
#include <grpcpp/security/credentials.h>
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

// A socket that is connected to "unix:/path"; -1: the address is another one, or nobody listens there.
int connectedSocket( std::string_view address ) {
   if ( !address.starts_with( "unix:/" ) ) return -1;
   auto path = address.substr( std::strlen( "unix:" ) );
   if ( path.starts_with( "///" ) ) path.remove_prefix( 2 );
   sockaddr_un where{};
   where.sun_family = AF_UNIX;
   if ( path.size() >= sizeof( where.sun_path ) || path.starts_with( "//" ) ) return -1;
   path.copy( where.sun_path, path.size() );
   const int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( fd < 0 || connect( fd, reinterpret_cast< const sockaddr * >( &where ), sizeof( where ) ) == 0 ) return fd;
   close( fd );
   return -1;
}

} // namespace

std::shared_ptr< grpc::Channel > transportChannel( const Peer & peer ) {
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetMaxSendMessageSize( -1 );
   // A new session must not inherit the connection, or the back-off, of the one that was lost.
   arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
   arguments.SetInt( GRPC_ARG_ENABLE_HTTP_PROXY, 0 );
   // Of a connection that gRPC 1.51 makes itself, and whose channel is let go before the peer's first words, the socket
   // is never closed once these come. One that is made here goes with its channel.
   if ( const int fd = connectedSocket( peer.address ); fd >= 0 ) {
      arguments.SetString( GRPC_ARG_DEFAULT_AUTHORITY, "localhost" );
      return grpc::CreateCustomInsecureChannelFromFd( peer.address, fd, arguments );
   }
   // Otherwise gRPC gives up what hears nothing before the session is (Liveness).
   arguments.SetInt( GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 2000 );
   return grpc::CreateCustomChannel( peer.address, credentials( peer.tls ), arguments );
}

} // namespace Vex
