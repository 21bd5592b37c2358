// show summary: how much there is, and how much was done. show status: the daemon. show version.

#include "HostAgentView.h"
#include "HostShows.h"
#include "HulL3Status.h"
#include "HulVrfRootSm.h"
#include "MirelFib.h"

#include <fstream>
#include <unistd.h>

namespace Host {

using namespace VexL3Unicast;

namespace {

Json routeCounts( const RouteDb & db, U32 af ) {
   return { { "inserts", db.numRouteInserts( af ) },
            { "updates", db.numRouteUpdates( af ) },
            { "updatesToOtherFec", db.numRouteUpdatesFecChg( af ) },
            { "deletes", db.numRouteDeletes( af ) } };
}

size_t residentBytes() {
   size_t total = 0, resident = 0;
   std::ifstream( "/proc/self/statm" ) >> total >> resident;
   return resident * static_cast< size_t >( sysconf( _SC_PAGESIZE ) );
}

std::unique_ptr< Answer > summary( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto agent = session.agent();
      const auto & routing = session.routing();
      const auto & db = *agent->routeDb();
      const auto channel = session.channel();
      Json row;
      row[ "vrfs" ] = agent->hulL3Status()->vrfNames();
      row[ "interfaces" ] = session.vexcsd()->l2Intfs();
      row[ "routedInterfaces" ] = session.vexcsd()->l3IntfIteratorConst().size();
      row[ "tunnels" ] = agent->l3Modules()->nhResolves();
      row[ "routesTold" ] = { { "ipv4", routing.routeStatus()->routes() },
                              { "ipv6", routing.route6Status()->routes() } };
      const auto ip4 = agent->hulVrfRootSm()->routeCounts( Kynet::AddressFamily::ipv4_ );
      const auto ip6 = agent->hulVrfRootSm()->routeCounts( Kynet::AddressFamily::ipv6_ );
      row[ "routesProgrammed" ] = ip4.programmed + ip6.programmed;
      row[ "routesOverDisabled" ] = ip4.overDisabled + ip6.overDisabled;
      row[ "routesUnderWay" ] = { { "ipv4", ip4.underWay }, { "ipv6", ip6.underWay } };
      row[ "routesRefused" ] = { { "ipv4", ip4.refused }, { "ipv6", ip6.refused } };
      row[ "fecs" ] = db.fecs();
      row[ "adjacencies" ] = db.adjIdxToFecs();
      row[ "modules" ] = session.modules().size();
      row[ "counters" ] = session.vexcsd()->bessCounterInfo()->counterIterator().size();
      row[ "requests" ] = { { "queued", channel->requestsQueued() },
                            { "acknowledged", channel->requestsAcknowledged() },
                            { "refused", channel->requestsRefused() } };
      row[ "routeUpdates" ] = { { "ipv4", routeCounts( db, 1 ) }, { "ipv6", routeCounts( db, 2 ) } };
      row[ "busy" ] = agent->hulVrfRootSm()->busy();
      row[ "residentBytes" ] = residentBytes();
      out.row( row );
   } );
}

const char * textOf( Phase phase ) {
   switch ( phase ) {
   case Phase::starting: return "starting";
   case Phase::standby: return "standby";
   case Phase::running: return "running";
   case Phase::waiting: return "waiting";
   }
   return "";
}

std::unique_ptr< Answer > status( const Asked & asked ) {
   return atOnce( [ &daemon = asked.daemon ]( Output & out ) {
      const auto status = daemon.status();
      const auto channel = daemon.channel();
      Json row;
      row[ "phase" ] = textOf( status.phase );
      row[ "pid" ] = getpid();
      row[ "startedAt" ] = status.startedAt;
      row[ "upSeconds" ] = status.upSeconds;
      if ( !status.paused.empty() ) row[ "paused" ] = status.paused;
      row[ "dataPlane" ] = status.dataPlane;
      if ( status.dataPlanePid != 0 ) row[ "dataPlanePid" ] = status.dataPlanePid;
      if ( !status.owner.empty() ) {
         row[ "owner" ] = status.owner;
         row[ "ownedSince" ] = status.ownedSince;
         row[ "ownedSeconds" ] = status.ownedSeconds;
      }
      row[ "dataPlaneVersion" ] = channel ? channel->dataPlaneVersion() : "";
      row[ "transport" ] = !channel ? "" : channel->streaming() ? "batch stream" : "unary calls";
      if ( status.beside ) row[ "forwarding" ] = status.inStep ? "in step" : "building beside";
      if ( status.changeOverSeconds ) row[ "changeOverSeconds" ] = *status.changeOverSeconds;
      row[ "restarts" ] = status.restarts;
      row[ "lastLoss" ] = status.lastLoss;
      row[ "lastFedSeconds" ] = status.lastFedSeconds;
      row[ "description" ] = status.description;
      row[ "routeFile" ] = status.routeFile;
      row[ "reloads" ] = status.reloads;
      row[ "sourceErrors" ] = status.sourceErrors;
      out.row( row );
   } );
}

std::unique_ptr< Answer > version( const Asked & asked ) {
   return atOnce( [ &daemon = asked.daemon ]( Output & out ) {
      const auto channel = daemon.channel();
      out.row( { { "vexl3d", VEXL3_VERSION }, { "dataPlane", channel ? channel->dataPlaneVersion() : "" } } );
   } );
}

} // namespace

Commands summaryShows() {
   return { { "show summary", {}, summary }, { "show status", {}, status }, { "show version", {}, version } };
}

} // namespace Host
