// UnixSocketPort: packets over a SOCK_SEQPACKET socket on which the port listens, a message a packet. One client at a
// time; a newer one takes its place.
#pragma once

#include "DpDescriptor.h"
#include "DpDevice.h"

#include <memory>

namespace Vexdp {

class UnixDevice final : public Device {
 public:
   // EADDRINUSE and others: it can't listen there. EINVAL: no path, or one that is too long.
   static Outcome make( const bess::pb::UnixSocketPortArg & arg, std::unique_ptr< Device > & device );
   ~UnixDevice() override;

   void receive( std::vector< Packet > & burst ) override;
   void send( Packet && packet ) override;
   // Without a client there is nothing to sleep on but the next one.
   int descriptor() const override { return client_.fd() >= 0 ? client_.fd() : listening_.fd(); }

   Stats stats() const override { return stats_; }
   Link link() const override { return { up_ && client_.fd() >= 0, 0, {} }; }
   Conf conf() const override { return { {}, mtu_, up_ }; }
   Outcome confIs( const bess::pb::PortConf & conf ) override;

 private:
   explicit UnixDevice( std::string path ) : path_( std::move( path ) ) {}
   void welcome();

   const std::string path_; // '@' in front: abstract
   Descriptor listening_;
   Descriptor client_;
   std::uint32_t mtu_ = 1500;
   bool up_ = true;
   Stats stats_;
};

} // namespace Vexdp
