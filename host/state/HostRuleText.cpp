#include "HostRuleText.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace Host {

namespace {

using Acl::RangeOper;
using Acl::RangeSpec;

struct Name {
   std::string_view name;
   U16 number;
};

constexpr U8 protoIcmp = 1, protoTcp = 6;

constexpr Name protocols[] = { { "ip", 0 },    { "icmp", 1 },  { "igmp", 2 },   { "tcp", protoTcp },
                               { "udp", 17 },  { "gre", 47 },  { "esp", 50 },   { "ah", 51 },
                               { "ospf", 89 }, { "pim", 103 }, { "vrrp", 112 }, { "sctp", 132 } };

constexpr Name ports[] = { { "ftp", 21 },    { "ssh", 22 },    { "telnet", 23 },  { "smtp", 25 },
                           { "domain", 53 }, { "bootps", 67 }, { "bootpc", 68 },  { "tftp", 69 },
                           { "www", 80 },    { "ntp", 123 },   { "snmp", 161 },   { "snmptrap", 162 },
                           { "bgp", 179 },   { "https", 443 }, { "isakmp", 500 }, { "syslog", 514 } };

constexpr Name dscps[] = {
     { "default", 0 }, { "cs1", 8 },   { "cs2", 16 },  { "cs3", 24 },  { "cs4", 32 },  { "cs5", 40 },  { "cs6", 48 },
     { "cs7", 56 },    { "af11", 10 }, { "af12", 12 }, { "af13", 14 }, { "af21", 18 }, { "af22", 20 }, { "af23", 22 },
     { "af31", 26 },   { "af32", 28 }, { "af33", 30 }, { "af41", 34 }, { "af42", 36 }, { "af43", 38 }, { "ef", 46 } };

constexpr Name icmpTypes[] = {
     { "echo-reply", 0 }, { "unreachable", 3 }, { "redirect", 5 }, { "echo", 8 }, { "time-exceeded", 11 } };

constexpr Name flags[] = { { "fin", Acl::tcpFin }, { "syn", Acl::tcpSyn }, { "rst", Acl::tcpRst },
                           { "psh", Acl::tcpPsh }, { "ack", Acl::tcpAck }, { "urg", Acl::tcpUrg } };

// Of a connection that stands.
constexpr U8 established = Acl::tcpAck | Acl::tcpRst;

constexpr Name opers[] = { { "eq", RangeOper::eq_ },
                           { "neq", RangeOper::neq_ },
                           { "gt", RangeOper::gt_ },
                           { "lt", RangeOper::lt_ },
                           { "range", RangeOper::range_ } };

std::optional< U16 > numberOf( std::span< const Name > names, std::string_view name ) {
   const auto at = std::ranges::find( names, name, &Name::name );
   return at == names.end() ? std::nullopt : std::optional( at->number );
}

std::string nameOf( std::span< const Name > names, U32 number ) {
   const auto at = std::ranges::find( names, number, &Name::number );
   return at == names.end() ? std::to_string( number ) : std::string( at->name );
}

std::optional< U32 > parseNumber( std::string_view text ) {
   U32 number = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), number );
   if ( error != std::errc() || end != text.data() + text.size() ) return std::nullopt;
   return number;
}

std::string quoted( std::string_view text ) { return "\"" + std::string( text ) + "\""; }

struct Wrong {
   std::string what;
};

class RuleReader {
 public:
   explicit RuleReader( std::string_view text ) : rest_( text ) { skipBlanks(); }

   void read( Acl::AclType type, RuleLine & line ) {
      readSequence( line );
      if ( skip( "remark" ) ) {
         line.entry.isRemark = true;
         line.entry.remark = std::string( rest_ );
         return;
      }
      Acl::IpRuleConfig rule;
      if ( skip( "permit" ) )
         rule.actionIs( Acl::permit );
      else if ( !skip( "deny" ) )
         throw Wrong{ more() ? quoted( word() ) + " is not permit, deny or remark" : "permit or deny is missing" };
      if ( type == Acl::mac ) {
         line.entry.remark = std::string( rest_ );
         readMac();
      } else {
         readFilter( rule );
      }
      line.entry.rule = rule;
   }

 private:
   void skipBlanks() { rest_.remove_prefix( std::min( rest_.find_first_not_of( " \t" ), rest_.size() ) ); }
   bool more() const { return !rest_.empty(); }
   std::string_view word() const { return rest_.substr( 0, rest_.find_first_of( " \t" ) ); }
   void next() {
      rest_.remove_prefix( word().size() );
      skipBlanks();
   }
   std::string_view take( const char * what ) {
      if ( !more() ) throw Wrong{ std::string( what ) + " is missing" };
      const auto taken = word();
      next();
      return taken;
   }
   bool skip( std::string_view wanted ) {
      if ( word() != wanted ) return false;
      next();
      return true;
   }
   U32 number( const char * what, U32 low, U32 high ) {
      const auto text = take( what );
      const auto number = parseNumber( text );
      if ( !number || *number < low || *number > high )
         throw Wrong{ std::string( what ) + " " + quoted( text ) + " is not a number from " + std::to_string( low ) +
                      " to " + std::to_string( high ) };
      return *number;
   }

