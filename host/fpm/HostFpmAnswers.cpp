#include "HostFpmAnswers.h"

#include <arpa/inet.h>
#include <array>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

namespace Host {

namespace {

constexpr size_t looksAtOnce = 8192, hopsAtMost = 128;

void putAddress( nlmsghdr * header, U16 type, Kynet::IpAddr addr ) {
   mnl_attr_put_u32( header, type, htonl( addr.value() ) );
}
void putAddress( nlmsghdr * header, U16 type, const Kynet::Ip6Addr & addr ) {
   mnl_attr_put( header, type, addr.bytes().size(), addr.bytes().data() );
}
void putAddress( nlmsghdr * header, const Kynet::IpGenAddr & addr ) {
   if ( addr.af() == Kynet::AddressFamily::ipv4_ )
      putAddress( header, RTA_GATEWAY, addr.v4Addr() );
   else
      putAddress( header, RTA_GATEWAY, addr.v6Addr() );
}

} // namespace

struct FpmAnswers::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( FpmAnswers * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   FpmAnswers * owner;
};

FpmAnswers::FpmAnswers( const RouterState & state, Surroundings around ) :
     state_( state ), around_( std::move( around ) ), clock_( Gant::activityManager()->newClock() ),
     clockReactor_( std::make_unique< GantClock >( this ) ) {}

FpmAnswers::~FpmAnswers() = default;

void FpmAnswers::clear() {
   waiting4_ = waiting6_ = {};
   clock_->timeMinIs( Gant::Clock::never );
}

void FpmAnswers::handleClock() {
   frames_.clear();
   // Whoever takes nothing is asked again.
   if ( sender_ && sender_( {} ) ) {
      look( state_.routes4(), waiting4_ );
      look( state_.routes6(), waiting6_ );
      if ( !frames_.empty() ) sender_( frames_ );
   }
   // The turns between are for those that come.
   if ( waiting() != 0 ) clock_->timeMinIs( clock_->now() + ( frames_.empty() ? every : leastPause ) );
}

template < typename Book >
void FpmAnswers::look( const Book & book, SlotRound & waiting ) {
   for ( auto most = std::min( waiting.size(), looksAtOnce ); most != 0; --most ) {
      const auto slot = waiting.next();
      if ( lookAt( book, slot ) ) waiting.remove( slot );
   }
}

template < typename Book >
bool FpmAnswers::lookAt( const Book & book, U32 slot ) {
   if ( !book.table().slotHas( slot ) || book.originAt( slot ).teller != Teller::fpm_ ) return true;
   const auto outcome = around_.outcomeOf( Book::af, slot );
   if ( outcome == RouteOutcome::pending ) return false;
   answer( book, book.table().refAt( slot ), outcome == RouteOutcome::programmed );
   return true;
}

template < typename Book, typename Ref >
void FpmAnswers::answer( const Book & book, const Ref & told, bool programmed ) {
   const auto route = book.table().routeAt( told.slot );
   const auto table = tables_.find( told.vrfId )->second;
   const auto & hops = book.fecs().ways( route.fecId() ).hops;
   if ( hops.size() > hopsAtMost ) return;
   alignas( nlmsghdr ) std::array< char, 8192 > room;
   auto * const header = mnl_nlmsg_put_header( room.data() );
   header->nlmsg_type = RTM_NEWROUTE;
   header->nlmsg_flags = NLM_F_REQUEST;
   auto & body = *static_cast< rtmsg * >( mnl_nlmsg_put_extra_header( header, sizeof( rtmsg ) ) );
   body.rtm_family = std::is_same_v< Ref, Mirel::RouteTable< Kynet::Prefix >::Ref > ? AF_INET : AF_INET6;
   body.rtm_dst_len = told.prefix.len();
   body.rtm_protocol = book.originAt( told.slot ).protocol;
   body.rtm_table = static_cast< U8 >( table > 255 ? U32( RT_TABLE_UNSPEC ) : table );
   body.rtm_type = route.routeType() == Mirel::RouteType::drop_ ? RTN_BLACKHOLE : RTN_UNICAST;
   body.rtm_flags = programmed ? RTM_F_OFFLOAD : RTM_F_OFFLOAD_FAILED;
   putAddress( header, RTA_DST, told.prefix.address() );
   mnl_attr_put_u32( header, RTA_TABLE, table );
   mnl_attr_put_u32( header, RTA_PRIORITY, 20 );
   if ( hops.size() == 1 ) {
      if ( hops[ 0 ].addrHas() ) putAddress( header, hops[ 0 ].addr() );
      if ( const auto index = around_.indexOf( hops[ 0 ].intfId() ) ) mnl_attr_put_u32( header, RTA_OIF, *index );
   } else if ( hops.size() > 1 ) {
      auto * const nest = mnl_attr_nest_start( header, RTA_MULTIPATH );
      for ( const auto & hop : hops ) {
         auto & head = *static_cast< rtnexthop * >( mnl_nlmsg_put_extra_header( header, sizeof( rtnexthop ) ) );
         head.rtnh_ifindex = static_cast< int >( around_.indexOf( hop.intfId() ).value_or( 0 ) );
         head.rtnh_hops = static_cast< U8 >( hop.weight() - 1 );
         if ( hop.addrHas() ) putAddress( header, hop.addr() );
         head.rtnh_len = static_cast< U16 >( static_cast< char * >( mnl_nlmsg_get_payload_tail( header ) ) -
                                             reinterpret_cast< char * >( &head ) );
      }
      mnl_attr_nest_end( header, nest );
   }
   const auto length = header->nlmsg_len + 4;
   const char head[] = { 1, 1, static_cast< char >( length >> 8 ), static_cast< char >( length ) };
   frames_.append( head, sizeof( head ) ).append( room.data(), header->nlmsg_len );
   ++answered_;
}

} // namespace Host
