#include "DpFibIpv4.h"

#include "DpIpv4.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {

using FibCounter = FibIpv4CounterIdArg;
constexpr GateId kForRouter = 0;

template < class Length >
Outcome prefixFrom( std::uint32_t addr, Length len, Ipv4Prefix & prefix ) {
   if ( len > 32 ) return refuse( EINVAL, "prefix {}/{} has a length over 32", Ipv4Addr{ addr }, len );
   prefix = { { addr }, std::uint8_t( len ) };
   if ( ( addr & ~maskOf( prefix.len ) ) != 0 ) return refuse( EINVAL, "prefix {} has host bits set", prefix );
   return {};
}

Outcome noRoomForFec( std::uint32_t id ) {
   return refuse( ENOSPC, "no room for FEC {}, {} are there", id, Lpm::kMostValues );
}

Outcome noVrf( std::uint32_t vrf ) { return refuse( ENOENT, "there is no VRF {}", vrf ); }

// A capacity that the init message gives, from 1 to the most that is possible.
Outcome requireCapacity( const char * field, bool present, std::uint32_t value, std::uint32_t most ) {
   if ( present && value == 0 ) return refuse( ERANGE, "{} 0 leaves no room", field );
   return requireAtMost( field, value, most );
}

} // namespace

const ModuleClass & FibIpv4::moduleClass() {
   static const ModuleClass self = describe< FibIpv4, FibIpv4Arg >(
        "FibIpv4", "IPv4 forwarding: longest match of the destination in the packet's VRF, then one member of the FEC",
        { .igates = kMaxGates, .ogates = kMaxGates },
        { command< &FibIpv4::addRoute, &FibIpv4::expect >( "addRoute" ),
          command< &FibIpv4::delRoute, &FibIpv4::expect >( "delRoute" ), command< &FibIpv4::addFec >( "addFec" ),
          command< &FibIpv4::delFec >( "delFec" ), command< &FibIpv4::addVrf >( "addVrf" ),
          command< &FibIpv4::delVrf >( "delVrf" ), command< &FibIpv4::showFib >( "showFib" ),
          command< &FibIpv4::setCounterIds >( "setCounterIds" ) } );
   return self;
}

Outcome FibIpv4::check( const FibIpv4Arg & init ) {
   return requireCapacity( "max_rules", init.has_max_rules(), init.max_rules(), Limits::kMostRoutes );
}

FibIpv4::FibIpv4( Identity identity, const FibIpv4Arg & init ) :
     Module( std::move( identity ) ), maxRoutes_( graph().limits().routes ) {
   if ( init.max_rules() > maxRoutes_ )
      spdlog::warn( "{} is to hold {} routes, and the limit is {}", name(), init.max_rules(), maxRoutes_ );
}

Lpm * FibIpv4::table( std::uint32_t vrf ) const {
   const auto at = vrfs_.find( vrf );
   return at == vrfs_.end() ? nullptr : at->second.get();
}

const FibIpv4::Fec * FibIpv4::fec( std::uint32_t id ) const {
   const auto at = slots_.find( id );
   return at == slots_.end() || !places_[ at->second ].there ? nullptr : &places_[ at->second ].fec;
}

std::optional< FibIpv4::Slot > FibIpv4::slotOf( std::uint32_t id ) {
   const auto [ at, added ] = slots_.try_emplace( id );
   if ( !added ) return at->second;
   if ( freeSlots_.empty() && places_.size() >= Lpm::kMostValues ) {
      slots_.erase( at );
      return std::nullopt;
   }
   if ( freeSlots_.empty() ) {
      freeSlots_.push_back( Slot( places_.size() ) );
      places_.emplace_back();
   }
   at->second = freeSlots_.back();
   freeSlots_.pop_back();
   places_[ at->second ].id = id;
   return at->second;
}

void FibIpv4::routeGone( Slot slot ) {
   --places_[ slot ].routes;
   freeUnused( slot );
}

void FibIpv4::freeUnused( Slot slot ) {
   auto & place = places_[ slot ];
   if ( place.there || place.routes != 0 ) return;
   slots_.erase( place.id );
   place.id = 0;
   freeSlots_.push_back( slot );
}

Outcome FibIpv4::addVrf( const FibIpv4VrfArg & arg ) {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" } } ); !out.ok() ) return out;
   if ( table( arg.vrf() ) != nullptr ) return refuse( EEXIST, "VRF {} is there already", arg.vrf() );
   if ( vrfs_.size() >= kMaxVrfs ) return refuse( ENOSPC, "no room for VRF {}, {} are there", arg.vrf(), kMaxVrfs );
   vrfs_.emplace( arg.vrf(), std::make_unique< Lpm >( pool_ ) );
   return {};
}

