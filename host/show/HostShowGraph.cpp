// show modules, show graph: the proxies, which stand for the modules of the data plane.

#include "HostAgentView.h"
#include "HostShows.h"

namespace Host {

namespace {

using Vex::VexModule;

std::unique_ptr< Answer > perModule( const Asked & asked, const std::function< Json( const Vex::Module & ) > & rowOf ) {
   const AgentView session( asked.daemon );
   return perKey< std::string >(
        [ session ] {
           std::vector< std::string > names;
           for ( const auto & [ name, module ] : session.modules() ) names.push_back( name );
           return names;
        },
        [ session, rowOf ]( const std::string & name, Output & out ) {
           for ( const auto & [ pairName, pair ] :
                 session.vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIterator() ) {
              const auto & modules = pair->moduleConfig()->modules();
              if ( const auto at = modules.find( name ); at != modules.end() ) out.row( rowOf( *at->second ) );
           }
        } );
}

Json moduleRow( const Vex::Module & module ) {
   size_t sources = 0;
   for ( const auto & [ gate, peers ] : module.inGate() ) sources += peers.size();
   return { { "module", module.name() },
            { "class", VexModule::name( module.moduleClass() ) },
            { "group", module.modulePair()->name() },
            { "inputs", sources },
            { "outputs", module.outGate().size() },
            { "counters", module.inUseCounters() } };
}

Json graphRow( const Vex::Module & module ) {
   Json row{ { "module", module.name() }, { "class", VexModule::name( module.moduleClass() ) } };
   row[ "to" ] = Json::array();
   for ( const auto & [ gate, connection ] : module.outGate() )
      row[ "to" ].push_back( { { "gate", gate.value() },
                               { "module", connection.peer->name() },
                               { "inputGate", connection.inGate.value() } } );
   return row;
}

} // namespace

Commands graphShows() {
   return { { "show modules", {}, []( const Asked & asked ) { return perModule( asked, moduleRow ); } },
            { "show graph", {}, []( const Asked & asked ) { return perModule( asked, graphRow ); } } };
}

} // namespace Host
