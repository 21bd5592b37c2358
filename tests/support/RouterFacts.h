// What a host writes of a router, in a few words.
#pragma once

#include "MirelFib.h"
#include "StateArp.h"
#include "StateBridging.h"
#include "StateFhrp.h"
#include "StateInterface.h"
#include "StateIp.h"

namespace Test {

Kynet::IntfId intf( const char * name );
Kynet::IpAddr ip( const char * text );
Kynet::Prefix prefix( const char * text );
Kynet::EthAddr mac( const char * text );
// Of either family.
Kynet::IpGenAddr addr( const char * text );

// A way to a hop over an interface, of which either may be null: none.
Mirel::Via viaTo( const char * hop, const char * intfName, U16 weight = 1 );

// The entities that agents and layers come and go over.
struct RouterFacts {
   RouterFacts() { intfs->tunnelIntfStatusDirIs( tunnels ); }

   void vrf( const char * name, U32 id, bool active = true );
   void vrfDel( const char * name ) { vrfs->vrfStatusDel( L3::VrfName( name ) ); }
   // Routed and up.
   void intf( const char * name, const char * vrfName = "default", U32 mtu = 1500 );
   void intfDel( const char * name );
   void up( const char * name, bool up );
   void neighbor( const char * intfName, const char * address, const char * macAddr );
   void neighborDel( const char * intfName, const char * address );
   void fec( U64 fecId, const Mirel::Vias & vias ) { fib->fecIs( fecId, vias ); }
   bool route( const char * text, U64 fecId, U32 vrfId = 0, Mirel::RouteType::Value type = Mirel::RouteType::forward_ );
   bool routeDel( const char * text, U32 vrfId = 0 ) { return fib->routeDel( vrfId, prefix( text ) ); }

   Gant::Ptr< Ip::AllVrfStatusLocal > vrfs = Gant::make< Ip::AllVrfStatusLocal >();
   Gant::Ptr< Ip::Status > ipStatus = Gant::make< Ip::Status >();
   Gant::Ptr< Interface::AllIntfStatusDir > intfs = Gant::make< Interface::AllIntfStatusDir >();
   Gant::Ptr< Interface::TunnelIntfStatusDir > tunnels = Gant::make< Interface::TunnelIntfStatusDir >();
   Gant::Ptr< Arp::Table::Status > arp = Gant::make< Arp::Table::Status >();
   Gant::Ptr< Mirel::Fib::RouteStatus > fib = Gant::make< Mirel::Fib::RouteStatus >();
   Gant::Ptr< Mirel::Fib6::RouteStatus > fib6 = Gant::make< Mirel::Fib6::RouteStatus >();
};

} // namespace Test
