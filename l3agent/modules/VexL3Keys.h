// The keys by which the agent names what it has put into the data plane: FECs, next hops, resolve entries.
#pragma once

#include "GantFlat.h"
#include "HulTypes.h"
#include "KytHashMix.h"
#include "StateVexVif.h"

namespace VexL3Unicast {

// Identifies a FEC, and is its `fec_id` in the FIB. The null key is all ones: having no FEC and holding the null key
// are the same test everywhere.
class FecKey {
   GANT_SCALAR( FecKey, U32, 4294967295u )
   static constexpr FecKey null() { return FecKey(); }
};

// What a next hop does with a packet.
GANT_ENUM( NextHopPktCmd, U8, ( pktCmdNone, 0 ), // an unset key, never valid in one that is programmed
           ( pktCmdForward, 1 ),                 // to a neighbour
           ( pktCmdArpTrap, 2 ),                 // to software, for address resolution
           ( pktCmdReceive, 3 ),                 // to the local host
           ( pktCmdSlowReceive, 4 ),             // to the local host, on the slow path
           ( pktCmdTrapVxlanULFlood, 5 ),        // has an entry, but no key of this kind is made
           ( pktCmdDrop, 6 ),                    // discard
           ( pktCmdForwardAndTrap, 7 ) )         // declared only

// One next hop of one FEC.
//
// `vlanId` is the low 16 bits of the interface's L3Id for a forwarding next hop, none otherwise. `intf` selects the
// NextHopMod that holds the entry and the pool from which `nhLocalIndex` came; 0 means that the pool was empty. A
// `tunnelIntf` means that the FIB reaches this next hop through that tunnel's NhResolve. `tunnelKey` is that of a next
// hop over a VXLAN tunnel.
class NextHopKey {
   GANT_VALUE_FIELDS( "VexL3Unicast::NextHopKey", NextHopKey, ( NextHopPktCmd, pktCmd ),
                      ( Bridging::VlanIdOrNone, vlanId ), ( Kynet::IntfId, intf ), ( Kynet::IntfId, tunnelIntf ),
                      ( Kynet::EthAddr, ethAddr ), ( U32, nhLocalIndex ), ( Hul::VrfAndIpAddr, tunnelKey ) )
   GANT_VALUE_COMPARE( NextHopKey )
   bool operator!() const { return *this == NextHopKey(); }
   // Without `tunnelIntf`: next hops that differ in it alone share a hash.
   size_t hash() const {
      return Kyt::HashMix( 0 )
           .mix( pktCmd() )
           .mix( vlanId() )
           .mix( intf() )
           .mix( ethAddr() )
           .mix( tunnelKey() )
           .mix( nhLocalIndex() )
           .value();
   }
   // All fields but `tunnelIntf`, separated by commas.
   Gant::String str() const;
};

// One entry of a NhResolve. `nhPos` is the next hop's slot in the FEC's FecInfo. The local index is part of the key, so
// the entries of a FEC's old and new next hops coexist during an update.
class NhrEntryKey {
   GANT_VALUE( "VexL3Unicast::NhrEntryKey", NhrEntryKey, ( FecKey, fecKey ), ( U32, nhPos ), ( Kynet::IntfId, intf ),
               ( U32, nhLocalIndex ) )
};

// What is computed for one entry of a next-hop table. Only `pktCmd` reaches the data plane: a value of
// next_hop_command.h; the rest is for traces and comparison.
class VexNhEntry {
   GANT_VALUE( "VexL3Unicast::VexNhEntry", VexNhEntry, ( U32, pktCmd ), ( Kynet::EthAddr, macDA ),
               ( U32, nhLocalIndex ), ( VexVif::VifId, egressVif ), ( Bridging::VlanIdOrNone, egressBd ),
               ( U32, l2HdrInsertPtr ), ( U32, propTTL ), ( U32, ecmpSize ), ( U32, isTunnelVif ) )
};

// A member of a FEC in the FIB: the interface whose gate it leaves by, and the index in the module behind it.
class NexthopInfo {
   GANT_VALUE( "VexL3Unicast::NexthopInfo", NexthopInfo, ( Kynet::IntfId, intfId ), ( U32, nhIndex ) )
};

// The members of a FEC, each once. It has no text form: reading one is a bug.
class NexthopInfoColl {
 public:
   using NexthopInfos = Gant::SmallSet< NexthopInfo, 16 >;
   NexthopInfoColl() = default;
   explicit NexthopInfoColl( const Gant::String & strep );
   void newNh( const NexthopInfo & nexthopInfo ) { nhIs( nexthopInfo, true ); }
   GANT_SET( NexthopInfos, nh )
   friend bool operator==( const NexthopInfoColl & a, const NexthopInfoColl & b ) { return a.nh_ == b.nh_; }
};

} // namespace VexL3Unicast
