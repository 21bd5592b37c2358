// The IPsec side of tunnel interfaces: a pair of output modules for each, one for forwarded traffic and one for the
// device's own.
#pragma once

#include "KynetAddr.h"
#include "StateIpsec.h"
#include "VexCommonSmData.h"

namespace VexL3Unicast {

class IpsecOutTunnelModule : public Vex::Module {
 public:
   IpsecOutTunnelModule( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                         Gant::Ptr< Vex::ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "VexL3Unicast::IpsecOutTunnelModule"; }
};

class IpsecOutTunnelModuleKey {
   GANT_VALUE( "VexL3Unicast::IpsecOutTunnelModuleKey", IpsecOutTunnelModuleKey, ( Kynet::NamespaceName, vrfName ),
               ( Ipsec::Ike::EncapId, ipsecEncapId ), ( Kynet::IntfId, intfId ) )
};

class IpsecOutTunnelModulePair : public Gant::PtrInterface {
 public:
   explicit IpsecOutTunnelModulePair( IpsecOutTunnelModuleKey key ) : ipsecOutTunnelModuleKey_( std::move( key ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecOutTunnelModulePair"; }
   GANT_CONST( IpsecOutTunnelModuleKey, ipsecOutTunnelModuleKey )
   GANT_ATTR( Gant::Ptr< IpsecOutTunnelModule >, forwardOutTunnelModule )
   GANT_ATTR( Gant::Ptr< IpsecOutTunnelModule >, localOutTunnelModule )
   // The connection has an outbound security association.
   GANT_ATTR( bool, active, false )
};

class IpsecHelper : public Gant::PtrInterface {
 public:
   using OutTunnelModulePairs = Gant::HashMap< IpsecOutTunnelModuleKey, Gant::Ptr< IpsecOutTunnelModulePair > >;

   explicit IpsecHelper( Gant::Ptr< Vex::VexCommonSmData > vexcsd );
   ~IpsecHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::IpsecHelper"; }

   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   // The command group of all IPsec modules.
   GANT_CONST( Gant::Ptr< Vex::ModuleConfigStatusPair >, ipsecModuleConfigStatusPair )
   GANT_MAP( OutTunnelModulePairs, outTunnelIpsecModulePair )

   // The pair of the key, made if there is none. A new pair is not active.
   Gant::Ptr< IpsecOutTunnelModulePair > getOrCreateOutTunnelIpsecModulePair( const Kynet::NamespaceName & vrfName,
                                                                              const Ipsec::Ike::EncapId & encapId,
                                                                              Kynet::IntfId intfId );
   // Ends both modules, once nobody else holds them.
   void deleteOutTunnelIpsecModulePair( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                                        Kynet::IntfId intfId );
   // Leaves the pair inactive.
   void cleanupOutTunnelIpsecModulePair( const Kynet::NamespaceName & vrfName, const Ipsec::Ike::EncapId & encapId,
                                         Kynet::IntfId intfId );
   void programActiveOutTunnelIpsecModulePair( const Gant::Ptr< IpsecOutTunnelModulePair > & pair, bool active );

 private:
   Gant::Ptr< IpsecOutTunnelModule > newOutTunnelModule( const char * prefix, const IpsecOutTunnelModuleKey & key,
                                                         bool localOut );
};

} // namespace VexL3Unicast
