// Rule tables and the modules that point at them.

#include "DpTestRouter.h"

#include "DpKyAcl.h"
#include "DpKyAclDb.h"
#include "DpListing.h"
#include "DpTrap.h"

#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <random>
#include <sstream>

namespace {

using namespace DpTest;

TEST( Rules, aRefusedTableOrBindingNamesItsObjectAndChangesNothing ) {
   expectRefusals( R"(
      create db KyAclDb
      db createAcl acl_id: 1 acl_target: 0 rule { proto: 17 permit: true } rule { permit: false }
      db createPolicy acl_id: 2 acl_target: 1 rule { action_tc: true tc_data: 3 }
      create in KyAcl ingress: true intf_id: 5
      in applyAcl acl_id: 1 ipv4: true
      create pq PolicyQos ingress: true
      create trap Trap
   )",
                   refusalTable( R"(
      db createAcl acl_target: 0 => EINVAL db: createAcl: acl_id is missing
      db createAcl acl_id: 1 => EINVAL db: createAcl: acl_target is missing
      db createAcl acl_id: 65536 acl_target: 0 => ERANGE db: createAcl: acl_id 65536 is out of range, at most 65535
      db createPolicy acl_id: 1 acl_target: 3 => EINVAL db: createPolicy: acl_target 3 is not that of a policy
      db createAcl acl_id: 1 acl_target: 1 => EINVAL db: createAcl: acl_target 1 is not that of an access list
      db createPolicy acl_id: 1 acl_target: 0 => EINVAL db: createPolicy: acl_target 0 is not that of a policy
      db createAcl acl_id: 1 acl_target: 0 rule { permit: true } rule { proto: 6 } => EINVAL db: createAcl: rule 2: permit is missing
      db createAcl acl_id: 1 acl_target: 0 rule { permit: true } rule { permit: true dst_port_upper: 65536 } => ERANGE db: createAcl: rule 2: dst_port_upper 65536 is out of range, at most 65535
      db createAcl acl_id: 1 acl_target: 0 rule { permit: true src_port_lower: 81 src_port_upper: 80 } => EINVAL db: createAcl: rule 1: the range 81 to 80 of source ports is upside down
      db createAcl acl_id: 1 acl_target: 0 rule { permit: true ttl_upper: 256 } => ERANGE db: createAcl: rule 1: ttl_upper 256 is out of range, at most 255
      db createPolicy acl_id: 2 acl_target: 1 rule { dscp: 65 } => ERANGE db: createPolicy: rule 1: dscp 65 is out of range, at most 64
      db createPolicy acl_id: 2 acl_target: 1 rule { icmp_type: 256 } => ERANGE db: createPolicy: rule 1: icmp_type 256 is out of range, at most 255, or 65535 for any
      db createPolicy acl_id: 2 acl_target: 1 rule { action_dscp: true dscp_data: 64 } => ERANGE db: createPolicy: rule 1: dscp_data 64 is out of range, at most 63
      db createPolicy acl_id: 2 acl_target: 1 rule { action_tc: true } => EINVAL db: createPolicy: rule 1: tc_data is missing
      db createPolicy acl_id: 2 acl_target: 1 rule { counter_id: 1048576 } => ERANGE db: createPolicy: rule 1: counter_id 1048576 is out of range, the table has 1048576 counters
      db destroyAcl acl_id: 2 => ENOENT db: destroyAcl: there is no access list 2
      db destroyPolicy acl_id: 2 acl_target: 2 => ENOENT db: destroyPolicy: there is no control-plane policy 2
      create db2 KyAclDb => EEXIST db2: CreateModule: class KyAclDb has its one module, db
      in applyAcl acl_id: 7 ipv4: true => ENOENT in: applyAcl: there is no access list 7
      in applyAcl acl_id: 2 => ENOENT in: applyAcl: there is no access list 2
      in applyAcl ipv4: true => EINVAL in: applyAcl: acl_id is missing
      in applyAcl acl_id: 1 ipv4: false => EOPNOTSUPP in: applyAcl: access list 1 is not of IPv4
      pq applyServicePolicy policy_id: 1 => ENOENT pq: applyServicePolicy: there is no QoS policy 1
      create out PolicyQos ingress: false => EOPNOTSUPP out: CreateModule: a policy on the way out is not supported
      trap applyPolicy policy_id: 2 => ENOENT trap: applyPolicy: there is no control-plane policy 2
   )" ) );
   expectRefusals( "create in KyAcl",
                   refusalTable( "in applyAcl acl_id: 1 => ENOENT in: applyAcl: there is no rule database" ) );
}

// et1 with an access list on its way in, in front of a tap.
class Filter {
 public:
   explicit Filter( const std::string & table = "" ) {
      plane.set( R"(
         create db KyAclDb
         create trap Trap
         create rx PortRx intfname: 'et1'
         create in KyAcl ingress: true
         create tx PortTx intfname: 'et2'
         connect rx:0 in:0
         connect in:0 trap:0
         connect in:1 tx:0
      )" );
      if ( table.empty() ) return;
      plane.set( "db createAcl acl_id: 1 acl_target: 0 " + table );
      plane.set( "in applyAcl acl_id: 1 ipv4: true" );
   }
   // What the list says of the packet.
   std::string says( const std::string & packet ) {
      return plane.trace( "intfname: 'et1' " + packet ).step( 1 ).action();
   }
   Plane plane;
};

TEST( AccessList, isClosedWithoutItsTableAndSwapsItInOneStep ) {
   Filter filter;
   const std::string packet = "proto: 17 dport: 53";
   EXPECT_EQ( filter.says( packet ), "no access list is applied" );

   filter.plane.set( R"(
      db createAcl acl_id: 1 acl_target: 0 rule { proto: 6 permit: true } rule { proto: 17 permit: true counter_id: 9 }
      in applyAcl acl_id: 1 ipv4: true
   )" );
   EXPECT_EQ( filter.says( packet + " count: true" ), "access list 1, rule 2 of 2, permitted" );
   EXPECT_EQ( filter.says( "proto: 1 count: true" ), "access list 1, none of 2 rules matches, no rule permits it" );
   EXPECT_EQ( filter.plane.counters.value( 9 ), 1u );

   // The rule has moved, its counter is the same, and nothing was said to the module.
   filter.plane.set( "db createAcl acl_id: 1 acl_target: 0 rule { proto: 17 permit: false counter_id: 9 }" );
   EXPECT_EQ( filter.says( packet + " count: true" ), "access list 1, rule 1 of 1, denied" );
   EXPECT_EQ( filter.says( packet ), "access list 1, rule 1 of 1, denied" );
   EXPECT_EQ( filter.plane.counters.value( 9 ), 2u );

   // A list that is gone stays gone for whoever was bound to it: its id may be another list's by now.
   filter.plane.set( "db destroyAcl acl_id: 1\n db createAcl acl_id: 1 acl_target: 0 rule { permit: true }" );
   EXPECT_EQ( filter.says( packet ), "no access list is applied" );
   filter.plane.set( "in applyAcl acl_id: 1" );
   EXPECT_EQ( filter.says( packet ), "access list 1, rule 1 of 1, permitted" );
   filter.plane.set( "destroy db" );
   EXPECT_EQ( filter.says( packet ), "no access list is applied" );
   filter.plane.set( "create db KyAclDb" );
   EXPECT_EQ( filter.says( packet ), "no access list is applied" );
}

TEST( AccessList, roomIsForTheRulesOfAllTablesTogether ) {
   vex::pb::Batch batch;
   Plane plane;
   plane.set( "create db KyAclDb" );
   const auto apply = [ &plane ]( std::uint32_t id, std::size_t rules ) {
      vex::pb::KyIpAclArg arg;
      arg.set_acl_id( id );
      arg.set_acl_target( 0 );
      for ( std::size_t i = 0; i < rules; ++i ) arg.add_rule()->set_permit( true );
      bess::pb::CommandRequest request;
      request.set_name( "db" );
      request.set_cmd( "createAcl" );
      request.mutable_arg()->PackFrom( arg );
      bess::pb::CommandResponse response;
      plane.engine.apply( request, response );
      return response.error().errmsg();
   };
   constexpr auto kHalf = KyAclDb::kMaxRules / 2;
   EXPECT_EQ( apply( 1, kHalf ), "" );
   EXPECT_EQ( apply( 2, kHalf ), "" );
   EXPECT_EQ( apply( 2, kHalf + 1 ), "db: createAcl: no room for the 524289 rules of access list 2, the tables have "
                                     "1048576 of 1048576" );
   EXPECT_EQ( apply( 2, kHalf - 1 ), "" );
   EXPECT_EQ( apply( 3, 1 ), "" );
   plane.set( "db destroyAcl acl_id: 1" );
   EXPECT_EQ( apply( 2, kHalf * 2 - 1 ), "" );
}

// What a described packet can't be: fragments, short packets, padding.
TEST( AccessList, aPortIsMatchedOnlyWhereThePacketHoldsIt ) {
   const struct {
      const char * what;
      std::uint16_t fragment;
      std::size_t size;
      std::uint16_t totalLen;
      bool permitted;
   } cases[] = {
        { "a whole packet", 0, 28, 28, true },
        { "a first fragment", 0x2000, 28, 28, true },
        { "a later fragment", 0x2001, 28, 28, false },
        { "a packet that ends in its ports", 0, 22, 22, false },
        { "a packet whose ports are padding", 0, 46, 20, false },
        { "a packet that claims to be longer", 0, 28, 1000, true },
        { "a packet that claims to be shorter than its header", 0, 28, 8, false },
   };
   Router router;
   router.set( R"(
      create db KyAclDb
      create in KyAcl
      connect in:1 IpInput_et2:0
      db createAcl acl_id: 1 acl_target: 0 rule { dst_port_lower: 53 dst_port_upper: 53 permit: true }
      in applyAcl acl_id: 1
   )" );
   router.tap( "in:1" );
   for ( const auto & given : cases ) {
      Packet packet( given.size );
      writeIpv4Header( packet.data(),
                       { .totalLen = given.totalLen, .ttl = 9, .proto = kProtoUdp, .src = {}, .dst = {} } );
      put16( packet.data() + 6, given.fragment );
      if ( given.size >= 24 ) put16( packet.data() + 22, 53 );
      router.tapped( "in:1" ).clear();
      router.run( "in", std::move( packet ) );
      EXPECT_EQ( router.tapped( "in:1" ).size(), given.permitted ? 1u : 0u ) << given.what;
   }
}

TEST( AccessList, aRuleThatLogsWritesALineForAPacketThatCounts ) {
   Filter filter( "rule { proto: 17 permit: false log: true } rule { permit: true }" );
   std::ostringstream log;
   const auto before = spdlog::default_logger();
   spdlog::set_default_logger(
        std::make_shared< spdlog::logger >( "", std::make_shared< spdlog::sinks::ostream_sink_mt >( log ) ) );
   spdlog::set_pattern( "%v" );
   const std::string packet = "src: @10.0.0.1 dst: @10.0.0.2 sport: 7 dport: 53 proto: ";
   filter.says( packet + "17" );
   filter.says( packet + "6 count: true" );
   EXPECT_EQ( log.str(), "" );
   filter.says( packet + "17 count: true" );
   EXPECT_EQ( log.str(), "in: access list 1 rule 1 denies: protocol 17 10.0.0.1:7 > 10.0.0.2:53, 28 bytes\n" );
   for ( unsigned i = 0; i < 5 * KyAcl::kMaxLogged; ++i ) filter.says( packet + "17 count: true" );
   const auto text = log.str();
   // The second may turn on the way, once.
   EXPECT_LE( std::ranges::count( text, '\n' ), 2 * KyAcl::kMaxLogged );
   spdlog::set_default_logger( before );
}

TEST( QosPolicy, marksByTheFirstRuleThatMatches ) {
   Router router;
   router.set( R"(
      create db KyAclDb
      create pq PolicyQos ingress: true intf_id: 1 policy_version: 4
      disconnect classify_et1:1
      connect classify_et1:1 pq:0
      connect pq:0 IpInput_et1:0
   )" );
   const std::string packet = "src: @10.9.0.1 dst: @10.2.0.7 proto: 17 dscp: 10 ";
   const std::string end = "02:00:00:00:00:02 > 02:aa:00:00:00:05 | 10.9.0.1 > 10.2.0.7 ttl 63 ";
   router.frame( packet );
   router.set( R"(
      db createPolicy acl_id: 3 acl_target: 1 rule { dst_port_lower: 53 dst_port_upper: 53 action_dscp: true dscp_data: 46 action_tc: true tc_data: 5 counter_id: 1 } rule { dst_port_lower: 80 counter_id: 2 action_tc: true tc_data: 7 }
      pq applyServicePolicy policy_id: 3
   )" );
   router.frame( packet + "dport: 53" );
   router.frame( packet + "dport: 80" );
   router.frame( packet + "dport: 1" );
   // ECN is not of the policy.
   auto ecn = Router::described( packet + "dport: 53" );
   ecn.data()[ 1 ] |= 3;
   Ipv4Header::of( ecn )->checksumRenew();
   router.frame( std::move( ecn ) );
   EXPECT_EQ( router.frames(), ( Lines{ end + "tos 40 len 28 | udp 0 > 0", end + "tos 184 len 28 | udp 0 > 53",
                                        end + "tos 40 len 28 | udp 0 > 80", end + "tos 40 len 28 | udp 0 > 1",
                                        end + "tos 187 len 28 | udp 0 > 53" } ) );
   EXPECT_EQ( router.counters.value( 1 ), 2u );
   EXPECT_EQ( router.counters.value( 2 ), 1u );
   const std::string from = "intfname: 'et1' " + packet;
   EXPECT_EQ( router.trace( from + "dport: 53" )[ 2 ], "pq: QoS policy 3, rule 1 of 2, DSCP 46, traffic class 5 -> 0" );
   EXPECT_EQ( router.trace( from + "dport: 1" )[ 2 ], "pq: QoS policy 3, none of 2 rules matches -> 0" );
   router.set( "db destroyPolicy acl_id: 3" );
   EXPECT_EQ( router.trace( from + "dport: 53" )[ 2 ], "pq: no QoS policy is applied -> 0" );
}

TEST( ControlPlanePolicy, classifiesWhatIsForTheRouterItself ) {
   Router router;
   router.set( R"(
      create db KyAclDb
      db createPolicy acl_id: 1 acl_target: 2 rule { proto: 6 dst_port_lower: 179 dst_port_upper: 179 action_tc: true tc_data: 6 counter_id: 3 } rule { action_tc: true tc_data: 0 counter_id: 4 }
      trap applyPolicy policy_id: 1
   )" );
   const auto last = [ &router ]( const std::string & packet ) {
      const auto steps = router.trace( "intfname: 'et1' src: @10.9.0.1 count: true " + packet );
      return steps[ steps.size() - 2 ];
   };
   EXPECT_EQ( last( "dst: @10.1.0.1 proto: 6 dport: 179" ),
              "trap: control-plane policy 1, rule 1 of 2, traffic class 6, handed to the router" );
   EXPECT_EQ( last( "dst: @10.2.0.7 proto: 6 ttl: 1" ),
              "trap: control-plane policy 1, rule 2 of 2, traffic class 0, handed to the router" );
   EXPECT_EQ( router.counters.value( 3 ), 1u );
   EXPECT_EQ( router.counters.value( 4 ), 1u );
}

// The device of an interface in the router's kernel.
class Kernel : public Outlet {
 public:
   void send( Packet && packet, unsigned ) override {
      const Packet gone = std::move( packet );
      ++packets;
   }
   unsigned packets = 0;
};

TEST( ControlPlanePolicy, aFloodOfOneClassLeavesTheOthersTheWayUp ) {
   Router router;
   router.set( R"(
      create db KyAclDb
      db createPolicy acl_id: 1 acl_target: 2 rule { proto: 6 dst_port_lower: 179 dst_port_upper: 179 action_tc: true tc_data: 6 }
      trap applyPolicy policy_id: 1
   )" );
   Kernel kernel;
   const auto wire = router.graph.wires().of( "et1" );
   wire->kernel = &kernel;
   const auto deliver = [ & ]( unsigned count, const std::string & text, std::uint16_t type ) {
      Walk walk( router.counters, Purpose::live );
      const auto before = kernel.packets;
      for ( unsigned i = 0; i < count; ++i ) {
         auto packet = Router::described( "dst: @10.1.0.1 " + text );
         prependEthernet( packet, Router::kEt1, { { 0x02, 0xbb, 0, 0, 0, 1 } }, type );
         walk.run( *router.graph.find( "rx_et1" ), std::move( packet ) );
      }
      return kernel.packets - before;
   };
   router.set( "fibIpv4 addRoute vrf: 0 prefix: @10.1.0.1 prefix_len: 32 fec_id: 0" );
   constexpr unsigned kFlood = 60000;
   const auto taken = deliver( kFlood, "proto: 1 icmp_type: 8", kEtherTypeIpv4 );
   EXPECT_GE( taken, Trap::kMostAtOnce );
   EXPECT_LT( taken, kFlood );
   EXPECT_EQ( deliver( 500, "proto: 6 dport: 179", kEtherTypeIpv4 ), 500u );
   EXPECT_EQ( deliver( 500, "", 0x0806 ), 500u );
   vex::pb::DropsReply drops;
   listDrops( router.graph, drops );
   ASSERT_EQ( drops.drop_size(), 1 );
   EXPECT_EQ( drops.drop( 0 ).ShortDebugString(),
              fmt::format( "module: \"trap\" reason: \"more of its class than the router takes\" packets: {}",
                           kFlood - taken ) );
}

// Says by hand, from the texts of record and packet, what the table must say of the packet's bytes.
class Matcher {
 public:
   using Record = vex::pb::KyIpAclArg::IpRule;
   using Described = vex::pb::TracePacketRequest;

