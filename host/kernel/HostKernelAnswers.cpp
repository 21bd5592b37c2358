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

U32 KernelAnswers::hashOf( U32 address, U8 len ) {
   return static_cast< U32 >( ( Gant::Hash( address ) << len ).value() );
}

U32 KernelAnswers::find( const Key & key ) const {
   return index_.find( hashOf( key.address, key.len ), [ & ]( U32 place ) {
      const auto & route = routes_[ place ];
      return route.address == key.address && route.len == key.len && forms_.metric( route.form ) == key.metric;
   } );
}

void KernelAnswers::drop( U32 place ) {
   if ( place == Mirel::HashIndex::none ) return;
   const auto & route = routes_[ place ];
   index_.remove( hashOf( route.address, route.len ), place );
   forms_.release( route.form );
   waiting_.remove( place );
   answered_.remove( place );
   routes_.give( place );
}

void KernelAnswers::dropAll( bool waiting ) {
   if ( waiting_.size() == ( waiting ? routes_.taken() : 0 ) ) {
      index_ = {};
      routes_ = {};
      forms_.clear();
      waiting_ = answered_ = {};
      return;
   }
   for ( U32 place = 0; place < routes_.size(); ++place )
      if ( routes_[ place ].form != 0 && waiting_.has( place ) == waiting ) drop( place );
}

void KernelAnswers::told( const nlmsghdr & header, const RouteMessage & message, How how, bool suite ) {
   if ( message.prefix.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto key = keyOf( message );
   const bool object = message.nextHopId != 0;
   const auto at = underWay_.empty() ? underWay_.end() : underWay_.find( key );
   const auto place = find( key );
   // The kernel says what hops the object has where its routes are notified of with them.
   const bool keepsNothing = object && message.hops.size() == 1;
   if ( at == underWay_.end() && keepsNothing ) return drop( place );
   copyRequest( header, object, room_ );
   const auto & request = *reinterpret_cast< const nlmsghdr * >( room_.data() );
   if ( at != underWay_.end() ) at->second.assign( room_.data(), room_.data() + request.nlmsg_len );
   if ( keepsNothing ) return drop( place );
   const auto form = forms_.acquire( request );
   if ( suite && isReaction( place, form, how ) ) return forms_.release( form );
   Route route{ key.address, form, key.len };
   route.suite = suite;
   route.programmed = ( message.flags & programmedFlags ) != 0;
   route.refused = ( message.flags & RTM_F_OFFLOAD_FAILED ) != 0;
   wait( key, place, route );
   pause_ = 0;
   schedule( leastLook );
}

// In the place of what was told before.
void KernelAnswers::wait( const Key & key, U32 place, const Route & route ) {
   if ( place == Mirel::HashIndex::none ) {
      place = routes_.take();
      index_.add( hashOf( key.address, key.len ), place );
   } else {
      forms_.release( routes_[ place ].form );
      answered_.remove( place );
   }
   routes_[ place ] = route;
   waiting_.add( place );
}

void KernelAnswers::gone( const RouteMessage & message ) {
   if ( message.prefix.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto key = keyOf( message );
   drop( find( key ) );
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

void KernelAnswers::clear() { dropAll( true ); }

void KernelAnswers::forget() { dropAll( false ); }

bool KernelAnswers::isReaction( U32 place, U32 form, How how ) {
   if ( place == Mirel::HashIndex::none || routes_[ place ].form != form ) return false;
   auto & route = routes_[ place ];
   if ( route.stage == Stage::settled ) return how == How::read;
   if ( route.stage != Stage::answered ) return false;
   if ( how == How::notified ) {
      route.stage = Stage::settled;
      answered_.remove( place );
   }
   return true;
}

// Who did not react by the end of the next round does not.
void KernelAnswers::expire() {
   if ( clock_->now() >= expireAt_ ) {
      expireAt_ = clock_->now() + reactsWithin;
      ++round_;
      expiring_ = answered_.size();
   }
   for ( auto most = looksPerTurn; most != 0 && expiring_ != 0 && answered_.size() != 0; --most, --expiring_ ) {
      const auto place = answered_.next();
      if ( U8( round_ - routes_[ place ].round ) > 1 ) drop( place );
   }
   if ( answered_.size() == 0 ) expiring_ = 0;
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
      look( batch, waiting_.next() );
   if ( !batch.empty() ) {
      pause_ = 0;
      send( std::move( batch ) );
   } else if ( waiting_.size() != 0 ) {
      pause_ = std::clamp( 2 * pause_, leastLook, mostLook );
      schedule( pause_ );
   } else {
      scheduleExpiry();
   }
}

void KernelAnswers::look( NetlinkBatch & batch, U32 place ) {
   auto & route = routes_[ place ];
   const auto & request = forms_.request( route.form, route.address, route.len );
   readRoute( request, route_ );
   const auto outcome = around_.outcomeOf( route_ );
   if ( outcome.value_or( RouteOutcome::pending ) == RouteOutcome::pending ) return;
   const bool refused = outcome == RouteOutcome::refused;
   const bool known = refused ? route.refused : route.programmed;
   // The kernel keeps it only there.
   const bool keeps = !refused || route_.nextHopId != 0 || route_.hops.size() > 1;
   if ( known || !keeps ) return drop( place );
   routeBody( batch.append( request ) ).rtm_flags |= refused ? U32( RTM_F_OFFLOAD_FAILED ) : programmedFlags;
   underWay_.emplace( keyOf( route_ ), std::vector< char >() );
   ++answers_;
   if ( route.suite == 0 ) return drop( place );
   route.stage = Stage::answered;
   route.round = round_;
   waiting_.remove( place );
   answered_.add( place );
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
   if ( waiting_.size() != 0 || !overtaken_.empty() )
      schedule( 0 );
   else
      scheduleExpiry();
}

void KernelAnswers::scheduleExpiry() {
   if ( answered_.size() != 0 ) schedule( expiring_ != 0 ? leastLook : reactsWithin );
}

} // namespace Host
