// The modules of an interface that have settings: MTU, MSS, VRF, MACs, and the gate of each EtherType. What was given
// at creation counts until a command changes it.

#include "HostComparer.h"
#include "vex/ip.pb.h"
#include "vex/next_hop.pb.h"
#include "vex/port.pb.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

std::string inWords( U32 bytes ) { return bytes == 0 ? "none" : std::to_string( bytes ) + " bytes"; }

// The clamp, which both IP modules have.
class IpComparer : public Comparer {
 public:
   using Comparer::Comparer;

 protected:
   bool told( const std::string & cmd, const std::string & arg ) override {
      vex::pb::TcpMssAdjustArg clamp;
      if ( cmd != "setTcpMssAdjust" || !clamp.ParseFromString( arg ) ) return false;
      mss_ = clamp.mss();
      return true;
   }
   void finishMss( U32 meant ) {
      findings().compared( "settings" );
      findings().compare( name(), "TCP MSS", inWords( meant ), inWords( mss_ ) );
   }
   U32 mss_ = 0;
};

class IpInputComparer : public IpComparer {
 public:
   using IpComparer::IpComparer;
   void created( const google::protobuf::Any & any ) override {
      vex::pb::IpInputArg arg;
      if ( any.UnpackTo( &arg ) ) mss_ = arg.mss();
   }
   bool finish() override {
      if ( const auto & l2Intf = session().vexcsd()->l2Intf( static_cast< IpInputMod & >( module() ).intfId() ) )
         finishMss( l2Intf->maxMssIngress() );
      return true;
   }
};

class IpOutputComparer : public IpComparer {
 public:
   using IpComparer::IpComparer;
   void created( const google::protobuf::Any & any ) override {
      vex::pb::IpOutputArg arg;
      if ( !any.UnpackTo( &arg ) ) return;
      mss_ = arg.mss();
      mtu_ = arg.ip_mtu();
   }
   bool finish() override {
      const auto intfId = static_cast< IpOutputMod & >( module() ).intfId();
      if ( const auto & l2Intf = session().vexcsd()->l2Intf( intfId ) ) finishMss( l2Intf->maxMssEgress() );
      const auto l3Intf = session().vexcsd()->l3Intf( intfId );
      if ( !l3Intf ) return true;
      findings().compared( "settings" );
      findings().compare( name(), "MTU", inWords( l3Intf->ipMtu() ), inWords( mtu_ ) );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      vex::pb::IpOutputArg arg;
      if ( cmd != "setMtu" ) return IpComparer::told( cmd, bytes );
      if ( !arg.ParseFromString( bytes ) ) return false;
      mtu_ = arg.ip_mtu();
      return true;
   }

 private:
   U32 mtu_ = 0;
};

template < typename Arg, typename Take >
bool parsed( const std::string & bytes, Take take ) {
   Arg arg;
   if ( !arg.ParseFromString( bytes ) ) return false;
   take( arg );
   return true;
}

// The one setting of a port: whether it takes anything in, or, of a tunnel's entrance for the router's own packets, the
// VRF.
class PortComparer : public Comparer {
 public:
   using Comparer::Comparer;
   bool finish() override {
      const auto text = []( bool enabled ) { return enabled ? "enabled" : "disabled"; };
      if ( module().moduleClass() == Vex::VexModule::PortRx ) {
         compare( "port", text( static_cast< Vex::PortModule & >( module() ).enabled() ), text( enabled_ ) );
         return true;
      }
      for ( const auto & [ intfId, l2Intf ] : session().vexcsd()->l2IntfIterator() )
         if ( l2Intf->rxCpModule().get() == &module() )
            compare( "VRF", std::to_string( l2Intf->underlayVrfId().value() ), std::to_string( vrf_ ) );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      if ( cmd == "setVrf" ) return parsed< vex::pb::VrfArg >( bytes, [ this ]( auto & arg ) { vrf_ = arg.vrf(); } );
      if ( cmd == "setEnabled" )
         return parsed< vex::pb::PortEnabledArg >( bytes, [ this ]( auto & arg ) { enabled_ = arg.enabled(); } );
      return false;
   }

 private:
   void compare( const char * setting, const std::string & meant, const std::string & held ) {
      findings().compared( "settings" );
      findings().compare( name(), setting, meant, held );
   }

