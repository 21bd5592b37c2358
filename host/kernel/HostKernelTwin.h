// The kernel beside the router: its devices, addresses, neighbours and routes are kept equal to the router's.
#pragma once

#include "HostKernelDevices.h"
#include "HostKernelRoutes.h"
#include "HostKernelSource.h"
#include "HostRouterState.h"

namespace Host {

// The device that another process makes for an interface, at some time.
struct KernelDeviceAt {
   std::string name;
   std::string netns; // as openNetlink takes it
   friend bool operator==( const KernelDeviceAt &, const KernelDeviceAt & ) = default;
};

//   watches  PortDir::port, Ip::Status::intfStatus and intfAddr, Arp::Table::Status::neighbor, both FIBs
//   writes   RouterState: neighbours and routes of Teller::kernel, and what of an interface only the kernel says
//   owns     a KernelNamespace for each namespace that has a device, its KernelDevices and its KernelRoutes
//
// Whoever makes the devices tells of them here, and of nothing else: MAC, MTU, addresses and whether an interface is
// enabled come from the router's state, and so do the next hops to be kept fresh and the routes. A VRF's routes go into
// the namespace of its devices; of two VRFs with devices in one namespace, the second one's are left out, with an
// error.
//
// What the kernel has resolved on a device is a neighbour of the router, unless somebody else has told the same
// address: then that one holds, and is written to the kernel.
class KernelTwin : public Gant::StateMachine {
 public:
   // `state` outlives it.
   KernelTwin( RouterState & state, KernelTell tell );
   // The kernel keeps what it was told; the next one removes what is out of date.
   ~KernelTwin() override;

   // From the time at which the device is to be made until it is not to be any more, whether or not it is there.
   void deviceIs( Kynet::IntfId intfId, const KernelDeviceAt & device );
   void deviceDel( Kynet::IntfId intfId );
   // Whether the kernel gets the router's routes (its local addresses it gets always). From the start: yes.
   void routesWrittenIs( bool written );

   // What becomes of the kernel's routes is said back to it, from the next reading on. Null: nothing is, as at the
   // start.
   void outcomesAre( OutcomeOf outcomeOf );

   // The interface whose device in the namespace has the index.
   std::optional< Kynet::IntfId > intfAt( const std::string & netns, U32 index ) const;
   // The index of an interface's device; nothing while it carries nothing.
   std::optional< U32 > indexOf( Kynet::IntfId intfId ) const;
   // Called when the answers of intfAt(), or the VRFs of the interfaces, may have changed.
   void indexWatcherIs( std::function< void() > watcher ) { indexWatcher_ = std::move( watcher ); }

   // What the kernel tells.
   KernelSource & source() { return source_; }

   // Why the interface's device is not as it should be; empty: it is, or there is none to be.
   std::string error( Kynet::IntfId intfId ) const;
   // What is in the kernel is known: every namespace stands, its devices are in line and its routes are
   // read.
   bool read() const;
   // What a former process has written and this one has not stays for as long. From the start: no.
   void leftoversHeldIs( bool held );
   // Every namespace stands, and nothing is under way but for what was refused.
   bool settled() const;

 private:
   struct Place; // a namespace with what is in it
   struct GantPorts;
   struct GantIp;
   struct GantArp;
   template < typename P >
   struct GantFib;
   using Uses = Gant::HashMap< U64, std::vector< NeighborWants::key_type > >; // by FEC

   Place & place( const std::string & netns );
   Place * placeOf( Kynet::IntfId intfId ) const;
   void reviewLater( Kynet::IntfId intfId );
   void review();
   void reviewDevice( Kynet::IntfId intfId );
   void reviewVrfs();
   void reviewVrf( Place & place );
   void readRoutes( Place & place );
   void reviewFixed( const Arp::NeighborKey & key );
   template < typename P >
   void reviewFec( const Mirel::RouteTable< P > & fib, Uses & uses, U64 fecId );
   void usersAre( const NeighborWants::key_type & key, int more );
   void said( Kynet::IntfId intfId, const KernelFacts & facts );
   void neighborIs( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr, const Kynet::EthAddr & mac );
   void neighborGone( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr );
   const Told< NeighborFact > * toldNeighbor( const NeighborWants::key_type & key ) const;

   RouterState & state_;
   const KernelTell tell_;
   KernelSource source_;
   bool routesWritten_ = true;
   bool leftoversHeld_ = false;
   OutcomeOf outcomeOf_;
   std::function< void() > indexWatcher_;
   std::map< Kynet::IntfId, KernelDeviceAt > devices_;
   std::map< Kynet::IntfId, L3::VrfName > vrfs_; // of those that have devices
   NeighborWants wants_;
   Uses uses4_, uses6_;
   std::map< std::string, std::unique_ptr< Place > > places_;
   std::map< Kynet::IntfId, KernelFacts > refusedFacts_; // that the kernel has said
   std::set< Kynet::IntfId > pending_;
   std::set< NeighborWants::key_type > pendingNeighbors_;
   bool posted_ = false;
   std::unique_ptr< GantPorts > portReactor_;
   std::unique_ptr< GantIp > ipReactor_;
   std::unique_ptr< GantArp > arpReactor_;
   std::unique_ptr< GantFib< Kynet::Prefix > > fibReactor_;
   std::unique_ptr< GantFib< Kynet::Ip6Prefix > > fib6Reactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

} // namespace Host
