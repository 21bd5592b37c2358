#include "HostComparePorts.h"

#include "KynetAddr.h"

namespace Host {

namespace {

std::string portInWords( const bess::pb::CreatePortRequest & create, const std::string & device ) {
   return create.driver() + " " + device;
}

} // namespace

PortComparison::PortComparison( const Ports & ports, const Vex::Peer & peer, std::function< void() > wake ) :
     generation_( ports.generation() ), engine_( peer ), wake_( std::move( wake ) ) {
   for ( const auto & [ key, port ] : ports.kept() )
      if ( port->wish() && !port->leftOut() )
         wanted_.push_back( { port->name(), *port->wish(), port->reason(), {}, {} } );
   due_ = 1 + wanted_.size();
   calls_.push_back( engine_.listPorts( [ this ]( const auto & error, const auto & reply ) {
      error_ = error.empty() ? reply.error().errmsg() : error;
      list_ = reply;
      answered();
   } ) );
   for ( auto & wanted : wanted_ )
      calls_.push_back( engine_.portConf( wanted.name, [ this, &wanted ]( const auto & error, const auto & reply ) {
         wanted.confError = error.empty() ? reply.error().errmsg() : error;
         wanted.conf = reply;
         answered();
      } ) );
}

void PortComparison::answered() {
   if ( --due_ == 0 ) wake_();
}

void PortComparison::write( Findings & findings ) const {
   if ( !error_.empty() ) {
      if ( wanted_.empty() )
         findings.notCompared( "ports" );
      else
         findings.reported( "the data plane does not list its ports: " + error_ );
      return;
   }
   findings.compared( "ports", wanted_.size() );
   std::map< std::string, const bess::pb::ListPortsResponse::Port * > held;
   for ( const auto & port : list_.ports() ) held[ port.name() ] = &port;
   for ( const auto & wanted : wanted_ ) {
      const auto at = held.find( wanted.name );
      if ( at == held.end() ) {
         findings.missing( wanted.name, "port",
                           portInWords( wanted.wish.create, wanted.wish.device ) +
                                ( wanted.reason.empty() ? "" : ": " + wanted.reason ) );
         continue;
      }
      compare( wanted, *at->second, findings );
      held.erase( at );
   }
   for ( const auto & [ name, port ] : held ) findings.unexpected( name, "port", port->driver() );
}

void PortComparison::compare( const Wanted & wanted, const bess::pb::ListPortsResponse::Port & held,
                              Findings & findings ) const {
   const auto & create = wanted.wish.create;
   findings.compare( wanted.name, "driver", create.driver(), held.driver() );
   if ( create.arg().type_url() != held.driver_arg().type_url() || create.arg().value() != held.driver_arg().value() )
      findings.different( wanted.name, "argument", create.arg().ShortDebugString(),
                          held.driver_arg().ShortDebugString() );
   findings.compare( wanted.name, "queues",
                     std::to_string( create.num_inc_q() ) + " in, " + std::to_string( create.num_out_q() ) + " out",
                     std::to_string( held.num_inc_q() ) + " in, " + std::to_string( held.num_out_q() ) + " out" );
   if ( !wanted.confError.empty() ) return;
   const auto & meant = wanted.wish.conf;
   const auto & conf = wanted.conf.conf();
   // What a driver does not have, it leaves empty, and so is here what is for others to say.
   if ( const auto mac = Kynet::EthAddr::fromString( conf.mac_addr() ); mac && !!*mac && !meant.mac_addr().empty() )
      findings.compare( wanted.name, "MAC", meant.mac_addr(), mac->stringValue() );
   if ( conf.mtu() != 0 && meant.mtu() != 0 )
      findings.compare( wanted.name, "MTU", std::to_string( meant.mtu() ), std::to_string( conf.mtu() ) );
   findings.compare( wanted.name, "enabled", meant.admin_up() ? "yes" : "no", conf.admin_up() ? "yes" : "no" );
}

} // namespace Host
