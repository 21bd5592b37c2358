#include "HulAclSubrules.h"
#include "Rules.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Test;
using Acl::RangeOper;
using Acl::RangeSpec;

TEST( Subrules, aLonePortOfZeroIsInUse ) {
   const auto filter = Acl::RuleConfig( udp().dport( RangeOper::eq_, { 0 } ) ).filter();
   const auto subrules = Hul::subrulesOf( filter );
   ASSERT_EQ( subrules.size(), 1u );
   EXPECT_EQ( subrules[ 0 ], ( Hul::SubruleMatch{ .dstL4PortMask = 0xffff, .l4Rule = true } ) );
}

struct Packet {
   U16 sport, dport, len;
   U8 flags;
};

bool matches( const RangeSpec & wanted, U16 value ) {
   const auto & values = wanted.values();
   const bool among = std::ranges::find( values, value ) != values.end();
   switch ( wanted.oper() ) {
   case RangeOper::any_: return true;
   case RangeOper::eq_: return among;
   case RangeOper::neq_: return !among;
   case RangeOper::gt_: return value > values[ 0 ];
   case RangeOper::lt_: return value < values[ 0 ];
   case RangeOper::range_: return values[ 0 ] <= value && value <= values[ 1 ];
   }
   return false;
}

bool matches( const Acl::IpFilter & filter, const Packet & packet ) {
   return matches( filter.sourcePort(), packet.sport ) && matches( filter.destinationPort(), packet.dport ) &&
          matches( filter.ipLen(), packet.len ) && ( filter.tcpFlags() == 0 || ( filter.tcpFlags() & packet.flags ) );
}

bool inUseMatches( U16 mask, U16 low, U16 high, U16 value ) {
   return ( !mask && !low && !high ) || ( low <= value && value <= high );
}

bool matches( const Hul::SubruleMatch & m, const Packet & packet ) {
   return inUseMatches( m.srcL4PortMask, m.srcPortLow, m.srcPortHigh, packet.sport ) &&
          inUseMatches( m.dstL4PortMask, m.dstPortLow, m.dstPortHigh, packet.dport ) &&
          inUseMatches( m.ipLenMask, m.ipLenLow, m.ipLenHigh, packet.len ) &&
          ( m.extraTcpFlags & packet.flags ) == m.extraTcpFlags;
}

// A packet matches a rule exactly when it matches one of its records; and never two of them, but for flags.
TEST( Subrules, theRecordsOfARuleTogetherMatchWhatTheRuleMatches ) {
   std::mt19937 random( 20240611 );
   // Few numbers, so that rules and packets meet; the ends of the range are among them.
   const U16 numbers[] = { 0, 1, 2, 3, 79, 80, 81, 65533, 65534, 65535 };
   const auto number = [ & ] { return numbers[ random() % std::size( numbers ) ]; };
   const auto anyNumbers = [ & ] {
      const RangeOper oper( static_cast< U8 >( random() % 6 ) );
      RangeSpec::Values values;
      const size_t several = 1 + random() % 4;
      const size_t count = oper == RangeOper::any_ ? 0 : oper <= RangeOper::neq_ ? several : 2;
      for ( size_t i = 0; i < count; ++i ) values.push_back( number() );
      return RangeSpec( oper, values );
   };
   size_t met = 0;
   for ( int rule = 0; rule < 500; ++rule ) {
      Acl::IpFilter filter;
      filter.sourcePortIs( anyNumbers() );
      filter.destinationPortIs( anyNumbers() );
      filter.ipLenIs( anyNumbers() );
      if ( random() % 2 ) filter.tcpFlagsIs( static_cast< U8 >( random() % 64 ) );
      const auto subrules = Hul::subrulesOf( filter );
      for ( int i = 0; i < 50; ++i ) {
         const Packet packet{ number(), number(), number(), static_cast< U8 >( random() % 64 ) };
         const auto matching = static_cast< size_t >(
              std::ranges::count_if( subrules, [ & ]( const auto & subrule ) { return matches( subrule, packet ); } ) );
         ASSERT_EQ( matching > 0, matches( filter, packet ) ) << filter.strep();
         ASSERT_TRUE( matching <= 1 || filter.tcpFlags() != 0 ) << filter.strep();
         met += matching > 0;
      }
   }
   EXPECT_GT( met, 500u );
}

} // namespace