   void readSequence( RuleLine & line ) {
      // Counters are named by it, as a signed number.
      constexpr U32 most = 0x7fffffff;
      if ( more() && word().find_first_not_of( "0123456789" ) == std::string_view::npos )
         line.sequence = number( "sequence", 1, most );
   }

   void readFilter( Acl::IpRuleConfig & rule ) {
      auto filter = rule.filter();
      filter.protoIs( protocol() );
      filter.sourceIs( address( "the source" ) );
      filter.sourcePortIs( range( true ) );
      filter.destinationIs( address( "the destination" ) );
      filter.destinationPortIs( range( true ) );
      while ( more() )
         if ( skip( "log" ) )
            rule.logIs( true );
         else
            readOption( filter );
      rule.filterIs( filter );
   }

   U8 protocol() {
      const auto text = take( "the protocol" );
      const auto found = protocolOf( text );
      if ( !found || text == "0" )
         throw Wrong{ quoted( text ) + " is not a protocol: a name, or a number from 1 to 255" };
      return U8( *found );
   }

   Kynet::IpAddrWithFullMask address( const char * what ) {
      if ( skip( "any" ) ) return {};
      const bool host = skip( "host" );
      const auto text = take( what );
      if ( const auto prefix = Kynet::Prefix::fromString( text ); prefix && !host )
         return masked( prefix->address(), prefix->mask() );
      const auto address = Kynet::IpAddr::fromString( text );
      if ( !address ) throw Wrong{ std::string( what ) + " " + notAnAddress( text ) };
      const auto wildcard = Kynet::IpAddr::fromString( word() );
      if ( host || !wildcard ) return masked( *address, ~U32( 0 ) );
      next();
      return masked( *address, ~wildcard->value() );
   }
   static Kynet::IpAddrWithFullMask masked( Kynet::IpAddr address, U32 mask ) {
      return Kynet::IpAddrWithFullMask( Kynet::IpAddr( address.value() & mask ), mask );
   }
   static std::string notAnAddress( std::string_view text ) {
      if ( Kynet::Ip6Addr::fromString( text ) || Kynet::Ip6Prefix::fromString( text ) )
         return quoted( text ) + " is IPv6, and the list is of IPv4";
      return quoted( text ) + " is not any, host A, A/LEN or A WILDCARD";
   }

   // Any when no operator is there.
   RangeSpec range( bool named ) {
      const auto found = more() ? numberOf( opers, word() ) : std::nullopt;
      if ( !found ) return {};
      const RangeOper oper{ U8( *found ) };
      next();
      const char * const what = named ? "port" : "length";
      RangeSpec::Values values{ value( named, what ) };
      if ( oper == RangeOper::range_ ) values.push_back( value( named, what ) );
      if ( oper == RangeOper::eq_ || oper == RangeOper::neq_ )
         while ( more() && isValue( named, word() ) ) values.push_back( value( named, what ) );
      return RangeSpec( oper, std::move( values ) );
   }
   static bool isValue( bool named, std::string_view text ) {
      return parseNumber( text ) || ( named && numberOf( ports, text ) );
   }
   U16 value( bool named, const char * what ) {
      if ( named )
         if ( const auto port = numberOf( ports, word() ) ) {
            next();
            return *port;
         }
      return U16( number( what, 0, 65535 ) );
   }

   void readOption( Acl::IpFilter & filter ) {
      const auto option = take( "an option" );
      if ( option == "fragments" )
         filter.fragmentsIs( true );
      else if ( option == "established" )
         filter.tcpFlagsIs( filter.tcpFlags() | established );
      else if ( const auto flag = numberOf( flags, option ) )
         filter.tcpFlagsIs( U8( filter.tcpFlags() | *flag ) );
      else if ( option == "dscp" )
         readDscp( filter );
      else if ( option == "ttl" )
         readTtl( filter );
      else if ( option == "length" )
         readLength( filter );
      else if ( filter.proto() != protoIcmp || !readIcmp( option, filter ) )
         throw Wrong{ quoted( option ) + " is not expected here" };
   }
   void readDscp( Acl::IpFilter & filter ) {
      const auto text = take( "dscp" );
      const auto dscp = dscpOf( text );
      if ( !dscp ) throw Wrong{ "dscp " + quoted( text ) + " is not a name, or a number from 0 to 63" };
      filter.matchDscpIs( true );
      filter.dscpIs( *dscp );
   }
   void readTtl( Acl::IpFilter & filter ) {
      const auto text = take( "the operator of ttl" );
      const auto oper = numberOf( opers, text );
      if ( !oper || *oper == RangeOper::range_ )
         throw Wrong{ "ttl is followed by eq, neq, gt or lt, not " + quoted( text ) };
      filter.ttlIs( Acl::TtlSpec( RangeOper( U8( *oper ) ), U8( number( "ttl", 0, 255 ) ) ) );
   }
   void readLength( Acl::IpFilter & filter ) {
      filter.ipLenIs( range( false ) );
      if ( filter.ipLen().isAny() ) throw Wrong{ "length is followed by eq, neq, gt, lt or range" };
   }
   bool readIcmp( std::string_view option, Acl::IpFilter & filter ) {
      if ( const auto type = numberOf( icmpTypes, option ) ) {
         filter.icmpTypeIs( *type );
      } else if ( option == "type" ) {
         filter.icmpTypeIs( U16( number( "type", 0, 255 ) ) );
      } else {
         return false;
      }
      if ( skip( "code" ) ) filter.icmpCodeIs( U16( number( "code", 0, 255 ) ) );
      return true;
   }

