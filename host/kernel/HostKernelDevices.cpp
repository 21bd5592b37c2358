#include "HostKernelDevices.h"

#include <algorithm>
#include <arpa/inet.h>
#include <linux/ip.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace Host {

namespace {

constexpr double upkeepEvery = 2, firstPause = 0.2, mostPause = 30, quietFor = 0.3; // seconds
constexpr size_t asksPerBatch = 128;
constexpr U32 looseCheck = 2; // of source addresses: rp_filter, RFC 3704

void addAddress( NetlinkBatch & batch, U16 type, U16 flags, U32 index, Kynet::Prefix address ) {
   ifaddrmsg body{};
   body.ifa_family = AF_INET;
   body.ifa_prefixlen = address.len();
   body.ifa_index = index;
   batch.message( type, flags, body );
   const U32 value = htonl( address.address().value() );
   batch.attr( IFA_LOCAL, value );
   batch.attr( IFA_ADDRESS, value );
}

// RFC 1112, RFC 4291: whoever listens, not one neighbour.
bool isMulticast( const Kynet::IpGenAddr & addr ) {
   return addr.af() == Kynet::AddressFamily::ipv4_ ? addr.v4Addr().value() >> 28 == 0xe
                                                   : addr.v6Addr().bytes()[ 0 ] == 0xff;
}

} // namespace

struct KernelDevices::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( KernelDevices * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   KernelDevices * owner;
};

KernelDevices::KernelDevices( KernelNamespace & space, const NeighborWants & wants, Events events, KernelTell tell ) :
     space_( space ), wants_( wants ), events_( std::move( events ) ), tell_( std::move( tell ) ),
     clock_( Gant::activityManager()->newClock() ), clockReactor_( std::make_unique< GantClock >( this ) ) {
   clock_->timeMinIs( clock_->now() + upkeepEvery );
}

KernelDevices::~KernelDevices() { *alive_ = false; }

void KernelDevices::deviceIs( Kynet::IntfId intfId, const KernelDeviceFacts & facts ) {
   const auto at = devices_.find( intfId );
   if ( at != devices_.end() && at->second.facts.name != facts.name ) deviceDel( intfId );
   auto & device = devices_[ intfId ];
   if ( device.facts == facts ) return;
   device.facts = facts;
   device.inLine = false;
   device.tryAt = device.backOff = 0;
   review( intfId, device );
}

void KernelDevices::deviceDel( Kynet::IntfId intfId ) {
   const auto at = devices_.find( intfId );
   if ( at == devices_.end() ) return;
   appeared( intfId, at->second, 0 );
   devices_.erase( at );
}

std::optional< U32 > KernelDevices::carrying( Kynet::IntfId intfId ) const {
   const auto at = devices_.find( intfId );
   return at == devices_.end() || !at->second.carrying ? std::nullopt : std::optional( at->second.index );
}

bool KernelDevices::inLine() const {
   return std::ranges::all_of( devices_, []( const auto & entry ) {
      const auto & device = entry.second;
      return device.index == 0 || device.inLine || !device.error.empty();
   } );
}

std::string KernelDevices::error( Kynet::IntfId intfId ) const {
   const auto at = devices_.find( intfId );
   if ( at == devices_.end() ) return "no kernel device was told";
   const auto & device = at->second;
   if ( !space_.stands() ) return space_.text() + " is not there";
   return device.index != 0 ? device.error : "there is no " + device.facts.name + " in " + space_.text();
}

void KernelDevices::handleStands() {
   for ( auto & [ intfId, device ] : devices_ ) {
      device.tryAt = 0;
      review( intfId, device );
      if ( device.index != 0 ) tellNeighbors( intfId, device.index );
   }
}

void KernelDevices::handleLost() {
   for ( auto & [ intfId, device ] : devices_ ) {
      device.busy = false;
      appeared( intfId, device, 0 );
   }
   asks_.clear();
   fixed_.clear();
   asking_ = false;
}

void KernelDevices::handleLink( U32 index ) {
   // By its name: it may just have come, or be called otherwise now.
   const auto link = space_.links().find( index );
   for ( auto & [ intfId, device ] : devices_ )
      if ( device.index == index || ( link != space_.links().end() && link->second.name == device.facts.name ) )
         notified( intfId, device );
}

void KernelDevices::notified( Kynet::IntfId intfId, Device & device ) {
   if ( device.inLine ) {
      device.quietAt = clock_->now() + quietFor;
      clock_->timeMinIs( std::min( clock_->timeMin(), device.quietAt ) );
   }
   review( intfId, device );
}

