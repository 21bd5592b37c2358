#include "DpServer.h"

#include "DpAddress.h"
#include "DpControlService.h"
#include "DpSession.h"

#include <grpcpp/grpcpp.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace Vexdp {

namespace {

// Who may reach the data plane through a socket.
constexpr mode_t kSocketMode = 0660;

// When nothing has come from a client for the first, it is asked; it is gone when it says nothing within the second. In
// milliseconds. One that owns the data plane and is gone would keep it from all others.
constexpr int kAskAfter = 10000;
constexpr int kGoneAfter = 20000;

std::string contents( const std::string & path ) {
   std::ifstream file( path );
   std::ostringstream text;
   if ( !( text << file.rdbuf() ) ) throw std::runtime_error( fmt::format( "can't read {}", path ) );
   return text.str();
}

std::shared_ptr< grpc::ServerCredentials > credentials( const TlsFiles & tls ) {
   if ( tls.none() ) return grpc::InsecureServerCredentials();
   grpc::SslServerCredentialsOptions options( GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY );
   options.pem_root_certs = contents( tls.authority );
   options.pem_key_cert_pairs.push_back( { contents( tls.key ), contents( tls.certificate ) } );
   return grpc::SslServerCredentials( options );
}

} // namespace

struct Server::Impl {
   Impl( Engine & engine, const std::vector< std::string > & wanted, const TlsFiles & tls );
   ~Impl();
   void listen( grpc::ServerBuilder & builder, const std::vector< std::string > & wanted, const TlsFiles & tls );
   void settle( const std::string & address, int port );

   ControlService control;
   EngineService service;
   std::unique_ptr< grpc::ServerCompletionQueue > queue;
   std::optional< SessionServer > sessions;
   std::unique_ptr< grpc::Server > server;
   std::vector< std::string > addresses;
};

Server::Impl::Impl( Engine & engine, const std::vector< std::string > & wanted, const TlsFiles & tls ) :
     control( engine ), service( engine ) {
   grpc::ServerBuilder builder;
   builder.RegisterService( &control );
   builder.RegisterService( &service );
   builder.SetMaxReceiveMessageSize( -1 );
   builder.SetMaxSendMessageSize( -1 );
   // A second server on the same port would get every other client.
   builder.AddChannelArgument( GRPC_ARG_ALLOW_REUSEPORT, 0 );
   builder.AddChannelArgument( GRPC_ARG_KEEPALIVE_TIME_MS, kAskAfter );
   builder.AddChannelArgument( GRPC_ARG_KEEPALIVE_TIMEOUT_MS, kGoneAfter );
   builder.AddChannelArgument( GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0 );
   queue = builder.AddCompletionQueue();
   sessions.emplace( engine, service, *queue );
   listen( builder, wanted, tls );
   sessions->start();
}

void Server::Impl::listen( grpc::ServerBuilder & builder, const std::vector< std::string > & wanted,
                           const TlsFiles & tls ) {
   const auto overTcp = credentials( tls );
   std::vector< int > ports( wanted.size() );
   for ( std::size_t i = 0; i < wanted.size(); ++i ) {
      // gRPC would let a later socket take the path from an earlier one.
      if ( std::ranges::count( wanted, wanted[ i ] ) > 1 )
         throw std::runtime_error( fmt::format( "can't listen on {}: it is given twice", wanted[ i ] ) );
      requireFree( wanted[ i ] );
      builder.AddListeningPort( wanted[ i ], socketPath( wanted[ i ] ) ? grpc::InsecureServerCredentials() : overTcp,
                                &ports[ i ] );
   }
   server = builder.BuildAndStart();
   for ( std::size_t i = 0; i < wanted.size(); ++i ) {
      if ( ports[ i ] == 0 ) throw std::runtime_error( fmt::format( "can't listen on {}", wanted[ i ] ) );
      settle( wanted[ i ], ports[ i ] );
   }
   if ( !server ) throw std::runtime_error( "the gRPC server doesn't start" );
}

void Server::Impl::settle( const std::string & address, int port ) {
   const auto path = socketPath( address );
   if ( path ) chmod( path->c_str(), kSocketMode );
   addresses.push_back( path ? address : withPort( address, port ) );
}

// The calls end before the queue of the sessions, and that before the services.
Server::Impl::~Impl() {
   if ( server ) server->Shutdown( std::chrono::system_clock::now() );
   sessions.reset();
}

Server::Server( Engine & engine, const std::vector< std::string > & addresses, const TlsFiles & tls ) :
     impl_( std::make_unique< Impl >( engine, addresses, tls ) ) {}

Server::~Server() = default;

const std::vector< std::string > & Server::addresses() const { return impl_->addresses; }

} // namespace Vexdp
