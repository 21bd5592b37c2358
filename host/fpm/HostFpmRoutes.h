// The routes that a routing suite tells by FPM.
#pragma once

#include "GantFlat.h"
#include "HostFpmAnswers.h"
#include "HostFpmStream.h"
#include "HostRouteWays.h"

#include <map>

namespace Host {

//   writes   RouterState: routes of Teller::fpm
//   asks     which interface has a kernel device, by its index
//
// Of a route nothing is kept here: it is an offer in the books. What the router cannot have (over another device, say)
// is kept with the reason, and becomes a route when it can. A next hop or group has a FEC of its own as soon as a route
// uses it, so that another content of it is one change, whatever the number of routes.
//
// A routing suite numbers its next hops anew when it is started anew. So those of a former connection keep their FECs
// only until the sweep, and a next hop with the same ways takes such a FEC over: a route that is told again by the same
// ways changes nothing.
//
// A table that is not the main one is that of the VRF whose interfaces its routes lead to. Routes of the kernel that
// the suite hands on are the kernel's to tell.
class FpmRoutes {
 public:
   using IntfAt = IntfAtIndex;

   // `answers` may be null: nobody hears what becomes of routes.
   FpmRoutes( RouterState & state, IntfAt intfAt, FpmAnswers * answers = nullptr );
   FpmRoutes( const FpmRoutes & ) = delete;
   FpmRoutes & operator=( const FpmRoutes & ) = delete;
   ~FpmRoutes();

   // The messages of a frame. A route that is taken away and told again in one is replaced. Gives what is malformed,
   // empty when nothing is.
   std::string frame( const FpmStream::Messages & messages );
   // After a piece of the stream: what waited for a next hop that is there by now.
   void settle();
   // Devices, or interfaces, have come or gone.
   void review();
   // The connection is lost: next hops are told anew by the next one.
   void lost();
   // What was not told again is gone.
   void swept();

   U64 messages() const { return messages_; }
   size_t nextHops() const { return nextHops_.size(); }
   std::vector< SourceRefusal > refusals() const;
   void eachRefused( size_t most, const Source::EachRefused & each ) const;

 private:
   struct Fec {
      U64 id = 0; // 0: no route uses it
      Mirel::RouteType::Value kind{};
   };
   struct NextHop {
      NextHopMessage told{};
      Fec fec4{}, fec6{};
   };
   struct Former {
      bool v6;
      U32 vrfId;
      U64 fecId;
   };
   struct Key {
      U32 table;
      Kynet::IpGenPrefix prefix;
      RouteMessage::Of of;
      size_t hash() const { return ( Gant::Hash( table ) << prefix ).value(); }
      friend bool operator==( const Key &, const Key & ) = default;
   };
   struct Pending {
      U8 protocol;
      U8 type;
      U32 nextHopId;
      std::vector< NetlinkHop > hops;
      const char * strange;
      const char * why;
   };
   static Key keyOf( const RouteMessage & message ) { return { message.table, message.prefix, message.of }; }

   void route( const RouteMessage & message );
   const char * tell( const RouteMessage & message );
   template < typename Book, typename P >
   const char * tell( Book & book, const RouteMessage & message, const P & prefix );
   template < typename Book, typename P >
   const char * put( Book & book, const RouteMessage & message, const P & prefix, U32 vrfId, Fec fec );
   template < typename Book >
   const char * fecOf( Book & book, NextHop & nextHop, std::optional< U32 > table, Fec & fec );
   void drop( const RouteMessage & message );
   void nextHop();
   void nextHopDel( U32 id );
   void changed( NextHop & nextHop );
   template < typename Book >
   void changed( Book & book, NextHop & nextHop, Fec & fec );
   NetlinkWays resolve( const NextHopMessage & told, Kynet::AddressFamily af );
   void addHops( const NextHopMessage & told, std::vector< NetlinkHop > & hops, const char *& wrong ) const;
   std::optional< U32 > vrfOf( U32 table, const std::optional< U32 > & vrfId );
   template < typename Book >
   U64 makeFec( Book & book, U32 vrfId, const Ways & ways );
   void retry( const char * why );
   void forgetLast();

   RouterState & state_;
   const IntfAt intfAt_;
   FpmAnswers * const answers_;
   RouteMessage route_;
   NextHopMessage nextHop_;
   Gant::FlatMap< U32, NextHop > nextHops_;
   Gant::HashMap< U32, std::vector< U32 > > groupsOf_; // by member
   std::vector< Former > former_;
   std::map< U32, U32 > tables_; // the VRFs of the tables
   Gant::HashMap< Key, Pending > pending_;
   std::array< OriginId, 256 > origins_{}; // by protocol
   // The next hops of the route before, which are often those of the next one too.
   struct {
      std::vector< NetlinkHop > hops{};
      bool v6 = false;
      U32 table = 0, vrfId = 0;
      Fec fec{};
   } last_;
   bool awaited_ = false; // a next hop came that routes may wait for
   U64 messages_ = 0;
};

} // namespace Host
