#include "VexL3Modules.h"

#include "GantException.h"

#include <google/protobuf/message.h>

namespace VexL3Unicast {

namespace {

Gant::String textOfPair( const Gant::Ptr< Vex::ModuleConfigStatusPair > & pair ) { return pair ? pair->name() : ""; }

Gant::String textOfPointer( const void * p ) { return Gant::format( "%p", p ); }

// A present proxy was made with these values.
void checkReinstantiation( const Vex::Module & present, const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                           const L3Modules::PairPtr & pair ) {
   using Gant::throwReinstantiated;
   if ( present.name() != name ) throwReinstantiated( "_name", name, present.name() );
   if ( present.maxInGate() != maxInGate )
      throwReinstantiated( "_maxInGate", std::to_string( maxInGate ), std::to_string( present.maxInGate() ) );
   if ( present.maxOutGate() != maxOutGate )
      throwReinstantiated( "_maxOutGate", std::to_string( maxOutGate ), std::to_string( present.maxOutGate() ) );
   if ( present.modulePair() != pair )
      throwReinstantiated( "_modulePair", textOfPair( pair ), textOfPair( present.modulePair() ) );
}

// `l3Sm` is part of those proxies that know one.
template < typename Map >
typename Map::mapped_type keyedIs( Map & modules, const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                   google::protobuf::Message * message, const L3Modules::PairPtr & pair, VexL3Sm * l3Sm,
                                   Kynet::IntfId intfId ) {
   using Mod = typename Map::mapped_type::element_type;
   constexpr bool knowsL3Sm = requires( Mod & m ) { m.l3Sm(); };
   std::unique_ptr< google::protobuf::Message > taken( message );
   auto & module = modules[ intfId ];
   if ( !module ) {
      if constexpr ( knowsL3Sm )
         module = Gant::make< Mod >( name, maxInGate, maxOutGate, taken.release(), pair, l3Sm, intfId );
      else
         module = Gant::make< Mod >( name, maxInGate, maxOutGate, taken.release(), pair, intfId );
      return module;
   }
   checkReinstantiation( *module, name, maxInGate, maxOutGate, pair );
   if constexpr ( knowsL3Sm )
      if ( module->l3Sm() != l3Sm )
         Gant::throwReinstantiated( "_l3Sm", textOfPointer( l3Sm ), textOfPointer( module->l3Sm() ) );
   module->initArgsIs( taken.release() );
   return module;
}

} // namespace

const Gant::Ptr< FibIpv4 > & L3Modules::fibIpv4Is( const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                                   Message * message, const PairPtr & pair, VexL3Sm * l3Sm ) {
   return fibIpv4_ = Gant::make< FibIpv4 >( name, maxInGate, maxOutGate, message, pair, l3Sm );
}

const Gant::Ptr< ForUsClassifyIpv4 > & L3Modules::forUsClassifyIpv4Is( const Gant::String & name, U32 maxInGate,
                                                                       U32 maxOutGate, U32 reservedInGate,
                                                                       U32 reservedOutGate, Message * message,
                                                                       const PairPtr & pair ) {
   return forUsClassifyIpv4_ = Gant::make< ForUsClassifyIpv4 >( name, maxInGate, maxOutGate, reservedInGate,
                                                                reservedOutGate, message, pair );
}

Gant::Ptr< IpInputMod > L3Modules::ipInputModIs( const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                                 Message * message, const PairPtr & pair, Kynet::IntfId intfId ) {
   return keyedIs( ipInputMod_, name, maxInGate, maxOutGate, message, pair, nullptr, intfId );
}

Gant::Ptr< IpOutputMod > L3Modules::ipOutputModIs( const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                                   Message * message, const PairPtr & pair, Kynet::IntfId intfId ) {
   return keyedIs( ipOutputMod_, name, maxInGate, maxOutGate, message, pair, nullptr, intfId );
}

#define VEX_L3_MODULE( Mods, mod )                                                                                     \
   L3Modules::Mods::mapped_type L3Modules::mod##Is( const Gant::String & name, U32 maxInGate, U32 maxOutGate,          \
                                                    Message * message, const PairPtr & pair, VexL3Sm * l3Sm,           \
                                                    Kynet::IntfId intfId ) {                                           \
      return keyedIs( mod##_, name, maxInGate, maxOutGate, message, pair, l3Sm, intfId );                              \
   }

VEX_L3_MODULE( NextHopMods, nextHopMod )
VEX_L3_MODULE( Ip4GreTuns, ip4GreTun )
VEX_L3_MODULE( Ip4GreTuns, ip4GreTunCp )
VEX_L3_MODULE( Ip4IpsecTuns, ip4IpsecTun )
VEX_L3_MODULE( Ip4IpsecTuns, ip4IpsecTunCp )
VEX_L3_MODULE( NhResolves, nhResolve )

} // namespace VexL3Unicast
