// PMDPort: any device that DPDK drives; PCAPPort: the same by libpcap.
//
// An AF_PACKET or AF_XDP device stands on one of the kernel's, which can go, and come again as another one. This device
// is lost then, and says so.
#pragma once

#include "DpDevice.h"
#include "DpEal.h"

#include <array>
#include <memory>
#include <mutex>

namespace Vexdp {

class PmdDevice final : public Device {
 public:
   // What it is to have at least. Each worker gets a queue of its own to send by, where the device has so many.
   struct Queues {
      std::uint16_t in = 1;
      std::uint16_t out = 1;
      // The descriptors of one; 0: the driver's.
      std::uint16_t inSize = 0;
      std::uint16_t outSize = 0;
      unsigned workers = 1;
   };

   // ENODEV and others: there is no such device, or it can't be had. ERANGE: it has not so many queues.
   static Outcome make( Eal & eal, bess::pb::PMDPortArg arg, Queues queues, std::unique_ptr< Device > & device );
   ~PmdDevice() override;

   void receive( unsigned queue, std::vector< Packet > & burst ) override;
   void send( Packet && packet, unsigned worker ) override;
   void flush( unsigned worker ) override;
   int descriptor( unsigned queue ) const override { return queue < sockets_.size() ? sockets_[ queue ] : -1; }

   Stats stats() const override;
   Link link() const override;
   Conf conf() const override;
   Outcome confIs( const bess::pb::PortConf & conf ) override;

 private:
   // A worker's packets on their way out.
   struct Out {
      std::array< rte_mbuf *, kBurst > mbufs{};
      std::size_t count = 0;
      std::uint64_t dropped = 0;
   };

   PmdDevice( std::uint16_t id, std::string dev, bool ours, rte_mempool * pool, const Queues & queues ) :
        Device( queues.workers, queues.in ), id_( id ), dev_( std::move( dev ) ), ours_( ours ), pool_( pool ),
        tooLong_( queues.in ), outs_( queues.workers ), outLocks_( queues.workers ) {}
   Outcome begin( const Queues & queues, unsigned frameLen );
   Outcome beginQueues( const Queues & queues );
   Outcome standOn( std::vector< int > sockets );
   std::uint32_t mtu() const;
   Outcome mtuIs( std::uint32_t mtu );

   const std::uint16_t id_;
   const std::string dev_; // as DPDK names it
   const bool ours_;       // was made for this port
   rte_mempool * const pool_;
   std::string kernelDevice_; // it stands on; empty: none
   unsigned kernelIndex_ = 0;
   std::vector< int > sockets_;         // the driver's, by queue
   PerWorker< std::uint64_t > tooLong_; // frames, by receive queue
   PerWorker< Out > outs_;
   std::uint16_t outQueues_ = 1;
   PerWorker< std::mutex > outLocks_;      // by queue, where there are fewer than workers
   mutable std::uint64_t ringDropped_ = 0; // by the kernel, for want of room
   bool up_ = true;
};

} // namespace Vexdp
