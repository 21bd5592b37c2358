#include "VexPortModules.h"

#include "vex/next_hop.pb.h"
#include "vex/port.pb.h"
#include "VexMessage.h"

namespace Vex {

namespace {

constexpr U32 gatesMax = 8192;

vex::pb::PortArg * portArg( Kynet::IntfId intfId ) {
   auto * const arg = new vex::pb::PortArg;
   arg->set_intf_id( intfId.value() );
   arg->set_intfname( intfId.stringValue() );
   return arg;
}

vex::pb::EtherClassifyArg * classifyArg( Kynet::IntfId intfId, const Kynet::EthAddr & macAddr ) {
   auto * const arg = new vex::pb::EtherClassifyArg;
   arg->set_intf_id( intfId.value() );
   arg->set_intfname( intfId.stringValue() );
   if ( !Kynet::TunnelIntfId::isTunnelIntfId( intfId ) ) arg->set_mac_addr( std::string( bytesOf( macAddr ) ) );
   return arg;
}

void sendVrf( const Module & module, U32 vrf ) {
   auto * const arg = newMessage< vex::pb::VrfArg >( module );
   arg->set_vrf( vrf );
   enqueueChange( module, "setVrf", arg );
}

} // namespace

TrapModule::TrapModule( Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( "trap", VexModule::Trap, gatesMax, 3, 0, 3, nullptr, std::move( pair ) ) {}

PortModule::PortModule( VexModule::ModuleClass moduleClass, Kynet::IntfId intfId,
                        Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( moduleName( ( Gant::String( VexModule::name( moduleClass ) ) + "_" ).c_str(), intfId ), moduleClass,
             gatesMax, 1, 0, 0, portArg( intfId ), std::move( pair ) ) {}

void PortModule::setEnabled( bool enabled ) {
   enabled_ = enabled;
   auto * const arg = newMessage< vex::pb::PortEnabledArg >( *this );
   arg->set_enabled( enabled );
   enqueueChange( *this, "setEnabled", arg );
}

EtherClassifyModule::EtherClassifyModule( Kynet::IntfId intfId, const Kynet::EthAddr & macAddr,
                                          Gant::Ptr< ModuleConfigStatusPair > pair ) :
     Module( moduleName( "EtherClassify_", intfId ), VexModule::EtherClassify, gatesMax, 16, 0, 1,
             classifyArg( intfId, macAddr ), std::move( pair ) ) {}

void PortModule::setVrf( U32 vrf ) { sendVrf( *this, vrf ); }

void EtherClassifyModule::setVrf( U32 vrf ) { sendVrf( *this, vrf ); }

void EtherClassifyModule::sendMac( const char * action, const Kynet::EthAddr & macAddr ) {
   auto * const arg = newMessage< vex::pb::EthernetConfigArg >( *this );
   arg->set_mac_addr( std::string( bytesOf( macAddr ) ) );
   enqueueChange( *this, action, arg );
}

void EtherClassifyModule::setMacAddr( const Kynet::EthAddr & macAddr ) { sendMac( "setMacAddr", macAddr ); }
void EtherClassifyModule::addVirtualMac( const Kynet::EthAddr & macAddr ) { sendMac( "addVirtualMac", macAddr ); }
void EtherClassifyModule::removeVirtualMac( const Kynet::EthAddr & macAddr ) { sendMac( "removeVirtualMac", macAddr ); }

void EtherClassifyModule::setEtherTypeGate( U16 etherType, GateId gate ) {
   auto * const arg = newMessage< vex::pb::EtherTypeGateArg >( *this );
   arg->set_ether_type( etherType );
   arg->set_ogate( gate );
   enqueueChange( *this, "setEtherTypeGate", arg );
}

void EtherClassifyModule::clearEtherTypeGate( U16 etherType ) {
   auto * const arg = newMessage< vex::pb::EtherTypeGateArg >( *this );
   arg->set_ether_type( etherType );
   enqueueChange( *this, "clearEtherTypeGate", arg );
}

} // namespace Vex
