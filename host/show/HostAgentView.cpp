#include "HostAgentView.h"

#include "HulL3Status.h"
#include "VexMcast.h"

#include <cctype>

namespace Host {

using namespace VexL3Unicast;

AgentView::AgentView( DaemonControl & daemon ) : daemon_( daemon ), number_( daemon.status().restarts ) { check(); }

void AgentView::check() const {
   const auto agent = daemon_.agent();
   if ( !agent || !agent->processingStarted() || !daemon_.vexcsd() || !daemon_.channel() )
      throw CommandError( ErrorCode::unavailable, "there is no data plane at present" );
   if ( daemon_.status().restarts != number_ )
      throw CommandError( ErrorCode::unavailable, "the data plane was lost meanwhile" );
}

Gant::Ptr< AgentSm > AgentView::agent() const {
   check();
   return daemon_.agent();
}

Gant::Ptr< Vex::VexCommonSmData > AgentView::vexcsd() const {
   check();
   return daemon_.vexcsd();
}

Gant::Ptr< Vex::GrpcChannel > AgentView::channel() const {
   check();
   return daemon_.channel();
}

const Ports * AgentView::ports() const {
   check();
   return daemon_.ports();
}

std::map< std::string, Vex::Module * > AgentView::modules() const {
   std::map< std::string, Vex::Module * > modules;
   for ( const auto & [ name, pair ] : vexcsd()->moduleGlobalCmdConfig()->moduleConfigStatusPairIterator() )
      for ( const auto & [ moduleName, module ] : pair->moduleConfig()->modules() ) modules[ moduleName ] = module;
   return modules;
}

std::vector< std::pair< U32, std::string > > vrfsOf( const AgentView & session, const std::string & name ) {
   const auto status = session.agent()->hulL3Status();
   if ( name == "all" ) {
      std::map< U32, std::string > vrfs;
      for ( const auto & [ vrfId, vrf ] : status->vrfNameIterator() ) vrfs[ vrfId.value() ] = vrf.value();
      return { vrfs.begin(), vrfs.end() };
   }
   const L3::VrfName wanted( name.empty() ? "default" : name );
   const auto & vrf = status->vrfL3Status( wanted );
   if ( !vrf ) throw CommandError( ErrorCode::notFound, "there is no VRF \"" + wanted.value() + "\"" );
   return { { vrf->vrfId().value(), wanted.value() } };
}

std::string vrfName( const AgentView & session, Hul::VrfId vrfId ) {
   const auto & name = session.agent()->hulL3Status()->vrfName( vrfId ).value();
   return name.empty() ? std::to_string( vrfId.value() ) : name;
}

Kynet::IntfId intfOf( const std::string & text ) {
   const auto intfId = Kynet::IntfId::fromString( text );
   if ( !intfId ) throw CommandError( ErrorCode::usage, "\"" + text + "\" is no interface's name" );
   return *intfId;
}

Target targetOf( const std::string & text ) {
   if ( text == "default" ) return { Kynet::IpAddr(), U8( 0 ) };
   if ( const auto address = Kynet::IpGenAddr::fromString( text ) ) return { *address, std::nullopt };
   const auto prefix = Kynet::IpGenPrefix::fromString( text );
   if ( !prefix ) throw CommandError( ErrorCode::usage, "\"" + text + "\" is neither an address nor a prefix" );
   const bool v4 = prefix->af() == Kynet::AddressFamily::ipv4_;
   if ( !( v4 ? prefix->v4Prefix().canonical() : prefix->v6Prefix().canonical() ) )
      throw CommandError( ErrorCode::usage, "prefix " + text + " has host bits" );
   if ( v4 ) return { prefix->v4Prefix().address(), prefix->len() };
   return { prefix->v6Prefix().address(), prefix->len() };
}

std::vector< BuiltInRoute > builtInRoutes( const AgentView & session, Hul::VrfId vrfId ) {
   const auto modules = session.l3Modules();
   const auto mfib = session.agent()->mfaAgent()->getMfibModule( L3::VrfName( vrfName( session, vrfId ) ) );
   const auto dataGate = mfib ? modules->fibIpv4()->findGateByName( mfib->name(), false ) : Vex::GateId();
   return {
        { Kynet::Prefix( Kynet::IpAddr( 0xe0000000 ), 4 ), modules->mcastDataFecKey(), dataGate, "multicast" },
        { Kynet::Prefix( Kynet::IpAddr( 0xe0000000 ), 24 ), modules->mcastLinkLocalFecKey(), Vex::GateId( 0 ),
          "link-local multicast" },
        { Kynet::Prefix( Kynet::IpAddr( 0xffffffff ), 32 ), modules->bcastFecKey(), Vex::GateId( 0 ), "broadcast" } };
}

std::string commandName( NextHopPktCmd command ) {
   constexpr std::string_view prefix = "pktCmd";
   auto name = command.stringValue();
   if ( !name.starts_with( prefix ) ) return name;
   name.erase( 0, prefix.size() );
   name[ 0 ] = static_cast< char >( std::tolower( name[ 0 ] ) );
   return name;
}

std::string textOrNone( const Kynet::EthAddr & mac ) { return !mac ? std::string() : mac.stringValue(); }

namespace {

Json gateOrNull( Vex::GateId gate ) { return !gate ? Json() : Json( gate.value() ); }

Json nexthop( const L3Modules & modules, const Fec & fec, U32 slot ) {
   const auto & key = fec.info().nextHop( slot );
   Json nexthop{ { "interface", key.intf().stringValue() }, { "command", commandName( key.pktCmd() ) } };
   // What drops is no member of the FEC in the data plane.
   if ( key.pktCmd() == NextHopPktCmd::pktCmdDrop_ ) return nexthop;
   if ( !!key.ethAddr() ) nexthop[ "mac" ] = key.ethAddr().stringValue();
   nexthop[ "index" ] = key.nhLocalIndex();
   const auto out = !key.tunnelIntf() ? key.intf() : key.tunnelIntf();
   if ( !!key.tunnelIntf() ) {
      // The FEC's member is an entry of the tunnel's own table, which leads to that of the interface.
      nexthop[ "tunnel" ] = key.tunnelIntf().stringValue();
      nexthop[ "interfaceIndex" ] = key.nhLocalIndex();
      const auto & resolve = modules.nhResolve( key.tunnelIntf() );
      nexthop[ "index" ] =
           resolve ? Json( resolve->nhrEntry( NhrEntryKey( fec.key(), slot, key.intf(), key.nhLocalIndex() ) ) )
                   : Json();
   }
   nexthop[ "gate" ] = gateOrNull( modules.fibIpv4()->intfIdToOutGate( out ) );
   return nexthop;
}

} // namespace

Json placeOf( U32 gate, U32 index ) {
   Json place;
   if ( gate != Vex::GateId().value() ) place[ "gate" ] = gate;
   place[ "index" ] = index;
   return place;
}

Json nexthopsOf( const AgentView & session, const Fec & fec ) {
   auto nexthops = Json::array();
   const auto modules = session.l3Modules();
   for ( U32 slot = 0; slot < fec.info().numberOfUniqueNextHops(); ++slot )
      nexthops.push_back( nexthop( *modules, fec, slot ) );
   return nexthops;
}

} // namespace Host
