// EtherClassify: the first step behind an interface. Takes the frames that are for the router, strips the Ethernet
// header, gives the packet its VRF and sends it on by its type.
//
//   in     any gate     frames, or bare IP packets of a tunnel interface, which have no address to check
//   out    0            to the trap: a type that no gate was set for
//          others       as "setEtherTypeGate" says
//   drops  frames to other stations, and frames without a whole header
//
// For the router are: its own address, its virtual addresses, broadcast and multicast.
#pragma once

#include "DpModule.h"

#include "vex/next_hop.pb.h"
#include "vex/port.pb.h"

#include <map>
#include <optional>
#include <set>

namespace Vexdp {

class EtherClassify : public Module {
 public:
   static const ModuleClass & moduleClass();
   static Outcome check( const vex::pb::EtherClassifyArg & init );
   EtherClassify( Identity identity, const vex::pb::EtherClassifyArg & init );

   Outcome setMacAddr( const vex::pb::EthernetConfigArg & arg );
   // EEXIST: it has the address.
   Outcome addVirtualMac( const vex::pb::EthernetConfigArg & arg );
   Outcome removeVirtualMac( const vex::pb::EthernetConfigArg & arg );
   // Before, packets keep the VRF that they came with, 0 from an interface.
   Outcome setVrf( const vex::pb::VrfArg & arg );
   // Adds or replaces.
   Outcome setEtherTypeGate( const vex::pb::EtherTypeGateArg & arg );
   Outcome clearEtherTypeGate( const vex::pb::EtherTypeGateArg & arg );

   Fate process( Packet & packet, Context & context ) override;
   void processAll( Packets packets, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

   // Nothing before it is set.
   const std::optional< MacAddr > & mac() const { return state_.mac; }

 private:
   struct State {
      std::optional< MacAddr > mac;
      std::set< MacAddr > virtualMacs;
      std::optional< std::uint32_t > vrf;
      std::map< std::uint16_t, GateId > gates; // by EtherType
   };

   bool isForRouter( const MacAddr & dst ) const;

   // Null: it has none.
   const GateId * gateOf( std::uint16_t type ) const;

   const std::string intfname_;
   std::optional< MacAddr > initMac_;
   State state_;
   std::optional< GateId > ipv4Gate_; // what state_.gates says of the commonest type
};

} // namespace Vexdp
