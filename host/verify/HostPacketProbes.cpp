#include "HostPacketProbes.h"

#include <algorithm>
#include <set>

namespace Host {

namespace {

constexpr size_t hintsMost = 8;

void keep( std::vector< U32 > & hints, U32 dst ) {
   if ( hints.size() < hintsMost ) hints.push_back( dst );
}

} // namespace

std::vector< PacketFate > fatesOf( const FateModel & model, const PacketProbe & probe, std::vector< FateMet > * met ) {
   auto fates = model.fates( probe.in, probe.packet, met );
   if ( probe.tunnels.empty() || fates != std::vector{ PacketFate{ PacketFate::Kind::local } } ) return fates;
   std::set< PacketFate > inside;
   for ( const auto intfId : probe.tunnels ) {
      const auto some = model.fates( intfId, probe.inner, met );
      inside.insert( some.begin(), some.end() );
   }
   return { inside.begin(), inside.end() };
}

bool isThere( const FateModel & model, const PacketProbe & probe ) {
   const auto up = [ &model ]( Kynet::IntfId intfId ) { return model.isUp( intfId ); };
   if ( !up( probe.in ) || !std::ranges::all_of( probe.tunnels, up ) ) return false;
   if ( !probe.association ) return true;
   const auto & connections = model.state().ipsecBook().connections();
   const auto at = connections.find( probe.association->connection );
   return at != connections.end() &&
          std::ranges::count( at->second.fact.connection.inSaq(), probe.association->sa ) != 0;
}

void NotMet::add( const std::string & object, const std::string & why ) {
   if ( ++count_ <= most_ ) kept_.emplace_back( object, why );
}

void Destinations::note( U32 vrf, U32 dst, const std::vector< PacketFate > & fates,
                         const std::vector< FateMet > & met ) {
   if ( fates.size() != 1 ) return;
   for ( const auto & each : met )
      if ( each.kind == FateMet::Kind::tunnel ) keep( intfs_[ each.intfId ], dst );
   if ( fates.front().kind != PacketFate::Kind::sent ) return;
   keep( vrfs_[ vrf ], dst );
   keep( intfs_[ fates.front().intfId ], dst );
}

const std::vector< Kynet::IntfId > & ProbeScope::ingresses( U32 vrf ) {
   if ( ingresses_.empty() ) {
      const auto rank = []( const IntfFact & fact ) {
         return fact.tunnel ? 2 : fact.filters.aclIn.empty() && fact.filters.policyIn.empty() ? 0 : 1;
      };
      for ( const int wanted : { 0, 1, 2 } )
         for ( const auto & [ intfId, told ] : model.state().intfBook().intfs() )
            if ( told.fact.enabled && intfId.type() != Kynet::IntfType::loopback_ && rank( told.fact ) == wanted )
               ingresses_[ model.vrfOf( told.fact ) ].push_back( intfId );
   }
   return ingresses_[ vrf ];
}

bool ProbeScope::takes( Kynet::IntfId in, const FatePacket & packet ) const {
   if ( !model.isUp( in ) ) return false;
   const auto * const list = model.list( model.intf( in )->filters.aclIn );
   if ( list == nullptr ) return true;
   const auto rule = FateModel::ruleOf( *list, packet );
   return rule != 0 && list->entries.at( rule ).rule.action() == Acl::permit;
}

Kynet::IntfId ProbeScope::ingress( U32 vrf, const FatePacket & packet ) {
   const auto & all = ingresses( vrf );
   const auto at = std::ranges::find_if( all, [ & ]( auto intfId ) { return takes( intfId, packet ); } );
   return at == all.end() ? Kynet::IntfId() : *at;
}

Kynet::IntfId ProbeScope::admit( U32 vrf, FatePacket & packet ) {
   if ( const auto in = ingress( vrf, packet ); !!in ) return in;
   if ( const auto at = admitted_.find( vrf ); at != admitted_.end() ) {
      auto like = at->second;
      like.dst = packet.dst;
      if ( const auto in = ingress( vrf, like ); !!in ) {
         packet = like;
         return in;
      }
   }
   for ( const auto intfId : ingresses( vrf ) )
      if ( permitted( intfId, packet ) ) {
         admitted_[ vrf ] = packet;
         return intfId;
      }
   return {};
}

namespace {

// Ranges where no route can be met: nobody forwards to them (RFC 1812, 5.3.7; RFC 3927), or they are multicast.
constexpr std::pair< U64, U64 > unmeetable[] = {
     { 0x00000000, 0x00ffffff }, { 0x7f000000, 0x7fffffff }, { 0xa9fe0000, 0xa9feffff }, { 0xe0000000, 0xffffffff } };

U64 beyondUnmeetable( U64 address ) {
   for ( const auto & [ first, last ] : unmeetable )
      if ( first <= address && address <= last ) return last + 1;
   return address;
}

// Routes in the order of VRF, address and length, so that those within a prefix come right behind it: an address of
// its own is the first that they leave free.
class RouteProbes : public ProbeSource {
 public:
   explicit RouteProbes( ProbeScope & scope ) : scope_( scope ), fib_( *scope.model.state().tree().fib ) {}
   const char * what() const override { return "packets of routes"; }

