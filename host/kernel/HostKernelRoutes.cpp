#include "HostKernelRoutes.h"

#include "HostFacts.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace Host {

namespace {

// The kernel waits for a grace period with each next-hop object that it changes or takes away.
constexpr size_t messagesPerSlice = 128, objectsPerSlice = 8;
constexpr U32 slotsPerSlice = 16384;
constexpr double firstRetry = 1, mostRetry = 60; // seconds
constexpr U32 loopbackIndex = 1;

const void * bytesOf( const Kynet::Prefix & prefix, U32 & room ) {
   room = htonl( prefix.address().value() );
   return &room;
}
const void * bytesOf( const Kynet::Ip6Prefix & prefix, U32 & ) { return prefix.address().bytes().data(); }

// Type, scope, table and flags differ.
template < typename P >
void addRoute( NetlinkBatch & batch, U16 type, U16 flags, const P & prefix, rtmsg body ) {
   constexpr bool v6 = std::is_same_v< P, Kynet::Ip6Prefix >;
   body.rtm_family = v6 ? AF_INET6 : AF_INET;
   body.rtm_dst_len = prefix.len();
   body.rtm_protocol = kernelRouteProtocol;
   batch.message( type, flags, body );
   U32 room = 0;
   const auto * const bytes = bytesOf( prefix, room );
   batch.attrBytes( RTA_DST, bytes, v6 ? 16 : 4 );
   batch.attr( RTA_PRIORITY, U32( kernelRouteProtocol ) );
}

rtmsg bodyOf( U8 table, U8 type, U8 scope ) {
   rtmsg body{};
   body.rtm_table = table;
   body.rtm_type = type;
   body.rtm_scope = scope;
   return body;
}

} // namespace

template < typename P >
struct KernelRoutes::GantFib : Mirel::RouteTable< P >::Notifiee {
   GantFib( KernelRoutes * owner, Family< P > & family ) :
        Mirel::RouteTable< P >::Notifiee( owner, family.fib ), owner( owner ), family( family ) {}
   void onRoute( const Mirel::RouteRef< P > & ref ) override { owner->handleRoute( family, ref ); }
   void onFec( const U64 & fecId ) override {
      owner->handleFec( KernelNextHops::keyOf( std::is_same_v< P, Kynet::Ip6Prefix >, fecId ) );
   }
   KernelRoutes * owner;
   Family< P > & family;
};

struct KernelRoutes::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( KernelRoutes * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   KernelRoutes * owner;
};

KernelRoutes::KernelRoutes( KernelNamespace & space, Args args, KernelTell tell ) :
     space_( space ), args_( std::move( args ) ), tell_( std::move( tell ) ),
     nextHops_( args_.carrying ), family4_{ args_.fib }, family6_{ args_.fib6 }, leftoversHeld_( args_.leftoversHeld ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ),
     fibReactor_( std::make_unique< GantFib< Kynet::Prefix > >( this, family4_ ) ),
     fib6Reactor_( std::make_unique< GantFib< Kynet::Ip6Prefix > >( this, family6_ ) ) {
   if ( space_.stands() ) handleStands();
}

KernelRoutes::~KernelRoutes() { *alive_ = false; }

// -- What has changed

void KernelRoutes::handleStands() {
   if ( state_ == State::absent ) {
      clean();
      return;
   }
   if ( state_ != State::writing ) return;
   // Notifications were lost: any group may have been taken away.
   const auto keys = nextHops_.keys();
   for ( const auto key : keys ) nextHops_.refused( key );
   handleGroupsGone( keys );
   schedule();
}

void KernelRoutes::handleLost() {
   state_ = State::absent;
   busy_ = false;
   nextHops_.clear();
   dirtyGroups_.clear();
   lostGroups_.clear();
   brokenGroups_.clear();
   family4_ = { family4_.fib };
   family6_ = { family6_.fib };
}

void KernelRoutes::handleNextHopGone( U32 id ) {
   if ( state_ != State::writing || !nextHops_.knows( id ) ) return;
   regroup_ = true;
   if ( const auto key = nextHops_.gone( id ) ) handleGroupsGone( { *key } );
   schedule();
}

// The FECs of its routes are known, the routes are not.
void KernelRoutes::handleGroupsGone( const std::vector< U64 > & keys ) {
   if ( keys.empty() ) return;
   lostGroups_.insert( keys.begin(), keys.end() );
   family4_.suspect.addAll( family4_.written );
   family6_.suspect.addAll( family6_.written );
}

