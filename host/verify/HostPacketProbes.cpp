#include "HostPacketProbes.h"

#include <algorithm>

namespace Host {

namespace {

constexpr size_t hintsMost = 8;

void keep( std::vector< U32 > & hints, U32 dst ) {
   if ( hints.size() < hintsMost ) hints.push_back( dst );
}

} // namespace

std::vector< PacketFate > fatesOf( const FateModel & model, const PacketProbe & probe, std::vector< FateMet > * met ) {
   auto fates = model.fates( probe.in, probe.packet, met );
   if ( !probe.tunnel || fates != std::vector{ PacketFate{ PacketFate::Kind::local } } ) return fates;
   return model.fates( probe.tunnel, probe.inner, met );
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
   const auto * const fact = model.intf( in );
   if ( fact == nullptr || !fact->enabled ) return false;
   const auto * const list = model.list( fact->filters.aclIn );
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

// GRE and what is in it (RFC 2784, RFC 2890).
std::string greOf( U32 key, const FatePacket & inner ) {
   std::string bytes;
   const auto put16 = [ & ]( U32 value ) {
      bytes += char( value >> 8 );
      bytes += char( value );
   };
   const auto put32 = [ & ]( U32 value ) {
      put16( value >> 16 );
      put16( value & 0xffff );
   };
   put16( key == 0 ? 0 : 0x2000 );
   put16( 0x0800 );
   if ( key != 0 ) put32( key );
   const auto header = bytes.size();
   put16( 0x4500 );
   put16( inner.size() );
   put32( 0 );
   put16( U32( inner.ttl ) << 8 | inner.proto );
   put16( 0 );
   put32( inner.src );
   put32( inner.dst );
   U32 sum = 0;
   for ( size_t at = header; at < bytes.size(); at += 2 ) sum += U32( U8( bytes[ at ] ) ) << 8 | U8( bytes[ at + 1 ] );
   while ( sum >> 16 != 0 ) sum = ( sum & 0xffff ) + ( sum >> 16 );
   bytes[ header + 10 ] = char( ~sum >> 8 );
   bytes[ header + 11 ] = char( ~sum );
   put16( inner.sport );
   put16( inner.dport );
   put16( inner.size() - 20 );
   put16( 0 ); // no checksum (RFC 768)
   return bytes;
}

// Each tunnel on its way out, and of GRE on its way in.
class TunnelProbes : public ProbeSource {
 public:
   explicit TunnelProbes( ProbeScope & scope ) : scope_( scope ) {
      for ( const auto & [ intfId, told ] : scope.model.state().intfBook().intfs() )
         if ( told.fact.tunnel )
            for ( const bool out : { true, false } ) due_.emplace_back( intfId, out );
   }
   const char * what() const override { return "packets of tunnels"; }

   Got next( PacketProbe & probe ) override {
      if ( due_.empty() ) return Got::end;
      const auto [ intfId, out ] = due_.front();
      due_.pop_front();
      const auto * const fact = scope_.model.intf( intfId );
      if ( fact == nullptr || !fact->tunnel ) return Got::nothing;
      probe = { "tunnel " + intfId.stringValue() + ( out ? ", out" : ", in" ) };
      const auto why = !fact->enabled ? "it is disabled" : out ? leave( *fact, probe ) : enter( *fact, probe );
      if ( why.empty() ) return Got::probe;
      scope_.notMet.add( probe.object, why );
      return Got::nothing;
   }

 private:
   std::string leave( const IntfFact & fact, PacketProbe & probe ) {
      auto dsts = scope_.destinations.by( fact.intfId );
      for ( const auto & address : fact.addresses )
         for ( const U32 other : { 1, 3 } ) dsts.push_back( address.address().value() ^ other );
      const auto vrf = scope_.model.vrfOf( fact );
      for ( const auto dst : dsts ) {
         probe.packet = { .src = benchmarkSource, .dst = dst, .sport = 49152, .dport = 7 };
         probe.in = scope_.ingress( vrf, probe.packet );
         if ( !probe.in ) continue;
         std::vector< FateMet > met;
         scope_.model.fates( probe.in, probe.packet, &met );
         if ( std::ranges::count( met, FateMet{ FateMet::Kind::tunnel, fact.intfId } ) != 0 ) return {};
      }
      return "no route was found that leads into it";
   }

   std::string enter( const IntfFact & fact, PacketProbe & probe ) {
      const auto & ends = *fact.tunnel;
      if ( ends.mode() == Interface::TunnelMode::ipsec_ ) return "its packets are protected, by keys that nobody reads";
      const auto underlay = scope_.model.state().vrfBook().id( ends.underlayVrf() );
      auto dsts = scope_.destinations.ofVrf( scope_.model.vrfOf( fact ) );
      if ( !fact.addresses.empty() ) dsts.push_back( fact.addresses.front().address().value() );
      if ( dsts.empty() ) dsts.push_back( benchmarkSource + 1 );
      probe.inner = { .src = benchmarkSource, .dst = dsts.front(), .sport = 49152, .dport = 7 };
      probe.tunnel = fact.intfId;
      probe.payload = greOf( ends.key(), probe.inner );
      probe.packet = { .src = ends.dstAddr().value(), .dst = ends.srcAddr().value(), .proto = 47 };
      probe.packet.length = U16( 20 + probe.payload.size() );
      probe.in = scope_.ingress( underlay.value_or( 0 ), probe.packet );
      if ( !underlay || !probe.in ) return "no interface of its underlay takes a packet in";
      // Without its protection it is for no tunnel.
      for ( const auto & [ name, told ] : scope_.model.state().ipsecBook().connections() )
         if ( told.fact.connection.intfList().intf( fact.intfId ) ) probe.tunnel = {};
      return {};
   }

   ProbeScope & scope_;
   std::deque< std::pair< Kynet::IntfId, bool > > due_;
};

} // namespace

std::unique_ptr< ProbeSource > routeProbes( ProbeScope & scope ) { return std::make_unique< RouteProbes >( scope ); }
std::unique_ptr< ProbeSource > tunnelProbes( ProbeScope & scope ) { return std::make_unique< TunnelProbes >( scope ); }

} // namespace Host
