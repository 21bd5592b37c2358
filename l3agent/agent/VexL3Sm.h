// Turns the routed interfaces into the graph of data-plane modules, and routes and FECs into commands to them.
//
//   watches   VexCommonSmData::l3Intf               an interface comes, changes or goes
//             Bridging::Config::bridgeMacAddr       the router's MAC
//             ModuleConfigStatusPair::moduleStatus  rebinds the next
//             ModuleStatus::responseQueue           answers to shows
//   calls     L3Modules, Vex::L3Intf and L2Intf chains, the proxies
//   writes    RouteDb::fecForLpm
//
// An interface's modules follow its entry in vexcsd: present means made, absent means deleted. The order of arrival of
// Ethernet and tunnel interfaces does not matter: each finds the other. A module that cannot be made is traced, and the
// rest goes on.
//
// One source each: the interface graph (VexL3SmIntf), FEC programming (VexL3SmFec), the LPM routes (VexL3SmLpm), the
// answers to shows (VexL3SmShow).
#pragma once

#include "HulL3Status.h"
#include "StateIpsec.h"
#include "VexCommonSmData.h"
#include "VexL3Export.h"
#include "VexL3Modules.h"
#include "VexL3Types.h"
#include "VexL3Utils.h"
#include "VexMcast.h"

namespace VexVif {
class PortVifStatus;
}

namespace vex::pb {
class FibIpv4ReadFibResp;
class NextHopReadNHResp;
} // namespace vex::pb

namespace VexL3Unicast {

class IpsecHelper;
class TunnelDb;

class VexL3Sm : public Gant::StateMachine {
 public:
   // Creates the FIB and the for-us classifier, and draws the three well-known FEC keys.
   VexL3Sm( const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
            const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules,
            const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< const Bridging::Config > & bridgingConfig,
            const Gant::Ptr< Hul::L3Status > & hulL3Status,
            const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
            const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< TunnelDb > & tunnelDb,
            const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6,
            const Gant::Ptr< IpsecHelper > & ipsecHelper );
   ~VexL3Sm() override;
   const char * fwkType() const override { return "VexL3Unicast::VexL3Sm"; }

   GANT_CONST( Gant::Ptr< Vex::ModuleConfigStatusPair >, configStatusPair )
   GANT_CONST( Gant::Ptr< Vex::VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< L3Modules >, l3Modules )
   GANT_CONST( Gant::Ptr< RouteDb >, routeDb )
   GANT_CONST( Gant::Ptr< const Bridging::Config >, bridgingConfig )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   GANT_CONST( Gant::Ptr< const VexVif::PortVifStatus >, portVifStatus )
   GANT_CONST( Gant::Ptr< const Bridging::VlanStatusDir >, vlanStatusDir )
   GANT_CONST( Gant::Ptr< TunnelDb >, tunnelDb )
   GANT_CONST( Gant::Ptr< VexL3Mcast::MfaAgent >, mfa4 )
   GANT_CONST( Gant::Ptr< VexL3Mcast::MfaAgent >, mfa6 )
   GANT_CONST( Gant::Ptr< IpsecHelper >, ipsecHelper )
   GANT_ATTR( Gant::Ptr< NhIndexManager >, nhIndexManager )
   GANT_ATTR( bool, initialized, false )

   // The interface graph.
   void handleL3Intf( Kynet::IntfId intfId );
   void handleL3TunnelIntf( Kynet::IntfId intfId );
   // Every NextHopMod takes the bridge MAC as its source.
   void handleRouterMacAddr();
   bool isEthIntf( Kynet::IntfId intfId ) const;
   bool isTunnelIntf( Kynet::IntfId intfId ) const;
   const Gant::Ptr< FibIpv4 > & getFibModule() const;
   void createNextHopModule( Kynet::IntfId intfId );
   void createIpInputModule( Kynet::IntfId intfId );
   void createIpOutputModule( Kynet::IntfId intfId );
   void connectMfibModule( Kynet::IntfId intfId );
   void deleteNextHopModule( Kynet::IntfId intfId );
   void deleteIpInputModule( Kynet::IntfId intfId );
   void deleteIpOutputModule( Kynet::IntfId intfId );
   Gant::Ptr< Ip4GreTun > createIp4GreTunMod( Kynet::IntfId intfId, bool cpChain );
   Gant::Ptr< Ip4IpsecTun > createIp4IpsecTunMod( Kynet::IntfId intfId, bool cpChain );

   // FEC programming. The entries that the FIB refers to are written before the FIB's entry and deleted after it.
   FecUpdateReturnCode programLpmFec( const Gant::Ptr< Fec > & fec );
   // False: a module of a next hop does not exist yet, and the next hop was left out.
   bool writeToNhModules( const Gant::Ptr< Fec > & fec );
   bool writeToNhResolveModules( const Gant::Ptr< Fec > & fec );
   VexNhEntry getNextHopInfo( const NextHopKey & nhk ) const;
   void deleteLpmFec( const Gant::Ptr< Fec > & fec );
   // The next-hop and resolve entries of `info`, which is the one that was programmed.
   void deleteLpmFecInfo( FecKey fecKey, const FecInfo & info );
   // Writes all routes of the FEC again. Nothing needs it while routes refer to FECs by key.
   void updateLpmRoutesForFec( const Gant::Ptr< Fec > & fec );

