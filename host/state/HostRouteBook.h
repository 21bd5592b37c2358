// The routes of one family from all their sources, on the way to the FIB.
#pragma once

#include "HostFecBook.h"

#include <array>
#include <map>

namespace Host {

// The FIB holds one route for a prefix, and its source as the protocol mark: nothing of it is kept here a second time.
// Only where several sources have a route of one prefix, those that are not in use wait here.
template < typename P >
class RouteBook {
 public:
   using Table = Mirel::RouteTable< P >;

   RouteBook( Gant::Ptr< Table > fib, Resolve resolve ) :
        fib_( fib ), fecs_( std::move( fib ), std::move( resolve ) ) {}

   FecBook< P > & fecs() { return fecs_; }
   const Table & table() const { return *fib_; }

   // The source's route of the prefix from now on. The FEC gets a user for it. REQUIRES: the prefix has no host bits.
   void routeIs( U32 vrfId, const P & prefix, Teller teller, Mirel::RouteType kind, U64 fecId );
   // False when the source has none.
   bool routeDel( U32 vrfId, const P & prefix, Teller teller );
   // All routes of a VRF, from whatever source.
   void vrfDel( U32 vrfId );
   // Whose route is in use, `none` when there is none.
   Teller teller( U32 vrfId, const P & prefix ) const;
   bool routeHas( U32 vrfId, const P & prefix, Teller teller ) const;
   // All prefixes of the source, in no order; and those among them whose routes wait behind others.
   std::vector< std::pair< U32, P > > prefixes( Teller teller ) const;
   std::vector< std::pair< U32, P > > waitingPrefixes( Teller teller ) const;
   // Those in use and those that wait.
   size_t routes( Teller teller ) const { return counts_[ teller.value() ]; }

 private:
   using Waiting = std::map< Teller, Mirel::Route >;

   Gant::Ptr< Table > fib_;
   FecBook< P > fecs_;
   std::map< std::pair< U32, P >, Waiting > waiting_;
   std::array< size_t, 7 > counts_{};
};

inline Teller tellerOf( const Mirel::Route & route ) { return Teller( route.protocol() ); }

extern template class RouteBook< Kynet::Prefix >;
extern template class RouteBook< Kynet::Ip6Prefix >;

} // namespace Host
