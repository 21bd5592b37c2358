#include "HostKernelNamespace.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <system_error>

namespace Host {

namespace {

constexpr double lookEvery = 2, firstAttempt = 0.1, mostAttempt = 5; // seconds
constexpr unsigned rereadsMost = 3;
constexpr U32 lowerUp = 1u << 16; // IFF_LOWER_UP of linux/if.h, which does not go with net/if.h

// An attribute of the message; null: it has none.
const nlattr * attrOf( const nlmsghdr & header, size_t fixed, U16 type ) {
   const nlattr * found = nullptr;
   eachAttr( header, fixed, [ & ]( const nlattr & attr ) {
      if ( mnl_attr_get_type( &attr ) == type ) found = &attr;
   } );
   return found;
}

U32 wordOf( const nlattr * attr ) {
   return attr == nullptr || mnl_attr_get_payload_len( attr ) < sizeof( U32 ) ? 0 : mnl_attr_get_u32( attr );
}

Kynet::EthAddr macOf( const nlattr * attr ) {
   Kynet::EthAddr::Bytes bytes{};
   if ( attr == nullptr || mnl_attr_get_payload_len( attr ) != bytes.size() ) return {};
   std::memcpy( bytes.data(), mnl_attr_get_payload( attr ), bytes.size() );
   return Kynet::EthAddr( bytes );
}

bool addressOf( const nlattr * attr, U8 family, Kynet::IpGenAddr & addr ) {
   if ( attr == nullptr ) return false;
   const auto size = mnl_attr_get_payload_len( attr );
   if ( family == AF_INET && size == 4 ) {
      addr = Kynet::IpAddr( ntohl( mnl_attr_get_u32( attr ) ) );
      return true;
   }
   Kynet::Ip6Addr::Bytes bytes{};
   if ( family != AF_INET6 || size != bytes.size() ) return false;
   std::memcpy( bytes.data(), mnl_attr_get_payload( attr ), bytes.size() );
   addr = Kynet::Ip6Addr( bytes );
   return true;
}

} // namespace

struct KernelNamespace::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( KernelNamespace * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   KernelNamespace * owner;
};

bool KernelNeighbor::valid() const {
   return ( state & ( NUD_PERMANENT | NUD_NOARP | NUD_REACHABLE | NUD_PROBE | NUD_STALE | NUD_DELAY ) ) != 0;
}

KernelNamespace::KernelNamespace( std::string netns, Watcher & watcher, KernelTell tell ) :
     netns_( std::move( netns ) ), watcher_( watcher ), tell_( std::move( tell ) ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {}

KernelNamespace::~KernelNamespace() = default;

std::string KernelNamespace::text() const { return netns_.empty() ? "its own namespace" : "namespace " + netns_; }

void KernelNamespace::start() {
   if ( state_ == State::absent ) open();
}

const KernelLink * KernelNamespace::linkNamed( const std::string & name ) const {
   const auto at = linksByName_.find( name );
   return at == linksByName_.end() ? nullptr : &links_.at( at->second );
}

const KernelNeighbor * KernelNamespace::neighbor( U32 index, const Kynet::IpGenAddr & addr ) const {
   const auto at = neighbors_.find( { index, addr } );
   return at == neighbors_.end() ? nullptr : &at->second;
}

void KernelNamespace::tellOnce( const std::string & error ) {
   if ( std::exchange( told_, error ) != error && !error.empty() ) tell_( error );
}

void KernelNamespace::handleClock() {
   if ( state_ != State::absent && idOfNamespace( netns_ ) == id_ ) {
      clock_->timeMinIs( clock_->now() + lookEvery );
      return;
   }
   close();
   open();
}

void KernelNamespace::open() {
   // Addresses are watched as IPv4's alone: the router tells none of IPv6.
   constexpr std::array< U32, 4 > groups = { RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_NEIGH, RTNLGRP_NEXTHOP };
   try {
      id_ = idOfNamespace( netns_ );
      const int watching = openNetlink( netns_, groups );
      notifications_ = std::make_unique< NetlinkReader >(
           watching, [ this ]( const nlmsghdr & header ) { handle( header ); },
           [ this ]( int error ) { handleOverflow( error ); } );
      requests_ = std::make_unique< NetlinkSocket >( openNetlink( netns_, {} ), [ this ] {
         if ( notifications_ ) notifications_->read( ~0u );
      } );
   } catch ( const std::system_error & error ) {
      notifications_ = nullptr;
      id_ = 0;
      backOff_ = backOff_ == 0 ? firstAttempt : std::min( 2 * backOff_, mostAttempt );
      clock_->timeMinIs( clock_->now() + backOff_ );
      tellOnce( text() + ": " + error.what() );
      return;
   }
   backOff_ = 0;
   tellOnce( {} );
   clock_->timeMinIs( clock_->now() + lookEvery );
   readTables();
}

void KernelNamespace::close() {
   if ( state_ == State::absent ) return;
   state_ = State::absent;
   notifications_ = nullptr;
   requests_ = nullptr;
   links_.clear();
   linksByName_.clear();
   addresses_.clear();
   neighbors_.clear();
   tellOnce( text() + " is gone" );
   watcher_.onLost();
}

// What is notified meanwhile is read afterwards: it is newer.
void KernelNamespace::readTables() {
   state_ = State::reading;
   notifications_->heldIs( true );
   metLinks_.clear();
   metAddresses_.clear();
   metNeighbors_.clear();
   readTable( linkTable );
}

void KernelNamespace::readTable( Table table ) {
   NetlinkBatch batch;
   switch ( table ) {
   case linkTable: batch.message( RTM_GETLINK, 0, ifinfomsg{} ); break;
   case addressTable: {
      ifaddrmsg body{};
      body.ifa_family = AF_INET;
      batch.message( RTM_GETADDR, 0, body );
      break;
   }
   case neighborTable: batch.message( RTM_GETNEIGH, 0, ndmsg{} ); break;
   }
   requests_->dump(
        std::move( batch ), [ this ]( const nlmsghdr & header ) { handle( header ); },
        [ this, table ]( const NetlinkRefusals & refusals ) { handleRead( table, refusals ); } );
}

void KernelNamespace::handleRead( Table table, const NetlinkRefusals & refusals ) {
   if ( !refusals.empty() && rereads_ < rereadsMost ) {
      ++rereads_;
      readTable( table );
      return;
   }
   if ( !refusals.empty() && refusals.front().error != EINTR ) tellOnce( text() + ": " + refusals.front().reason );
   rereads_ = 0;
   if ( table != neighborTable ) {
      readTable( Table( table + 1 ) );
      return;
   }
   sweep();
   state_ = State::standing;
   notifications_->heldIs( false );
   watcher_.onStands();
}

void KernelNamespace::sweep() {
   std::erase_if( links_, [ this ]( const auto & entry ) { return !metLinks_.contains( entry.first ); } );
   linksByName_.clear();
   for ( const auto & [ index, link ] : links_ ) linksByName_[ link.name ] = index;
   std::erase_if( addresses_, [ this ]( const auto & address ) { return !metAddresses_.contains( address ); } );
   std::erase_if( neighbors_, [ this ]( const auto & entry ) { return !metNeighbors_.contains( entry.first ); } );
}

void KernelNamespace::handleOverflow( int error ) {
   if ( error != ENOBUFS ) tellOnce( text() + ": " + std::strerror( error ) );
   if ( state_ != State::standing ) return;
   // What was notified by now is older than what is read next.
   state_ = State::reading;
   notifications_->drain();
   readTables();
}

void KernelNamespace::handle( const nlmsghdr & header ) {
   switch ( header.nlmsg_type ) {
   case RTM_NEWLINK:
   case RTM_DELLINK: handleLink( header ); break;
   case RTM_NEWADDR:
   case RTM_DELADDR: handleAddress( header ); break;
   case RTM_NEWNEIGH:
   case RTM_DELNEIGH: handleNeighbor( header ); break;
   case RTM_DELNEXTHOP: handleNextHop( header ); break;
   default: break;
   }
}

void KernelNamespace::handleLink( const nlmsghdr & header ) {
   const auto & body = *static_cast< const ifinfomsg * >( mnl_nlmsg_get_payload( &header ) );
   if ( body.ifi_family != AF_UNSPEC ) return; // of a bridge's port
   const auto index = static_cast< U32 >( body.ifi_index );
   auto & link = links_[ index ];
   if ( const auto at = linksByName_.find( link.name ); at != linksByName_.end() && at->second == index )
      linksByName_.erase( at );
   if ( header.nlmsg_type == RTM_DELLINK ) {
      links_.erase( index );
      std::erase_if( addresses_, [ index ]( const auto & address ) { return address.first == index; } );
   } else {
      const auto * const name = attrOf( header, sizeof( body ), IFLA_IFNAME );
      link.index = index;
      if ( name != nullptr ) link.name = mnl_attr_get_str( name );
      link.mac = macOf( attrOf( header, sizeof( body ), IFLA_ADDRESS ) );
      link.mtu = wordOf( attrOf( header, sizeof( body ), IFLA_MTU ) );
      link.up = ( body.ifi_flags & IFF_UP ) != 0;
      link.carrier = link.up && ( body.ifi_flags & lowerUp ) != 0;
      linksByName_[ link.name ] = index;
   }
   if ( state_ == State::reading ) metLinks_.insert( index );
   if ( state_ == State::standing ) watcher_.onLink( index );
}

void KernelNamespace::handleAddress( const nlmsghdr & header ) {
   const auto & body = *static_cast< const ifaddrmsg * >( mnl_nlmsg_get_payload( &header ) );
   Kynet::IpGenAddr addr;
   if ( body.ifa_family != AF_INET || !addressOf( attrOf( header, sizeof( body ), IFA_LOCAL ), AF_INET, addr ) ) return;
   const Address address( body.ifa_index, Kynet::Prefix( addr.v4Addr(), body.ifa_prefixlen ) );
   if ( header.nlmsg_type == RTM_DELADDR )
      addresses_.erase( address );
   else
      addresses_.insert( address );
   if ( state_ == State::reading ) metAddresses_.insert( address );
   if ( state_ == State::standing ) watcher_.onAddress( body.ifa_index );
}

void KernelNamespace::handleNeighbor( const nlmsghdr & header ) {
   const auto & body = *static_cast< const ndmsg * >( mnl_nlmsg_get_payload( &header ) );
   NeighborKey key( static_cast< U32 >( body.ndm_ifindex ), {} );
   if ( ( body.ndm_flags & NTF_PROXY ) != 0 ||
        !addressOf( attrOf( header, sizeof( body ), NDA_DST ), body.ndm_family, key.second ) )
      return;
   if ( header.nlmsg_type == RTM_DELNEIGH ) {
      neighbors_.erase( key );
   } else {
      auto & neighbor = neighbors_[ key ];
      neighbor.state = body.ndm_state;
      neighbor.mac = macOf( attrOf( header, sizeof( body ), NDA_LLADDR ) );
      neighbor.managed = ( wordOf( attrOf( header, sizeof( body ), NDA_FLAGS_EXT ) ) & NTF_EXT_MANAGED ) != 0;
   }
   if ( state_ == State::reading ) metNeighbors_.insert( key );
   if ( state_ == State::standing ) watcher_.onNeighbor( key.first, key.second );
}

void KernelNamespace::handleNextHop( const nlmsghdr & header ) {
   const auto id = wordOf( attrOf( header, sizeof( nhmsg ), NHA_ID ) );
   if ( state_ == State::standing ) watcher_.onNextHopGone( id );
}

} // namespace Host
