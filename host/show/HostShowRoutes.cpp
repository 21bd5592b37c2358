// show routes: what the router was told, and what has become of it. show pending: what waits, and for what.

#include "HostAgentView.h"
#include "HostRouterState.h"
#include "HostShows.h"
#include "HostSortedRuns.h"
#include "HulAclSm.h"
#include "HulIpsecConnectionTableSm.h"
#include "HulQosAclSm.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"

#include <limits>

namespace Host {

namespace {

struct Key {
   U32 vrfId;
   Kynet::IpGenPrefix prefix;
   friend bool operator<( const Key & a, const Key & b ) {
      return a.vrfId != b.vrfId ? a.vrfId < b.vrfId : a.prefix < b.prefix;
   }
};

Json viasOf( const Mirel::Vias * vias ) {
   auto out = Json::array();
   if ( vias == nullptr ) return out;
   for ( const auto & via : *vias ) {
      Json hop;
      if ( via.hopHas() ) hop[ "address" ] = via.hop().stringValue();
      if ( !!via.intfId() ) hop[ "interface" ] = via.intfId().stringValue();
      if ( via.weight() > 1 ) hop[ "weight" ] = via.weight();
      if ( via.kind() != Mirel::RouteType::forward_ ) hop[ "kind" ] = via.kind().stringValue();
      out.push_back( std::move( hop ) );
   }
   return out;
}

// Who offers it, and what decides between several.
void originFacts( const Origin & origin, bool stale, Json & row ) {
   row[ "source" ] = nameOfTeller( origin.teller );
   if ( origin.protocol != 0 ) row[ "protocol" ] = nameOfProtocol( origin.protocol );
   row[ "distance" ] = origin.distance;
   row[ "metric" ] = origin.metric;
   if ( stale ) row[ "stale" ] = true;
}

template < typename Book, typename Table, typename Prefix >
Json rowOf( const AgentView & session, const Book & book, const Table & table, const Key & key,
            const Prefix & prefix ) {
   const auto slot = table.slot( key.vrfId, prefix );
   if ( !slot ) return {};
   const auto route = table.routeAt( *slot );
   const Hul::VrfId vrfId( key.vrfId );
   Json row{ { "vrf", vrfName( session, vrfId ) },
             { "prefix", prefix.stringValue() },
             { "type", route.routeType().stringValue() } };
   const auto state = session.agent()->hulVrfRootSm()->routeState( vrfId, key.prefix );
   row[ "state" ] = state.progress.stringValue();
   row[ "holds" ] = true;
   if ( book.table().slot( key.vrfId, prefix ) == slot )
      originFacts( book.originAt( *slot ), book.staleAt( *slot ), row );
   if ( const auto & told = session.routeDb()->route( Hul::VrfAndIpGenPrefix( vrfId, key.prefix ) ) )
      row[ "fec" ] = told->fecKey().value();
   if ( !state.reason.empty() ) row[ "reason" ] = state.reason;
   row[ "via" ] = viasOf( table.fec( route.fecId() ) );
   return row;
}

// The offers that wait behind the one that holds.
template < typename Book, typename Prefix >
void waitingRows( const AgentView & session, const Book & book, const Key & key, const Prefix & prefix, Output & out ) {
   const auto offers = book.offers( key.vrfId, prefix );
   for ( size_t at = 1; at < offers.size(); ++at ) {
      const auto & offer = offers[ at ];
      Json row{ { "vrf", vrfName( session, Hul::VrfId( key.vrfId ) ) },
                { "prefix", prefix.stringValue() },
                { "type", Mirel::RouteType( offer.kind ).stringValue() },
                { "state", "waiting" },
                { "holds", false } };
      originFacts( book.originOf( offer ), book.stale( offer ), row );
      row[ "via" ] = viasOf( book.table().fec( offer.fecId ) );
      out.row( row );
   }
}

Json rowOf( const AgentView & session, const RouterState & state, const Key & key ) {
   const auto & routing = session.routing();
   if ( key.prefix.af() == Kynet::AddressFamily::ipv4_ )
      return rowOf( session, state.routes4(), *routing.routeStatus(), key, key.prefix.v4Prefix() );
   return rowOf( session, state.routes6(), *routing.route6Status(), key, key.prefix.v6Prefix() );
}

void waitingRows( const AgentView & session, const RouterState & state, const Key & key, Output & out ) {
   if ( key.prefix.af() == Kynet::AddressFamily::ipv4_ )
      waitingRows( session, state.routes4(), key, key.prefix.v4Prefix(), out );
   else
      waitingRows( session, state.routes6(), key, key.prefix.v6Prefix(), out );
}

class AllRoutes : public Answer {
 public:
   AllRoutes( const AgentView & session, const RouterState & state,
              const std::vector< std::pair< U32, std::string > > & vrfs ) :
        session_( session ),
        state_( state ) {
      for ( const auto & [ vrfId, name ] : vrfs ) vrfs_.insert( vrfId );
   }
   Step step( Output & out ) override {
      const auto & routing = session_.routing();
      if ( gathering_ == 4 ) return gather( *routing.routeStatus() );
      if ( gathering_ == 6 ) return gather( *routing.route6Status() );
      while ( !keys_.empty() && !out.full() )
         if ( const auto row = rowOf( session_, state_, keys_.take() ); !row.is_null() ) out.row( row );
      return keys_.empty() ? Step::done : Step::more;
   }

