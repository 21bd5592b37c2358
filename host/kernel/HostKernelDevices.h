// The kernel devices of the router's interfaces in one namespace, and the neighbours on them.
#pragma once

#include "HostFacts.h"
#include "HostKernelNamespace.h"
#include "KynetIntfId.h"

#include <optional>

namespace Host {

// What an interface's device is to be.
struct KernelDeviceFacts {
   std::string name{};
   Kynet::EthAddr mac{};
   U32 mtu = 1500;
   std::vector< Kynet::Prefix > addresses{}; // with host bits
   bool up = true;
   KernelOpen open{};
   friend bool operator==( const KernelDeviceFacts &, const KernelDeviceFacts & ) = default;
};

// What the router wants of an address on an interface.
struct NeighborWant {
   U32 users = 0;          // FECs with a next hop there
   Kynet::EthAddr fixed{}; // it is told so; zero: the kernel finds it out
};
using NeighborWants = std::map< std::pair< Kynet::IntfId, Kynet::IpGenAddr >, NeighborWant >;

//   watches  a KernelNamespace, through its owner, who passes on what that tells
//   writes   the links, their IPv4 addresses, neighbours
//
// Another process makes the devices, and takes them away. One that is there is brought in line with its facts, whenever
// it comes and whoever changed it, which is told; what the kernel refuses is an error that names it, and is tried
// again, at most every 30 seconds. What of it is open is the kernel's to say once the device has been in line: said()
// tells it, a moment after the last change, for one that goes is taken down first. A device that is made anew gets what
// the one before had, and of open addresses keeps those that it has. It forwards IPv4 (so that the kernel makes the
// ICMP errors), with a loose check of source addresses.
//
// An address with users is asked for as soon as its device carries, and kept fresh by the kernel (NTF_EXT_MANAGED, from
// Linux 5.16); where it is not, it is asked for again every 2 seconds, which costs a probe once the entry is stale. A
// fixed one is a permanent entry.
class KernelDevices : public Gant::StateMachine {
 public:
   struct Events {
      // In any state in which it can be sent to; again with each change.
      std::function< void( Kynet::IntfId, const Kynet::IpGenAddr &, const Kynet::EthAddr & ) > neighborIs;
      // Also of addresses that were none; 0.0.0.0: all of the interface.
      std::function< void( Kynet::IntfId, const Kynet::IpGenAddr & ) > neighborGone;
      // What carrying() says has changed; `lost` is the index of the device that carries no more, 0: one carries now.
      std::function< void( U32 lost ) > carryingChanged;
      // A device is there, or not any more: intfAt() tells.
      std::function< void() > indexChanged;
      // The kernel says something else of what is open.
      std::function< void( Kynet::IntfId, const KernelFacts & ) > said;
   };
   KernelDevices( KernelNamespace & space, const NeighborWants & wants, Events events, KernelTell tell );
   ~KernelDevices() override;

   void deviceIs( Kynet::IntfId intfId, const KernelDeviceFacts & facts );
   // The device stays as it is.
   void deviceDel( Kynet::IntfId intfId );
   bool deviceHas( Kynet::IntfId intfId ) const { return devices_.contains( intfId ); }
   bool empty() const { return devices_.empty(); }
   // What is wanted of the address has changed.
   void wantChanged( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr );

   // The device's index, while it is there, up and has a carrier.
   std::optional< U32 > carrying( Kynet::IntfId intfId ) const;
   // Whose device has the index.
   std::optional< Kynet::IntfId > intfAt( U32 index ) const {
      const auto at = byIndex_.find( index );
      return at == byIndex_.end() ? std::nullopt : std::optional( at->second );
   }
   // Each device that is there has been brought in line, and what is open is told, or the kernel refuses something.
   bool inLine() const;
   // Why the device is not as it should be; empty: it is.
   std::string error( Kynet::IntfId intfId ) const;

   void handleStands();
   void handleLost();
   void handleLink( U32 index );
   void handleAddress( U32 index ) { reviewIndex( index ); }
   void handleNeighbor( U32 index, const Kynet::IpGenAddr & addr );
   // Tells again what the kernel knows of the address.
   void neighborAsKnown( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr );

 private:
   struct Device {
      KernelDeviceFacts facts;
      U32 index = 0; // 0: it is not there
      bool carrying = false;
      bool configured = false; // forwards
      bool busy = false;       // a request is under way
      bool inLine = false;     // has been, as it is to be
      double quietAt = 0;      // not before is it looked at what somebody has changed
      std::string righted{};   // what of it somebody else has changed
      double tryAt = 0;        // not before
      double backOff = 0;      // seconds
      std::string error{};
   };
   using Key = NeighborWants::key_type;
   struct GantClock;

   void handleClock();
   std::string textOf( Kynet::IntfId intfId, const Device & device ) const;
   void reviewIndex( U32 index );
   void notified( Kynet::IntfId intfId, Device & device );
   void review( Kynet::IntfId intfId, Device & device );
   void appeared( Kynet::IntfId intfId, Device & device, U32 index );
   void adopt( Kynet::IntfId intfId, Device & device, const KernelLink & link );
   void bringInLine( Kynet::IntfId intfId, Device & device, const KernelLink & link );
   NetlinkBatch changes( const Device & device, const KernelLink & link, std::vector< std::string > & texts ) const;
   void handleAnswer( Kynet::IntfId intfId, const std::vector< std::string > & texts,
                      const NetlinkRefusals & refusals );
   void tellNeighbors( Kynet::IntfId intfId, U32 index );
   void tellNeighbor( Kynet::IntfId intfId, U32 index, const Kynet::IpGenAddr & addr );
   void ask( const Key & key );
   void askAll( Kynet::IntfId intfId );
   void sendAsks();
   void addAsk( NetlinkBatch & batch, const Key & key, U32 index );
   bool asRefreshed( const Key & key, U32 index, const NeighborWant & want ) const;

   KernelNamespace & space_;
   const NeighborWants & wants_;
   const Events events_;
   const KernelTell tell_;
   std::map< Kynet::IntfId, Device > devices_;
   std::map< U32, Kynet::IntfId > byIndex_;
   std::set< Key > asks_;
   std::set< Key > fixed_; // entries of the kernel that this wrote
   bool asking_ = false;
   std::string askError_;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
