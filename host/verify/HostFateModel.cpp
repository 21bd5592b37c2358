#include "HostFateModel.h"

#include "HostRuleText.h"

#include <algorithm>

namespace Host {

namespace {

constexpr U8 icmp = FatePacket::icmp, tcp = FatePacket::tcp, udp = FatePacket::udp;
constexpr U8 dccp = 33, gre = 47, esp = 50, sctp = 132, udpLite = 136;
constexpr U32 ipHeader = 20;

bool portsAreIn( U8 proto ) {
   return proto == tcp || proto == udp || proto == dccp || proto == sctp || proto == udpLite;
}

// A packet that has no such number meets a filter of any alone.
bool has( const Acl::RangeSpec & spec, std::optional< U16 > value ) {
   if ( spec.isAny() ) return true;
   const auto ranges = spec.ranges();
   return value && std::ranges::any_of( ranges, [ & ]( const auto & range ) {
             return range.first <= *value && *value <= range.second;
          } );
}

bool coversRanges( const Acl::RangeSpec & first, const Acl::RangeSpec & second ) {
   if ( first.isAny() ) return true;
   if ( second.isAny() ) return false;
   const auto outer = first.ranges(), inner = second.ranges();
   return std::ranges::all_of( inner, [ & ]( const auto & part ) {
      return std::ranges::any_of(
           outer, [ & ]( const auto & range ) { return range.first <= part.first && part.second <= range.second; } );
   } );
}

bool coversAddress( const Kynet::IpAddrWithFullMask & first, const Kynet::IpAddrWithFullMask & second ) {
   return ( first.mask() & ~second.mask() ) == 0 &&
          ( ( first.address().value() ^ second.address().value() ) & first.mask() ) == 0;
}

bool isAt( const Kynet::IpAddrWithFullMask & wanted, U32 address ) {
   return ( ( wanted.address().value() ^ address ) & wanted.mask() ) == 0;
}

// Addresses that nobody may forward from or to (RFC 1812, 5.3.7; RFC 3927).
bool unforwardable( U32 src, U32 dst ) {
   const auto from = src >> 24, to = dst >> 24;
   constexpr U32 linkLocal = 0xa9fe;
   return from == 0 || from == 127 || from >= 224 || to == 0 || to == 127 || to >= 240 || src >> 16 == linkLocal ||
          dst >> 16 == linkLocal;
}

} // namespace

U32 FatePacket::size() const {
   if ( length != 0 ) return length;
   return ipHeader + ( proto == tcp ? 20 : proto == udp || proto == icmp ? 8 : 0 );
}

std::string inWords( const FatePacket & packet ) {
   auto text = Kynet::IpAddr( packet.src ).stringValue() + " to " + Kynet::IpAddr( packet.dst ).stringValue() + ", " +
               protocolName( packet.proto );
   if ( packet.proto == tcp || packet.proto == udp )
      text += " port " + std::to_string( packet.sport ) + " to " + std::to_string( packet.dport );
   if ( packet.proto == icmp )
      text += " type " + std::to_string( packet.icmpType ) + " code " + std::to_string( packet.icmpCode );
   if ( packet.tcpFlags != 0 ) text += ", flags " + std::to_string( packet.tcpFlags );
   if ( packet.dscp != 0 ) text += ", dscp " + dscpName( packet.dscp );
   if ( packet.ttl != 64 ) text += ", ttl " + std::to_string( packet.ttl );
   if ( packet.length != 0 ) text += ", " + std::to_string( packet.length ) + " bytes";
   return text;
}

std::string inWords( const PacketFate & fate ) {
   using enum PacketFate::Kind;
   switch ( fate.kind ) {
   case dropped: return "dropped";
   case denied: return "denied by an access list";
   case local: return "to the router";
   case sent: break;
   }
   auto text = "out of " + fate.intfId.stringValue() + " to " + fate.mac.stringValue();
   if ( fate.dscp.value_or( 0 ) != 0 ) text += ", dscp " + dscpName( *fate.dscp );
   if ( fate.trafficClass.value_or( 0 ) != 0 ) text += ", traffic class " + std::to_string( *fate.trafficClass );
   return text;
}

struct FateModel::Way {
   FatePacket packet;
   std::optional< U8 > trafficClass;
   std::vector< PacketFate > fates{};
   std::vector< FateMet > * met = nullptr;

