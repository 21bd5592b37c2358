// The ports that a data plane is to have for the router's interfaces, made and kept for as long as a session lasts.
#pragma once

#include "bess/control.pb.h"
#include "HostStateTree.h"

#include <functional>
#include <map>
#include <memory>

namespace Vex {
class EngineCall;
class EnginePorts;
struct Peer;
} // namespace Vex

namespace Host {

class KeptPort;
class KernelDeviceWatcher;
struct PortWish;

// An interface has up to two ports: the one of its own name carries its packets, and "kernel:" and its name is its
// device in the host's kernel.
struct PortKey {
   Kynet::IntfId intfId{}; // none: the data plane's port has some other name
   bool kernel = false;
   Gant::String other{};
   static PortKey ofName( const Gant::String & name );
   Gant::String name() const;
   friend auto operator<=>( const PortKey &, const PortKey & ) = default;
};

// Whether an interface's port carries packets. What was told before holds while nobody can say.
using LinkWatcher = std::function< void( Kynet::IntfId intfId, bool up ) >;

//   watches  DeviceDir::device
//   calls    Vex::EnginePorts, KernelDeviceWatcher, LinkWatcher
//
// What the data plane has at first is from another session. What is wanted so is taken over, and the rest destroyed,
// when sweepIs() says that it may be. Of several ports that are wanted a few are made at a time, and none waits for one
// that cannot be made. A lost session takes this with it, and the next one makes everything again.
class Ports : public Gant::StateMachine {
 public:
   using Kept = std::map< PortKey, std::unique_ptr< KeptPort > >;

   // `peer` as of GrpcChannel. `kernelWatcher`, which may be null, is told of devices until this goes, and is not
   // owned. `linkWatcher`, which may be empty, is called in turns of the loop, also with what it was told before.
   // Begins in a later turn. `sweep`: what is not wanted goes at once.
   Ports( Gant::Ptr< const DeviceDir > devices, const Vex::Peer & peer, KernelDeviceWatcher * kernelWatcher,
          LinkWatcher linkWatcher, bool sweep = true );
   ~Ports() override;

   const Kept & kept() const { return kept_; }
   // Null: there is none, wanted or not.
   const KeptPort * port( const PortKey & key ) const;
   // Something is being made, set or destroyed, or is about to be. What waits to be tried again does not count.
   bool changing() const;
   // None is there whose link is still to be looked at.
   bool linksKnown() const;
   // What another session has left, and is not wanted, goes from here on.
   void sweepIs();
   // Goes up with each change at the data plane.
   U64 generation() const { return generation_; }

 private:
   struct GantDevices;
   struct GantClock;
   void postReview();
   void review();
   void tellWishes();
   void listed( const Gant::String & error );
   KeptPort & keep( const PortKey & key );
   bool mayChange() const;
   std::map< PortKey, PortWish > wishes();
   void keepFound( const bess::pb::ListPortsResponse::Port & port );
   unsigned freeNumber() const;
   bool kernelWanted( const Device & device, bool anyPort ) const;
   PortWish portWish( Kynet::IntfId intfId, const Device & device );
   static PortWish kernelWish( Kynet::IntfId intfId, const Device & device );
   void tellKernelDevices();
   void tellLinks() const;
   void handleClock();

   const Gant::Ptr< const DeviceDir > devices_;
   KernelDeviceWatcher * const kernelWatcher_;
   const LinkWatcher linkWatcher_;
   std::unique_ptr< Vex::EnginePorts > engine_;
   Kept kept_;
   std::map< Kynet::IntfId, unsigned > numbers_; // in names of virtual devices
   struct Told;
   std::unique_ptr< Told > told_; // to kernelWatcher_
   bool sweep_;
   bool listed_ = false;
   bool wishesChanged_ = true;
   bool reviewPosted_ = false;
   U64 generation_ = 0;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< Vex::EngineCall > listing_;
   std::unique_ptr< GantDevices > deviceReactor_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

// The name of the interface's device in the kernel, of at most 15 characters: its own, or where that is too long its
// short one, with "-" for "/".
Gant::String kernelName( Kynet::IntfId intfId );

} // namespace Host