   // LPM routes.
   // Programs the FEC; from then on routes may go on it, also after a partial success.
   FecUpdateReturnCode addFecForLpm( const Gant::Ptr< Fec > & fec );
   // The FEC has no routes left.
   void removeFecForLpm( const Gant::Ptr< Fec > & fec );
   // False: the FEC is not in the data plane, or the family is not one of the data plane's.
   bool createLpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec );
   void deleteLpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix );
   bool programLpmRoute4( const Hul::VrfAndPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec );
   bool programLpmRoute6( const Hul::VrfAndIp6Prefix & vrfPrefix, const Gant::Ptr< Fec > & fec );
   void deleteLpmRoute4( const Hul::VrfAndPrefix & vrfPrefix );
   void deleteLpmRoute6( const Hul::VrfAndIp6Prefix & vrfPrefix );
   // Verification asks the database, never the data plane.
   void prepareForVerifyLpmRoute( Kynet::AddressFamily af );
   void cleanupForVerifyLpmRoute();
   void verifyV4LpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec );
   void verifyV6LpmRoute( const Hul::VrfAndIpGenPrefix & vrfPrefix, const Gant::Ptr< Fec > & fec );

   // Answers to shows, written as text to the CLI's socket.
   void handleResponse();
   void processShowFibIpv4( const vex::pb::FibIpv4ReadFibResp & resp );
   void processShowNH( const vex::pb::NextHopReadNHResp & resp );
   void showSoftwareSummary( U32 socket );

 private:
   class GantVexcsd;
   class GantBridgingConfig;
   class GantConfigStatusPair;
   class GantModuleStatus;

   void handleInitialized();
   void createFib();
   void bindModuleStatus();
   void createTunnel( const Gant::Ptr< Vex::L3Intf > & l3Intf );
   void deleteTunnel( Kynet::IntfId intfId );
   bool isWired( Kynet::IntfId intfId ) const;
   void removeL3Intf( Kynet::IntfId intfId );
   void createNhResolve( const Gant::Ptr< Vex::L3Intf > & l3Intf );
   void deleteNhResolve( Kynet::IntfId intfId );

   // The tunnels that have modules, as they were made.
   struct TunnelModules {
      Vex::EncapType encapType;
      Ipsec::Ike::EncapId encapId;
   };
   Gant::OrderedMap< Kynet::IntfId, TunnelModules > tunnels_;

   std::unique_ptr< GantVexcsd > gantVexcsd_;
   std::unique_ptr< GantBridgingConfig > gantBridgingConfig_;
   std::unique_ptr< GantConfigStatusPair > gantConfigStatusPair_;
   std::unique_ptr< GantModuleStatus > gant_ModuleStatusIn_;
};

VEXL3_EXPORT Gant::Ptr< VexL3Sm > vexL3SmFactory(
     const Gant::Ptr< Vex::ModuleConfigStatusPair > & configStatusPair,
     const Gant::Ptr< Vex::VexCommonSmData > & vexcsd, const Gant::Ptr< L3Modules > & l3Modules,
     const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< const Bridging::Config > & bridgingConfig,
     const Gant::Ptr< Hul::L3Status > & hulL3Status, const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
     const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir, const Gant::Ptr< TunnelDb > & tunnelDb,
     const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa4, const Gant::Ptr< VexL3Mcast::MfaAgent > & mfa6,
     const Gant::Ptr< IpsecHelper > & ipsecHelper );

// The members of the FEC in the FIB, one for each unique next hop. A next hop through a tunnel is listed under the
// tunnel, with its resolve index; a drop next hop is left out, so that a FEC of nothing else has no members.
NexthopInfoColl nhColl( const Gant::Ptr< L3Modules > & l3Modules, const Gant::Ptr< Fec > & fec );

// Make this interface an egress of the FIB and, if it is an Ethernet interface, of every tunnel.
void connectThisIntfToEgressSrcs( const Gant::Ptr< Vex::L3Intf > & l3Intf, VexL3Sm * sm );
// Make every Ethernet interface an egress of this tunnel, or not any more.
void connectThisTunnelAsEgressSrcForAllEthIntf( const Gant::Ptr< NhResolve > & nhResolve );
void disconnectThisTunnelAsEgressSrcForAllEthIntf( const Gant::Ptr< NhResolve > & nhResolve );
// Forget the gates that led to this interface.
void deleteIntfIdtoOgateMapping( Kynet::IntfId intfId, VexL3Sm * sm );

} // namespace VexL3Unicast