void KernelDevices::reviewIndex( U32 index ) {
   const auto at = byIndex_.find( index );
   if ( at != byIndex_.end() ) notified( at->second, devices_.at( at->second ) );
}

void KernelDevices::handleClock() {
   clock_->timeMinIs( clock_->now() + upkeepEvery );
   if ( !space_.stands() ) return;
   for ( auto & [ intfId, device ] : devices_ ) {
      review( intfId, device );
      if ( device.quietAt > clock_->now() ) clock_->timeMinIs( std::min( clock_->timeMin(), device.quietAt ) );
      if ( !device.carrying ) continue;
      for ( auto at = wants_.lower_bound( { intfId, {} } ); at != wants_.end() && at->first.first == intfId; ++at )
         if ( !asRefreshed( at->first, device.index, at->second ) ) ask( at->first );
   }
}

void KernelDevices::review( Kynet::IntfId intfId, Device & device ) {
   if ( !space_.stands() ) return;
   const auto * const link = space_.linkNamed( device.facts.name );
   const auto index = link == nullptr ? 0 : link->index;
   if ( index != device.index ) appeared( intfId, device, index );
   if ( link == nullptr ) return;
   if ( std::exchange( device.carrying, link->carrier ) != link->carrier ) {
      events_.carryingChanged( link->carrier ? 0 : index );
      if ( link->carrier ) askAll( intfId );
   }
   bringInLine( intfId, device, *link );
}

// The device has come, or another one of its name; 0: it has gone.
void KernelDevices::appeared( Kynet::IntfId intfId, Device & device, U32 index ) {
   const auto former = std::exchange( device.index, index );
   if ( former == index ) return;
   std::erase_if( fixed_, [ intfId ]( const auto & key ) { return key.first == intfId; } );
   if ( former != 0 ) {
      // Unless it is another one's by now, whose name it took.
      if ( const auto at = byIndex_.find( former ); at != byIndex_.end() && at->second == intfId ) byIndex_.erase( at );
      if ( std::exchange( device.carrying, false ) ) events_.carryingChanged( former );
      tellNeighbors( intfId, former );
   }
   device.configured = device.inLine = false;
   device.tryAt = device.backOff = 0;
   device.error.clear();
   if ( index != 0 ) byIndex_[ index ] = intfId;
   events_.indexChanged();
   if ( index == 0 ) return;
   tellNeighbors( intfId, index );
}

void KernelDevices::bringInLine( Kynet::IntfId intfId, Device & device, const KernelLink & link ) {
   if ( device.busy || clock_->now() < device.tryAt || ( device.inLine && clock_->now() < device.quietAt ) ) return;
   if ( device.inLine ) adopt( intfId, device, link );
   std::vector< std::string > texts;
   auto batch = changes( device, link, texts );
   if ( batch.empty() ) {
      device.backOff = 0;
      device.error.clear();
      device.righted.clear();
      if ( !std::exchange( device.inLine, true ) ) adopt( intfId, device, link );
      return;
   }
   std::string text;
   for ( const auto & one : texts ) text += ( text.empty() ? "" : ", " ) + one;
   if ( device.inLine && std::exchange( device.righted, text ) != text )
      tell_( textOf( intfId, device ) + " is put right, as described: " + text );
   device.busy = true;
   device.configured = true;
   space_.requests().send( std::move( batch ), [ this, alive = alive_, intfId,
                                                 texts = std::move( texts ) ]( const NetlinkRefusals & refusals ) {
      if ( *alive ) handleAnswer( intfId, texts, refusals );
   } );
}

// What somebody says of it by way of the kernel.
void KernelDevices::adopt( Kynet::IntfId intfId, Device & device, const KernelLink & link ) {
   const auto open = device.facts.open;
   auto facts = device.facts;
   KernelFacts said;
   if ( open.mtu ) said.mtu = facts.mtu = link.mtu;
   if ( open.mac && !!link.mac ) said.mac = facts.mac = link.mac;
   if ( open.enabled ) said.enabled = facts.up = link.up;
   const auto & present = space_.addresses();
   for ( auto at = present.lower_bound( { link.index, {} } );
         open.addresses && at != present.end() && at->first == link.index; ++at )
      said.addresses.push_back( at->second );
   if ( open.addresses ) facts.addresses = said.addresses;
   if ( facts == device.facts ) return;
   device.facts = std::move( facts );
   events_.said( intfId, said );
}