void KernelRoutes::handleCarrying( U32 lost ) {
   if ( lost != 0 ) handleGroupsGone( nextHops_.linkLost( lost ) );
   regroup_ = true;
   schedule();
}

void KernelRoutes::handleDevices() {
   family4_.walked = family6_.walked = 0;
   handleCarrying( 0 );
}

void KernelRoutes::handleFec( U64 key ) {
   if ( !nextHops_.has( key ) ) return;
   dirtyGroups_.push_back( key );
   // Before its number is another FEC's.
   if ( viasOf( key ) == nullptr ) {
      nextHops_.del( key );
      brokenGroups_.erase( key );
   }
   schedule();
}

template < typename P >
void KernelRoutes::handleRoute( Family< P > & family, const Mirel::RouteRef< P > & ref ) {
   if ( ref.vrfId != args_.vrfId || state_ != State::writing ) return;
   if ( family.fib->slotHas( ref.slot ) ) {
      if ( !isOfInterest( family, ref.slot ) ) return;
      family.dirty.add( ref.slot );
   } else {
      if ( family.written.has( ref.slot ) ) family.removed.push_back( ref.prefix );
      family.dirty.remove( ref.slot );
      family.written.remove( ref.slot );
      family.suspect.remove( ref.slot );
   }
   schedule();
}

// -- What was there before

void KernelRoutes::leftoversHeldIs( bool held ) {
   leftoversHeld_ = held;
   schedule();
}

void KernelRoutes::clean() {
   state_ = State::cleaning;
   settled_ = false;
   leftovers_ = {};
   leftoverNextHops_ = {};
   readLeftovers( AF_INET );
}

void KernelRoutes::readLeftovers( U8 family ) {
   NetlinkBatch batch;
   rtmsg body{};
   body.rtm_family = family;
   body.rtm_protocol = kernelRouteProtocol;
   batch.message( RTM_GETROUTE, 0, body );
   const auto each = [ this ]( const nlmsghdr & header ) {
      const auto & route = *static_cast< const rtmsg * >( mnl_nlmsg_get_payload( &header ) );
      if ( header.nlmsg_type != RTM_NEWROUTE || route.rtm_protocol != kernelRouteProtocol ) return;
      Leftover leftover{ route.rtm_family, route.rtm_dst_len, route.rtm_table, 0, {} };
      eachAttr( header, sizeof( rtmsg ), [ & ]( const nlattr & attr ) {
         const auto type = mnl_attr_get_type( &attr );
         if ( type == RTA_TABLE ) leftover.table = mnl_attr_get_u32( &attr );
         if ( type == RTA_PRIORITY ) leftover.metric = mnl_attr_get_u32( &attr );
         if ( type == RTA_DST )
            std::memcpy( leftover.address.data(), mnl_attr_get_payload( &attr ),
                         std::min< size_t >( mnl_attr_get_payload_len( &attr ), leftover.address.size() ) );
      } );
      leftovers_.push_back( leftover );
   };
   space_.requests().dump( std::move( batch ), each, [ this, alive = alive_, family ]( const NetlinkRefusals & ) {
      if ( !*alive ) return;
      if ( family == AF_INET )
         readLeftovers( AF_INET6 );
      else
         readLeftoverNextHops();
   } );
}

void KernelRoutes::readLeftoverNextHops() {
   NetlinkBatch batch;
   batch.message( RTM_GETNEXTHOP, 0, nhmsg{} );
   const auto each = [ this ]( const nlmsghdr & header ) {
      const auto & hop = *static_cast< const nhmsg * >( mnl_nlmsg_get_payload( &header ) );
      if ( header.nlmsg_type != RTM_NEWNEXTHOP || hop.nh_protocol != kernelRouteProtocol ) return;
      eachAttr( header, sizeof( nhmsg ), [ this ]( const nlattr & attr ) {
         if ( mnl_attr_get_type( &attr ) == NHA_ID ) leftoverNextHops_.push_back( mnl_attr_get_u32( &attr ) );
      } );
   };
   space_.requests().dump( std::move( batch ), each, [ this, alive = alive_ ]( const NetlinkRefusals & ) {
      if ( *alive ) begin();
   } );
}

template < typename P >
bool KernelRoutes::isWritten( const Family< P > & family, const P & prefix, const Leftover & leftover ) const {
   const auto slot = family.fib->slot( args_.vrfId, prefix );
   if ( !slot || !family.written.has( *slot ) || leftover.metric != kernelRouteProtocol ) return false;
   const bool local = isLocal( family, family.fib->routeAt( *slot ) );
   return leftover.table == U32( local ? RT_TABLE_LOCAL : RT_TABLE_MAIN );
}

