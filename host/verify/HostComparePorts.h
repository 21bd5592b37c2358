// The ports of the data plane, compared with those that are wanted.
#pragma once

#include "bess/control.pb.h"
#include "HostFindings.h"
#include "HostKeptPort.h"
#include "HostPorts.h"
#include "VexEnginePorts.h"

namespace Host {

// Asks for all ports and their settings when it is made, and has what was wanted then to compare them with.
class PortComparison {
 public:
   PortComparison( const Ports & ports, const Vex::Peer & peer, std::function< void() > wake );
   bool done() const { return due_ == 0; }
   // Of `ports` when it was made.
   U64 generation() const { return generation_; }
   // REQUIRES: done().
   void write( Findings & findings ) const;

 private:
   struct Wanted {
      std::string name;
      PortWish wish;
      std::string reason; // why it is not there
      bess::pb::GetPortConfResponse conf;
      std::string confError;
   };
   void compare( const Wanted & wanted, const bess::pb::ListPortsResponse::Port & held, Findings & findings ) const;
   void answered();

   const U64 generation_;
   Vex::EnginePorts engine_;
   const std::function< void() > wake_;
   std::vector< Wanted > wanted_;
   bess::pb::ListPortsResponse list_;
   std::string error_;
   size_t due_ = 0;
   std::vector< Vex::EnginePorts::Call > calls_; // gone first: they call back
};

} // namespace Host
