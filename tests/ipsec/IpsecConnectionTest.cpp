// Connections, their pairs of output modules, errors, and the tasks around them.
#include "IpsecRouter.h"
#include "VexIpsecGrpcSm.h"

namespace Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using VexL3Unicast::IpsecConnectionKey;

TEST( IpsecStart, devicesAreUpBeforeTheFirstAssociationAndTheModulesOfATunnelStand ) {
   IpsecRouter router;
   router.table->connectionIs( connectionKey( 5 ), connection( { "Tunnel1" }, { 4096 }, 8192 ) );
   router.start();
   const auto all = router.take();
   ASSERT_EQ( all.size(), 9u );
   EXPECT_EQ( Lines( all.begin(), all.begin() + 5 ), lines( R"(
      create trap Trap
      create ipsecManagementModule IpsecManagement max_ipsec_sas 1024 max_ipsec_policies 1024
      ipsecManagementModule initVirtDevice crypto_dev_name crypto_openssl max_nb_queue_pairs 128 max_nb_sessions 2048 socket_id -1
      ipsecManagementModule initVirtDevice crypto_dev_name crypto_null max_nb_queue_pairs 128 max_nb_sessions 2048 socket_id -1
      create ipsecInTunnelModule IpsecTunnelIngress
   )" ) );
   EXPECT_THAT( all[ 5 ], StartsWith( "ipsecManagementModule updateIpsecSAs vrf 0 encap_id 5 sa_direction 0 " ) );
   EXPECT_THAT( all[ 6 ], StartsWith( "ipsecManagementModule updateIpsecSAs vrf 0 encap_id 5 sa_direction 1 " ) );
   EXPECT_EQ( Lines( all.begin() + 7, all.end() ), lines( R"(
      create ipsecFwd_default_5_IpsecVti_Tunnel1 IpsecTunnelEgress vrf 0 encap_id 5 local_out 0
      create ipsecLocal_default_5_IpsecVti_Tunnel1 IpsecTunnelEgress vrf 0 encap_id 5 local_out 1
   )" ) );
   EXPECT_FALSE( router.helper->getDecryptIpsecModule() || router.helper->getEncryptIpsecModule() );
   EXPECT_FALSE( router.helper->initialized() );
   EXPECT_EQ( router.helper->getManagementIpsecModule()->maxInGate(), 8192u );
   EXPECT_EQ( router.helper->getInTunnelIpsecModule()->maxOutGate(), 8192u );
}

TEST_F( IpsecTest, aPairIsActiveWhileItsConnectionHasAnOutboundAssociation ) {
   const auto key = connectionKey( 5, EncapIdType::IpsecGre() );
   router.table->connectionIs( key, connection( { "Tunnel1", "Tunnel2" }, {}, std::nullopt ) );
   EXPECT_THAT( router.channel->takeOf( { "ipsecManagementModule" } ), IsEmpty() );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecGre_Tunnel1 inactive",
                                             "ipsecFwd_default_5_IpsecGre_Tunnel2 inactive" ) );
   router.table->connectionIs( key, connection( { "Tunnel1", "Tunnel2" }, {}, 8192 ) );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecGre_Tunnel1 active",
                                             "ipsecFwd_default_5_IpsecGre_Tunnel2 active" ) );
   EXPECT_TRUE(
        router.helper->ipsecConnectionInfo( IpsecConnectionKey( Kynet::NamespaceName( "default" ), key.encapId() ) )
             .outSaPresent() );
   router.table->connectionIs( key, connection( { "Tunnel1", "Tunnel2" }, {}, std::nullopt ) );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecGre_Tunnel1 inactive",
                                             "ipsecFwd_default_5_IpsecGre_Tunnel2 inactive" ) );
}

TEST_F( IpsecTest, anInterfaceListBringsNewPairsAndQuietensThoseThatLeft ) {
   const auto key = connectionKey( 5 );
   router.table->connectionIs( key, connection( { "Tunnel1", "Tunnel2" }, {}, 8192 ) );
   const auto first = router.helper->outTunnelIpsecModulePairIterator();
   router.take();
   router.table->connectionIs( key, connection( { "Tunnel2", "Tunnel3" }, {}, 8192 ) );
   EXPECT_EQ( router.take(), lines( R"(
      create ipsecFwd_default_5_IpsecVti_Tunnel3 IpsecTunnelEgress vrf 0 encap_id 5 local_out 0
      create ipsecLocal_default_5_IpsecVti_Tunnel3 IpsecTunnelEgress vrf 0 encap_id 5 local_out 1
   )" ) );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecVti_Tunnel1 inactive",
                                             "ipsecFwd_default_5_IpsecVti_Tunnel2 active",
                                             "ipsecFwd_default_5_IpsecVti_Tunnel3 active" ) );
   // The same list once more, and an interface whose pair is there already.
   router.helper->changeIntfList( key.vrfName(), key.encapId(), router.table->connection( key ).intfList() );
   for ( const auto & [ pairKey, pair ] : first )
      EXPECT_EQ( router.helper->getOrCreateOutTunnelIpsecModulePair( pairKey.vrfName(), pairKey.ipsecEncapId(),
                                                                     pairKey.intfId() ),
                 pair );
   EXPECT_THAT( router.take(), IsEmpty() );
   EXPECT_EQ( router.pairs().size(), 3u );
}

