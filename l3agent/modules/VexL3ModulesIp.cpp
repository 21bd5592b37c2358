#include "vex/ip.pb.h"
#include "VexL3Modules.h"
#include "VexMessage.h"

namespace VexL3Unicast {

using Vex::enqueueAside;
using Vex::enqueueChange;
using Vex::newMessage;

namespace {

void sendTcpMssAdjust( const Vex::Module & module, U16 mss, bool doL4Checksum ) {
   auto * const arg = newMessage< vex::pb::TcpMssAdjustArg >( module );
   arg->set_mss( mss );
   arg->set_do_mss_checksum( doL4Checksum );
   enqueueChange( module, "setTcpMssAdjust", arg );
}

} // namespace

IpInputMod::IpInputMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                        Gant::Ptr< Vex::ModuleConfigStatusPair > pair, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::IpInput, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     intfId_( intfId ) {}

void IpInputMod::setTcpMssAdjust( U16 tcpMssIngress, bool doL4Checksum ) {
   sendTcpMssAdjust( *this, tcpMssIngress, doL4Checksum );
}

void IpInputMod::setCounterIds( Vex::CounterId badIpChecksum, Vex::CounterId badIpLen ) {
   auto * const arg = newMessage< vex::pb::IpInputCounterIdArg >( *this );
   arg->set_bad_ip_checksum_counter( badIpChecksum );
   arg->set_bad_ip_len_counter( badIpLen );
   enqueueAside( *this, "setCounterIds", arg );
}

IpOutputMod::IpOutputMod( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                          Gant::Ptr< Vex::ModuleConfigStatusPair > pair, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::IpOutput, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     intfId_( intfId ) {}

void IpOutputMod::setIpMtu( U32 ipMtu ) {
   auto * const arg = newMessage< vex::pb::IpOutputArg >( *this );
   arg->set_ip_mtu( ipMtu );
   enqueueChange( *this, "setMtu", arg );
}

void IpOutputMod::setTcpMssAdjust( U16 tcpMssEgress, bool doL4Checksum ) {
   sendTcpMssAdjust( *this, tcpMssEgress, doL4Checksum );
}

void IpOutputMod::setHwOffload( bool ipHdrCksumOffload ) {
   auto * const arg = newMessage< vex::pb::IpOutputHwOffload >( *this );
   arg->set_ip_hdr_cksum_offload( ipHdrCksumOffload );
   enqueueChange( *this, "setHwOffload", arg );
}

void IpOutputMod::setCounterIds( Vex::CounterId failedFragCounter, Vex::CounterId failedLinearizeCounter ) {
   auto * const arg = newMessage< vex::pb::IpOutputCounterIdArg >( *this );
   arg->set_failed_frag_counter( failedFragCounter );
   arg->set_failed_linearize_counter( failedLinearizeCounter );
   enqueueAside( *this, "setCounterIds", arg );
}

Ip4GreTun::Ip4GreTun( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                      Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::Ip4GreTun, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     l3Sm_( l3Sm ), intfId_( intfId ) {}

void Ip4GreTun::setIp4TunTos( U8 tunTos ) {
   auto * const arg = newMessage< vex::pb::TunTosArg >( *this );
   arg->set_tun_tos( tunTos != 0 );
   enqueueChange( *this, "setIp4TunTos", arg );
}

void Ip4GreTun::setIp4TunTtl( bool ttlFromInnerHeader ) {
   auto * const arg = newMessage< vex::pb::TunTtlArg >( *this );
   arg->set_ttl_from_inner_header( ttlFromInnerHeader );
   enqueueChange( *this, "setIp4TunTtl", arg );
}

Ip4IpsecTun::Ip4IpsecTun( const Gant::String & name, U32 maxInGate, U32 maxOutGate, Message * initArgs,
                          Gant::Ptr< Vex::ModuleConfigStatusPair > pair, VexL3Sm * l3Sm, Kynet::IntfId intfId ) :
     Module( name, Vex::VexModule::Ip4IpsecTun, maxInGate, maxOutGate, 0, 1, initArgs, std::move( pair ) ),
     l3Sm_( l3Sm ), intfId_( intfId ) {}

} // namespace VexL3Unicast