Outcome FibIpv4::delVrf( const FibIpv4VrfArg & arg ) {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" } } ); !out.ok() ) return out;
   const auto at = vrfs_.find( arg.vrf() );
   if ( at == vrfs_.end() ) return noVrf( arg.vrf() );
   routes_ -= at->second->size();
   for ( const auto & route : at->second->routes() ) routeGone( route.value );
   vrfs_.erase( at );
   return {};
}

void FibIpv4::expect( const FibIpv4RouteArg & arg ) const {
   Ipv4Prefix prefix;
   if ( auto * const routes = table( arg.vrf() ); routes && prefixFrom( arg.prefix(), arg.prefix_len(), prefix ).ok() )
      routes->expect( prefix );
}

Outcome FibIpv4::addRoute( const FibIpv4RouteArg & arg ) {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" },
                                    { arg.has_prefix(), "prefix" },
                                    { arg.has_prefix_len(), "prefix_len" },
                                    { arg.has_fec_id(), "fec_id" } } );
        !out.ok() )
      return out;
   Ipv4Prefix prefix;
   if ( auto out = prefixFrom( arg.prefix(), arg.prefix_len(), prefix ); !out.ok() ) return out;
   auto * routes = table( arg.vrf() );
   if ( routes == nullptr ) return noVrf( arg.vrf() );

   const auto slot = slotOf( arg.fec_id() );
   if ( !slot ) return noRoomForFec( arg.fec_id() );
   Slot was = 0;
   switch ( routes->insert( prefix, *slot, routes_ < maxRoutes_, &was ) ) {
   case Lpm::Insert::full:
      freeUnused( *slot );
      return refuse( ENOSPC, "no room for prefix {} of VRF {}, the table is full with {} routes", prefix, arg.vrf(),
                     routes_ );
   case Lpm::Insert::added:
      ++routes_;
      ++places_[ *slot ].routes;
      break;
   case Lpm::Insert::replaced:
      ++places_[ *slot ].routes;
      routeGone( was );
      break;
   }
   return {};
}

Outcome FibIpv4::delRoute( const FibIpv4RouteArg & arg ) {
   if ( auto out = requireFields(
             { { arg.has_vrf(), "vrf" }, { arg.has_prefix(), "prefix" }, { arg.has_prefix_len(), "prefix_len" } } );
        !out.ok() )
      return out;
   Ipv4Prefix prefix;
   if ( auto out = prefixFrom( arg.prefix(), arg.prefix_len(), prefix ); !out.ok() ) return out;
   auto * routes = table( arg.vrf() );
   if ( routes == nullptr ) return noVrf( arg.vrf() );
   Slot was = 0;
   if ( !routes->remove( prefix, &was ) ) return refuse( ENOENT, "there is no prefix {} in VRF {}", prefix, arg.vrf() );
   --routes_;
   routeGone( was );
   return {};
}

Outcome FibIpv4::addFec( const FibIpv4FecArg & arg ) {
   if ( auto out = requireFields( { { arg.has_fec_id(), "fec_id" } } ); !out.ok() ) return out;
   Fec fec;
   fec.reserve( std::size_t( arg.nh_info_size() ) );
   for ( const auto & info : arg.nh_info() ) {
      if ( auto out = requireFields( { { info.has_gate(), "nh_info.gate" } } ); !out.ok() ) return out;
      if ( auto out = requireGate( "nh_info.gate", info.gate(), mclass().gates.ogates ); !out.ok() ) return out;
      fec.push_back( { info.gate(), {} } );
      if ( info.has_nh_index() ) fec.back().nhIndex = info.nh_index();
   }
   const auto slot = slotOf( arg.fec_id() );
   if ( !slot ) return noRoomForFec( arg.fec_id() );
   auto & place = places_[ *slot ];
   fecs_ += !place.there;
   place.fec = std::move( fec );
   place.there = true;
   return {};
}

Outcome FibIpv4::delFec( const FibIpv4FecArg & arg ) {
   if ( auto out = requireFields( { { arg.has_fec_id(), "fec_id" } } ); !out.ok() ) return out;
   const auto at = slots_.find( arg.fec_id() );
   if ( at == slots_.end() || !places_[ at->second ].there )
      return refuse( ENOENT, "there is no FEC {}", arg.fec_id() );
   const auto slot = at->second;
   places_[ slot ].there = false;
   places_[ slot ].fec = {};
   --fecs_;
   freeUnused( slot );
   return {};
}

