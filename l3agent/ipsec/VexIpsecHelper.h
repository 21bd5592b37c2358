// IPsec connections in the data plane: one set of global modules, a pair of output modules per tunnel interface of a
// connection, and the security associations as commands to the management module. A pair, because what is forwarded
// loses a hop on its way in, and the router's own packets do not.
#pragma once

#include "HulIpsecSmHelper.h"
#include "VexCommonSmData.h"
#include "VexIpsecModules.h"
#include "VexManagementSm.h"

namespace vex::pb {
class IpsecUpdateSAArg;
}

namespace VexL3Unicast {

class IpsecConnectionKey {
   GANT_VALUE( "VexL3Unicast::IpsecConnectionKey", IpsecConnectionKey, ( Kynet::NamespaceName, vrfName ),
               ( Ipsec::Ike::EncapId, ipsecEncapId ) )
};

// `core` is 0. `flowKey` is the flow of the connection's inbound tunnel packets; empty until the first inbound
// association, and from then on unchanged.
class IpsecConnectionInfo {
   GANT_VALUE( "VexL3Unicast::IpsecConnectionInfo", IpsecConnectionInfo, ( IpsecConnectionKey, ipsecConnectionKey ),
               ( U32, core ), ( bool, outSaPresent ), ( Vex::FlowKey, flowKey ) )
};

//   called by  HulIpsec::HulConnectionTableSm, and VexL3Sm, which wires the pairs into their interfaces
//   commands   of the pair "ipsec", whose errors go to its error queue
//   calls      Vex::ManagementSm::createFlowEntry, deleteFlowEntry
//
// A connection's record lives from newConnection to deleteConnection; a change of one that there is not works on a
// record of defaults. A pair is active while its connection has an outbound association. It may come before its
// connection and outlive it: only VexL3Sm deletes pairs, because it has them wired.
//
// In the data plane every connection is in the default VRF: a VRF's name serves for the keys alone. Associations are
// not kept here. Each change brings all of one direction of one connection, and a refusal changes nothing here.
class IpsecHelper : public HulIpsec::HulIpsecSmHelper {
 public:
   using Vrf = Kynet::NamespaceName;
   using EncapId = Ipsec::Ike::EncapId;
   using SecurityAssociation = Ipsec::Ike::SecurityAssociation;
   using Connections = Gant::HashMap< IpsecConnectionKey, IpsecConnectionInfo >;
   using OutTunnelModulePairs = Gant::HashMap< IpsecOutTunnelModuleKey, Gant::Ptr< IpsecOutTunnelModulePair > >;
   using InPolicyModules = Gant::HashMap< Kynet::IntfId, Gant::Ptr< IpsecInPolicyModule > >;
   using OutPolicyModules = Gant::HashMap< Kynet::IntfId, Gant::Ptr< IpsecOutPolicyModule > >;

   static constexpr U32 maxIpsecSasDefault() { return 1024; }
   static constexpr U32 maxIpsecPoliciesDefault() { return 1024; }
   static constexpr S32 socketIdDefault() { return -1; } // any
   static constexpr const char * cryptoDevNameOpenSsl() { return "crypto_openssl"; }
   static constexpr const char * cryptoDevNameNull() { return "crypto_null"; }
   static constexpr U32 maxNbQueuePairsDefault() { return 128; }
   static constexpr U32 maxNbSessionsDefault() { return 2048; }
   static constexpr U32 saTypeDefault() { return 0; }

   // Makes the global modules and brings up the crypto devices.
   IpsecHelper( Gant::Ptr< Vex::VexCommonSmData > vexcsd, Gant::Ptr< Vex::ManagementSm > managementSm );
   ~IpsecHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::IpsecHelper"; }

   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< Vex::ManagementSm >, managementSm )
   // The command group of all IPsec modules.
   GANT_ATTR( Gant::Ptr< Vex::ModuleConfigStatusPair >, ipsecModuleConfigStatusPair )
   GANT_MAP( Connections, ipsecConnectionInfo )
   GANT_ATTR( Gant::Ptr< IpsecManagementModule >, managementIpsecModule )
   GANT_ATTR( Gant::Ptr< IpsecDecryptModule >, decryptIpsecModule ) // for others to set
   GANT_ATTR( Gant::Ptr< IpsecEncryptModule >, encryptIpsecModule ) // for others to set
   GANT_ATTR( Gant::Ptr< IpsecInTunnelModule >, inTunnelIpsecModule )
   GANT_MAP( OutTunnelModulePairs, outTunnelIpsecModulePair )
   GANT_MAP( InPolicyModules, inPolicyIpsecModule )
   GANT_MAP( OutPolicyModules, outPolicyIpsecModule )
   GANT_ATTR( bool, initialized, false ) // nothing sets it