std::string KernelDevices::textOf( Kynet::IntfId intfId, const Device & device ) const {
   return "interface " + intfId.stringValue() + ": kernel device " + device.facts.name + " in " + space_.text();
}

// `texts`: what each message is about.
NetlinkBatch KernelDevices::changes( const Device & device, const KernelLink & link,
                                     std::vector< std::string > & texts ) const {
   const auto & facts = device.facts;
   NetlinkBatch batch;
   const auto linkMessage = [ & ]( const std::string & text ) {
      ifinfomsg body{};
      body.ifi_index = static_cast< int >( link.index );
      if ( text.empty() ) {
         body.ifi_change = IFF_UP;
         body.ifi_flags = facts.up ? unsigned( IFF_UP ) : 0u;
      }
      batch.message( RTM_NEWLINK, 0, body );
      texts.push_back( text.empty() ? ( facts.up ? "up" : "down" ) : text );
   };
   if ( !!facts.mac && !!link.mac && facts.mac != link.mac ) {
      linkMessage( "MAC " + facts.mac.stringValue() );
      batch.attr( IFLA_ADDRESS, facts.mac.bytes() );
   }
   if ( facts.mtu != link.mtu ) {
      linkMessage( "MTU " + std::to_string( facts.mtu ) );
      batch.attr( IFLA_MTU, facts.mtu );
   }
   if ( !device.configured ) {
      linkMessage( "forwarding" );
      batch.nest( IFLA_AF_SPEC );
      batch.nest( AF_INET );
      batch.nest( IFLA_INET_CONF );
      batch.attr( IPV4_DEVCONF_FORWARDING, U32( 1 ) );
      batch.attr( IPV4_DEVCONF_RP_FILTER, looseCheck );
      batch.endNest();
      batch.endNest();
      batch.endNest();
   }
   const auto & present = space_.addresses();
   for ( auto at = present.lower_bound( { link.index, {} } ); at != present.end() && at->first == link.index; ++at )
      if ( !facts.open.addresses && std::ranges::count( facts.addresses, at->second ) == 0 ) {
         addAddress( batch, RTM_DELADDR, 0, link.index, at->second );
         texts.push_back( "removing address " + at->second.stringValue() );
      }
   for ( const auto & address : facts.addresses )
      if ( !present.contains( { link.index, address } ) ) {
         addAddress( batch, RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, link.index, address );
         texts.push_back( "address " + address.stringValue() );
      }
   if ( facts.up != link.up ) linkMessage( {} );
   return batch;
}

void KernelDevices::handleAnswer( Kynet::IntfId intfId, const std::vector< std::string > & texts,
                                  const NetlinkRefusals & refusals ) {
   const auto at = devices_.find( intfId );
   if ( at == devices_.end() ) return;
   auto & device = at->second;
   device.busy = false;
   // Whatever is not in line by now, refused or undone by somebody, is tried again later.
   device.backOff = std::clamp( 2 * device.backOff, firstPause, mostPause );
   std::string error;
   for ( const auto & refusal : refusals )
      // It has gone meanwhile: its notification says so.
      if ( refusal.error != ENODEV )
         error += ( error.empty() ? "" : "; " ) + texts[ refusal.message ] + ": " + refusal.reason;
   const auto known = std::exchange( device.error, error );
   if ( !error.empty() && error != known ) tell_( textOf( intfId, device ) + ": " + error );
   if ( !error.empty() ) device.tryAt = clock_->now() + device.backOff;
   review( intfId, device );
   if ( device.busy ) device.tryAt = clock_->now() + device.backOff;
}

void KernelDevices::tellNeighbors( Kynet::IntfId intfId, U32 index ) {
   const auto & neighbors = space_.neighbors();
   if ( devices_.at( intfId ).index != index ) {
      events_.neighborGone( intfId, {} );
      return;
   }
   for ( auto at = neighbors.lower_bound( { index, {} } ); at != neighbors.end() && at->first.first == index; ++at )
      tellNeighbor( intfId, index, at->first.second );
}

void KernelDevices::handleNeighbor( U32 index, const Kynet::IpGenAddr & addr ) {
   const auto at = byIndex_.find( index );
   if ( at != byIndex_.end() ) tellNeighbor( at->second, index, addr );
}

