#include "Engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Test;
using testing::ElementsAre;

class L3Sm : public testing::Test {
 protected:
   void SetUp() override { started = core.take(); }

   L3Core core;
   Lines started;
};

TEST_F( L3Sm, atStartTheFibAndTheClassifierStandAndAreWired ) {
   EXPECT_EQ( started, lines( R"(
      create trap Trap
      create ipsecManagementModule IpsecManagement max_ipsec_sas 1024 max_ipsec_policies 1024
      ipsecManagementModule initVirtDevice crypto_dev_name crypto_openssl max_nb_queue_pairs 128 max_nb_sessions 2048 socket_id -1
      ipsecManagementModule initVirtDevice crypto_dev_name crypto_null max_nb_queue_pairs 128 max_nb_sessions 2048 socket_id -1
      create ipsecInTunnelModule IpsecTunnelIngress
      create fibIpv4 FibIpv4 max_rules 1048576 max_tbl8s 2048
      fibIpv4 setCounterIds no_route_counter 0 no_fec_counter 1
      create ForUsClassifyIpv4 ForUsClassifyIpv4
      connect ForUsClassifyIpv4:0 -> trap:0
      ForUsClassifyIpv4 setCounterIds internal_err_linearize_counter 2 unknown_pkt_counter 3
      connect fibIpv4:0 -> ForUsClassifyIpv4:0
   )" ) );
   EXPECT_EQ( core.l3Modules->bcastFecKey(), 0u );
   EXPECT_EQ( core.l3Modules->mcastLinkLocalFecKey(), 1u );
   EXPECT_EQ( core.l3Modules->mcastDataFecKey(), 2u );
   EXPECT_EQ( core.l3Modules->fibIpv4()->intfIdToOutGate( Kynet::IntfId() ), Vex::GateId( 0 ) );
   EXPECT_EQ( core.counters->counterIterator().at( Vex::CounterId( 2 ) ).name, "ForUsClassifyIpv4-fail_Pkts" );
}

TEST_F( L3Sm, anEthernetInterfaceComesFromItsFarEndAndGoesFromItsEdge ) {
   core.vrfHelper->createVrf( Hul::VrfId( 0 ) );
   const auto l2Intf = core.port( "Ethernet1", "00:1c:73:00:00:01" );
   l2Intf->maxMssIngressIs( 1360 );
   core.take();

   core.routed( "Ethernet1", 4094, 0, 9000 );
   EXPECT_EQ( core.take(), lines( R"(
      EtherClassify_et1 setVrf vrf 0
      create NextHop_et1 NextHop max_nexthops 16384 intf_id Ethernet1
      NextHop_et1 setCounterIds mismatch_router_mac_counter 4 bad_nexthop_cmd_counter 5 invalid_nexthop_counter 6 prepend_fail_counter 7
      NextHop_et1 setSrcMacAddr mac_addr 00:1c:73:00:00:01
      connect NextHop_et1:0 -> trap:0
      connect NextHop_et1:1 -> PortTx_et1:0
      create IpOutput_et1 IpOutput ip_mtu 9000 mss 0 do_mss_checksum true
      IpOutput_et1 setCounterIds failed_frag_counter 8 failed_linearize_counter 9
      connect IpOutput_et1:0 -> trap:0
      connect IpOutput_et1:1 -> NextHop_et1:0
      connect mfib4_default:1 -> IpOutput_et1:0
      EtherClassify_et1 setEtherTypeGate ether_type 34525 ogate 1
      connect EtherClassify_et1:1 -> mfib6_default:0
      connect mfib6_default:1 -> PortTx_et1:0
      create IpInput_et1 IpInput mss 1360 do_mss_checksum true
      IpInput_et1 setCounterIds bad_ip_checksum_counter 10 bad_ip_len_counter 11
      connect IpInput_et1:0 -> trap:0
      EtherClassify_et1 setEtherTypeGate ether_type 2048 ogate 2
      connect EtherClassify_et1:2 -> IpInput_et1:0
      connect IpInput_et1:1 -> fibIpv4:0
      connect fibIpv4:2 -> IpOutput_et1:0
   )" ) );
   EXPECT_EQ( core.l3Modules->fibIpv4()->intfIdToOutGate( intf( "Ethernet1" ) ), Vex::GateId( 2 ) );

   core.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
   EXPECT_EQ( core.take(), lines( R"(
      EtherClassify_et1 clearEtherTypeGate ether_type 2048
      EtherClassify_et1 clearEtherTypeGate ether_type 34525
      disconnect EtherClassify_et1:1
      disconnect EtherClassify_et1:2
      disconnect IpInput_et1:1
      disconnect fibIpv4:2
      disconnect mfib4_default:1
      disconnect IpOutput_et1:1
      disconnect NextHop_et1:1
      disconnect IpInput_et1:0
      destroy IpInput_et1
      disconnect IpOutput_et1:0
      destroy IpOutput_et1
      disconnect NextHop_et1:0
      destroy NextHop_et1
      EtherClassify_et1 setVrf vrf 0
   )" ) );
   EXPECT_EQ( core.counters->counterIterator().size(), 4u );
   EXPECT_FALSE( core.l3Modules->fibIpv4()->intfIdToOutGateHas( intf( "Ethernet1" ) ) );
}

TEST_F( L3Sm, aGreTunnelHasBothItsPathsAndLeavesNothingBehind ) {
   core.port( "Ethernet1" );
   core.routed( "Ethernet1", 4094 );
   const auto l2Intf = core.tunnel( "Tunnel7" );
   l2Intf->srcIpIs( ip( "192.0.2.1" ) );
   l2Intf->dstIpIs( ip( "198.51.100.9" ) );
   l2Intf->tosIs( 200 );
   l2Intf->greKeyIs( 77 );
   l2Intf->underlayVrfIdIs( Hul::VrfId( 5 ) );
   EXPECT_EQ( core.take().back(), "PortRxCp_tu7 setVrf vrf 5" );

   core.routed( "Tunnel7", 4093, 0, 1476 );
   EXPECT_EQ( core.take(), lines( R"(
      EtherClassify_tu7 setVrf vrf 0
      create IpOutput_tu7 IpOutput ip_mtu 1476 mss 0 do_mss_checksum true
      IpOutput_tu7 setCounterIds failed_frag_counter 12 failed_linearize_counter 13
      connect IpOutput_tu7:0 -> trap:0
      create IpInput_tu7 IpInput mss 0 do_mss_checksum true
      IpInput_tu7 setCounterIds bad_ip_checksum_counter 14 bad_ip_len_counter 15
      connect IpInput_tu7:0 -> trap:0
      EtherClassify_tu7 setEtherTypeGate ether_type 2048 ogate 1
      connect EtherClassify_tu7:1 -> IpInput_tu7:0
      connect IpInput_tu7:1 -> fibIpv4:0
      connect fibIpv4:2 -> IpOutput_tu7:0
      connect PortRxCp_tu7:0 -> fibIpv4:0
      create NhResolve_tu7 NhResolve max_entries 0
      connect IpOutput_tu7:1 -> NhResolve_tu7:0
      connect NhResolve_tu7:1 -> IpOutput_et1:0
      create Ip4GreTun_tu7 Ip4GreTun ip_encap_arg {proto 47 tun_src_ip 192.0.2.1 tun_dst_ip 198.51.100.9 tun_tos 200 tun_ttl 64} gre_key 77 tun_id 7 intf_id Tunnel7 cp_ingress false
      connect Ip4GreTun_tu7:1 -> NhResolve_tu7:0
      disconnect IpOutput_tu7:1
      connect IpOutput_tu7:1 -> Ip4GreTun_tu7:0
      create Ip4GreTunCp_tu7 Ip4GreTun ip_encap_arg {proto 47 tun_src_ip 192.0.2.1 tun_dst_ip 198.51.100.9 tun_tos 200 tun_ttl 64} gre_key 77 tun_id 7 intf_id Tunnel7 cp_ingress true
      connect Ip4GreTunCp_tu7:1 -> fibIpv4:0
      disconnect PortRxCp_tu7:0
      connect PortRxCp_tu7:0 -> Ip4GreTunCp_tu7:0
      create tunnelIngress TunnelIngress
      connect tunnelIngress:0 -> trap:0
      connect ipsecInTunnelModule:0 -> tunnelIngress:0
      connect trap:2 -> ipsecInTunnelModule:0
      connect trap:1 -> tunnelIngress:0
      connect tunnelIngress:1 -> PortRx_tu7:0
      tunnelIngress addTunnel ogate 1 vrf 5 local_ip 192.0.2.1 remote_ip 198.51.100.9 gre true gre_key 77
   )" ) );
   const auto & nhResolve = core.l3Modules->nhResolve( intf( "Tunnel7" ) );
   EXPECT_EQ( nhResolve->nhrEntryIndexAvailables(), 1023u );
   EXPECT_TRUE(
        nhResolve->nhrEntryHas( VexL3Unicast::NhrEntryKey( VexL3Unicast::FecKey( -1 ), 0, Kynet::IntfId(), 0 ) ) );

   core.vexcsd->l3IntfDel( intf( "Tunnel7" ) );
   EXPECT_EQ( core.channel->takeOf( { "destroy" } ),
              lines( "destroy tunnelIngress\n destroy IpInput_tu7\n destroy IpOutput_tu7\n destroy Ip4GreTunCp_tu7\n"
                     " destroy Ip4GreTun_tu7\n destroy NhResolve_tu7" ) );
   const auto & egress = core.vexcsd->l3Intf( intf( "Ethernet1" ) )->egressChains().at( Vex::etherTypeIpv4 );
   EXPECT_EQ( egress.sources().size(), 1u );
   EXPECT_EQ( l2Intf->ingressModuleChain( 1 ).links().size(), 0u );
}

TEST_F( L3Sm, aTunnelOverIpsecPassesItsOutputModules ) {
   core.tunnel( "Tunnel1", Vex::EncapType::greIpsec_ )->ipsecEncapIdIs( 5 );
   core.tunnel( "Tunnel2", Vex::EncapType::vtiIpsec_ )->ipsecEncapIdIs( 6 );
   core.routed( "Tunnel1", 4094 );
   core.routed( "Tunnel2", 4093 );
   const auto chain = [ & ]( const char * name ) {
      Lines out;
      const auto & chains = core.vexcsd->l3Intf( intf( name ) )->egressChains();
      for ( const auto & link : chains.at( Vex::etherTypeIpv4 ).links() )
         out.push_back( std::to_string( link.priority ) + " " + link.module->name() );
      return out;
   };
   EXPECT_THAT( chain( "Tunnel1" ), ElementsAre( "200 IpOutput_tu1", "300 Ip4GreTun_tu1",
                                                 "400 ipsecFwd_default_5_IpsecGre_Tunnel1", "500 NhResolve_tu1" ) );
   EXPECT_THAT( chain( "Tunnel2" ), ElementsAre( "200 IpOutput_tu2", "300 Ip4IpsecTun_tu2",
                                                 "400 ipsecFwd_default_6_IpsecVti_Tunnel2", "500 NhResolve_tu2" ) );
   // A tunnel that is both has the GRE modules and the pair, and no modules of its own for IPsec.
   EXPECT_EQ( core.l3Modules->ip4IpsecTuns(), 1u );

   core.take();
   core.vexcsd->l3IntfDel( intf( "Tunnel1" ) );
   core.vexcsd->l3IntfDel( intf( "Tunnel2" ) );
   EXPECT_EQ( core.ipsecHelper->outTunnelIpsecModulePairs(), 0u );
   EXPECT_THAT( core.channel->takeOf( { "destroy ipsec" } ), testing::SizeIs( 4 ) );
}

TEST_F( L3Sm, theLastWriterOfASourceMacWins ) {
   const auto l2Intf = core.port( "Ethernet1", "00:00:00:00:00:0a" );
   core.port( "Ethernet2", "00:00:00:00:00:0b" );
   core.routed( "Ethernet1", 4094 );
   core.routed( "Ethernet2", 4093 );
   core.take();

   core.bridgingConfig->bridgeMacAddrIs( mac( "00:1c:73:00:00:99" ) );
   EXPECT_THAT( core.take(), testing::UnorderedElementsAre( "NextHop_et1 setSrcMacAddr mac_addr 00:1c:73:00:00:99",
                                                            "NextHop_et2 setSrcMacAddr mac_addr 00:1c:73:00:00:99" ) );
   l2Intf->macAddrIs( mac( "00:00:00:00:00:0c" ) );
   EXPECT_EQ( core.take(), lines( R"(
      EtherClassify_et1 setMacAddr mac_addr 00:00:00:00:00:0c
      NextHop_et1 setSrcMacAddr mac_addr 00:00:00:00:00:0c
   )" ) );
   // The zero address is nobody's.
   core.bridgingConfig->bridgeMacAddrIs( Kynet::EthAddr() );
   EXPECT_EQ( core.take(), Lines{} );
   // A module that is gone does not listen any more.
   core.vexcsd->l3IntfDel( intf( "Ethernet1" ) );
   core.take();
   l2Intf->macAddrIs( mac( "00:00:00:00:00:0d" ) );
   EXPECT_EQ( core.take(), lines( "EtherClassify_et1 setMacAddr mac_addr 00:00:00:00:00:0d" ) );
}

TEST_F( L3Sm, aVrfIsBornWithItsBroadcastAndMulticastRoutes ) {
   core.vrf( "blue", 3 );
   core.vrfHelper->createVrf( Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), lines( R"(
      fibIpv4 addVrf vrf 3
      create mfib4_blue McastFibIpv4 vrfname blue
      connect mfib4_blue:0 -> trap:0
      fibIpv4 addRoute vrf 3 prefix 255.255.255.255 prefix_len 32 fec_id 0
      fibIpv4 addFec fec_id 0 nh_info {gate 0}
      fibIpv4 addRoute vrf 3 prefix 224.0.0.0 prefix_len 24 fec_id 1
      fibIpv4 addRoute vrf 3 prefix 224.0.0.0 prefix_len 4 fec_id 2
      fibIpv4 addFec fec_id 1 nh_info {gate 0}
      connect fibIpv4:1 -> mfib4_blue:0
      fibIpv4 addFec fec_id 2 nh_info {gate 1}
      create mfib6_blue McastFibIpv6 vrfname blue
      connect mfib6_blue:0 -> trap:0
   )" ) );
   const auto firstAckSm = core.l3Modules->fibIpv4()->ackSm();
   core.vrfHelper->verifyVrf( Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), Lines{} );

   core.vrf( "red", 4 );
   core.vrfHelper->createVrf( Hul::VrfId( 4 ) );
   EXPECT_EQ( core.channel->takeOf( { "fibIpv4 addFec fec_id 2" } ),
              lines( "fibIpv4 addFec fec_id 2 nh_info {gate 2}" ) );
   EXPECT_NE( core.l3Modules->fibIpv4()->ackSm(), firstAckSm );

   core.vrfHelper->deleteVrf( Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), lines( R"(
      disconnect fibIpv4:1
      fibIpv4 delVrf vrf 3
      destroy mfib4_blue
      destroy mfib6_blue
   )" ) );
   core.vrfHelper->deleteVrf( Hul::VrfId( 3 ) );
   EXPECT_EQ( core.take(), lines( "fibIpv4 delVrf vrf 3" ) );
}

} // namespace