   void readMac() {
      for ( const char * what : { "the source", "the destination" } )
         if ( const auto text = take( what ); text != "any" && !Kynet::EthAddr::fromString( text ) )
            throw Wrong{ std::string( what ) + " " + quoted( text ) + " is not any or a MAC address" };
      if ( more() ) number( "EtherType", 0, 65535 );
      if ( more() ) throw Wrong{ quoted( word() ) + " is not expected here" };
   }

   std::string_view rest_;
};

std::string textOf( const Kynet::IpAddrWithFullMask & masked ) {
   const auto mask = masked.mask();
   if ( mask == 0 ) return "any";
   const Kynet::IpAddr address = masked.address();
   if ( mask == ~U32( 0 ) ) return "host " + address.stringValue();
   const auto len = std::countl_one( mask );
   if ( std::popcount( mask ) == len ) return Kynet::Prefix( address, U8( len ) ).stringValue();
   return address.stringValue() + " " + Kynet::IpAddr( ~mask ).stringValue();
}

std::string behind( const RangeSpec & spec ) { return spec.isAny() ? "" : " " + spec.stringValue(); }

std::string flagsInWords( U8 wanted ) {
   if ( wanted == established ) return " established";
   std::string out;
   for ( const auto & flag : flags )
      if ( wanted & flag.number ) out += " " + std::string( flag.name );
   return out;
}

std::string optionsInWords( const Acl::IpFilter & filter ) {
   auto out = flagsInWords( filter.tcpFlags() );
   if ( filter.icmpType() != Acl::icmpAny ) {
      const auto name = nameOf( icmpTypes, filter.icmpType() );
      out += ( std::isdigit( static_cast< unsigned char >( name[ 0 ] ) ) ? " type " : " " ) + name;
   }
   if ( filter.icmpCode() != Acl::icmpAny ) out += " code " + std::to_string( filter.icmpCode() );
   if ( filter.matchDscp() ) out += " dscp " + dscpName( filter.dscp() );
   if ( filter.ttl().oper() != RangeOper::any_ )
      out += " ttl " + filter.ttl().oper().stringValue() + " " + std::to_string( filter.ttl().ttl() );
   if ( !filter.ipLen().isAny() ) out += " length" + behind( filter.ipLen() );
   if ( filter.fragments() ) out += " fragments";
   return out;
}

} // namespace

std::string parseRule( Acl::AclType type, std::string_view text, RuleLine & line ) {
   line = RuleLine();
   try {
      RuleReader( text ).read( type, line );
   } catch ( const Wrong & wrong ) {
      return wrong.what;
   }
   return {};
}

std::string textOfRule( const Acl::Entry & entry ) {
   if ( entry.isRemark ) return "remark " + entry.remark;
   const std::string verdict = entry.rule.action() == Acl::permit ? "permit " : "deny ";
   if ( !entry.remark.empty() ) return verdict + entry.remark;
   const auto & filter = entry.rule.filter();
   return verdict + protocolName( filter.proto() ) + " " + textOf( filter.source() ) + behind( filter.sourcePort() ) +
          " " + textOf( filter.destination() ) + behind( filter.destinationPort() ) + optionsInWords( filter ) +
          ( entry.rule.log() ? " log" : "" );
}

std::optional< U8 > protocolOf( std::string_view text ) {
   if ( const auto protocol = numberOf( protocols, text ) ) return U8( *protocol );
   const auto number = parseNumber( text );
   return number && *number <= 255 ? std::optional( U8( *number ) ) : std::nullopt;
}

std::string protocolName( U8 protocol ) { return nameOf( protocols, protocol ); }

std::optional< U8 > dscpOf( std::string_view text ) {
   if ( const auto dscp = numberOf( dscps, text ) ) return U8( *dscp );
   const auto number = parseNumber( text );
   return number && *number <= 63 ? std::optional( U8( *number ) ) : std::nullopt;
}

std::string dscpName( U8 dscp ) { return nameOf( dscps, dscp ); }

} // namespace Host
