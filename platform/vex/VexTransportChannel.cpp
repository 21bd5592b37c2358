#include "VexTransportChannel.h"

#include <fstream>
#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>
#include <sstream>

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

} // namespace

std::shared_ptr< grpc::Channel > transportChannel( const Peer & peer ) {
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetMaxSendMessageSize( -1 );
   // A new session must not inherit the connection, or the back-off, of the one that was lost.
   arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
   arguments.SetInt( GRPC_ARG_ENABLE_HTTP_PROXY, 0 );
   // What connects and hears nothing is given up by gRPC before the session is (Liveness). Of a channel that is let go
   // while it waits for the peer's first words, gRPC 1.51 never closes the connection once these come.
   arguments.SetInt( GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 2000 );
   return grpc::CreateCustomChannel( peer.address, credentials( peer.tls ), arguments );
}

} // namespace Vex
