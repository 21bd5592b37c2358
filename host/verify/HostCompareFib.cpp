// The FIB: VRFs, routes, FECs with their members.

#include "HostComparer.h"
#include "HulL3Status.h"
#include "vex/fib_ipv4.pb.h"
#include "VexMcast.h"

#include <absl/container/flat_hash_set.h>

namespace Host {

using namespace VexL3Unicast;

namespace {

using Member = std::pair< U32, U32 >; // gate, index
using Members = std::set< Member >;

std::string inWords( const Members & members ) {
   std::string words;
   for ( const auto & [ gate, index ] : members )
      words += ( words.empty() ? "" : ", " ) +
               ( gate == Vex::GateId().value() ? "no gate" : "gate " + std::to_string( gate ) ) + " index " +
               std::to_string( index );
   return words.empty() ? "no members" : words;
}

std::string inWords( FecKey fecKey ) { return "FEC " + std::to_string( fecKey.value() ); }

class FibComparer : public Comparer {
 public:
   FibComparer( Comparison & comparison, Vex::Module & module ) :
        Comparer( comparison, module ), fib_( static_cast< FibIpv4 & >( module ) ),
        routeDb_( session().routeDb().get() ) {
      for ( const auto & [ vrfId, vrf ] : session().agent()->hulL3Status()->vrfNameIterator() )
         builtIn_[ vrfId.value() ] = builtInRoutes( session(), vrfId );
      for ( const auto & [ intfId, gate ] : fib_.intfIdToOutGateIterator() ) gates_[ gate.value() ] = intfId;
      meanFecs();
   }

   bool finish() override {
      if ( !finishedTables_ ) finishTables();
      finishedTables_ = true;
      return matched_ == meantRoutes() || findMissingRoutes();
   }

 protected:
   bool told( const std::string & cmd, const std::string & arg ) override {
      if ( cmd == "addRoute" ) return route_.ParseFromString( arg ) && ( route(), true );
      if ( cmd == "addFec" ) return fec_.ParseFromString( arg ) && ( fec(), true );
      if ( cmd != "addVrf" || !vrf_.ParseFromString( arg ) ) return false;
      vrfs_.insert( vrf_.vrf() );
      if ( !builtIn_.contains( vrf_.vrf() ) )
         findings().unexpected( name(), "VRF " + std::to_string( vrf_.vrf() ), "there" );
      return true;
   }

 private:
   struct Key {
      U32 vrf;
      U32 address;
      U8 len;
      friend bool operator==( const Key &, const Key & ) = default;
      template < typename H >
      friend H AbslHashValue( H h, const Key & key ) {
         return H::combine( std::move( h ), key.vrf, key.address, key.len );
      }
   };
   static std::string inWords( const Key & key ) {
      return "route " + Kynet::Prefix( Kynet::IpAddr( key.address ), key.len ).stringValue() +
             ( key.vrf == 0 ? "" : " in VRF " + std::to_string( key.vrf ) );
   }

   void meanFecs() {
      for ( const auto & [ fecKey, version ] : routeDb_->fecForLpmIterator() )
         if ( const auto & fec = routeDb_->fec( fecKey ) ) meantFecs_[ fecKey.value() ] = membersOf( *fec );
      for ( const auto & [ vrf, routes ] : builtIn_ )
         for ( const auto & route : routes )
            // The last VRF's data gate is the one that was sent last.
            builtInFecs_[ route.fecKey.value() ].insert( route.gate.value() );
   }
   // One for each unique next hop, but none for a drop.
   Members membersOf( const Fec & fec ) const {
      Members members;
      const auto modules = session().l3Modules();
      for ( U32 slot = 0; slot < fec.info().numberOfUniqueNextHops(); ++slot ) {
         const auto & key = fec.info().nextHop( slot );
         if ( !key.tunnelIntf() ) {
            if ( key.pktCmd() != NextHopPktCmd::pktCmdDrop_ )
               members.insert( { fib_.intfIdToOutGate( key.intf() ).value(), key.nhLocalIndex() } );
         } else if ( const auto & resolve = modules->nhResolve( key.tunnelIntf() ) ) {
            const NhrEntryKey entry( fec.key(), slot, key.intf(), key.nhLocalIndex() );
            members.insert( { fib_.intfIdToOutGate( key.tunnelIntf() ).value(), resolve->nhrEntry( entry ) } );
         }
      }
      return members;
   }

