// why: an address's way through everything that the router knows, and where its packets would be lost.

#include "GantActivity.h"
#include "HostAgentView.h"
#include "HostMeters.h"
#include "HostRouterState.h"
#include "HostShows.h"
#include "HostWhyOffers.h"
#include "HostWhyWays.h"
#include "HulVrfRootSm.h"
#include "vex/engine.pb.h"
#include "VexEngineQuery.h"

namespace Host {

namespace {

struct WhyAsked {
   Kynet::IpGenAddr address;
   U32 vrfId = 0;
   std::string vrf;
};

WhyAsked whyAsked( const Asked & asked ) {
   const auto text = asked.question.text( "address" );
   const auto address = Kynet::IpGenAddr::fromString( text );
   if ( !address ) throw CommandError( ErrorCode::usage, "\"" + text + "\" is no address" );
   const auto vrf = asked.question.text( "vrf" );
   const L3::VrfName name( vrf.empty() ? "default" : vrf );
   const auto vrfId = asked.daemon.state().vrfBook().id( name );
   if ( !vrfId ) throw CommandError( ErrorCode::notFound, "there is no VRF \"" + name.value() + "\"" );
   return { *address, *vrfId, name.value() };
}

// What is said of the address, piece by piece. A later piece reads what an earlier one found.
class Findings {
 public:
   Findings( DaemonControl & daemon, const WhyAsked & asked ) : daemon_( daemon ), asked_( asked ) {
      row_ = { { "address", asked.address.stringValue() }, { "vrf", asked.vrf }, { "fate", "forwarded" } };
      row_[ "lost" ] = Json::array();
   }

   bool v4() const { return asked_.address.af() == Kynet::AddressFamily::ipv4_; }
   void held();
   // What the agent has told of it.
   void agent( const AgentView & session );
   void sessionLost( const std::string & reason );
   void dataPlane( const std::string & error, const vex::pb::LookupReply & reply );
   // REQUIRES: all else has been said.
   Json row();

 private:
   void lost( const std::string & where, const std::string & why ) {
      row_[ "lost" ].push_back( { { "where", where }, { "why", why } } );
   }
   void acknowledged( U32 command );
   std::string subnetNotUp() const;
   void ways();

