// A route or a next hop as rtnetlink words it: the first byte says which, the rest is what stands behind the header.
#include "FuzzInput.h"
#include "HostRouteMessage.h"

#include <cstring>
#include <linux/rtnetlink.h>
#include <memory>

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   if ( size == 0 ) return 0;
   const bool nextHop = ( data[ 0 ] & 1 ) != 0, del = ( data[ 0 ] & 2 ) != 0;
   nlmsghdr header{};
   header.nlmsg_len = static_cast< __u32 >( sizeof( header ) + size - 1 );
   header.nlmsg_type = nextHop ? ( del ? RTM_DELNEXTHOP : RTM_NEWNEXTHOP ) : ( del ? RTM_DELROUTE : RTM_NEWROUTE );
   // Of exactly its size, so that a read behind it is seen.
   const std::unique_ptr< char[] > message( new char[ header.nlmsg_len ] );
   std::memcpy( message.get(), &header, sizeof( header ) );
   std::memcpy( message.get() + sizeof( header ), data + 1, size - 1 );
   const auto & read = *reinterpret_cast< const nlmsghdr * >( message.get() );
   if ( nextHop ) {
      Host::NextHopMessage said;
      Host::readNextHop( read, said );
   } else {
      Host::RouteMessage said;
      Host::readRoute( read, said );
   }
   return 0;
}
