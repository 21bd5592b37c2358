#include "DpListing.h"

#include "DpRegistry.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <tuple>

namespace Vexdp {

using namespace bess::pb;

namespace {

template < class Gate >
void fillCounters( const GateCounters & counters, Gate & gate ) {
   gate.set_cnt( counters.batches );
   gate.set_pkts( counters.packets );
   gate.set_bytes( counters.bytes );
   gate.set_timestamp( counters.timestamp );
}

// What leads to a module, by its input gate, then by the other's name and gate.
struct Upstream {
   GateId igate;
   std::string_view name;
   GateId ogate;
   auto operator<=>( const Upstream & ) const = default;
};

std::vector< Upstream > upstreamOf( const Module & module ) {
   std::vector< Upstream > upstream;
   for ( const auto & [ from, ogate ] : module.upstream() )
      upstream.push_back( { from->ogates()[ ogate ].igate, from->name(), ogate } );
   std::ranges::sort( upstream );
   return upstream;
}

void fillInputGates( const Module & module, GetModuleInfoResponse & response ) {
   GetModuleInfoResponse::IGate * gate = nullptr;
   for ( const auto & from : upstreamOf( module ) ) {
      if ( gate == nullptr || gate->igate() != from.igate ) {
         gate = response.add_igates();
         gate->set_igate( from.igate );
         fillCounters( module.counters( false, from.igate ), *gate );
      }
      auto & ogate = *gate->add_ogates();
      ogate.set_ogate( from.ogate );
      ogate.set_name( std::string( from.name ) );
   }
}

void fillOutputGates( const Module & module, GetModuleInfoResponse & response ) {
   for ( GateId id = 0; id < module.ogates().size(); ++id ) {
      const auto & from = module.ogates()[ id ];
      if ( from.peer == nullptr ) continue;
      auto & gate = *response.add_ogates();
      gate.set_ogate( id );
      fillCounters( module.counters( true, id ), gate );
      gate.set_name( from.peer->name() );
      gate.set_igate( from.igate );
   }
}

} // namespace

void listClasses( ListMclassResponse & response ) {
   for ( const auto * mclass : moduleClasses() ) response.add_names( mclass->name );
}

Outcome describeClass( const std::string & name, GetMclassInfoResponse & response ) {
   const auto * mclass = findModuleClass( name );
   if ( mclass == nullptr ) return refuse( ENOENT, "no such module class" );
   response.set_name( mclass->name );
   response.set_help( mclass->help );
   for ( const auto & command : mclass->commands ) {
      response.add_cmds( command.name );
      response.add_cmd_args( typeName( *command.arg ) );
   }
   return {};
}

void listModules( const Graph & graph, ListModulesResponse & response ) {
   for ( const auto & [ name, module ] : graph.modules() ) {
      auto & listed = *response.add_modules();
      listed.set_name( name );
      listed.set_mclass( module->mclass().name );
      listed.set_desc( module->desc() );
   }
}

Outcome describeModule( const Graph & graph, const std::string & name, GetModuleInfoResponse & response ) {
   const auto * module = graph.find( name );
   if ( module == nullptr ) return refuse( ENOENT, "no such module" );
   response.set_name( name );
   response.set_mclass( module->mclass().name );
   response.set_desc( module->desc() );
   fillInputGates( *module, response );
   fillOutputGates( *module, response );
   response.set_deadends( module->deadEnds() );
   return {};
}

namespace {
// "no route to ... in VRF ..."
std::string inWords( std::string_view format ) {
   std::string words;
   for ( std::size_t i = 0; i < format.size(); ++i ) {
      const auto end = format[ i ] == '{' ? format.find( '}', i ) : std::string_view::npos;
      words += end == std::string_view::npos ? std::string( 1, format[ i ] ) : "...";
      if ( end != std::string_view::npos ) i = end;
   }
   return words;
}
} // namespace

void listDrops( const Graph & graph, vex::pb::DropsReply & reply ) {
   for ( const auto & [ name, module ] : graph.modules() ) {
      // A text may stand at several places.
      std::map< std::string, std::uint64_t > drops;
      for ( const auto & drop : module->drops() ) drops[ inWords( drop.reason ) ] += drop.packets;
      for ( const auto & [ reason, packets ] : drops ) {
         auto & drop = *reply.add_drop();
         drop.set_module( name );
         drop.set_reason( reason );
         drop.set_packets( packets );
      }
   }
}

void listGates( const Graph & graph, vex::pb::GatesReply & reply ) {
   for ( const auto & [ name, module ] : graph.modules() )
      for ( GateId id = 0; id < module->ogates().size(); ++id ) {
         const auto & from = module->ogates()[ id ];
         if ( from.peer == nullptr ) continue;
         auto & gate = *reply.add_gate();
         gate.set_module( name );
         gate.set_mclass( module->mclass().name );
         gate.set_ogate( id );
         gate.set_to( from.peer->name() );
         gate.set_igate( from.igate );
         const auto counters = module->counters( true, id );
         gate.set_packets( counters.packets );
         gate.set_bytes( counters.bytes );
      }
}

} // namespace Vexdp