   DaemonControl & daemon_;
   const WhyAsked & asked_;
   std::optional< HeldRoute > held_;
   std::optional< Kynet::IpGenPrefix > prefix_;
   std::string notInDataPlane_; // why the agent does not count it as programmed
   bool inDataPlane_ = true;    // as it should be, for all that is known
   bool builtIn_ = false;
   bool noSession_ = false;
   std::string fate_;
   Json row_;
};

// The subnet of an interface that is not up has no route.
std::string Findings::subnetNotUp() const {
   const auto & book = daemon_.state().intfBook();
   const auto at = book.intfs().find( book.intfOf( asked_.vrfId, Hop( asked_.address, {}, 1 ) ) );
   if ( at == book.intfs().end() || book.up( at->second.fact ) ) return {};
   return ", whose interface " + at->first.stringValue() + " is " + ( at->second.fact.enabled ? "down" : "disabled" );
}

void Findings::held() {
   const auto & state = daemon_.state();
   if ( v4() ) {
      held_ = heldRoute( state, asked_.vrfId, asked_.address.v4Addr() );
      if ( held_ ) prefix_ = held_->prefix;
   } else if ( const auto match = state.tree().fib6->match( asked_.vrfId, asked_.address.v6Addr() ) ) {
      prefix_ = match->prefix;
   }
   if ( !prefix_ ) return;
   row_[ "prefix" ] = prefix_->stringValue();
   if ( held_ ) row_[ "type" ] = held_->route.routeType().stringValue();
   auto offers = Json::array();
   for ( const auto & offer : offersOf( state, asked_.vrfId, *prefix_ ) )
      offers.push_back( { { "source", offer.source },
                          { "inUse", offer.inUse },
                          { "type", offer.ways.kind.stringValue() },
                          { "via", inJson( offer.ways ) } } );
   row_[ "offers" ] = std::move( offers );
}

void Findings::acknowledged( U32 command ) {
   const auto * const meters = daemon_.meters();
   if ( command == 0 || meters == nullptr ) return;
   const auto by = meters->convergence.acknowledgedBy( command );
   row_[ "acknowledged" ] = by.has_value();
   if ( by ) row_[ "acknowledgedSecondsAgo" ] = Gant::activityManager()->now() - *by;
}

void Findings::agent( const AgentView & session ) {
   const Hul::VrfId vrfId( asked_.vrfId );
   if ( v4() )
      for ( const auto & route : builtInRoutes( session, vrfId ) ) {
         if ( !route.prefix.contains( asked_.address.v4Addr() ) || ( prefix_ && prefix_->len() > route.prefix.len() ) )
            continue;
         builtIn_ = true;
         prefix_ = route.prefix;
         row_[ "prefix" ] = route.prefix.stringValue();
         row_[ "builtIn" ] = route.what;
         for ( const char * const ofTold : { "type", "offers" } ) row_.erase( ofTold );
         row_[ "fec" ] = route.fecKey.value();
      }
   if ( builtIn_ || !prefix_ ) return;
   const auto state = session.agent()->hulVrfRootSm()->routeState( vrfId, *prefix_ );
   row_[ "state" ] = state.progress.stringValue();
   if ( !state.reason.empty() ) row_[ "reason" ] = state.reason;
   if ( state.progress != Hul::RouteProgress::programmed_ )
      notInDataPlane_ = state.progress.stringValue() + ( state.reason.empty() ? "" : ": " + state.reason );
   acknowledged( state.command );
   const auto routeDb = session.routeDb();
   const auto & told = routeDb->route( Hul::VrfAndIpGenPrefix( vrfId, *prefix_ ) );
   if ( !told ) return;
   row_[ "fec" ] = told->fecKey().value();
   const auto & fec = routeDb->fec( told->fecKey() );
   if ( !fec ) return;
   row_[ "fecVersion" ] = fec->version().value();
   row_[ "fecRoutes" ] = fec->lpmRoutes();
   row_[ "adjacency" ] = routeDb->fecToAdjIdx( told->fecKey() ).index();
   row_[ "nexthops" ] = nexthopsOf( session, *fec );
}

void Findings::sessionLost( const std::string & reason ) {
   noSession_ = true;
   const auto status = daemon_.status();
   row_[ "dataPlane" ] = { { "error", reason } };
   if ( status.phase == Phase::standby ) {
      fate_ = "unknown";
      lost( "session", "another agent has the data plane: " + status.owner );
      return;
   }
   lost( "session", reason + ( status.lastLoss.empty() ? "" : ": " + status.lastLoss ) );
}

void Findings::dataPlane( const std::string & error, const vex::pb::LookupReply & reply ) {
   auto & copy = row_[ "dataPlane" ] = Json::object();
   if ( !error.empty() ) {
      copy[ "error" ] = error;
      return;
   }
   const auto because = notInDataPlane_.empty() ? std::string() : " (" + notInDataPlane_ + ")";
   copy[ "found" ] = reply.found();
   if ( !reply.found() ) {
      inDataPlane_ = false;
      if ( prefix_ ) lost( "data plane", "it has no route to " + asked_.address.stringValue() + because );
      return;
   }
   const Kynet::Prefix prefix( Kynet::IpAddr( reply.prefix() ), static_cast< U8 >( reply.prefix_len() ) );
   copy[ "prefix" ] = prefix.stringValue();
   copy[ "fec" ] = reply.fec_id();
   copy[ "nexthops" ] = Json::array();
   for ( const auto & hop : reply.nh_info() ) copy[ "nexthops" ].push_back( placeOf( hop.gate(), hop.nh_index() ) );
   inDataPlane_ = prefix_ && *prefix_ == Kynet::IpGenPrefix( prefix );
   copy[ "agrees" ] = inDataPlane_ && row_.value( "fec", U64( 0 ) ) == reply.fec_id();
   if ( !inDataPlane_ ) {
      fate_ = "misrouted";
      lost( "data plane", "it sends them by " + prefix.stringValue() + because );
   } else if ( !reply.fec_found() ) {
      inDataPlane_ = false;
      lost( "data plane", "the route's FEC is not there" + because );
   }
}

void Findings::ways() {
   row_[ "ways" ] = waysTo( daemon_, asked_.vrfId, asked_.address.v4Addr(), *held_ );
   const auto & ways = row_[ "ways" ];
   size_t losing = 0;
   for ( const auto & way : ways ) {
      if ( !way.contains( "lost" ) ) continue;
      ++losing;
      const auto hop = way.value( "address", std::string() ), intf = way.value( "interface", std::string() );
      lost( hop.empty() && intf.empty() ? "route"
            : hop.empty()               ? "interface " + intf
                                        : "next hop " + hop,
            way[ "lost" ].get< std::string >() );
   }
   if ( !fate_.empty() ) return;
   const auto type = held_->route.routeType();
   if ( losing != 0 && losing < ways.size() )
      fate_ = "partlyLost";
   else if ( losing == 0 && ( type == Mirel::RouteType::receive_ || type == Mirel::RouteType::broadcast_ ) )
      fate_ = "local";
}

Json Findings::row() {
   if ( !v4() ) {
      row_[ "fate" ] = "kernel";
      row_[ "note" ] = "the data plane forwards no IPv6: such packets go to the kernel";
      return row_;
   }
   if ( held_ && !builtIn_ ) ways();
   if ( !prefix_ ) lost( "VRF " + asked_.vrf, "no route to " + asked_.address.stringValue() + subnetNotUp() );
   if ( fate_.empty() && builtIn_ ) fate_ = "local";
   if ( noSession_ || !inDataPlane_ ) {
      if ( fate_ != "misrouted" && fate_ != "unknown" ) fate_ = "lost";
   } else if ( fate_.empty() && !row_[ "lost" ].empty() ) {
      fate_ = "lost";
   }
   if ( !fate_.empty() ) row_[ "fate" ] = fate_;
   return row_;
}

class WhyAnswer : public Answer {
 public:
   explicit WhyAnswer( const Asked & asked ) : daemon_( asked.daemon ), asked_( whyAsked( asked ) ) {
      if ( asked_.address.af() == Kynet::AddressFamily::ipv4_ ) ask( asked.wake );
   }

