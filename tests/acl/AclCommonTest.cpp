#include "Engine.h"
#include "GantTrace.h"
#include "Rules.h"
#include "vex/acl.pb.h"
#include "vex/counter_table.h"
#include "VexAclCommon.h"
#include "VexDescribe.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace Test;
using Acl::RangeOper;
using Acl::UniqueId;
using Vex::AclCommonHelper;

// A counter file of two writers, as a data plane makes it.
class CounterFile {
 public:
   CounterFile() : path_( testing::TempDir() + "acl_counters_" + std::to_string( getpid() ) ) {
      std::ofstream out( path_, std::ios::binary );
      const vex::counters::Header header{ vex::counters::kMagic, 2, slots, vex::counters::kOffset };
      out.write( reinterpret_cast< const char * >( &header ), sizeof( header ) );
      out.seekp( vex::counters::kOffset + 2 * slots * sizeof( U64 ) - 1 );
      out.put( 0 );
   }
   ~CounterFile() { unlink( path_.c_str() ); }
   void write( U32 writer, U32 slot, U64 count ) {
      std::fstream out( path_, std::ios::binary | std::ios::in | std::ios::out );
      out.seekp( vex::counters::kOffset + ( writer * slots + slot ) * sizeof( U64 ) );
      out.write( reinterpret_cast< const char * >( &count ), sizeof( count ) );
   }
   const std::string & path() const { return path_; }
   static constexpr U32 slots = 64;

 private:
   std::string path_;
};

class AclCommon : public testing::Test {
 protected:
   AclCommon() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      engine.take();
   }
   Hul::AclCreateError add( const Acl::RuleConfig & rule, const Hul::SubruleMatch & match = {},
                            const UniqueId & id = UniqueId( 1, 0, 0 ), Acl::AclType type = Acl::ip ) {
      Vex::VexAclRuleAction action;
      action.setPermitIs( true );
      action.permitIs( true );
      return helper->createIpAclSubrule( data, "counter", &message, type, action, rule, id, 10, 0, match );
   }
   // The records since the last time.
   Lines records() {
      Lines out;
      for ( const auto & rule : message.rule() ) out.push_back( "rule {" + Vex::describe( rule ) + "}" );
      message.Clear();
      return brief( out );
   }

   Engine engine;
   CounterFile file;
   Gant::Ptr< VexModules::MirelCounterDbStatus > counts = Gant::make< VexModules::MirelCounterDbStatus >();
   Gant::Ptr< AclCommonHelper > helper = Gant::make< AclCommonHelper >( engine.vexcsd, counts );
   Gant::Ptr< Vex::VexAclCommonData > data = Vex::vexAclCommonDataFactory();
   vex::pb::KyIpAclArg message;
};

TEST_F( AclCommon, aRuleThatSaysNothingMatchesAnythingInEveryField ) {
   add( RuleOf() );
   EXPECT_EQ( Vex::describe( message.rule( 0 ) ),
              "src_ip 0.0.0.0 src_ip_mask 0.0.0.0 dst_ip 0.0.0.0 dst_ip_mask 0.0.0.0 proto 0 src_port_lower 0 "
              "src_port_upper 65535 dst_port_lower 0 dst_port_upper 65535 len_lower 0 len_upper 65535 ttl_lower 0 "
              "ttl_upper 255 tcp_flag 0 icmp_type 65535 icmp_code 65535 dscp 64 permit true counter_id 0 "
              "action_dscp false action_tc false" );
   const auto rule = message.rule( 0 ).SerializeAsString();
   message.Clear();
   Vex::VexAclRuleAction action;
   action.setPermitIs( true );
   action.permitIs( true );
   helper->createFinalAclRule( data, "counter", &message, Acl::ip, UniqueId( 1, 0, 0 ), action, 0 );
   EXPECT_EQ( message.rule( 0 ).SerializeAsString(), rule );
}