 private:
   template < typename Table >
   Step gather( const Table & table ) {
      const U32 end = std::min( table.slots(), slot_ + slotsAtOnce );
      for ( ; slot_ < end; ++slot_ ) {
         if ( !table.slotHas( slot_ ) ) continue;
         const auto ref = table.refAt( slot_ );
         if ( vrfs_.contains( ref.vrfId ) ) keys_.add( { ref.vrfId, ref.prefix } );
      }
      if ( slot_ < table.slots() ) return Step::more;
      slot_ = 0;
      gathering_ = gathering_ == 4 ? 6 : 0;
      if ( gathering_ == 0 ) keys_.close();
      return Step::more;
   }

   static constexpr U32 slotsAtOnce = 16384;
   const AgentView session_;
   const RouterState & state_;
   std::set< U32 > vrfs_;
   SortedRuns< Key > keys_;
   U32 slot_ = 0;
   int gathering_ = 4; // the family, then 0
};

// The prefix itself, or the longest that holds the address. Nothing when there is none.
template < typename Table, typename Prefix, typename Address >
std::optional< Key > find( const Table & table, U32 vrfId, const Address & address, std::optional< U8 > len ) {
   if ( len ) {
      const Prefix prefix( address, *len );
      return table.route( vrfId, prefix ) ? std::optional( Key{ vrfId, prefix } ) : std::nullopt;
   }
   const auto match = table.match( vrfId, address );
   return match ? std::optional( Key{ vrfId, match->prefix } ) : std::nullopt;
}

void matches( const AgentView & session, const RouterState & state, const std::string & vrf, const std::string & text,
              Output & out ) {
   const auto target = targetOf( text );
   const auto & routing = session.routing();
   bool found = false;
   for ( const auto & [ vrfId, name ] : vrfsOf( session, vrf ) ) {
      const auto key = target.address.af() == Kynet::AddressFamily::ipv4_
                            ? find< Mirel::Fib::RouteStatus, Kynet::Prefix >( *routing.routeStatus(), vrfId,
                                                                              target.address.v4Addr(), target.len )
                            : find< Mirel::Fib6::RouteStatus, Kynet::Ip6Prefix >( *routing.route6Status(), vrfId,
                                                                                  target.address.v6Addr(), target.len );
      if ( !key ) continue;
      out.row( rowOf( session, state, *key ) );
      waitingRows( session, state, *key, out );
      found = true;
   }
   if ( !found )
      throw CommandError( ErrorCode::notFound,
                          "no route to " + text +
                               ( vrf == "all" ? " in any VRF" : " in VRF " + ( vrf.empty() ? "default" : vrf ) ) );
}

std::unique_ptr< Answer > routes( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const RouterState & state = asked.daemon.state();
   const auto vrf = asked.question.text( "vrf" ), text = asked.question.text( "match" );
   if ( text.empty() ) return std::make_unique< AllRoutes >( session, state, vrfsOf( session, vrf ) );
   return atOnce( [ session, &state, vrf, text ]( Output & out ) { matches( session, state, vrf, text, out ); } );
}

std::unique_ptr< Answer > pending( const Asked & asked ) {
   const AgentView session( asked.daemon );
   const auto most = std::min< U64 >( asked.question.number( "most", 1000 ), 1000000 );
   const auto & sources = asked.daemon.state().sources();
   return atOnce( [ session, most, &sources ]( Output & out ) {
      size_t count = 0;
      const auto rows = [ & ]( const Hul::Pendings & pendings ) {
         for ( const auto & pending : pendings )
            if ( ++count <= most ) out.row( { { "object", pending.object }, { "reason", pending.reason } } );
      };
      // One more than is shown tells whether there is more.
      rows( session.agent()->hulVrfRootSm()->pending( most + 1 ) );
      rows( session.agent()->aclSm()->pending() );
      rows( session.agent()->qosAclSm()->pending() );
      rows( session.agent()->ipsecConnectionTableSm()->pending() );
      for ( const auto teller : { Teller::kernel(), Teller::fpm() } )
         if ( const auto * const source = sources.source( teller ); source != nullptr && count <= most )
            source->eachRefused( most + 1 - count, [ & ]( const std::string & route, const char * reason ) {
               if ( ++count <= most ) out.row( { { "object", route }, { "reason", reason } } );
            } );
      out.endMember( "more", count > most );
      out.endMember( "busy", session.agent()->hulVrfRootSm()->busy() );
   } );
}

} // namespace

Commands routeShows() {
   return { { "show routes", { { "vrf" }, { "match" } }, routes },
            { "show pending", { { "most", Parameter::Kind::number } }, pending } };
}

} // namespace Host
