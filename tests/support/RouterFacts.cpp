#include "RouterFacts.h"

namespace Test {

Kynet::IntfId intf( const char * name ) { return Kynet::IntfId::fromString( name ).value(); }
Kynet::IpAddr ip( const char * text ) { return Kynet::IpAddr::fromString( text ).value(); }
Kynet::Prefix prefix( const char * text ) { return Kynet::Prefix::fromString( text ).value(); }
Kynet::EthAddr mac( const char * text ) { return Kynet::EthAddr::fromString( text ).value(); }
Kynet::IpGenAddr addr( const char * text ) { return Kynet::IpGenAddr::fromString( text ).value(); }

Mirel::Via viaTo( const char * hop, const char * intfName, U16 weight ) {
   return Mirel::Via( Mirel::RouteType::forward(), hop == nullptr ? Kynet::IpGenAddr() : addr( hop ),
                      intfName == nullptr ? Kynet::IntfId() : intf( intfName ), weight );
}

void RouterFacts::vrf( const char * name, U32 id, bool active ) {
   vrfs->vrfStatusIs( L3::VrfName( name ), Ip::VrfStatus( id, active ) );
}

void RouterFacts::intf( const char * name, const char * vrfName, U32 mtu ) {
   ipStatus->intfStatusIs( Test::intf( name ),
                           Ip::IntfStatus( L3::VrfName( vrfName ), true, false, false, mtu, 0, 0 ) );
   up( name, true );
}

void RouterFacts::intfDel( const char * name ) {
   intfs->intfStatusDel( Test::intf( name ) );
   ipStatus->intfStatusDel( Test::intf( name ) );
}

void RouterFacts::up( const char * name, bool up ) {
   intfs->intfStatusIs( Test::intf( name ), Interface::IntfStatus( true, up ) );
}

void RouterFacts::neighbor( const char * intfName, const char * address, const char * macAddr ) {
   arp->neighborIs( Arp::NeighborKey( Test::intf( intfName ), addr( address ) ), mac( macAddr ) );
}

void RouterFacts::neighborDel( const char * intfName, const char * address ) {
   arp->neighborDel( Arp::NeighborKey( Test::intf( intfName ), addr( address ) ) );
}

bool RouterFacts::route( const char * text, U64 fecId, U32 vrfId, Mirel::RouteType::Value type ) {
   return fib->routeIs( vrfId, prefix( text ), Mirel::Route( type, fecId, 0 ) );
}

} // namespace Test