Outcome FibIpv4::showFib( const FibIpv4ShowArg & arg, FibIpv4ReadFibResp & resp ) const {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" } } ); !out.ok() ) return out;
   const auto * lpm = table( arg.vrf() );
   if ( lpm == nullptr ) return noVrf( arg.vrf() );
   resp.set_cmd_action( "showFib" );
   if ( arg.has_cli_socket() ) resp.set_cli_socket( arg.cli_socket() );
   resp.set_vrf( arg.vrf() );

   auto routes = lpm->routes();
   std::ranges::sort( routes, {}, &Lpm::Route::prefix );
   std::vector< std::uint32_t > named;
   for ( const auto & route : routes ) {
      auto & info = *resp.add_fibinfo();
      info.set_prefix( fmt::format( "{}", route.prefix.addr ) );
      info.set_prefix_len( route.prefix.len );
      info.set_fec_id( places_[ route.value ].id );
      named.push_back( places_[ route.value ].id );
   }
   std::ranges::sort( named );
   named.erase( std::unique( named.begin(), named.end() ), named.end() );
   for ( const auto id : named ) {
      const auto * members = fec( id );
      if ( members == nullptr ) continue;
      auto & info = *resp.add_fecinfo();
      info.set_fec_id( id );
      for ( const auto & member : *members ) {
         auto & nh = *info.add_nh_info();
         nh.set_nh_index( member.nhIndex.value_or( 0 ) );
         nh.set_gate( member.gate );
      }
   }
   return {};
}

Fate FibIpv4::process( Packet & packet, Context & context ) {
   const auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   const auto * routes = table( packet.meta.vrf );
   if ( routes == nullptr )
      return context.drop( counters_[ FibCounter::kNoRouteCounterFieldNumber ], "there is no VRF {}", packet.meta.vrf );
   const auto dst = header->dst();
   Lpm::Match match;
   routes->lookup( { &dst, 1 }, &match );
   return processMatch( match, *header, packet, context );
}

// They came in by one interface, as a rule, and are of one VRF.
void FibIpv4::processAll( Packets packets, Context & context ) {
   const auto vrf = packets.front()->meta.vrf;
   const auto * routes = table( vrf );
   const auto alike = [ vrf ]( Packet * packet ) { return packet->meta.vrf == vrf && Ipv4Header::of( *packet ); };
   if ( routes == nullptr || !std::ranges::all_of( packets, alike ) ) return Module::processAll( packets, context );
   std::array< Ipv4Addr, Lpm::kMostAtOnce > addrs;
   std::array< Lpm::Match, Lpm::kMostAtOnce > matches;
   std::size_t done = 0;
   context.each( packets, [ & ]( Packet & packet ) {
      const auto at = done % matches.size();
      if ( at == 0 ) {
         const auto some = packets.subspan( done, std::min( packets.size() - done, matches.size() ) );
         for ( std::size_t i = 0; i < some.size(); ++i ) addrs[ i ] = Ipv4Header::of( *some[ i ] )->dst();
         routes->lookup( { addrs.data(), some.size() }, matches.data() );
         for ( std::size_t i = 0; i < some.size(); ++i )
            if ( matches[ i ].value != Lpm::kNoMatch ) __builtin_prefetch( &places_[ matches[ i ].value ] );
      }
      ++done;
      return processMatch( matches[ at ], *Ipv4Header::of( packet ), packet, context );
   } );
}

Fate FibIpv4::processMatch( Lpm::Match match, const Ipv4Header & header, Packet & packet, Context & context ) const {
   if ( match.value == Lpm::kNoMatch )
      return context.drop( counters_[ FibCounter::kNoRouteCounterFieldNumber ], "no route to {} in VRF {}",
                           header.dst(), packet.meta.vrf );
   const auto & place = places_[ match.value ];
   context.note( "longest match {} -> FEC {}", Ipv4Prefix{ { header.dst().value & maskOf( match.len ) }, match.len },
                 place.id );
   if ( !place.there )
      return context.drop( counters_[ FibCounter::kNoFecCounterFieldNumber ], "there is no FEC {}", place.id );
   return forwardBy( place.fec, place.id, header, packet, context );
}

Fate FibIpv4::forwardBy( const Fec & fec, std::uint32_t id, const Ipv4Header & header, Packet & packet,
                         Context & context ) {
   if ( fec.empty() ) return context.drop( kNoCounter, "FEC {} has no members", id );
   // The upper bits of the product spread a 32-bit hash over any number of members.
   const auto chosen =
        fec.size() == 1 ? 0 : std::size_t( std::uint64_t( Flow::of( header, packet ).hash() ) * fec.size() >> 32 );
   const auto & member = fec[ chosen ];
   packet.meta.nhIndex = member.nhIndex.value_or( 0 );
   if ( member.gate == kNoGate )
      return context.drop( kNoCounter, "member {} of {} has no gate", chosen + 1, fec.size() );
   if ( member.gate != kForRouter && !packet.meta.own ) {
      if ( const auto * why = martian( header.src(), header.dst() ) ) return context.drop( kNoCounter, "{}", why );
      if ( packet.meta.linkGroup && !header.dst().isMulticast() )
         return context.drop( kNoCounter, "it came in by a link-layer broadcast" );
   }
   context.note( "member {} of {} (gate {}, next hop {})", chosen + 1, fec.size(), member.gate, packet.meta.nhIndex );
   return context.forward( member.gate );
}