   void end( PacketFate fate ) { fates.push_back( fate ); }
   void meet( const FateMet & what ) const {
      if ( met != nullptr ) met->push_back( what );
   }
};

const IntfFact * FateModel::intf( Kynet::IntfId intfId ) const {
   const auto at = intfs_.find( intfId );
   return at == intfs_.end() ? nullptr : &at->second.fact;
}

bool FateModel::isUp( Kynet::IntfId intfId ) const {
   const auto * const fact = intf( intfId );
   return fact != nullptr && fact->enabled;
}

const AclFact * FateModel::list( const Gant::String & name ) const {
   const auto & lists = state_.aclBook().lists();
   const auto at = lists.find( name );
   return at == lists.end() ? nullptr : &at->second.fact;
}

bool FateModel::matches( const Acl::IpFilter & filter, const FatePacket & packet ) {
   if ( filter.fragments() ) return false;
   if ( filter.proto() != 0 && filter.proto() != packet.proto ) return false;
   if ( !isAt( filter.source(), packet.src ) || !isAt( filter.destination(), packet.dst ) ) return false;
   // A protocol without a header of its own here has no ports either.
   const bool ports = portsAreIn( packet.proto ) && packet.size() >= ipHeader + 4;
   if ( !has( filter.sourcePort(), ports ? std::optional( packet.sport ) : std::nullopt ) ||
        !has( filter.destinationPort(), ports ? std::optional( packet.dport ) : std::nullopt ) )
      return false;
   if ( filter.tcpFlags() != 0 && ( packet.proto != tcp || ( packet.tcpFlags & filter.tcpFlags() ) == 0 ) )
      return false;
   if ( filter.ttl().oper() == Acl::eq && filter.ttl().ttl() != packet.ttl ) return false;
   if ( filter.matchDscp() && filter.dscp() != packet.dscp ) return false;
   if ( filter.icmpType() != Acl::icmpAny && ( packet.proto != icmp || filter.icmpType() != packet.icmpType ) )
      return false;
   if ( filter.icmpCode() != Acl::icmpAny && ( packet.proto != icmp || filter.icmpCode() != packet.icmpCode ) )
      return false;
   return has( filter.ipLen(), U16( packet.size() ) );
}

bool FateModel::covers( const Acl::IpFilter & first, const Acl::IpFilter & second ) {
   const auto any = []( const Acl::IpFilter & filter ) {
      return filter.icmpType() == Acl::icmpAny && filter.icmpCode() == Acl::icmpAny;
   };
   return !first.fragments() && ( first.proto() == 0 || first.proto() == second.proto() ) &&
          coversAddress( first.source(), second.source() ) &&
          coversAddress( first.destination(), second.destination() ) &&
          coversRanges( first.sourcePort(), second.sourcePort() ) &&
          coversRanges( first.destinationPort(), second.destinationPort() ) &&
          coversRanges( first.ipLen(), second.ipLen() ) &&
          ( first.tcpFlags() == 0 || ( second.tcpFlags() != 0 && ( second.tcpFlags() & ~first.tcpFlags() ) == 0 ) ) &&
          ( first.ttl().oper() != Acl::eq || first.ttl() == second.ttl() ) &&
          ( !first.matchDscp() || ( second.matchDscp() && first.dscp() == second.dscp() ) ) &&
          ( any( first ) || ( first.icmpType() == second.icmpType() &&
                              ( first.icmpCode() == Acl::icmpAny || first.icmpCode() == second.icmpCode() ) ) );
}

U32 FateModel::ruleOf( const AclFact & list, const FatePacket & packet ) {
   for ( const auto & [ sequence, entry ] : list.entries )
      if ( !entry.isRemark && matches( entry.rule.filter(), packet ) ) return sequence;
   return 0;
}

bool FateModel::permits( const Gant::String & name, FateMet met, const FatePacket & packet, Way & way ) const {
   if ( name.empty() ) return true;
   const auto * const fact = list( name );
   if ( fact == nullptr || fact->key.type() != Acl::ip ) return true;
   met.sequence = ruleOf( *fact, packet );
   way.meet( met );
   if ( met.sequence != 0 && fact->entries.at( met.sequence ).rule.action() == Acl::permit ) return true;
   way.end( { PacketFate::Kind::denied } );
   return false;
}

// The first class one of whose lists has a rule that permits it; what no other matches is of the default class.
void FateModel::classify( const IntfFact & fact, FatePacket & packet, Way & way ) const {
   const auto & book = state_.aclBook();
   const auto policy = book.policyMaps().find( fact.filters.policyIn );
   if ( policy == book.policyMaps().end() ) return;
   const auto permitted = [ & ]( const Gant::String & name ) {
      const auto * const told = list( name );
      return told != nullptr && told->key.type() == Acl::ip &&
             std::ranges::any_of( told->entries, [ & ]( const auto & entry ) {
                return !entry.second.isRemark && entry.second.rule.action() == Acl::permit &&
                       matches( entry.second.rule.filter(), packet );
             } );
   };
   const Qos::PolicyClass * found = nullptr;
   for ( const auto & each : policy->second.fact.config.classes ) {
      const auto map = book.classMaps().find( each.name );
      const bool isIt = each.name == Qos::classDefault
                             ? found == nullptr
                             : map != book.classMaps().end() &&
                                    std::ranges::any_of( map->second.fact.config.accessLists, permitted );
      if ( isIt ) found = &each;
      if ( isIt && each.name != Qos::classDefault ) break;
   }
   if ( found == nullptr ) return;
   way.meet( { FateMet::Kind::policy, fact.intfId, 0, found } );
   for ( const auto & [ action, value ] : found->actions ) {
      if ( action == Qos::ActionType::actionSetDscp_ ) packet.dscp = U8( value );
      if ( action == Qos::ActionType::actionSetTc_ ) way.trafficClass = U8( value );
   }
}

std::vector< PacketFate > FateModel::fates( Kynet::IntfId in, FatePacket packet, std::vector< FateMet > * met ) const {
   const auto * const fact = intf( in );
   if ( fact == nullptr ) return {};
   Way way{ packet, std::nullopt, {}, met };
   if ( permits( fact->filters.aclIn, { FateMet::Kind::listIn, in }, packet, way ) ) {
      classify( *fact, way.packet, way );
      routed( vrfOf( *fact ), way );
   }
   std::ranges::sort( way.fates );
   way.fates.erase( std::unique( way.fates.begin(), way.fates.end() ), way.fates.end() );
   return std::move( way.fates );
}

void FateModel::routed( U32 vrf, Way & way ) const {
   using Type = Mirel::RouteType;
   const auto & fib = *state_.tree().fib;
   const auto ref = fib.match( vrf, Kynet::IpAddr( way.packet.dst ) );
   if ( !ref ) return way.end( {} );
   const auto route = fib.routeAt( ref->slot );
   const auto * const vias = fib.fec( route.fecId() );
   if ( route.routeType() == Type::drop_ || vias == nullptr || vias->empty() ||
        unforwardable( way.packet.src, way.packet.dst ) )
      return way.end( {} );
   const auto disabled = [ this ]( const auto & via ) {
      const auto * const fact = intf( via.intfId() );
      return fact != nullptr && !fact->enabled;
   };
   if ( std::ranges::all_of( *vias, disabled ) ) return way.end( {} );
   for ( const auto & via : *vias ) {
      if ( disabled( via ) ) continue;
      switch ( route.routeType() ) {
      case Type::attached_: toNeighbor( via.intfId(), Kynet::IpAddr( way.packet.dst ), way, way ); break;
      case Type::forward_: forwarded( via, way ); break;
      default: toRouter( via.intfId(), way ); break;
      }
   }
}

void FateModel::forwarded( const Mirel::Via & via, Way & way ) const {
   if ( via.kind() == Mirel::RouteType::drop_ ) return way.end( {} );
   const auto * const fact = intf( via.intfId() );
   if ( fact != nullptr && fact->tunnel ) return tunnelled( *fact, way );
   toNeighbor( via.intfId(), via.hop(), way, way );
}

std::optional< FatePacket > FateModel::outside( const IntfFact & tunnel, const FatePacket & inner ) const {
   const auto & ends = *tunnel.tunnel;
   FatePacket packet;
   packet.src = ends.srcAddr().value();
   packet.dst = ends.dstAddr().value();
   packet.proto = gre;
   packet.length = U16( std::min( 65535u, inner.size() + ipHeader + ( ends.key() == 0 ? 4 : 8 ) ) );
   packet.ttl = ends.ttl() == 0 ? U8( inner.ttl - 1 ) : ends.ttl();
   packet.dscp = U8( ends.tos() >> 2 );
   const bool bare = ends.mode() == Interface::TunnelMode::ipsec_;
   for ( const auto & [ name, told ] : state_.ipsecBook().connections() ) {
      const auto & connection = told.fact.connection;
      if ( !connection.intfList().intf( tunnel.intfId ) ) continue;
      const auto & sa = connection.outSa();
      if ( !sa ) return std::nullopt;
      packet.proto = sa->encapType() == 0 ? esp : udp;
      packet.sport = sa->encapSrcPort();
      packet.dport = sa->encapDstPort();
      return packet;
   }
   if ( bare ) return std::nullopt;
   return packet;
}

// A tunnel's own packets go through no tunnel.
void FateModel::tunnelled( const IntfFact & tunnel, Way & way ) const {
   using Type = Mirel::RouteType;
   const auto & fib = *state_.tree().fib;
   const auto underlay = state_.vrfBook().id( tunnel.tunnel->underlayVrf() );
   const auto ref = underlay ? fib.match( *underlay, tunnel.tunnel->dstAddr() ) : std::nullopt;
   const auto * const vias = ref ? fib.fec( fib.routeAt( ref->slot ).fecId() ) : nullptr;
   const auto type = ref ? fib.routeAt( ref->slot ).routeType() : Type();
   // Attached: the other end is on a link, and nobody may know it there.
   if ( vias == nullptr || ( type != Type::forward_ && type != Type::attached_ ) ) return way.end( {} );
   bool any = false;
   for ( const auto & via : *vias ) {
      const auto * const by = intf( via.intfId() );
      if ( by == nullptr || by->tunnel || !state_.intfBook().up( *by ) || via.kind() == Type::drop_ ) continue;
      any = true;
      way.meet( { FateMet::Kind::tunnel, tunnel.intfId } );
      if ( !permits( tunnel.filters.aclOut, { FateMet::Kind::listOut, tunnel.intfId }, way.packet, way ) ) continue;
      const auto outer = outside( tunnel, way.packet );
      if ( !outer )
         way.end( {} );
      else
         toNeighbor( via.intfId(), type == Type::forward_ ? via.hop() : tunnel.tunnel->dstAddr(),
                     { *outer, {}, {}, way.met }, way );
   }
   if ( !any ) way.end( {} );
}

// `outer` is what leaves, and may be a tunnel's; its fate is the way's.
void FateModel::toNeighbor( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr, const Way & outer, Way & way ) const {
   const auto * const fact = intf( intfId );
   if ( fact == nullptr ) return way.end( {} );
   if ( !permits( fact->filters.aclOut, { FateMet::Kind::listOut, intfId }, outer.packet, way ) ) return;
   const auto & arp = *state_.tree().arp;
   const Arp::NeighborKey key( intfId, addr );
   if ( !arp.neighborHas( key ) || !state_.intfBook().up( *fact ) ) return way.end( { PacketFate::Kind::local } );
   PacketFate fate{ PacketFate::Kind::sent, intfId, arp.neighbor( key ) };
   if ( &outer == &way ) {
      fate.dscp = way.packet.dscp;
      fate.trafficClass = way.trafficClass;
   }
   way.end( fate );
}

// By the chain of the interface that has the address; by none when a tunnel has it.
void FateModel::toRouter( Kynet::IntfId intfId, Way & way ) const {
   const auto * const fact = intf( intfId );
   if ( fact == nullptr ) return way.end( {} );
   if ( fact->tunnel || permits( fact->filters.aclOut, { FateMet::Kind::listOut, intfId }, way.packet, way ) )
      way.end( { PacketFate::Kind::local } );
}

} // namespace Host
