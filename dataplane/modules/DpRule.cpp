#include "DpRule.h"

#include "DpCounterTable.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

namespace {

constexpr std::uint8_t kProtoDccp = 33;
constexpr std::uint8_t kProtoSctp = 132;
constexpr std::uint8_t kProtoUdpLite = 136;
constexpr std::size_t kTcpFlagsAt = 13;

// Those whose header begins with two ports (RFC 9293, 768, 4340, 9260, 3828).
bool hasPorts( std::uint8_t proto ) {
   return proto == kProtoTcp || proto == kProtoUdp || proto == kProtoDccp || proto == kProtoSctp ||
          proto == kProtoUdpLite;
}

Outcome requireRange( const char * what, std::uint32_t lower, std::uint32_t upper ) {
   if ( lower <= upper ) return {};
   return refuse( EINVAL, "the range {} to {} of {} is upside down", lower, upper, what );
}

Outcome requireFitting( const Rule::Record & record ) {
   struct {
      const char * field;
      std::uint32_t value;
      std::uint32_t limit;
   } const fields[] = {
        { "proto", record.proto(), 255 },
        { "src_port_lower", record.src_port_lower(), 65535 },
        { "src_port_upper", record.src_port_upper(), 65535 },
        { "dst_port_lower", record.dst_port_lower(), 65535 },
        { "dst_port_upper", record.dst_port_upper(), 65535 },
        { "len_lower", record.len_lower(), 65535 },
        { "len_upper", record.len_upper(), 65535 },
        { "ttl_lower", record.ttl_lower(), 255 },
        { "ttl_upper", record.ttl_upper(), 255 },
        { "tcp_flag", record.tcp_flag(), 255 },
        { "dscp", record.dscp(), Rule::kAnyDscp },
        { "dscp_data", record.dscp_data(), 63 },
        { "tc_data", record.tc_data(), 255 },
   };
   for ( const auto & field : fields )
      if ( auto out = requireAtMost( field.field, field.value, field.limit ); !out.ok() ) return out;
   return {};
}

Outcome requireIcmp( const char * field, std::uint32_t value ) {
   if ( value <= 255 || value == Rule::kAnyIcmp ) return {};
   return refuse( ERANGE, "{} {} is out of range, at most 255, or {} for any", field, value, Rule::kAnyIcmp );
}

template < typename T >
T given( bool present, std::uint32_t value, T any ) {
   return present ? T( value ) : any;
}

RuleRange rangeOf( bool hasLower, std::uint32_t lower, bool hasUpper, std::uint32_t upper, std::uint16_t max = 65535 ) {
   return { given< std::uint16_t >( hasLower, lower, 0 ), given< std::uint16_t >( hasUpper, upper, max ) };
}

} // namespace

RuleKey RuleKey::of( const Ipv4Header & header, const Packet & packet ) {
   RuleKey key;
   const auto protocol = header.proto();
   key.addresses = std::uint64_t( header.src().value ) << 32 | header.dst().value;
   key.fields = std::uint64_t( protocol ) << proto | std::uint64_t( header.tos() >> 2 ) << dscp;
   key.ranged[ len ] = header.totalLen();
   key.ranged[ ttl ] = header.ttl();
   if ( header.fragmentOffset() != 0 ) return key;
   // What is behind the packet's length is padding of the link layer.
   const auto end = std::clamp< std::size_t >( header.totalLen(), header.headerLen(), packet.size() );
   const auto * const l4 = packet.data() + header.headerLen();
   const auto size = end - header.headerLen();
   if ( hasPorts( protocol ) && size >= 4 ) {
      key.ranged[ sport ] = get16( l4 );
      key.ranged[ dport ] = get16( l4 + 2 );
      key.fields |= kHasPorts;
   }
   if ( protocol == kProtoTcp && size > kTcpFlagsAt ) key.fields |= std::uint64_t( l4[ kTcpFlagsAt ] ) << tcpFlags;
   if ( protocol == kProtoIcmp && size >= 2 )
      key.fields |= kHasIcmp | std::uint64_t( l4[ 0 ] ) << icmpType | std::uint64_t( l4[ 1 ] ) << icmpCode;
   return key;
}

