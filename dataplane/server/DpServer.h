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

// Files of mutual TLS, PEM. None is given, or all are.
struct TlsFiles {
   std::string certificate; // of this side
   std::string key;
   std::string authority; // who signs the clients'

   bool none() const { return certificate.empty() && key.empty() && authority.empty(); }
   bool all() const { return !certificate.empty() && !key.empty() && !authority.empty(); }
};

class Server {
 public:
   // Listens from now on, on TCP by TLS where there are files for it. Throws std::runtime_error that names the address
   // or the file when one can't be had; then it listens nowhere. REQUIRES: badAddress() finds nothing on any of them.
   // The engine outlives the server.
   Server( Engine & engine, const std::vector< std::string > & addresses, const TlsFiles & tls = {} );
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