   void newConnection( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList * intfList,
                       const SecurityAssociation * outSa, const HulIpsec::SecurityAssociationQueue & inSaq ) override;
   void deleteConnection( const Vrf & vrfName, const EncapId & encapId ) override;
   void changeIntfList( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList & newList ) override;
   void changeInSecurityAssociation( const Vrf & vrfName, const EncapId & encapId,
                                     const HulIpsec::SecurityAssociationQueue & saq ) override;
   void changeOutSecurityAssociation( const Vrf & vrfName, const EncapId & encapId,
                                      const SecurityAssociation * sa ) override;
   void beginConnectionTableInit() override;
   void completedConnectionTableInit() override;

   // Null when not made.
   const Gant::Ptr< IpsecManagementModule > & getManagementIpsecModule() const { return managementIpsecModule(); }
   const Gant::Ptr< IpsecDecryptModule > & getDecryptIpsecModule() const { return decryptIpsecModule(); }
   const Gant::Ptr< IpsecEncryptModule > & getEncryptIpsecModule() const { return encryptIpsecModule(); }
   const Gant::Ptr< IpsecInTunnelModule > & getInTunnelIpsecModule() const { return inTunnelIpsecModule(); }
   // The pair of the key, made if there is none. A new pair is not active.
   Gant::Ptr< IpsecOutTunnelModulePair > getOrCreateOutTunnelIpsecModulePair( const Vrf & vrfName,
                                                                              const EncapId & encapId,
                                                                              Kynet::IntfId intfId );
   // Ends both modules, once nobody else holds them.
   void deleteOutTunnelIpsecModulePair( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId );
   // Leaves the pair inactive.
   void cleanupOutTunnelIpsecModulePair( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId );
   void programActiveOutTunnelIpsecModulePair( const Gant::Ptr< IpsecOutTunnelModulePair > & pair, bool active );
   void programOutTunnelIpsecOgate( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId, bool local_flag,
                                    Vex::GateId gateId );
   void cleanupInTunnelIpsecModule( const Vrf & vrfName, const EncapId & encapId );
   // No policy module is made: always null.
   Gant::Ptr< IpsecInPolicyModule > getOrCreateInPolicyIpsecModule( const Vrf & vrfName, Kynet::IntfId intfId );
   Gant::Ptr< IpsecOutPolicyModule > getOrCreateOutPolicyIpsecModule( const Vrf & vrfName, Kynet::IntfId intfId );
   void cleanupInPolicyIpsecModule( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId );
   void cleanupOutPolicyIpsecModule( const Vrf & vrfName, const EncapId & encapId, Kynet::IntfId intfId );

   // A message for one direction of a connection, 0 outbound and 1 inbound. The caller owns it until it is queued.
   vex::pb::IpsecUpdateSAArg * createUpdateSaArg( U32 vrfIdValue, U32 ipsecEncapIdValue, U32 saDirection ) const;
   // Values go as they come: what is wrong with them the data plane says.
   void addSaToUpdateSaArg( vex::pb::IpsecUpdateSAArg & arg, const EncapId & encapId,
                            const SecurityAssociation & sa ) const;
   void sendDeleteSaCmd( U32 vrfIdValue, U32 ipsecEncapIdValue, U32 saDirection );
   // Once per connection: a rekey does not move the flow.
   void setFlowKey( const Vrf & vrfName, const EncapId & encapId, const SecurityAssociation & sa );
   void programOutSa( const Vrf & vrfName, const EncapId & encapId, const SecurityAssociation & sa );
   // The whole queue, which is not empty, in one message.
   void programInSas( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::SecurityAssociationQueue & saq );
   void deleteOutSa( const Vrf & vrfName, const EncapId & encapId );
   void deleteInSas( const Vrf & vrfName, const EncapId & encapId );

   // Takes the message, and overwrites its keys once it is queued.
   void enqManagementCmd( std::string_view cmdAction, Vex::Module::Message * message );
   void sendInitVirtCryptoCmd( const char * devName );

 private:
   void handleInitialized();
   Gant::Ptr< IpsecOutTunnelModule > newOutTunnelModule( const char * prefix, const IpsecOutTunnelModuleKey & key,
                                                         bool localOut );
   void createPairs( const Vrf & vrfName, const EncapId & encapId, const HulIpsec::IntfList & intfList, bool active );
   std::vector< Gant::Ptr< IpsecOutTunnelModulePair > > pairsOf( const Vrf & vrfName, const EncapId & encapId ) const;
};

} // namespace VexL3Unicast
