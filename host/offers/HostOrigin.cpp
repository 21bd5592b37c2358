#include "HostOrigin.h"

#include <algorithm>
#include <limits>

namespace Host {

namespace {

constexpr U8 distanceOfStatic = 1, distanceOfNeighbor = 254;

struct RoutingProtocol {
   U8 number;
   const char * name;
   U8 distance;
};
// By rtnetlink and FRR. A kernel's route of no routing protocol is somebody's static one. BIRD does not say by which
// protocol it knows a route.
constexpr std::array< RoutingProtocol, 25 > protocols{ {
     { 1, "redirect", 250 },  { 2, "kernel", 1 },   { 3, "boot", 1 },           { 4, "static", 1 },
     { 9, "ra", 1 },          { 11, "zebra", 1 },   { 12, "bird", 20 },         { 16, "dhcp", 1 },
     { 18, "keepalived", 1 }, { 42, "babel", 100 }, { 99, "openr", 115 },       { 186, "bgp", 20 },
     { 187, "isis", 115 },    { 188, "ospf", 110 }, { 189, "rip", 120 },        { 190, "ripng", 120 },
     { 191, "nhrp", 10 },     { 192, "eigrp", 90 }, { 193, "ldp", 1 },          { 194, "sharp", 150 },
     { 195, "pbr", 200 },     { 196, "static", 1 }, { 197, "openfabric", 115 }, { 198, "srte", 255 },
     { 10, "mrt", 250 },
} };

const RoutingProtocol * protocolOf( U8 number ) {
   const auto * const at = std::ranges::find( protocols, number, &RoutingProtocol::number );
   return at == protocols.end() ? nullptr : at;
}

U8 distanceOf( Teller teller ) {
   if ( teller == Teller::connected_ ) return 0;
   return teller == Teller::neighbor_ ? distanceOfNeighbor : distanceOfStatic;
}

} // namespace

const char * textOfTeller( Teller teller ) {
   switch ( teller.value() ) {
   case Teller::none_: return "nobody";
   case Teller::connected_: return "an interface's address";
   case Teller::command_: return "a command";
   case Teller::description_: return "the description";
   case Teller::routeFile_: return "the route file";
   case Teller::neighbor_: return "a neighbour";
   case Teller::kernel_: return "the kernel";
   case Teller::fpm_: return "FPM";
   }
   return "nobody";
}

const char * nameOfTeller( Teller teller ) {
   switch ( teller.value() ) {
   case Teller::none_: return "none";
   case Teller::connected_: return "connected";
   case Teller::command_: return "command";
   case Teller::description_: return "description";
   case Teller::routeFile_: return "route-file";
   case Teller::neighbor_: return "neighbor";
   case Teller::kernel_: return "kernel";
   case Teller::fpm_: return "fpm";
   }
   return "none";
}

std::string nameOfProtocol( U8 protocol ) {
   if ( protocol == 0 ) return {};
   const auto * const known = protocolOf( protocol );
   return known == nullptr ? std::to_string( protocol ) : known->name;
}

U8 distanceOfProtocol( U8 protocol ) {
   const auto * const known = protocolOf( protocol );
   return known == nullptr ? 250 : known->distance;
}

Origins::Origins() {
   origins_.emplace_back();
   ranks_.push_back( std::numeric_limits< U64 >::max() );
   for ( U8 number = 1; number < tellers; ++number ) {
      const Teller teller( number );
      own_[ number ] = id( { teller, 0, distanceOf( teller ), 0 } );
   }
}

OriginId Origins::id( const Origin & origin ) {
   if ( const auto at = ids_.find( origin ); at != ids_.end() ) return at->second;
   if ( origins_.size() > std::numeric_limits< OriginId >::max() ) return 0;
   const auto id = static_cast< OriginId >( origins_.size() );
   origins_.push_back( origin );
   ranks_.push_back( U64( origin.distance ) << 40 | U64( origin.metric ) << 8 | origin.teller.value() );
   ids_[ origin ] = id;
   return id;
}

} // namespace Host