   static bool matches( const Record & rule, const Described & packet ) {
      for ( unsigned bit = 0; bit < 32; ++bit ) {
         const auto differs = [ bit ]( std::uint32_t a, std::uint32_t b, std::uint32_t mask ) {
            return mask >> bit & 1 && ( a >> bit & 1 ) != ( b >> bit & 1 );
         };
         if ( differs( rule.src_ip(), packet.src(), rule.src_ip_mask() ) ) return false;
         if ( differs( rule.dst_ip(), packet.dst(), rule.dst_ip_mask() ) ) return false;
      }
      const bool tcp = packet.proto() == 6, udp = packet.proto() == 17, icmp = packet.proto() == 1;
      if ( rule.proto() != 0 && rule.proto() != packet.proto() ) return false;
      if ( packet.ttl() < rule.ttl_lower() || packet.ttl() > rule.ttl_upper() ) return false;
      if ( packet.length() < rule.len_lower() || packet.length() > rule.len_upper() ) return false;
      if ( rule.dscp() != 64 && rule.dscp() != packet.dscp() ) return false;
      for ( const auto & [ lower, upper, port ] :
            { std::tuple( rule.src_port_lower(), rule.src_port_upper(), packet.sport() ),
              std::tuple( rule.dst_port_lower(), rule.dst_port_upper(), packet.dport() ) } ) {
         if ( lower == 0 && upper == 65535 ) continue;
         if ( !( tcp || udp ) || port < lower || port > upper ) return false;
      }
      if ( rule.tcp_flag() != 0 && ( !tcp || ( ~packet.tcp_flags() & rule.tcp_flag() ) != 0 ) ) return false;
      if ( rule.icmp_type() != 65535 && ( !icmp || rule.icmp_type() != packet.icmp_type() ) ) return false;
      return rule.icmp_code() == 65535 || ( icmp && rule.icmp_code() == packet.icmp_code() );
   }
};

class RuleRandom : public testing::TestWithParam< unsigned > {
 protected:
   std::uint32_t below( std::uint32_t limit ) { return std::uint32_t( random_() % limit ); }
   bool oneOf( unsigned n ) { return below( n ) == 0; }
   // Whether a rule leaves a field open.
   bool any() { return oneOf( 4 ) == narrow_; }
   std::uint32_t address() { return 0x0a000000 | ( below( 4 ) << 16 ) | below( 4 ); }
   std::uint32_t port() { return below( 2 ) * 1000 + below( 4 ); }