bool KernelRoutes::isWritten( const Leftover & leftover ) const {
   if ( leftover.family == AF_INET6 )
      return isWritten( family6_, Kynet::Ip6Prefix( Kynet::Ip6Addr( leftover.address ), leftover.len ), leftover );
   U32 address = 0;
   std::memcpy( &address, leftover.address.data(), sizeof( address ) );
   return isWritten( family4_, Kynet::Prefix( Kynet::IpAddr( ntohl( address ) ), leftover.len ), leftover );
}

// Routes first: the kernel looks through its whole table for those of a next hop that goes.
void KernelRoutes::fillLeftovers( KernelWrites & writes ) {
   auto & batch = writes.batch;
   for ( U32 looked = 0; looked < slotsPerSlice && batch.messages() < messagesPerSlice && !leftovers_.empty();
         ++looked ) {
      const auto & route = leftovers_.back();
      if ( isWritten( route ) ) {
         leftovers_.pop_back();
         continue;
      }
      rtmsg body = bodyOf( RT_TABLE_UNSPEC, RTN_UNSPEC, RT_SCOPE_NOWHERE );
      body.rtm_family = route.family;
      body.rtm_dst_len = route.len;
      body.rtm_protocol = kernelRouteProtocol;
      batch.message( RTM_DELROUTE, 0, body );
      batch.attr( RTA_TABLE, route.table );
      batch.attrBytes( RTA_DST, route.address.data(), route.family == AF_INET ? 4 : 16 );
      if ( route.metric != 0 ) batch.attr( RTA_PRIORITY, route.metric );
      writes.add( KernelWrite::removal, 0 );
      leftovers_.pop_back();
   }
   while ( batch.messages() < objectsPerSlice && leftovers_.empty() && !leftoverNextHops_.empty() ) {
      batch.message( RTM_DELNEXTHOP, 0, nhmsg{} );
      batch.attr( NHA_ID, leftoverNextHops_.back() );
      writes.add( KernelWrite::removal, 0 );
      leftoverNextHops_.pop_back();
   }
   if ( leftovers_.empty() ) leftovers_.shrink_to_fit();
}

void KernelRoutes::begin() {
   for ( const auto id : leftoverNextHops_ ) nextHops_.isTaken( id );
   state_ = State::writing;
   family4_ = { family4_.fib };
   family6_ = { family6_.fib };
   // Local addresses lie on it. In the process's own namespace it is the machine's business.
   if ( !space_.netns().empty() ) {
      NetlinkBatch batch;
      ifinfomsg body{};
      body.ifi_index = loopbackIndex;
      body.ifi_flags = body.ifi_change = IFF_UP;
      batch.message( RTM_NEWLINK, 0, body );
      space_.requests().send( std::move( batch ), []( const NetlinkRefusals & ) {} );
   }
   schedule();
}

// -- Slices

void KernelRoutes::schedule() {
   if ( state_ != State::writing || busy_ || std::exchange( posted_, true ) ) return;
   settled_ = false;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( !*alive ) return;
      posted_ = false;
      if ( !busy_ && state_ == State::writing && space_.stands() ) slice();
   } );
}

void KernelRoutes::slice() {
   KernelWrites writes;
   fillGroups( writes );
   bool more = !dirtyGroups_.empty();
   more |= fillRoutes( writes, family4_ );
   more |= fillRoutes( writes, family6_ );
   // Only then no route in the kernel uses what has gone.
   if ( !more && writes.batch.empty() ) {
      lostGroups_.clear();
      nextHops_.sweep( writes, objectsPerSlice );
      if ( writes.batch.empty() && !leftoversHeld_ ) {
         fillLeftovers( writes );
         more = !leftovers_.empty();
      }
   }
   if ( writes.batch.empty() ) {
      settled_ = !more;
      if ( more ) schedule();
      if ( settled_ && brokenGroups_.empty() && family4_.refused.empty() && family6_.refused.empty() ) {
         backOff_ = 0;
         told_.clear();
      }
      return;
   }
   busy_ = true;
   space_.requests().send( std::move( writes.batch ), [ this, alive = alive_, about = std::move( writes.about ) ](
                                                           const NetlinkRefusals & refusals ) {
      if ( !*alive ) return;
      busy_ = false;
      if ( state_ != State::writing ) return;
      handleAnswer( about, refusals );
      schedule();
   } );
}