   Step step( Output & out ) override {
      if ( call_ && !done_ ) return Step::wait;
      Findings findings( daemon_, asked_ );
      findings.held();
      try {
         findings.agent( AgentView( daemon_ ) );
         if ( done_ ) findings.dataPlane( error_, reply_ );
      } catch ( const CommandError & error ) {
         findings.sessionLost( error.what() );
      }
      out.row( findings.row() );
      return Step::done;
   }

 private:
   // Its own copy, where it is there.
   void ask( const std::function< void() > & wake ) {
      try {
         const AgentView session( daemon_ );
         vex::pb::LookupRequest request;
         request.set_module( session.l3Modules()->fibIpv4()->name() );
         request.set_vrf( asked_.vrfId );
         request.set_address( asked_.address.v4Addr().value() );
         query_ = std::make_unique< Vex::EngineQuery >( session.channel()->peer() );
         call_ = query_->lookup( request, [ this, wake ]( const auto & error, const auto & reply ) {
            error_ = error.empty() ? reply.error().errmsg() : error;
            reply_ = reply;
            done_ = true;
            wake();
         } );
      } catch ( const CommandError & ) {
         // The row says so.
      }
   }

   DaemonControl & daemon_;
   const WhyAsked asked_;
   std::unique_ptr< Vex::EngineQuery > query_;
   vex::pb::LookupReply reply_;
   std::string error_;
   bool done_ = false;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

} // namespace

Commands whyCommands() {
   return { { "why", { { "address", Parameter::Kind::text, true }, { "vrf" } }, []( const Asked & asked ) {
                return std::make_unique< WhyAnswer >( asked );
             } } };
}

} // namespace Host
