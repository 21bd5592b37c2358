// The records of what the agent has put into the data plane: routes, FECs, and the indexes that tie them together.
//
// One adjacency is exactly one FEC, and every route that names the adjacency shares it. The data plane sees the same
// two levels, so a change of next hops rewrites one FEC and touches no route.
//
// Invariants, between two calls of the agent:
//   - adjIdxToFec and fecToAdjIdx are inverses; their keys are the adjacencies and FECs made through the adjacency
//   helper.
//   - A key in unusedFecKey is in neither fec nor fecToAdjIdx.
//   - route[ p ].fecKey is k exactly when p is in fec[ k ].lpmRoute; its tableType is then lpmTableType.
//   - numLpmRoutes( af ) is the sum over all FECs, and the number of routes of that family.
//   - A FecSet in an index is not empty. A FEC with routes is not deleted.
#pragma once

#include "GantEntity.h"
#include "VexL3Export.h"
#include "VexL3Keys.h"
#include "VexPrefixMap.h"

namespace VexL3Unicast {

GANT_ENUM( RouteTableType, U8, ( noneTableType, 0 ), ( lpmTableType, 1 ) )

// The result of programming a FEC. `partialSuccess`: a module that a next hop needs does not exist yet.
GANT_ENUM( FecUpdateReturnCode, U8, ( fail, 0 ), ( partialSuccess, 1 ), ( success, 2 ) )

// Generation of a FEC: 1 when it is made, one more for each update, each prefix walk and its deletion. Only to be read
// by people.
class FecVersion {
   GANT_SCALAR( FecVersion, U64, 0 )
};

class IntfAndVlan {
   GANT_VALUE( "VexL3Unicast::IntfAndVlan", IntfAndVlan, ( Kynet::IntfId, intf ), ( Bridging::VlanId, vlanId ) )
};

// Kept for inspection.
class VexHwTableCmdInfo {
   GANT_VALUE( "VexL3Unicast::VexHwTableCmdInfo", VexHwTableCmdInfo, ( U64, cmdIndex ),
               ( Hul::VrfAndIpGenPrefix, vfrAndPrefix ) )
};

// The resolved next hops of a FEC: a slot for each unique one, with the vias of the route that resolve to it. The slots
// below numberOfUniqueNextHops are filled; numberOfNextHops is the sum of the multiplicities. Comparison, hash and text
// read the used slots only.
class FecInfo {
 public:
   FecInfo() = default;
   // There is no way back from the text: this ends the process.
   explicit FecInfo( const Gant::String & strep );

   const NextHopKey & nextHop( U32 slot ) const { return nextHop_[ slot ]; }
   void nextHopIs( U32 slot, const NextHopKey & nextHop );
   void nextHopDelAll() { nextHop_.clear(); }
   const HulTypes::ViaBitmap & nextHopBitmap( U32 slot ) const { return nextHopBitmap_[ slot ]; }
   void nextHopBitmapIs( U32 slot, HulTypes::ViaBitmap bitmap );
   GANT_COUNTER( U32, numberOfNextHops )
   GANT_COUNTER( U32, numberOfUniqueNextHops )

   friend bool operator==( const FecInfo & a, const FecInfo & b );
   friend bool operator<( const FecInfo & a, const FecInfo & b );
   size_t hash() const;
   // The counts, unique first.
   Gant::String str() const;
   // For each used slot its number and its next hop.
   Gant::String strdet() const;
   Gant::String strep() const;

 private:
   std::vector< NextHopKey > nextHop_;
   std::vector< HulTypes::ViaBitmap > nextHopBitmap_;
};

class RouteInfo : public Gant::PtrInterface {
 public:
   const char * fwkType() const override { return "VexL3Unicast::RouteInfo"; }
   GANT_ATTR( FecKey, fecKey )
   GANT_ATTR( RouteTableType, tableType )
   // The two, with two commas between.
   Gant::String str() const;

   // One for each route: a pool of their own keeps them together.
   static void * operator new( size_t size );
   static void operator delete( void * memory );
};

VEXL3_EXPORT Gant::Ptr< RouteInfo > routeInfoFactory();

// What the database and the FECs know of a prefix, in one place: its route, and the FECs that it is on. That is one
// FEC, and two while a route moves from one to the other.
class PrefixRecords : public Gant::PtrInterface {
 public:
   struct Record {
      Gant::Ptr< RouteInfo > routeInfo; // null: no route
      FecKey fecKeys[ 2 ];              // null keys: none
      bool isOn( FecKey key ) const { return fecKeys[ 0 ] == key || fecKeys[ 1 ] == key; }
   };

