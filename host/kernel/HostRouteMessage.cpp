#include "HostRouteMessage.h"

#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>

namespace Host {

namespace {

// Walks the attributes, each of which lies within the bytes. False: one does not.
template < typename Each >
bool attrsOf( const void * begin, size_t size, const Each & each ) {
   const auto * attr = static_cast< const nlattr * >( begin );
   auto left = static_cast< int >( size );
   while ( mnl_attr_ok( attr, left ) ) {
      if ( !each( *attr ) ) return false;
      left -= static_cast< int >( MNL_ALIGN( attr->nla_len ) );
      attr = mnl_attr_next( attr );
   }
   return left < static_cast< int >( sizeof( nlattr ) );
}

template < typename Each >
bool attrsBehind( const nlmsghdr & header, size_t fixed, const Each & each ) {
   const auto before = MNL_NLMSG_HDRLEN + MNL_ALIGN( fixed );
   if ( header.nlmsg_len <= before ) return true;
   return attrsOf( reinterpret_cast< const char * >( &header ) + before, header.nlmsg_len - before, each );
}

size_t sizeOf( const nlattr & attr ) { return mnl_attr_get_payload_len( &attr ); }

bool wordIs( const nlattr & attr, U32 & word ) {
   if ( sizeOf( attr ) < sizeof( word ) ) return false;
   word = mnl_attr_get_u32( &attr );
   return true;
}

bool addressIs( const void * bytes, size_t size, Kynet::IpGenAddr & addr ) {
   U32 word = 0;
   Kynet::Ip6Addr::Bytes whole{};
   if ( size == sizeof( word ) ) {
      std::memcpy( &word, bytes, size );
      addr = Kynet::IpAddr( ntohl( word ) );
      return true;
   }
   if ( size != whole.size() ) return false;
   std::memcpy( whole.data(), bytes, size );
   addr = Kynet::Ip6Addr( whole );
   return true;
}

// What a hop's own attributes say, of a route or of one of several hops. False: malformed.
bool hopAttr( const nlattr & attr, U16 type, NetlinkHop & hop, const char *& strange ) {
   switch ( type ) {
   case RTA_GATEWAY: return addressIs( mnl_attr_get_payload( &attr ), sizeOf( attr ), hop.gateway );
   case RTA_VIA: strange = "a next hop of another family"; return true;
   case RTA_ENCAP_TYPE:
   case RTA_ENCAP:
   case RTA_NEWDST: strange = "an encapsulation"; return true;
   default: return true;
   }
}

void hopFlags( U32 flags, NetlinkHop & hop ) {
   hop.onlink = ( flags & RTNH_F_ONLINK ) != 0;
   hop.dead = ( flags & RTNH_F_DEAD ) != 0;
}

bool multipathIs( const nlattr & attr, RouteMessage & message ) {
   const auto * at = static_cast< const char * >( mnl_attr_get_payload( &attr ) );
   size_t left = sizeOf( attr );
   while ( left >= sizeof( rtnexthop ) ) {
      rtnexthop head{};
      std::memcpy( &head, at, sizeof( head ) );
      if ( head.rtnh_len < sizeof( head ) || head.rtnh_len > left ) return false;
      NetlinkHop hop;
      hop.index = static_cast< U32 >( head.rtnh_ifindex );
      hop.weight = static_cast< U16 >( head.rtnh_hops + 1 );
      hopFlags( head.rtnh_flags, hop );
      if ( !attrsOf( at + sizeof( head ), head.rtnh_len - sizeof( head ), [ & ]( const nlattr & inner ) {
              return hopAttr( inner, mnl_attr_get_type( &inner ), hop, message.strange );
           } ) )
         return false;
      message.hops.push_back( hop );
      const auto step = std::min< size_t >( MNL_ALIGN( head.rtnh_len ), left );
      at += step;
      left -= step;
   }
   return left == 0;
}

const char * prefixIs( const rtmsg & body, const Kynet::IpGenAddr & addr, Kynet::IpGenPrefix & prefix ) {
   const bool v6 = body.rtm_family == AF_INET6;
   if ( body.rtm_dst_len > ( v6 ? 128 : 32 ) ) return "a prefix longer than an address";
   if ( v6 )
      prefix = Kynet::Ip6Prefix( addr.v6Addr(), body.rtm_dst_len );
   else
      prefix = Kynet::Prefix( addr.v4Addr(), body.rtm_dst_len );
   return nullptr;
}

} // namespace

const char * readRoute( const nlmsghdr & header, RouteMessage & message ) {
   if ( header.nlmsg_len < MNL_NLMSG_HDRLEN + sizeof( rtmsg ) ) return "a route message without its fixed part";
   rtmsg body{};
   std::memcpy( &body, mnl_nlmsg_get_payload( &header ), sizeof( body ) );
   message.hops.clear();
   message.del = header.nlmsg_type == RTM_DELROUTE;
   message.append = ( header.nlmsg_flags & NLM_F_APPEND ) != 0;
   message.type = body.rtm_type;
   message.protocol = body.rtm_protocol;
   message.tos = body.rtm_tos;
   message.flags = body.rtm_flags;
   message.table = body.rtm_table;
   message.metric = message.nextHopId = 0;
   message.strange = nullptr;
   message.of = RouteMessage::Of::prefix;
   if ( body.rtm_family != AF_INET && body.rtm_family != AF_INET6 ) {
      message.of = RouteMessage::Of::otherFamily;
      message.prefix = {};
      return nullptr;
   }
   if ( body.rtm_src_len != 0 || body.rtm_tos != 0 ) {
      message.of = RouteMessage::Of::somePackets;
      message.strange = body.rtm_src_len != 0 ? "a source address" : "a type of service";
   }
   const size_t addressSize = body.rtm_family == AF_INET6 ? 16 : 4;
   Kynet::IpGenAddr addr = body.rtm_family == AF_INET6 ? Kynet::IpGenAddr( Kynet::Ip6Addr() ) : Kynet::IpGenAddr();
   NetlinkHop hop;
   hopFlags( body.rtm_flags, hop );
   bool single = false;
   const bool read = attrsBehind( header, sizeof( body ), [ & ]( const nlattr & attr ) {
      const auto type = mnl_attr_get_type( &attr );
      switch ( type ) {
      case RTA_DST:
         return sizeOf( attr ) == addressSize && addressIs( mnl_attr_get_payload( &attr ), sizeOf( attr ), addr );
      case RTA_OIF: single = true; return wordIs( attr, hop.index );
      case RTA_PRIORITY: return wordIs( attr, message.metric );
      case RTA_TABLE: return wordIs( attr, message.table );
      case RTA_NH_ID: return wordIs( attr, message.nextHopId );
      case RTA_MULTIPATH: return multipathIs( attr, message );
      case RTA_GATEWAY: single = true; [[fallthrough]];
      default: return hopAttr( attr, type, hop, message.strange );
      }
   } );
   if ( !read ) return "a route message whose attributes do not fit";
   if ( single && message.hops.empty() ) message.hops.push_back( hop );
   return prefixIs( body, addr, message.prefix );
}

const char * readNextHop( const nlmsghdr & header, NextHopMessage & message ) {
   if ( header.nlmsg_len < MNL_NLMSG_HDRLEN + sizeof( nhmsg ) ) return "a next-hop message without its fixed part";
   nhmsg body{};
   std::memcpy( &body, mnl_nlmsg_get_payload( &header ), sizeof( body ) );
   message.group.clear();
   message.del = header.nlmsg_type == RTM_DELNEXTHOP;
   message.id = 0;
   message.protocol = body.nh_protocol;
   message.blackhole = false;
   message.hop = {};
   message.strange = nullptr;
   hopFlags( body.nh_flags, message.hop );
   const bool read = attrsBehind( header, sizeof( body ), [ & ]( const nlattr & attr ) {
      const void * const bytes = mnl_attr_get_payload( &attr );
      switch ( mnl_attr_get_type( &attr ) ) {
      case NHA_ID: return wordIs( attr, message.id );
      case NHA_OIF: return wordIs( attr, message.hop.index );
      case NHA_GATEWAY: return addressIs( bytes, sizeOf( attr ), message.hop.gateway );
      case NHA_BLACKHOLE: message.blackhole = true; return true;
      case NHA_ENCAP:
      case NHA_ENCAP_TYPE: message.strange = "an encapsulation"; return true;
      case NHA_FDB: message.strange = "a next hop of a bridge"; return true;
      case NHA_GROUP:
         if ( sizeOf( attr ) == 0 || sizeOf( attr ) % sizeof( nexthop_grp ) != 0 ) return false;
         for ( size_t at = 0; at < sizeOf( attr ); at += sizeof( nexthop_grp ) ) {
            nexthop_grp member{};
            std::memcpy( &member, static_cast< const char * >( bytes ) + at, sizeof( member ) );
            message.group.emplace_back( member.id, static_cast< U16 >( member.weight + 1 ) );
         }
         return true;
      default: return true;
      }
   } );
   if ( !read ) return "a next-hop message whose attributes do not fit";
   return message.id == 0 ? "a next hop without an id" : nullptr;
}

} // namespace Host
