// show counters: what the modules count, read from the table that the data plane writes.

#include "HostCounterTable.h"
#include "HostShows.h"

namespace Host {

CounterTable counterTable( const AgentView & session ) {
   if ( CounterTable agents = session.agent()->counterMirel(); agents && agents->mapped() ) return agents;
   const auto own = Gant::make< VexModules::MirelCounterDbStatus >();
   const auto & path = session.channel()->counterPath();
   return !path.empty() && own->map( path ).empty() ? CounterTable( own ) : nullptr;
}

Json valueOf( const CounterTable & table, Vex::CounterId id ) {
   return table ? Json( table->mirelCount( VexModules::MirelCounterId( id.value() ) ).count().value() ) : Json();
}

namespace {

// Counters are allocated as "module-name".
std::string shortName( const Vex::BessCounterInfo::Counter & counter ) {
   const auto prefix = counter.module + "-";
   return counter.name.starts_with( prefix ) ? counter.name.substr( prefix.size() ) : counter.name;
}

std::unique_ptr< Answer > counters( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto table = counterTable( session );
   const auto wanted = asked.question.text( "module" );
   const bool nonZero = asked.question.flag( "nonzero" );
   if ( !wanted.empty() && !session.modules().contains( wanted ) )
      throw CommandError( ErrorCode::notFound, "there is no module " + wanted );
   return perKey< Vex::CounterId >(
        [ session ] { return Gant::keysOf( session.vexcsd()->bessCounterInfo()->counterIterator() ); },
        [ = ]( const Vex::CounterId & id, Output & out ) {
           const auto & all = session.vexcsd()->bessCounterInfo()->counterIterator();
           const auto at = all.find( id );
           if ( at == all.end() || ( !wanted.empty() && at->second.module != wanted ) ) return;
           auto value = valueOf( table, id );
           if ( nonZero && ( value.is_null() || value == 0 ) ) return;
           out.row( { { "module", at->second.module },
                      { "counter", shortName( at->second ) },
                      { "slot", id.value() },
                      { "value", std::move( value ) } } );
        } );
}

} // namespace

Commands counterShows() {
   return { { "show counters", { { "module" }, { "nonzero", Parameter::Kind::flag } }, counters } };
}

} // namespace Host
