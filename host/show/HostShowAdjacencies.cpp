// show adjacencies: the ways out that routes share, and their FECs. show nexthops: the entries of the interfaces'
// next-hop tables that those FECs take.

#include "HostAgentText.h"
#include "HostAgentView.h"
#include "HostShows.h"
#include "HulAdjSm.h"
#include "HulL3Status.h"
#include "HulVrfRootSm.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

std::vector< FecKey > fecKeys( const AgentView & session ) {
   auto keys = session.routeDb()->fecKeys();
   std::sort( keys.begin(), keys.end() );
   return keys;
}

Json viaOf( const Hul::NextHop & nextHop, U32 multiplicity ) {
   Json via{ { "kind", nextHop.type().stringValue() } };
   if ( !!nextHop.l3Intf() ) via[ "interface" ] = nextHop.l3Intf().stringValue();
   if ( !!nextHop.staticInterfaceTunnelIntfId() ) via[ "tunnel" ] = nextHop.staticInterfaceTunnelIntfId().stringValue();
   if ( !!nextHop.macAddr() ) via[ "mac" ] = nextHop.macAddr().stringValue();
   if ( multiplicity != 1 ) via[ "weight" ] = multiplicity;
   return via;
}

// What the data plane said of the adjacency, which is of its FEC and next hops too.
void stateOf( const AgentView & session, U64 adjIndex, Json & row ) {
   const auto adjSm = session.agent()->hulVrfRootSm()->hulAdjSm();
   if ( !adjSm ) return;
   const auto said = adjSm->state( adjIndex );
   row[ "programmed" ] = said.progress == Hul::RouteProgress::programmed_;
   row[ "state" ] = said.progress.stringValue();
   if ( !said.reason.empty() ) row[ "reason" ] = said.reason;
}

void adjacencyRow( const AgentView & session, FecKey key, Output & out ) {
   const auto routeDb = session.routeDb();
   const auto fec = routeDb->fec( key );
   if ( !fec ) return;
   const auto adjKey = routeDb->fecToAdjIdx( key );
   Json row{ { "adjacency", adjKey.index() },
             { "fec", key.value() },
             { "version", fec->version().value() },
             { "routes", fec->lpmRoutes() } };
   stateOf( session, adjKey.index(), row );
   row[ "via" ] = Json::array();
   if ( const auto & adj = session.agent()->hulL3Status()->l2AdjList( adjKey ) )
      for ( const auto & [ nextHop, multiplicity ] : adj->via() )
         row[ "via" ].push_back( viaOf( nextHop, multiplicity ) );
   out.row( row );
}

void nexthopRows( const AgentView & session, FecKey key, Kynet::IntfId wanted, Output & out ) {
   const auto fec = session.routeDb()->fec( key );
   if ( !fec ) return;
   for ( U32 slot = 0; slot < fec->info().numberOfUniqueNextHops(); ++slot ) {
      const auto & hop = fec->info().nextHop( slot );
      if ( !!wanted && hop.intf() != wanted ) continue;
      Json row{ { "interface", hop.intf().stringValue() },
                { "index", hop.nhLocalIndex() },
                { "command", commandName( hop.pktCmd() ) },
                { "mac", textOrNone( hop.ethAddr() ) },
                { "fec", key.value() } };
      if ( !!hop.tunnelIntf() ) row[ "tunnel" ] = hop.tunnelIntf().stringValue();
      stateOf( session, session.routeDb()->fecToAdjIdx( key ).index(), row );
      out.row( row );
   }
}

std::unique_ptr< Answer > adjacencies( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return perKey< FecKey >( [ session ] { return fecKeys( session ); },
                            [ session ]( const FecKey & key, Output & out ) { adjacencyRow( session, key, out ); } );
}

std::unique_ptr< Answer > nexthops( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto name = asked.question.text( "interface" );
   if ( asked.question.flag( "dataplane" ) ) return nexthopText( asked, name );
   const auto wanted = name.empty() ? Kynet::IntfId() : intfOf( name );
   if ( !name.empty() && !session.vexcsd()->l2IntfHas( wanted ) )
      throw CommandError( ErrorCode::notFound, "there is no interface " + wanted.stringValue() );
   return perKey< FecKey >(
        [ session, wanted ] {
           const auto & set = session.routeDb()->intfToFecSet( wanted );
           if ( !wanted ) return fecKeys( session );
           std::vector< FecKey > keys;
           if ( set )
              for ( const auto & fec : set->fecIterator() ) keys.push_back( fec->key() );
           return keys;
        },
        [ session, wanted ]( const FecKey & key, Output & out ) { nexthopRows( session, key, wanted, out ); } );
}

} // namespace

Commands adjacencyShows() {
   return { { "show adjacencies", {}, adjacencies },
            { "show nexthops", { { "interface" }, { "dataplane", Parameter::Kind::flag } }, nexthops } };
}

} // namespace Host
