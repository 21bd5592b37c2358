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
   key.src = header.src();
   key.dst = header.dst();
   key.len = header.totalLen();
   key.ttl = header.ttl();
   key.dscp = std::uint8_t( header.tos() >> 2 );
   key.proto = header.proto();
   if ( header.fragmentOffset() != 0 ) return key;
   // What is behind the packet's length is padding of the link layer.
   const auto end = std::clamp< std::size_t >( header.totalLen(), header.headerLen(), packet.size() );
   const auto l4 = packet.span().first( end ).subspan( header.headerLen() );
   if ( hasPorts( key.proto ) && l4.size() >= 4 ) {
      key.sport = get16( l4.data() );
      key.dport = get16( l4.data() + 2 );
   }
   if ( key.proto == kProtoTcp && l4.size() > kTcpFlagsAt ) key.tcpFlags = l4[ kTcpFlagsAt ];
   if ( key.proto == kProtoIcmp && l4.size() >= 2 ) {
      key.icmpType = l4[ 0 ];
      key.icmpCode = l4[ 1 ];
   }
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
   put32( at + srcDigits / 2, src.value );
   put32( at + dstDigits / 2, dst.value );
   at[ protoDigits / 2 ] = proto;
   put16( at + sportDigits / 2, sport.value_or( 0 ) );
   put16( at + dportDigits / 2, dport.value_or( 0 ) );
   at[ dscpDigits / 2 ] = dscp;
   at[ flagDigits / 2 ] = tcpFlags.value_or( 0 );
   at[ icmpDigits / 2 ] = icmpType.value_or( 0 );
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
}

bool Rule::matches( const RuleKey & key ) const {
   return ( key.src.value & srcMask_ ) == src_ && ( key.dst.value & dstMask_ ) == dst_ &&
          ( proto_ == 0 || proto_ == key.proto ) && ttl_.has( key.ttl ) && len_.has( key.len ) &&
          ( dscp_ == kAnyDscp || dscp_ == key.dscp ) && matchesTransport( key );
}

bool Rule::matchesTransport( const RuleKey & key ) const {
   if ( !sport_.has( key.sport ) || !dport_.has( key.dport ) ) return false;
   if ( tcpFlags_ != 0 && ( !key.tcpFlags || ( *key.tcpFlags & tcpFlags_ ) != tcpFlags_ ) ) return false;
   if ( icmpType_ != kAnyIcmp && key.icmpType != icmpType_ ) return false;
   return icmpCode_ == kAnyIcmp || key.icmpCode == icmpCode_;
}

} // namespace Vexdp