   // The FEC that the agent means; none when it means no such route.
   FecKey meant( const Key & key ) const {
      const Kynet::Prefix prefix( Kynet::IpAddr( key.address ), key.len );
      if ( const auto & route = routeDb_->route( Hul::VrfAndIpGenPrefix( Hul::VrfId( key.vrf ), prefix ) ) )
         return route->fecKey();
      // All of them are multicast or broadcast.
      if ( key.address < 0xe0000000 ) return {};
      const auto at = builtIn_.find( key.vrf );
      if ( at == builtIn_.end() ) return {};
      for ( const auto & route : at->second )
         if ( route.prefix == prefix ) return route.fecKey;
      return {};
   }
   size_t meantRoutes() const {
      size_t routes = 0;
      for ( const auto & [ vrfId, builtIn ] : builtIn_ )
         for ( const auto & route : builtIn )
            routes += !routeDb_->routeHas( Hul::VrfAndIpGenPrefix( Hul::VrfId( vrfId ), route.prefix ) );
      return routes + routeDb_->numLpmRoutes( Kynet::AddressFamily::ipv4_ );
   }

   void route() {
      const Key key{ route_.vrf(), route_.prefix(), static_cast< U8 >( route_.prefix_len() ) };
      const auto fecKey = meant( key );
      findings().compared( "routes" );
      if ( !fecKey ) return findings().unexpected( name(), inWords( key ), Host::inWords( FecKey( route_.fec_id() ) ) );
      ++matched_;
      seen_.push_back( key );
      if ( fecKey.value() != route_.fec_id() )
         findings().different( name(), inWords( key ), Host::inWords( fecKey ),
                               Host::inWords( FecKey( route_.fec_id() ) ) );
      named_.try_emplace( route_.fec_id(), key );
   }

   void fec() {
      Members held;
      for ( const auto & info : fec_.nh_info() ) held.insert( { info.gate(), info.nh_index() } );
      const auto id = fec_.fec_id();
      const auto object = Host::inWords( FecKey( id ) );
      findings().compared( "FECs" );
      fecs_.insert( id );
      if ( builtInFecs_.contains( id ) ) {
         members_.emplace_back( id, std::move( held ) );
      } else if ( const auto meant = meantFecs_.find( id ); meant == meantFecs_.end() ) {
         findings().unexpected( name(), object, Host::inWords( held ) );
      } else {
         findings().compare( name(), object, Host::inWords( meant->second ), Host::inWords( held ) );
         members_.emplace_back( id, std::move( held ) );
      }
   }

   void finishTables() {
      findings().compared( "VRFs", vrfs_.size() );
      for ( const auto & [ vrfId, routes ] : builtIn_ )
         if ( !vrfs_.contains( vrfId ) ) findings().missing( name(), "VRF " + std::to_string( vrfId ), "there" );
      for ( const auto & [ id, members ] : meantFecs_ )
         if ( !fecs_.contains( id ) )
            findings().missing( name(), Host::inWords( FecKey( id ) ), Host::inWords( members ) );
      for ( const auto & [ id, key ] : named_ )
         if ( !fecs_.contains( id ) )
            findings().dangling( name(), inWords( key ), Host::inWords( FecKey( id ) ) + " does not exist" );
      for ( const auto & [ id, members ] : members_ )
         if ( const auto builtIn = builtInFecs_.find( id ); builtIn != builtInFecs_.end() )
            finishBuiltIn( id, members, builtIn->second );
         else
            for ( const auto & member : members ) finishMember( id, member );
   }

