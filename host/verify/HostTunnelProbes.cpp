// Packets into tunnels, and those that come from their other ends, sealed where an association has them so.
#include "HostEspSeal.h"
#include "HostPacketProbes.h"

#include <algorithm>

namespace Host {

namespace {

using Ipsec::Ike::SecurityAssociation;

constexpr U8 ipInIp = 4, greProtocol = 47, espProtocol = 50;
constexpr U32 headerOfIp = 20, headerOfUdp = 8;

void put16( std::string & bytes, U32 value ) {
   bytes += char( value >> 8 );
   bytes += char( value );
}

void put32( std::string & bytes, U32 value ) {
   put16( bytes, value >> 16 );
   put16( bytes, value & 0xffff );
}

// The packet with what is behind its header (RFC 791).
std::string ipv4Of( const FatePacket & packet, const std::string & payload ) {
   std::string bytes;
   put16( bytes, 0x4500 | U32( packet.dscp ) << 2 );
   put16( bytes, headerOfIp + U32( payload.size() ) );
   put32( bytes, 0 );
   put16( bytes, U32( packet.ttl ) << 8 | packet.proto );
   put16( bytes, 0 );
   put32( bytes, packet.src );
   put32( bytes, packet.dst );
   U32 sum = 0;
   for ( size_t at = 0; at < bytes.size(); at += 2 ) sum += U32( U8( bytes[ at ] ) ) << 8 | U8( bytes[ at + 1 ] );
   while ( sum >> 16 != 0 ) sum = ( sum & 0xffff ) + ( sum >> 16 );
   bytes[ 10 ] = char( ~sum >> 8 );
   bytes[ 11 ] = char( ~sum );
   return bytes + payload;
}

// Without a checksum (RFC 768).
std::string udpOf( U16 sport, U16 dport, const std::string & payload ) {
   std::string bytes;
   put16( bytes, sport );
   put16( bytes, dport );
   put16( bytes, headerOfUdp + U32( payload.size() ) );
   put16( bytes, 0 );
   return bytes + payload;
}

// RFC 2784, RFC 2890
std::string greOf( U32 key, const std::string & payload ) {
   std::string bytes;
   put16( bytes, key == 0 ? 0 : 0x2000 );
   put16( bytes, 0x0800 );
   if ( key != 0 ) put32( bytes, key );
   return bytes + payload;
}

std::string bytesOf( const FatePacket & packet ) { return ipv4Of( packet, udpOf( packet.sport, packet.dport, {} ) ); }

// What comes out of the tunnel.
FatePacket insideOf( const ProbeScope & scope, const IntfFact & tunnel ) {
   auto dsts = scope.destinations.ofVrf( scope.model.vrfOf( tunnel ) );
   if ( !tunnel.addresses.empty() ) dsts.push_back( tunnel.addresses.front().address().value() );
   if ( dsts.empty() ) dsts.push_back( benchmarkSource + 1 );
   return { .src = benchmarkSource, .dst = dsts.front(), .sport = 49152, .dport = 7 };
}

// Lets it in at the tunnel's underlay; the reason when nobody does.
std::string comeIn( ProbeScope & scope, const IntfFact & tunnel, PacketProbe & probe ) {
   probe.packet.length = U16( headerOfIp + probe.payload.size() );
   const auto underlay = scope.model.state().vrfBook().id( tunnel.tunnel->underlayVrf() );
   probe.in = underlay ? scope.ingress( *underlay, probe.packet ) : Kynet::IntfId();
   return !probe.in ? "no interface of its underlay takes a packet in" : "";
}

// Each tunnel on its way out, and of GRE on its way in: without the protection that an association would give.
class TunnelProbes : public ProbeSource {
 public:
   explicit TunnelProbes( ProbeScope & scope ) : scope_( scope ) {
      for ( const auto & [ intfId, told ] : scope.model.state().intfBook().intfs() )
         if ( told.fact.tunnel ) {
            due_.emplace_back( intfId, true );
            if ( told.fact.tunnel->mode() != Interface::TunnelMode::ipsec_ )
               due_.emplace_back( intfId, false );
            else if ( !hasInbound( intfId ) )
               scope.notMet.add( "tunnel " + intfId.stringValue() + ", in", "it has no inbound association" );
         }
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
   const Ipsec::Ike::Connection * connectionOf( Kynet::IntfId intfId ) const {
      for ( const auto & [ name, told ] : scope_.model.state().ipsecBook().connections() )
         if ( told.fact.connection.intfList().intf( intfId ) ) return &told.fact.connection;
      return nullptr;
   }
   bool hasInbound( Kynet::IntfId intfId ) const {
      const auto * const connection = connectionOf( intfId );
      return connection != nullptr && connection->inSaq().saqs() != 0;
   }
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
      probe.inner = insideOf( scope_, fact );
      probe.tunnels = { fact.intfId };
      probe.payload = greOf( ends.key(), bytesOf( probe.inner ) );
      probe.packet = { .src = ends.dstAddr().value(), .dst = ends.srcAddr().value(), .proto = greProtocol };
      // One that has to be protected takes none that is not.
      if ( connectionOf( fact.intfId ) != nullptr ) probe.tunnels.clear();
      return comeIn( scope_, fact, probe );
   }