void KernelRoutes::fillGroups( KernelWrites & writes ) {
   if ( std::exchange( regroup_, false ) ) dirtyGroups_ = nextHops_.keys();
   while ( !dirtyGroups_.empty() && writes.batch.messages() < objectsPerSlice ) {
      const auto key = dirtyGroups_.back();
      dirtyGroups_.pop_back();
      if ( brokenGroups_.contains( key ) ) continue;
      if ( const auto * const vias = viasOf( key ) ) nextHops_.update( writes, key, *vias );
   }
}

const Mirel::Vias * KernelRoutes::viasOf( U64 key ) const {
   return ( key & 1 ) != 0 ? family6_.fib->fec( key >> 1 ) : family4_.fib->fec( key >> 1 );
}

// Whether there is more to do.
template < typename P >
bool KernelRoutes::fillRoutes( KernelWrites & writes, Family< P > & family ) {
   constexpr bool v6 = std::is_same_v< P, Kynet::Ip6Prefix >;
   walk( family );
   while ( !family.removed.empty() && writes.batch.messages() < messagesPerSlice ) {
      const auto prefix = family.removed.front();
      family.removed.pop_front();
      // There again: it is written over, or its slot says what to do.
      const auto slot = family.fib->slot( args_.vrfId, prefix );
      if ( !slot || !isOfInterest( family, *slot ) ) addRemoval( writes, prefix );
   }
   U32 looked = 0;
   for ( U32 slot = family.suspect.next( 0 ); slot < family.suspect.end() && looked < slotsPerSlice;
         slot = family.suspect.next( slot ), ++looked ) {
      family.suspect.remove( slot );
      if ( family.written.has( slot ) &&
           lostGroups_.contains( KernelNextHops::keyOf( v6, family.fib->routeAt( slot ).fecId() ) ) )
         family.dirty.add( slot );
   }
   if ( family.dirty.next( family.cursor ) >= family.dirty.end() ) family.cursor = 0;
   U32 slot = family.dirty.next( family.cursor );
   for ( ; slot < family.dirty.end() && writes.batch.messages() < messagesPerSlice; slot = family.dirty.next( slot ) ) {
      family.dirty.remove( slot );
      family.cursor = slot;
      bringInLine( writes, family, slot );
   }
   return family.walked < family.fib->slots() || !family.removed.empty() || looked == slotsPerSlice ||
          family.dirty.next( 0 ) < family.dirty.end();
}

template < typename P >
void KernelRoutes::walk( Family< P > & family ) {
   const auto end = std::min( family.fib->slots(), family.walked + slotsPerSlice );
   for ( ; family.walked < end; ++family.walked )
      if ( family.fib->slotHas( family.walked ) && family.fib->refAt( family.walked ).vrfId == args_.vrfId &&
           isOfInterest( family, family.walked ) )
         family.dirty.add( family.walked );
}

// Whether the kernel has the route in the slot, or may have to: of the routes that come by the million it does not.
template < typename P >
bool KernelRoutes::isOfInterest( const Family< P > & family, U32 slot ) const {
   const auto route = family.fib->routeAt( slot );
   return family.written.has( slot ) || route.routeType() == Mirel::RouteType::receive_ || isWanted( route );
}

template < typename P >
bool KernelRoutes::isLocal( const Family< P > & family, const Mirel::Route & route ) const {
   if ( route.routeType() != Mirel::RouteType::receive_ ) return false;
   const auto * const vias = family.fib->fec( route.fecId() );
   return vias != nullptr && !vias->empty() && !args_.deviceHas( vias->front().intfId() );
}

bool KernelRoutes::isWanted( const Mirel::Route & route ) const {
   const auto teller = Teller( route.protocol() );
   // What the kernel told it has; what FPM told, the routing suite writes there itself.
   const bool told = teller == Teller::command_ || teller == Teller::description_ || teller == Teller::routeFile_;
   return args_.wanted && told &&
          ( route.routeType() == Mirel::RouteType::forward_ || route.routeType() == Mirel::RouteType::drop_ );
}