   // Null: no route.
   const Gant::Ptr< RouteInfo > & route( const Hul::VrfAndIpGenPrefix & prefix ) const {
      static const Gant::Ptr< RouteInfo > none;
      const auto * const record = records_.get( prefix );
      return record == nullptr ? none : record->routeInfo;
   }
   void routeIs( const Hul::VrfAndIpGenPrefix & prefix, Gant::Ptr< RouteInfo > routeInfo );
   void routeDel( const Hul::VrfAndIpGenPrefix & prefix );
   size_t routes() const { return routes_; }

   // REQUIRES: fecKey is not the null key. True: that changed something.
   bool fecIs( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey );
   bool fecDel( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey );
   bool fecHas( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey ) const;
   // In order.
   std::vector< Hul::VrfAndIpGenPrefix > prefixesOn( FecKey fecKey ) const;

   // The prefixes that have a route, with it; as an iteration of a PrefixMap.
   class RouteIterator {
    public:
      struct Entry {
         Hul::VrfAndIpGenPrefix first;
         const Gant::Ptr< RouteInfo > & second;
      };
      using At = PrefixMap< Record >::const_iterator;
      RouteIterator( At at, At end ) : at_( at ), end_( end ) { skip(); }
      Entry operator*() const { return { ( *at_ ).first, ( *at_ ).second.routeInfo }; }
      RouteIterator & operator++() {
         ++at_;
         skip();
         return *this;
      }
      bool operator==( const RouteIterator & other ) const { return at_ == other.at_; }

    private:
      void skip() {
         while ( !( at_ == end_ ) && !( *at_ ).second.routeInfo ) ++at_;
      }
      At at_;
      At end_;
   };
   RouteIterator begin() const { return { records_.begin(), records_.end() }; }
   RouteIterator end() const { return { records_.end(), records_.end() }; }

 private:
   void forgetEmpty( const Hul::VrfAndIpGenPrefix & prefix, const Record & record );