   void range( std::uint32_t & lower, std::uint32_t & upper, std::uint32_t max ) {
      lower = any() ? 0 : std::min( port(), max );
      upper = any() ? max : std::min( lower + below( oneOf( 3 ) ? 5000 : 3 ), max );
   }

   Matcher::Record rule( std::uint32_t counter ) {
      Matcher::Record rule;
      rule.set_src_ip( address() );
      rule.set_src_ip_mask( any() ? 0 : std::uint32_t( random_() ) & std::uint32_t( random_() ) );
      rule.set_dst_ip( address() );
      rule.set_dst_ip_mask( any() ? 0 : 0xff030001 );
      rule.set_proto( any() ? 0 : protocol() );
      std::uint32_t lower = 0, upper = 0;
      range( lower, upper, 65535 );
      rule.set_src_port_lower( lower );
      rule.set_src_port_upper( upper );
      range( lower, upper, 65535 );
      rule.set_dst_port_lower( lower );
      rule.set_dst_port_upper( upper );
      rule.set_len_lower( any() ? 0 : 44 );
      rule.set_len_upper( any() ? 65535 : 45 );
      rule.set_ttl_lower( any() ? 0 : 2 );
      rule.set_ttl_upper( any() ? 255 : 3 );
      rule.set_tcp_flag( any() ? 0 : below( 64 ) & below( 64 ) );
      rule.set_icmp_type( oneOf( 6 ) ? below( 3 ) : 65535 );
      rule.set_icmp_code( oneOf( 6 ) ? below( 3 ) : 65535 );
      rule.set_dscp( any() ? 64 : below( 4 ) );
      rule.set_permit( oneOf( 2 ) );
      rule.set_counter_id( counter );
      return rule;
   }

