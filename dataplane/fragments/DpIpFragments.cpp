#include "DpIpFragments.h"

#include "DpIpv4.h"

#include <rte_cycles.h>
#include <rte_ip_frag.h>
#include <rte_mbuf.h>

#include <algorithm>

namespace Vexdp {

namespace {

constexpr unsigned kBucketEntries = 4;

// The bytes of all segments, unless they are of several VRFs.
bool copyOut( const rte_mbuf * first, Packet & whole ) {
   auto * at = whole.data();
   for ( const auto * segment = first; segment != nullptr; segment = segment->next ) {
      if ( segment->hash.usr != first->hash.usr ) return false;
      at = std::copy_n( rte_pktmbuf_mtod( segment, const std::uint8_t * ), segment->data_len, at );
   }
   return true;
}

} // namespace

void IpFragments::TableFree::operator()( rte_ip_frag_tbl * table ) const { rte_ip_frag_table_destroy( table ); }

IpFragments::~IpFragments() = default;

bool IpFragments::ready() { return eal_.started(); }

rte_ip_frag_tbl * IpFragments::tableOf( std::uint8_t proto ) {
   const auto at = tables_.find( proto );
   if ( at != tables_.end() ) return at->second.get();
   if ( tables_.size() >= kMostTables ) return nullptr;
   auto * const table = rte_ip_frag_table_create( kMostPackets / kBucketEntries, kBucketEntries, kMostPackets,
                                                  rte_get_tsc_hz() * kLongest, SOCKET_ID_ANY );
   if ( table != nullptr ) tables_.emplace( proto, table );
   return table;
}

// DPDK's tables look for what is too old only when something new comes, which takes a buffer.
bool IpFragments::isScarce( const rte_mempool & pool ) {
   const auto few = [ &pool ] { return rte_mempool_avail_count( &pool ) < pool.size / 4; };
   if ( !few() ) return false;
   for ( const auto & [ proto, table ] : tables_ ) {
      rte_ip_frag_death_row gone{};
      rte_ip_frag_table_del_expired_entries( table.get(), &gone, rte_rdtsc() );
      rte_ip_frag_free_death_row( &gone, 0 );
   }
   return few();
}

rte_mbuf * IpFragments::joined( Packet && fragment, std::uint8_t proto, std::size_t headerLen ) {
   auto * const table = tableOf( proto );
   const auto vrf = fragment.meta.vrf;
   const auto size = unsigned( fragment.size() );
   auto * const mbuf = Eal::mbufOf( std::move( fragment ), eal_.poolFor( size ) );
   if ( mbuf == nullptr ) return nullptr;
   if ( table == nullptr || isScarce( *mbuf->pool ) ) {
      rte_pktmbuf_free( mbuf );
      return nullptr;
   }
   mbuf->l2_len = 0;
   mbuf->l3_len = std::uint8_t( headerLen ) & 0x1ff;
   mbuf->hash.usr = vrf;
   rte_ip_frag_death_row gone{};
   auto * const whole =
        rte_ipv4_frag_reassemble_packet( table, &gone, mbuf, rte_rdtsc(), rte_pktmbuf_mtod( mbuf, rte_ipv4_hdr * ) );
   rte_ip_frag_free_death_row( &gone, 0 );
   return whole;
}

std::optional< Packet > IpFragments::add( Packet && fragment, const Seat & seat ) {
   const auto header = Ipv4Header::of( fragment );
   const auto front = fragment.withFront( 0 );
   rte_mbuf * whole = nullptr;
   {
      const OneAtATime one( lock_, seat.shared() );
      whole = joined( std::move( fragment ), header->proto(), header->headerLen() );
   }
   if ( whole == nullptr ) return std::nullopt;
   std::optional< Packet > made( front.withFront( whole->pkt_len ) );
   const bool copied = copyOut( whole, *made );
   rte_pktmbuf_free( whole );
   auto joinedHeader = copied ? Ipv4Header::of( *made ) : std::nullopt;
   if ( !joinedHeader ) return std::nullopt;
   joinedHeader->checksumRenew();
   return made;
}

} // namespace Vexdp
