// The proxies of the layer-3 modules, and their container.
//
// A proxy turns each operation into one command: it fills the message, queues it, and never waits for a reply. It keeps
// no table of what it has sent, and checks nothing: what the data plane refuses comes back as an error of the pair.
#pragma once

#include "VexL2Intf.h"
#include "VexL3Keys.h"

namespace vex::pb {
class FibIpv4Arg;
class IpInputArg;
class Ip4GreTunArg;
class Ip4IpsecTunArg;
class IpOutputArg;
class NextHopInitArg;
class NhResolveArg;
} // namespace vex::pb

namespace VexL3Unicast {

class VexL3Sm;

// The one IPv4 forwarding table. All VRFs share it: a route carries its VRF and names a FEC, and a FEC lists output
// gates and next-hop indexes.
class FibIpv4 : public Vex::Module {
 public:
   using OutGates = Gant::HashMap< Kynet::IntfId, Vex::GateId >;

   FibIpv4( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
            Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm );
   const char * fwkType() const override { return "VexL3Unicast::FibIpv4"; }

   GANT_CONST( VexL3Sm *, l3Sm )
   // The output gate that leads to the interface's egress chain; that of the empty interface leads to the for-us
   // classifier. No gate for an interface that is not there.
   GANT_MAP( OutGates, intfIdToOutGate )

   // Also replaces. The FEC may come later.
   void addRoute( Hul::VrfId vrf, U32 prefix, U32 prefixLen, FecKey fec );
   void delRoute( Hul::VrfId vrf, U32 prefix, U32 prefixLen );
   // Also replaces. A member whose interface has no gate is sent with the value of GateId(-1).
   void addFec( FecKey fec, const NexthopInfoColl & nexthopColl );
   void addFecWithGate( FecKey fec, Vex::GateId gate );
   void delFec( FecKey fec );
   void addVrf( Hul::VrfId vrf );
   void delVrf( Hul::VrfId vrf );
   // The answer is a FibIpv4ReadFibResp on the pair's response queue.
   void show( int cliSocket, const Gant::String & vrfName ) override;
   void setCounterIds( Vex::CounterId noRouteCounter, Vex::CounterId noFecCounter );

 private:
   void sendVrf( const char * action, Hul::VrfId vrf );
};

// Gets from the FIB what is for the device itself, and passes it to the trap module.
class ForUsClassifyIpv4 : public Vex::Module {
 public:
   ForUsClassifyIpv4( const Gant::String & name, U32 maxInGate, U32 maxOutGate, U32 reservedInGate, U32 reservedOutGate,
                      Message * initArgs, Gant::Ptr< Vex::ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "VexL3Unicast::ForUsClassifyIpv4"; }
   void setCounterIds( Vex::CounterId internalErrLinearizeCounter, Vex::CounterId unknownPktCounter );
};

class NextHopModUpdateSMacSm;

// The next hops of one Ethernet interface: prepends the layer-2 header.
class NextHopMod : public Vex::Module {
 public:
   NextHopMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
               Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId );
   ~NextHopMod() override;
   const char * fwkType() const override { return "VexL3Unicast::NextHopMod"; }

   GANT_CONST( VexL3Sm *, l3Sm )
   GANT_CONST( Kynet::IntfId, intfId )

   // The last of its writers wins. The zero address is not sent.
   void setSrcMacAddr( const Kynet::EthAddr & ethAddr );
   // Index and MAC are the key's, the command is the entry's. A MAC of all zeros is left out.
   void writeNH( const NextHopKey & nhk, const VexNhEntry & nhEntry );
   void deleteNH( const NextHopKey & nhk );
   // The answer is a NextHopReadNHResp on the pair's response queue.
   void show( int cliSocket, const Gant::String & intfName ) override;
   void setCounterIds( Vex::CounterId misMatchRouterCounter, Vex::CounterId badNextHopCmdCounter,
                       Vex::CounterId badNextHopIndexCounter, Vex::CounterId prependFailCounter );

   // Keeps the source MAC of `nhMod` in step with the interface's. One with the same arguments stays.
   const Gant::Ptr< NextHopModUpdateSMacSm > & updateSMacSmIs( const Gant::Ptr< const Vex::L2Intf > & l2Intf,
                                                               NextHopMod * nhMod );
   const Gant::Ptr< NextHopModUpdateSMacSm > & updateSMacSm() const { return updateSMacSm_; }
   void updateSMacSmDel();