TEST_F( IpsecTest, aChangeOfKeysAloneIsAChangeAndOneOfTheNameIsNot ) {
   auto wanted = connection( {}, {}, 8192 );
   router.table->connectionIs( connectionKey( 5 ), wanted );
   router.take();
   wanted.nameIs( "another name" );
   router.table->connectionIs( connectionKey( 5 ), wanted );
   EXPECT_THAT( router.take(), IsEmpty() );
   auto sa = aesSha1( 8192 );
   sa.cryptoKeyIs( KeyMaterial( "another 16 bytes" ) );
   wanted.outSaIs( sa );
   router.table->connectionIs( connectionKey( 5 ), wanted );
   EXPECT_THAT( router.take(),
                ElementsAre( StartsWith( "ipsecManagementModule updateIpsecSAs vrf 0 encap_id 5 sa_direction 0 " ) ) );
}

TEST_F( IpsecTest, whatWasMissedIsBroughtInLineAndThoseThatWentGoFirst ) {
   router.table->connectionIs( connectionKey( 5 ), connection( { "Tunnel1" }, {}, std::nullopt ) );
   router.table->connectionIs( connectionKey( 7 ), connection( {}, {}, 2000 ) );
   router.take();
   router.tableSm->hasNotificationActiveIs( false );
   router.table->connectionIs( connectionKey( 4 ), connection( { "Tunnel1" }, {}, std::nullopt ) );
   router.table->connectionDel( connectionKey( 5 ) );
   router.table->connectionIs( connectionKey( 7 ), connection( {}, {}, 2001 ) );
   EXPECT_THAT( router.take(), IsEmpty() );
   router.tableSm->hasNotificationActiveIs( true );
   EXPECT_THAT(
        router.take(),
        ElementsAre( "ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 0",
                     "ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 1",
                     "create ipsecFwd_default_4_IpsecVti_Tunnel1 IpsecTunnelEgress vrf 0 encap_id 4 local_out 0",
                     "create ipsecLocal_default_4_IpsecVti_Tunnel1 IpsecTunnelEgress vrf 0 encap_id 4 local_out 1",
                     StartsWith( "ipsecManagementModule updateIpsecSAs vrf 0 encap_id 7 sa_direction 0 " ) ) );
}

TEST_F( IpsecTest, aConnectionThatGoesLeavesItsPairsBehindInactive ) {
   const auto key = connectionKey( 5 );
   router.table->connectionIs( key, connection( { "Tunnel1" }, { 4096 }, 8192 ) );
   router.take();
   router.table->connectionDel( key );
   EXPECT_EQ( router.take(), lines( R"(
      ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 0
      ipsecManagementModule deleteIpsecSAs vrf 0 encap_id 5 sa_direction 1
   )" ) );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecVti_Tunnel1 inactive" ) );
   EXPECT_EQ( router.helper->ipsecConnectionInfos(), 0u );
   EXPECT_THAT( router.flows(), IsEmpty() );
   // The owner of the wiring ends them.
   router.helper->deleteOutTunnelIpsecModulePair( key.vrfName(), key.encapId(), intf( "Tunnel1" ) );
   EXPECT_EQ( router.take(), lines( R"(
      destroy ipsecLocal_default_5_IpsecVti_Tunnel1
      destroy ipsecFwd_default_5_IpsecVti_Tunnel1
   )" ) );
}

TEST_F( IpsecTest, everyErrorIsDrainedWhetherItCameBeforeTheReaderOrAfter ) {
   const auto key = connectionKey( 5 );
   router.table->connectionIs( key, connection( { "Tunnel1" }, { 4096 }, 8192 ) );
   const auto & pair = router.helper->ipsecModuleConfigStatusPair();
   const auto refuse = [ & ]( const char * action, S32 code, const char * text ) {
      Vex::Refusal refusal;
      refusal.type = Vex::GrpcRequestType::moduleCommand();
      refusal.module = "ipsecManagementModule";
      refusal.action = action;
      refusal.code = code;
      refusal.text = text;
      router.channel->refusalIs( pair->moduleConfig()->origin(), refusal );
   };
   const auto before = router.helper->ipsecConnectionInfoIterator();
   const auto linesBefore = traced( "VexIpsecGrpcSm" ).size();
   refuse( "updateIpsecSAs", 22, "SPI 0" );
   refuse( "initVirtDevice", 19, "no such device" );
   const auto sm = VexL3Unicast::ipsecGrpcSmFactory( pair );
   EXPECT_TRUE( sm->initialized() );
   EXPECT_FALSE( pair->moduleStatus()->errorQueueDeq() );
   refuse( "deleteIpsecSAs", 2, "no such connection" );
   EXPECT_FALSE( pair->moduleStatus()->errorQueueDeq() );
   // What comes while it is silent waits.
   sm->hasNotificationActiveIs( false );
   refuse( "updateIpsecSAs", 28, "full" );
   EXPECT_EQ( traced( "VexIpsecGrpcSm" ).back(),
              "IpsecGrpcSm::handleGrpcError Ipsec GRPC msg error handling for cmdType: moduleCommand cmdAction: "
              "deleteIpsecSAs errorCode: 2 errorMsg: no such connection" );
   sm->hasNotificationActiveIs( true );
   EXPECT_FALSE( pair->moduleStatus()->errorQueueDeq() );
   sm->handleGrpcError();
   EXPECT_EQ( traced( "VexIpsecGrpcSm" ).size() - linesBefore, 4u );
   EXPECT_EQ( router.helper->ipsecConnectionInfoIterator(), before );
   EXPECT_THAT( router.pairs(), ElementsAre( "ipsecFwd_default_5_IpsecVti_Tunnel1 active" ) );
}

} // namespace
} // namespace Test
