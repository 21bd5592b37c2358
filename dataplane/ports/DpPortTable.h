// The ports by name: made by a driver, each on the wire of its interface, driven by the workers.
//
// A port named "kernel:" and an interface's name is that interface's device in the host's kernel; any other is the
// device of the interface of its name. What makes or ends a device takes its time, up to a second, and disturbs nobody;
// the caller holds the workers while it calls anything else.
#pragma once

#include "DpDevice.h"
#include "DpEal.h"

#include <map>
#include <memory>
#include <string_view>

namespace Vexdp {

class PortTable {
 public:
   static constexpr std::string_view kKernelPrefix = "kernel:";

   struct Port {
      std::unique_ptr< Device > device;
      std::string driver;
      google::protobuf::Any arg;
      bess::pb::ListPortsResponse::Port listed; // as it was made
      std::shared_ptr< Wire > wire;
      bool kernel = false;
   };
   using Ports = std::map< std::string, Port, std::less<> >;

   // For so many workers. Both outlive it.
   PortTable( Eal & eal, Wires & wires, unsigned workers ) : eal_( eal ), wires_( wires ), workers_( workers ) {}
   ~PortTable() { takeAll(); }

   // A port that no packet reaches yet, for add(). EEXIST: there is one of the name. ENOENT: no such driver. EINVAL:
   // not the driver's message. ERANGE: more queues than it has. Others are the driver's. The workers need not be held.
   Outcome make( const bess::pb::CreatePortRequest & request, Port & port );
   // REQUIRES: make() has just said yes to it
   void add( Port && port );
   // Takes it out, for the caller to end it. ENOENT: there is none of the name.
   Outcome take( const std::string & name, Port & port );
   Ports takeAll();

   const Ports & ports() const { return ports_; }
   Device * find( std::string_view name ) const;
   // REQUIRES: it is one of the ports'
   const std::string & nameOf( const Device & device ) const;
   // The device in the kernel shows the link of the other. While the workers are held, or by one of them.
   void carry();

   // Driver names, and a line on each; empty when there is none of the name.
   static std::vector< std::string > drivers();
   static std::string help( const std::string & driver );

 private:
   Outcome makeDevice( const bess::pb::CreatePortRequest & request, std::unique_ptr< Device > & device );
   void cut( Port & port );

   Eal & eal_;
   Wires & wires_;
   const unsigned workers_;
   Ports ports_;
   unsigned generated_ = 0;
};

} // namespace Vexdp
