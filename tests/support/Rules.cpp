#include "Rules.h"

#include <set>
#include <sstream>

namespace Test {

template < typename Change >
RuleOf & RuleOf::filter( const Change & change ) {
   auto filter = rule_.filter();
   change( filter );
   rule_.filterIs( filter );
   return *this;
}

namespace {

Kynet::IpAddrWithFullMask masked( const char * address, U32 mask ) {
   return Kynet::IpAddrWithFullMask( Kynet::IpAddr::fromString( address ).value(), mask );
}

} // namespace

RuleOf & RuleOf::proto( U8 number ) {
   return filter( [ & ]( auto & f ) { f.protoIs( number ); } );
}
RuleOf & RuleOf::from( const char * address, U32 mask ) {
   return filter( [ & ]( auto & f ) { f.sourceIs( masked( address, mask ) ); } );
}
RuleOf & RuleOf::to( const char * address, U32 mask ) {
   return filter( [ & ]( auto & f ) { f.destinationIs( masked( address, mask ) ); } );
}
RuleOf & RuleOf::sport( Acl::RangeOper oper, Acl::RangeSpec::Values values ) {
   return filter( [ & ]( auto & f ) { f.sourcePortIs( Acl::RangeSpec( oper, values ) ); } );
}
RuleOf & RuleOf::dport( Acl::RangeOper oper, Acl::RangeSpec::Values values ) {
   return filter( [ & ]( auto & f ) { f.destinationPortIs( Acl::RangeSpec( oper, values ) ); } );
}
RuleOf & RuleOf::len( Acl::RangeOper oper, Acl::RangeSpec::Values values ) {
   return filter( [ & ]( auto & f ) { f.ipLenIs( Acl::RangeSpec( oper, values ) ); } );
}
RuleOf & RuleOf::flags( U8 tcpFlags ) {
   return filter( [ & ]( auto & f ) { f.tcpFlagsIs( tcpFlags ); } );
}
RuleOf & RuleOf::ttl( Acl::RangeOper oper, U8 value ) {
   return filter( [ & ]( auto & f ) { f.ttlIs( Acl::TtlSpec( oper, value ) ); } );
}
RuleOf & RuleOf::dscp( U8 value ) {
   return filter( [ & ]( auto & f ) {
      f.matchDscpIs( true );
      f.dscpIs( value );
   } );
}
RuleOf & RuleOf::icmp( U16 type, U16 code ) {
   return filter( [ & ]( auto & f ) {
      f.protoIs( 1 );
      f.icmpTypeIs( type );
      f.icmpCodeIs( code );
   } );
}
RuleOf & RuleOf::fragments() {
   return filter( []( auto & f ) { f.fragmentsIs( true ); } );
}
RuleOf & RuleOf::log() {
   rule_.logIs( true );
   return *this;
}

RuleOf tcp( Acl::ActionType action ) { return RuleOf( action ).proto( 6 ); }
RuleOf udp( Acl::ActionType action ) { return RuleOf( action ).proto( 17 ); }

Acl::Entries entries( std::initializer_list< Acl::RuleConfig > rules ) {
   Acl::Entries out;
   for ( const auto & rule : rules ) out[ static_cast< U32 >( out.size() + 1 ) * 10 ].rule = rule;
   return out;
}

Gant::Ptr< Acl::AclConfig > list( const char * name, std::initializer_list< Acl::RuleConfig > rules ) {
   const auto made = Gant::make< Acl::AclConfig >( Acl::ListKey( Acl::ip, name ) );
   made->entriesIs( entries( rules ) );
   return made;
}

namespace {

const std::set< std::string > plain = { "src_ip 0.0.0.0",
                                        "src_ip_mask 0.0.0.0",
                                        "dst_ip 0.0.0.0",
                                        "dst_ip_mask 0.0.0.0",
                                        "proto 0",
                                        "src_port_lower 0",
                                        "src_port_upper 65535",
                                        "dst_port_lower 0",
                                        "dst_port_upper 65535",
                                        "len_lower 0",
                                        "len_upper 65535",
                                        "ttl_lower 0",
                                        "ttl_upper 255",
                                        "tcp_flag 0",
                                        "icmp_type 65535",
                                        "icmp_code 65535",
                                        "dscp 64",
                                        "log false",
                                        "action_dscp false",
                                        "action_tc false" };

std::string briefRule( const std::string & fields ) {
   std::istringstream in( fields );
   std::string out;
   for ( std::string name, value; in >> name >> value; )
      if ( !plain.contains( name + " " + value ) ) out += ( out.empty() ? "" : " " ) + name + " " + value;
   return out;
}

} // namespace

Lines brief( Lines lines ) {
   const std::string open = "rule {";
   for ( auto & line : lines )
      for ( auto at = line.find( open ); at != line.npos; at = line.find( open, at + 1 ) ) {
         const auto begin = at + open.size();
         const auto size = line.find( '}', begin ) - begin;
         line.replace( begin, size, briefRule( line.substr( begin, size ) ) );
      }
   return lines;
}

} // namespace Test
