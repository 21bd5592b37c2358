#include "HulL3IntfSm.h"

#include "GantTrace.h"
#include "HulHelper.h"
#include "HulL3Status.h"
#include "HulVrfSm.h"
#include "StateInterface.h"
#include "StateIp.h"
#include "StateIp6.h"

namespace Hul {

static Gant::TraceHandle traceHandle( "HulL3IntfSm" );

struct L3IntfSm::GantIpStatus : Ip::Status::Notifiee {
   explicit GantIpStatus( L3IntfSm * owner ) : Notifiee( owner, owner->args_.ipStatus ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

struct L3IntfSm::GantIp6Status : Ip6::Status::Notifiee {
   explicit GantIp6Status( L3IntfSm * owner ) : Notifiee( owner, owner->args_.ip6Status ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

struct L3IntfSm::GantAllIntfStatusDir : Interface::AllIntfStatusDir::Notifiee {
   explicit GantAllIntfStatusDir( L3IntfSm * owner ) :
        Notifiee( owner, owner->args_.allIntfStatusDir ), owner( owner ) {}
   void onIntfStatus( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

struct L3IntfSm::GantTable : HulL3Intf::Table::Notifiee {
   explicit GantTable( L3IntfSm * owner ) : Notifiee( owner, owner->args_.hulL3IntfTable ), owner( owner ) {}
   void onIntfL3Index( const Kynet::IntfId & intfId ) override { owner->review( intfId ); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

struct L3IntfSm::GantVrfDir : VrfDir::Notifiee {
   explicit GantVrfDir( L3IntfSm * owner ) : Notifiee( owner, owner->args_.vrfSm->vrfDir() ), owner( owner ) {}
   void onVrfPhase( const VrfId & ) override { owner->reviewAll(); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

struct L3IntfSm::GantL3Config : L3::Config::Notifiee {
   explicit GantL3Config( L3IntfSm * owner ) : Notifiee( owner, owner->args_.l3Config ), owner( owner ) {}
   void onRouting() override { owner->reviewAll(); }
   void onRenotify() override { owner->reviewAll(); }
   L3IntfSm * owner;
};

L3IntfSm::L3IntfSm( Args args ) :
     args_( std::move( args ) ), ipReactor_( std::make_unique< GantIpStatus >( this ) ),
     ip6Reactor_( std::make_unique< GantIp6Status >( this ) ),
     intfReactor_( std::make_unique< GantAllIntfStatusDir >( this ) ),
     tableReactor_( std::make_unique< GantTable >( this ) ), vrfReactor_( std::make_unique< GantVrfDir >( this ) ),
     l3Reactor_( std::make_unique< GantL3Config >( this ) ) {
   reviewAll();
}

L3IntfSm::~L3IntfSm() = default;

void L3IntfSm::reviewAll() {
   // Those that go first: after a time of silence another one may have got their VLAN.
   for ( const auto intfId : Gant::keysOf( told_ ) )
      if ( told_.contains( intfId ) && !stays( intfId, wanted( intfId ) ) ) remove( intfId );
   Gant::OrderedSet< Kynet::IntfId > intfs;
   for ( const auto & [ intfId, facts ] : told_ ) intfs.insert( intfId );
   for ( const auto & [ intfId, mss ] : toldMss_ ) intfs.insert( intfId );
   for ( const auto & [ intfId, status ] : args_.ipStatus->intfStatusIterator() ) intfs.insert( intfId );
   for ( const auto & [ intfId, status ] : args_.ip6Status->intfStatusIterator() ) intfs.insert( intfId );
   for ( const auto & intfId : args_.hulL3IntfTable->routedIntfIterator() ) intfs.insert( intfId );
   for ( const auto intfId : intfs ) review( intfId );
}

bool L3IntfSm::routed( Kynet::IntfId intfId ) const {
   const auto & ip = args_.ipStatus->intfStatus( intfId );
   return ip.routingEnabled() || ip.multicastRoutingEnabled() || ip.mplsRoutingEnabled() ||
          args_.ip6Status->intfStatus( intfId ).routingEnabled();
}

RoutingState L3IntfSm::state( Kynet::IntfId intfId ) const {
   const auto & ip = args_.ipStatus->intfStatus( intfId );
   return RoutingState( ip.routingEnabled() && args_.l3Config->routing(),
                        args_.ip6Status->intfStatus( intfId ).routingEnabled() && args_.l3Config->routing6(),
                        ip.multicastRoutingEnabled(), ip.mplsRoutingEnabled() );
}

std::optional< L3IntfSm::Facts > L3IntfSm::wanted( Kynet::IntfId intfId, Gant::String * missing ) const {
   const auto lacks = [ missing ]( const auto & why ) {
      if ( missing != nullptr ) *missing = why();
      return std::nullopt;
   };
   if ( !routed( intfId ) ) return lacks( [] { return ""; } );
   if ( !args_.allIntfStatusDir->intfStatusHas( intfId ) )
      return lacks( [] { return "the interface does not exist"; } );
   // An interface that has but IPv6 is in the default VRF.
   const auto ip = args_.ipStatus->intfStatus( intfId );
   const auto & vrf = args_.hulL3Status->vrfL3Status( ip.vrfName() );
   if ( !vrf || !args_.vrfSm->vrfDir()->active( vrf->vrfId() ) )
      return lacks( [ & ] { return "VRF " + ip.vrfName().value() + " does not exist"; } );
   const auto l3Id = args_.hulL3IntfTable->intfIdToL3Id( intfId );
   if ( !l3Id ) return lacks( [] { return "there is no VLAN for it"; } );
   return Facts{ vrf->vrfId(), static_cast< U16 >( l3Id.value() ), ip.mtu(), state( intfId ) };
}

void L3IntfSm::review( Kynet::IntfId intfId ) {
   const bool wantsVlan = routed( intfId ) && args_.allIntfStatusDir->intfStatusHas( intfId );
   // Asked for before the interface is told, given back after it is gone. The answer comes back here as a change of the
   // table, so the interface may be told when the setter returns.
   if ( wantsVlan ) args_.hulL3IntfTable->routedIntfIs( intfId, true );
   bring( intfId );
   if ( !wantsVlan ) args_.hulL3IntfTable->routedIntfDel( intfId );
   if ( !args_.allIntfStatusDir->intfStatusHas( intfId ) ) toldMss_.erase( intfId );
}

void L3IntfSm::bring( Kynet::IntfId intfId ) {
   const auto wanted = this->wanted( intfId );
   const bool stays = this->stays( intfId, wanted );
   if ( told_.contains( intfId ) && !stays ) remove( intfId );
   if ( !wanted ) return;
   tellMss( intfId );
   if ( stays )
      update( intfId, *wanted );
   else
      create( intfId, *wanted );
}

bool L3IntfSm::stays( Kynet::IntfId intfId, const std::optional< Facts > & wanted ) const {
   const auto told = told_.find( intfId );
   return told != told_.end() && wanted && told->second.vrfId == wanted->vrfId && told->second.vlanId == wanted->vlanId;
}

void L3IntfSm::create( Kynet::IntfId intfId, const Facts & wanted ) {
   GANT_TRACE( 2, "L3IntfSm::create ", intfId, " vlan ", wanted.vlanId, " vrf ", wanted.vrfId );
   told_[ intfId ] = wanted;
   args_.vrfSm->useInc( wanted.vrfId );
   args_.routingStatusHelper->handleL3Intf( intfId, wanted.vlanId, wanted.mtu, true, false, wanted.vrfId );
   args_.routingStatusHelper->enableVlanRouting( intfId, wanted.vlanId, wanted.state );
   args_.hulL3Status->intfRoutingStateIs( intfId, wanted.state );
}

void L3IntfSm::update( Kynet::IntfId intfId, const Facts & wanted ) {
   auto & told = told_[ intfId ];
   if ( std::exchange( told.mtu, wanted.mtu ) != wanted.mtu )
      args_.routingStatusHelper->handleL3Intf( intfId, wanted.vlanId, wanted.mtu, true, true, wanted.vrfId );
   if ( told.state != wanted.state ) {
      told.state = wanted.state;
      args_.routingStatusHelper->enableVlanRouting( intfId, wanted.vlanId, wanted.state );
      args_.hulL3Status->intfRoutingStateIs( intfId, wanted.state );
   }
}

void L3IntfSm::remove( Kynet::IntfId intfId ) {
   GANT_TRACE( 2, "L3IntfSm::remove ", intfId );
   const auto told = told_.find( intfId )->second;
   told_.erase( intfId );
   args_.hulL3Status->intfRoutingStateDel( intfId );
   args_.routingStatusHelper->handleL3Intf( intfId, told.vlanId, told.mtu, false, false, told.vrfId );
   args_.vrfSm->useDec( told.vrfId );
}

void L3IntfSm::tellMss( Kynet::IntfId intfId ) {
   const auto ip = args_.ipStatus->intfStatus( intfId );
   auto & told = toldMss_[ intfId ];
   if ( std::exchange( told.ingress, ip.tcpMssIngress() ) != ip.tcpMssIngress() )
      args_.routingStatusHelper->handleTcpMssIngress( intfId, ip.tcpMssIngress() );
   if ( std::exchange( told.egress, ip.tcpMssEgress() ) != ip.tcpMssEgress() )
      args_.routingStatusHelper->handleTcpMssEgress( intfId, ip.tcpMssEgress() );
}

void L3IntfSm::verify() {
   for ( const auto & [ intfId, told ] : told_ )
      args_.routingStatusHelper->verifyL3Intf( intfId, told.vlanId, told.state.routingEnabled(), told.vrfId, told.mtu );
}

void L3IntfSm::pending( Pendings & out ) const {
   const auto add = [ & ]( Kynet::IntfId intfId ) {
      Gant::String missing;
      if ( !wanted( intfId, &missing ) && !missing.empty() )
         out.push_back( { "interface " + intfId.stringValue(), std::move( missing ) } );
   };
   for ( const auto & [ intfId, status ] : args_.ipStatus->intfStatusIterator() ) add( intfId );
   for ( const auto & [ intfId, status ] : args_.ip6Status->intfStatusIterator() )
      if ( !args_.ipStatus->intfStatusHas( intfId ) ) add( intfId );
}

} // namespace Hul
