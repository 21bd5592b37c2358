#include "HostRouteForms.h"

#include "HostNetlink.h"

#include <arpa/inet.h>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

namespace Host {

namespace {

rtmsg & bodyOf( nlmsghdr & request ) { return *static_cast< rtmsg * >( mnl_nlmsg_get_payload( &request ) ); }

} // namespace

U32 RouteForms::acquire( const nlmsghdr & request ) {
   Form made;
   eachAttr( request, sizeof( rtmsg ), [ & ]( const nlattr & attr ) {
      const auto type = mnl_attr_get_type( &attr );
      if ( type == RTA_PRIORITY ) made.metric = mnl_attr_get_u32( &attr );
      if ( type == RTA_DST )
         made.addressAt = static_cast< U32 >( static_cast< const char * >( mnl_attr_get_payload( &attr ) ) -
                                              reinterpret_cast< const char * >( &request ) );
   } );
   room_.assign( reinterpret_cast< const char * >( &request ), request.nlmsg_len );
   auto & form = *reinterpret_cast< nlmsghdr * >( room_.data() );
   form.nlmsg_seq = 0;
   bodyOf( form ).rtm_dst_len = 0;
   if ( made.addressAt != 0 ) std::memset( room_.data() + made.addressAt, 0, sizeof( U32 ) );
   const auto [ at, added ] = numbers_.try_emplace( room_, 0 );
   if ( added ) {
      made.bytes = &at->first;
      const auto place = forms_.take();
      forms_[ place ] = made;
      at->second = place + 1;
   }
   ++forms_[ at->second - 1 ].users;
   return at->second;
}

void RouteForms::release( U32 form ) {
   auto & released = forms_[ form - 1 ];
   if ( --released.users != 0 ) return;
   numbers_.erase( numbers_.find( *released.bytes ) );
   forms_.give( form - 1 );
}

nlmsghdr & RouteForms::request( U32 form, U32 address, U8 len ) {
   const auto & of = forms_[ form - 1 ];
   room_ = *of.bytes;
   auto & request = *reinterpret_cast< nlmsghdr * >( room_.data() );
   bodyOf( request ).rtm_dst_len = len;
   address = htonl( address );
   if ( of.addressAt != 0 ) std::memcpy( room_.data() + of.addressAt, &address, sizeof( address ) );
   return request;
}

void RouteForms::clear() {
   forms_ = {};
   numbers_.clear();
}

} // namespace Host
