#include "HulAclSubrules.h"

namespace Hul {

namespace {

// The value, mask and range of one number in a subrule.
struct Field {
   U16 SubruleMatch::*value;
   U16 SubruleMatch::*mask;
   U16 SubruleMatch::*low;
   U16 SubruleMatch::*high;
};

constexpr Field srcPort = { &SubruleMatch::srcL4Port, &SubruleMatch::srcL4PortMask, &SubruleMatch::srcPortLow,
                            &SubruleMatch::srcPortHigh };
constexpr Field dstPort = { &SubruleMatch::dstL4Port, &SubruleMatch::dstL4PortMask, &SubruleMatch::dstPortLow,
                            &SubruleMatch::dstPortHigh };
constexpr Field ipLen = { &SubruleMatch::ipLen, &SubruleMatch::ipLenMask, &SubruleMatch::ipLenLow,
                          &SubruleMatch::ipLenHigh };

// Each subrule once for each range of the number. The mask tells that a lone 0 is in use.
void multiply( std::vector< SubruleMatch > & subrules, const Field & field, const Acl::RangeSpec & numbers ) {
   if ( numbers.isAny() ) return;
   std::vector< SubruleMatch > out;
   for ( const auto & subrule : subrules )
      for ( const auto & [ low, high ] : numbers.ranges() ) {
         auto & made = out.emplace_back( subrule );
         if ( low == high ) {
            made.*field.value = low;
            made.*field.mask = 0xffff;
         }
         made.*field.low = low;
         made.*field.high = high;
      }
   subrules = std::move( out );
}

void multiplyFlags( std::vector< SubruleMatch > & subrules, U8 tcpFlags ) {
   if ( tcpFlags == 0 ) return;
   std::vector< SubruleMatch > out;
   for ( const auto & subrule : subrules )
      for ( U32 flag = 1; flag <= 0xff; flag <<= 1 )
         if ( tcpFlags & flag ) out.emplace_back( subrule ).extraTcpFlags = static_cast< U8 >( flag );
   subrules = std::move( out );
}

} // namespace

std::vector< SubruleMatch > subrulesOf( const Acl::IpFilter & filter ) {
   SubruleMatch whole;
   whole.l4Rule = !filter.sourcePort().isAny() || !filter.destinationPort().isAny() || filter.tcpFlags() != 0;
   std::vector< SubruleMatch > subrules = { whole };
   multiply( subrules, srcPort, filter.sourcePort() );
   multiply( subrules, dstPort, filter.destinationPort() );
   multiply( subrules, ipLen, filter.ipLen() );
   multiplyFlags( subrules, filter.tcpFlags() );
   return subrules;
}

} // namespace Hul