TEST_F( AclCommon, eachPartOfARuleGoesIntoItsFields ) {
   struct {
      Acl::RuleConfig rule;
      Hul::SubruleMatch match;
      const char * fields;
   } const cases[] = {
        { RuleOf().from( "10.0.1.0", 0xff00ff00 ).to( "10.9.8.7" ),
          {},
          "src_ip 10.0.1.0 src_ip_mask 255.0.255.0 dst_ip 10.9.8.7 dst_ip_mask 255.255.255.255" },
        { tcp(), { .extraTcpFlags = 16 }, "proto 6 tcp_flag 16" },
        { tcp(), { .srcPortLow = 5, .srcPortHigh = 7 }, "proto 6 src_port_lower 5 src_port_upper 7" },
        { tcp(), { .dstPortHigh = 7 }, "proto 6 dst_port_upper 7" },
        // The mask alone says that the field is in use.
        { tcp(), { .srcL4PortMask = 0xffff }, "proto 6 src_port_upper 0" },
        { tcp(), { .dstL4Port = 80 }, "proto 6" },
        { RuleOf(), { .ipLenMask = 1 }, "len_upper 0" },
        { RuleOf(), { .ipLenLow = 64, .ipLenHigh = 128 }, "len_lower 64 len_upper 128" },
        { RuleOf().ttl( RangeOper::eq_, 1 ), {}, "ttl_lower 1 ttl_upper 1" },
        { RuleOf().ttl( RangeOper::gt_, 1 ), {}, "" },
        { RuleOf().dscp( 0 ), {}, "dscp 0" },
        { RuleOf().icmp( 8, 0 ), {}, "proto 1 icmp_type 8 icmp_code 0" },
   };
   for ( const auto & c : cases ) {
      add( c.rule, c.match );
      const Gant::String fields = c.fields;
      EXPECT_EQ( records(), Lines{ "rule {" + fields + ( fields.empty() ? "" : " " ) + "permit true counter_id 0}" } );
   }
}

TEST_F( AclCommon, aCounterFollowsItsRuleUntilTheRuleHasLeft ) {
   const UniqueId stays( 1, 0, 0 ), leaves( 2, 0, 0 ), comes( 3, 0, 0 );
   add( RuleOf(), {}, stays );
   add( RuleOf(), {}, leaves );
   data->lastCountIs( stays, 7 );
   add( RuleOf(), {}, stays );
   EXPECT_EQ( records(), ( Lines{ "rule {permit true counter_id 0}", "rule {permit true counter_id 1}",
                                  "rule {permit true counter_id 0}" } ) );
   data->ruleIdDelAll();
   add( RuleOf(), {}, comes );
   add( RuleOf(), {}, stays );
   helper->freeCounterIds( data, false );
   EXPECT_EQ( records(), ( Lines{ "rule {permit true counter_id 2}", "rule {permit true counter_id 0}" } ) );
   EXPECT_EQ( data->lastCount( stays ), 7u );
   EXPECT_TRUE( data->lastCountHas( comes ) && !data->lastCountHas( leaves ) && !data->counterIdHas( leaves ) );
   EXPECT_EQ( engine.counters->counterIterator().size(), 2u );

   helper->freeCounterIds( data, true );
   EXPECT_EQ( data->counterIds() + data->lastCounts(), 0u );
   EXPECT_EQ( data->ruleIds(), 2u );
   EXPECT_EQ( engine.counters->counterIterator().size(), 0u );
}

TEST_F( AclCommon, aCountIsTheSumOfTheWritersAndStartsFromZeroForANewRule ) {
   const UniqueId first( 1, 0, 0 ), second( 2, 0, 0 );
   add( RuleOf(), {}, first );
   EXPECT_EQ( helper->getCounter( data, first ), 0u );
   ASSERT_EQ( counts->map( file.path() ), "" );
   engine.counters->counterMirelIs( counts );
   file.write( 0, 0, 40 );
   file.write( 1, 0, 2 );
   EXPECT_EQ( helper->getCounter( data, first ), 42u );
   EXPECT_EQ( helper->getCounter( data, second ), 0u );
   EXPECT_EQ( Gant::traceLines( 1, "VexAclCommon" )
                   .back()
                   .text.find( "AclCommonHelper::getCounter counterId not "
                               "allocated " ),
              0u );
   // The next rule gets the slot with what stands in it.
   helper->freeCounterIds( data, true );
   add( RuleOf(), {}, second );
   EXPECT_EQ( helper->getCounter( data, second ), 0u );
   file.write( 1, 0, 5 );
   EXPECT_EQ( helper->getCounter( data, second ), 3u );
}

TEST_F( AclCommon, aFileThatIsNoCounterTableIsNamedAndCountsNothing ) {
   EXPECT_EQ( counts->map( file.path() + ".none" ),
              "counter table " + file.path() + ".none: No such file or directory" );
   ASSERT_EQ( counts->map( file.path() ), "" );
   ASSERT_EQ( truncate( file.path().c_str(), 100 ), 0 );
   EXPECT_EQ( counts->map( file.path() ), "counter table " + file.path() + ": not a counter table" );
   EXPECT_FALSE( counts->mapped() );
   EXPECT_EQ( counts->mirelCount( VexModules::MirelCounterId( 0 ) ).count().value(), 0u );
}

} // namespace
