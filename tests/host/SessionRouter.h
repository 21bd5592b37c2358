// A router with a data plane of its own, another process, and what a user sees of it.
#pragma once

#include "GantActivity.h"
#include "HostCommands.h"
#include "HostDaemon.h"
#include "HulAdjSm.h"
#include "HulVrfRootSm.h"
#include "Steps.h"
#include "VexGrpcChannel.h"
#include "VexL3AgentSm.h"
#include "VexL3Sm.h"

#include <algorithm>

namespace Test {

using Host::Json;
using Lines = std::vector< std::string >;

class Rows : public Host::Output {
 public:
   void row( const Json & row ) override { rows.push_back( row ); }
   void endMember( const std::string & key, Json value ) override { end[ key ] = std::move( value ); }
   bool full() const override { return false; }
   std::vector< Json > rows;
   Json end = Json::object();
};

class SessionRouter : public Host::DaemonControl {
 public:
   // `fill` tells it what it knows before it has a data plane.
   explicit SessionRouter( const std::function< void( SessionRouter & ) > & fill = []( auto & ) {} ) {
      fill( *this );
      supervisor_.start();
      runUntil( [ this ] { return fed_; } );
   }

   Host::RouterState & state() override { return state_; }
   Gant::Ptr< VexL3Unicast::AgentSm > agent() const override { return supervisor_.session()->agent(); }
   Gant::Ptr< Vex::VexCommonSmData > vexcsd() const override { return supervisor_.session()->vexcsd(); }
   Gant::Ptr< Vex::GrpcChannel > channel() const override { return supervisor_.session()->channel(); }
   Host::DaemonStatus status() const override { return {}; }
   Host::ChangeResult change( Host::ChangeOp op, const std::string & kind, const std::string & entry ) override {
      return Host::applyChange( state_, op, kind, entry );
   }
   Host::ChangeResult reload() override { return {}; }

   void settle() {
      runUntil( [ this ] {
         return Gant::activityManager()->poll() == 0 && !agent()->hulVrfRootSm()->busy() &&
                channel()->requestsAcknowledged() == channel()->requestsQueued();
      } );
   }
   Rows ask( const Json & request ) {
      bool woken = false;
      Rows rows;
      const auto answer = Host::CommandTable::all().answer( *this, request, [ &woken ] { woken = true; } );
      for ( auto step = answer->step( rows ); step != Host::Answer::Step::done; step = answer->step( rows ) )
         if ( step == Host::Answer::Step::wait ) {
            runUntil( [ & ] { return woken; } );
            woken = false;
         }
      return rows;
   }

   // What a user sees, without the numbers that depend on the order.
   Lines seen() {
      Lines lines;
      for ( const auto & row : ask( { { "command", "show fib" }, { "vrf", "all" } } ).rows ) {
         Lines hops;
         for ( auto hop : row.value( "nexthops", Json::array() ) ) {
            for ( const char * number : { "gate", "index", "interfaceIndex" } ) hop.erase( number );
            hops.push_back( hop.dump() );
         }
         std::ranges::sort( hops );
         lines.push_back( row[ "vrf" ].dump() + row[ "prefix" ].dump() + Json( hops ).dump() );
      }
      for ( const auto & row : ask( { { "command", "show pending" } } ).rows ) {
         auto object = row[ "object" ].get< std::string >();
         if ( object.starts_with( "adjacency " ) ) object = "an adjacency";
         lines.push_back( object + ": " + row[ "reason" ].get< std::string >() );
      }
      for ( const char * show : { "show interfaces", "show tunnels", "show vrrp", "show vlans", "show nat" } )
         for ( auto row : ask( { { "command", show } } ).rows ) {
            row.erase( "fibGate" );
            lines.push_back( row.dump() );
         }
      std::ranges::sort( lines );
      return lines;
   }
   // Everything that is counted or drawn from a pool: the agent's, and what the data plane holds.
   Lines held() {
      Lines lines;
      const auto verify = ask( { { "command", "verify" } } );
      for ( const auto & row : verify.rows ) lines.push_back( row.dump() );
      lines.push_back( "data plane " + verify.end.value( "compared", Json::object() ).dump() );
      auto summary = ask( { { "command", "show summary" } } ).rows.at( 0 );
      for ( const char * running : { "requests", "routeUpdates", "residentBytes" } ) summary.erase( running );
      lines.push_back( summary.dump() );
      const auto & db = *agent()->routeDb();
      lines.push_back( Gant::textsOf( "FEC keys ", db.nextFecKey() - db.unusedFecKeys(), " sets ", db.intfToFecSets(),
                                      " adjacencies ", agent()->hulVrfRootSm()->hulAdjSm()->adjs() ) );
      for ( const auto & [ intfId, pool ] : agent()->l3Sm()->nhIndexManager()->nhLocalIndexIntfIterator() )
         if ( const auto used = VexL3Unicast::NhIndexManager::indexMax - pool->freeNextHopIds(); used != 0 )
            lines.push_back( Gant::textsOf( intfId, " uses ", used, " indexes" ) );
      std::ranges::sort( lines );
      return lines;
   }
   // What the data plane holds and the agent does not mean, and the other way round, whatever is there.
   Lines wrong( bool packets = false ) {
      settle();
      Lines lines;
      for ( const auto & row : ask( { { "command", "verify" }, { "packets", packets } } ).rows )
         lines.push_back( row.dump() );
      return lines;
   }
   Lines refusedByDataPlane() {
      Lines lines;
      for ( auto row : ask( { { "command", "show errors" } } ).rows ) {
         row.erase( "secondsAgo" );
         lines.push_back( row.dump() );
      }
      return lines;
   }

 private:
   Host::RouterState state_;
   bool fed_ = false;
   Host::Supervisor supervisor_{ state_.tree(),
                                 { .program = VEXDP_PROGRAM, .dataPlaneLog = "off" },
                                 { [] { return true; }, [] {}, [ this ] { fed_ = true; } } };
};

} // namespace Test
