// Reassembly of IPv4 (RFC 791) by DPDK's library.
//
// Fragments wait in the buffers that they came in, of each protocol in a table of its own: at most kMostPackets packets
// of up to 8 fragments each, kLongest seconds long. When a table is full, or few buffers are left, what is new is
// dropped. Fragments of two VRFs are never put together. Those of one packet may come by several workers: they are one
// at a time here.
#pragma once

#include "DpEal.h"
#include "DpReassembly.h"

#include <map>
#include <memory>

struct rte_ip_frag_tbl;
struct rte_mbuf;
struct rte_mempool;

namespace Vexdp {

class IpFragments : public Reassembly {
 public:
   static constexpr unsigned kMostPackets = 128; // of a table
   static constexpr unsigned kMostTables = 4;
   static constexpr unsigned kLongest = 5;

   // The environment outlives this.
   explicit IpFragments( Eal & eal ) : eal_( eal ) {}
   ~IpFragments() override;

   // False while the environment has not been started: then there are no buffers.
   bool ready() override;
   std::optional< Packet > add( Packet && fragment, const Seat & seat ) override;

 private:
   struct TableFree {
      void operator()( rte_ip_frag_tbl * table ) const;
   };
   // Null when there is no memory, or there are kMostTables.
   rte_ip_frag_tbl * tableOf( std::uint8_t proto );
   // Whether too few are left for packets that come in. Gives back those of what has waited for too long, if so.
   bool isScarce( const rte_mempool & pool );
   // Null: it waits for the others, or is lost.
   rte_mbuf * joined( Packet && fragment, std::uint8_t proto, std::size_t headerLen );

   Eal & eal_;
   SpinLock lock_;
   std::map< std::uint8_t, std::unique_ptr< rte_ip_frag_tbl, TableFree > > tables_;
};

} // namespace Vexdp
