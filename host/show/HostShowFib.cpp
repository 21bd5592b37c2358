// show fib: the routes that the agent has put into the data plane, with their FECs. Asked of the data plane itself, the
// same routes come from its table.

#include "HostAgentText.h"
#include "HostAgentView.h"
#include "HostLookup.h"
#include "HostShows.h"
#include "HostSortedRuns.h"
#include "HulL3Status.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

struct FibKey {
   U32 vrfId;
   Kynet::Prefix prefix;
   friend auto operator<=>( const FibKey &, const FibKey & ) = default;
};

// Nothing, when the agent has no such route in the data plane.
Json fibRowOf( const AgentView & session, const FibKey & key ) {
   Json row{ { "vrf", vrfName( session, Hul::VrfId( key.vrfId ) ) }, { "prefix", key.prefix.stringValue() } };
   const auto routeDb = session.routeDb();
   if ( const auto & route = routeDb->route( Hul::VrfAndIpGenPrefix( Hul::VrfId( key.vrfId ), key.prefix ) ) ) {
      row[ "fec" ] = route->fecKey().value();
      const auto & fec = routeDb->fec( route->fecKey() );
      row[ "nexthops" ] = fec ? nexthopsOf( session, *fec ) : Json::array();
      const auto state = session.agent()->hulVrfRootSm()->routeState( Hul::VrfId( key.vrfId ), key.prefix );
      row[ "state" ] = state.progress.stringValue();
      if ( !state.reason.empty() ) row[ "reason" ] = state.reason;
      return row;
   }
   for ( const auto & route : builtInRoutes( session, Hul::VrfId( key.vrfId ) ) ) {
      if ( route.prefix != key.prefix ) continue;
      row[ "fec" ] = route.fecKey.value();
      row[ "builtIn" ] = route.what;
      row[ "nexthops" ] = Json::array();
      if ( !!route.gate ) row[ "nexthops" ].push_back( { { "gate", route.gate.value() } } );
      return row;
   }
   return {};
}

// Gathers the keys of a VRF's routes through the slots of the FIB that the protocols fill: a walk over it may pause.
class WholeFib : public Answer {
 public:
   WholeFib( const AgentView & session, const std::vector< std::pair< U32, std::string > > & vrfs ) :
        session_( session ) {
      for ( const auto & [ vrfId, name ] : vrfs ) {
         vrfs_.insert( vrfId );
         for ( const auto & route : builtInRoutes( session, Hul::VrfId( vrfId ) ) )
            keys_.add( { vrfId, route.prefix } );
      }
   }

   Step step( Output & out ) override {
      if ( !gathered_ ) return gather();
      while ( !keys_.empty() && !out.full() ) {
         const auto key = keys_.take();
         if ( key == last_ ) continue; // a route over a built-in one
         last_ = key;
         if ( const auto row = fibRowOf( session_, key ); !row.is_null() ) out.row( row );
      }
      return keys_.empty() ? Step::done : Step::more;
   }

 private:
   Step gather() {
      const auto fib = session_.routing().routeStatus();
      const U32 end = std::min( fib->slots(), slot_ + slotsAtOnce );
      for ( ; slot_ < end; ++slot_ ) {
         if ( !fib->slotHas( slot_ ) ) continue;
         const auto ref = fib->refAt( slot_ );
         if ( vrfs_.contains( ref.vrfId ) ) keys_.add( { ref.vrfId, ref.prefix } );
      }
      if ( slot_ >= fib->slots() ) {
         keys_.close();
         gathered_ = true;
      }
      return Step::more;
   }

   static constexpr U32 slotsAtOnce = 16384;
   const AgentView session_;
   std::set< U32 > vrfs_;
   SortedRuns< FibKey > keys_;
   U32 slot_ = 0;
   bool gathered_ = false;
   std::optional< FibKey > last_;
};

// The longest match, or the prefix itself, among the routes that are in the data plane.
Json match( const AgentView & session, U32 vrfId, const Target & target ) {
   const auto address = target.address.v4Addr();
   const int from = target.len.value_or( 32 ), to = target.len.value_or( 0 );
   for ( int len = from; len >= to; --len ) {
      const Kynet::Prefix mask( {}, static_cast< U8 >( len ) );
      const Kynet::Prefix prefix( Kynet::IpAddr( address.value() & mask.mask() ), static_cast< U8 >( len ) );
      if ( auto row = fibRowOf( session, { vrfId, prefix } ); !row.is_null() ) return row;
   }
   return {};
}

void fibMatches( const AgentView & session, const std::string & vrf, const std::string & text, Output & out ) {
   const auto target = targetOf( text );
   const bool v4 = target.address.af() == Kynet::AddressFamily::ipv4_;
   bool found = false;
   for ( const auto & [ vrfId, name ] : vrfsOf( session, vrf ) ) {
      const auto row = v4 ? match( session, vrfId, target ) : Json();
      if ( row.is_null() ) continue;
      out.row( row );
      found = true;
   }
   if ( found ) return;
   const auto where = vrf == "all" ? "any VRF" : "VRF " + ( vrf.empty() ? "default" : vrf );
   throw CommandError( ErrorCode::notFound, v4 ? "no route to " + text + " in " + where
                                               : "the data plane holds no IPv6 routes, so none to " + text );
}

std::unique_ptr< Answer > fib( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto vrf = asked.question.text( "vrf" ), text = asked.question.text( "match" );
   if ( asked.question.flag( "dataplane" ) )
      return text.empty() ? fibText( asked, vrf ) : dataPlaneLookup( asked, vrf, text );
   if ( text.empty() ) return std::make_unique< WholeFib >( session, vrfsOf( session, vrf ) );
   return atOnce( [ session, vrf, text ]( Output & out ) { fibMatches( session, vrf, text, out ); } );
}

} // namespace

Commands fibShows() {
   return { { "show fib", { { "vrf" }, { "match" }, { "dataplane", Parameter::Kind::flag } }, fib } };
}

} // namespace Host