   Matcher::Described packet() {
      Matcher::Described packet;
      packet.set_src( address() );
      packet.set_dst( address() );
      packet.set_proto( protocol() );
      packet.set_sport( port() );
      packet.set_dport( port() );
      packet.set_ttl( 1 + below( 4 ) );
      packet.set_dscp( below( 4 ) );
      packet.set_length( 44 + below( 3 ) );
      packet.set_tcp_flags( below( 64 ) );
      packet.set_icmp_type( below( 3 ) );
      packet.set_icmp_code( below( 3 ) );
      packet.set_count( true );
      return packet;
   }

   std::mt19937 random_{ GetParam() };
   bool narrow_ = false; // so that packets pass many rules before one matches

 private:
   std::uint32_t protocol() {
      static constexpr std::uint32_t kProtocols[] = { 1, 6, 17, 47 };
      return kProtocols[ below( 4 ) ];
   }
};

TEST_P( RuleRandom, theFirstRuleThatMatchesDecidesAndCounts ) {
   unsigned hits = 0, misses = 0;
   for ( unsigned table = 0; table < 40; ++table ) {
      Filter filter( "rule { permit: true }" );
      vex::pb::KyIpAclArg list;
      list.set_acl_id( 1 );
      list.set_acl_target( 0 );
      narrow_ = table % 10 == 9;
      const auto size = 1 + below( narrow_ ? 1200 : 60 );
      for ( std::uint32_t i = 0; i < size; ++i ) *list.add_rule() = rule( i );
      filter.plane.set( "db createAcl " + list.ShortDebugString() );
      std::vector< std::uint64_t > counted( size );
      for ( unsigned i = 0; i < 100; ++i ) {
         const auto described = packet();
         std::uint32_t at = 0;
         while ( at < size && !Matcher::matches( list.rule( int( at ) ), described ) ) ++at;
         std::string expected;
         if ( at == size ) {
            ++misses;
            expected = fmt::format( "access list 1, none of {} rules matches, no rule permits it", size );
         } else {
            ++hits;
            ++counted[ at ];
            expected = fmt::format( "access list 1, rule {} of {}, {}", at + 1, size,
                                    list.rule( int( at ) ).permit() ? "permitted" : "denied" );
         }
         EXPECT_EQ( filter.says( described.ShortDebugString() ), expected ) << described.ShortDebugString();
      }
      for ( std::uint32_t i = 0; i < size; ++i ) EXPECT_EQ( filter.plane.counters.value( i ), counted[ i ] );
   }
   // Otherwise it would have shown little.
   EXPECT_GT( hits, 1000u );
   EXPECT_GT( misses, 200u );
}

INSTANTIATE_TEST_SUITE_P( Seeds, RuleRandom, testing::Values( 1u, 2u, 3u ) );

} // namespace