   Got next( PacketProbe & probe ) override {
      if ( !gathered_ ) return gather();
      while ( ready_.empty() ) {
         if ( keys_.empty() && open_.empty() ) return Got::end;
         advance();
         if ( ready_.empty() && ++quiet_ % quietMost == 0 ) return Got::nothing;
      }
      const auto [ key, address ] = ready_.front();
      ready_.pop_front();
      return make( key, address, probe ) ? Got::probe : Got::nothing;
   }

 private:
   struct Key {
      U32 vrf;
      U32 address;
      U8 len;
      auto operator<=>( const Key & ) const = default;
      U64 last() const { return U64( address ) + ( U64( 1 ) << ( 32 - len ) ) - 1; }
   };
   // A prefix, and up to where longer ones cover it.
   struct Open {
      Key key;
      U64 covered;
      bool met = false;
   };
   static constexpr U32 slotsAtOnce = 4096;
   static constexpr unsigned quietMost = 256;

   Got gather() {
      const auto end = std::min( fib_.slots(), slot_ + slotsAtOnce );
      for ( ; slot_ < end; ++slot_ )
         if ( fib_.slotHas( slot_ ) ) {
            const auto ref = fib_.refAt( slot_ );
            keys_.add( { ref.vrfId, ref.prefix.address().value(), U8( ref.prefix.len() ) } );
         }
      if ( slot_ < fib_.slots() ) return Got::nothing;
      keys_.close();
      gathered_ = true;
      return Got::nothing;
   }

   void advance() {
      if ( keys_.empty() ) return close();
      if ( !next_ ) next_ = keys_.take();
      const auto & key = *next_;
      if ( !open_.empty() && ( open_.back().key.vrf != key.vrf || open_.back().key.last() < key.address ) )
         return close();
      if ( !open_.empty() ) {
         auto & outer = open_.back();
         const auto free = beyondUnmeetable( outer.covered );
         if ( !outer.met && free < key.address ) meet( outer, free );
         outer.covered = key.last() + 1;
      }
      open_.push_back( { key, key.address } );
      next_.reset();
   }
   void close() {
      auto & last = open_.back();
      const auto free = beyondUnmeetable( last.covered );
      if ( !last.met && free <= last.key.last() )
         meet( last, free );
      else if ( !last.met )
         scope_.notMet.add( nameOf( last.key ), last.covered > last.key.last() ? "longer prefixes cover it"
                                                                               : "nobody forwards to such addresses" );
      open_.pop_back();
   }
   void meet( Open & open, U64 address ) {
      open.met = true;
      ready_.emplace_back( open.key, U32( address ) );
   }

   std::string nameOf( const Key & key ) const {
      const auto & vrf = scope_.model.state().vrfBook().name( key.vrf ).value();
      return "route " + Kynet::Prefix( Kynet::IpAddr( key.address ), key.len ).stringValue() +
             ( key.vrf == 0 ? "" : " in VRF " + vrf );
   }
   bool make( const Key & key, U32 address, PacketProbe & probe ) {
      probe = { nameOf( key ) };
      probe.packet = { .src = benchmarkSource, .dst = address, .sport = 49152, .dport = 7 };
      probe.in = scope_.admit( key.vrf, probe.packet );
      if ( !!probe.in ) return true;
      scope_.notMet.add( probe.object, "no interface of its VRF takes a packet in" );
      return false;
   }

   ProbeScope & scope_;
   const Mirel::Fib::RouteStatus & fib_;
   SortedRuns< Key > keys_;
   U32 slot_ = 0;
   bool gathered_ = false;
   unsigned quiet_ = 0;
   std::optional< Key > next_;
   std::vector< Open > open_; // each within the one before
   std::deque< std::pair< Key, U32 > > ready_;
};

} // namespace

std::unique_ptr< ProbeSource > routeProbes( ProbeScope & scope ) { return std::make_unique< RouteProbes >( scope ); }

} // namespace Host