namespace {
// The digits' places in a key.
enum Digits : unsigned {
   srcDigits = 0,
   dstDigits = 8,
   protoDigits = 16,
   sportDigits = 18,
   dportDigits = 22,
   dscpDigits = 26,
   flagDigits = 28,
   icmpDigits = 30
};

// All as bits by value.
constexpr unsigned kAllValues = 0xffff;

// A digit of a range holds the key's as long as the ends agree in all digits before it.
unsigned valuesIn( const RuleRange & range, unsigned digit ) {
   const unsigned shift = 12 - 4 * digit;
   if ( range.lower >> ( shift + 4 ) != range.upper >> ( shift + 4 ) ) return kAllValues;
   return ( 2u << ( range.upper >> shift & 15 ) ) - ( 1u << ( range.lower >> shift & 15 ) );
}

unsigned valuesWith( unsigned wanted, unsigned mask ) {
   if ( mask == 15 ) return 1u << wanted;
   unsigned values = 0;
   for ( unsigned value = 0; value < 16; ++value )
      if ( ( value & mask ) == wanted ) values |= 1u << value;
   return values;
}

unsigned valuesWith( std::uint32_t field, std::uint32_t mask, unsigned bits, unsigned digit ) {
   const auto shift = bits - 4 - 4 * digit;
   return valuesWith( field >> shift & 15, mask >> shift & 15 );
}

} // namespace

void RuleKey::bytes( std::uint8_t * at ) const {
   put32( at + srcDigits / 2, src().value );
   put32( at + dstDigits / 2, dst().value );
   at[ protoDigits / 2 ] = field( proto );
   put16( at + sportDigits / 2, ranged[ sport ] );
   put16( at + dportDigits / 2, ranged[ dport ] );
   at[ dscpDigits / 2 ] = field( dscp );
   at[ flagDigits / 2 ] = field( tcpFlags );
   at[ icmpDigits / 2 ] = field( icmpType );
}

std::uint32_t Rule::digits() const {
   std::uint32_t digits = 0;
   const auto care = [ &digits ]( unsigned first, std::uint32_t mask, unsigned bits ) {
      for ( unsigned digit = 0; digit < bits / 4; ++digit )
         if ( mask >> ( bits - 4 - 4 * digit ) & 15 ) digits |= 1u << ( first + digit );
   };
   care( srcDigits, srcMask_, 32 );
   care( dstDigits, dstMask_, 32 );
   care( protoDigits, proto_ == 0 ? 0 : 0xff, 8 );
   care( sportDigits, sport_.any() ? 0 : 0xffff, 16 );
   care( dportDigits, dport_.any() ? 0 : 0xffff, 16 );
   care( dscpDigits, dscp_ == kAnyDscp ? 0 : 0xff, 8 );
   care( flagDigits, tcpFlags_, 8 );
   care( icmpDigits, icmpType_ == kAnyIcmp ? 0 : 0xff, 8 );
   return digits;
}

unsigned Rule::valuesOf( unsigned digit ) const {
   if ( digit < dstDigits ) return valuesWith( src_, srcMask_, 32, digit );
   if ( digit < protoDigits ) return valuesWith( dst_, dstMask_, 32, digit - dstDigits );
   if ( digit < sportDigits ) return valuesWith( proto_, proto_ == 0 ? 0 : 0xff, 8, digit - protoDigits );
   if ( digit < dportDigits ) return valuesIn( sport_, digit - sportDigits );
   if ( digit < dscpDigits ) return valuesIn( dport_, digit - dportDigits );
   if ( digit < flagDigits ) return dscp_ == kAnyDscp ? kAllValues : valuesWith( dscp_, 0xff, 8, digit - dscpDigits );
   if ( digit < icmpDigits ) return valuesWith( tcpFlags_, tcpFlags_, 8, digit - flagDigits );
   return icmpType_ == kAnyIcmp ? kAllValues : valuesWith( icmpType_, 0xff, 8, digit - icmpDigits );
}