   // The FEC of multicast data is one for all VRFs: it leads to the VRF that came last, and nowhere when that has gone.
   void finishBuiltIn( U32 fecId, const Members & held, const std::set< U32 > & gates ) {
      const bool one = held.size() == 1;
      if ( one && gates.contains( held.begin()->first ) ) return;
      const bool left = fecId == session().l3Modules()->mcastDataFecKey().value() && one &&
                        !comparison().leads( name(), held.begin()->first );
      if ( !left )
         findings().different( name(), Host::inWords( FecKey( fecId ) ), "a built-in one", Host::inWords( held ) );
   }

   void finishMember( U32 fecId, const Member & member ) {
      const auto [ gate, index ] = member;
      const auto dangling = [ & ]( const std::string & names ) {
         findings().dangling( name(), Host::inWords( FecKey( fecId ) ), names );
      };
      if ( gate == Vex::GateId().value() ) {
         // One that the agent means so waits for its interface.
         const auto meant = meantFecs_.find( fecId );
         if ( meant == meantFecs_.end() || !meant->second.contains( member ) ) dangling( "a member has no gate" );
         return;
      }
      if ( !comparison().leads( name(), gate ) )
         return dangling( "gate " + std::to_string( gate ) + " is not connected" );
      const auto at = gates_.find( gate );
      if ( at == gates_.end() ) return;
      const auto modules = session().l3Modules();
      std::string table;
      if ( const auto & resolve = modules->nhResolve( at->second ) )
         table = resolve->name();
      else if ( const auto & nexthops = modules->nextHopMod( at->second ) )
         table = nexthops->name();
      if ( !table.empty() && !comparison().has( table, index ) )
         dangling( table + " has no entry " + std::to_string( index ) );
   }

   // Some routes are not there: only now a look at every one of the agent's.
   bool findMissingRoutes() {
      constexpr size_t routesAtOnce = 16384;
      const auto & routes = routeDb_->routeIterator();
      if ( !at_ ) {
         found_.insert( seen_.begin(), seen_.end() );
         at_ = routes.begin();
         for ( const auto & [ vrfId, builtIn ] : builtIn_ )
            for ( const auto & route : builtIn )
               missingUnlessFound( { vrfId, route.prefix.address().value(), route.prefix.len() }, route.fecKey );
      }
      for ( size_t n = 0; n < routesAtOnce && *at_ != routes.end(); ++n, ++*at_ ) {
         const auto entry = **at_;
         if ( entry.first.prefix().af() != Kynet::AddressFamily::ipv4_ ) continue;
         const auto prefix = entry.first.prefix().v4Prefix();
         missingUnlessFound( { entry.first.vrfId().value(), prefix.address().value(), prefix.len() },
                             entry.second->fecKey() );
      }
      return *at_ == routes.end();
   }
   void missingUnlessFound( const Key & key, FecKey fecKey ) {
      if ( !found_.contains( key ) ) findings().missing( name(), inWords( key ), Host::inWords( fecKey ) );
   }

   FibIpv4 & fib_;
   const RouteDb * const routeDb_;
   std::map< U32, std::vector< BuiltInRoute > > builtIn_; // by VRF
   std::map< U32, std::set< U32 > > builtInFecs_;         // with the gates of each
   std::map< U32, Members > meantFecs_;
   std::map< U32, Kynet::IntfId > gates_; // the interface behind each

   vex::pb::FibIpv4RouteArg route_;
   vex::pb::FibIpv4FecArg fec_;
   vex::pb::FibIpv4VrfArg vrf_;
   std::set< U32 > vrfs_;
   std::set< U32 > fecs_;
   std::vector< std::pair< U32, Members > > members_;
   std::unordered_map< U32, Key > named_; // FECs that routes name, each with one of these
   std::vector< Key > seen_;
   size_t matched_ = 0;

   bool finishedTables_ = false;
   absl::flat_hash_set< Key > found_;
   std::optional< PrefixRecords::RouteIterator > at_;
};

} // namespace

std::unique_ptr< Comparer > fibComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< FibComparer >( comparison, module );
}

} // namespace Host