   U32 vrf_ = 0;
   bool enabled_ = true;
};

class ClassifyComparer : public Comparer {
 public:
   using Comparer::Comparer;
   void created( const google::protobuf::Any & any ) override {
      vex::pb::EtherClassifyArg arg;
      if ( !any.UnpackTo( &arg ) ) return;
      mac_ = macOf( arg.mac_addr() );
      intfName_ = arg.intfname();
   }

   bool finish() override {
      const auto classified = comparison().classified.find( &module() );
      if ( classified == comparison().classified.end() ) return true;
      const auto intfId = classified->second;
      const auto & l2Intf = session().vexcsd()->l2Intf( intfId );
      if ( !l2Intf ) return true;
      const auto l3Intf = session().vexcsd()->l3Intf( intfId );
      findings().compared( "settings", 4 );
      findings().compare( name(), "interface", intfId.stringValue(), intfName_ );
      findings().compare( name(), "MAC", textOrNone( l2Intf->macAddr() ), textOrNone( mac_ ) );
      findings().compare( name(), "VRF", std::to_string( l3Intf ? l3Intf->vrfId().value() : 0 ),
                          std::to_string( vrf_ ) );
      std::set< std::string > virtualMacs;
      for ( const auto & mac : l2Intf->virtualMacAddrIterator() ) virtualMacs.insert( mac.stringValue() );
      findings().compare( name(), "virtual MACs", Json( virtualMacs ).dump(), Json( virtualMacs_ ).dump() );
      finishGates( l3Intf );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      if ( cmd == "setVrf" ) return parsed< vex::pb::VrfArg >( bytes, [ this ]( auto & arg ) { vrf_ = arg.vrf(); } );
      if ( cmd == "setMacAddr" )
         return parsed< vex::pb::EthernetConfigArg >( bytes,
                                                      [ this ]( auto & arg ) { mac_ = macOf( arg.mac_addr() ); } );
      if ( cmd == "addVirtualMac" )
         return parsed< vex::pb::EthernetConfigArg >(
              bytes, [ this ]( auto & arg ) { virtualMacs_.insert( macOf( arg.mac_addr() ).stringValue() ); } );
      if ( cmd == "setEtherTypeGate" )
         return parsed< vex::pb::EtherTypeGateArg >(
              bytes, [ this ]( auto & arg ) { gates_[ arg.ether_type() ] = arg.ogate(); } );
      return false;
   }

 private:
   void finishGates( const Gant::Ptr< Vex::L3Intf > & l3Intf ) {
      std::map< U32, U32 > meant;
      if ( l3Intf )
         for ( const auto & [ etherType, chain ] : l3Intf->ingressChains() )
            for ( const auto & source : chain.sources() )
               if ( source.module.get() == &module() ) meant[ etherType ] = source.gate.value();
      const auto object = []( U32 etherType ) { return Gant::format( "EtherType 0x%04x", etherType ); };
      for ( const auto & [ etherType, gate ] : meant )
         if ( !gates_.contains( etherType ) )
            findings().missing( name(), object( etherType ), "gate " + std::to_string( gate ) );
      for ( const auto & [ etherType, gate ] : gates_ ) {
         const auto held = "gate " + std::to_string( gate );
         const auto at = meant.find( etherType );
         if ( at == meant.end() )
            findings().unexpected( name(), object( etherType ), held );
         else
            findings().compare( name(), object( etherType ), "gate " + std::to_string( at->second ), held );
         if ( !comparison().leads( name(), gate ) )
            findings().dangling( name(), object( etherType ), held + " is not connected" );
      }
   }

   std::string intfName_;
   Kynet::EthAddr mac_;
   U32 vrf_ = 0;
   std::set< std::string > virtualMacs_;
   std::map< U32, U32 > gates_;
};

} // namespace

std::unique_ptr< Comparer > ipInputComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< IpInputComparer >( comparison, module );
}

std::unique_ptr< Comparer > ipOutputComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< IpOutputComparer >( comparison, module );
}

std::unique_ptr< Comparer > portComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< PortComparer >( comparison, module );
}

std::unique_ptr< Comparer > classifyComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< ClassifyComparer >( comparison, module );
}

} // namespace Host
