// UnixSocketPort: packets over a SOCK_SEQPACKET socket on which the port listens, a message a packet. One client at a
// time; a newer one takes its place.
#pragma once

#include "DpDescriptor.h"
#include "DpDevice.h"

#include <memory>
#include <mutex>

namespace Vexdp {

class UnixDevice final : public Device {
 public:
   // What a process that was killed left at the path is taken over. EADDRINUSE and others: it can't listen there.
   // EINVAL: no path, or one that is too long.
   static Outcome make( const bess::pb::UnixSocketPortArg & arg, unsigned workers, std::unique_ptr< Device > & device );
   ~UnixDevice() override;

   void receive( unsigned queue, std::vector< Packet > & burst ) override;
   void send( Packet && packet, unsigned worker ) override;
   void flush( unsigned worker ) override;
   // Without a client there is nothing to sleep on but the next one.
   int descriptor( unsigned queue ) const override;

   Stats stats() const override { return { in_, out_ }; }
   Link link() const override { return { up_ && hasClient(), 0, {} }; }
   Conf conf() const override { return { {}, mtu_, up_ }; }
   Outcome confIs( const bess::pb::PortConf & conf ) override;

 private:
   UnixDevice( std::string path, unsigned workers );
   void welcome();
   bool hasClient() const;
   void sendOne( const Packet & packet );

   const std::string path_; // '@' in front: abstract
   bool bound_ = false;     // the path is this socket's
   Descriptor listening_;
   std::uint32_t mtu_ = 1500;
   bool up_ = true;
   PerWorker< std::vector< Packet > > leaving_;
   // Of all below, where workers share them.
   mutable std::mutex mutex_;
   Descriptor client_;
   Stat in_;
   Stat out_;
};

} // namespace Vexdp
