#include "Engine.h"
#include "Rules.h"
#include "VexQosCpuPolicy.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

class CpuPolicy : public testing::Test {
 protected:
   CpuPolicy() {
      engine.vexcsd->kyAclDbIs( Gant::make< Vex::KyAclDb >( engine.enginePair ) );
      engine.take();
   }
   Engine engine;
   Gant::Ptr< Vex::QosCpuPolicy > policy = Gant::make< Vex::QosCpuPolicy >( engine.vexcsd );
};

// The rule of a match, with the counter of its place.
class Table {
 public:
   void add( const std::string & match, int trafficClass ) {
      text_ += " rule {" + match + ( match.empty() ? "" : " " ) + "counter_id " + std::to_string( counter_++ ) +
               " action_tc true tc_data " + std::to_string( trafficClass ) + "}";
   }
   const std::string & text() const { return text_; }

 private:
   std::string text_ = "kyAclDb createPolicy acl_id 0 acl_target 2";
   int counter_ = 0;
};

std::string port( int proto, const char * side, int number ) {
   const auto field = " " + std::string( side ) + "_port_";
   return "proto " + std::to_string( proto ) + field + "lower " + std::to_string( number ) + field + "upper " +
          std::to_string( number );
}

TEST_F( CpuPolicy, standsOnTheTrapModuleRecordByRecord ) {
   policy->hwInit();
   Table table;
   for ( const int bfd : { 3784, 3785, 4784 } ) table.add( port( 17, "dst", bfd ), 6 );
   table.add( port( 6, "src", 179 ), 6 );
   table.add( port( 6, "dst", 179 ), 6 );
   for ( const int ike : { 500, 4500 } ) table.add( port( 17, "dst", ike ), 6 );
   table.add( "proto 89", 5 );
   for ( int dscp = 0; dscp <= 63; ++dscp ) table.add( "proto 103 dscp " + std::to_string( dscp ), dscp < 48 ? 1 : 4 );
   table.add( "proto 2", 4 );
   table.add( "proto 112", 3 );
   for ( const int dhcp : { 67, 68 } )
      for ( const char * side : { "src", "dst" } ) table.add( port( 17, side, dhcp ), 3 );
   table.add( "", 0 );
   EXPECT_EQ( brief( engine.take() ), ( Lines{ table.text(), "trap applyPolicy policy_id 0" } ) );
   EXPECT_EQ( engine.counters->counterIterator().at( Vex::CounterId( 3 ) ).name, "cpuPolicy-6-179-0-255-6" );
   EXPECT_EQ( engine.vexcsd->kyAclDb()->freeAclIds(), 127u );
}

} // namespace