   ProbeScope & scope_;
   std::deque< std::pair< Kynet::IntfId, bool > > due_;
};

// Each inbound association of each connection, in each GRE tunnel of it; of other tunnels what comes in enters one.
class AssociationProbes : public ProbeSource {
 public:
   explicit AssociationProbes( ProbeScope & scope ) : scope_( scope ) {
      for ( const auto & [ name, told ] : scope.model.state().ipsecBook().connections() )
         for ( const auto & sa : told.fact.connection.inSaq() ) add( name, told.fact, sa );
   }
   const char * what() const override { return "packets of associations"; }

   Got next( PacketProbe & probe ) override {
      if ( due_.empty() ) return Got::end;
      probe = std::move( due_.front() );
      due_.pop_front();
      const auto up = [ this ]( auto intfId ) { return scope_.model.isUp( intfId ); };
      const auto why = probe.tunnels.empty()                       ? "its connection has no tunnel"
                       : !std::ranges::all_of( probe.tunnels, up ) ? "its tunnel is disabled"
                                                                   : seal( probe );
      if ( why.empty() ) return Got::probe;
      scope_.notMet.add( probe.object, why );
      return Got::nothing;
   }

 private:
   void add( const Gant::Name & name, const IpsecFact & fact, const SecurityAssociation & sa ) {
      PacketProbe probe{ Gant::format( "inbound SA 0x%08x of ", sa.sakey().id().spi() ) + name };
      probe.association = { name, sa };
      const auto & intfs = fact.connection.intfList();
      if ( fact.key.encapId().type() != Ipsec::Ike::EncapIdType::IpsecGre_ || intfs.begin() == intfs.end() ) {
         probe.tunnels.assign( intfs.begin(), intfs.end() );
         due_.push_back( std::move( probe ) );
         return;
      }
      for ( const auto intfId : intfs ) {
         due_.push_back( probe );
         due_.back().object += ", in " + intfId.stringValue();
         due_.back().tunnels = { intfId };
      }
   }

   std::string seal( PacketProbe & probe ) {
      const auto & sa = probe.association->sa;
      const auto & tunnel = *scope_.model.intf( probe.tunnels.front() );
      const auto & ends = *tunnel.tunnel;
      const bool transport = sa.mode() == Ipsec::Ike::SaMode::IPSEC_TRANSPORT_MODE_;
      const FatePacket outer{ .src = sa.saddr().v4Addr().value(), .dst = sa.sakey().id().daddr().v4Addr().value() };
      // What is in it when it is open, and how that is called where the header stays outside.
      auto opened = insideOf( scope_, tunnel );
      U8 next = opened.proto;
      std::string payload;
      probe.inner = opened;
      if ( ends.mode() != Interface::TunnelMode::ipsec_ ) {
         payload = greOf( ends.key(), bytesOf( opened ) );
         opened = { .src = ends.dstAddr().value(), .dst = ends.srcAddr().value(), .proto = greProtocol };
         next = greProtocol;
         if ( transport && ( opened.src != outer.src || opened.dst != outer.dst ) )
            return "its packets have other ends than the tunnel's";
      } else {
         payload = udpOf( opened.sport, opened.dport, {} );
         if ( transport ) std::tie( probe.inner.src, probe.inner.dst ) = std::pair( outer.src, outer.dst );
      }
      probe.payload =
           espSealed( sa, lastSequence, transport ? next : ipInIp, transport ? payload : ipv4Of( opened, payload ) );
      if ( probe.payload.empty() ) return "the crypto library refused";
      probe.packet = outer;
      probe.packet.proto = espProtocol;
      if ( sa.encapType() != 0 ) {
         probe.packet.proto = FatePacket::udp;
         probe.packet.sport = sa.encapSrcPort();
         probe.packet.dport = sa.encapDstPort();
         probe.payload = udpOf( probe.packet.sport, probe.packet.dport, probe.payload );
      }
      return comeIn( scope_, tunnel, probe );
   }

   ProbeScope & scope_;
   std::deque< PacketProbe > due_;
};

} // namespace

std::unique_ptr< ProbeSource > tunnelProbes( ProbeScope & scope ) { return std::make_unique< TunnelProbes >( scope ); }

std::unique_ptr< ProbeSource > associationProbes( ProbeScope & scope ) {
   return std::make_unique< AssociationProbes >( scope );
}

} // namespace Host
