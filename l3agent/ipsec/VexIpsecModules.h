// The proxies of the IPsec modules, and the pair of output modules that a tunnel interface has per connection.
#pragma once

#include "KynetAddr.h"
#include "StateIpsec.h"
#include "VexModule.h"

namespace VexL3Unicast {

// Of its gates none is reserved.
class IpsecModule : public Vex::Module {
 public:
   using Pair = Gant::Ptr< Vex::ModuleConfigStatusPair >;

   IpsecModule( const Gant::String & name, Vex::VexModule::ModuleClass moduleClass, U32 maxInGate, U32 maxOutGate,
                Message * initArgs, Pair pair ) :
        Module( name, moduleClass, maxInGate, maxOutGate, 0, 0, initArgs, std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecModule"; }
};

// Holds the security associations, and takes all their commands.
class IpsecManagementModule : public IpsecModule {
 public:
   IpsecManagementModule( U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair ) :
        IpsecModule( "ipsecManagementModule", Vex::VexModule::IpsecManagement, maxInGate, maxOutGate, initArgs,
                     std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecManagementModule"; }
};

class IpsecDecryptModule : public IpsecModule {
 public:
   IpsecDecryptModule( U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair ) :
        IpsecModule( "ipsecDecryptModule", Vex::VexModule::IpsecDecrypt, maxInGate, maxOutGate, initArgs,
                     std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecDecryptModule"; }
};

class IpsecEncryptModule : public IpsecModule {
 public:
   IpsecEncryptModule( U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair ) :
        IpsecModule( "ipsecEncryptModule", Vex::VexModule::IpsecEncrypt, maxInGate, maxOutGate, initArgs,
                     std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecEncryptModule"; }
};

class IpsecInTunnelModule : public IpsecModule {
 public:
   IpsecInTunnelModule( U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair ) :
        IpsecModule( "ipsecInTunnelModule", Vex::VexModule::IpsecTunnelIngress, maxInGate, maxOutGate, initArgs,
                     std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecInTunnelModule"; }
};

class IpsecOutTunnelModule : public IpsecModule {
 public:
   IpsecOutTunnelModule( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair ) :
        IpsecModule( name, Vex::VexModule::IpsecTunnelEgress, maxInGate, maxOutGate, initArgs, std::move( pair ) ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecOutTunnelModule"; }
};

// The policies of an interface, by the connections that they lead to.
class IpsecPolicyModule : public IpsecModule {
 public:
   using EncapIds = Gant::OrderedSet< Ipsec::Ike::EncapId >;

   IpsecPolicyModule( const Gant::String & name, Vex::VexModule::ModuleClass moduleClass, U32 maxInGate, U32 maxOutGate,
                      Message * initArgs, Pair pair, Kynet::IntfId intfId ) :
        IpsecModule( name, moduleClass, maxInGate, maxOutGate, initArgs, std::move( pair ) ),
        intfId_( intfId ) {}
   GANT_CONST( Kynet::IntfId, intfId )
   GANT_SET( EncapIds, encapId )
};

class IpsecInPolicyModule : public IpsecPolicyModule {
 public:
   IpsecInPolicyModule( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair,
                        Kynet::IntfId intfId ) :
        IpsecPolicyModule( name, Vex::VexModule::IpsecPolicyIngress, maxInGate, maxOutGate, initArgs, std::move( pair ),
                           intfId ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecInPolicyModule"; }
};

class IpsecOutPolicyModule : public IpsecPolicyModule {
 public:
   IpsecOutPolicyModule( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs, Pair pair,
                         Kynet::IntfId intfId ) :
        IpsecPolicyModule( name, Vex::VexModule::IpsecPolicyEgress, maxInGate, maxOutGate, initArgs, std::move( pair ),
                           intfId ) {}
   const char * fwkType() const override { return "VexL3Unicast::IpsecOutPolicyModule"; }
};

class IpsecOutTunnelModuleKey {
   GANT_VALUE( "VexL3Unicast::IpsecOutTunnelModuleKey", IpsecOutTunnelModuleKey, ( Kynet::NamespaceName, vrfName ),
               ( Ipsec::Ike::EncapId, ipsecEncapId ), ( Kynet::IntfId, intfId ) )
};

// One module for forwarded packets and one for the device's own.
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

} // namespace VexL3Unicast
