#include "DpServer.h"

#include "DpAddress.h"
#include "DpControlService.h"
#include "DpSession.h"

#include <grpcpp/grpcpp.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>

namespace Vexdp {

namespace {

// Who may reach the data plane through a socket.
constexpr mode_t kSocketMode = 0660;

} // namespace

struct Server::Impl {
   Impl( Engine & engine, const std::vector< std::string > & wanted );
   ~Impl();
   void listen( grpc::ServerBuilder & builder, const std::vector< std::string > & wanted );
   void settle( const std::string & address, int port );

   ControlService control;
   EngineService service;
   std::unique_ptr< grpc::ServerCompletionQueue > queue;
   std::optional< SessionServer > sessions;
   std::unique_ptr< grpc::Server > server;
   std::vector< std::string > addresses;
};

Server::Impl::Impl( Engine & engine, const std::vector< std::string > & wanted ) :
     control( engine ), service( engine ) {
   grpc::ServerBuilder builder;
   builder.RegisterService( &control );
   builder.RegisterService( &service );
   builder.SetMaxReceiveMessageSize( -1 );
   builder.SetMaxSendMessageSize( -1 );
   // A second server on the same port would get every other client.
   builder.AddChannelArgument( GRPC_ARG_ALLOW_REUSEPORT, 0 );
   queue = builder.AddCompletionQueue();
   sessions.emplace( engine, service, *queue );
   listen( builder, wanted );
   sessions->start();
}

void Server::Impl::listen( grpc::ServerBuilder & builder, const std::vector< std::string > & wanted ) {
   std::vector< int > ports( wanted.size() );
   for ( std::size_t i = 0; i < wanted.size(); ++i ) {
      // gRPC would let a later socket take the path from an earlier one.
      if ( std::ranges::count( wanted, wanted[ i ] ) > 1 )
         throw std::runtime_error( fmt::format( "can't listen on {}: it is given twice", wanted[ i ] ) );
      requireFree( wanted[ i ] );
      builder.AddListeningPort( wanted[ i ], grpc::InsecureServerCredentials(), &ports[ i ] );
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

Server::Server( Engine & engine, const std::vector< std::string > & addresses ) :
     impl_( std::make_unique< Impl >( engine, addresses ) ) {}

Server::~Server() = default;

const std::vector< std::string > & Server::addresses() const { return impl_->addresses; }

} // namespace Vexdp