 private:
   Gant::Ptr< NextHopModUpdateSMacSm > updateSMacSm_;
};

//   watches   L2Intf::macAddr
//   calls     NextHopMod::setSrcMacAddr
class NextHopModUpdateSMacSm : public Gant::StateMachine {
 public:
   NextHopModUpdateSMacSm( const Gant::Ptr< const Vex::L2Intf > & l2Intf, NextHopMod * nhMod );
   const Gant::Ptr< const Vex::L2Intf > & l2Intf() const { return gantL2Intf_.notifier(); }
   GANT_CONST( NextHopMod *, nhMod ) // which owns this
   void updateSMac();

 private:
   class GantL2Intf : public Vex::L2Intf::Notifiee {
    public:
      GantL2Intf( NextHopModUpdateSMacSm * sm, const Gant::Ptr< const Vex::L2Intf > & l2Intf ) :
           Notifiee( sm, l2Intf ), sm_( sm ) {}
      void onMacAddr() override { sm_->updateSMac(); }
      void onRenotify() override { sm_->updateSMac(); }

    private:
      NextHopModUpdateSMacSm * sm_;
   };
   GantL2Intf gantL2Intf_;
};

// The resolve table of one tunnel interface: leads from an index to an underlying interface's gate and next hop.
class NhResolve : public Vex::Module {
 public:
   using OutGates = Gant::HashMap< Kynet::IntfId, Vex::GateId >;
   using Entries = Gant::HashMap< NhrEntryKey, U32 >;
   using Indexes = Gant::BtreeMap< U32, bool >;
   static constexpr U32 entriesMax = 1024;

   NhResolve( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
              Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId );
   const char * fwkType() const override { return "VexL3Unicast::NhResolve"; }

   GANT_CONST( VexL3Sm *, l3Sm )
   GANT_CONST( Kynet::IntfId, intfId )
   // By underlying Ethernet interface, the gate that leads to its egress chain.
   GANT_MAP( OutGates, intfIdToOutGate )
   // The entry index of each resolved next hop.
   GANT_MAP( Entries, nhrEntry )
   // The free entry indexes.
   GANT_MAP( Indexes, nhrEntryIndexAvailable )

   // Takes the lowest free index. When there is none it is 0, the reserved entry, and only a trace tells.
   U32 allocNhrIndex();
   void freeNhrIndex( U32 index ) { nhrEntryIndexAvailableIs( index, true ); }
   // The index is that of nhrEntry( key ).
   void addNhResolveEntry( const NhrEntryKey & key );
   void deleteNhResolveEntry( const NhrEntryKey & key );
};

// The IPv4 checks and the TCP MSS clamp of packets that come in.
class IpInputMod : public Vex::Module {
 public:
   IpInputMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
               Gant::Ptr< Vex::ModuleConfigStatusPair > pair, Kynet::IntfId intfId );
   const char * fwkType() const override { return "VexL3Unicast::IpInputMod"; }
   GANT_CONST( Kynet::IntfId, intfId )
   // In bytes; 0: no clamp.
   void setTcpMssAdjust( U16 tcpMssIngress, bool doL4Checksum );
   void setCounterIds( Vex::CounterId badIpChecksum, Vex::CounterId badIpLen );
};

// MTU, fragmentation and the TCP MSS clamp of packets that go out.
class IpOutputMod : public Vex::Module {
 public:
   IpOutputMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                Gant::Ptr< Vex::ModuleConfigStatusPair > pair, Kynet::IntfId intfId );
   const char * fwkType() const override { return "VexL3Unicast::IpOutputMod"; }
   GANT_CONST( Kynet::IntfId, intfId )
   // In bytes. The command is "setMtu", and leaves the MSS as it is.
   void setIpMtu( U32 ipMtu );
   void setTcpMssAdjust( U16 tcpMssEgress, bool doL4Checksum );
   void setHwOffload( bool ipHdrCksumOffload );
   void setCounterIds( Vex::CounterId failedFragCounter, Vex::CounterId failedLinearizeCounter );
};

// Puts the GRE header on, for transit traffic or for the device's own.
class Ip4GreTun : public Vex::Module {
 public:
   Ip4GreTun( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
              Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId );
   const char * fwkType() const override { return "VexL3Unicast::Ip4GreTun"; }
   GANT_CONST( VexL3Sm *, l3Sm )
   GANT_CONST( Kynet::IntfId, intfId )
   // The field is a flag: 0 goes as false and any other TOS as true. The TOS itself is only given at creation.
   void setIp4TunTos( U8 tunTos );
   void setIp4TunTtl( bool ttlFromInnerHeader );
};