template < typename P >
void KernelRoutes::bringInLine( KernelWrites & writes, Family< P > & family, U32 slot ) {
   constexpr bool v6 = std::is_same_v< P, Kynet::Ip6Prefix >;
   constexpr auto kind = v6 ? KernelWrite::route6 : KernelWrite::route4;
   const auto route = family.fib->routeAt( slot );
   const auto prefix = family.fib->refAt( slot ).prefix;
   const auto key = KernelNextHops::keyOf( v6, route.fecId() );
   const auto * const vias = family.fib->fec( route.fecId() );
   // An address of the router's that has become a prefix of somebody's, or the other way round: of two tables.
   const auto leave = [ & ]( U8 table ) {
      if ( prefix.len() == Mirel::PrefixBits< P >::bits && family.written.has( slot ) )
         addRemoval( writes, prefix, table );
   };
   if ( isLocal( family, route ) ) {
      leave( RT_TABLE_MAIN );
      addRoute( writes.batch, RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE, prefix,
                bodyOf( RT_TABLE_LOCAL, RTN_LOCAL, RT_SCOPE_HOST ) );
      writes.batch.attr( RTA_OIF, loopbackIndex );
   } else if ( isWanted( route ) && vias != nullptr ) {
      if ( brokenGroups_.contains( key ) ) {
         family.refused.push_back( slot );
         return;
      }
      leave( RT_TABLE_LOCAL );
      const auto id = nextHops_.group( writes, key, *vias );
      addRoute( writes.batch, RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE, prefix,
                bodyOf( RT_TABLE_MAIN, RTN_UNICAST, RT_SCOPE_UNIVERSE ) );
      writes.batch.attr( RTA_NH_ID, id );
   } else {
      if ( family.written.has( slot ) ) addRemoval( writes, prefix );
      family.written.remove( slot );
      return;
   }
   family.written.add( slot );
   writes.add( kind, slot );
}

template < typename P >
void KernelRoutes::addRemoval( KernelWrites & writes, const P & prefix ) {
   addRemoval( writes, prefix, RT_TABLE_MAIN );
   // It may have been an address of the router.
   if ( prefix.len() == Mirel::PrefixBits< P >::bits ) addRemoval( writes, prefix, RT_TABLE_LOCAL );
}

template < typename P >
void KernelRoutes::addRemoval( KernelWrites & writes, const P & prefix, U8 table ) {
   addRoute( writes.batch, RTM_DELROUTE, 0, prefix, bodyOf( table, RTN_UNSPEC, RT_SCOPE_NOWHERE ) );
   writes.add( KernelWrite::removal, 0 );
}

// -- What the kernel refuses

void KernelRoutes::handleAnswer( const std::vector< KernelWrite > & about, const NetlinkRefusals & refusals ) {
   std::string first;
   for ( const auto & refusal : refusals ) {
      const auto & write = about[ refusal.message ];
      std::string object;
      switch ( write.kind ) {
      case KernelWrite::removal: continue; // it is gone
      case KernelWrite::hop:
         object = "next hop " + nextHops_.textOfHop( U32( write.object ) );
         nextHops_.gone( U32( write.object ) );
         break;
      case KernelWrite::group:
         object = "a group of next hops";
         nextHops_.refused( write.object );
         brokenGroups_.insert( write.object );
         break;
      case KernelWrite::route4: object = refusedRoute( family4_, U32( write.object ) ); break;
      case KernelWrite::route6: object = refusedRoute( family6_, U32( write.object ) ); break;
      }
      if ( first.empty() ) first = space_.text() + ": the kernel refuses " + object + ": " + refusal.reason;
   }
   if ( first.empty() ) return;
   if ( std::exchange( told_, first ) != first ) tell_( first );
   retryLater();
}

template < typename P >
std::string KernelRoutes::refusedRoute( Family< P > & family, U32 slot ) {
   family.refused.push_back( slot );
   return family.fib->slotHas( slot ) ? family.fib->refAt( slot ).prefix.stringValue() : "a route";
}

void KernelRoutes::retryLater() {
   if ( clock_->timeMin() != Gant::Clock::never ) return;
   backOff_ = backOff_ == 0 ? firstRetry : std::min( 2 * backOff_, mostRetry );
   clock_->timeMinIs( clock_->now() + backOff_ );
}

void KernelRoutes::handleClock() {
   for ( const auto slot : std::exchange( family4_.refused, {} ) )
      if ( family4_.fib->slotHas( slot ) && family4_.fib->refAt( slot ).vrfId == args_.vrfId )
         family4_.dirty.add( slot );
   for ( const auto slot : std::exchange( family6_.refused, {} ) )
      if ( family6_.fib->slotHas( slot ) && family6_.fib->refAt( slot ).vrfId == args_.vrfId )
         family6_.dirty.add( slot );
   dirtyGroups_.insert( dirtyGroups_.end(), brokenGroups_.begin(), brokenGroups_.end() );
   handleGroupsGone( { brokenGroups_.begin(), brokenGroups_.end() } );
   brokenGroups_.clear();
   schedule();
}

} // namespace Host
