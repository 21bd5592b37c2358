// PMDPort: any device that DPDK drives; PCAPPort: the same by libpcap.
//
// An AF_PACKET or AF_XDP device stands on one of the kernel's, which can go, and come again as another one. This device
// is lost then, and says so.
#pragma once

#include "DpDevice.h"
#include "DpEal.h"

#include <array>
#include <memory>

namespace Vexdp {

class PmdDevice final : public Device {
 public:
   // The descriptors of a queue; 0: the driver's.
   struct Sizes {
      std::uint16_t in = 0;
      std::uint16_t out = 0;
   };

   // ENODEV and others: there is no such device, or it can't be had.
   static Outcome make( Eal & eal, const bess::pb::PMDPortArg & arg, Sizes sizes, std::unique_ptr< Device > & device );
   ~PmdDevice() override;

   void receive( std::vector< Packet > & burst ) override;
   void send( Packet && packet ) override;
   void flush() override;
   int descriptor() const override { return socket_; }

   Stats stats() const override;
   Link link() const override;
   Conf conf() const override;
   Outcome confIs( const bess::pb::PortConf & conf ) override;

 private:
   PmdDevice( std::uint16_t id, std::string dev, bool ours, rte_mempool * pool ) :
        id_( id ), dev_( std::move( dev ) ), ours_( ours ), pool_( pool ) {}
   Outcome begin( Sizes sizes, unsigned frameLen );
   Outcome standOn();
   std::uint32_t mtu() const;
   Outcome mtuIs( std::uint32_t mtu );

   const std::uint16_t id_;
   const std::string dev_; // as DPDK names it
   const bool ours_;       // was made for this port
   rte_mempool * const pool_;
   std::string kernelDevice_; // it stands on; empty: none
   unsigned kernelIndex_ = 0;
   int socket_ = -1; // the driver's
   std::array< rte_mbuf *, kBurst > out_{};
   std::size_t outCount_ = 0;
   std::uint64_t outDropped_ = 0;
   mutable std::uint64_t ringDropped_ = 0; // by the kernel, for want of room
   bool up_ = true;
};

} // namespace Vexdp
