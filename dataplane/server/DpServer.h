// The gRPC server: both services on any number of addresses.
//
// All that knows of gRPC and of sessions is in this folder. Every request of either service becomes one and the same
// call on the engine, so that the two cannot differ in what they do.
#pragma once

#include "DpEngine.h"

#include <memory>
#include <string>
#include <vector>

namespace Vexdp {

class Server {
 public:
   // Listens from now on. Throws std::runtime_error that names the address when one can't be had; then it listens
   // nowhere. REQUIRES: badAddress() finds nothing on any of them. The engine outlives the server.
   Server( Engine & engine, const std::vector< std::string > & addresses );
   // Ends every call, and removes the sockets.
   ~Server();
   Server( const Server & ) = delete;
   Server & operator=( const Server & ) = delete;

   // Where it listens, with the ports that were found.
   const std::vector< std::string > & addresses() const;

 private:
   struct Impl;
   std::unique_ptr< Impl > impl_;
};

} // namespace Vexdp
