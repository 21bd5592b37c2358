// Where an offer of a route comes from, and which of several holds.
#pragma once

#include "GantCollection.h"
#include "HostTeller.h"

#include <array>
#include <string>
#include <vector>

namespace Host {

struct Origin {
   Teller teller{};
   U8 protocol = 0; // RTPROT_* of rtnetlink; 0: the source has no protocols
   U8 distance = 0; // lower ones hold
   U32 metric = 0;  // the same, of one distance
   size_t hash() const { return ( Gant::Hash( metric ) << U8( teller.value() ) << protocol << distance ).value(); }
   friend bool operator==( const Origin &, const Origin & ) = default;
};

// "bgp" of 186; the number where it has no name; empty of 0.
std::string nameOfProtocol( U8 protocol );
// The administrative distance that users of routing suites expect of routes of the protocol.
U8 distanceOfProtocol( U8 protocol );

// A route keeps the number of its origin, in two bytes. There are few: sources times protocols, and the metrics that an
// administrator thinks of.
using OriginId = U16;

class Origins {
 public:
   Origins();

   // 0: there is no number left, and the route cannot be taken.
   OriginId id( const Origin & origin );
   // Of a source that has no protocols and no metrics.
   OriginId own( Teller teller ) const { return own_[ teller.value() ]; }
   const Origin & at( OriginId id ) const { return origins_[ id ]; }
   // Of two, the one with the lower rank holds.
   U64 rank( OriginId id ) const { return ranks_[ id ]; }

 private:
   std::vector< Origin > origins_;
   std::vector< U64 > ranks_;
   Gant::HashMap< Origin, OriginId > ids_;
   std::array< OriginId, tellers > own_{};
};

} // namespace Host
