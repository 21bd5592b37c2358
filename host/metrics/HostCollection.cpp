#include "HostCollection.h"

#include "GantActivity.h"
#include "HostCounterTable.h"
#include "HostKeptPort.h"
#include "HostRouterState.h"
#include "HulVrfRootSm.h"
#include "vex/engine.pb.h"

#include <ctime>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

namespace Host {

namespace {

constexpr std::pair< Phase, const char * > phases[] = { { Phase::starting, "starting" },
                                                        { Phase::standby, "standby" },
                                                        { Phase::running, "running" },
                                                        { Phase::waiting, "waiting" } };

constexpr const char * dropsHelp = "Packets that were lost in the data plane's graph.";

// Of a process; 0: it cannot be read.
double residentBytesOf( const std::string & process ) {
   size_t total = 0, resident = 0;
   std::ifstream( "/proc/" + process + "/statm" ) >> total >> resident;
   return static_cast< double >( resident * static_cast< size_t >( sysconf( _SC_PAGESIZE ) ) );
}

double processorSeconds() {
   timespec time{};
   clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

// "bad_checksum" of "fibIpv4-Bad_Checksum_Pkts"; empty: it counts no lost packets.
std::string dropReason( const Vex::BessCounterInfo::Counter & counter ) {
   constexpr std::string_view suffix = "_pkts";
   const auto begin = counter.module.size() + 1;
   if ( counter.name.size() <= begin + suffix.size() || !counter.name.starts_with( counter.module ) ) return {};
   auto reason = counter.name.substr( begin );
   for ( auto & letter : reason ) letter = static_cast< char >( std::tolower( letter ) );
   if ( !reason.ends_with( suffix ) ) return {};
   reason.resize( reason.size() - suffix.size() );
   return reason;
}

template < typename Map, typename Key >
auto after( const Map & map, const std::optional< Key > & key ) {
   return key ? map.upper_bound( *key ) : map.begin();
}

} // namespace

bool Collection::step() {
   try {
      switch ( stage_ ) {
      case Stage::daemon: daemon(); break;
      case Stage::session: session(); break;
      case Stage::vrfs: vrfs(); break;
      case Stage::ports: ports(); break;
      case Stage::drops: drops(); break;
      case Stage::done: break;
      }
   } catch ( const CommandError & ) {
      stage_ = Stage::done; // there is no session any more
   }
   return stage_ != Stage::done;
}

void Collection::daemon() {
   const auto status = daemon_.status();
   samples_.gauge( "vexl3_build_info", "Versions of the programs.", 1,
                   { { "version", VEXL3_VERSION },
                     { "dataplane_version", daemon_.channel() ? daemon_.channel()->dataPlaneVersion() : "" } } );
   for ( const auto & [ phase, name ] : phases )
      samples_.gauge( "vexl3_phase", "1 for the daemon's present phase, 0 for the others.", status.phase == phase,
                      { { "phase", name } } );
   samples_.counter( "vexl3_session_losses_total", "Sessions with a data plane that were lost.", status.restarts );
   samples_.gauge( "vexl3_last_feed_seconds",
                   "Time from the last session's begin until the data plane had everything; 0: it has not yet.",
                   status.lastFedSeconds );
   samples_.gauge( "vexl3_building_beside", "1 while the data plane forwards by what a session before told it.",
                   status.beside && !status.inStep );
   samples_.gauge( "vexl3_change_over_seconds",
                   "Time that packets waited when the data plane changed over to this session; 0: it has not.",
                   status.changeOverSeconds.value_or( 0 ) );
   samples_.counter( "vexl3_reloads_total", "Times that the sources were read again.", status.reloads );
   samples_.gauge( "vexl3_source_errors", "Wrong entries in the present sources.", status.sourceErrors );
   samples_.gauge( "vexl3_paused", "1 while sources and changes wait for the data plane.", !status.paused.empty() );
   if ( status.dataPlanePid != 0 )
      samples_.gauge( "vexl3_dataplane_resident_memory_bytes", "Resident memory of an embedded data plane.",
                      residentBytesOf( std::to_string( status.dataPlanePid ) ) );
   samples_.gauge( "process_start_time_seconds", "Start time of the process since the Unix epoch in seconds.",
                   status.startedAt );
   process();
   sources();
   if ( const auto * const meters = daemon_.meters() ) {
      samples_.histogram( "vexl3_loop_turn_seconds", "Length of the turns of the daemon's loop.",
                          meters->loop.turns() );
      samples_.gauge( "vexl3_loop_longest_turn_seconds", "Longest turn of the loop since the start.",
                      meters->loop.longest() );
      samples_.gauge( "vexl3_loop_longest_recent_turn_seconds",
                      "Longest turn of the loop in the present minute and the one before.",
                      meters->loop.longestOfLate( Gant::activityManager()->now() ) );
      samples_.histogram( "vexl3_convergence_seconds",
                          "Time from the turn in which a change came until the data plane acknowledged it, of each "
                          "request.",
                          meters->convergence.times() );
   }
   next();
}

void Collection::process() {
   samples_.gauge( "process_resident_memory_bytes", "Resident memory size in bytes.", residentBytesOf( "self" ) );
   samples_.counter( "process_cpu_seconds_total", "Total user and system CPU time spent in seconds.",
                     processorSeconds() );
   rlimit limit{};
   if ( getrlimit( RLIMIT_NOFILE, &limit ) == 0 )
      samples_.gauge( "process_max_fds", "Maximum number of open file descriptors.",
                      static_cast< double >( limit.rlim_cur ) );
}

void Collection::sources() {
   const auto & state = daemon_.state();
   for ( U8 number = Teller::connected_; number < tellers; ++number ) {
      const Teller teller( number );
      const Labels labels{ { "source", nameOfTeller( teller ) } };
      samples_.gauge( "vexl3_source_routes", "Routes that a source offers, in use or waiting behind another source's.",
                      static_cast< double >( state.routes( teller ) ), labels );
      samples_.gauge(
           "vexl3_source_stale_routes", "Of these, those that it has not told again since it came back.",
           static_cast< double >( state.routes4().staleRoutes( teller ) + state.routes6().staleRoutes( teller ) ),
           labels );
   }
   samples_.gauge( "vexl3_neighbors", "Resolved neighbours.",
                   static_cast< double >( state.tree().arp->neighborIterator().size() ) );
}

void Collection::session() {
   const auto channel = daemon_.channel();
   samples_.gauge( "vexl3_session_up", "1 while there is a session with a data plane.", channel ? 1 : 0 );
   const AgentView session( daemon_ );
   const auto requests = []( U64 number ) { return static_cast< double >( number ); };
   samples_.counter( "vexl3_requests_queued_total", "Requests to the data plane in this session.",
                     requests( channel->requestsQueued() ) );
   samples_.counter( "vexl3_requests_acknowledged_total", "Requests that it answered, those that it refused included.",
                     requests( channel->requestsAcknowledged() ) );
   samples_.counter( "vexl3_requests_refused_total", "Requests that it refused.",
                     requests( channel->requestsRefused() ) );
   samples_.gauge( "vexl3_queue_depth", "Requests that are not answered yet.", requests( channel->requestsWaiting() ),
                   { { "stage", "waiting" } } );
   samples_.gauge( "vexl3_queue_depth", "", requests( channel->requestsOutstanding() ), { { "stage", "sent" } } );
   samples_.gauge( "vexl3_queue_bytes", "Size of the requests that wait to be sent.",
                   requests( channel->bytesWaiting() ) );
   samples_.gauge( "vexl3_queue_oldest_seconds", "Time since the oldest unanswered batch was sent.",
                   channel->oldestOutstanding() );
   samples_.gauge( "vexl3_fecs", "FECs of the agent.", requests( session.routeDb()->fecs() ) );
   samples_.gauge( "vexl3_adjacencies", "Adjacencies of the agent.", requests( session.routeDb()->adjIdxToFecs() ) );
   if ( channel->routesMost() != 0 )
      samples_.gauge( "vexl3_fib_capacity_routes", "IPv4 routes that the data plane has room for.",
                      channel->routesMost() );
   routes();
   next();
}

void Collection::routes() {
   const AgentView session( daemon_ );
   const auto routeDb = session.routeDb();
   for ( const auto af : { Kynet::AddressFamily::ipv4(), Kynet::AddressFamily::ipv6() } ) {
      const char * const family = af == Kynet::AddressFamily::ipv4_ ? "ipv4" : "ipv6";
      const auto counts = session.agent()->hulVrfRootSm()->routeCounts( af );
      const auto change = [ & ]( const char * name, U64 number ) {
         samples_.counter( "vexl3_route_changes_total", "Changes of routes that the agent was told in this session.",
                           static_cast< double >( number ), { { "family", family }, { "change", name } } );
      };
      change( "insert", routeDb->numRouteInserts( af ) );
      change( "update", routeDb->numRouteUpdates( af ) );
      change( "delete", routeDb->numRouteDeletes( af ) );
      samples_.gauge( "vexl3_routes_without_room", "Routes that the data plane has no room for.", counts.noRoom,
                      { { "family", family } } );
      samples_.gauge( "vexl3_routes_over_refused_adjacencies",
                      "Routes that the data plane took, and whose next hops it refused.", counts.overRefused,
                      { { "family", family } } );
      samples_.gauge( "vexl3_routes_over_disabled_interfaces",
                      "Routes that the data plane took, and whose interfaces are all disabled or down.",
                      counts.overDisabled, { { "family", family } } );
   }
}

void Collection::vrfs() {
   const AgentView session( daemon_ );
   const auto agent = session.agent();
   const auto & book = daemon_.state().vrfBook();
   const auto & tree = daemon_.state().tree();
   const auto family = [ & ]( const std::string & vrf, const char * name, const Hul::RouteCounts & counts, U64 told ) {
      const auto state = [ & ]( const char * state, U64 routes ) {
         samples_.gauge( "vexl3_routes", "Routes that the router was told, by what has become of them.",
                         static_cast< double >( routes ), { { "vrf", vrf }, { "family", name }, { "state", state } } );
      };
      const U64 known = U64( counts.programmed ) + counts.underWay + counts.refused;
      state( "programmed", counts.programmed );
      state( "under_way", counts.underWay );
      state( "refused", counts.refused );
      state( "waiting", told - std::min( told, known ) );
   };
   size_t left = objectsAtOnce;
   for ( auto at = after( book.vrfs(), vrf_ ); at != book.vrfs().end(); ++at ) {
      if ( left-- == 0 ) return;
      const auto & name = at->first;
      const Hul::VrfId vrfId( book.id( name ).value_or( 0 ) );
      const auto & root = *agent->hulVrfRootSm();
      family( name.value(), "ipv4", root.routeCounts( Kynet::AddressFamily::ipv4_, vrfId ),
              tree.fib->routes( vrfId.value() ) );
      family( name.value(), "ipv6", root.routeCounts( Kynet::AddressFamily::ipv6_, vrfId ),
              tree.fib6->routes( vrfId.value() ) );
      vrf_ = name;
   }
   next();
}

void Collection::ports() {
   const AgentView session( daemon_ );
   const auto * const ports = session.ports();
   size_t left = objectsAtOnce;
   if ( ports != nullptr )
      for ( auto at = after( ports->kept(), port_ ); at != ports->kept().end(); ++at ) {
         if ( left-- == 0 ) return;
         const auto & port = *at->second;
         const Labels labels{ { "port", port.name() } };
         const auto count = [ & ]( const char * name, const char * help, U64 value ) {
            samples_.counter( name, help, static_cast< double >( value ), labels );
         };
         samples_.gauge( "vexl3_port_up", "1 while the port is made and its link is up.",
                         port.state() == KeptPort::State::up, labels );
         count( "vexl3_port_receive_packets_total", "Packets that came in.", port.in().packets );
         count( "vexl3_port_receive_bytes_total", "Bytes that came in.", port.in().bytes );
         count( "vexl3_port_receive_drop_total", "Packets that the port dropped on their way in.", port.in().dropped );
         count( "vexl3_port_transmit_packets_total", "Packets that went out.", port.out().packets );
         count( "vexl3_port_transmit_bytes_total", "Bytes that went out.", port.out().bytes );
         count( "vexl3_port_transmit_drop_total", "Packets that the port dropped on their way out.",
                port.out().dropped );
         port_ = at->first;
      }
   next();
}

// As the data plane itself counts them. From one that does not, what modules count in its table is all that is known.
void Collection::drops() {
   if ( !drops_ ) return counters();
   for ( size_t left = objectsAtOnce; drop_ < drops_->drop_size(); ++drop_ ) {
      if ( left-- == 0 ) return;
      const auto & drop = drops_->drop( drop_ );
      samples_.counter( "vexl3_drops_total", dropsHelp, static_cast< double >( drop.packets() ),
                        { { "module", drop.module() }, { "reason", drop.reason() } } );
   }
   next();
}

void Collection::counters() {
   const AgentView session( daemon_ );
   const auto table = counterTable( session );
   const auto & all = session.vexcsd()->bessCounterInfo()->counterIterator();
   size_t left = objectsAtOnce;
   for ( auto at = after( all, counter_ ); table && at != all.end(); ++at ) {
      if ( left-- == 0 ) return;
      counter_ = at->first;
      const auto reason = dropReason( at->second );
      if ( reason.empty() ) continue;
      const auto count = table->mirelCount( VexModules::MirelCounterId( at->first.value() ) ).count().value();
      samples_.counter( "vexl3_drops_total", dropsHelp, static_cast< double >( count ),
                        { { "module", at->second.module }, { "reason", reason } } );
   }
   next();
}

} // namespace Host
