#include "HostTestRouter.h"

#include "HostAgent.h"
#include "VexKyAclDb.h"

#include <algorithm>

namespace Test {

const char * const twoPorts = R"(
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24, mac: 02:00:00:00:00:01}
  - {name: Ethernet2, addresses: 10.0.2.1/24, mac: 02:00:00:00:00:02}
neighbors:
  - {interface: Ethernet1, address: 10.0.1.2, mac: 02:00:00:00:01:02}
  - {interface: Ethernet2, address: 10.0.2.2, mac: 02:00:00:00:02:02}
)";

HostedState::HostedState() :
     sources_( state, { directory.path( "router.yaml" ), {} }, [ this ]( const Host::SourceError & error ) {
        errors_.push_back( error.stringValue().substr( directory.path( "" ).size() ) );
     } ) {
   directory.write( "routes", "# none\n" );
}

Lines HostedState::describe( const std::string & yaml ) {
   directory.write( "router.yaml", yaml );
   return load();
}

Lines HostedState::routeFile( const std::string & text ) {
   directory.write( "routes", text );
   return load();
}

Lines HostedState::load() {
   sources_.load();
   // Steps as small as they get: every order of the phases is seen.
   while ( sources_.step( 1 ) ) {
   }
   return std::exchange( errors_, {} );
}

std::string HostedState::change( const std::string & text ) {
   const auto space = text.find( ' ' ), second = text.find( ' ', space + 1 );
   const auto word = text.substr( 0, space );
   const auto op = word == "add" ? Host::ChangeOp::add : word == "del" ? Host::ChangeOp::del : Host::ChangeOp::replace;
   const auto result =
        Host::applyChange( state, op, text.substr( space + 1, second - space - 1 ), text.substr( second + 1 ) );
   return result.message;
}

Lines HostedState::routes( const std::string & teller ) const {
   Lines lines;
   const auto & fib = *state.tree().fib;
   for ( U32 slot = 0; slot < fib.slots(); ++slot ) {
      if ( !fib.slotHas( slot ) ) continue;
      const auto ref = fib.refAt( slot );
      const auto route = fib.routeAt( slot );
      auto line = ref.prefix.stringValue() + " " + route.routeType().stringValue();
      if ( ref.vrfId != 0 ) line = state.vrfBook().name( ref.vrfId ).value() + " " + line;
      for ( const auto & via : *fib.fec( route.fecId() ) ) {
         if ( via.hopHas() ) line += " " + via.hop().stringValue();
         if ( !!via.intfId() ) line += ( via.hopHas() ? "%" : " " ) + via.intfId().stringValue();
         if ( via.weight() != 1 ) line += "*" + std::to_string( via.weight() );
      }
      const auto by = Host::tellerOf( route ).stringValue();
      if ( teller.empty() || by == teller ) lines.push_back( line + " (" + by + ")" );
   }
   std::ranges::sort( lines );
   return lines;
}

void HostedRouter::start() {
   if ( !vexcsd->kyAclDb() ) vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( enginePair ) );
   ports = Gant::make< Host::PortSm >( state.tree().portDir, vexcsd, enginePair );
   session = nullptr;
   session = std::make_unique< Host::SessionState >( state.tree() );
   agent = Host::agentOver( state.tree(), *session, vexcsd );
   agent->initializedIs( true );
   agent->maybeStartProcessing();
}

HostedRouter::~HostedRouter() {
   agent = nullptr;
   ports = nullptr;
}

Lines HostedRouter::drained() {
   while ( Gant::activityManager()->poll() != 0 ) {
   }
   return take();
}

} // namespace Test
