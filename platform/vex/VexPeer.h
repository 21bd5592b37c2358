// Where a data plane is, and how the way there is secured.
#pragma once

#include "GantTypes.h"

namespace Vex {

// Files of mutual TLS (PEM). None is given, or all are.
struct TlsFiles {
   Gant::String certificate; // of this side
   Gant::String key;
   Gant::String authority; // who signs the other side's

   bool none() const { return certificate.empty() && key.empty() && authority.empty(); }
   bool all() const { return !certificate.empty() && !key.empty() && !authority.empty(); }
};

struct Peer {
   Peer( const char * address ) : address( address ) {}
   Peer( Gant::String address, TlsFiles tls = {} ) : address( std::move( address ) ), tls( std::move( tls ) ) {}

   Gant::String address; // a gRPC target: "unix:/path" or "host:port"
   TlsFiles tls;         // without them what travels over TCP can be read and changed on its way
};

} // namespace Vex