Outcome Rule::check( const Record & record ) {
   if ( auto out = requireFitting( record ); !out.ok() ) return out;
   if ( record.has_icmp_type() )
      if ( auto out = requireIcmp( "icmp_type", record.icmp_type() ); !out.ok() ) return out;
   if ( record.has_icmp_code() )
      if ( auto out = requireIcmp( "icmp_code", record.icmp_code() ); !out.ok() ) return out;
   const Rule rule( record );
   struct {
      const char * what;
      RuleRange range;
   } const ranges[] = { { "source ports", rule.sport_ },
                        { "destination ports", rule.dport_ },
                        { "lengths", rule.len_ },
                        { "TTLs", rule.ttl_ } };
   for ( const auto & [ what, range ] : ranges )
      if ( auto out = requireRange( what, range.lower, range.upper ); !out.ok() ) return out;
   if ( record.has_counter_id() && record.counter_id() != kNoCounter && record.counter_id() >= CounterTable::slots() )
      return refuse( ERANGE, "counter_id {} is out of range, the table has {} counters", record.counter_id(),
                     CounterTable::slots() );
   return requireFields( { { !record.action_dscp() || record.has_dscp_data(), "dscp_data" },
                           { !record.action_tc() || record.has_tc_data(), "tc_data" } } );
}

Rule::Rule( const Record & record ) :
     log( record.log() ), counter( given< CounterId >( record.has_counter_id(), record.counter_id(), kNoCounter ) ),
     src_( record.src_ip() & record.src_ip_mask() ), srcMask_( record.src_ip_mask() ),
     dst_( record.dst_ip() & record.dst_ip_mask() ), dstMask_( record.dst_ip_mask() ),
     sport_( rangeOf( record.has_src_port_lower(), record.src_port_lower(), record.has_src_port_upper(),
                      record.src_port_upper() ) ),
     dport_( rangeOf( record.has_dst_port_lower(), record.dst_port_lower(), record.has_dst_port_upper(),
                      record.dst_port_upper() ) ),
     len_( rangeOf( record.has_len_lower(), record.len_lower(), record.has_len_upper(), record.len_upper() ) ),
     ttl_( rangeOf( record.has_ttl_lower(), record.ttl_lower(), record.has_ttl_upper(), record.ttl_upper(), 255 ) ),
     icmpType_( given( record.has_icmp_type(), record.icmp_type(), kAnyIcmp ) ),
     icmpCode_( given( record.has_icmp_code(), record.icmp_code(), kAnyIcmp ) ),
     proto_( std::uint8_t( record.proto() ) ), tcpFlags_( std::uint8_t( record.tcp_flag() ) ),
     dscp_( given( record.has_dscp(), record.dscp(), kAnyDscp ) ) {
   if ( record.has_permit() ) permit = record.permit();
   if ( record.action_dscp() ) setDscp = std::uint8_t( record.dscp_data() );
   if ( record.action_tc() ) setTrafficClass = std::uint8_t( record.tc_data() );

   addressMask_ = std::uint64_t( srcMask_ ) << 32 | dstMask_;
   addresses_ = std::uint64_t( src_ ) << 32 | dst_;
   const auto want = [ this ]( bool any, RuleKey::Field field, std::uint64_t value, std::uint64_t mask = 0xff ) {
      if ( any ) return;
      fieldMask_ |= mask << field;
      fields_ |= ( value & mask ) << field;
   };
   want( proto_ == 0, RuleKey::proto, proto_ );
   want( dscp_ == kAnyDscp, RuleKey::dscp, dscp_ );
   want( false, RuleKey::tcpFlags, tcpFlags_, tcpFlags_ );
   want( icmpType_ == kAnyIcmp, RuleKey::icmpType, icmpType_ );
   want( icmpCode_ == kAnyIcmp, RuleKey::icmpCode, icmpCode_ );
   // What is asked for must be there, be it zero.
   const auto there = ( sport_.any() && dport_.any() ? 0 : RuleKey::kHasPorts ) |
                      ( icmpType_ == kAnyIcmp && icmpCode_ == kAnyIcmp ? 0 : RuleKey::kHasIcmp );
   fieldMask_ |= there;
   fields_ |= there;
   const std::array ranges{ sport_, dport_, len_, ttl_ };
   for ( std::size_t i = 0; i < ranges.size(); ++i ) {
      lowest_[ i ] = ranges[ i ].lower;
      width_[ i ] = std::uint16_t( ranges[ i ].upper - ranges[ i ].lower );
   }
}

} // namespace Vexdp
