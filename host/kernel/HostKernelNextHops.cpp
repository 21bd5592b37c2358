#include "HostKernelNextHops.h"

#include <algorithm>
#include <arpa/inet.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

namespace Host {

namespace {

// Ids are the namespace's own, and others count from 1.
constexpr U32 firstNextHopId = 0x56000000;
// Of a group; the kernel gives each flow one of them.
constexpr size_t hopsMost = 256;

} // namespace

std::vector< KernelNextHops::HopKey > KernelNextHops::hopsOf( bool v6, const Mirel::Vias & vias ) const {
   const auto family = v6 ? Kynet::IpGenAddr( Kynet::Ip6Addr() ) : Kynet::IpGenAddr();
   std::vector< HopKey > hops;
   for ( const auto & via : vias ) {
      if ( via.kind() != Mirel::RouteType::forward_ || hops.size() == hopsMost ) continue;
      if ( const auto index = carrying_( via.intfId() ) )
         hops.push_back( { *index, via.hopHas() ? via.hop() : family } );
   }
   std::sort( hops.begin(), hops.end() );
   hops.erase( std::unique( hops.begin(), hops.end() ), hops.end() );
   if ( hops.empty() ) hops.push_back( { 0, family } );
   return hops;
}

U32 KernelNextHops::group( KernelWrites & writes, U64 key, const Mirel::Vias & vias ) {
   const auto [ at, added ] = groups_.try_emplace( key );
   auto & group = at->second;
   if ( added ) {
      group.id = firstNextHopId + ++lastId_;
      groupKeys_[ group.id ] = key;
   }
   if ( !group.stands ) write( writes, key, group, hopsOf( ( key & 1 ) != 0, vias ) );
   return group.id;
}

void KernelNextHops::update( KernelWrites & writes, U64 key, const Mirel::Vias & vias ) {
   const auto at = groups_.find( key );
   if ( at == groups_.end() ) return;
   const auto wanted = hopsOf( ( key & 1 ) != 0, vias );
   if ( !inLine( at->second, wanted ) ) write( writes, key, at->second, wanted );
}

bool KernelNextHops::inLine( const Group & group, const std::vector< HopKey > & wanted ) const {
   return group.stands && std::ranges::equal( group.hops, wanted, [ this ]( U32 id, const HopKey & key ) {
             const auto at = hops_.find( id );
             return at != hops_.end() && at->second.key == key;
          } );
}

void KernelNextHops::write( KernelWrites & writes, U64 key, Group & group, const std::vector< HopKey > & wanted ) {
   std::vector< U32 > hops;
   std::vector< nexthop_grp > members;
   for ( const auto & hop : wanted ) {
      hops.push_back( acquire( writes, hop ) );
      members.push_back( nexthop_grp{} );
      members.back().id = hops.back();
   }
   nhmsg body{};
   body.nh_protocol = kernelRouteProtocol;
   writes.batch.message( RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE, body );
   writes.batch.attr( NHA_ID, group.id );
   writes.batch.attrBytes( NHA_GROUP, members.data(), members.size() * sizeof( nexthop_grp ) );
   writes.add( KernelWrite::group, key );
   release( std::exchange( group.hops, std::move( hops ) ) );
   group.stands = true;
}

U32 KernelNextHops::acquire( KernelWrites & writes, const HopKey & hop ) {
   const auto [ at, added ] = hopIds_.try_emplace( hop, 0 );
   if ( !added ) {
      ++hops_.at( at->second ).users;
      return at->second;
   }
   const auto id = firstNextHopId + ++lastId_;
   at->second = id;
   hops_[ id ] = { hop, 1 };
   const bool v6 = hop.gateway.af() == Kynet::AddressFamily::ipv6_;
   const bool gatewayHas = !( v6 ? !hop.gateway.v6Addr() : !hop.gateway.v4Addr() );
   nhmsg body{};
   body.nh_family = v6 ? AF_INET6 : AF_INET;
   body.nh_protocol = kernelRouteProtocol;
   // The router knows what is on the link.
   body.nh_flags = gatewayHas ? RTNH_F_ONLINK : 0u;
   writes.batch.message( RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE, body );
   writes.batch.attr( NHA_ID, id );
   if ( hop.index == 0 )
      writes.batch.attrBytes( NHA_BLACKHOLE, nullptr, 0 );
   else
      writes.batch.attr( NHA_OIF, hop.index );
   if ( gatewayHas && v6 ) writes.batch.attr( NHA_GATEWAY, hop.gateway.v6Addr().bytes() );
   if ( gatewayHas && !v6 ) writes.batch.attr( NHA_GATEWAY, htonl( hop.gateway.v4Addr().value() ) );
   writes.add( KernelWrite::hop, id );
   return id;
}

void KernelNextHops::release( const std::vector< U32 > & hops ) {
   for ( const auto id : hops ) {
      const auto at = hops_.find( id );
      if ( at == hops_.end() || --at->second.users != 0 ) continue;
      hopIds_.erase( at->second.key );
      hops_.erase( at );
      dying_.push_back( id );
   }
}

std::vector< U64 > KernelNextHops::keys() const {
   std::vector< U64 > keys;
   for ( const auto & [ key, group ] : groups_ ) keys.push_back( key );
   return keys;
}

void KernelNextHops::del( U64 key ) {
   const auto at = groups_.find( key );
   if ( at == groups_.end() ) return;
   dying_.push_back( at->second.id );
   groupKeys_.erase( at->second.id );
   release( at->second.hops );
   groups_.erase( at );
}

void KernelNextHops::refused( U64 key ) {
   const auto at = groups_.find( key );
   if ( at == groups_.end() ) return;
   at->second.stands = false;
   release( std::exchange( at->second.hops, {} ) );
}

void KernelNextHops::isTaken( U32 id ) {
   if ( id > firstNextHopId ) lastId_ = std::max( lastId_, id - firstNextHopId );
}

std::string KernelNextHops::textOfHop( U32 id ) const {
   const auto at = hops_.find( id );
   return at == hops_.end() ? std::string() : at->second.key.gateway.stringValue();
}

std::optional< U64 > KernelNextHops::gone( U32 id ) {
   if ( const auto hop = hops_.find( id ); hop != hops_.end() ) {
      hopIds_.erase( hop->second.key );
      hops_.erase( hop );
      return std::nullopt;
   }
   const auto at = groupKeys_.find( id );
   if ( at == groupKeys_.end() ) return std::nullopt;
   groups_.at( at->second ).stands = false;
   return at->second;
}

std::vector< U64 > KernelNextHops::linkLost( U32 index ) {
   for ( auto at = hopIds_.lower_bound( { index, {} } ); at != hopIds_.end() && at->first.index == index; ) {
      hops_.erase( at->second );
      // Should it be one that came since then.
      dying_.push_back( at->second );
      at = hopIds_.erase( at );
   }
   std::vector< U64 > lost;
   for ( auto & [ key, group ] : groups_ ) {
      const auto gone = [ this ]( U32 id ) { return !hops_.contains( id ); };
      if ( !group.stands || !std::ranges::all_of( group.hops, gone ) ) continue;
      group.stands = false;
      lost.push_back( key );
   }
   return lost;
}

void KernelNextHops::sweep( KernelWrites & writes, size_t most ) {
   for ( ; most != 0 && !dying_.empty(); --most ) {
      writes.batch.message( RTM_DELNEXTHOP, 0, nhmsg{} );
      writes.batch.attr( NHA_ID, dying_.front() );
      writes.add( KernelWrite::removal, 0 );
      dying_.pop_front();
   }
}

void KernelNextHops::clear() {
   hopIds_.clear();
   hops_.clear();
   groups_.clear();
   groupKeys_.clear();
   dying_.clear();
}

} // namespace Host
