// The FECs of one FIB: one for each set of ways that routes ask for, counted by its users.
#pragma once

#include "HostWays.h"
#include "MirelSlab.h"

#include <functional>
#include <optional>

namespace Host {

// What a hop of a route of the kind comes to.
struct Way {
   Mirel::Via via;
   bool usable; // its interface is up
};
// Nothing while no interface of the VRF reaches it.
using Resolve = std::function< std::optional< Way >( U32 vrfId, Mirel::RouteType kind, const Hop & hop ) >;

// A FEC keeps the ways as they were asked for, and carries the vias that they come to at present. A hop without an
// interface comes to another one when the subnets do; one that no usable interface of the VRF reaches is left out while
// others remain. Where no interface at all reaches one, the vias are drops that name the hops. What a FEC carries
// follows from the ways and the interfaces alone, in whatever order they came. So a change of an interface costs what
// there are of FECs over it, and of such as name none, whatever the number of routes.
template < typename P >
class FecBook {
 public:
   using Table = Mirel::RouteTable< P >;

   FecBook( Gant::Ptr< Table > fib, Resolve resolve ) : fib_( std::move( fib ) ), resolve_( std::move( resolve ) ) {}

   // The id of the FEC of these ways, made where there is none, with one user more.
   U64 acquire( U32 vrfId, const Ways & ways );
   // One that is not shared with who asks for the same ways, with one user: its ways may change, and with them the
   // routes of it, whatever their number.
   U64 own( U32 vrfId, const Ways & ways );
   // REQUIRES: it is an own one, and the kind stays.
   void change( U64 fecId, const Ways & ways );
   void use( U64 fecId ) { ++fec( fecId ).users; }
   // The FEC goes with its last user.
   void release( U64 fecId );
   const Ways & ways( U64 fecId ) const { return fecs_[ static_cast< U32 >( fecId - 1 ) ].ways; }
   U32 vrfId( U64 fecId ) const { return fecs_[ static_cast< U32 >( fecId - 1 ) ].vrfId; }

   // After an interface or its subnets changed.
   void review( Kynet::IntfId changed );
   size_t fecs() const { return byKey_.size() + own_; }

 private:
   // The VRF is part of the key where packets go on: a hop is one of the VRF's.
   struct Key {
      U32 vrfId;
      Ways ways;
      friend bool operator==( const Key &, const Key & ) = default;
      size_t hash() const;
   };
   struct Fec {
      U32 vrfId = 0;
      U32 users = 0; // 0: there is no such FEC
      Ways ways{};
      bool own = false;
   };
   Fec & fec( U64 fecId ) { return fecs_[ static_cast< U32 >( fecId - 1 ) ]; }
   Mirel::Vias vias( const Fec & fec ) const;
   void indexed( U64 fecId, bool present );

   Gant::Ptr< Table > fib_;
   Resolve resolve_;
   Mirel::Slab< Fec > fecs_; // the id is the place and one
   Gant::HashMap< Key, U64 > byKey_;
   size_t own_ = 0;
   // The FECs that an interface is a hop of. Under none: those that any change may concern.
   Gant::HashMap< Kynet::IntfId, Gant::HashSet< U64 > > byIntf_;
};

extern template class FecBook< Kynet::Prefix >;
extern template class FecBook< Kynet::Ip6Prefix >;

} // namespace Host
