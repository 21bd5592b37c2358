// The routes of one family from all their sources, on the way to the FIB.
#pragma once

#include "GantFlat.h"
#include "HostFecBook.h"
#include "HostOrigin.h"

#include <array>
#include <optional>
#include <vector>

namespace Host {

// One source's route of a prefix, beside others.
struct Offer {
   U64 fecId = 0;
   OriginId origin = 0;
   U8 generation = 0;
   Mirel::RouteType::Value kind{};
};

// Of the offers of one prefix the one whose origin has the lowest rank holds: it is in the FIB, with its source as the
// protocol mark. The others wait, and the best of them takes over in the same write that takes the holder away. A
// source has one offer for each metric.
//
// A prefix of one offer costs three bytes here beside its place in the FIB.
//
// Marking and sweeping: each source counts its generations, and an offer has the one in which it was told last. After
// mark() all offers of a source are stale; told again they are fresh; sweep() takes the stale ones away.
template < typename P >
class RouteBook {
 public:
   using Table = Mirel::RouteTable< P >;
   static constexpr auto af =
        std::is_same_v< P, Kynet::Prefix > ? Kynet::AddressFamily::ipv4_ : Kynet::AddressFamily::ipv6_;

   RouteBook( Gant::Ptr< Table > fib, Resolve resolve, Origins & origins ) :
        fib_( fib ), origins_( origins ), fecs_( std::move( fib ), std::move( resolve ) ) {}

   FecBook< P > & fecs() { return fecs_; }
   const FecBook< P > & fecs() const { return fecs_; }
   Origins & origins() { return origins_; }
   const Table & table() const { return *fib_; }

   // The offer of the origin's source and metric, from now on. The FEC gets a user for it. Gives the prefix's slot in
   // the FIB; nothing: the prefix cannot be a route's.
   std::optional< U32 > routeIs( U32 vrfId, const P & prefix, OriginId origin, Mirel::RouteType kind, U64 fecId );
   // Of a source without protocols and metrics.
   std::optional< U32 > routeIs( U32 vrfId, const P & prefix, Teller teller, Mirel::RouteType kind, U64 fecId ) {
      return routeIs( vrfId, prefix, origins_.own( teller ), kind, fecId );
   }
   // False when the source has none.
   bool routeDel( U32 vrfId, const P & prefix, Teller teller, U32 metric = 0 );
   // All routes of a VRF, from whatever source.
   void vrfDel( U32 vrfId );

   // Whose route is in use, `none` when there is none.
   Teller teller( U32 vrfId, const P & prefix ) const;
   bool routeHas( U32 vrfId, const P & prefix, Teller teller ) const;
   // Where it comes from. REQUIRES: the FIB has the slot.
   const Origin & originAt( U32 slot ) const { return origins_.at( marks_[ slot ].origin ); }
   bool staleAt( U32 slot ) const { return stale( holderAt( slot ) ); }
   // All offers of a prefix, the one that holds first, then in the order in which they would.
   std::vector< Offer > offers( U32 vrfId, const P & prefix ) const;
   const Origin & originOf( const Offer & offer ) const { return origins_.at( offer.origin ); }
   bool stale( const Offer & offer ) const { return offer.generation != generation( offer.origin ); }
   // All prefixes of the source, in no order.
   std::vector< std::pair< U32, P > > prefixes( Teller teller ) const;
   // Those in use and those that wait.
   size_t routes( Teller teller ) const { return sides_[ teller.value() ].offers; }

   // All that the source has told is stale, until it tells it again.
   void mark( Teller teller );
   size_t staleRoutes( Teller teller ) const {
      return sides_[ teller.value() ].offers - sides_[ teller.value() ].fresh;
   }
   // Counts offers that came, or that were stale and were told again.
   U64 met( Teller teller ) const { return sides_[ teller.value() ].met; }
   // Whether the source has told the prefix since mark(), with that metric or any.
   bool fresh( U32 vrfId, const P & prefix, Teller teller, std::optional< U32 > metric = {} ) const;
   // Takes stale ones away, beginning at slot `at`, in up to `most` slots; false: through. Begins at 0.
   bool sweep( Teller teller, U32 & at, size_t most );

   // What is kept beside the FIB.
   size_t bytes() const;

 private:
   struct Mark {
      OriginId origin = 0;
      U8 generation = 0;
   } __attribute__( ( packed ) );
   using Waiting = absl::InlinedVector< Offer, 1 >;
   struct Side {
      size_t offers = 0;
      size_t fresh = 0;
      U64 met = 0;
      U8 generation = 0;
      U8 marks = 0; // since none was stale
   };

   Side & side( OriginId origin ) { return sides_[ origins_.at( origin ).teller.value() ]; }
   U8 generation( OriginId origin ) const { return sides_[ origins_.at( origin ).teller.value() ].generation; }
   Offer holderAt( U32 slot ) const;
   bool sameKey( OriginId a, OriginId b ) const;
   bool before( const Offer & a, const Offer & b ) const {
      return origins_.rank( a.origin ) < origins_.rank( b.origin );
   }
   void hold( U32 slot, const Offer & offer );
   void came( const Offer & offer );
   void went( const Offer & offer );
   void retold( const Offer & former, const Offer & offer );
   void offerBeside( U32 slot, Offer holder, const Offer & offer );
   bool delAt( U32 slot, Teller teller, const U32 * metric, bool staleOnly );
   void flatten( Teller teller );

   Gant::Ptr< Table > fib_;
   Origins & origins_;
   FecBook< P > fecs_;
   Mirel::ChunkArray< Mark > marks_;       // of holders, by slot
   Gant::FlatMap< U32, Waiting > waiting_; // by slot
   std::array< Side, tellers > sides_{};
};

inline Teller tellerOf( const Mirel::Route & route ) { return Teller( route.protocol() ); }

extern template class RouteBook< Kynet::Prefix >;
extern template class RouteBook< Kynet::Ip6Prefix >;

} // namespace Host
