#include "RouterModel.h"

#include <cstdio>

namespace Test {

namespace {

constexpr unsigned remarked = 46;
const char * const vrfNames[ vrfs ] = { "default", "red", "blue" };

constexpr uint32_t address( unsigned a, unsigned b, unsigned c, unsigned d ) { return a << 24 | b << 16 | c << 8 | d; }
constexpr uint32_t tunnelEnd( int tunnel ) { return address( 203, 0, 113, static_cast< unsigned >( tunnel ) ); }
constexpr uint32_t tunnelAddress( int tunnel ) { return address( 10, 255, static_cast< unsigned >( tunnel ), 1 ); }
constexpr uint32_t tunnelSource = address( 10, 0, 1, 1 );
uint32_t subnet( const ModelIntf & intf ) { return address( 10, 0, static_cast< unsigned >( intf.net ), 0 ); }
bool holds( uint32_t prefix, unsigned len, uint32_t addr ) {
   return len == 0 || ( prefix ^ addr ) >> ( 32 - len ) == 0;
}

int below( std::minstd_rand & random, int bound ) { return static_cast< int >( random() >> 8 ) % bound; }
bool oneIn( std::minstd_rand & random, int chances ) { return below( random, chances ) == 0; }
std::string name( int ethernet ) { return "Ethernet" + std::to_string( ethernet ); }
std::string tunnelName( int tunnel ) { return "Tunnel" + std::to_string( tunnel ); }
std::string listName( int list ) { return "L" + std::to_string( list ); }

const uint32_t destinations[] = { address( 50, 0, 0, 0 ), address( 50, 1, 0, 0 ), address( 50, 2, 0, 0 ),
                                  address( 50, 3, 0, 0 ) };

ModelPrefix randomPrefix( std::minstd_rand & random ) {
   const int vrf = below( random, vrfs );
   switch ( below( random, 8 ) ) {
   case 0: return { vrf, 0, 0 };
   case 1: return { vrf, destinations[ 0 ], 8 };
   case 2: return { vrf, tunnelEnd( 0 ), 24 };
   case 3: return { vrf, tunnelEnd( 1 + below( random, tunnels ) ), 32 };
   default: return { vrf, destinations[ below( random, 4 ) ], 16 };
   }
}

uint32_t randomHost( std::minstd_rand & random ) {
   const int net = 1 + below( random, ethernets ) + ( oneIn( random, 4 ) ? 10 : 0 );
   return address( 10, 0, static_cast< unsigned >( net ), static_cast< unsigned >( 2 + below( random, 3 ) ) );
}

ModelHop randomHop( std::minstd_rand & random ) {
   if ( oneIn( random, 4 ) ) return { 1 + below( random, tunnels ), 0, 0 };
   const auto addr = randomHost( random );
   return { 0, oneIn( random, 4 ) ? static_cast< int >( addr >> 8 & 0xff ) % 10 : 0, addr };
}

template < typename T >
ModelEnds one( T end ) {
   return { end };
}

} // namespace

std::string addressText( uint32_t addr ) {
   std::string out = std::to_string( addr >> 24 );
   for ( const int shift : { 16, 8, 0 } ) out += "." + std::to_string( addr >> shift & 0xff );
   return out;
}

std::string macText( uint32_t addr ) {
   char out[ 18 ];
   std::snprintf( out, sizeof( out ), "02:00:00:00:%02x:%02x", addr >> 8 & 0xff, addr & 0xff );
   return out;
}

std::string text( const ModelEnd & end ) {
   if ( end.kind == ModelEnd::Kind::dropped ) return "dropped";
   if ( end.kind == ModelEnd::Kind::local ) return "to the router";
   return "out of " + name( end.ethernet ) + " to " + addressText( end.addr );
}

std::string text( const ModelPacket & packet ) {
   return addressText( packet.src ) + " to " + addressText( packet.dst ) + " protocol " +
          std::to_string( packet.proto ) + " port " + std::to_string( packet.dport ) + " dscp " +
          std::to_string( packet.dscp );
}

RouterModel::RouterModel( std::minstd_rand & random ) {
   for ( int list = 0; list < lists; ++list ) randomList( random, list );
   for ( int number = 1; number <= ethernets; ++number ) randomEthernet( random, number );
   for ( int number = 1; number <= tunnels; ++number ) randomTunnel( random, number );
   for ( int n = 0; n < 3 * ethernets; ++n ) randomNeighbor( random );
   for ( int n = 0; n < 14; ++n ) randomRoute( random );
}

std::vector< ModelEntry > RouterModel::description() const {
   std::vector< ModelEntry > all{ { false, "vrf", "{name: red}" }, { false, "vrf", "{name: blue}" } };
   for ( int list = 0; list < lists; ++list ) all.push_back( listEntry( list ) );
   all.push_back( { false, "class-map", "{name: C, match: {access-list: " + listName( lists - 1 ) + "}}" } );
   all.push_back(
        { false, "policy-map", "{name: P, classes: [{class: C, set: {dscp: " + std::to_string( remarked ) + "}}]}" } );
   for ( const auto & [ number, intf ] : ethernets_ ) all.push_back( entry( false, number ) );
   for ( const auto & [ number, intf ] : tunnels_ ) all.push_back( entry( true, number ) );
   for ( const auto & [ ethernet, addr ] : neighbors_ )
      if ( onSubnet( ethernet, addr ) )
         all.push_back( { false, "neighbor",
                          "{interface: " + name( ethernet ) + ", address: " + addressText( addr ) + ", mac: '" +
                               macText( addr ) + "'}" } );
   for ( const auto & [ prefix, route ] : routes_ ) all.push_back( routeEntry( prefix, route ) );
   return all;
}

ModelEntry RouterModel::change( std::minstd_rand & random ) {
   switch ( below( random, 8 ) ) {
   case 0:
   case 1:
   case 2: return randomEthernet( random, 1 + below( random, ethernets ) );
   case 3: return randomTunnel( random, 1 + below( random, tunnels ) );
   case 4: return randomNeighbor( random );
   case 5: return randomList( random, below( random, lists ) );
   default: return randomRoute( random );
   }
}

ModelEntry RouterModel::entry( bool tunnel, int number ) const {
   const auto & intf = ( tunnel ? tunnels_ : ethernets_ ).at( number );
   auto out = "{name: " + ( tunnel ? tunnelName( number ) : name( number ) ) + ", vrf: " + vrfNames[ intf.vrf ];
   if ( tunnel )
      out += ", addresses: " + addressText( tunnelAddress( number ) ) + "/30, source: " + addressText( tunnelSource ) +
             ", destination: " + addressText( tunnelEnd( number ) ) + ", underlay: " + vrfNames[ intf.underlay ];
   else
      out += ", addresses: " + addressText( subnet( intf ) + 1 ) + "/24";
   if ( !intf.enabled ) out += ", enabled: false";
   if ( intf.in >= 0 || intf.out >= 0 ) {
      out += ", access-group: {";
      if ( intf.in >= 0 ) out += "in: " + listName( intf.in );
      if ( intf.out >= 0 ) out += ( intf.in >= 0 ? ", out: " : "out: " ) + listName( intf.out );
      out += "}";
   }
   if ( intf.policy ) out += ", service-policy: {input: P}";
   return { false, tunnel ? "tunnel" : "interface", out + "}" };
}

ModelEntry RouterModel::listEntry( int number ) const {
   std::string out = "{name: " + listName( number ) + ", rules: [";
   for ( const auto & rule : lists_[ static_cast< size_t >( number ) ] ) {
      out += rule.permit ? "'permit " : "'deny ";
      out += rule.proto == 0 ? "ip" : rule.proto == 6 ? "tcp" : rule.proto == 17 ? "udp" : "gre";
      out += " any " + ( rule.len == 0 ? "any" : addressText( rule.dst ) + "/" + std::to_string( rule.len ) );
      if ( rule.dport != 0 ) out += " eq " + std::to_string( rule.dport );
      if ( rule.dscp >= 0 ) out += " dscp " + std::to_string( rule.dscp );
      out += "', ";
   }
   return { false, "access-list", out + "]}" };
}

ModelEntry RouterModel::routeEntry( const ModelPrefix & prefix, const ModelRoute & route ) const {
   auto out = "{prefix: " + addressText( prefix.addr ) + "/" + std::to_string( prefix.len ) +
              ", vrf: " + vrfNames[ prefix.vrf ];
   if ( route.kind == ModelRoute::Kind::blackhole ) return { false, "route", out + ", blackhole: true}" };
   if ( route.kind == ModelRoute::Kind::receive )
      return { false, "route", out + ", receive: " + name( route.receiver ) + "}" };
   out += ", via: [";
   for ( const auto & hop : route.hops ) {
      out += hop.tunnel != 0 ? tunnelName( hop.tunnel ) : addressText( hop.addr );
      out += ( hop.ethernet != 0 ? "%" + name( hop.ethernet ) : "" ) + ", ";
   }
   return { false, "route", out + "]}" };
}

ModelEntry RouterModel::randomEthernet( std::minstd_rand & random, int number ) {
   if ( ethernets_.contains( number ) && oneIn( random, 5 ) ) {
      ethernets_.erase( number );
      std::erase_if( neighbors_, [ & ]( const auto & neighbor ) { return neighbor.ethernet == number; } );
      return { true, "interface", "{name: " + name( number ) + "}" };
   }
   auto & intf = ethernets_.try_emplace( number, ModelIntf{ 0, number } ).first->second;
   if ( oneIn( random, 2 ) ) intf.enabled = !oneIn( random, 4 );
   if ( oneIn( random, 2 ) ) intf.vrf = below( random, vrfs );
   if ( oneIn( random, 4 ) ) intf.net = number + ( oneIn( random, 3 ) ? 10 : 0 );
   if ( oneIn( random, 3 ) ) intf.in = below( random, lists ) - 1;
   if ( oneIn( random, 3 ) ) intf.out = below( random, lists ) - 1;
   if ( oneIn( random, 4 ) ) intf.policy = !intf.policy;
   return entry( false, number );
}

ModelEntry RouterModel::randomTunnel( std::minstd_rand & random, int number ) {
   if ( tunnels_.contains( number ) && oneIn( random, 5 ) ) {
      tunnels_.erase( number );
      return { true, "tunnel", "{name: " + tunnelName( number ) + "}" };
   }
   auto & intf = tunnels_[ number ];
   if ( oneIn( random, 2 ) ) intf.enabled = !oneIn( random, 4 );
   if ( oneIn( random, 2 ) ) intf.vrf = below( random, vrfs );
   if ( oneIn( random, 2 ) ) intf.underlay = below( random, vrfs );
   if ( oneIn( random, 3 ) ) intf.out = below( random, lists ) - 1;
   return entry( true, number );
}

ModelEntry RouterModel::randomNeighbor( std::minstd_rand & random ) {
   const auto addr = randomHost( random );
   for ( const auto & [ number, intf ] : ethernets_ ) {
      if ( !onSubnet( number, addr ) ) continue;
      const auto key = "{interface: " + name( number ) + ", address: " + addressText( addr );
      if ( neighbors_.erase( { number, addr } ) != 0 ) return { true, "neighbor", key + "}" };
      neighbors_.insert( { number, addr } );
      return { false, "neighbor", key + ", mac: '" + macText( addr ) + "'}" };
   }
   return {};
}

ModelEntry RouterModel::randomRoute( std::minstd_rand & random ) {
   const auto prefix = randomPrefix( random );
   if ( routes_.contains( prefix ) && oneIn( random, 3 ) ) {
      auto gone = routeEntry( prefix, routes_.at( prefix ) );
      routes_.erase( prefix );
      gone.del = true;
      return gone;
   }
   ModelRoute route;
   if ( oneIn( random, 8 ) )
      route.kind = ModelRoute::Kind::blackhole;
   else if ( oneIn( random, 12 ) )
      route = { ModelRoute::Kind::receive, {}, 1 + below( random, ethernets ) };
   else
      for ( int n = 1 + below( random, 3 ); n != 0; --n ) route.hops.push_back( randomHop( random ) );
   routes_[ prefix ] = route;
   return routeEntry( prefix, route );
}

ModelEntry RouterModel::randomList( std::minstd_rand & random, int number ) {
   const bool ofClass = number == lists - 1;
   ModelList list;
   for ( int n = below( random, 4 ); n != 0; --n ) {
      ModelRule rule{ ofClass || oneIn( random, 2 ) };
      const unsigned protocols[] = { 0, 6, 17, 47 };
      rule.proto = protocols[ below( random, 4 ) ];
      if ( oneIn( random, 2 ) ) rule.dst = destinations[ below( random, 4 ) ], rule.len = 16;
      if ( ( rule.proto == 6 || rule.proto == 17 ) && oneIn( random, 2 ) ) rule.dport = 80;
      if ( oneIn( random, 3 ) ) rule.dscp = oneIn( random, 2 ) ? int( remarked ) : 0;
      list.push_back( rule );
   }
   if ( list.empty() || ( !ofClass && !oneIn( random, 8 ) ) ) list.push_back( {} );
   lists_[ static_cast< size_t >( number ) ] = list;
   return listEntry( number );
}

std::pair< int, ModelPacket > RouterModel::packet( std::minstd_rand & random ) const {
   const unsigned protocols[] = { 6, 17, 47 };
   ModelPacket packet{ address( 198, 18, 0, static_cast< unsigned >( below( random, 250 ) ) ), 0,
                       protocols[ below( random, 3 ) ], oneIn( random, 2 ) ? 80u : 443u,
                       oneIn( random, 4 ) ? remarked : 0 };
   switch ( below( random, 6 ) ) {
   case 0: packet.dst = randomHost( random ) - ( oneIn( random, 3 ) ? 1 : 0 ); break;
   case 1: packet.dst = randomHost( random ) | 0xff; break;
   case 2: packet.dst = tunnelEnd( below( random, tunnels + 1 ) ); break;
   case 3:
      packet.dst = tunnelAddress( 1 + below( random, tunnels ) ) + static_cast< unsigned >( below( random, 2 ) );
      break;
   default: packet.dst = destinations[ below( random, 4 ) ] + 1 + static_cast< unsigned >( below( random, 4 ) );
   }
   std::vector< int > from;
   for ( const auto & [ number, intf ] : ethernets_ )
      if ( intf.enabled ) from.push_back( number );
   return { from.empty() ? 0 : from[ static_cast< size_t >( below( random, static_cast< int >( from.size() ) ) ) ],
            packet };
}

ModelEnds RouterModel::ends( int ethernet, ModelPacket packet ) const {
   const auto & intf = ethernets_.at( ethernet );
   if ( !permitted( intf.in, packet ) ) return one( ModelEnd() );
   if ( intf.policy && permitted( lists - 1, packet ) ) packet.dscp = remarked;
   auto ends = routed( intf.vrf, packet );
   return ends.empty() ? one( ModelEnd() ) : ends;
}

bool RouterModel::permitted( int list, const ModelPacket & packet ) const {
   if ( list < 0 ) return true;
   for ( const auto & rule : lists_[ static_cast< size_t >( list ) ] )
      if ( ( rule.proto == 0 || rule.proto == packet.proto ) && holds( rule.dst, rule.len, packet.dst ) &&
           ( rule.dport == 0 || rule.dport == packet.dport ) &&
           ( rule.dscp < 0 || static_cast< unsigned >( rule.dscp ) == packet.dscp ) )
         return rule.permit;
   return false;
}

bool RouterModel::onSubnet( int ethernet, uint32_t addr ) const {
   const auto at = ethernets_.find( ethernet );
   return at != ethernets_.end() && holds( subnet( at->second ), 24, addr );
}

const ModelRoute * RouterModel::longest( int vrf, uint32_t dst, unsigned over ) const {
   const ModelRoute * found = nullptr;
   for ( const auto & [ prefix, route ] : routes_ )
      if ( prefix.vrf == vrf && prefix.len >= over && holds( prefix.addr, prefix.len, dst ) ) {
         found = &route;
         over = prefix.len;
      }
   return found;
}

ModelEnds RouterModel::routed( int vrf, const ModelPacket & packet ) const {
   for ( const auto & [ number, intf ] : ethernets_ ) {
      if ( intf.vrf != vrf || !intf.enabled || !onSubnet( number, packet.dst ) ) continue;
      // Its own address, the broadcast address, and hosts that nobody knows go to the router.
      return one( toNeighbor( number, packet.dst, packet ) );
   }
   for ( const auto & [ number, intf ] : tunnels_ ) {
      if ( intf.vrf != vrf || !intf.enabled || !holds( tunnelAddress( number ), 30, packet.dst ) ) continue;
      // For its own address there is no way out, and so no list.
      if ( packet.dst == tunnelAddress( number ) ) return one( ModelEnd{ ModelEnd::Kind::local } );
      return tunnelled( number, packet );
   }
   const auto * const route = longest( vrf, packet.dst, 0 );
   if ( route == nullptr || route->kind == ModelRoute::Kind::blackhole ) return one( ModelEnd() );
   if ( route->kind == ModelRoute::Kind::via ) return forwarded( vrf, *route, packet );
   const auto at = ethernets_.find( route->receiver );
   return one( at == ethernets_.end() || !at->second.enabled ? ModelEnd() : toRouter( route->receiver, packet ) );
}

int RouterModel::reachedBy( int vrf, const ModelHop & hop ) const {
   if ( hop.tunnel != 0 ) {
      const auto at = tunnels_.find( hop.tunnel );
      return at != tunnels_.end() && at->second.vrf == vrf ? hop.tunnel : 0;
   }
   for ( const auto & [ number, intf ] : ethernets_ )
      if ( intf.vrf == vrf && onSubnet( number, hop.addr ) && ( hop.ethernet == 0 || hop.ethernet == number ) )
         return number;
   return 0;
}

// The hops by which packets go: with their interfaces, and none that is disabled.
std::vector< ModelHop > RouterModel::inUse( int vrf, const ModelRoute & route ) const {
   std::vector< ModelHop > hops;
   for ( auto hop : route.hops ) {
      const int by = reachedBy( vrf, hop );
      if ( by == 0 || !( hop.tunnel != 0 ? tunnels_ : ethernets_ ).at( by ).enabled ) continue;
      if ( hop.tunnel == 0 ) hop.ethernet = by;
      hops.push_back( hop );
   }
   return hops;
}

ModelEnds RouterModel::forwarded( int vrf, const ModelRoute & route, const ModelPacket & packet ) const {
   ModelEnds ends;
   for ( const auto & hop : inUse( vrf, route ) ) {
      if ( hop.tunnel != 0 )
         ends.merge( tunnelled( hop.tunnel, packet ) );
      else
         ends.insert( toNeighbor( hop.ethernet, hop.addr, packet ) );
   }
   return ends;
}

ModelEnds RouterModel::tunnelled( int tunnel, const ModelPacket & packet ) const {
   const auto & intf = tunnels_.at( tunnel );
   const ModelPacket outer{ tunnelSource, tunnelEnd( tunnel ), 47, 0 };
   ModelEnds ends;
   const auto * const route = longest( intf.underlay, outer.dst, 0 );
   if ( route == nullptr || route->kind != ModelRoute::Kind::via ) return ends;
   for ( const auto & hop : inUse( intf.underlay, *route ) ) {
      // Packets of a tunnel do not go through tunnels.
      if ( hop.tunnel != 0 ) continue;
      ends.insert( permitted( intf.out, packet ) ? toNeighbor( hop.ethernet, hop.addr, outer ) : ModelEnd() );
   }
   return ends;
}

ModelEnd RouterModel::toNeighbor( int ethernet, uint32_t addr, const ModelPacket & packet ) const {
   const auto end = toRouter( ethernet, packet );
   if ( end.kind == ModelEnd::Kind::dropped || !neighbors_.contains( { ethernet, addr } ) ) return end;
   return { ModelEnd::Kind::sent, ethernet, addr };
}

ModelEnd RouterModel::toRouter( int ethernet, const ModelPacket & packet ) const {
   if ( !permitted( ethernets_.at( ethernet ).out, packet ) ) return {};
   return { ModelEnd::Kind::local };
}

} // namespace Test
