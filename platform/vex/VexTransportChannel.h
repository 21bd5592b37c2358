// The gRPC channel below a transport. For the channel's sources only.
#pragma once

#include "VexPeer.h"

#include <grpcpp/channel.h>
#include <memory>

namespace Vex {

// A connection of its own, with no limit on the size of messages. With files of TLS that cannot be read, it is one that
// every call on it fails. To "unix:/path", and without TLS to an address or localhost, it is made at once, and only
// once: when it is lost, all calls fail. Otherwise gRPC makes it, and gives up one on which nothing is heard for most
// of `silenceMost` seconds (0: as 3): whoever lets go of the channel earlier leaves its socket open when the peer
// speaks after that.
std::shared_ptr< grpc::Channel > transportChannel( const Peer & peer, double silenceMost = 3 );

// Service::Stub over a connection of its own, which the first call makes, and the first one after it was lost.
template < typename Service >
class Connected {
 public:
   explicit Connected( Peer peer ) : peer_( std::move( peer ) ) {}

   typename Service::Stub & stub() {
      if ( !stub_ ) stub_ = std::make_unique< typename Service::Stub >( transportChannel( peer_ ) );
      return *stub_;
   }
   // Calls that are under way keep the connection that they are on.
   void lost() { stub_ = nullptr; }

 private:
   const Peer peer_;
   std::unique_ptr< typename Service::Stub > stub_;
};

} // namespace Vex
