// Addresses to listen on: "unix:/path" or "host:port", where port 0 asks for a free one.
#pragma once

#include <optional>
#include <string>

namespace Vexdp {

// Why the text is no address. Empty: it is one.
std::string badAddress( const std::string & address );

// Of a Unix socket; nothing for another address.
std::optional< std::string > socketPath( const std::string & address );
// "host:port" with another port.
std::string withPort( const std::string & address, int port );

// Makes sure that a server that listens there gets the whole address to itself: nobody listens on it, not even on one
// of the addresses that a host name stands for. Removes a socket that a dead process left. Throws std::runtime_error
// that names the address and the reason. REQUIRES: badAddress( address ) is empty
void requireFree( const std::string & address );

} // namespace Vexdp