void KernelDevices::tellNeighbor( Kynet::IntfId intfId, U32 index, const Kynet::IpGenAddr & addr ) {
   if ( isMulticast( addr ) ) return;
   const auto * const neighbor = space_.neighbor( index, addr );
   if ( neighbor != nullptr && neighbor->valid() && !!neighbor->mac && !neighbor->mac.multicast() )
      events_.neighborIs( intfId, addr, neighbor->mac );
   else
      events_.neighborGone( intfId, addr );
}

void KernelDevices::neighborAsKnown( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) {
   const auto at = devices_.find( intfId );
   if ( at != devices_.end() && at->second.index != 0 ) tellNeighbor( intfId, at->second.index, addr );
}

void KernelDevices::wantChanged( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) {
   if ( carrying( intfId ) ) ask( { intfId, addr } );
}

void KernelDevices::askAll( Kynet::IntfId intfId ) {
   for ( auto at = wants_.lower_bound( { intfId, {} } ); at != wants_.end() && at->first.first == intfId; ++at )
      ask( at->first );
}

// In a turn of its own: what is told in one turn goes out together.
void KernelDevices::ask( const Key & key ) {
   asks_.insert( key );
   if ( std::exchange( asking_, true ) ) return;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( *alive && asking_ ) sendAsks();
   } );
}

void KernelDevices::sendAsks() {
   NetlinkBatch batch;
   std::vector< Key > keys;
   while ( space_.stands() && !asks_.empty() && batch.messages() < asksPerBatch ) {
      const auto key = asks_.extract( asks_.begin() ).value();
      const auto index = carrying( key.first );
      if ( index ) addAsk( batch, key, *index );
      keys.resize( batch.messages(), key );
   }
   asking_ = !batch.empty();
   if ( batch.empty() ) return;
   space_.requests().send(
        std::move( batch ), [ this, alive = alive_, keys = std::move( keys ) ]( const NetlinkRefusals & refusals ) {
           if ( !*alive ) return;
           std::string error;
           for ( const auto & refusal : refusals )
              if ( refusal.error != ENOENT && refusal.error != ENODEV && error.empty() )
                 error = "neighbor " + keys[ refusal.message ].second.stringValue() + " on " +
                         keys[ refusal.message ].first.stringValue() + ": the kernel: " + refusal.reason;
           if ( std::exchange( askError_, error ) != error && !error.empty() ) tell_( error );
           if ( asking_ ) sendAsks();
        } );
}

void KernelDevices::addAsk( NetlinkBatch & batch, const Key & key, U32 index ) {
   const auto at = wants_.find( key );
   const auto want = at == wants_.end() ? NeighborWant() : at->second;
   const auto * const present = space_.neighbor( index, key.second );
   const bool v4 = key.second.af() == Kynet::AddressFamily::ipv4_;
   const auto message = [ & ]( U16 type, U16 flags, U16 state, U8 how ) {
      ndmsg body{};
      body.ndm_family = v4 ? AF_INET : AF_INET6;
      body.ndm_ifindex = static_cast< int >( index );
      body.ndm_state = state;
      body.ndm_flags = how;
      batch.message( type, flags, body );
      if ( v4 )
         batch.attr( NDA_DST, htonl( key.second.v4Addr().value() ) );
      else
         batch.attr( NDA_DST, key.second.v6Addr().bytes() );
   };
   if ( !!want.fixed ) {
      fixed_.insert( key );
      message( RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, NUD_PERMANENT, 0 );
      batch.attr( NDA_LLADDR, want.fixed.bytes() );
      return;
   }
   const bool wasFixed = fixed_.erase( key ) != 0;
   if ( wasFixed ) message( RTM_DELNEIGH, 0, 0, 0 );
   // Somebody else's permanent entry would cease to be one.
   if ( !wasFixed && present != nullptr && ( present->state & NUD_PERMANENT ) != 0 ) return;
   if ( want.users != 0 ) {
      message( RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, NUD_NONE, NTF_USE );
      batch.attr( NDA_FLAGS_EXT, U32( NTF_EXT_MANAGED ) );
   } else if ( !wasFixed && present != nullptr && present->managed ) {
      message( RTM_NEWNEIGH, NLM_F_REPLACE, NUD_NONE, NTF_USE );
   }
}

bool KernelDevices::asRefreshed( const Key & key, U32 index, const NeighborWant & want ) const {
   const auto * const present = space_.neighbor( index, key.second );
   if ( present == nullptr ) return false;
   const bool permanent = ( present->state & NUD_PERMANENT ) != 0;
   return !!want.fixed ? permanent && present->mac == want.fixed : permanent || present->managed;
}

} // namespace Host
