// VPort: a device of the host's kernel, a TAP for frames or a TUN for bare packets, in a network namespace. It is made
// with the port, and is gone with it.
#pragma once

#include "DpDescriptor.h"
#include "DpDevice.h"

#include <atomic>
#include <memory>

namespace Vexdp {

class TapDevice final : public Device {
 public:
   // ENOENT: no such namespace. EEXIST, EBUSY: the name is in use there. EPERM: it takes CAP_NET_ADMIN.
   static Outcome make( const bess::pb::VPortArg & arg, unsigned workers, std::unique_ptr< Device > & device );

   void receive( unsigned queue, std::vector< Packet > & burst ) override;
   void send( Packet && packet, unsigned worker ) override;
   int descriptor( unsigned ) const override { return tap_.fd(); }
   bool bare() const override { return tun_; }

   Stats stats() const override { return { in_, sumOf( out_ ) }; }
   Link link() const override { return { up_, 0, {} }; }
   Conf conf() const override;
   Outcome confIs( const bess::pb::PortConf & conf ) override;
   void carrierIs( bool up ) override;

 private:
   TapDevice( std::string ifname, bool tun, unsigned workers ) :
        Device( workers ), ifname_( std::move( ifname ) ), tun_( tun ), out_( workers ) {}
   // On a thread of its own, which may go into the namespace.
   Outcome open( const std::string & netns, const google::protobuf::RepeatedPtrField< std::string > & addresses );
   Outcome addressIs( const std::string & address );

   const std::string ifname_;
   const bool tun_;
   Descriptor tap_;
   Descriptor inside_;             // any socket in its namespace, to ask it of the device
   std::atomic< bool > up_ = true; // changed by one worker, while others send
   Stat in_;
   PerWorker< Stat > out_;
};

} // namespace Vexdp
