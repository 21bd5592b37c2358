// The engine around the layer-3 agent, over a recording data plane, and a layer-3 agent's core on top of it.
#pragma once

#include "RecordingChannel.h"
#include "RouterFacts.h"
#include "VexAdjHelper.h"
#include "VexIpsecHelper.h"
#include "VexL3Sm.h"
#include "VexRoute4Helper.h"
#include "VexRoute6Helper.h"
#include "VexRoutingStatusHelper.h"
#include "VexVrfHelper.h"

namespace Test {

class Engine {
 public:
   // An Ethernet port of that MAC, or a tunnel.
   Gant::Ptr< Vex::L2Intf > port( const char * name, const char * macAddr = "00:00:00:00:00:01" );
   Gant::Ptr< Vex::L2Intf > tunnel( const char * name, Vex::EncapType encapType = Vex::EncapType::gre_ );
   Lines take() { return channel->take(); }

   Gant::Ptr< RecordingChannel > channel = Gant::make< RecordingChannel >();
   Gant::Ptr< Vex::ModuleGlobalCmdConfig > global = Gant::make< Vex::ModuleGlobalCmdConfig >( channel );
   Gant::Ptr< Vex::ModuleConfigStatusPair > enginePair = global->moduleConfigStatusPairIs( "engine" );
   Gant::Ptr< Vex::ModuleConfigStatusPair > l3Pair = global->moduleConfigStatusPairIs( "l3" );
   Gant::Ptr< Vex::TrapModule > trap = Gant::make< Vex::TrapModule >( enginePair );
   Gant::Ptr< Vex::BessCounterInfo > counters = Gant::make< Vex::BessCounterInfo >( 1000 );
   Gant::Ptr< Vex::VexCommonSmData > vexcsd = Gant::make< Vex::VexCommonSmData >( global, trap, counters );
};

// The core as phase two makes it, with the default VRF known to the layer.
class L3Core : public Engine {
 public:
   L3Core();
   ~L3Core();

   // A VRF that the layer knows by name and id.
   void vrf( const char * name, U32 id );
   // A routed interface, with its L3Id.
   void routed( const char * name, U32 vlan, U32 vrf = 0, U32 mtu = 1500 );
   // An adjacency under the index.
   Gant::Ptr< Hul::L2Adjacency > adjacency( U64 index, const Hul::NextHopCollection & via );
   bool route( const char * prefixText, U64 oldAdj, U64 newAdj, U64 sequence = 0, U32 vrf = 0 );
   // The database keeps its invariants; the text of the first that is broken.
   Gant::String brokenInvariant() const;

   Gant::Ptr< Bridging::Config > bridgingConfig = Gant::make< Bridging::Config >( "bridging" );
   Gant::Ptr< Hul::L3Status > l3Status = Gant::make< Hul::L3Status >( "hulL3Status" );
   Gant::Ptr< HulL3Intf::Table > l3IntfTable = Gant::make< HulL3Intf::Table >( "hulL3IntfTable", true );
   Gant::Ptr< VexL3Unicast::L3Modules > l3Modules = Gant::make< VexL3Unicast::L3Modules >();
   Gant::Ptr< VexL3Unicast::RouteDb > routeDb = VexL3Unicast::routeDbFactory( "routeDb" );
   Gant::Ptr< VexL3Mcast::MfaAgent > mfa4, mfa6;
   Gant::Ptr< Vex::ManagementSm > managementSm = Gant::make< Vex::ManagementSm >();
   Gant::Ptr< VexL3Unicast::IpsecHelper > ipsecHelper = Gant::make< VexL3Unicast::IpsecHelper >( vexcsd, managementSm );
   Gant::Ptr< VexL3Unicast::VexL3Sm > sm;
   Gant::Ptr< VexL3Unicast::AdjHelper > adjHelper;
   Gant::Ptr< VexL3Unicast::Route4Helper > route4Helper;
   Gant::Ptr< VexL3Unicast::Route6Helper > route6Helper;
   Gant::Ptr< VexL3Unicast::VexVrfHelper > vrfHelper;
   Gant::Ptr< VexL3Unicast::RoutingStatus > routingStatus = VexL3Unicast::routingStatusFactory( "routingStatus" );
   Gant::Ptr< VexL3Unicast::RoutingStatusHelper > routingStatusHelper;
};

// Next hops in a few words: forward over an interface to a MAC, with a multiplicity.
Hul::NextHop forwardHop( const char * intfName, const char * macAddr );
Hul::NextHop tunnelHop( const char * tunnelName, const char * underlay, const char * macAddr );
Hul::NextHop hop( Hul::NextHopEntryType type, const char * intfName );
Hul::NextHopCollection via( std::initializer_list< std::pair< Hul::NextHop, U32 > > hops );

} // namespace Test