// As Ip4GreTun, for IPsec. It has no commands.
class Ip4IpsecTun : public Vex::Module {
 public:
   Ip4IpsecTun( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId );
   const char * fwkType() const override { return "VexL3Unicast::Ip4IpsecTun"; }
   GANT_CONST( VexL3Sm *, l3Sm )
   GANT_CONST( Kynet::IntfId, intfId )
};

// The proxies by what they serve. xxxIs makes a proxy, and hands the message over in any case. For a key that has one,
// the present proxy stays and takes the message as its new init arguments; other constructor values than it was made
// with raise a name-in-use exception. xxxDel hands the proxy to the caller, who disconnects it and frees its counters.
class L3Modules : public Gant::PtrInterface {
// A keyed proxy that knows the L3 state machine.
#define VEX_L3_MODULE( Mods, mod )                                                                                     \
   GANT_KEYED( Mods, mod )                                                                                             \
   Mods::mapped_type mod##Is( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * message,             \
                              const PairPtr & pair, VexL3Sm * l3Sm, Kynet::IntfId intfId );

 public:
   using Message = google::protobuf::Message;
   using PairPtr = Gant::Ptr< Vex::ModuleConfigStatusPair >;
   template < typename Mod >
   using ByIntf = Gant::HashMap< Kynet::IntfId, Gant::Ptr< Mod > >;
   using IpInputMods = ByIntf< IpInputMod >;
   using IpOutputMods = ByIntf< IpOutputMod >;
   using NextHopMods = ByIntf< NextHopMod >;
   using Ip4GreTuns = ByIntf< Ip4GreTun >;
   using Ip4IpsecTuns = ByIntf< Ip4IpsecTun >;
   using NhResolves = ByIntf< NhResolve >;

   const char * fwkType() const override { return "VexL3Unicast::L3Modules"; }

   const Gant::Ptr< FibIpv4 > & fibIpv4() const { return fibIpv4_; }
   const Gant::Ptr< FibIpv4 > & fibIpv4Is( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * message,
                                           const PairPtr & pair, VexL3Sm * l3Sm );
   Gant::Ptr< FibIpv4 > fibIpv4Del() { return std::exchange( fibIpv4_, nullptr ); }

   const Gant::Ptr< ForUsClassifyIpv4 > & forUsClassifyIpv4() const { return forUsClassifyIpv4_; }
   const Gant::Ptr< ForUsClassifyIpv4 > & forUsClassifyIpv4Is( const Gant::String & name, U32 maxInGate, U32 maxOutGate,
                                                               U32 reservedInGate, U32 reservedOutGate,
                                                               Message * message, const PairPtr & pair );
   Gant::Ptr< ForUsClassifyIpv4 > forUsClassifyIpv4Del() { return std::exchange( forUsClassifyIpv4_, nullptr ); }

   // The FECs of the routes that every VRF has from birth.
   GANT_ATTR( FecKey, bcastFecKey )
   GANT_ATTR( FecKey, mcastLinkLocalFecKey )
   GANT_ATTR( FecKey, mcastDataFecKey )

   GANT_KEYED( IpInputMods, ipInputMod )
   Gant::Ptr< IpInputMod > ipInputModIs( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * message,
                                         const PairPtr & pair, Kynet::IntfId intfId );
   GANT_KEYED( IpOutputMods, ipOutputMod )
   Gant::Ptr< IpOutputMod > ipOutputModIs( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * message,
                                           const PairPtr & pair, Kynet::IntfId intfId );
   // Of Ethernet interfaces only.
   VEX_L3_MODULE( NextHopMods, nextHopMod )
   // Of tunnel interfaces only, as the rest: the transit path and the control-plane path.
   VEX_L3_MODULE( Ip4GreTuns, ip4GreTun )
   VEX_L3_MODULE( Ip4GreTuns, ip4GreTunCp )
   VEX_L3_MODULE( Ip4IpsecTuns, ip4IpsecTun )
   VEX_L3_MODULE( Ip4IpsecTuns, ip4IpsecTunCp )
   VEX_L3_MODULE( NhResolves, nhResolve )

 private:
   Gant::Ptr< FibIpv4 > fibIpv4_;
   Gant::Ptr< ForUsClassifyIpv4 > forUsClassifyIpv4_;
};

#undef VEX_L3_MODULE

} // namespace VexL3Unicast
