// The base of every module proxy. One exists exactly as long as its module: its making and its end are the commands.
#pragma once

#include "GantAttr.h"
#include "VexModuleConfig.h"
#include "VexTypes.h"

#include <memory>

namespace Vex {

class AckSm;

struct VexModule {
   // The class of a module. Its name in the data plane is the enumerator's.
   enum ModuleClass : U32 {
      PortRx = 1,
      PortTx = 2,
      PortRxCp = 3,
      PortTxCp = 4,
      EtherClassify = 5,
      Trap = 6,
      NextHop = 8,
      FibIpv4 = 9,
      KyAclDb = 10,
      KyAcl = 11,
      PolicyQos = 12,
      McastFibIpv4 = 13,
      IpInput = 14,
      IpOutput = 15,
      ForUsClassifyIpv4 = 16,
      McastFibIpv6 = 17,
      Ip4GreTun = 18,
      Ip4IpsecTun = 19,
      NhResolve = 20,
      IpsecManagement = 21,
      IpsecDecrypt = 22,
      IpsecEncrypt = 23,
      IpsecTunnelIngress = 24,
      IpsecTunnelEgress = 25,
      IpsecPolicyIngress = 26,
      IpsecPolicyEgress = 27,
      TunnelIngress = 28,
   };
   static const char * name( ModuleClass moduleClass );
};

// The gates of one direction that are not connected: from the first that is not reserved up to the class's maximum. A
// gate that was given back comes last again: for a while something in the data plane may still refer to it.
class UnusedGates {
 public:
   UnusedGates( U32 reserved, U32 max ) : next_( reserved ), max_( max ) {}
   // No gate when all are taken.
   GateId take();
   void give( GateId gate ) { returned_.push_back( gate ); }
   size_t size() const { return returned_.size() + ( max_ > next_ ? max_ - next_ : 0 ); }

 private:
   std::deque< GateId > returned_;
   U32 next_; // it and all above were never taken
   U32 max_;
};

// A module's constructor creates it in the data plane, its destructor destroys it, which disconnects it there: so the
// proxies at the other ends only forget. Connections are made from the output side.
class Module : public Gant::PtrInterface {
 public:
   using Message = google::protobuf::Message;

   // The two ends of a connection that this module remembers. Modules are not kept alive by their connections.
   struct OutConnection {
      Module * peer = nullptr;
      GateId inGate;
      bool givesGateBack = false; // the gate was taken for this connection: free as soon as it ends
      friend bool operator==( const OutConnection &, const OutConnection & ) = default;
   };
   struct InConnection {
      Module * peer;
      GateId outGate;
      friend bool operator==( const InConnection &, const InConnection & ) = default;
   };
   using OutGates = Gant::OrderedMap< GateId, OutConnection >;
   using InGates = Gant::OrderedMap< GateId, std::vector< InConnection > >;
   using Counters = Gant::OrderedSet< CounterId >;

   // Takes `initArgs`, which may be null. Gates below `reservedInGate` and `reservedOutGate` are given out by number
   // only.
   Module( Gant::String name, VexModule::ModuleClass moduleClass, U32 maxInGate, U32 maxOutGate, U32 reservedInGate,
           U32 reservedOutGate, Message * initArgs, Gant::Ptr< ModuleConfigStatusPair > modulePair );
   ~Module() override;
   const char * fwkType() const override { return "Vex::Module"; }

   GANT_CONST( Gant::String, name )
   GANT_CONST( VexModule::ModuleClass, moduleClass )
   GANT_CONST( U32, maxInGate )
   GANT_CONST( U32, maxOutGate )
   GANT_CONST( U32, reservedInGate )
   GANT_CONST( U32, reservedOutGate )
   // Null when the module was created without any.
   const Message * initArgs() const { return initArgs_.get(); }
   // Takes the message. What the data plane holds stays as it is: a module is created once.
   void initArgsIs( Message * initArgs );
   GANT_CONST( Gant::Ptr< ModuleConfigStatusPair >, modulePair )
   const Gant::Ptr< ModuleConfig > & moduleConfig() const { return modulePair_->moduleConfig(); }
   GANT_ATTR( bool, multipleConnectionsAllowed, true )
   const InGates & inGate() const { return inGate_; }
   const OutGates & outGate() const { return outGate_; }
   const UnusedGates & unusedInGate() const { return unusedInGate_; }
   const UnusedGates & unusedOutGate() const { return unusedOutGate_; }
   GANT_ATTR( int, cliSocket, -1 )
   GANT_ATTR( Gant::Ptr< AckSm >, ackSm )
   // True: shows are answered by the response queue. False: on the socket path.
   GANT_ATTR( bool, useGRPC, true )
   GANT_SET( Counters, inUseCounter )

   // Sends the module's show command; what it shows is the class's. The base class has nothing to show.
   virtual void show( int cliSocket, const Gant::String & objName );
   // Traces what the module still holds that its owner had to give back.
   virtual void doResourceLeakCheck();

   // Takes a free output gate; no gate when there is none.
   GateId getOutGate();
   // Gives a gate of getOutGate back. It is not connected any more.
   void releaseOutGate( GateId gate );
   // Connects a free output gate to the target's input. Connecting to a target that a gate leads to already changes
   // nothing.
   void connectModule( const Gant::Ptr< Module > & target );
   void connectViaReservedGate( const Gant::Ptr< Module > & target, GateId gate );
   // Undoes every connection to the target, and frees the gates that are not reserved.
   void disconnectModule( const Gant::Ptr< Module > & target );
   // The gate that leads to, or comes from, the module of that name; no gate when there is none.
   GateId findGateByName( const Gant::String & name, bool findInGate ) const;

   // Points a taken or reserved gate at the target, away from what it led to; a null target leaves it unconnected.
   void outGateIs( GateId gate, Module * target );

   // Binds an acknowledgement socket named by the suffix and returns its descriptor, which the caller owns, or -1.
   int ackSocketBind( U64 suffix );
   // Prepares the CLI socket for the data plane. -1: it cannot be handed over.
   int dupSocket( U64 suffix );

 private:
   void forget( GateId gate );

   std::unique_ptr< Message > initArgs_;
   InGates inGate_;
   OutGates outGate_;
   UnusedGates unusedInGate_;
   UnusedGates unusedOutGate_;
};

} // namespace Vex
