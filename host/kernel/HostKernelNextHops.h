// The next-hop objects of one kernel table: what the FECs come to there.
#pragma once

#include "HostNetlink.h"
#include "KynetIntfId.h"
#include "MirelFib.h"

#include <deque>
#include <map>
#include <optional>

namespace Host {

// The mark of everything that this writes to the kernel's tables, in `rtproto` of `ip route` and `ip nexthop`: of the
// values that rtnetlink leaves to daemons, one that neither the kernel's headers nor the usual routing daemons name.
constexpr U8 kernelRouteProtocol = 86;

// What a message of a batch is about, for the time when its answer comes.
struct KernelWrite {
   enum Kind : U8 { hop, group, route4, route6, removal };
   Kind kind;
   U64 object; // the next hop's id, the FEC's key, or the route's slot
};
struct KernelWrites {
   NetlinkBatch batch{};
   std::vector< KernelWrite > about{};
   void add( KernelWrite::Kind kind, U64 object ) { about.push_back( { kind, object } ); }
};

// A FEC is a group of next hops, of which each is an object once for all FECs; one without a usable next hop is a group
// of a blackhole. So a FEC that changes is one message, whatever the number of its routes. The kernel takes next hops
// away with their device, or its carrier, and a group and its routes with the last of its next hops.
class KernelNextHops {
 public:
   // Of a FEC of either FIB.
   static U64 keyOf( bool v6, U64 fecId ) { return fecId << 1 | U64( v6 ); }
   // The device of an interface, if packets can leave by it.
   using Carrying = std::function< std::optional< U32 >( Kynet::IntfId ) >;

   explicit KernelNextHops( Carrying carrying ) : carrying_( std::move( carrying ) ) {}

   // The id of the FEC's group, with what makes it put before.
   U32 group( KernelWrites & writes, U64 key, const Mirel::Vias & vias );
   // Where there is a group: brings it in line.
   void update( KernelWrites & writes, U64 key, const Mirel::Vias & vias );
   bool has( U64 key ) const { return groups_.contains( key ); }
   std::vector< U64 > keys() const;
   // The FEC has gone: its group goes with sweep().
   void del( U64 key );
   // The kernel has refused it: it is told anew when it is needed.
   void refused( U64 key );
   // Something of the kernel has the id already: ours begin behind it.
   void isTaken( U32 id );
   // "10.0.1.2" of a next hop's id.
   std::string textOfHop( U32 id ) const;
   // The kernel has taken it away, or refused it. Gives the FEC whose group it was, and so its routes; nothing: of
   // none.
   std::optional< U64 > gone( U32 id );
   // The link has lost its carrier or is gone, and has taken its next hops along. Gives the FECs whose groups went too.
   std::vector< U64 > linkLost( U32 index );
   bool knows( U32 id ) const { return hops_.contains( id ) || groupKeys_.contains( id ); }
   // Takes away what nothing uses any more, up to so many. REQUIRES: no route in the kernel uses it.
   void sweep( KernelWrites & writes, size_t most );
   void clear();

 private:
   struct HopKey {
      U32 index;                // of a link; 0: a blackhole
      Kynet::IpGenAddr gateway; // of a blackhole or a tunnel only its family counts
      friend bool operator==( const HopKey &, const HopKey & ) = default;
      friend bool operator<( const HopKey & a, const HopKey & b ) {
         return a.index != b.index ? a.index < b.index : a.gateway < b.gateway;
      }
   };
   struct Hop {
      HopKey key;
      U32 users;
   };
   struct Group {
      U32 id = 0;
      bool stands = false;
      std::vector< U32 > hops{};
   };
   std::vector< HopKey > hopsOf( bool v6, const Mirel::Vias & vias ) const;
   U32 acquire( KernelWrites & writes, const HopKey & hop );
   void release( const std::vector< U32 > & hops );
   void write( KernelWrites & writes, U64 key, Group & group, const std::vector< HopKey > & wanted );
   bool inLine( const Group & group, const std::vector< HopKey > & wanted ) const;

   const Carrying carrying_;
   U32 lastId_ = 0;
   std::map< HopKey, U32 > hopIds_;
   Gant::HashMap< U32, Hop > hops_;
   Gant::HashMap< U64, Group > groups_;
   Gant::HashMap< U32, U64 > groupKeys_; // by id
   std::deque< U32 > dying_;
};

} // namespace Host
