#include "HostKernelAnswers.h"

#include <algorithm>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

namespace Host {

namespace {

constexpr size_t answersPerBatch = 256, looksPerTurn = 4096;
constexpr double leastLook = 0.02, mostLook = 1, reactsWithin = 30; // seconds
constexpr U32 programmedFlags = RTM_F_OFFLOAD | RTNH_F_OFFLOAD;
constexpr U32 allFlags = programmedFlags | RTM_F_OFFLOAD_FAILED;

// What the kernel says of an object's hops together with the route.
bool followsFromObject( U16 type ) {
   return type == RTA_OIF || type == RTA_GATEWAY || type == RTA_MULTIPATH || type == RTA_VIA ||
          type == RTA_ENCAP_TYPE || type == RTA_ENCAP;
}

// Flags of next hops that only the kernel sets.
void cleanHops( char * bytes, size_t size ) {
   for ( size_t at = 0; at + sizeof( rtnexthop ) <= size; ) {
      rtnexthop head{};
      std::memcpy( &head, bytes + at, sizeof( head ) );
      head.rtnh_flags &= RTNH_F_ONLINK;
      std::memcpy( bytes + at, &head, sizeof( head ) );
      at += std::max< size_t >( MNL_ALIGN( head.rtnh_len ), sizeof( head ) );
   }
}

// As the route can be told to the kernel.
void copyRequest( const nlmsghdr & header, bool object, std::vector< char > & room ) {
   room.assign( header.nlmsg_len + MNL_NLMSG_HDRLEN, 0 );
   auto * const request = mnl_nlmsg_put_header( room.data() );
   request->nlmsg_type = RTM_NEWROUTE;
   request->nlmsg_flags = NLM_F_REQUEST | NLM_F_REPLACE;
   auto & body = *static_cast< rtmsg * >( mnl_nlmsg_put_extra_header( request, sizeof( rtmsg ) ) );
   std::memcpy( &body, mnl_nlmsg_get_payload( &header ), sizeof( body ) );
   body.rtm_flags &= RTNH_F_ONLINK;
   eachAttr( header, sizeof( rtmsg ), [ & ]( const nlattr & attr ) {
      const auto type = mnl_attr_get_type( &attr );
      if ( type == RTA_CACHEINFO || type == RTA_TABLE || ( object && followsFromObject( type ) ) ) return;
      auto * const to = static_cast< char * >( mnl_nlmsg_get_payload_tail( request ) );
      mnl_attr_put( request, type, mnl_attr_get_payload_len( &attr ), mnl_attr_get_payload( &attr ) );
      if ( type == RTA_MULTIPATH ) cleanHops( to + MNL_ATTR_HDRLEN, mnl_attr_get_payload_len( &attr ) );
   } );
}

// A routing suite's own, while the request waits: no flag of the kernel's.
constexpr U16 ofSuiteMark = 0x8000;

// Of what a route is, whether or not it is answered.
U32 contentOf( const nlmsghdr & request ) {
   const auto * const bytes = static_cast< const char * >( mnl_nlmsg_get_payload( &request ) );
   const auto fixed = offsetof( rtmsg, rtm_flags ), behind = sizeof( rtmsg );
   const auto size = mnl_nlmsg_get_payload_len( &request );
   return static_cast< U32 >( std::hash< std::string_view >()( { bytes, fixed } ) * 31 +
                              std::hash< std::string_view >()( { bytes + behind, size - behind } ) );
}

rtmsg & routeBody( nlmsghdr & header ) { return *static_cast< rtmsg * >( mnl_nlmsg_get_payload( &header ) ); }

} // namespace

struct KernelAnswers::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( KernelAnswers * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   KernelAnswers * owner;
};

KernelAnswers::KernelAnswers( const std::string & netns, Surroundings around ) :
     around_( std::move( around ) ), requests_( openNetlink( netns, {} ), around_.settle ), port_( requests_.port() ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {}

KernelAnswers::~KernelAnswers() { *alive_ = false; }

KernelAnswers::Key KernelAnswers::keyOf( const RouteMessage & message ) {
   const auto & prefix = message.prefix.v4Prefix();
   return { prefix.address().value(), message.metric, prefix.len() };
}

void KernelAnswers::told( const nlmsghdr & header, const RouteMessage & message, How how, bool suite ) {
   if ( message.prefix.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto key = keyOf( message );
   const bool object = message.nextHopId != 0;
   const auto at = underWay_.empty() ? underWay_.end() : underWay_.find( key );
   // The kernel says what hops the object has where its routes are notified of with them.
   const bool keepsNothing = object && message.hops.size() == 1;
   if ( at == underWay_.end() && keepsNothing ) return;
   copyRequest( header, object, room_ );
   auto & request = *reinterpret_cast< nlmsghdr * >( room_.data() );
   request.nlmsg_seq = ++lastNumber_;
   if ( at != underWay_.end() ) at->second.assign( room_.data(), room_.data() + request.nlmsg_len );
   if ( keepsNothing || ( suite && isReaction( key, contentOf( request ), how ) ) ) return;
   if ( suite ) request.nlmsg_flags |= ofSuiteMark;
   // What it is answered already.
   routeBody( request ).rtm_flags |= message.flags & allFlags;
   newest_[ key ] = lastNumber_;
   waiting_.push( request );
   pause_ = 0;
   schedule( leastLook );
}

void KernelAnswers::gone( const RouteMessage & message ) {
   if ( message.prefix.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto key = keyOf( message );
   if ( !newest_.empty() ) newest_.erase( key );
   if ( !settled_.empty() ) settled_.erase( key );
   for ( auto & answered : answeredLast_ )
      if ( !answered.empty() ) answered.erase( key );
   if ( const auto at = underWay_.find( key ); at != underWay_.end() ) at->second.clear();
}

bool KernelAnswers::isEcho( const nlmsghdr & header ) const { return header.nlmsg_pid == port_; }

void KernelAnswers::handleEcho( const RouteMessage & message ) {
   if ( message.prefix.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto at = underWay_.find( keyOf( message ) );
   if ( at == underWay_.end() ) return;
   // The kernel carried out his first.
   if ( !at->second.empty() ) overtaken_.push_back( std::move( at->second ) );
   underWay_.erase( at );
}

void KernelAnswers::clear() {
   waiting_.clear();
   newest_.clear();
}

void KernelAnswers::forget() {
   settled_ = {};
   answeredLast_ = {};
}

bool KernelAnswers::isReaction( const Key & key, U32 content, How how ) {
   for ( auto & answered : answeredLast_ )
      if ( const auto at = answered.find( key ); at != answered.end() && at->second == content ) {
         if ( how == How::notified ) {
            settled_[ key ] = content;
            answered.erase( at );
         }
         return true;
      }
   const auto at = settled_.find( key );
   if ( at == settled_.end() ) return false;
   if ( how == How::read && at->second == content ) return true;
   settled_.erase( at );
   return false;
}

void KernelAnswers::expire() {
   if ( clock_->now() < expireAt_ ) return;
   expireAt_ = clock_->now() + reactsWithin;
   answeredLast_[ 1 ] = std::exchange( answeredLast_[ 0 ], {} );
}

void KernelAnswers::schedule( double pause ) {
   const auto at = clock_->now() + pause;
   if ( !busy_ && ( clock_->timeMin() == Gant::Clock::never || at < clock_->timeMin() ) ) clock_->timeMinIs( at );
}

void KernelAnswers::handleClock() {
   if ( busy_ ) return;
   expire();
   if ( held_ ) return schedule( leastLook );
   NetlinkBatch batch;
   for ( const auto & request : std::exchange( overtaken_, {} ) )
      batch.append( *reinterpret_cast< const nlmsghdr * >( request.data() ) );
   for ( auto most = std::min( waiting_.size(), looksPerTurn ); most != 0 && batch.messages() < answersPerBatch;
         --most )
      look( batch );
   if ( !batch.empty() ) {
      pause_ = 0;
      send( std::move( batch ) );
   } else if ( waiting_.size() != 0 ) {
      pause_ = std::clamp( 2 * pause_, leastLook, mostLook );
      schedule( pause_ );
   } else if ( !answeredLast_[ 0 ].empty() || !answeredLast_[ 1 ].empty() ) {
      schedule( reactsWithin );
   }
}

void KernelAnswers::look( NetlinkBatch & batch ) {
   const auto & front = waiting_.front();
   readRoute( front, route_ );
   const auto key = keyOf( route_ );
   const auto at = newest_.find( key );
   const bool overtaken = at == newest_.end() || at->second != front.nlmsg_seq || underWay_.contains( key );
   const auto outcome = overtaken ? std::nullopt : around_.outcomeOf( route_ );
   if ( !overtaken && outcome.value_or( RouteOutcome::pending ) == RouteOutcome::pending ) {
      const std::vector< char > again( reinterpret_cast< const char * >( &front ),
                                       reinterpret_cast< const char * >( &front ) + front.nlmsg_len );
      waiting_.pop();
      waiting_.push( *reinterpret_cast< const nlmsghdr * >( again.data() ) );
      return;
   }
   if ( !overtaken ) {
      newest_.erase( at );
      const bool refused = outcome == RouteOutcome::refused;
      const bool known = ( route_.flags & ( refused ? RTM_F_OFFLOAD_FAILED : programmedFlags ) ) != 0;
      // The kernel keeps it only there.
      const bool keeps = !refused || route_.nextHopId != 0 || route_.hops.size() > 1;
      if ( !known && keeps ) {
         auto & request = batch.append( front );
         if ( ( request.nlmsg_flags & ofSuiteMark ) != 0 ) answeredLast_[ 0 ][ key ] = contentOf( request );
         request.nlmsg_flags &= ~ofSuiteMark;
         routeBody( request ).rtm_flags &= ~allFlags;
         routeBody( request ).rtm_flags |= refused ? U32( RTM_F_OFFLOAD_FAILED ) : programmedFlags;
         underWay_.emplace( key, std::vector< char >() );
         ++answered_;
      }
   }
   waiting_.pop();
}

void KernelAnswers::send( NetlinkBatch batch ) {
   busy_ = true;
   // What it refuses has changed meanwhile, or gone: its notification says so.
   requests_.send( std::move( batch ), [ this, alive = alive_ ]( const NetlinkRefusals & ) {
      if ( *alive ) handleAnswer();
   } );
}

void KernelAnswers::handleAnswer() {
   busy_ = false;
   underWay_.clear();
   const bool more = waiting_.size() != 0 || !overtaken_.empty();
   if ( more || !answeredLast_[ 0 ].empty() || !answeredLast_[ 1 ].empty() ) schedule( more ? 0 : reactsWithin );
}

} // namespace Host
