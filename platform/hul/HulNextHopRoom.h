// How many next hops the interfaces still have room for, and who waits for some. Not for public headers.
#pragma once

#include "HulAdjSm.h"

#include "GantFlat.h"

#include <optional>

namespace Hul {

// The data plane's tables of next hops, one or two an interface. An adjacency takes one place for each of its next hops
// in the table of that one's interface, and one in the resolve table of the tunnel that it leads through. A next hop
// without an interface takes none.
//
// States of a table: roomy; tight, from 90 % on, which is told as a warning once; roomy again below 80 %.
class NextHopRoom {
 public:
   using Number = U32; // of an adjacency
   struct Table {
      Kynet::IntfId intfId;
      bool resolve = false;
      friend bool operator==( const Table &, const Table & ) = default;
      friend auto operator<=>( const Table &, const Table & ) = default;
      size_t hash() const { return ( Gant::Hash() << intfId << resolve ).value(); }
   };
   // Sorted, each table once.
   using Places = std::vector< std::pair< Table, U32 > >;

   // REQUIRES: nothing is taken.
   void limitsIs( const NextHopLimits & limits ) { limits_ = limits; }
   // What the next hops take. `out` keeps its memory.
   static void placesOf( const NextHopCollection & nextHops, Places & out );
   // The first table that cannot take so many more; nothing: all can.
   std::optional< Table > lacking( const Places & more ) const;
   void take( const Places & places );
   void give( const Places & places );
   std::vector< AdjSm::NextHopUse > uses() const;
   // "it does not fit on Ethernet1: 16383 of 16383 next hops are in use"
   Gant::String reason( const Table & table ) const;

   // Who waits for room in the table, the longest first. An adjacency waits once at a time.
   using Ticket = U64;
   Ticket wait( const Table & table, Number number );
   void unwait( const Table & table, Ticket ticket );
   std::optional< Number > first( const Table & table ) const;
   // A table that has given places back since it was asked for last, and that somebody waits for. Nothing: there is
   // none.
   std::optional< Table > nextFreed();
   void freedIs( const Table & table ) { freed_.insert( table ); }
   bool freed() const { return !freed_.empty(); }

 private:
   struct Use {
      U32 used = 0;
      bool tight = false;
      Gant::OrderedMap< Ticket, Number > waiting;
   };
   U32 limit( const Table & table ) const { return table.resolve ? limits_.tunnelNextHops : limits_.nextHops; }
   Gant::String text( const Table & table, U32 used ) const;

   NextHopLimits limits_;
   Gant::FlatMap< Table, Use > uses_;
   Gant::OrderedSet< Table > freed_;
   Ticket tickets_ = 0;
};

} // namespace Hul