// Copied as they lie under the engine's lock, put in order when they are told.
struct FibIpv4::Snapshot {
   std::vector< std::pair< std::uint32_t, std::vector< Lpm::Route > > > vrfs;
   std::vector< std::uint32_t > ids; // of the FECs that routes name, by slot
   std::vector< std::pair< std::uint32_t, Fec > > fecs;
   CommandSource counters;

   void sort() {
      std::ranges::sort( vrfs, {}, []( const auto & vrf ) { return vrf.first; } );
      for ( auto & [ vrf, routes ] : vrfs ) std::ranges::sort( routes, {}, &Lpm::Route::prefix );
      std::ranges::sort( fecs, {}, []( const auto & fec ) { return fec.first; } );
   }

   void tell( CommandSink & sink ) const {
      counters( sink );
      for ( const auto & [ vrf, routes ] : vrfs ) {
         FibIpv4VrfArg arg;
         arg.set_vrf( vrf );
         sink.command( "addVrf", arg );
      }
      for ( const auto & [ vrf, routes ] : vrfs ) tellRoutes( vrf, routes, ids, sink );
      for ( const auto & [ id, fec ] : fecs ) tellFec( id, fec, sink );
   }

   static void tellRoutes( std::uint32_t vrf, const std::vector< Lpm::Route > & routes,
                           const std::vector< std::uint32_t > & ids, CommandSink & sink ) {
      FibIpv4RouteArg arg;
      arg.set_vrf( vrf );
      for ( const auto & route : routes ) {
         arg.set_prefix( route.prefix.addr.value );
         arg.set_prefix_len( route.prefix.len );
         arg.set_fec_id( ids[ route.value ] );
         sink.command( "addRoute", arg );
      }
   }

   static void tellFec( std::uint32_t id, const Fec & fec, CommandSink & sink ) {
      FibIpv4FecArg arg;
      arg.set_fec_id( id );
      for ( const auto & member : fec ) {
         auto & info = *arg.add_nh_info();
         info.set_gate( member.gate );
         if ( member.nhIndex ) info.set_nh_index( *member.nhIndex );
      }
      sink.command( "addFec", arg );
   }
};

CommandSource FibIpv4::commands() const {
   auto snapshot = std::make_shared< Snapshot >();
   for ( const auto & [ vrf, routes ] : vrfs_ ) snapshot->vrfs.emplace_back( vrf, routes->routes() );
   for ( const auto & place : places_ ) {
      snapshot->ids.push_back( place.id );
      if ( place.there ) snapshot->fecs.emplace_back( place.id, place.fec );
   }
   snapshot->counters = counters_.command();
   return [ snapshot ]( CommandSink & sink ) {
      snapshot->sort();
      snapshot->tell( sink );
   };
}

std::string FibIpv4::desc() const {
   return fmt::format( "{} of {} routes, {} VRFs, {} FECs", routes_, maxRoutes_, vrfs_.size(), fecs_ );
}

Outcome FibIpv4::lookup( const LookupRequest & request, LookupReply & reply ) const {
   const auto * routes = table( request.vrf() );
   if ( routes == nullptr ) return noVrf( request.vrf() );
   std::optional< Lpm::Route > route;
   if ( request.has_prefix_len() ) {
      Ipv4Prefix prefix;
      if ( auto out = prefixFrom( request.address(), request.prefix_len(), prefix ); !out.ok() ) return out;
      if ( const auto slot = routes->exact( prefix ) ) route = { prefix, *slot };
   } else {
      route = routes->lookup( { request.address() } );
   }
   reply.set_found( route.has_value() );
   if ( !route ) return {};
   reply.set_prefix( route->prefix.addr.value );
   reply.set_prefix_len( route->prefix.len );
   const auto id = places_[ route->value ].id;
   reply.set_fec_id( id );
   const auto * members = fec( id );
   reply.set_fec_found( members != nullptr );
   if ( members == nullptr ) return {};
   for ( const auto & member : *members ) {
      auto & info = *reply.add_nh_info();
      info.set_gate( member.gate );
      info.set_nh_index( member.nhIndex.value_or( 0 ) );
   }
   return {};
}

} // namespace Vexdp