   mutable PrefixMap< Record > records_;
   size_t routes_ = 0;
};

class Fec : public Gant::PtrInterface {
 public:
   // The routes of FECs of one database share their records.
   explicit Fec( FecKey key, Gant::Ptr< PrefixRecords > records = Gant::make< PrefixRecords >() ) :
        key_( key ), records_( std::move( records ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::Fec"; }

   GANT_CONST( FecKey, key )
   GANT_ATTR( FecVersion, version )
   FecVersion versionInc( FecVersion n ) { return versionIs( FecVersion( version() + n ) ); }
   GANT_ATTR( FecInfo, info )
   // Returns the former one.
   FecInfo infoExchange( FecInfo info ) { return std::exchange( info_, std::move( info ) ); }
   GANT_PER_FAMILY( U32, numLpmRoutes )

   // The routes on this FEC.
   void lpmRouteIs( const Hul::VrfAndIpGenPrefix & prefix, bool present );
   void lpmRouteDel( const Hul::VrfAndIpGenPrefix & prefix ) { lpmRouteIs( prefix, false ); }
   bool lpmRouteHas( const Hul::VrfAndIpGenPrefix & prefix ) const { return records_->fecHas( prefix, key() ); }
   size_t lpmRoutes() const { return lpmRoutes_; }
   // In order. Walks the records of all routes.
   std::vector< Hul::VrfAndIpGenPrefix > lpmRouteKeys() const { return records_->prefixesOn( key() ); }

   // By the total: one next hop of multiplicity 2 counts.
   bool isEcmp() const { return info().numberOfNextHops() > 1; }
   // key, version, routes, next hops
   Gant::String str() const;

 private:
   const Gant::Ptr< PrefixRecords > records_;
   size_t lpmRoutes_ = 0;
};

VEXL3_EXPORT Gant::Ptr< Fec > fecFactory( FecKey key );

// FECs that share a property.
class FecSet : public Gant::PtrInterface {
 public:
   struct ByKey {
      bool operator()( const Gant::Ptr< Fec > & a, const Gant::Ptr< Fec > & b ) const { return a->key() < b->key(); }
   };
   using Fecs = Gant::BtreeSet< Gant::Ptr< Fec >, ByKey >;
   const char * fwkType() const override { return "VexL3Unicast::FecSet"; }
   GANT_SET( Fecs, fec )
   // Each member's key, followed by a comma.
   Gant::String str() const;
};

// The one database, for the life of the agent. A per-family attribute is indexed by Kynet::AddressFamily.
class RouteDb : public Gant::Entity {
 public:
   using Fecs = Gant::FlatMap< FecKey, Gant::Ptr< Fec > >;
   using FecVersions = Gant::FlatMap< FecKey, FecVersion >;
   using AdjToFec = Gant::FlatMap< Hul::L2AdjKey, FecKey >;
   using FecToAdj = Gant::FlatMap< FecKey, Hul::L2AdjKey >;
   template < typename Key >
   using FecSets = Gant::FlatMap< Key, Gant::Ptr< FecSet > >;
   using IntfToFecSet = FecSets< Kynet::IntfId >;
   using IntfAndVlanToFecSet = FecSets< IntfAndVlan >;
   using VlanToFecSet = FecSets< Bridging::VlanId >;
   using FecKeys = Gant::OrderedSet< FecKey >;

   using Entity::Entity;
   const char * fwkType() const override { return "VexL3Unicast::RouteDb"; }

   GANT_KEYED( Fecs, fec )
   // Makes the FEC of a key that has none.
   const Gant::Ptr< Fec > & fecIs( FecKey key );
   // The FECs that are in the data plane, with the version that was programmed. A route may only go on one of these.
   GANT_MAP( FecVersions, fecForLpm )

   const Gant::Ptr< RouteInfo > & route( const Hul::VrfAndIpGenPrefix & prefix ) const {
      return records_->route( prefix );
   }
   bool routeHas( const Hul::VrfAndIpGenPrefix & prefix ) const { return bool( route( prefix ) ); }
   void routeIs( const Hul::VrfAndIpGenPrefix & prefix, Gant::Ptr< RouteInfo > routeInfo ) {
      records_->routeIs( prefix, std::move( routeInfo ) );
   }
   void routeDel( const Hul::VrfAndIpGenPrefix & prefix ) { records_->routeDel( prefix ); }
   size_t routes() const { return records_->routes(); }
   const PrefixRecords & routeIterator() const { return *records_; }

   // The null key for an adjacency that has no FEC.
   GANT_MAP( AdjToFec, adjIdxToFec )
   GANT_MAP( FecToAdj, fecToAdjIdx )
   // FECs with a next hop on the interface, on the interface and VLAN, on the VLAN. xxxFecIs puts a FEC into the set
   // under the key, or takes it out; a set is made with its first member and goes with its last.
   GANT_MAP( IntfToFecSet, intfToFecSet )
   void intfToFecSetFecIs( Kynet::IntfId intf, const Gant::Ptr< Fec > & fec, bool member );
   GANT_MAP( IntfAndVlanToFecSet, intfAndVlanToFecSet )
   void intfAndVlanToFecSetFecIs( const IntfAndVlan & intfAndVlan, const Gant::Ptr< Fec > & fec, bool member );
   GANT_MAP( VlanToFecSet, vlanToFloodingFecSet )
   void vlanToFloodingFecSetFecIs( Bridging::VlanId vlanId, const Gant::Ptr< Fec > & fec, bool member );

   // The next key that was never used, and the keys that were given back.
   GANT_COUNTER( U64, nextFecKey )
   GANT_SET( FecKeys, unusedFecKey )
   // The lowest key that was given back, otherwise the next one.
   FecKey allocateFecKey();

   GANT_PER_FAMILY( double, lastRouteUpdateTime ) // seconds of the activity clock
   GANT_PER_FAMILY( U64, numRouteInserts )
   GANT_PER_FAMILY( U64, numRouteDeletes )
   GANT_PER_FAMILY( U64, numRouteUpdates )
   GANT_PER_FAMILY( U64, numRouteUpdatesFecChg )  // of these, to another FEC
   GANT_PER_FAMILY( U64, numRouteUpdatesFecUpd )  // of these, on the same FEC
   GANT_PER_FAMILY( U64, numRouteUpdatesIgnored ) // reported, and always 0
   GANT_PER_FAMILY( U64, numLpmCreate )
   GANT_PER_FAMILY( U64, numLpmUpdate )
   GANT_PER_FAMILY( U64, numLpmUpdateFecChg )
   GANT_PER_FAMILY( U64, numLpmUpdateFecUpd )
   GANT_PER_FAMILY( U64, numLpmDelete )
   GANT_PER_FAMILY( U32, numLpmRoutes )

 private:
   const Gant::Ptr< PrefixRecords > records_ = Gant::make< PrefixRecords >();
};

VEXL3_EXPORT Gant::Ptr< RouteDb > routeDbFactory( const Gant::Name & name );

} // namespace VexL3Unicast
