#include "DpEtherClassify.h"

#include "DpEthernet.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {

Outcome macOf( const EthernetConfigArg & arg, MacAddr & mac ) {
   if ( auto out = requireFields( { { arg.has_mac_addr(), "mac_addr" } } ); !out.ok() ) return out;
   return macFrom( "mac_addr", arg.mac_addr(), mac );
}

EthernetConfigArg argOf( const MacAddr & mac ) {
   EthernetConfigArg arg;
   arg.set_mac_addr( bytesOf( mac ) );
   return arg;
}

// The type that a bare IP packet would have in a frame.
std::uint16_t typeOfBare( const Packet & packet ) {
   const int version = packet.size() == 0 ? 0 : packet.data()[ 0 ] >> 4;
   return version == 4 ? kEtherTypeIpv4 : version == 6 ? kEtherTypeIpv6 : 0;
}

} // namespace

const ModuleClass & EtherClassify::moduleClass() {
   static const ModuleClass self = describe< EtherClassify, EtherClassifyArg >(
        "EtherClassify", "frames for the router: VRF, and a gate by EtherType",
        { .igates = kMaxGates, .ogates = kMaxGates },
        { command< &EtherClassify::setMacAddr >( "setMacAddr" ),
          command< &EtherClassify::addVirtualMac >( "addVirtualMac" ),
          command< &EtherClassify::removeVirtualMac >( "removeVirtualMac" ),
          command< &EtherClassify::setVrf >( "setVrf" ),
          command< &EtherClassify::setEtherTypeGate >( "setEtherTypeGate" ),
          command< &EtherClassify::clearEtherTypeGate >( "clearEtherTypeGate" ) } );
   return self;
}

Outcome EtherClassify::check( const EtherClassifyArg & init ) {
   MacAddr mac;
   return init.has_mac_addr() ? macFrom( "mac_addr", init.mac_addr(), mac ) : Outcome();
}

EtherClassify::EtherClassify( Identity identity, const EtherClassifyArg & init ) :
     Module( std::move( identity ) ), intfname_( init.intfname() ) {
   if ( init.has_mac_addr() ) std::ranges::copy( init.mac_addr(), initMac_.emplace().bytes.begin() );
   state_.mac = initMac_;
}

Outcome EtherClassify::setMacAddr( const EthernetConfigArg & arg ) {
   MacAddr mac;
   if ( auto out = macOf( arg, mac ); !out.ok() ) return out;
   state_.mac = mac;
   return {};
}

Outcome EtherClassify::addVirtualMac( const EthernetConfigArg & arg ) {
   MacAddr mac;
   if ( auto out = macOf( arg, mac ); !out.ok() ) return out;
   if ( !state_.virtualMacs.insert( mac ).second ) return refuse( EEXIST, "virtual MAC {} is there already", mac );
   return {};
}

Outcome EtherClassify::removeVirtualMac( const EthernetConfigArg & arg ) {
   MacAddr mac;
   if ( auto out = macOf( arg, mac ); !out.ok() ) return out;
   if ( state_.virtualMacs.erase( mac ) == 0 ) return refuse( ENOENT, "there is no virtual MAC {}", mac );
   return {};
}

Outcome EtherClassify::setVrf( const VrfArg & arg ) {
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" } } ); !out.ok() ) return out;
   state_.vrf = arg.vrf();
   return {};
}

Outcome EtherClassify::setEtherTypeGate( const EtherTypeGateArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ether_type(), "ether_type" }, { arg.has_ogate(), "ogate" } } );
        !out.ok() )
      return out;
   if ( auto out = requireAtMost( "ether_type", arg.ether_type(), 0xffff ); !out.ok() ) return out;
   if ( auto out = requireAtMost( "ogate", arg.ogate(), mclass().gates.ogates - 1 ); !out.ok() ) return out;
   state_.gates[ std::uint16_t( arg.ether_type() ) ] = arg.ogate();
   if ( arg.ether_type() == kEtherTypeIpv4 ) ipv4Gate_ = arg.ogate();
   return {};
}

Outcome EtherClassify::clearEtherTypeGate( const EtherTypeGateArg & arg ) {
   if ( auto out = requireFields( { { arg.has_ether_type(), "ether_type" } } ); !out.ok() ) return out;
   if ( arg.ether_type() > 0xffff || state_.gates.erase( std::uint16_t( arg.ether_type() ) ) == 0 )
      return refuse( ENOENT, "EtherType {:#06x} has no gate", arg.ether_type() );
   if ( arg.ether_type() == kEtherTypeIpv4 ) ipv4Gate_.reset();
   return {};
}

bool EtherClassify::isForRouter( const MacAddr & dst ) const {
   return ( state_.mac && *state_.mac == dst ) || dst.isGroup() || state_.virtualMacs.contains( dst );
}

const GateId * EtherClassify::gateOf( std::uint16_t type ) const {
   if ( type == kEtherTypeIpv4 ) return ipv4Gate_ ? &*ipv4Gate_ : nullptr;
   const auto gate = state_.gates.find( type );
   return gate == state_.gates.end() ? nullptr : &gate->second;
}

Fate EtherClassify::process( Packet & packet, Context & context ) {
   auto type = typeOfBare( packet );
   if ( packet.meta.ethernet ) {
      if ( packet.size() < kEthernetLen ) return context.drop( kNoCounter, "a frame of {} bytes", packet.size() );
      const auto dst = destinationOf( packet );
      if ( !isForRouter( dst ) ) return context.drop( kNoCounter, "a frame to {}, which is not the router", dst );
      type = get16( packet.data() + 12 );
      packet.pull( kEthernetLen );
      packet.meta.ethernet = false;
      packet.meta.linkGroup = dst.isGroup();
      context.note( "a frame to {}", dst );
   }
   packet.meta.etherType = type;
   if ( state_.vrf ) packet.meta.vrf = *state_.vrf;
   const auto * const gate = gateOf( type );
   if ( gate == nullptr ) return context.punt( "EtherType {:#06x} has no gate", type );
   context.note( "EtherType {:#06x}, VRF {}", type, packet.meta.vrf );
   return context.forward( *gate );
}

void EtherClassify::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

CommandSource EtherClassify::commands() const {
   return [ state = state_, initMac = initMac_ ]( CommandSink & sink ) {
      if ( state.mac && state.mac != initMac ) sink.command( "setMacAddr", argOf( *state.mac ) );
      for ( const auto & mac : state.virtualMacs ) sink.command( "addVirtualMac", argOf( mac ) );
      if ( state.vrf ) {
         VrfArg arg;
         arg.set_vrf( *state.vrf );
         sink.command( "setVrf", arg );
      }
      for ( const auto & [ type, ogate ] : state.gates ) {
         EtherTypeGateArg arg;
         arg.set_ether_type( type );
         arg.set_ogate( ogate );
         sink.command( "setEtherTypeGate", arg );
      }
   };
}

std::string EtherClassify::desc() const {
   return state_.mac ? fmt::format( "{} {}", intfname_, *state_.mac ) : intfname_;
}

} // namespace Vexdp
